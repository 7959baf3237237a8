#ifndef TABLEDB_SETTINGS_QTJSONSETTINGS_H
#define TABLEDB_SETTINGS_QTJSONSETTINGS_H

#include "runtime/global.h"

#include <QDebug>
#include <QSettings>
#include <QStringList>
#include <QVariant>

class QIODevice;
class QTextCodec;

// The debug stream of the logging category "QGuiLog", with quoting off. Every
// message of the settings family goes through it.
TABLEDB_EXPORT QDebug guiLog();

// The JSON file format of QSettings. The class is never instantiated: it is the
// namespace of the format functions and the translation context of their
// message. QSettings keeps its flat "group/sub/key" keys; the file holds them as
// nested objects, and values JSON cannot hold (byte arrays, rectangles, any
// QVariant) are kept as tagged text in the manner of INI files.
//
// Nothing here throws. A broken file is logged and reported as false, which
// QSettings turns into a format error; such a file is never written over, so
// the keys set meanwhile stay in memory only (QSettings reports an access
// error on sync).
class TABLEDB_EXPORT QtJsonSettings : public QSettings
{
    Q_OBJECT

public:
    QtJsonSettings() = delete;

    // Registers "json" and "map", in this order, once per process. The first
    // two custom formats that Qt hands out are 17 and 18, and files of other
    // processes are opened with those numbers, so this must run before any
    // other registerFormat call. Safe to call again; later calls do nothing.
    static void registerFormats();
    // The registered codes, registering first if that has not happened yet.
    static QSettings::Format jsonFormat();
    static QSettings::Format mapFormat();

    // The read and write functions of the "json" format.
    static bool readJsonFile(QIODevice &device, QSettings::SettingsMap &map);
    static bool writeJsonFile(QIODevice &device, const QSettings::SettingsMap &map);

    // The text form of one value ("@ByteArray(...)", "@Rect(x y w h)", a
    // doubled leading "@" for plain text, ...), and back. Unknown "@" forms read
    // back as the plain string.
    static QString variantToString(const QVariant &value);
    static QVariant stringToVariant(const QString &text);
    // A plain QStringList unless some item is an encoded value; then a
    // QVariantList of the decoded items.
    static QVariant stringListToVariantList(const QStringList &list);
    // The space-separated arguments of "@Name(a b c)", where text[index] is the
    // opening parenthesis. Malformed text is warned about and split anyway.
    static QStringList splitArgs(const QString &text, int index);

    // Appends the C-escaped form of text to result, quoted when it holds ';',
    // ',' or '=' or has a space at either end. Non-ASCII goes through codec
    // (Latin-1 bytes or hex escapes without one).
    static void escapedString(const QString &text, QByteArray &result, QTextCodec *codec);
    // Undoes escapedString on bytes[from, to). Unquoted commas make a list:
    // returns true with the items in listResult; otherwise the text is in
    // stringResult.
    static bool unescapedStringList(const QByteArray &bytes, int from, int to,
                                    QString &stringResult, QStringList &listResult,
                                    QTextCodec *codec);

    // Adds the leaves of value under path to map. path ends with "/" except at
    // the root, and comes back unchanged.
    static void flatten(QString &path, QSettings::SettingsMap &map, const QVariant &value);
    // current with value put at the slash-separated key; returns the new tree.
    static QVariant insertPath(const QVariant &current, const QString &key, const QVariant &value);
    // The list that replaces map m when key is "size"; invalid otherwise.
    static QVariant arrayFromSize(const QVariantMap &m, const QString &key, const QVariant &value);
};

#endif // TABLEDB_SETTINGS_QTJSONSETTINGS_H
