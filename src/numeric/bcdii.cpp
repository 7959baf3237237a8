#include "numeric/bcdii.h"
#include "numeric/bcdii_p.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

typedef unsigned char uchar;

// Internal work goes through plain ints: the working buffers of addition and
// multiplication have precisions beyond what a signed type byte can say.
struct Fmt
{
    int p; // precision, decimal digits
    int s; // scale

    int intBytes() const { return (p - s + 1) >> 1; }
    int fracBytes() const { return (s + 1) >> 1; }
    int total() const { return p == 0 ? 0 : ((p | s) & 1) + (p >> 1); }
};

inline Fmt fmtOf(BCDIIType t)
{
    return Fmt{int(int8_t(uint8_t(t >> 8))), int(int8_t(uint8_t(t & 0xFF)))};
}

inline bool validFmt(const Fmt &f)
{
    return f.p >= 1 && f.p <= 63 && f.s >= -62 && f.s <= 62;
}

inline bool isMarker(const uchar *d)
{
    return (d[0] & 127) >= 100;
}

// The refusal of a type word that no number can have.
inline int refuse(uchar *dst, const Fmt &fdst)
{
    if (dst && fdst.p >= 1)
        dst[0] = BCDII_MARKER;
    return BCDII_Error | BCDII_Malformed;
}

// Working space: the largest need is a rounding temporary of 63 integer bytes
// and 64 fraction bytes.
const int kWork = 192;

int digitAt(const uchar *d, const Fmt &f, int k)
{
    if (k < -f.s || k >= f.p - f.s)
        return 0;
    const int b = d[f.intBytes() - (k >> 1) - 1] & 127;
    return (k & 1) ? (b / 10) % 10 : b % 10;
}

// True when every digit below power `k` is zero (k inside the capacity).
bool lowerDigitsZero(const uchar *d, const Fmt &f, int k)
{
    const int n = f.total();
    const int bi = f.intBytes() - (k >> 1) - 1;
    if ((k & 1) && (d[bi] & 127) % 10 != 0)
        return false;
    for (int j = bi + 1; j < n; ++j) {
        if (d[j] & 127)
            return false;
    }
    return true;
}

int increment(uchar *d, const Fmt &f, int k)
{
    const int o = (f.p - f.s) & 1;
    int add = ((o + k) & 1) ? 1 : 10;
    int b = (k + o) / 2;
    while (b > 0) {
        const int v = d[b] + add;
        if (v < 100) {
            d[b] = uchar(v);
            add = 0;
            break;
        }
        d[b] = uchar(v - 100);
        add = 1;
        --b;
    }
    if (add == 0)
        return (d[0] & 128) ? BCDII_Negative : 0;
    const int v = (d[0] & 127) + add;
    if (v < 100 && (o == 0 || v < 10)) {
        d[0] = uchar((d[0] & 128) | v);
        return (d[0] & 128) ? BCDII_Negative : 0;
    }
    d[0] = BCDII_MARKER;
    return BCDII_Overflow | BCDII_Error;
}

int roundTo(uchar *d, const Fmt &f, int t, int mode)
{
    const int n = f.total();
    if (n <= 0)
        return BCDII_Zero;
    bool allZero = true;
    for (int j = 0; j < n; ++j) {
        if (d[j]) {
            allZero = false;
            break;
        }
    }
    if (allZero)
        return BCDII_Zero;
    const bool neg = d[0] & 128;
    const int sign = neg ? BCDII_Negative : 0;
    if (t >= f.s)
        return sign;

    const int i = f.p - f.s;
    const int k = -t - 1; // the first dropped digit
    const int q = digitAt(d, f, k);
    if (-t < i) {
        if (q == 0 && lowerDigitsZero(d, f, k))
            return sign;
        bool up;
        switch (mode) {
        case BCDII_Ceiling: up = !neg; break;
        case BCDII_Floor: up = neg; break;
        case BCDII_Up: up = true; break;
        case BCDII_Truncate: up = false; break;
        default: up = q >= 5; break;
        }
        const int from = f.intBytes() + ((t + 1) >> 1);
        if (from < n)
            std::memset(d + from, 0, size_t(n - from));
        if (t & 1)
            d[from - 1] = uchar((d[from - 1] & 128) | ((d[from - 1] & 127) / 10 * 10));
        if (!up) {
            for (int j = 0; j < n; ++j) {
                if (d[j] & 127)
                    return BCDII_Inexact | sign;
            }
            d[0] = 0;
            return BCDII_Inexact | BCDII_Zero;
        }
        return increment(d, f, t - 1 + i) | BCDII_Inexact;
    }

    // Nothing of the number remains at scale t.
    switch (mode) {
    case BCDII_Up:
        d[0] = BCDII_MARKER;
        return BCDII_Overflow | BCDII_Error;
    case BCDII_Ceiling:
    case BCDII_Floor:
        if ((mode == BCDII_Ceiling) != neg) {
            d[0] = BCDII_MARKER;
            return BCDII_Overflow | BCDII_Error | BCDII_Negative;
        }
        break;
    case BCDII_Truncate:
        break;
    default:
        if (q >= 5) {
            d[0] = BCDII_MARKER;
            return BCDII_Overflow | BCDII_Error;
        }
        break;
    }
    std::memset(d, 0, size_t(n));
    return BCDII_Inexact | BCDII_Zero;
}

