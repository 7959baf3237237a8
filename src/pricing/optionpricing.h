#ifndef TABLEDB_PRICING_OPTIONPRICING_H
#define TABLEDB_PRICING_OPTIONPRICING_H

#include "runtime/global.h"

#include <utility>

// Option pricing on a futures-like underlying, in two models chosen by
// VolatInputParams::model: 0 lognormal (Black-76 without discounting) and
// 1 normal (Bachelier).
//
// Volatility units are part of the interface. Lognormal: calcVolatParams,
// volatByCurve and volatByTheorPrice speak percent (20 means 0.20), while
// calcVolatParamsNorm and theorPriceCallPut take the plain fraction. Normal:
// price units per square root of a year everywhere.
//
// Every function is pure and thread-safe, accepts any doubles (zero, negative,
// NaN, infinite) and throws nothing; bad input yields values, never a fault.
// Output structures belong to the caller: a function writes only the fields
// it documents and leaves the others as they were.

struct TABLEDB_EXPORT VolatInputParams
{
    double strike = 0.0;
    double underlying = 0.0;
    double sqrtTime = 0.0; // square root of the time to expiry in years
    double curveA = 0.0; // level
    double curveB = 0.0; // wing height
    double curveC = 0.0; // wing steepness
    double curveD = 0.0; // skew height
    double curveE = 0.0; // skew steepness
    double curveShift = 0.0; // centre shift in the moneyness coordinate
    double curveScale = 0.0; // also the moneyness divisor of the normal model
    qint32 model = 0; // 0 lognormal, 1 normal
    double minVolat = 0.0;
    double maxVolat = 0.0; // lognormal model only
};

struct TABLEDB_EXPORT VolatInputParamsEx : VolatInputParams
{
    bool isPut = false; // whether theorPriceRounded is the put's price
    double priceStep = 0.0;
};

struct TABLEDB_EXPORT VolatOutputParams
{
    double deltaCall = 0.0;
    double deltaPut = 0.0;
    double gamma = 0.0;
    double vega = 0.0;
    double theta = 0.0;
    double theorPriceCall = 0.0;
    double theorPricePut = 0.0;
};

struct TABLEDB_EXPORT VolatOutputParamsEx : VolatOutputParams
{
    double volat = 0.0; // the curve volatility used
    double theorPriceRounded = 0.0;
};

// The standard normal density, with the library's constant 1/sqrt(2*pi).
TABLEDB_EXPORT double norm_pdf(double x);
// The standard normal distribution by the seven-digit polynomial of
// Abramowitz and Stegun 26.2.17 (absolute error about 1e-7); exactly 0 below
// -10 and 1 above 10. Not exactly consistent with norm_pdf, deliberately.
TABLEDB_EXPORT double norm_cdf(double x);

// The curve volatility at the strike, clamped to [minVolat, maxVolat] in the
// lognormal model (the lower bound wins when they cross) and to minVolat in
// the normal one. 0.0 for a non-positive price in the lognormal model and for
// an unknown model.
TABLEDB_EXPORT double volatByCurve(const VolatInputParams &in);

// Call (first) and put (second) prices at the volatility `volat`, put by
// parity. Any model other than 1 prices lognormally. Inputs are not checked.
TABLEDB_EXPORT std::pair<double, double> theorPriceCallPut(const VolatInputParams &in,
                                                           double volat);

// Prices and raw Greeks at `volat` (a plain fraction in the lognormal model).
// Leaves `out` untouched for a non-positive volatility or sqrtTime, a
// non-positive price in the lognormal model, or an unknown model. Theta is
// negative in the lognormal model and positive in the normal one; both signs
// are part of the interface.
TABLEDB_EXPORT void calcVolatParamsNorm(VolatOutputParams &out, const VolatInputParams &in,
                                        double volat);

// The public layer: a negative `volat` means the curve's; the lognormal model
// takes percent and reports vega per percent; theta is per day (/365). Zero
// volatility, or a bad lognormal price, gives the intrinsic prices and deltas.
// Leaves `out` untouched when sqrtTime is not positive.
TABLEDB_EXPORT void calcVolatParams(VolatOutputParams &out, const VolatInputParams &in,
                                    double volat);

// calcVolatParams at the curve's volatility, storing it in out.volat, plus the
// chosen leg rounded to the price step (half away from zero) and never below
// one step. A quotient too large for 64-bit rounding, or not finite, leaves
// the price unrounded.
TABLEDB_EXPORT void calcVolatParamsEx(VolatOutputParamsEx &out, const VolatInputParamsEx &in);

// The implied volatility of `price`: Newton's method from `startVolat` (50 when
// it is 0), then bisection over [minVolat, maxVolat], each bounded by 100
// rounds. Volatilities in the units of calcVolatParams. -1.0 when both fail.
TABLEDB_EXPORT double volatByTheorPrice(const VolatInputParams &in, bool isPut, double price,
                                        double startVolat, double minVolat, double maxVolat,
                                        double priceTolerance, double volatTolerance);

#endif // TABLEDB_PRICING_OPTIONPRICING_H
