// The JSON settings reader. Property: a file that was read, once written,
// reads back as the same settings (QVariant equality, as QSettings compares).

#include "fuzzsupport.h"

#include "settings/qtjsonsettings.h"

#include <QBuffer>
#include <QDebug>

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

} // namespace

FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4096)
        return 0;
    QSettings::SettingsMap read;
    if (!readMap(QByteArray(reinterpret_cast<const char *>(data), int(size)), read))
        return 0;
    bool written = false;
    const QByteArray file = writeMap(read, &written);
    if (read.isEmpty())
        return 0;
    FUZZ_CHECK(written, describe(read) + QStringLiteral(" was not written"));
    QSettings::SettingsMap back;
    FUZZ_CHECK(readMap(file, back), QString::fromUtf8(file));
    FUZZ_CHECK(back == read, describe(read) + QStringLiteral("\n  was written as\n")
                                 + QString::fromUtf8(file) + QStringLiteral("\n  and read back as\n  ")
                                 + describe(back));
    return 0;
}
