#ifndef TABLEDB_RUNTIME_IAPPHUB_H
#define TABLEDB_RUNTIME_IAPPHUB_H

#include "runtime/global.h"

#include <QString>

class Table;
class TableJoin;

// The host application's registry of named tables, as this library needs it.
class TABLEDB_EXPORT ITableRegistry
{
public:
    virtual ~ITableRegistry();

    // The table registered under `name`, or null.
    virtual Table *table(const QString &name) const = 0;
    // Whether a table of that name is known to the application.
    virtual bool contains(const QString &name) const = 0;
    // Whether table files are to be written compressed.
    virtual bool compressTables() const = 0;
    // Takes note of a new join; the registry does not own it.
    virtual void registerJoin(TableJoin *join) = 0;
};

// The application's process-wide object. The application (or a test) installs
// one with setInstance(); with none installed the static helpers answer that no
// table is known, that files are not compressed, and ignore registration.
class TABLEDB_EXPORT IAppHub
{
public:
    virtual ~IAppHub();

    // The registry of tables; may be null.
    virtual ITableRegistry *tableRegistry() = 0;

    // The installed hub, or null. Not owned.
    static IAppHub *instance();
    // Installs `hub` (null uninstalls) and returns the one installed before.
    // REQUIRES: no other thread is using the hub while it is replaced.
    static IAppHub *setInstance(IAppHub *hub);

    // Registry helpers with the answers of a build without a host.
    static Table *findTable(const QString &name);
    static bool isTableKnown(const QString &name);
    static bool compressTables();
    static void registerJoin(TableJoin *join);
};

#endif // TABLEDB_RUNTIME_IAPPHUB_H
