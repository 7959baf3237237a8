#include "numeric/datetime.h"

#include <QLocale>
#include <QStringRef>

namespace {

// The fields-to-count convention: the fields are relabelled as UTC, not
// converted, so the zone the QDateTime came with never reaches the count.
int64 countOf(QDateTime value)
{
    value.setTimeSpec(Qt::UTC);
    return value.toMSecsSinceEpoch();
}

// QDateTime::fromString builds a local time, and rejects one that falls into
// a daylight-saving gap of the machine's zone. The fields are all we keep, so
// such a text is read again labelled as UTC, where no gap exists. Formats that
// name a zone themselves are left to Qt.
QDateTime parseFields(const QString &text, const QString &format)
{
    QDateTime result = QDateTime::fromString(text, format);
    if (!result.isValid() && !format.contains(QLatin1Char('t'))) {
        const QDateTime asUtc = QDateTime::fromString(text + QLatin1String(" UTC"),
                                                      format + QLatin1String(" t"));
        if (asUtc.isValid())
            result = asUtc;
    }
    return result;
}

const int64 MSecsPerDay = 86400000;

// Qt formats dates with the system locale's digits. Our texts are written to
// logs, files and keys and must read the same on every machine, so the digits
// are folded back to Latin; month and day names stay the locale's.
QString withLatinDigits(QString text)
{
    const ushort zero = QLocale::system().zeroDigit().unicode();
    if (zero == '0')
        return text;
    for (QChar &c : text) {
        const ushort u = c.unicode();
        if (u >= zero && u <= zero + 9)
            c = QChar(ushort('0' + (u - zero)));
    }
    return text;
}

} // namespace

datetime::datetime(QDateTime value)
    : m_data(countOf(value))
{
}

datetime::datetime(const QDate &date)
    : m_data(0)
{
    set(date.year(), date.month(), date.day(), 0, 0, 0, 0);
}

datetime::datetime(const QDate &date, const QTime &time)
    : m_data(0)
{
    set(date.year(), date.month(), date.day(), time.hour(), time.minute(), time.second(), time.msec());
}

datetime::datetime(int year, int month, int day, int hour, int minute, int second, int msec)
    : m_data(0)
{
    set(year, month, day, hour, minute, second, msec);
}

datetime::datetime(const QDate &date, const QString &time)
    : m_data(0)
{
    // A whole default-format text is accepted too; only its time is kept.
    QTime parsed = parseFields(time, defaultFormat()).time();
    if (!parsed.isValid())
        parsed = QTime::fromString(time, timeNoDateFormat());
    if (!parsed.isValid())
        parsed = QTime::fromString(time, QStringLiteral("HH:mm:ss"));
    m_data = countOf(QDateTime(date, parsed, Qt::LocalTime));
}

datetime::datetime(const QString &text)
    : m_data(0)
{
    static const QString formats[] = {
        QStringLiteral("yyyy.MM.dd HH:mm:ss.zzz"),
        QStringLiteral("yyyy-MM-dd HH:mm:ss"),
        QStringLiteral("yyyy.MM.dd"),
        QStringLiteral("yyyy-MM-dd"),
    };
    QDateTime parsed;
    for (const QString &format : formats) {
        parsed = parseFields(text, format);
        if (parsed.isValid())
            break;
    }
    m_data = countOf(parsed);
}

datetime::datetime(const QStringRef &text)
    : datetime(text.toString())
{
}

void datetime::set(int year, int month, int day, int hour, int minute, int second, int msec)
{
    const QTime time(hour, minute, second, msec);
    const QDate date(year, month, day);
    m_data = countOf(QDateTime(date, time, Qt::LocalTime));
}

void datetime::get(int *year, int *month, int *day, int *hour, int *minute, int *second, int *msec) const
{
    const QDateTime fields = getDateTime();
    fields.date().getDate(year, month, day);
    const QTime time = fields.time();
    if (hour)
        *hour = time.hour();
    if (minute)
        *minute = time.minute();
    if (second)
        *second = time.second();
    if (msec)
        *msec = time.msec();
}

