// The JSON settings reader. Property: a file that was read, once written,
// reads back as the same settings (QVariant equality, as QSettings compares).

#include "fuzzsupport.h"

#include "settings/qtjsonsettings.h"

#include <QBuffer>
#include <QDebug>
#include <QJsonArray>

namespace {

bool readMap(QByteArray bytes, QSettings::SettingsMap &map)
{
    QBuffer device(&bytes);
    device.open(QIODevice::ReadOnly);
    return QtJsonSettings::readJsonFile(device, map);
}

QByteArray writeMap(const QSettings::SettingsMap &map, bool *ok)
{
    QByteArray bytes;
    QBuffer device(&bytes);
    device.open(QIODevice::WriteOnly);
    *ok = QtJsonSettings::writeJsonFile(device, map);
    return bytes;
}

QString describe(const QSettings::SettingsMap &map)
{
    QString text;
    QDebug(&text) << map;
    return text;
}

// An array whose "size" says n while exactly one of the elements 1..n is
// missing is written as a JSON array with a null in the gap, which reads back
// as one list value: the format keeps that shape on purpose.
bool hasGappedArray(const QSettings::SettingsMap &map)
{
    for (auto it = map.begin(); it != map.end(); ++it) {
        const QString &key = it.key();
        if (key != QLatin1String("size") && !key.endsWith(QLatin1String("/size")))
            continue;
        bool ok = false;
        const int n = it.value().toInt(&ok);
        if (!ok || n < 1 || n - 1 > map.size())
            continue;
        const QString prefix = key.left(key.size() - 4);
        int missing = 0;
        for (int i = 1; i <= n; ++i) {
            const QString element = prefix + QString::number(i);
            const QString below = element + QLatin1Char('/');
            const auto at = map.lowerBound(below);
            const bool present = map.contains(element)
                || (at != map.end() && at.key().startsWith(below));
            missing += !present;
        }
        if (missing == 1)
            return true;
    }
    return false;
}

// A list value goes to JSON as it is, so Qt's JSON decides what its elements
// become (a QSize in a list, read from the text ",@Size(1 2)", becomes null).
void asJsonKeepsLists(QSettings::SettingsMap &map)
{
    for (auto it = map.begin(); it != map.end(); ++it)
        if (it.value().userType() == QMetaType::QVariantList)
            it.value() = QJsonArray::fromVariantList(it.value().toList()).toVariantList();
}

// Keys that a JSON tree cannot hold apart: one with an empty segment ("a/",
// "a//b"), which no QSettings key has, and one that holds a value and has
// keys below it ("a" and "a/b"), since a member is a value or an object.
// Files give them through members named "" or holding a slash; such a file is
// read and written without a fault, but need not read back the same.
bool hasKeysAJsonTreeMerges(const QSettings::SettingsMap &map)
{
    for (auto it = map.begin(); it != map.end(); ++it) {
        const QString &key = it.key();
        if (key.startsWith(QLatin1Char('/')) || key.endsWith(QLatin1Char('/'))
            || key.contains(QLatin1String("//")))
            return true;
        const QString below = key + QLatin1Char('/');
        const auto next = map.lowerBound(below);
        if (next != map.end() && next.key().startsWith(below))
            return true;
    }
    return false;
}

} // namespace

FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4096)
        return 0;
    QSettings::SettingsMap read;
    if (!readMap(QByteArray(reinterpret_cast<const char *>(data), int(size)), read))
        return 0;
    // The writer skips an empty key, which no QSettings key can be.
    read.remove(QString());
    bool written = false;
    const QByteArray file = writeMap(read, &written);
    asJsonKeepsLists(read);
    if (read.isEmpty() || hasKeysAJsonTreeMerges(read))
        return 0;
    FUZZ_CHECK(written, describe(read) + QStringLiteral(" was not written"));
    QSettings::SettingsMap back;
    FUZZ_CHECK(readMap(file, back), QString::fromUtf8(file));
    if (hasGappedArray(read)) {
        // Then the file that was written is what must read back the same.
        read = back;
        const QByteArray again = writeMap(read, &written);
        back.clear();
        FUZZ_CHECK(readMap(again, back), QString::fromUtf8(again));
    }
    FUZZ_CHECK(back == read, describe(read) + QStringLiteral("\n  was written as\n")
                                 + QString::fromUtf8(file) + QStringLiteral("\n  and read back as\n  ")
                                 + describe(back));
    return 0;
}