// REQUIRES: fd is a valid type; dst and src do not overlap.
int rescale(uchar *dst, const Fmt &fd, const uchar *src, const Fmt &fs, int mode)
{
    const int ns = fs.total();
    const int nd = fd.total();
    int i = 0;
    while (i < ns && (src[i] & 127) == 0)
        ++i;
    if (i >= ns) {
        std::memset(dst, 0, size_t(nd));
        return BCDII_Zero;
    }
    const bool neg = src[0] & 128;
    const int first = src[i] & 127;
    const int rest = ns - i - 1;
    const int e = (first > 9 ? 1 : 0) - (fs.s & 1) + 2 * rest - fs.s;
    if (e <= -63) {
        std::memset(dst, 0, size_t(nd));
        return BCDII_Zero;
    }
    const int cap = fd.p - fd.s;
    if (cap <= e) {
        dst[0] = BCDII_MARKER;
        return BCDII_Overflow | BCDII_Error;
    }
    const int used = (e >> 1) + 1;
    const int dstInt = (cap + 1) >> 1;
    const int pad = dstInt - used;
    const int srcFrac = fs.fracBytes();
    const int n = ns - i; // bytes from the leading one to the end

    if (fs.s > fd.s) {
        uchar tmp[kWork];
        const int tn = dstInt + srcFrac;
        if (tn > kWork || pad + n > tn)
            return refuse(dst, fd);
        std::memset(tmp, 0, size_t(pad));
        std::memcpy(tmp + pad, src + i, size_t(n));
        if (neg) {
            tmp[pad] &= 127;
            tmp[0] |= 128;
        }
        const int st = roundTo(tmp, Fmt{cap + fs.s, fs.s}, fd.s, mode);
        if (st & BCDII_Error) {
            dst[0] = BCDII_MARKER;
            return st;
        }
        std::memcpy(dst, tmp, size_t(nd));
        return st;
    }

    if (pad + n > nd)
        return refuse(dst, fd);
    std::memset(dst, 0, size_t(nd));
    std::memcpy(dst + pad, src + i, size_t(n));
    if (neg) {
        dst[pad] &= 127;
        dst[0] |= 128;
        return BCDII_Negative;
    }
    return 0;
}

int compareAbs(const uchar *a, const Fmt &fa, const uchar *b, const Fmt &fb)
{
    int na = fa.total();
    int nb = fb.total();
    const int x = fa.intBytes() - fb.intBytes();
    auto anyNonZero = [](const uchar *d, int from, int to) {
        for (int j = from; j < to; ++j) {
            if (d[j] & 127)
                return true;
        }
        return false;
    };
    if (x < 0) {
        if (-x >= nb) {
            if (anyNonZero(b, 0, nb))
                return -1;
            return anyNonZero(a, 0, na) ? 1 : 0;
        }
        if (anyNonZero(b, 0, -x))
            return -1;
        b += -x;
        nb -= -x;
    } else if (x > 0) {
        if (x >= na) {
            if (anyNonZero(a, 0, na))
                return 1;
            return anyNonZero(b, 0, nb) ? -1 : 0;
        }
        if (anyNonZero(a, 0, x))
            return 1;
        a += x;
        na -= x;
    }
    const int common = na < nb ? na : nb;
    for (int j = 0; j < common; ++j) {
        const int va = a[j] & 127;
        const int vb = b[j] & 127;
        if (va != vb)
            return va > vb ? 1 : -1;
    }
    if (anyNonZero(a, common, na))
        return 1;
    if (anyNonZero(b, common, nb))
        return -1;
    return 0;
}