QDate datetime::getDate() const
{
    return getDateTime().date();
}

QTime datetime::getTime() const
{
    return getDateTime().time();
}

QDateTime datetime::getDateTime() const
{
    return QDateTime::fromMSecsSinceEpoch(m_data).toUTC();
}

datetime::operator QDateTime() const
{
    QDateTime result = getDateTime();
    result.setTimeSpec(Qt::LocalTime);
    return result;
}

datetime datetime::toDate() const
{
    // Whole days since the epoch, floored so that times before 1970 fall back
    // to their own midnight.
    int64 days = m_data / MSecsPerDay;
    if (m_data % MSecsPerDay < 0)
        --days;
    return datetime(days * MSecsPerDay);
}

datetime datetime::addDays(int days) const
{
    // The product is 32-bit and wraps, then is sign-extended; kept because
    // callers depend on this limit on day spans.
    const qint32 span = qint32(quint32(days) * quint32(MSecsPerDay));
    return addMSecs(int64(span));
}

datetime datetime::addMonths(int months) const
{
    const QDateTime fields = getDateTime();
    return datetime(fields.date().addMonths(months), fields.time());
}

datetime datetime::addYears(int years) const
{
    const QDateTime fields = getDateTime();
    return datetime(fields.date().addYears(years), fields.time());
}

datetime datetime::now()
{
    QDateTime local = QDateTime::currentDateTime();
    return datetime(countOf(local));
}

QString datetime::toString() const
{
    return toString(defaultFormat());
}

QString datetime::toString(const QString &format) const
{
    if (m_data == 0)
        return QString();
    QDateTime shown = *this;
    // A stored time inside a local daylight-saving gap is still printed with
    // its own fields rather than as nothing.
    if (!shown.isValid())
        shown = getDateTime();
    return withLatinDigits(shown.toString(format));
}

QString datetime::toSystemString(bool dateOnly, QLocale::FormatType type) const
{
    if (m_data == 0)
        return QString();
    QString format = QLocale::system().dateFormat(type);
    if (!dateOnly)
        format += QLatin1Char(' ') + timeNoDateFormat();
    return toString(format);
}

datetime datetime::fromString(const QString &text, const QString &format)
{
    return datetime(countOf(parseFields(text, format)));
}

datetime datetime::fromSystemString(const QString &text, bool dateOnly, QLocale::FormatType type)
{
    QString format = QLocale::system().dateFormat(type);
    const bool fourDigitYear = format.contains(QLatin1String("yyyy"));
    if (!dateOnly)
        format += QLatin1Char(' ') + timeNoDateFormat();
    const datetime parsed = fromString(text, format);
    if (parsed.isZero())
        return parsed;
    // Qt reads a two-digit year as 19xx; every such year is moved a century on.
    const QDateTime fields = parsed.getDateTime();
    return datetime(fields.date().addYears(fourDigitYear ? 0 : 100), fields.time());
}

QVariant datetime::toVariant() const
{
    return QVariant(metatypeId(), this);
}

int datetime::metatypeId()
{
    static const int id = [] {
        const int registered = qRegisterMetaType<datetime>("datetime");
        QMetaType::registerComparators<datetime>();
        QMetaType::registerConverter<datetime, QString>(
            static_cast<QString (datetime::*)() const>(&datetime::toString));
        return registered;
    }();
    return id;
}

QString datetime::defaultFormat()
{
    return QStringLiteral("yyyy.MM.dd HH:mm:ss.zzz");
}

QString datetime::sqlFormat(bool withMsecs)
{
    return withMsecs ? QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz") : QStringLiteral("yyyy-MM-dd HH:mm:ss");
}

QString datetime::dateNoTimeFormat()
{
    return QStringLiteral("yyyy.MM.dd");
}

QString datetime::timeNoDateFormat()
{
    return QStringLiteral("HH:mm:ss.zzz");
}
