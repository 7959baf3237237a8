#ifndef TABLEDB_SETTINGS_SETTINGS_H
#define TABLEDB_SETTINGS_SETTINGS_H

#include "runtime/global.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QSharedPointer>
#include <QStringList>
#include <QVariant>

class SettingsPrivate;

// A shared handle on one QSettings in the JSON format. Copies share the same
// QSettings; it is deleted with the last copy when the handle made it (from a
// file), and left alone when the caller handed it in.
//
// Nothing throws: a missing or broken file is logged to guiLog() and gives an
// empty, usable view; status() tells what happened. Not thread-safe: a handle
// and its copies belong to one thread.
class TABLEDB_EXPORT Settings
{
    Q_DECLARE_TR_FUNCTIONS(Settings)

public:
    // Wraps settings without taking ownership; it must outlive every copy.
    explicit Settings(QSettings *settings);
    // Opens file in the "json" format and enters group when it is not empty.
    Settings(const QFileInfo &file, const QString &group);
    virtual ~Settings();

    Settings(const Settings &other) = default;
    Settings(Settings &&other) noexcept = default;
    Settings &operator=(const Settings &other) = default;
    Settings &operator=(Settings &&other) noexcept = default;

    // customPath when writing or when there is no appPath; for reading,
    // customPath only if the user's file has group at its top level.
    static QFileInfo settingsPath(bool writable, const QString &group, const QFileInfo &appPath,
                                  const QFileInfo &customPath);
    // The directory behind every location. forApp: below the application
    // directory, never created. Otherwise the user's directory ("user" below
    // the application directory when portable, the data location when
    // installed), made on first use.
    static QDir settingsDir(const QString &name, bool forApp);
    // True when the application directory has no ".installed" marker.
    static bool isPortable();

    // Re-reads the file now. A file with content that gave no keys at all is a
    // FormatError, whatever stopped it from being read.
    QSettings::Status status();
    int format() const;

    QSettings *getQSettings();
    const QSettings *getQSettings() const;
    // By the constness of the handle alone.
    bool isWritable() { return true; }
    bool isWritable() const { return false; }

    void setValue(const QString &key, const QVariant &value);
    QVariant value(const QString &key, const QVariant &defaultValue = QVariant()) const;
    QStringList allKeys() const;
    bool contains(const QString &key) const;
    void beginGroup(const QString &prefix);
    void endGroup();
    QString group() const;
    void remove(const QString &key);
    int beginReadArray(const QString &prefix);
    void beginWriteArray(const QString &prefix, int size = -1);
    void setArrayIndex(int i);
    void endArray();
    QStringList childGroups() const;
    QStringList childKeys() const;
    void sync();

private:
    QSharedPointer<SettingsPrivate> d;
};

// The chief header brings the whole settings family.
#include "settings/appsettings.h"
#include "settings/defaultsettings.h"
#include "settings/mapsettings.h"
#include "settings/qtjsonsettings.h"
#ifndef TABLEDB_SETTINGS_MAPSETTINGS_PENDING
#include "settings/workplacesettings.h"
#endif

#endif // TABLEDB_SETTINGS_SETTINGS_H
