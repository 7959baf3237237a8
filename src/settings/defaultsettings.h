// Included first and outside the guard: the chief header defines Settings
// and then brings this header, whichever of the two is included first.
#include "settings/settings.h"

#ifndef TABLEDB_SETTINGS_DEFAULTSETTINGS_H
#define TABLEDB_SETTINGS_DEFAULTSETTINGS_H

#include "runtime/global.h"

// The default settings, "default.json", located as AppSettings' file is: the
// delivered copy in "user_defaults", the user's in "settings".
class TABLEDB_EXPORT DefaultSettings : public Settings
{
    Q_DECLARE_TR_FUNCTIONS(DefaultSettings)

public:
    static DefaultSettings createReadOnly(const QString &group);
    static DefaultSettings createReadWrite(const QString &group);

    explicit DefaultSettings(const QString &group);

    static QFileInfo appPath();
    static QFileInfo customPath();
    static QString rawFileName();

    // Removes every key of the current group and stays in it.
    void clear();

protected:
    DefaultSettings(const QFileInfo &file, const QString &group);
};

#endif // TABLEDB_SETTINGS_DEFAULTSETTINGS_H
