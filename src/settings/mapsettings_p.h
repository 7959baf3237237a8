#ifndef TABLEDB_SETTINGS_MAPSETTINGS_P_H
#define TABLEDB_SETTINGS_MAPSETTINGS_P_H

#include "settings/settings.h"

#include <QString>

class MapSettingsPrivate
{
public:
    explicit MapSettingsPrivate(QSettings *owner) : settings(owner) { }

    QString group;     // the object's own top group, "0x" and its address
    Settings settings; // a handle on the object itself, not owning it
};

#endif // TABLEDB_SETTINGS_MAPSETTINGS_P_H
