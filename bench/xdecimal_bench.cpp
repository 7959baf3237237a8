// xdecimal against decimal, side by side: addition, the product of two
// 26-digit numbers, comparison and setScale. Each benchmark also counts the
// heap allocations made inside its timed loop, which must be zero.

#include "numeric/decimal.h"
#include "numeric/xdecimal.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<long> g_allocations(0);
}

void *operator new(std::size_t size)
{
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void *p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}

void operator delete(void *p) noexcept
{
    std::free(p);
}

void operator delete(void *p, std::size_t) noexcept
{
    std::free(p);
}

namespace {

// Runs `body` in the timed loop and reports the allocations per iteration.
template <typename Body>
void timed(benchmark::State &state, Body body)
{
    const long before = g_allocations.load();
    for (auto _ : state)
        body();
    state.counters["allocs/iter"] =
        double(g_allocations.load() - before) / double(state.iterations());
}

void decimalAdd(benchmark::State &state)
{
    decimal acc(12345, 2);
    const decimal step(-1234567, 3);
    timed(state, [&] {
        acc += step;
        benchmark::DoNotOptimize(acc);
        acc -= step;
    });
}

void xdecimalAdd(benchmark::State &state)
{
    xdecimal acc("123.45");
    const xdecimal step("-1234.567");
    timed(state, [&] {
        acc += step;
        benchmark::DoNotOptimize(acc);
        acc -= step;
    });
}

void xdecimalAddSameScale(benchmark::State &state)
{
    xdecimal acc("12345678901234567890.123");
    const xdecimal step("-9876543210.987");
    timed(state, [&] {
        acc += step;
        benchmark::DoNotOptimize(acc);
        acc -= step;
    });
}

void decimalMultiply(benchmark::State &state)
{
    decimal x(12345678901234LL, 4);
    int64 factor = 987654321;
    timed(state, [&] {
        decimal r = x * factor;
        benchmark::DoNotOptimize(r);
    });
}

void xdecimalMultiply26(benchmark::State &state)
{
    const xdecimal a("1234567890123.4567890123456");
    const xdecimal b("9876543210987.6543210987654");
    timed(state, [&] {
        xdecimal r = a * b;
        benchmark::DoNotOptimize(r);
    });
}

void xdecimalMultiplyShort(benchmark::State &state)
{
    const xdecimal a("1234567890123.4567890123456");
    const xdecimal b("12.34");
    timed(state, [&] {
        xdecimal r = a * b;
        benchmark::DoNotOptimize(r);
    });
}

void decimalCompare(benchmark::State &state)
{
    const decimal a(123456789, 3), b(123456788, 2);
    timed(state, [&] { benchmark::DoNotOptimize(a.compare(b)); });
}

void xdecimalCompare(benchmark::State &state)
{
    const xdecimal a("123456.789"), b("1234567.88");
    timed(state, [&] { benchmark::DoNotOptimize(a.compare(b)); });
}

void xdecimalSetScale(benchmark::State &state)
{
    const xdecimal a("123456789012.3456789");
    timed(state, [&] {
        xdecimal r = a;
        r.setScale(3);
        benchmark::DoNotOptimize(r);
    });
}

} // namespace

BENCHMARK(decimalAdd);
BENCHMARK(xdecimalAdd);
BENCHMARK(xdecimalAddSameScale);
BENCHMARK(decimalMultiply);
BENCHMARK(xdecimalMultiply26);
BENCHMARK(xdecimalMultiplyShort);
BENCHMARK(decimalCompare);
BENCHMARK(xdecimalCompare);
BENCHMARK(xdecimalSetScale);

BENCHMARK_MAIN();
