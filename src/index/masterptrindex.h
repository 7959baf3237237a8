#ifndef TABLEDB_INDEX_MASTERPTRINDEX_H
#define TABLEDB_INDEX_MASTERPTRINDEX_H

#include "index/masterindex.h"

// A master index ordered by row address: a fixed total order with no other
// meaning. Rows keep their position for life, so an update never moves one.
class TABLEDB_EXPORT MasterPtrIndex : public MasterIndex
{
public:
    explicit MasterPtrIndex(Table *table);

    // -1, 0 or 1 by the addresses as unsigned numbers.
    int compare(const Record &a, const Record &b) const override;
    // The address itself; none for a subclass.
    KeyPrefixKind keyPrefixKind() const override;
    quint64 keyPrefix(const Record &row) const override { return quintptr(row.rowPtr()); }
    QString toText(const Record &record) const override; // always empty
    Record fromText(const QString &text) const override; // a blank row

protected:
    bool unaffectedBy(int, int) const override { return true; } // no write moves a row
};

#endif // TABLEDB_INDEX_MASTERPTRINDEX_H
