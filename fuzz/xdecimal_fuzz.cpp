// xdecimal's text reader and its 16 stored bytes. Properties: a number read
// from text is a well-formed kernel number that prints back to text reading as
// the same number at the same scale; stored bytes, however damaged, are read,
// printed and computed with without a fault.

#include "fuzzsupport.h"

#include "numeric/bcdii.h"
#include "numeric/xdecimal.h"

#include <cstring>

namespace {

void checkPrintsBack(const xdecimal &x, const QString &source)
{
    const QString text = x.toString();
    xdecimal back;
    try {
        back = xdecimal::fromString(text);
    } catch (const QString &e) {
        FUZZ_CHECK(false, source + QStringLiteral(" prints as ") + text +
                              QStringLiteral(", which does not read back: ") + e);
    }
    // A zero read from text keeps no scale ("0.00" is 0), by design.
    FUZZ_CHECK(x.isZero() ? back.isZero() : back.isEqual(x), source + QStringLiteral(" prints as ") + text +
                                    QStringLiteral(", which reads back as ") + back.toString());
}

// Everything a reader of stored bytes may go on to do with them.
void exercise(const xdecimal &x, const xdecimal &other)
{
    (void)x.toString();
    (void)x.toSystemString();
    (void)x.toDouble();
    (void)x.compare(other);
    (void)x.isZero();
    (void)x.negative();
    try {
        (void)x.value();
    } catch (const QString &) {
    }
    try {
        (void)(x + other);
        (void)(x - other);
    } catch (const char *) {
    }
    (void)(x * other);
    try {
        xdecimal y = x;
        y.setScale(other.scale());
    } catch (const char *) {
    }
}

} // namespace

FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 512)
        return 0;
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));

    xdecimal x;
    const bool parsed = fuzz::readText(text, x);
    if (parsed) {
        FUZZ_CHECK(xdecimal::canConvert(text, true), text);
        const int status = BCDIICheck(x.data() + 2, BCDIIType(x.data()[0] | x.data()[1] << 8));
        FUZZ_CHECK((status & 241) == 0, text + QStringLiteral(" reads as a malformed number"));
        checkPrintsBack(x, text);
        bool ok = false;
        FUZZ_CHECK(xdecimal::fromAnyString(text, &ok).isEqual(x) && ok, text);
    } else {
        FUZZ_CHECK(!text.isEmpty(), text);
    }

    if (size >= 16) {
        unsigned char bytes[16];
        memcpy(bytes, data + size - 16, 16);
        xdecimal stored;
        try {
            stored = xdecimal(static_cast<const void *>(bytes));
        } catch (const QString &) {
            return 0;
        }
        exercise(stored, x);
        exercise(x, stored);
        // A well-formed stored number at a scale the text form can hold
        // prints back to itself.
        const BCDIIType t = BCDIIType(bytes[0] | bytes[1] << 8);
        if (bytes[1] == 26 && int8_t(bytes[0]) >= 0 && (BCDIICheck(bytes + 2, t) & 241) == 0)
            checkPrintsBack(stored, QStringLiteral("stored bytes"));
    }
    return 0;
}