int addAbs(uchar *dst, const Fmt &fd, const uchar *a, const Fmt &fa,
           const uchar *b, const Fmt &fb, bool negative)
{
    const bool bWider = fb.s > fa.s;
    const uchar *w = bWider ? b : a;
    const uchar *v = bWider ? a : b;
    const Fmt &fw = bWider ? fb : fa;
    const Fmt &fv = bWider ? fa : fb;

    const int frac = fw.fracBytes();
    const int top = (fa.intBytes() > fb.intBytes() ? fa.intBytes() : fb.intBytes()) + 1;
    const int cnt = top + frac;
    const int nw = fw.total();
    const int nv = fv.total();
    const int offW = top - fw.intBytes();
    const int offV = top - fv.intBytes();
    if (cnt > kWork || offW + nw > cnt || offV + nv > cnt)
        return refuse(dst, fd);

    uchar buf[kWork];
    std::memset(buf, 0, size_t(cnt));
    std::memcpy(buf + offW, w, size_t(nw));
    buf[offW] &= 127;

    int carry = 0;
    for (int j = nv - 1; j >= 0; --j) {
        int x = buf[offV + j] + (j == 0 ? (v[0] & 127) : v[j]) + carry;
        carry = x >= 100;
        if (carry)
            x -= 100;
        buf[offV + j] = uchar(x);
    }
    // buf[0] lies above both operands, so the carry stops there at the latest.
    for (int pos = offV - 1; carry && pos >= 0; --pos) {
        if (buf[pos] == 99) {
            buf[pos] = 0;
        } else {
            ++buf[pos];
            carry = 0;
        }
    }
    if (negative)
        buf[0] |= 128;
    return rescale(dst, fd, buf, Fmt{2 * cnt, 2 * frac}, BCDII_HalfUp);
}

int subAbs(uchar *dst, const Fmt &fd, const uchar *a, const Fmt &fa,
           const uchar *b, const Fmt &fb, bool negative)
{
    const int frac = fa.fracBytes() > fb.fracBytes() ? fa.fracBytes() : fb.fracBytes();
    // b's integer bytes above a's are zero when |a| >= |b|; room for them keeps
    // every byte of b inside the buffer all the same.
    const int top = fa.intBytes() > fb.intBytes() ? fa.intBytes() : fb.intBytes();
    const int cnt = top + frac;
    const int na = fa.total();
    const int nb = fb.total();
    const int offA = top - fa.intBytes();
    const int offB = top - fb.intBytes();
    if (cnt > kWork || cnt <= 0 || offA + na > cnt || offB + nb > cnt)
        return refuse(dst, fd);

    uchar buf[kWork];
    std::memset(buf, 0, size_t(cnt));
    std::memcpy(buf + offA, a, size_t(na));
    buf[offA] &= 127;

    int borrow = 0;
    for (int j = nb - 1; j >= 0; --j) {
        int x = buf[offB + j] - (j == 0 ? (b[0] & 127) : b[j]) - borrow;
        borrow = x < 0;
        if (borrow)
            x += 100;
        buf[offB + j] = uchar(x);
    }
    for (int pos = offB - 1; borrow && pos >= 0; --pos) {
        if (buf[pos] == 0) {
            buf[pos] = 99;
        } else {
            --buf[pos];
            borrow = 0;
        }
    }
    if (negative)
        buf[0] |= 128;
    return rescale(dst, fd, buf, Fmt{2 * cnt, 2 * frac}, BCDII_HalfUp);
}

enum MultiplyPath { AnyPath, ShortPath, LongPath };

