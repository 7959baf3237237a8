// datetime's text readers. Property: a time read from text prints in the
// default format to text that reads back as the same count.

#include "fuzzsupport.h"

#include "numeric/datetime.h"

#include <QDate>
#include <QStringRef>

FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 256)
        return 0;
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));

    const datetime d(text);
    FUZZ_CHECK(datetime(QStringRef(&text)) == d, text);
    (void)datetime::fromSystemString(text, size % 2 == 0, QLocale::ShortFormat);
    (void)datetime::fromSystemString(text, size % 2 != 0, QLocale::LongFormat);
    (void)datetime(QDate(2020, 2, 29), text);
    (void)d.toSystemString();

    // The default format has four year digits; other years do not print back.
    const int year = d.getDate().year();
    if (!d.isZero() && year >= 1 && year <= 9999) {
        const QString printed = d.toString();
        const datetime back(printed);
        FUZZ_CHECK(back == d, text + QStringLiteral(" prints as ") + printed +
                                  QStringLiteral(", which reads back as ") + back.toString());
    }
    return 0;
}
