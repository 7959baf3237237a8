#ifndef TABLEDB_NUMERIC_DATETIME_H
#define TABLEDB_NUMERIC_DATETIME_H

#include "runtime/global.h"

#include <QDate>
#include <QDateTime>
#include <QLocale>
#include <QMetaType>
#include <QString>
#include <QTime>
#include <QVariant>

class QStringRef;

// A date and time as one signed 64-bit count of milliseconds since
// 1970-01-01 00:00:00, the civil fields read and written as if they were UTC.
// The count is what rows, keys and table files store, so a stored time never
// depends on the machine's zone or its daylight-saving rules; only now() looks
// at the local zone. The count 0 is the empty value and prints as "".
//
// A datetime doubles as a span: +, - and the add...() functions work on the
// count. Nothing here throws: text that does not parse gives the count of an
// invalid QDateTime (0).
class TABLEDB_EXPORT datetime
{
public:
    datetime() : m_data(0) { }
    explicit datetime(int64 count) : m_data(count) { }
    // Takes the fields of `value` as they stand, whatever its time spec.
    explicit datetime(QDateTime value);
    explicit datetime(const QDate &date);
    datetime(const QDate &date, const QTime &time);
    datetime(int year, int month, int day, int hour, int minute, int second, int msec);
    // The time is read from a whole default-format text (its date ignored),
    // else from "HH:mm:ss.zzz", else from "HH:mm:ss"; failing all, midnight.
    datetime(const QDate &date, const QString &time);
    // Tries "yyyy.MM.dd HH:mm:ss.zzz", "yyyy-MM-dd HH:mm:ss", "yyyy.MM.dd" and
    // "yyyy-MM-dd" in turn.
    explicit datetime(const QString &text);
    explicit datetime(const QStringRef &text);

    // Out-of-range time fields give midnight of the date.
    void set(int year, int month, int day, int hour, int minute, int second, int msec);
    // Any pointer may be null.
    void get(int *year, int *month, int *day, int *hour = nullptr, int *minute = nullptr,
             int *second = nullptr, int *msec = nullptr) const;

    QDate getDate() const;
    QTime getTime() const;
    // The stored fields with the UTC spec.
    QDateTime getDateTime() const;
    // The stored fields with the local spec, as formatting shows them. A time
    // that falls into a local daylight-saving gap gives an invalid QDateTime.
    operator QDateTime() const;
    // The same day at 00:00:00.000.
    datetime toDate() const;

    int64 data() const { return m_data; }
    uint64 toMSecsSinceEpoch() const { return uint64(m_data); }
    bool isZero() const { return m_data == 0; }

    bool isEqual(const datetime &other) const { return m_data == other.m_data; }
    int compare(const datetime &other) const
    {
        return m_data < other.m_data ? -1 : (m_data > other.m_data ? 1 : 0);
    }
    bool operator==(const datetime &o) const { return m_data == o.m_data; }
    bool operator!=(const datetime &o) const { return m_data != o.m_data; }
    bool operator<(const datetime &o) const { return m_data < o.m_data; }
    bool operator>(const datetime &o) const { return m_data > o.m_data; }
    bool operator<=(const datetime &o) const { return m_data <= o.m_data; }
    bool operator>=(const datetime &o) const { return m_data >= o.m_data; }

    // Count arithmetic wraps around on 64-bit overflow.
    int64 msecsTo(const datetime &other) const { return wrap(uint64(other.m_data) - uint64(m_data)); }
    // Truncated toward zero.
    int64 secsTo(const datetime &other) const { return msecsTo(other) / 1000; }
    datetime addMSecs(int64 msecs) const { return datetime(wrap(uint64(m_data) + uint64(msecs))); }
    datetime addSecs(int64 secs) const { return addMSecs(wrap(uint64(secs) * 1000u)); }
    // The day span is computed in 32 bits and wraps for |days| >= 25; callers
    // rely on that limit, use addMonths or a count for longer spans.
    datetime addDays(int days) const;
    // Calendar work on the civil date; the time of day is kept.
    datetime addMonths(int months) const;
    datetime addYears(int years) const;

    datetime operator+(const datetime &o) const { return addMSecs(o.m_data); }
    datetime operator-(const datetime &o) const { return datetime(wrap(uint64(m_data) - uint64(o.m_data))); }
    datetime &operator+=(const datetime &o) { return *this = *this + o; }
    datetime &operator-=(const datetime &o) { return *this = *this - o; }

    // The local wall clock written as the civil fields.
    static datetime now();

    // "" for the empty value. Digits are Latin whatever the system locale;
    // names (MMM, dddd) are the system locale's.
    QString toString() const;
    QString toString(const QString &format) const;
    // The system locale's date format, followed by " HH:mm:ss.zzz" unless
    // dateOnly; Latin digits as in toString.
    QString toSystemString(bool dateOnly = false, QLocale::FormatType type = QLocale::ShortFormat) const;

    static datetime fromString(const QString &text, const QString &format);
    // Reads text written by toSystemString. A format with a two-digit year
    // reads it as 19xx, so 100 years are added to every such date: texts of
    // 2000-2099 round-trip, others do not.
    static datetime fromSystemString(const QString &text, bool dateOnly = false,
                                     QLocale::FormatType type = QLocale::ShortFormat);

    QVariant toVariant() const;
    // The id of the meta-type "datetime" (with its comparators and the
    // converter to QString by toString()); registers it on first use.
    static int metatypeId();

    static QString defaultFormat();
    static QString sqlFormat(bool withMsecs);
    static QString dateNoTimeFormat();
    static QString timeNoDateFormat();

private:
    // Two's complement reinterpretation, so overflowing counts wrap instead of
    // being undefined.
    static int64 wrap(uint64 value) { return int64(value); }

    int64 m_data;
};

TABLEDB_DECLARE_VALUE_TYPEINFO(datetime);
Q_DECLARE_METATYPE(datetime)

#endif // TABLEDB_NUMERIC_DATETIME_H
