// The BCD kernel's text reader, and its arithmetic on what it read. Input: two
// bytes of type word, then "text[\ntext]". Properties: a number read is well
// formed and prints to text that reads back as itself; sums and products of
// well-formed numbers are well formed or overflow; a + b and b + a agree; the
// sign of a - b is the order of a and b. Raw digit bytes under any type word
// are read without a fault.

#include "fuzzsupport.h"

#include "numeric/bcdii.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Number {
    BCDIIType t = 0x1A00;
    std::vector<unsigned char> d; // exactly the type's bytes, so overruns show
    int status = 0;
};

std::vector<unsigned char> buffer(BCDIIType t)
{
    return std::vector<unsigned char>(size_t(BCDIITotalBytes(t)) + (BCDIITotalBytes(t) ? 0 : 1));
}

bool wellFormed(const Number &n) { return (BCDIICheck(n.d.data(), n.t) & 241) == 0; }

QString show(const Number &n)
{
    char *text = BCDIIToText(n.d.data(), n.t);
    const QString s = QString::fromLatin1(text) + QStringLiteral(" (T=%1)").arg(n.t, 4, 16);
    free(text);
    return s;
}

Number parse(BCDIIType t, const std::string &text)
{
    Number n;
    n.t = t;
    // The reader picks the scale, so the buffer holds the precision's widest.
    n.d.resize(((t >> 8) >> 1) + 1);
    n.status = BCDIIParse(n.d.data(), &n.t, text.c_str());
    if ((n.status & 241) == 0)
        n.d.resize(size_t(BCDIITotalBytes(n.t)) + (BCDIITotalBytes(n.t) ? 0 : 1));
    return n;
}

void checkPrintsBack(const Number &n, BCDIIType typeAsked)
{
    char *text = BCDIIToText(n.d.data(), n.t);
    const Number back = parse(typeAsked, text);
    free(text);
    FUZZ_CHECK((back.status & 241) == 0, show(n) + QStringLiteral(" does not read back"));
    FUZZ_CHECK(BCDIICompareAbs(back.d.data(), back.t, n.d.data(), n.t) == 0
                   && (back.d[0] & 128) == (n.d[0] & 128),
               show(n) + QStringLiteral(" reads back as ") + show(back));
}

// Every call that reads a number, on bytes that may be anything.
void readRaw(BCDIIType t, const unsigned char *bytes, size_t size)
{
    const int total = BCDIITotalBytes(t);
    if (total == 0 || size_t(total) > size)
        return;
    std::vector<unsigned char> d(bytes, bytes + total);
    (void)BCDIICheck(d.data(), t);
    free(BCDIIToText(d.data(), t));
    double x;
    (void)BCDIIToDouble(&x, d.data(), t);
    int64 i;
    (void)BCDIIToInt64(&i, d.data(), t, int8_t(t & 0xFF));
    std::vector<unsigned char> out(13);
    (void)BCDIICopy(out.data(), 0x1A00, d.data(), t);
    (void)BCDIIDigitAt(d.data(), t, 0);
    (void)BCDIICompareAbs(d.data(), t, out.data(), 0x1A00);
    (void)BCDIIRound(d.data(), t, int8_t(t & 0xFF) - 1, 0);
}

} // namespace

FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2 || size > 300)
        return 0;
    const BCDIIType t = BCDIIType(data[0] | data[1] << 8);
    readRaw(t, data + 2, size - 2);

    const std::string rest(reinterpret_cast<const char *>(data + 2), size - 2);
    const size_t split = rest.find('\n');
    const Number a = parse(t, rest.substr(0, split));
    if ((a.status & 241) != 0)
        return 0;
    FUZZ_CHECK(wellFormed(a), show(a) + QStringLiteral(" was read malformed"));
    // Zero prints as no digits at all ("" or ".00"), which the reader refuses
    // by design; xdecimal supplies the "0".
    if (!(a.status & 2))
        checkPrintsBack(a, t);
    if (split == std::string::npos)
        return 0;
    const Number b = parse(t, rest.substr(split + 1));
    if ((b.status & 241) != 0)
        return 0;
    FUZZ_CHECK(wellFormed(b), show(b) + QStringLiteral(" was read malformed"));

    // Results at a's type; an overflow leaves the marker and says so.
    Number sum{a.t, buffer(a.t)}, sum2{a.t, buffer(a.t)};
    sum.status = BCDIIAdd(sum.d.data(), sum.t, a.d.data(), a.t, b.d.data(), b.t);
    sum2.status = BCDIIAdd(sum2.d.data(), sum2.t, b.d.data(), b.t, a.d.data(), a.t);
    FUZZ_CHECK((sum.status & 1) || wellFormed(sum), show(a) + " + " + show(b) + " = " + show(sum));
    FUZZ_CHECK((sum.status & 1) == (sum2.status & 1)
                   && ((sum.status & 1) || BCDIICompareSame(sum.d.data(), sum2.d.data(), sum.t) == 0),
               show(a) + " + " + show(b) + " differs from b + a");

    Number product{a.t, buffer(a.t)};
    product.status = BCDIIMultiply(product.d.data(), product.t, a.d.data(), a.t, b.d.data(), b.t);
    FUZZ_CHECK((product.status & 1) || wellFormed(product),
               show(a) + " * " + show(b) + " = " + show(product));

    // a - b at 63 digits and the larger scale is exact unless it overflows,
    // so its sign is the order of a and b.
    const bool negA = a.d[0] & 128, negB = b.d[0] & 128;
    int order = BCDIICompareAbs(a.d.data(), a.t, b.d.data(), b.t);
    FUZZ_CHECK(order == -BCDIICompareAbs(b.d.data(), b.t, a.d.data(), a.t),
               show(a) + " and " + show(b) + " compare differently both ways");
    if (negA != negB)
        order = negA ? -1 : 1;
    else if (negA)
        order = -order;
    Number minusB = b;
    if (!(BCDIICheck(minusB.d.data(), minusB.t) & 2))
        minusB.d[0] ^= 128;
    const int sa = int8_t(a.t & 0xFF), sb = int8_t(b.t & 0xFF);
    const int scale = sa > sb ? sa : sb;
    Number diff{BCDIIType(63 << 8 | (scale & 0xFF)), {}};
    diff.d = buffer(diff.t);
    diff.status = BCDIIAdd(diff.d.data(), diff.t, a.d.data(), a.t, minusB.d.data(), minusB.t);
    if (!(diff.status & (1 | 64))) {
        const int sign = (diff.status & 2) ? 0 : (diff.status & 4) ? -1 : 1;
        FUZZ_CHECK(sign == order, show(a) + " - " + show(b) + " = " + show(diff)
                                      + QStringLiteral(" but the order is %1").arg(order));
    }
    return 0;
}
