#include "settings/qtjsonsettings.h"
#include "settings/variantstreamcheck_p.h"

#include <QBuffer>
#include <QDataStream>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QLoggingCategory>
#include <QMessageLogger>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QTextCodec>

#include <new>

namespace {

// Passed through to QJsonObject::fromVariantMap untouched when writing.
const int PassThroughType = 55;

QSettings::Format s_jsonFormat = QSettings::InvalidFormat;
QSettings::Format s_mapFormat = QSettings::InvalidFormat;

// QRect(x, y, w, h) with the far corner in 32-bit wrapping arithmetic, the
// inverse of the extents that variantToString writes; QRect's own constructor
// would overflow on the extents of a damaged file.
QRect rectFromExtents(int x, int y, int width, int height)
{
    return QRect(QPoint(x, y), QPoint(int(uint(x) + uint(width) - 1u),
                                      int(uint(y) + uint(height) - 1u)));
}

bool readNothing(QIODevice &, QSettings::SettingsMap &)
{
    return true;
}

// The in-memory store must never leave a file behind.
bool removeFile(QIODevice &device, const QSettings::SettingsMap &)
{
    if (QFile *file = qobject_cast<QFile *>(&device))
        file->remove();
    return true;
}

QTextCodec *utf8Codec()
{
    static QTextCodec *const codec = QTextCodec::codecForName("utf-8");
    return codec;
}

bool isHexDigit(int c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

int hexValue(int c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c - 'A' + 10;
}

// Chops trailing spaces and tabs, but none at or before `keep`: those came
// from escapes ("\t", "\x20"), which the writer uses to keep them.
void chopSpaces(QString &s, int keep = 0)
{
    int n = s.size();
    while (n > keep && (s.at(n - 1) == QLatin1Char(' ') || s.at(n - 1) == QLatin1Char('\t')))
        --n;
    s.truncate(n);
}

// "a/b/" -> "a/", "a/" -> "": drops the segment of the level that ends.
void cutLastSegment(QString &path)
{
    path.truncate(path.lastIndexOf(QLatin1Char('/'), path.size() - 2) + 1);
}

void skipByteOrderMark(QIODevice &device)
{
    static const QByteArray marks[] = {QByteArray("\xEF\xBB\xBF"), QByteArray("\xFE\xFF"),
                                       QByteArray("\xFF\xFE")};
    for (const QByteArray &mark : marks) {
        if (device.read(mark.size()) == mark)
            break;
        device.seek(0);
    }
}

// Qt's UTF-8 decoding, inside its JSON reader and writer too, drops U+FEFF at
// the start of a text as a byte-order mark; in a settings value it is a
// character. These two keep it.
const char Utf8Mark[] = "\xEF\xBB\xBF";

QString fromUtf8KeepingMarks(const QByteArray &bytes)
{
    QString text;
    int from = 0;
    while (bytes.size() - from >= 3 && bytes.mid(from, 3) == Utf8Mark) {
        text += QChar(QChar::ByteOrderMark);
        from += 3;
    }
    return text + QString::fromUtf8(bytes.constData() + from, bytes.size() - from);
}

// Every mark (after the file's own, which is skipped) is given to the JSON
// reader as the escape "\ufeff", which it keeps. Outside a string the mark is
// an error either way.
QByteArray escapeMarks(QByteArray json)
{
    return json.replace(QByteArray(Utf8Mark), QByteArray("\\ufeff"));
}

// Every byte, NULs included (the QByteArray overload stops at the first NUL).
QString latin1(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.constData(), bytes.size());
}

QString withoutTrailingSlash(const QString &path)
{
    return path.endsWith(QLatin1Char('/')) ? path.left(path.size() - 1) : path;
}

// Whether a file that is already there can be replaced: one that does not
// parse as a JSON object is the user's to repair, and writing over it would
// lose whatever it holds.
bool mayReplace(const QIODevice &device)
{
    const QFileDevice *target = qobject_cast<const QFileDevice *>(&device);
    if (!target || target->fileName().isEmpty())
        return true;
    QFile existing(target->fileName());
    if (existing.size() == 0)
        return true;
    if (!existing.open(QIODevice::ReadOnly))
        return false;
    QBuffer buffer;
    buffer.setData(existing.readAll());
    buffer.open(QIODevice::ReadOnly);
    skipByteOrderMark(buffer);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(escapeMarks(buffer.readAll()), &error);
    return error.error == QJsonParseError::NoError && document.isObject();
}

} // namespace

