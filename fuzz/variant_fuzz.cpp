// The "@Variant(" decoder of settings values: the bytes of a QDataStream
// between "@Variant(" and ")". Property: a decoded value is written in the
// same form and decodes again to an equal value or one with the same encoding.

#include "fuzzsupport.h"

#include "settings/qtjsonsettings.h"

FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4096)
        return 0;
    const QString text = QStringLiteral("@Variant(")
        + QString::fromLatin1(reinterpret_cast<const char *>(data), int(size)) + QLatin1Char(')');
    const QVariant value = QtJsonSettings::stringToVariant(text);
    if (value.userType() == QMetaType::QString && value.toString() == text)
        return 0; // refused: kept as the plain text
    const QString encoded = QtJsonSettings::variantToString(value);
    const QVariant again = QtJsonSettings::stringToVariant(encoded);
    // Or an equal value: a hash read from a stream keeps equal keys in the
    // reverse of their stored order, so each pass may flip them.
    FUZZ_CHECK(QtJsonSettings::variantToString(again) == encoded || again == value,
               QStringLiteral("%1 decodes to a value of type %2 encoded as %3, which decodes to type %4")
                   .arg(QString::fromLatin1(QByteArray(reinterpret_cast<const char *>(data), int(size)).toHex()))
                   .arg(value.typeName())
                   .arg(QString::fromLatin1(encoded.toLatin1().toHex()))
                   .arg(again.typeName()));
    return 0;
}
