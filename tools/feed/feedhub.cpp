#include "feedhub.h"

#include "table/table.h"

FeedHub::FeedHub(const QList<Table *> &tables, bool compress)
    : m_tables(tables), m_compress(compress), m_previous(IAppHub::setInstance(this))
{
}

FeedHub::~FeedHub()
{
    IAppHub::setInstance(m_previous);
}

Table *FeedHub::table(const QString &name) const
{
    for (Table *table : m_tables) {
        if (table->name() == name)
            return table;
    }
    return nullptr;
}