QDebug guiLog()
{
    static const QLoggingCategory category("QGuiLog");
    return QMessageLogger(nullptr, 0, nullptr).debug(category).noquote();
}

void QtJsonSettings::registerFormats()
{
    // A function-local static makes the pair atomic and once-only, also when
    // another library's static initialisers get here before our start-up.
    static const bool registered = [] {
        s_jsonFormat = QSettings::registerFormat(QStringLiteral("json"), readJsonFile,
                                                 writeJsonFile, Qt::CaseSensitive);
        s_mapFormat = QSettings::registerFormat(QStringLiteral("map"), readNothing,
                                                removeFile, Qt::CaseSensitive);
        if (s_jsonFormat != QSettings::Format(17) || s_mapFormat != QSettings::Format(18))
            QMessageLogger().warning().noquote()
                << "QtJsonSettings: formats registered as" << int(s_jsonFormat)
                << "and" << int(s_mapFormat) << "instead of 17 and 18";
        return true;
    }();
    Q_UNUSED(registered);
}

QSettings::Format QtJsonSettings::jsonFormat()
{
    registerFormats();
    return s_jsonFormat;
}

QSettings::Format QtJsonSettings::mapFormat()
{
    registerFormats();
    return s_mapFormat;
}

bool QtJsonSettings::readJsonFile(QIODevice &device, QSettings::SettingsMap &map)
{
    skipByteOrderMark(device);

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(escapeMarks(device.readAll()), &error);
    if (error.error == QJsonParseError::NoError) {
        QString path;
        flatten(path, map, document.object().toVariantMap());
        return true;
    }

    const QFile *file = qobject_cast<const QFile *>(&device);
    const QString source = file ? file->fileName()
                                : QString::fromLatin1(device.metaObject()->className());
    guiLog() << tr("Ошибка при чтении настроек JSON:\n %1 \n %2 в строке %3")
                    .arg(source, error.errorString())
                    .arg(error.offset);
    return false;
}

bool QtJsonSettings::writeJsonFile(QIODevice &device, const QSettings::SettingsMap &map)
{
    if (!mayReplace(device))
        return false;

    QVariant root;
    for (auto it = map.constBegin(); it != map.constEnd(); ++it) {
        if (it.key().isEmpty())
            continue;
        const QVariant &value = it.value();
        const int type = value.userType();
        QVariant v;
        if (type == QMetaType::QVariantMap || type == QMetaType::QVariantList
            || type == QMetaType::QStringList || type == PassThroughType
            || (type == QMetaType::QString && value.toString().isNull())) {
            v = value;
        } else {
            QByteArray bytes;
            escapedString(variantToString(value), bytes, utf8Codec());
            v = QVariant(fromUtf8KeepingMarks(bytes));
        }
        root = insertPath(root, it.key(), v);
    }

    const QJsonDocument document(QJsonObject::fromVariantMap(root.toMap()));
    if (document.isNull())
        return false;
    return device.write(document.toJson()) > 0;
}

QString QtJsonSettings::variantToString(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return QStringLiteral("@Invalid()");
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::QString:
    case QMetaType::QKeySequence: {
        const QString text = value.toString();
        return text.startsWith(QLatin1Char('@')) ? QLatin1Char('@') + text : text;
    }
    case QMetaType::QByteArray:
        return QStringLiteral("@ByteArray(") + latin1(value.toByteArray())
               + QLatin1Char(')');
    case QMetaType::QRect: {
        // Extents in 32-bit wrapping arithmetic: any corners a file held come
        // back the same, where QRect::width() would overflow.
        const QRect r = qvariant_cast<QRect>(value);
        return QStringLiteral("@Rect(%1 %2 %3 %4)")
            .arg(r.left())
            .arg(r.top())
            .arg(int(uint(r.right()) - uint(r.left()) + 1u))
            .arg(int(uint(r.bottom()) - uint(r.top()) + 1u));
    }
    case QMetaType::QSize: {
        const QSize s = value.canConvert<QSize>() ? qvariant_cast<QSize>(value) : QSize(-1, -1);
        return QStringLiteral("@Size(%1 %2)").arg(s.width()).arg(s.height());
    }
    case QMetaType::QPoint: {
        const QPoint p = qvariant_cast<QPoint>(value);
        return QStringLiteral("@Point(%1 %2)").arg(p.x()).arg(p.y());
    }
    default:
        break;
    }

    QByteArray bytes;
    {
        QDataStream stream(&bytes, QIODevice::WriteOnly);
        // Version 7: existing files were written with it.
        stream.setVersion(QDataStream::Qt_4_0);
        stream << value;
    }
    return QStringLiteral("@Variant(") + latin1(bytes) + QLatin1Char(')');
}

