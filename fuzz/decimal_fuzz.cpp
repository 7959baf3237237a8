// decimal's text reader. Property: a number that was read, or any stored word,
// prints to text that reads back as the same number, within what the text form
// can carry (see printsBack).

#include "fuzzsupport.h"

#include "numeric/decimal.h"

#include <QStringRef>

#include <cstring>

namespace {

// toString goes through double above 2^53 at positive scales, and an integer
// text must fit the 64-bit reader and, when negative, the 56-bit mantissa (a
// negative overflow wraps by design). Outside that the text cannot carry the
// number, so nothing is asserted there.
bool textCarries(const decimal &d)
{
    const int64 m = d.value();
    if (d.scale() >= 1)
        return m >= -(int64(1) << 53) && m <= (int64(1) << 53);
    __int128 v = m;
    for (int i = 0; i < -d.scale(); ++i) {
        v *= 10;
        if (v > INT64_MAX || v < -(__int128(1) << 56))
            return false;
    }
    return true;
}

void checkPrintsBack(const decimal &d)
{
    const QString text = d.toString();
    if (!textCarries(d))
        return;
    decimal back;
    try {
        back = decimal::fromString(text);
    } catch (const QString &e) {
        FUZZ_CHECK(false, text + QStringLiteral(" does not read back: ") + e);
    }
    FUZZ_CHECK(back.compare(d) == 0,
               text + QStringLiteral(" reads back as ") + back.toString());
    if (d.scale() >= 1)
        FUZZ_CHECK(back.isEqual(d), text + QStringLiteral(" changes its scale"));
}

} // namespace

FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 512)
        return 0;
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));

    decimal d;
    const bool parsed = fuzz::readText(text, d);
    // The reader and the acceptance test share their patterns.
    if (parsed)
        FUZZ_CHECK(decimal::canConvert(text, true), text);
    else
        FUZZ_CHECK(!text.isEmpty(), text);

    bool ok = false;
    const decimal any = decimal::fromAnyString(text, &ok, int(size % 8));
    if (parsed) {
        FUZZ_CHECK(ok && any.isEqual(d), text);
        checkPrintsBack(d);
        const QStringRef ref(&text);
        FUZZ_CHECK(decimal(ref).isEqual(d), text);
    }

    // The same bytes as a stored word, as a table file or a key would hold it.
    if (size >= 8) {
        int64 word = 0;
        memcpy(&word, data, 8);
        checkPrintsBack(decimal::from56s7(word));
    }
    return 0;
}