int multiply(uchar *dst, const Fmt &fd, const uchar *a, const Fmt &fa,
             const uchar *b, const Fmt &fb, MultiplyPath path)
{
    if (isMarker(a) || isMarker(b)) {
        dst[0] = BCDII_MARKER;
        return BCDII_Error | BCDII_Malformed | BCDII_Marker;
    }
    const bool neg = (a[0] ^ b[0]) & 128;
    const int fbytes = fa.fracBytes() + fb.fracBytes();
    const int na = fa.total();
    const int nb = fb.total();
    int ia = 0;
    while (ia < na && (a[ia] & 127) == 0)
        ++ia;
    int ib = 0;
    while (ib < nb && (b[ib] & 127) == 0)
        ++ib;
    if (ia >= na || ib >= nb) {
        std::memset(dst, 0, size_t(fd.total()));
        return BCDII_Zero;
    }
    const bool aLong = na - ia >= nb - ib;
    const uchar *lg = aLong ? a + ia : b + ib;
    const uchar *sh = aLong ? b + ib : a + ia;
    const int L = aLong ? na - ia : nb - ib;
    const int S = aLong ? nb - ib : na - ia;
    // Only the sign byte can carry bit 7; the skipped bytes were zero.
    auto byteAt = [](const uchar *d, int j) { return j == 0 ? d[0] & 127 : d[j]; };

    if (path == ShortPath && S >= 4)
        return refuse(dst, fd);

    uchar buf[kWork];
    int cnt;
    if (path == ShortPath || (path == AnyPath && S < 4)) {
        // One pass with the short operand folded into an integer below 10^6.
        uint32_t m = 0;
        for (int j = 0; j < S; ++j)
            m = m * 100 + uint32_t(byteAt(sh, j));
        cnt = S + L;
        int pos = cnt - 1;
        uint32_t carry = 0;
        for (int j = L - 1; j >= 0; --j) {
            const uint32_t t = carry + uint32_t(byteAt(lg, j)) * m;
            carry = t / 100;
            buf[pos--] = uchar(t % 100);
        }
        while (carry > 99 && pos > 0) {
            buf[pos--] = uchar(carry % 100);
            carry /= 100;
        }
        if (pos >= 0)
            buf[pos--] = uchar(carry);
        while (pos >= 0)
            buf[pos--] = 0;
    } else {
        // Schoolbook in base 10000: a limb product stays below 10^8, so
        // 32 bits hold it with its carry.
        uint32_t ll[17], sl[17], r[34];
        auto toLimbs = [&byteAt](const uchar *d, int n, uint32_t *limbs) {
            const int count = (n + 1) / 2;
            int j = n - 1;
            for (int k = count - 1; k >= 0; --k, j -= 2) {
                const uint32_t lo = uint32_t(byteAt(d, j));
                const uint32_t hi = j > 0 ? uint32_t(byteAt(d, j - 1)) : 0;
                limbs[k] = hi * 100 + lo;
            }
            return count;
        };
        const int nl = toLimbs(lg, L, ll);
        const int ns = toLimbs(sh, S, sl);
        const int nr = nl + ns;
        std::memset(r, 0, sizeof(r));
        for (int i = nl - 1; i >= 0; --i) {
            uint32_t carry = 0;
            const uint32_t m = ll[i];
            for (int j = ns - 1; j >= 0; --j) {
                const uint32_t t = r[i + j + 1] + m * sl[j] + carry;
                r[i + j + 1] = t % 10000;
                carry = t / 10000;
            }
            r[i] = carry;
        }
        cnt = 2 * nr;
        for (int k = 0; k < nr; ++k) {
            buf[2 * k] = uchar(r[k] / 100);
            buf[2 * k + 1] = uchar(r[k] % 100);
        }
    }
    if (neg)
        buf[0] |= 128;
    return rescale(dst, fd, buf, Fmt{2 * cnt, 2 * fbytes}, BCDII_HalfUp);
}

// a + b when all three share one type: the bytes line up, so the sum needs
// no alignment and no rescale. Gives what the general path gives.
int addSameType(uchar *dst, const Fmt &f, const uchar *a, const uchar *b)
{
    const int n = f.total();
    const bool negA = a[0] & 128;
    const bool negB = b[0] & 128;
    uchar r[32];
    bool neg;
    if (negA == negB) {
        int carry = 0;
        for (int j = n - 1; j > 0; --j) {
            int x = a[j] + b[j] + carry;
            carry = x >= 100;
            r[j] = uchar(carry ? x - 100 : x);
        }
        const int top = (a[0] & 127) + (b[0] & 127) + carry;
        if (top > (((f.p - f.s) & 1) ? 9 : 99)) {
            dst[0] = BCDII_MARKER; // the rest of dst stays as it was
            return BCDII_Overflow | BCDII_Error;
        }
        r[0] = uchar(top);
        neg = negA;
    } else {
        // Subtract the smaller magnitude from the larger.
        int c = 0;
        for (int j = 0; j < n && c == 0; ++j) {
            const int va = j ? a[j] : a[0] & 127;
            const int vb = j ? b[j] : b[0] & 127;
            c = (va > vb) - (va < vb);
        }
        if (c == 0) {
            std::memset(dst, 0, size_t(n));
            return BCDII_Zero;
        }
        const uchar *big = c > 0 ? a : b;
        const uchar *small = c > 0 ? b : a;
        int borrow = 0;
        for (int j = n - 1; j > 0; --j) {
            int x = big[j] - small[j] - borrow;
            borrow = x < 0;
            r[j] = uchar(borrow ? x + 100 : x);
        }
        r[0] = uchar((big[0] & 127) - (small[0] & 127) - borrow);
        neg = c > 0 ? negA : negB;
    }
    int any = 0;
    for (int j = 0; j < n; ++j)
        any |= r[j];
    if (any == 0) {
        std::memset(dst, 0, size_t(n));
        return BCDII_Zero;
    }
    std::memcpy(dst, r, size_t(n));
    if (neg)
        dst[0] |= 128;
    return neg ? BCDII_Negative : 0;
}