QVariant QtJsonSettings::stringToVariant(const QString &s)
{
    if (s.startsWith(QLatin1Char('@'))) {
        if (s.endsWith(QLatin1Char(')'))) {
            if (s.startsWith(QLatin1String("@ByteArray("))) {
                return QVariant(s.toLatin1().mid(11, s.size() - 12));
            } else if (s.startsWith(QLatin1String("@Variant("))) {
                QByteArray bytes = s.toLatin1().mid(9);
                {
                    QDataStream check(&bytes, QIODevice::ReadOnly);
                    check.setVersion(QDataStream::Qt_4_0);
                    if (!isPlausibleVariantStream(check))
                        return QVariant(s);
                }
                QDataStream stream(&bytes, QIODevice::ReadOnly);
                stream.setVersion(QDataStream::Qt_4_0);
                QVariant result;
                try {
                    stream >> result;
                } catch (const std::bad_alloc &) {
                    // A damaged count in the bytes; the text is kept as it is.
                    return QVariant(s);
                }
                if (stream.status() != QDataStream::Ok)
                    return QVariant(s);
                return result;
            } else if (s.startsWith(QLatin1String("@Rect("))) {
                const QStringList args = splitArgs(s, 5);
                if (args.size() == 4)
                    return QVariant(rectFromExtents(args[0].toInt(), args[1].toInt(),
                                                    args[2].toInt(), args[3].toInt()));
            } else if (s.startsWith(QLatin1String("@Size("))) {
                const QStringList args = splitArgs(s, 5);
                if (args.size() == 2)
                    return QVariant(QSize(args[0].toInt(), args[1].toInt()));
            } else if (s.startsWith(QLatin1String("@Point("))) {
                const QStringList args = splitArgs(s, 6);
                if (args.size() == 2)
                    return QVariant(QPoint(args[0].toInt(), args[1].toInt()));
            } else if (s == QLatin1String("@Invalid()")) {
                return QVariant();
            }
        }
        if (s.startsWith(QLatin1String("@@")))
            return QVariant(s.mid(1));
    }
    return QVariant(s);
}

QVariant QtJsonSettings::stringListToVariantList(const QStringList &list)
{
    QStringList plain = list;
    for (QString &s : plain) {
        if (s.startsWith(QLatin1Char('@'))) {
            if (s.size() > 1 && s.at(1) == QLatin1Char('@')) {
                s.remove(0, 1);
            } else {
                QVariantList variants;
                variants.reserve(list.size());
                for (const QString &item : list)
                    variants.append(stringToVariant(item));
                return QVariant(variants);
            }
        }
    }
    return QVariant(plain);
}

QStringList QtJsonSettings::splitArgs(const QString &s, int idx)
{
    const int l = s.size();
    // Checked and reported, but a damaged value is still split as far as it goes.
    if (!(l > 0))
        QMessageLogger().warning().noquote() << "QtJsonSettings::splitArgs: l > 0";
    if (!(idx < l && s.at(idx) == QLatin1Char('(')))
        QMessageLogger().warning().noquote()
            << "QtJsonSettings::splitArgs: s.at(idx) == QLatin1Char('(')";
    if (!(l > 0 && s.at(l - 1) == QLatin1Char(')')))
        QMessageLogger().warning().noquote()
            << "QtJsonSettings::splitArgs: s.at(l - 1) == QLatin1Char(')')";

    QStringList result;
    QString item;
    for (int i = qMax(idx + 1, 0); i < l; ++i) {
        const QChar c = s.at(i);
        if (c == QLatin1Char(')')) {
            if (i != l - 1)
                QMessageLogger().warning().noquote() << "QtJsonSettings::splitArgs: idx == l - 1";
            result.append(item);
            item.clear();
        } else if (c == QLatin1Char(' ')) {
            result.append(item);
            item.clear();
        } else {
            item.append(c);
        }
    }
    return result;
}

namespace {

// Half of a surrogate pair without its other half: no codec can encode it.
bool isLoneSurrogate(const QString &text, int i)
{
    const QChar c = text.at(i);
    if (c.isHighSurrogate())
        return i + 1 == text.size() || !text.at(i + 1).isLowSurrogate();
    return c.isLowSurrogate() && (i == 0 || !text.at(i - 1).isHighSurrogate());
}

} // namespace

