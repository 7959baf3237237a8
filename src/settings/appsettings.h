// Included first and outside the guard: the chief header defines Settings
// and then brings this header, whichever of the two is included first.
#include "settings/settings.h"

#ifndef TABLEDB_SETTINGS_APPSETTINGS_H
#define TABLEDB_SETTINGS_APPSETTINGS_H

#include "runtime/global.h"

// The application's settings, "settings.json": the copy delivered in the
// application's "user_defaults" directory, and the user's own copy in
// "settings" below the user directory, which takes over group by group.
class TABLEDB_EXPORT AppSettings : public Settings
{
    Q_DECLARE_TR_FUNCTIONS(AppSettings)

public:
    // The user's file when it has group at its top level, the delivered one
    // otherwise (and the user's when nothing is delivered).
    static AppSettings createReadOnly(const QString &group);
    // Always the user's file; same as the public constructor.
    static AppSettings createReadWrite(const QString &group);
    // Always the delivered file. Writing to it is the caller's doing.
    static AppSettings createDefault(const QString &group);

    explicit AppSettings(const QString &group);

    static QFileInfo appPath();
    static QFileInfo customPath();
    static QString rawFileName();

    // True when the user directory has no "settings" entry: a first run, or
    // one after the user's settings were removed.
    static bool isReset();

protected:
    AppSettings(const QFileInfo &file, const QString &group);
};

#endif // TABLEDB_SETTINGS_APPSETTINGS_H
