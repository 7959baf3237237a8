#include "pricing/optionpricing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

const double S = 12345.0; // a sentinel: any value left unwritten shows up as it
const double kCdfError = 3e-7; // the seven-digit polynomial against the true integral

double cdf(double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); }
double pdf(double x) { return std::exp(-0.5 * x * x) / std::sqrt(2.0 * M_PI); }

struct Greeks
{
    double call, put, deltaCall, deltaPut, gamma, vega, theta;
};

// Black-76 without discounting, sigma a fraction; vega per unit of volatility, theta per year.
Greeks black76(double F, double K, double sqrtT, double sigma)
{
    const double w = sigma * sqrtT, d1 = (std::log(F / K) + 0.5 * w * w) / w, d2 = d1 - w;
    return {F * cdf(d1) - K * cdf(d2), K * cdf(-d2) - F * cdf(-d1), cdf(d1), cdf(d1) - 1.0,
            pdf(d1) / (F * w), F * sqrtT * pdf(d1), -F * pdf(d1) * sigma / (2.0 * sqrtT)};
}

// Bachelier, sigma in price units; theta is the size of the true decay.
Greeks bachelier(double F, double K, double sqrtT, double sigma)
{
    const double w = sigma * sqrtT, d = (F - K) / w;
    return {(F - K) * cdf(d) + w * pdf(d), (K - F) * cdf(-d) + w * pdf(d), cdf(d), cdf(d) - 1.0,
            pdf(d) / w, sqrtT * pdf(d), sigma * pdf(d) / (2.0 * sqrtT)};
}

VolatInputParamsEx input(double F, double K, double sqrtT, int model)
{
    VolatInputParamsEx in;
    in.underlying = F, in.strike = K, in.sqrtTime = sqrtT, in.model = model;
    return in;
}

VolatOutputParamsEx sentinelOutput()
{
    VolatOutputParamsEx out;
    out.deltaCall = out.deltaPut = out.gamma = out.vega = out.theta = S;
    out.theorPriceCall = out.theorPricePut = S;
    return out;
}

} // namespace

TEST(NormalDistribution, AgreesWithTheTrueIntegralWithinThePolynomialError)
{
    for (double x = -12.0; x <= 12.0; x += 0.0625) {
        EXPECT_NEAR(norm_cdf(x), cdf(x), kCdfError) << x;
        EXPECT_NEAR(norm_pdf(x), pdf(x), 1e-15) << x;
    }
    EXPECT_NE(norm_cdf(0.0), 0.5); // 0 takes the branch that returns the polynomial, not 1 - p
    EXPECT_GT(norm_cdf(-10.0), 0.0); // the cut-offs are strict
    EXPECT_EQ(norm_cdf(-10.0000001), 0.0);
}

TEST(PricingModels, PricesAndGreeksFollowTheReferenceFormulas)
{
    const struct
    {
        int model;
        Greeks (*reference)(double, double, double, double);
        std::vector<double> strikes, sqrtTs, sigmas;
    } models[] = {
        {0, black76, {60.0, 95.0, 100.0, 107.5, 180.0}, {0.1, 0.5, 1.3}, {0.05, 0.3, 0.9}},
        {1, bachelier, {-20.0, 80.0, 100.0, 103.0, 150.0}, {0.2, 1.0}, {1.0, 15.0, 60.0}},
    };
    for (const auto &m : models)
        for (double K : m.strikes)
            for (double sqrtT : m.sqrtTs)
                for (double sigma : m.sigmas) {
                    SCOPED_TRACE(testing::Message() << m.model << ' ' << K << ' ' << sqrtT << ' ' << sigma);
                    const VolatInputParams in = input(100.0, K, sqrtT, m.model);
                    VolatOutputParams out = sentinelOutput();
                    calcVolatParamsNorm(out, in, sigma);
                    const Greeks g = m.reference(100.0, K, sqrtT, sigma);
                    const double priceError = kCdfError * (m.model == 0 ? 100.0 + K : std::fabs(100.0 - K) + sigma);
                    const std::pair<double, double> prices = theorPriceCallPut(in, sigma);
                    EXPECT_NEAR(out.theorPriceCall, g.call, priceError);
                    EXPECT_NEAR(out.theorPricePut, g.put, priceError);
                    EXPECT_NEAR(prices.first, g.call, priceError);
                    EXPECT_NEAR(prices.second, g.put, priceError);
                    EXPECT_NEAR(out.deltaCall, g.deltaCall, kCdfError);
                    EXPECT_NEAR(out.deltaPut, g.deltaPut, kCdfError);
                    // The density is exact, so the other Greeks agree to rounding.
                    EXPECT_NEAR(out.gamma, g.gamma, 1e-12 * std::fabs(g.gamma) + 1e-300);
                    EXPECT_NEAR(out.vega, g.vega, 1e-12 * std::fabs(g.vega));
                    EXPECT_NEAR(out.theta, g.theta, 1e-12 * std::fabs(g.theta));
                    // Lognormal theta is -0.0 where the density underflows.
                    EXPECT_EQ(std::signbit(out.theta), m.model == 0);
                }
}