int multiplyChecked(uchar *dst, BCDIIType tdst, const uchar *a, BCDIIType ta,
                    const uchar *b, BCDIIType tb, MultiplyPath path)
{
    const Fmt fd = fmtOf(tdst);
    const Fmt fa = fmtOf(ta);
    const Fmt fb = fmtOf(tb);
    if (!validFmt(fd) || !validFmt(fa) || !validFmt(fb))
        return refuse(dst, fd);
    return multiply(dst, fd, a, fa, b, fb, path);
}

} // namespace

int BCDIITotalBytes(BCDIIType t)
{
    return fmtOf(t).total();
}

int BCDIICheck(const unsigned char *d, BCDIIType t)
{
    const Fmt f = fmtOf(t);
    if (!validFmt(f))
        return BCDII_Malformed;
    if (d[0] == BCDII_MARKER)
        return BCDII_Marker | BCDII_Malformed;
    const int n = f.total();
    if (f.s & 1) {
        const int last = d[n - 1] & 127;
        if (last > 90 || last % 10 != 0)
            return BCDII_Malformed;
    }
    const int first = d[0] & 127;
    if (first > (((f.p - f.s) & 1) ? 9 : 99))
        return BCDII_Malformed;
    int any = first;
    for (int j = 1; j < n; ++j) {
        if (d[j] > 99)
            return BCDII_Malformed;
        any |= d[j];
    }
    const bool neg = d[0] & 128;
    if (any == 0)
        return neg ? BCDII_Malformed : BCDII_Zero;
    return neg ? BCDII_Negative : 0;
}

int BCDIICopy(unsigned char *dst, BCDIIType tdst, const unsigned char *src, BCDIIType tsrc)
{
    const Fmt fd = fmtOf(tdst);
    const Fmt fs = fmtOf(tsrc);
    if (!validFmt(fd) || !validFmt(fs))
        return refuse(dst, fd);
    if (isMarker(src)) {
        dst[0] = BCDII_MARKER;
        return BCDII_Error | BCDII_Malformed | BCDII_Marker;
    }
    if (dst == src) {
        uchar tmp[32];
        std::memcpy(tmp, src, size_t(fs.total()));
        return rescale(dst, fd, tmp, fs, BCDII_HalfUp);
    }
    return rescale(dst, fd, src, fs, BCDII_HalfUp);
}

int BCDIIRescale(unsigned char *dst, BCDIIType tdst, const unsigned char *src, BCDIIType tsrc,
                 int mode)
{
    const Fmt fd = fmtOf(tdst);
    const Fmt fs = fmtOf(tsrc);
    if (!validFmt(fd) || !validFmt(fs))
        return refuse(dst, fd);
    return rescale(dst, fd, src, fs, mode);
}

int BCDIIRound(unsigned char *d, BCDIIType t, int scale, int mode)
{
    const Fmt f = fmtOf(t);
    if (!validFmt(f))
        return refuse(d, f);
    return roundTo(d, f, scale, mode);
}

int BCDIIDigitAt(const unsigned char *d, BCDIIType t, int position)
{
    const Fmt f = fmtOf(t);
    if (!validFmt(f))
        return 0;
    return digitAt(d, f, position);
}

int BCDIIIncrement(unsigned char *d, BCDIIType t, int index)
{
    const Fmt f = fmtOf(t);
    if (!validFmt(f) || index < 0 || (index + ((f.p - f.s) & 1)) / 2 >= f.total())
        return refuse(d, f);
    return increment(d, f, index);
}

int BCDIICompareSame(const unsigned char *a, const unsigned char *b, BCDIIType t)
{
    const bool na = a[0] & 128;
    const bool nb = b[0] & 128;
    if (na != nb)
        return na ? -1 : 1;
    const int c = na ? std::memcmp(b, a, size_t(fmtOf(t).total()))
                     : std::memcmp(a, b, size_t(fmtOf(t).total()));
    return (c > 0) - (c < 0);
}

