#ifndef TABLEDB_SETTINGS_SETTINGS_P_H
#define TABLEDB_SETTINGS_SETTINGS_P_H

#include <QSettings>

class SettingsPrivate
{
public:
    SettingsPrivate(QSettings *settings, bool owned) : settings(settings), owned(owned) { }
    ~SettingsPrivate()
    {
        if (owned)
            delete settings;
    }
    Q_DISABLE_COPY(SettingsPrivate)

    QSettings *settings; // the object wrapped
    bool owned;          // built from a file: deleted with the last handle
};

#endif // TABLEDB_SETTINGS_SETTINGS_P_H
