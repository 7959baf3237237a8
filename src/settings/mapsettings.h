#ifndef TABLEDB_SETTINGS_MAPSETTINGS_H
#define TABLEDB_SETTINGS_MAPSETTINGS_H

// The chief header brings WorkplaceSettings, which needs this class complete;
// it leaves that to the end of this file while the class is pending. (The
// include stays inside the guard so that moc sees the class in this file.)
#define TABLEDB_SETTINGS_MAPSETTINGS_PENDING
#include "settings/settings.h"

#include "runtime/global.h"

#include <QSettings>

class MapSettingsPrivate;

// A QSettings that lives in memory only, for code written against QSettings or
// Settings. All MapSettings share one store inside Qt (the "map" format with no
// file name); each object stays apart by keeping a group of its own, named
// after its address, entered for its whole life, so the keys it shows are
// relative to that group.
//
// allKeys, store and restore cost grows with the whole shared store: meant for
// small trees. One object belongs to one thread; the store itself is guarded by
// QSettings.
class TABLEDB_EXPORT MapSettings : public QSettings
{
    Q_OBJECT

public:
    MapSettings();
    MapSettings(const MapSettings &other);
    explicit MapSettings(const Settings &other);
    explicit MapSettings(const QSettings &other);
    MapSettings &operator=(const MapSettings &other);
    ~MapSettings() override;

    // Leaves every group the caller entered and removes all keys.
    void clear();
    // Replaces the content of to (below prefix, if any) by this object's keys.
    void store(QSettings &to, const QString &prefix);
    void store(Settings &to, const QString &prefix);
    // Like store, but keeps the target's other keys.
    void storeAdd(QSettings &to, const QString &prefix);
    // Adds the keys of from (below prefix, if any) on top of the present ones.
    void restore(QSettings &from, const QString &prefix);
    void restore(const QSettings &from);
    void restore(const Settings &from, const QString &prefix);

    Settings &asSetRef();
    const Settings &asSetRef() const;

    // Back to the own group, leaving the caller's groups.
    void endAllGroups();

private:
    void init();

    MapSettingsPrivate *d;
};

#undef TABLEDB_SETTINGS_MAPSETTINGS_PENDING
#include "settings/workplacesettings.h"

#endif // TABLEDB_SETTINGS_MAPSETTINGS_H