int BCDIICompareAbs(const unsigned char *a, BCDIIType ta, const unsigned char *b, BCDIIType tb)
{
    return compareAbs(a, fmtOf(ta), b, fmtOf(tb));
}

int BCDIIAdd(unsigned char *dst, BCDIIType tdst, const unsigned char *a, BCDIIType ta,
             const unsigned char *b, BCDIIType tb)
{
    const Fmt fd = fmtOf(tdst);
    const Fmt fa = fmtOf(ta);
    const Fmt fb = fmtOf(tb);
    if (!validFmt(fd) || !validFmt(fa) || !validFmt(fb))
        return refuse(dst, fd);
    if (isMarker(a) || isMarker(b)) {
        dst[0] = BCDII_MARKER;
        return BCDII_Error | BCDII_Malformed | BCDII_Marker;
    }
    if (ta == tdst && tb == tdst)
        return addSameType(dst, fd, a, b);
    const bool negA = a[0] & 128;
    const bool negB = b[0] & 128;
    if (negA == negB)
        return addAbs(dst, fd, a, fa, b, fb, negA);
    const int c = compareAbs(a, fa, b, fb);
    if (c == 0) {
        std::memset(dst, 0, size_t(fd.total()));
        return BCDII_Zero;
    }
    if (c < 0)
        return subAbs(dst, fd, b, fb, a, fa, negB);
    return subAbs(dst, fd, a, fa, b, fb, negA);
}

int BCDIIAddAbs(unsigned char *dst, BCDIIType tdst, const unsigned char *a, BCDIIType ta,
                const unsigned char *b, BCDIIType tb, bool negative)
{
    const Fmt fd = fmtOf(tdst);
    const Fmt fa = fmtOf(ta);
    const Fmt fb = fmtOf(tb);
    if (!validFmt(fd) || !validFmt(fa) || !validFmt(fb))
        return refuse(dst, fd);
    return addAbs(dst, fd, a, fa, b, fb, negative);
}

int BCDIISubAbs(unsigned char *dst, BCDIIType tdst, const unsigned char *a, BCDIIType ta,
                const unsigned char *b, BCDIIType tb, bool negative)
{
    const Fmt fd = fmtOf(tdst);
    const Fmt fa = fmtOf(ta);
    const Fmt fb = fmtOf(tb);
    if (!validFmt(fd) || !validFmt(fa) || !validFmt(fb))
        return refuse(dst, fd);
    return subAbs(dst, fd, a, fa, b, fb, negative);
}

int BCDIIMultiply(unsigned char *dst, BCDIIType tdst, const unsigned char *a, BCDIIType ta,
                  const unsigned char *b, BCDIIType tb)
{
    return multiplyChecked(dst, tdst, a, ta, b, tb, AnyPath);
}

int BCDIIMultiplyShort(unsigned char *dst, BCDIIType tdst, const unsigned char *a, BCDIIType ta,
                       const unsigned char *b, BCDIIType tb)
{
    return multiplyChecked(dst, tdst, a, ta, b, tb, ShortPath);
}

int BCDIIMultiplyLong(unsigned char *dst, BCDIIType tdst, const unsigned char *a, BCDIIType ta,
                      const unsigned char *b, BCDIIType tb)
{
    return multiplyChecked(dst, tdst, a, ta, b, tb, LongPath);
}

int BCDIIFromUInt64(unsigned char *dst, BCDIIType tdst, uint64 value, int scale)
{
    const Fmt fd = fmtOf(tdst);
    if (!validFmt(fd))
        return refuse(dst, fd);
    const int sc = int(int8_t(uint8_t(scale & 255)));
    uchar buf[12];
    int pos = 12;
    if (sc & 1) {
        buf[--pos] = uchar((value % 10) * 10);
        value /= 10;
    }
    // Eight digits at a time keep the inner divisions in 32 bits.
    while (value >= 100000000u) {
        uint32_t chunk = uint32_t(value % 100000000u);
        value /= 100000000u;
        for (int j = 0; j < 4; ++j) {
            buf[--pos] = uchar(chunk % 100);
            chunk /= 100;
        }
    }
    for (uint32_t top = uint32_t(value); top != 0; top /= 100)
        buf[--pos] = uchar(top % 100);
    const int bytes = 12 - pos;
    return rescale(dst, fd, buf + pos, Fmt{2 * bytes - (sc & 1), sc}, BCDII_Truncate);
}

