// Cost of the pricing entry points: one full pricing with the curve against
// one implied-volatility search, whose ratio says how many pricings a search costs.
#include "pricing/optionpricing.h"

#include <benchmark/benchmark.h>

namespace {

VolatInputParamsEx sampleInput(int model)
{
    VolatInputParamsEx in;
    in.underlying = 100.0;
    in.strike = 104.0;
    in.sqrtTime = 0.4;
    in.curveA = model == 0 ? 0.25 : 0.2;
    in.curveB = 0.05;
    in.curveC = 1.5;
    in.curveD = 0.02;
    in.curveE = 2.0;
    in.curveScale = 100.0;
    in.model = model;
    in.minVolat = 1.0;
    in.maxVolat = 300.0;
    in.priceStep = 0.01;
    return in;
}

void BM_CalcVolatParamsEx(benchmark::State &state)
{
    const VolatInputParamsEx in = sampleInput(int(state.range(0)));
    VolatOutputParamsEx out;
    for (auto _ : state) {
        calcVolatParamsEx(out, in);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(BM_CalcVolatParamsEx)->Arg(0)->Arg(1);

void BM_VolatByTheorPrice(benchmark::State &state)
{
    const int model = int(state.range(0));
    const VolatInputParamsEx in = sampleInput(model);
    const double volat = model == 0 ? 0.31 : 31.0;
    const double price = theorPriceCallPut(in, volat).first;
    double sum = 0.0;
    for (auto _ : state) {
        sum += volatByTheorPrice(in, false, price, 0.0, 1.0, 300.0, 1e-8, 1e-6);
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(BM_VolatByTheorPrice)->Arg(0)->Arg(1);

void BM_NormCdf(benchmark::State &state)
{
    double x = -3.0, sum = 0.0;
    for (auto _ : state) {
        sum += norm_cdf(x);
        x = x > 3.0 ? -3.0 : x + 0.001;
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(BM_NormCdf);

} // namespace

BENCHMARK_MAIN();
