// Throughput of qChecksum64, table-driven, against a bit-at-a-time register:
// the table is there for the ratio between the two (bytes_per_second).
#include "runtime/utils.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

uint64 bitwiseCrc64(const char *data, size_t length)
{
    uint64 crc = ~uint64(0);
    for (size_t i = 0; i < length; ++i) {
        crc ^= uint64(static_cast<unsigned char>(data[i])) << 56;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 63) ? (crc << 1) ^ Q_UINT64_C(0x42F0E1EBA9EA3693) : crc << 1;
    }
    return ~crc;
}

std::vector<char> sample(size_t n)
{
    std::vector<char> data(n);
    for (size_t i = 0; i < n; ++i)
        data[i] = char(i * 131 + 7);
    return data;
}

void BM_Checksum64Table(benchmark::State &state)
{
    const std::vector<char> data = sample(size_t(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(qChecksum64(data.data(), unsigned(data.size())));
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Checksum64Table)->Arg(64)->Arg(1 << 16);

void BM_Checksum64Bitwise(benchmark::State &state)
{
    const std::vector<char> data = sample(size_t(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(bitwiseCrc64(data.data(), data.size()));
    state.SetBytesProcessed(int64_t(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Checksum64Bitwise)->Arg(64)->Arg(1 << 16);

} // namespace

BENCHMARK_MAIN();