TEST(PricingModels, NormLayerLeavesOutputUntouchedOnInputsItRejects)
{
    const std::pair<VolatInputParams, double> rejected[] = {
        {input(100.0, 0.0, 1.0, 0), 0.2},   {input(-1.0, 100.0, 1.0, 0), 0.2}, {input(NAN, 100.0, 1.0, 0), 0.2},
        {input(100.0, 100.0, 0.0, 0), 0.2}, {input(100.0, 100.0, NAN, 1), 0.2},
        {input(100.0, 100.0, 1.0, 2), 0.2}, {input(100.0, 100.0, 1.0, 1), 0.0}};
    for (const auto &r : rejected) {
        VolatOutputParams out = sentinelOutput();
        calcVolatParamsNorm(out, r.first, r.second);
        EXPECT_TRUE(out.theorPriceCall == S && out.gamma == S && out.vega == S) << r.first.model;
    }
}

TEST(PricingUnits, PublicLayerScalesVolatilityVegaAndTheta)
{
    // Lognormal takes percent and reports vega per percent; normal stays in price units.
    // Theta is per day in both.
    for (const auto &m : {std::make_pair(0, 100.0), std::make_pair(1, 1.0)}) {
        VolatOutputParams norm = sentinelOutput(), pub = sentinelOutput();
        const VolatInputParams in = input(100.0, 110.0, 0.5, m.first);
        calcVolatParamsNorm(norm, in, 25.0 / m.second);
        calcVolatParams(pub, in, 25.0);
        EXPECT_DOUBLE_EQ(pub.theorPriceCall, norm.theorPriceCall);
        EXPECT_DOUBLE_EQ(pub.theorPricePut, norm.theorPricePut);
        EXPECT_DOUBLE_EQ(pub.deltaCall, norm.deltaCall);
        EXPECT_DOUBLE_EQ(pub.vega, norm.vega / m.second);
        EXPECT_DOUBLE_EQ(pub.theta, norm.theta / 365.0);
    }
}

TEST(PricingUnits, IntrinsicCasesWriteOnlyPricesAndOneDelta)
{
    const struct { VolatInputParams in; double volat, call, put, deltaCall, deltaPut; } cases[] = {
        {input(100.0, 100.0, 1.0, 0), 0.0, 0.0, 0.0, 0.5, -0.5},
        {input(120.0, 100.0, 1.0, 1), 0.0, 20.0, 0.0, 1.0, S},
        {input(-5.0, 10.0, 1.0, 0), 30.0, 0.0, 15.0, S, -1.0}, // a bad lognormal price, even with a volatility
        {input(120.0, 100.0, 0.0, 0), 30.0, S, S, S, S},       // no time: nothing at all is written
    };
    for (const auto &c : cases) {
        VolatOutputParams out = sentinelOutput();
        calcVolatParams(out, c.in, c.volat);
        EXPECT_EQ(std::vector<double>({out.theorPriceCall, out.theorPricePut, out.deltaCall, out.deltaPut, out.gamma}),
                  std::vector<double>({c.call, c.put, c.deltaCall, c.deltaPut, S}));
    }
}

