#include "settings/variantstreamcheck_p.h"

#include "numeric/xdecimal.h"

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>
#include <QMetaType>
#include <QString>

namespace {

bool checkVariant(QDataStream &s, int depth);

// Room for n items each at least one byte long.
bool fits(QDataStream &s, quint32 n)
{
    return s.status() == QDataStream::Ok && qint64(n) <= s.device()->bytesAvailable();
}

bool checkPayload(QDataStream &s, int type, int depth)
{
    quint32 n = 0;
    switch (type) {
    case QMetaType::UnknownType: {
        QString unused; // an invalid variant is saved with an empty string
        s >> unused;
        break;
    }
    case QMetaType::QVariantList:
        s >> n;
        if (!fits(s, n))
            return false;
        for (quint32 i = 0; i < n; ++i) {
            if (!checkVariant(s, depth + 1))
                return false;
        }
        break;
    case QMetaType::QStringList:
    case QMetaType::QByteArrayList:
        s >> n;
        if (!fits(s, n))
            return false;
        for (quint32 i = 0; i < n && s.status() == QDataStream::Ok; ++i) {
            QByteArray item; // a string's length word and bytes read the same way
            s >> item;
        }
        break;
    case QMetaType::QVariant: // a variant that holds a variant
        return checkVariant(s, depth + 1);
    case QMetaType::QVariantMap:
    case QMetaType::QVariantHash:
        s >> n;
        if (!fits(s, n))
            return false;
        for (quint32 i = 0; i < n; ++i) {
            QString key;
            s >> key;
            if (!checkVariant(s, depth + 1))
                return false;
        }
        break;
    default: {
        void *value = QMetaType::create(type);
        if (!value)
            return false;
        bool loaded = QMetaType::load(s, type, value);
        // A stored xdecimal whose type word does not fit its bytes throws on
        // every comparison, and Qt's variant comparison cannot pass that on.
        if (loaded && type == qMetaTypeId<xdecimal>()) {
            try {
                (void)static_cast<const xdecimal *>(value)->compare(xdecimal());
            } catch (const char *) {
                loaded = false;
            }
        }
        QMetaType::destroy(type, value);
        if (!loaded)
            return false;
        break;
    }
    }
    return s.status() == QDataStream::Ok;
}

// Walks one QVariant the way QVariant::load reads it at stream version 7, and
// rejects counts the bytes cannot hold: Qt reserves room for a claimed count
// before reading the items, so a damaged count would ask for gigabytes.
bool checkVariant(QDataStream &s, int depth)
{
    if (depth > 256)
        return false;
    quint32 typeId = 0;
    s >> typeId;
    if (s.status() != QDataStream::Ok)
        return false;
    // Type numbers of the version-7 stream.
    if (typeId == 127) {
        QByteArray name;
        s >> name;
        typeId = QMetaType::type(name.constData());
        if (typeId == QMetaType::UnknownType)
            return false;
    } else if (typeId >= 128) {
        typeId -= 97;
    } else if (typeId == 75) {
        typeId = QMetaType::QSizePolicy;
    } else if (typeId > 75 && typeId <= 86) {
        typeId -= 1;
    }
    return checkPayload(s, int(typeId), depth);
}

} // namespace

bool isPlausibleVariantStream(QDataStream &stream)
{
    return checkVariant(stream, 0);
}