void QtJsonSettings::escapedString(const QString &text, QByteArray &result, QTextCodec *codec)
{
    const int start = result.size();
    result.reserve(start + text.size() * 3 / 2);

    auto appendHex = [&result](ushort c) {
        result += "\\x";
        result += QByteArray::number(c, 16);
    };

    bool digitGuard = false;
    bool quote = false;
    const int n = text.size();
    for (int i = 0; i < n; ++i) {
        const ushort c = text.at(i).unicode();
        if (c == ';' || c == ',' || c == '=')
            quote = true;

        // A plain digit right after a hex or NUL escape would be read as part of it.
        if (digitGuard && c < 128 && isHexDigit(c)) {
            appendHex(c);
            continue;
        }
        digitGuard = false;

        switch (c) {
        case 0:
            result += "\\0";
            digitGuard = true;
            break;
        case 7:
            result += "\\a";
            break;
        case 8:
            result += "\\b";
            break;
        case 9:
            result += "\\t";
            break;
        case 10:
            result += "\\n";
            break;
        case 11:
            result += "\\v";
            break;
        case 12:
            result += "\\f";
            break;
        case 13:
            result += "\\r";
            break;
        case '"':
        case '\\':
            result += '\\';
            result += char(c);
            break;
        default:
            // A lone surrogate would become "?"; its escape reads back as itself.
            if (c < 32 || (c >= 127 && !codec) || isLoneSurrogate(text, i)) {
                appendHex(c);
                digitGuard = true;
            } else if (codec) {
                // The whole run of plain characters in one call: the bytes are
                // the same as unit by unit, it is much faster on long texts,
                // and surrogate pairs stay whole.
                int j = i + 1;
                for (; j < n; ++j) {
                    const ushort u = text.at(j).unicode();
                    if (u < 32 || u == '"' || u == '\\' || isLoneSurrogate(text, j))
                        break;
                    if (u == ';' || u == ',' || u == '=')
                        quote = true;
                }
                result += codec->fromUnicode(text.constData() + i, j - i);
                i = j - 1;
            } else {
                result += char(c);
            }
            break;
        }
    }

    const int end = result.size();
    if (quote || (end > start && (result.at(start) == ' ' || result.at(end - 1) == ' '))) {
        result.insert(start, '"');
        result += '"';
    }
}

bool QtJsonSettings::unescapedStringList(const QByteArray &bytes, int from, int to,
                                         QString &stringResult, QStringList &listResult,
                                         QTextCodec *codec)
{
    static const char escapeCodes[][2] = {
        {'a', '\a'}, {'b', '\b'}, {'f', '\f'}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'},
        {'v', '\v'}, {'"', '"'},  {'?', '?'},  {'\'', '\''}, {'\\', '\\'}};

    bool inQuotes = false;
    bool valueQuoted = false;
    bool isList = false;
    int escapedUpTo = 0; // stringResult's length after its last escape
    int i = qMax(from, 0);
    to = qMin(to, bytes.size());
    const char *data = bytes.constData();

    auto skipSpaces = [&] {
        while (i < to && (data[i] == ' ' || data[i] == '\t'))
            ++i;
    };

    skipSpaces();
    while (i < to) {
        const char ch = data[i];
        if (ch == '\\') {
            ++i;
            if (i >= to)
                break;
            const char e = data[i++];
            bool mapped = false;
            for (const auto &pair : escapeCodes) {
                if (pair[0] == e) {
                    stringResult += QLatin1Char(pair[1]);
                    mapped = true;
                    break;
                }
            }
            if (mapped) {
                escapedUpTo = stringResult.size();
                continue;
            }
            if (e == 'x') {
                if (i < to && isHexDigit(uchar(data[i]))) {
                    ushort value = 0;
                    while (i < to && isHexDigit(uchar(data[i])))
                        value = ushort(value * 16 + hexValue(data[i++]));
                    stringResult += QChar(value);
                }
            } else if (e >= '0' && e <= '7') {
                ushort value = ushort(e - '0');
                while (i < to && data[i] >= '0' && data[i] <= '7')
                    value = ushort(value * 8 + (data[i++] - '0'));
                stringResult += QChar(value);
            } else if (e == '\n' || e == '\r') {
                if (i < to && (data[i] == '\n' || data[i] == '\r') && data[i] != e)
                    ++i;
            }
            // Any other escaped byte is dropped.
            escapedUpTo = stringResult.size();
        } else if (ch == '"') {
            ++i;
            valueQuoted = true;
            inQuotes = !inQuotes;
            if (!inQuotes)
                skipSpaces();
        } else if (ch == ',' && !inQuotes) {
            if (!valueQuoted)
                chopSpaces(stringResult, escapedUpTo);
            if (!isList) {
                isList = true;
                listResult.clear();
                stringResult.squeeze();
            }
            listResult.append(stringResult);
            stringResult.clear();
            escapedUpTo = 0;
            valueQuoted = false;
            ++i;
            skipSpaces();
        } else {
            int j = i + 1;
            while (j < to && data[j] != '\\' && data[j] != '"' && data[j] != ',')
                ++j;
            if (codec && codec->mibEnum() == 106) // UTF-8
                stringResult += fromUtf8KeepingMarks(QByteArray::fromRawData(data + i, j - i));
            else if (codec)
                stringResult += codec->toUnicode(data + i, j - i);
            else
                stringResult += QString::fromLatin1(data + i, j - i);
            i = j;
        }
    }

    if (!valueQuoted)
        chopSpaces(stringResult, escapedUpTo);
    if (isList)
        listResult.append(stringResult);
    return isList;
}

