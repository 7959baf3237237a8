#include "pricing/optionpricing.h"
#include "pricing/optionpricing_p.h"

#include <QtGlobal>

#include <algorithm>
#include <cmath>

double normDensityConstant()
{
    static const double c = 1.0 / std::sqrt(6.283185307179586);
    return c;
}

double norm_pdf(double x)
{
    return std::exp(x * -0.5 * x) * normDensityConstant();
}

double norm_cdf(double x)
{
    if (x > 10.0)
        return 1.0;
    if (x < -10.0)
        return 0.0;
    const double t = 1.0 / (std::fabs(x) * 0.2316419 + 1.0);
    const double p = std::exp(x * x * -0.5) * 0.3989423 * t
            * ((((t * 1.330274 - 1.821256) * t + 1.781478) * t - 0.3565638) * t + 0.3193815);
    return x > 0.0 ? 1.0 - p : p;
}

double volatByCurve(const VolatInputParams &in)
{
    double x;
    if (in.model == 0) {
        if (!(in.strike > 0.0) || !(in.underlying > 0.0))
            return 0.0;
        x = std::log(in.strike / in.underlying) / in.sqrtTime;
    } else if (in.model == 1) {
        x = (in.strike - in.underlying) / (in.sqrtTime * in.curveScale);
    } else {
        return 0.0;
    }
    x = x - in.curveShift / in.sqrtTime;

    double v = ((1.0 - std::exp(-(x * in.curveC * x))) * in.curveB + in.curveA) * in.curveScale;
    // With curveE 0 this is 0/0: the NaN is left to the bounds below on purpose.
    v = v + std::atan(in.curveE * x) * in.curveD / in.curveE;

    // std::min/std::max return their first argument on NaN, so a NaN passes.
    if (in.model == 0)
        v = std::min(v, in.maxVolat);
    v = std::max(v, in.minVolat);
    return v;
}

std::pair<double, double> theorPriceCallPut(const VolatInputParams &in, double s)
{
    const double F = in.underlying;
    const double K = in.strike;
    const double T = in.sqrtTime;
    double call;
    if (in.model != 1) {
        const double d1 = (std::log(F / K) + T * 0.5 * T * s * s) / (T * s);
        call = norm_cdf(d1) * F - norm_cdf(d1 - T * s) * K;
    } else {
        const double w = s * T;
        const double d = (F - K) / w;
        call = norm_cdf(d) * (F - K) + std::exp(d * -0.5 * d) * normDensityConstant() * w;
    }
    return std::make_pair(call, call - F + K);
}

void calcVolatParamsNorm(VolatOutputParams &out, const VolatInputParams &in, double s)
{
    const double F = in.underlying;
    const double K = in.strike;
    const double T = in.sqrtTime;
    if (in.model == 0 && (!(K > 0.0) || !(F > 0.0)))
        return;
    if (!(s > 0.0) || !(T > 0.0))
        return;
    const double c = normDensityConstant();

    if (in.model == 0) {
        const double w = T * s;
        const double L = std::log(F / K);
        const double d1 = (L + T * 0.5 * T * s * s) / w;
        const double n1 = norm_cdf(d1);
        const double f = std::exp(d1 * -0.5 * d1) * c;
        out.theorPriceCall = F * n1 - norm_cdf(d1 - w) * K;
        out.theorPricePut = out.theorPriceCall - F + K;
        out.deltaCall = n1;
        out.deltaPut = n1 - 1.0;
        out.gamma = f / (s * F * T);
        out.vega = F * T * f;
        out.theta = -(s * F * f / (T + T));
    } else if (in.model == 1) {
        const double m = F - K;
        const double w = T * s;
        const double d = m / w;
        const double n1 = norm_cdf(d);
        const double f = std::exp(d * -0.5 * d) * c;
        out.theorPriceCall = m * n1 + w * f;
        out.theorPricePut = out.theorPriceCall - F + K;
        out.deltaCall = n1;
        out.deltaPut = n1 - 1.0;
        out.gamma = f / (s * T);
        out.vega = f * T;
        // Positive, unlike the lognormal branch: consumers rely on both signs.
        out.theta = f * s / (T + T);
    }
}

