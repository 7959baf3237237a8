// Included first and outside the guard: the chief header defines Settings
// and then brings this header, whichever of the two is included first.
#include "settings/settings.h"

#ifndef TABLEDB_SETTINGS_WORKPLACESETTINGS_H
#define TABLEDB_SETTINGS_WORKPLACESETTINGS_H

#include "runtime/global.h"
#include "settings/mapsettings.h"

#include <QList>
#include <QPair>

// One named workplace, a "<name>.json" file of the user's "workplaces"
// directory, held in memory while in use. The process has one loaded workplace
// in a shared map; each instance edits a private copy of it, and hands the
// copy back to the shared map (not to disk) when destroyed, so the instance
// destroyed last wins for keys that several changed.
//
// The shared map and the current name have no lock: construct and destroy
// workplaces on one thread.
class TABLEDB_EXPORT WorkplaceSettings : public Settings
{
    Q_DECLARE_TR_FUNCTIONS(WorkplaceSettings)

public:
    // Loads name into the shared map when another workplace (or none) is loaded
    // there; an empty name empties it. The instance starts with a copy of it.
    explicit WorkplaceSettings(const QString &name);
    WorkplaceSettings(const WorkplaceSettings &other);
    WorkplaceSettings &operator=(const WorkplaceSettings &other);
    ~WorkplaceSettings() override;

    static QString fallbackName();

    // (base name, file) of every "*.json" in the user's directory when custom,
    // in the delivered one otherwise, by name.
    static QList<QPair<QString, QFileInfo>> workplaces(bool custom);
    static QPair<QString, QFileInfo> workplace(const QString &name, bool custom);
    // Renames the file (creating it empty if it is missing) to newName in the
    // user's directory and updates workplace. False when the rename failed,
    // for instance because newName exists; workplace is then unchanged.
    static bool rename(QPair<QString, QFileInfo> &workplace, const QString &newName);

    static QDir appDir();
    static QDir customDir();
    static QFileInfo fileInfoByName(const QString &name, bool custom);

    // Builds the shared map and then the current name. Called at library
    // start; later calls (and use before it) are harmless.
    static void initShared();

private:
    MapSettings m_map; // this instance's working copy, the target of the base
};

#endif // TABLEDB_SETTINGS_WORKPLACESETTINGS_H
