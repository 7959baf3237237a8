#ifndef TABLEDB_TESTS_TESTAPPHUB_H
#define TABLEDB_TESTS_TESTAPPHUB_H

#include "runtime/iapphub.h"

#include <QHash>
#include <QList>

// A host for tests: a name-to-table map and a switch for compression. It
// installs itself for its lifetime and puts back the hub it replaced.
class TestAppHub : public IAppHub, public ITableRegistry
{
public:
    TestAppHub() : m_previous(IAppHub::setInstance(this)) { }
    ~TestAppHub() override { IAppHub::setInstance(m_previous); }

    ITableRegistry *tableRegistry() override { return this; }

    Table *table(const QString &name) const override { return tables.value(name, nullptr); }
    bool contains(const QString &name) const override { return tables.contains(name); }
    bool compressTables() const override { return compress; }
    void registerJoin(TableJoin *join) override { joins.append(join); }

    QHash<QString, Table *> tables;
    bool compress = false;
    QList<TableJoin *> joins;

private:
    IAppHub *m_previous;
};

#endif // TABLEDB_TESTS_TESTAPPHUB_H