void calcVolatParams(VolatOutputParams &out, const VolatInputParams &in, double volat)
{
    if (!(in.sqrtTime > 0.0))
        return;
    if (volat < 0.0)
        volat = volatByCurve(in);
    out.theorPriceCall = 0.0;
    out.theorPricePut = 0.0;

    const bool goodPrice = in.strike > 0.0 && in.underlying > 0.0;
    if (volat != 0.0) {
        if (in.model == 0 && goodPrice) {
            calcVolatParamsNorm(out, in, volat / 100.0);
            out.vega = out.vega / 100.0;
            out.theta = out.theta / 365.0;
            return;
        }
        if (in.model == 1) {
            calcVolatParamsNorm(out, in, volat);
            out.theta = out.theta / 365.0;
            return;
        }
        if (in.model != 0) {
            out.theta = out.theta / 365.0;
            return;
        }
    }

    // No volatility, or a price the lognormal model cannot take: intrinsic value.
    if (in.underlying > in.strike) {
        out.theorPriceCall = in.underlying - in.strike;
        out.deltaCall = 1.0;
    } else if (in.strike > in.underlying) {
        out.theorPricePut = in.strike - in.underlying;
        out.deltaPut = -1.0;
    } else {
        out.deltaCall = 0.5;
        out.deltaPut = -0.5;
    }
}

void calcVolatParamsEx(VolatOutputParamsEx &out, const VolatInputParamsEx &in)
{
    if (!(in.sqrtTime > 0.0))
        return;
    const double volat = volatByCurve(in);
    out.volat = volat;
    calcVolatParams(out, in, volat);

    const double p = in.isPut ? out.theorPricePut : out.theorPriceCall;
    const double q = p / in.priceStep;
    // qRound64 is undefined beyond the 64-bit range; such a quotient (or a NaN)
    // has no finer grid to round to anyway.
    if (std::fabs(q) < 9.0e18)
        out.theorPriceRounded = double(qRound64(q)) * in.priceStep;
    else
        out.theorPriceRounded = p;
    if (in.priceStep > out.theorPriceRounded)
        out.theorPriceRounded = in.priceStep;
}

namespace {

// The implied-volatility search evaluates prices through one state, skipping
// the evaluation when the volatility has not moved.
class PriceProbe
{
public:
    PriceProbe(const VolatInputParams &in, bool isPut) : m_in(in), m_isPut(isPut) { }

    double priceAt(double x)
    {
        if (x != m_volat) {
            calcVolatParamsNorm(m_state, m_in, x);
            m_volat = x;
        }
        return m_isPut ? m_state.theorPricePut : m_state.theorPriceCall;
    }
    double vega() const { return m_state.vega; }

private:
    const VolatInputParams &m_in;
    const bool m_isPut;
    VolatOutputParams m_state;
    double m_volat = -1.0;
};

const int MaxRounds = 100;

} // namespace

double volatByTheorPrice(const VolatInputParams &in, bool isPut, double price, double startVolat,
                         double minVolat, double maxVolat, double priceTolerance,
                         double volatTolerance)
{
    double x0 = std::fabs(startVolat) <= 1e-12 ? 50.0 : startVolat;
    const bool percent = in.model == 0;
    if (percent) {
        x0 /= 100.0;
        minVolat /= 100.0;
        maxVolat /= 100.0;
        volatTolerance /= 100.0;
    }

    PriceProbe probe(in, isPut);
    bool found = false;
    double x = x0;

    // Newton's method; a start outside the bounds goes straight to bisection.
    if (!(minVolat > x || x > maxVolat)) {
        double diff = price - probe.priceAt(x);
        if (std::fabs(diff) <= priceTolerance) {
            found = true;
        } else {
            for (int round = 0;; ) {
                const double vega = probe.vega();
                if (std::fabs(vega) <= 1e-12 || round == MaxRounds)
                    break;
                x = x + diff / vega;
                if (x < minVolat || x > maxVolat)
                    break;
                ++round;
                diff = price - probe.priceAt(x);
                if (std::fabs(diff) <= priceTolerance) {
                    found = true;
                    break;
                }
            }
        }
    }

    if (!found) {
        double lo = minVolat;
        double hi = maxVolat;
        if (!(lo > hi) && volatTolerance > 0.0 && priceTolerance > 0.0) {
            // The first probe is the half-width, not the midpoint; kept as it
            // always was, since the two agree for the usual lower bound 0.
            x = (hi - lo) * 0.5;
            int round = 0;
            for (;;) {
                const double h = (hi - lo) * 0.5;
                if (volatTolerance > std::fabs(h))
                    break;
                const double diff = price - probe.priceAt(x);
                if (priceTolerance > std::fabs(diff))
                    break;
                if (diff > 0.0)
                    lo = lo + h;
                else
                    hi = hi - h;
                ++round;
                x = (lo + hi) * 0.5;
                if (round == MaxRounds)
                    break;
            }
            found = round != MaxRounds;
        }
    }

    if (!found)
        return -1.0;
    return percent ? x * 100.0 : x;
}
