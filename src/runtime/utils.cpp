#include "runtime/utils.h"

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>

namespace {

struct Crc64Table
{
    uint64 entries[256];

    Crc64Table()
    {
        const uint64 polynomial = Q_UINT64_C(0x42F0E1EBA9EA3693);
        for (int i = 0; i < 256; ++i) {
            uint64 crc = uint64(i) << 56;
            for (int bit = 0; bit < 8; ++bit)
                crc = (crc & (Q_UINT64_C(1) << 63)) ? (crc << 1) ^ polynomial : crc << 1;
            entries[i] = crc;
        }
    }
};

} // namespace

uint64 qChecksum64(const char *data, unsigned int length)
{
    if (length == 0)
        return 0;
    static const Crc64Table table;
    uint64 crc = ~uint64(0);
    const unsigned char *p = reinterpret_cast<const unsigned char *>(data);
    for (unsigned int i = 0; i < length; ++i)
        crc = table.entries[(crc >> 56) ^ p[i]] ^ (crc << 8);
    return ~crc;
}

bool commonFuzzyCompare(double a, double b)
{
    const double limit = 1e-12;
    const bool aNull = std::fabs(a) <= limit;
    const bool bNull = std::fabs(b) <= limit;
    if (aNull || bNull)
        return aNull && bNull;
    return std::fabs(a - b) * 1e12 <= std::min(std::fabs(a), std::fabs(b));
}

namespace {

template <typename T>
int threeWay(const T &a, const T &b)
{
    return a < b ? -1 : (b < a ? 1 : 0);
}

// Below this id a type is Qt's own; the library's value types come after.
bool isQtType(int type)
{
    return type < QMetaType::User;
}

} // namespace

int variant_compare(const QVariant &a, const QVariant &b, Qt::CaseSensitivity cs)
{
    if (!a.isValid())
        return b.isValid() ? -1 : 0;
    if (!b.isValid())
        return 1;

    const int type = a.userType();
    if (isQtType(type)) {
        if (!(a != b))
            return 0;
        switch (type) {
        case QMetaType::QString:
            return a.toString().compare(b.toString(), cs);
        case QMetaType::QChar:
            return QString(a.toChar()).compare(QString(b.toChar()), cs);
        case QMetaType::Int:
            return threeWay(a.toInt(), b.toInt());
        case QMetaType::Double:
            // Values equal as doubles were settled by QVariant's equality.
            return a.toDouble() < b.toDouble() ? -1 : 1;
        case QMetaType::QDateTime:
            return threeWay(a.toDateTime(), b.toDateTime());
        case QMetaType::QDate:
            return threeWay(a.toDate().toJulianDay(), b.toDate().toJulianDay());
        case QMetaType::QTime: {
            // The stored number: -1 stands for the null time.
            const QTime ta = a.toTime(), tb = b.toTime();
            return threeWay(ta.isValid() ? ta.msecsSinceStartOfDay() : -1,
                            tb.isValid() ? tb.msecsSinceStartOfDay() : -1);
        }
        default:
            return 0;
        }
    }
    if (type == decimal::metatypeId())
        return qvariant_cast<decimal>(a).compare(qvariant_cast<decimal>(b));
    if (type == xdecimal::metatypeId())
        return qvariant_cast<xdecimal>(a).compare(qvariant_cast<xdecimal>(b));
    if (type == datetime::metatypeId())
        return threeWay(qvariant_cast<datetime>(a).data(), qvariant_cast<datetime>(b).data());
    return 0;
}

QVariant variant_convert(const QVariant &value, unsigned int type)
{
    const int from = value.userType();
    const int to = int(type);
    if (type < uint(QMetaType::User) && isQtType(from)) {
        QVariant result = value;
        if (to == QMetaType::QChar) {
            const QString text = value.toString();
            result = QVariant(text.isEmpty() ? QChar() : text.at(0));
        }
        result.convert(to);
        return result;
    }
    if (isQtType(from)) {
        if (to == decimal::metatypeId())
            return QVariant::fromValue(decimal::fromVariant(value));
        if (to == xdecimal::metatypeId())
            return QVariant::fromValue(xdecimal::fromVariant(value));
        if (to == datetime::metatypeId())
            return QVariant::fromValue(datetime(value.toString()));
        return QVariant();
    }
    if (to == QMetaType::QString) {
        if (from == decimal::metatypeId())
            return qvariant_cast<decimal>(value).toString();
        if (from == xdecimal::metatypeId())
            return qvariant_cast<xdecimal>(value).toString();
        if (from == datetime::metatypeId())
            return qvariant_cast<datetime>(value).toString();
    }
    return QVariant();
}
