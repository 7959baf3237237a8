#ifndef TABLEDB_INDEX_MASTERINDEXPROXY_H
#define TABLEDB_INDEX_MASTERINDEXPROXY_H

#include "index/masterindex.h"

// A master index that orders as the table's master index did when the proxy
// was made, with the same key columns.
// REQUIRES: the table keeps that master index while the proxy lives; the
// proxy neither owns nor follows it.
class TABLEDB_EXPORT MasterIndexProxy : public MasterIndex
{
public:
    explicit MasterIndexProxy(Table *table);

    MasterIndex *master() const { return m_master; }

    int compare(const Record &a, const Record &b) const override;
    // The master's, for the proxy itself; none for a subclass.
    KeyPrefixKind keyPrefixKind() const override;
    quint64 keyPrefix(const Record &row) const override;
    QString toText(const Record &record) const override;
    Record fromText(const QString &text) const override;
    QString getClassName() const override; // "MasterIndexProxy"

private:
    MasterIndex *m_master; // not owned
};

#endif // TABLEDB_INDEX_MASTERINDEXPROXY_H
