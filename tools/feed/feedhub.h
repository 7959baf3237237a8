#ifndef TABLEDB_TOOLS_FEEDHUB_H
#define TABLEDB_TOOLS_FEEDHUB_H

#include "runtime/iapphub.h"

#include <QList>

// The feed's host: it knows the market's tables by name and says whether
// table files are saved compressed. Installed for its lifetime; the hub that
// was installed before comes back when it goes.
class FeedHub : public IAppHub, public ITableRegistry
{
public:
    FeedHub(const QList<Table *> &tables, bool compress);
    ~FeedHub() override;

    ITableRegistry *tableRegistry() override { return this; }
    Table *table(const QString &name) const override;
    bool contains(const QString &name) const override { return table(name) != nullptr; }
    bool compressTables() const override { return m_compress; }
    void registerJoin(TableJoin *join) override { m_joins.append(join); }

    QList<TableJoin *> joins() const { return m_joins; }

private:
    QList<Table *> m_tables; // not owned
    QList<TableJoin *> m_joins; // not owned
    bool m_compress;
    IAppHub *m_previous;
};

#endif // TABLEDB_TOOLS_FEEDHUB_H