int BCDIIToInt64(int64 *out, const unsigned char *d, BCDIIType t, int scale)
{
    *out = 0;
    const Fmt f = fmtOf(t);
    const Fmt ft{19, int(int8_t(uint8_t(scale & 255)))};
    if (!validFmt(f) || !validFmt(ft))
        return BCDII_Error | BCDII_Malformed;
    if (isMarker(d))
        return BCDII_Error | BCDII_Malformed | BCDII_Marker;
    uchar tmp[10];
    const int st = rescale(tmp, ft, d, f, BCDII_HalfUp);
    if (st & BCDII_Overflow)
        return BCDII_Overflow | BCDII_Error;
    if (st & BCDII_Zero)
        return st;
    const bool neg = tmp[0] & 128;
    const uint64 h = uint64(tmp[0] & 127) * 100 + tmp[1];
    const uint64 m = ((uint64(tmp[2]) * 100 + tmp[3]) * 100 + tmp[4]) * 100 + tmp[5];
    const uint64 l = ((uint64(tmp[6]) * 100 + tmp[7]) * 100 + tmp[8]) * 100 + tmp[9];
    uint64 mag;
    if ((ft.s & 1) == 0) {
        if (h >= 923
            || (h == 922
                && (m > 33720368
                    || (m == 33720368 && (l > 54775808 || (l == 54775808 && !neg))))))
            return BCDII_Overflow | BCDII_Error;
        mag = (h * 100000000u + m) * 100000000u + l;
    } else {
        // The last byte's units place is empty: l is ten times its value.
        if (h >= 9224
            || (h == 9223
                && (m > 37203685
                    || (m == 37203685 && (l > 47758080 || (l == 47758080 && !neg))))))
            return BCDII_Overflow | BCDII_Error;
        mag = (h * 100000000u + m) * 10000000u + l / 10;
    }
    *out = neg ? int64(0 - mag) : int64(mag);
    return st;
}

double BCDIIPow10(int n)
{
    double x = 1.0;
    for (; n > 0; --n)
        x *= 10.0;
    for (; n < 0; ++n)
        x /= 10.0;
    return x;
}

int BCDIIToDouble(double *out, const unsigned char *d, BCDIIType t)
{
    *out = 0.0;
    const Fmt f = fmtOf(t);
    if (!validFmt(f))
        return BCDII_Error | BCDII_Malformed;
    if (isMarker(d))
        return BCDII_Error | BCDII_Malformed | BCDII_Marker;
    const int n = f.total();
    int j = 0;
    while (j < n && (d[j] & 127) == 0)
        ++j;
    if (j >= n)
        return BCDII_Zero;
    double x = j == 0 ? (d[0] & 127) : d[j];
    for (++j; j < n; ++j)
        x = x * 100.0 + d[j];
    x = x / BCDIIPow10((f.s + 1) & ~1);
    if (d[0] & 128) {
        *out = -x;
        return BCDII_Negative;
    }
    *out = x;
    return 0;
}

int BCDIIFromDouble(unsigned char *dst, double x, BCDIIType tdst)
{
    const Fmt f = fmtOf(tdst);
    if (!validFmt(f))
        return refuse(dst, f);
    // 0.125 keeps a double that holds a whole number from truncating to the
    // number below it.
    double y = std::floor(BCDIIPow10(f.s) * std::fabs(x) + 0.5);
    if (std::isnan(y))
        return refuse(dst, f);
    if (std::isinf(y)) {
        dst[0] = BCDII_MARKER;
        return BCDII_Overflow | BCDII_Error;
    }
    const int n = f.total();
    std::memset(dst, 0, size_t(n));
    if (y < 0.125)
        return BCDII_Zero;
    int pos = n - 1;
    int k = f.p;
    if (f.s & 1) {
        const double r = std::fmod(y, 10.0);
        dst[pos--] = uchar(int(r * 10 + 0.125));
        y = std::floor((y - r) / 10 + 0.125);
        --k;
    }
    while (k >= 2 && y > 0.125) {
        const double r = std::fmod(y, 100.0);
        dst[pos--] = uchar(int(r + 0.125));
        y = std::floor((y - r) / 100 + 0.125);
        k -= 2;
    }
    if (k == 1) {
        const double r = std::fmod(y, 10.0);
        dst[pos] = uchar(int(r + 0.125));
        y = std::floor((y - r) / 10 + 0.125);
    }
    if (y > 0.125) {
        dst[0] = BCDII_MARKER;
        return BCDII_Overflow | BCDII_Error;
    }
    if (x < 0) {
        dst[0] |= 128;
        return BCDII_Negative;
    }
    return 0;
}