TEST(VolatilityCurve, ShapeBoundsAndDegenerateInputs)
{
    VolatInputParams in = input(100.0, 120.0, 0.5, 0);
    in.curveA = 0.2, in.curveB = 0.1, in.curveC = 2.0, in.curveD = 0.05, in.curveE = 3.0;
    in.curveShift = 0.01, in.curveScale = 100.0, in.minVolat = 1.0, in.maxVolat = 200.0;
    const auto curve = [](double x) {
        return ((1.0 - std::exp(-x * 2.0 * x)) * 0.1 + 0.2) * 100.0 + std::atan(3.0 * x) * 0.05 / 3.0;
    };
    EXPECT_NEAR(volatByCurve(in), curve(std::log(1.2) / 0.5 - 0.01 / 0.5), 1e-12);
    const VolatInputParams good = in;

    in.maxVolat = 10.0;
    EXPECT_EQ(volatByCurve(in), 10.0);
    in.minVolat = 15.0; // crossed bounds: the lower one wins
    EXPECT_EQ(volatByCurve(in), 15.0);
    in.model = 1, in.minVolat = 0.0; // normal: moneyness over scale, no upper bound
    EXPECT_NEAR(volatByCurve(in), curve((120.0 - 100.0) / (0.5 * 100.0) - 0.01 / 0.5), 1e-12);

    in = good, in.minVolat = 0.0, in.strike = 0.0;
    EXPECT_EQ(volatByCurve(in), 0.0);
    in.strike = 120.0, in.model = 7;
    EXPECT_EQ(volatByCurve(in), 0.0);
    in.model = 0, in.curveE = 0.0; // 0/0 is left as NaN
    EXPECT_TRUE(std::isnan(volatByCurve(in)));

    // A negative volatility asks for the curve; a curve of 0 then goes intrinsic.
    VolatOutputParams viaCurve = sentinelOutput(), direct = sentinelOutput();
    calcVolatParams(viaCurve, good, -1.0);
    calcVolatParams(direct, good, volatByCurve(good));
    EXPECT_EQ(viaCurve.theorPriceCall, direct.theorPriceCall);
    EXPECT_EQ(viaCurve.vega, direct.vega);
    in = good, in.underlying = -1.0;
    viaCurve = sentinelOutput();
    calcVolatParams(viaCurve, in, -1.0);
    EXPECT_EQ(viaCurve.theorPricePut, 121.0);
    EXPECT_EQ(viaCurve.vega, S);
}

TEST(RoundedPrice, RoundsTheChosenLegAndNeverGoesBelowOneStep)
{
    VolatInputParamsEx in = input(100.0, 90.0, 0.5, 0);
    in.curveA = 0.3, in.curveScale = 100.0, in.curveE = 1.0, in.maxVolat = 500.0, in.priceStep = 0.25;
    VolatOutputParamsEx out;
    calcVolatParamsEx(out, in);
    EXPECT_NEAR(out.volat, 30.0, 1e-12);
    EXPECT_EQ(out.theorPriceRounded, std::round(out.theorPriceCall / 0.25) * 0.25);

    // A put worth less than a step (deep out of the money, then at zero volatility) is
    // still rounded up to one step.
    in.isPut = true, in.strike = 1.0;
    for (double level : {0.01, 0.0}) {
        in.curveA = level;
        calcVolatParamsEx(out, in);
        EXPECT_LT(out.theorPricePut, 0.25);
        EXPECT_EQ(out.theorPriceRounded, 0.25);
    }
    EXPECT_EQ(out.theorPricePut, 0.0);

    in.isPut = false, in.priceStep = 0.0; // a zero step cannot round
    calcVolatParamsEx(out, in);
    EXPECT_EQ(out.theorPriceRounded, out.theorPriceCall);
}

