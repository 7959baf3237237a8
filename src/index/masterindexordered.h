#ifndef TABLEDB_INDEX_MASTERINDEXORDERED_H
#define TABLEDB_INDEX_MASTERINDEXORDERED_H

#include "index/masterindex.h"

// A master index that keeps rows in their order of arrival: every comparison
// says equal, so new rows go to the end and batches keep the order. A search
// by key finds the first row; a row is found by identity through indexOf().
class TABLEDB_EXPORT MasterIndexOrdered : public MasterIndex
{
public:
    explicit MasterIndexOrdered(Table *table);

    int compare(const Record &a, const Record &b) const override; // always 0
    // 0 for every row, so a new row goes to the end at once; none for a subclass.
    KeyPrefixKind keyPrefixKind() const override;
    quint64 keyPrefix(const Record &) const override { return 0; }
    QString toText(const Record &record) const override; // always empty
    Record fromText(const QString &text) const override; // a blank row

protected:
    bool unaffectedBy(int, int) const override { return true; } // no write moves a row
};

#endif // TABLEDB_INDEX_MASTERINDEXORDERED_H