int BCDIIParse(unsigned char *dst, BCDIIType *t, const char *text)
{
    const Fmt f = fmtOf(*t);
    if (!validFmt(f))
        return refuse(dst, f);
    auto isDigit = [](char c) { return c >= '0' && c <= '9'; };

    const char *c = text;
    while (*c == ' ' || *c == '\t' || *c == '\n' || *c == '\r')
        ++c;
    bool neg = false;
    if (*c == '-' || *c == '+')
        neg = *c++ == '-';
    bool zeroSeen = false;
    while (*c == '0') {
        zeroSeen = true;
        ++c;
    }
    const char *intText = c;
    while (isDigit(*c))
        ++c;
    int I = int(c - intText);
    const char *fracText = c;
    int nf = 0;
    int skipped = 0;
    if (*c == '.' || *c == ',') {
        ++c;
        if (I == 0) {
            while (*c == '0') {
                zeroSeen = true;
                ++c;
                if (skipped <= 62)
                    ++skipped; // past 62 only "too far" matters
            }
        }
        fracText = c;
        // Counting stops past 62: no scale holds more, and the text is refused.
        while (isDigit(*c) && nf <= 62)
            ++c, ++nf;
    }

    int F;
    if (I == 0) {
        if (nf == 0) {
            if (!zeroSeen) {
                dst[0] = BCDII_MARKER;
                return BCDII_Error | BCDII_Malformed;
            }
            std::memset(dst, 0, size_t(f.total()));
            return BCDII_Zero;
        }
        I = -skipped;
        F = skipped + nf;
    } else {
        if (I > f.p - f.s) {
            dst[0] = BCDII_MARKER;
            return BCDII_Overflow | BCDII_Error;
        }
        F = nf;
    }
    // The scale byte has to say F; the work buffer is sized by this bound too.
    if (F > 62) {
        dst[0] = BCDII_MARKER;
        return BCDII_Overflow | BCDII_Error;
    }

    // I + F digits: the integer ones, then the stored fraction ones.
    const int intCount = I > 0 ? I : 0;
    const int count = I + F;
    auto digit = [&](int idx) {
        return idx < intCount ? intText[idx] - '0' : fracText[idx - intCount] - '0';
    };
    uchar buf[128];
    int nbytes = 0;
    int idx = 0;
    if (I & 1)
        buf[nbytes++] = uchar(digit(idx++));
    for (; idx + 1 < count; idx += 2)
        buf[nbytes++] = uchar(digit(idx) * 10 + digit(idx + 1));
    if (idx < count)
        buf[nbytes++] = uchar(digit(idx) * 10);
    if (neg)
        buf[0] |= 128;

    *t = BCDIIType((*t & 0xFF00) | (F & 0xFF));
    return rescale(dst, fmtOf(*t), buf, Fmt{count, F}, BCDII_HalfUp);
}

char *BCDIIToText(const unsigned char *d, BCDIIType t)
{
    const Fmt f = fmtOf(t);
    if (!validFmt(f))
        return static_cast<char *>(std::calloc(1, 1));
    // Built backwards, lowest position first.
    char *rev = static_cast<char *>(std::malloc(size_t(f.p + 65)));
    if (!rev)
        return nullptr;
    int len = 0;
    int k = 0;
    if (f.s < 0) {
        for (; k < -f.s; ++k)
            rev[len++] = '0';
    } else if (f.s > 0) {
        for (int j = -f.s; j < 0; ++j)
            rev[len++] = char('0' + digitAt(d, f, j));
        rev[len++] = '.';
    }
    for (; k < f.p - f.s; ++k)
        rev[len++] = char('0' + digitAt(d, f, k));

    char *out = static_cast<char *>(std::malloc(size_t(len + 2)));
    if (!out) {
        std::free(rev);
        return nullptr;
    }
    int n = 0;
    if (d[0] & 128)
        out[n++] = '-';
    bool leading = true;
    for (int j = len - 1; j >= 0; --j) {
        if (leading && rev[j] == '0')
            continue;
        leading = false;
        out[n++] = rev[j];
    }
    out[n] = '\0';
    std::free(rev);
    return out;
}