void QtJsonSettings::flatten(QString &path, QSettings::SettingsMap &map, const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::QVariantMap: {
        const int slash = path.lastIndexOf(QLatin1Char('/'), path.size() - 2);
        const QStringRef segment = path.midRef(slash + 1);
        if (!path.isEmpty() && segment.startsWith(QLatin1String("@Map_"))) {
            // One value that happens to be a map, not a subtree.
            const QString key = path.left(slash + 1) + segment.mid(5, segment.size() - 6);
            map.insert(key, value);
        } else {
            const QVariantMap m = value.toMap();
            for (auto it = m.constBegin(); it != m.constEnd(); ++it) {
                path += it.key();
                path += QLatin1Char('/');
                flatten(path, map, it.value());
            }
        }
        break;
    }
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        if (!list.isEmpty() && list.first().userType() == QMetaType::QVariantMap) {
            map.insert(path + QLatin1String("size"), QVariant(int(list.size())));
            for (int i = 1; i <= list.size(); ++i) {
                path += QString::number(i);
                path += QLatin1Char('/');
                flatten(path, map, list.at(i - 1));
            }
        } else {
            map.insert(withoutTrailingSlash(path), value);
        }
        break;
    }
    case QMetaType::QString:
    case QMetaType::QByteArray:
    case QMetaType::QRect:
    case QMetaType::QSize:
    case QMetaType::QPoint: {
        const QByteArray bytes = value.toByteArray();
        QString text;
        QStringList list;
        if (unescapedStringList(bytes, 0, bytes.size(), text, list, utf8Codec()))
            map.insert(withoutTrailingSlash(path), stringListToVariantList(list));
        else
            map.insert(withoutTrailingSlash(path), stringToVariant(text));
        break;
    }
    default:
        map.insert(withoutTrailingSlash(path), value);
        break;
    }
    cutLastSegment(path);
}

QVariant QtJsonSettings::insertPath(const QVariant &current, const QString &key,
                                    const QVariant &value)
{
    QVariantMap m = current.toMap();
    const int i = key.indexOf(QLatin1Char('/'));
    if (i < 0) {
        const QVariant array = arrayFromSize(m, key, value);
        if (array.isValid())
            return array;
        if (value.userType() == QMetaType::QVariantMap)
            m[QLatin1String("@Map_") + key] = value;
        else
            m[key] = value;
    } else {
        const QString head = key.left(i);
        m[head] = insertPath(m.value(head), key.mid(i + 1), value);
    }
    return QVariant(m);
}

QVariant QtJsonSettings::arrayFromSize(const QVariantMap &m, const QString &key,
                                       const QVariant &value)
{
    if (key != QLatin1String("size"))
        return QVariant();
    bool ok = false;
    const int n = value.toInt(&ok);
    if (!ok)
        return QVariant();
    // Fewer entries than n - 1 can never make the counts meet; a hand-edited
    // huge "size" must not build a huge list.
    if (n < 1 || n - 1 > m.size())
        return QVariant();

    // The count starting at 1 is deliberate: with every element present "size"
    // stays a member beside "1".."n", which is how existing files look.
    int count = 1;
    QVariantList list;
    for (int i = 1; i <= n; ++i) {
        const QString index = QString::number(i);
        if (m.contains(index))
            ++count;
        list.append(m.value(index));
    }
    return count == n ? QVariant(list) : QVariant();
}