TEST(ImpliedVolatility, RecoversTheVolatilityThatMadeThePrice)
{
    // Lognormal in percent over a grid, and one normal case in price units.
    for (double K : {90.0, 100.0, 112.0})
        for (double vol : {12.0, 35.0, 120.0, -22.0})
            for (bool isPut : {false, true}) {
                const int model = vol < 0 ? 1 : 0;
                const VolatInputParams in = input(100.0, K, model ? 0.8 : 0.6, model);
                const std::pair<double, double> p = theorPriceCallPut(in, model ? -vol : vol / 100.0);
                const double v = volatByTheorPrice(in, isPut, isPut ? p.second : p.first, 0.0, model ? 0.0 : 1.0,
                                                   model ? 500.0 : 300.0, 1e-9, 1e-6);
                EXPECT_NEAR(v, std::fabs(vol), model ? 1e-5 : 1e-4) << K << ' ' << vol << ' ' << isPut;
            }
}

TEST(ImpliedVolatility, BisectionTakesOverAndFailureIsMinusOne)
{
    const VolatInputParamsEx in = input(100.0, 100.0, 1.0, 0);
    const double price = theorPriceCallPut(in, 0.4).first;
    // Start above the bounds: Newton is skipped, bisection from 0 finds it, given tolerances.
    EXPECT_NEAR(volatByTheorPrice(in, false, price, 900.0, 0.0, 100.0, 1e-7, 1e-5), 40.0, 1e-3);
    EXPECT_EQ(volatByTheorPrice(in, false, price, 900.0, 0.0, 100.0, 0.0, 1e-5), -1.0);
    // A price above every call price: bisection ends at the upper bound once narrow enough...
    EXPECT_NEAR(volatByTheorPrice(in, false, 150.0, 20.0, 1.0, 300.0, 1e-9, 1e-9), 300.0, 1e-6);
    // ...while a negative price halves towards 0 100 times without reaching so small a
    // tolerance: failure. So do crossed bounds.
    EXPECT_EQ(volatByTheorPrice(in, false, -1.0, 20.0, 0.0, 300.0, 1e-9, 1e-38), -1.0);
    EXPECT_EQ(volatByTheorPrice(in, false, price, 20.0, 50.0, 10.0, 1e-9, 1e-9), -1.0);
    // The default start of 50 (percent, or price units) is itself a solution.
    for (const VolatInputParamsEx &p : {in, input(100.0, 100.0, 1.0, 1)}) {
        const double price50 = theorPriceCallPut(p, p.model == 0 ? 0.5 : 50.0).second;
        EXPECT_EQ(volatByTheorPrice(p, true, price50, 0.0, 1.0, 99.0, 1e-12, 1e-9), 50.0) << p.model;
    }
}

TEST(PricingRobustness, AnyDoublesGiveValuesAndNeverHang)
{
    const double inf = std::numeric_limits<double>::infinity();
    const double values[] = {0.0, -1.0, 1.0, 100.0, NAN, inf, -inf, 1e308, 1e-308};
    for (double a : values)
        for (double b : values)
            for (int model : {0, 1, 5}) {
                VolatInputParamsEx in;
                in.underlying = in.sqrtTime = in.curveB = in.curveE = in.curveScale = in.maxVolat = a;
                in.strike = in.curveA = in.curveD = in.curveShift = in.minVolat = in.priceStep = b;
                in.curveC = 1.0, in.model = model;
                VolatOutputParamsEx out;
                calcVolatParamsEx(out, in);
                const double curve = volatByCurve(in), cdfValue = norm_cdf(a * b);
                if (!std::isnan(curve) && !std::isnan(in.minVolat) && model == 1) {
                    EXPECT_GE(curve, in.minVolat);
                }
                EXPECT_TRUE(std::isnan(cdfValue) || (cdfValue >= 0.0 && cdfValue <= 1.0));
                const double v = volatByTheorPrice(in, model == 1, a, b, b, a, b, a);
                EXPECT_TRUE(v == -1.0 || std::isnan(v) || model != 5 || b > 0.0) << v;
            }
}
