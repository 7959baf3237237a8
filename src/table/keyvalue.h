#ifndef TABLEDB_TABLE_KEYVALUE_H
#define TABLEDB_TABLE_KEYVALUE_H

#include "table/fieldvalue.h"

#include <QList>

// A key: values in key order. Only this key's length is used when comparing,
// so a key equals a longer key that begins with it.
// REQUIRES: the other key has at least as many values.
class TABLEDB_EXPORT KeyValue : public QList<FieldValue>
{
public:
    using QList<FieldValue>::QList;
    KeyValue() = default;

    // The first position whose Field::compare is not 0 decides.
    bool operator<(const KeyValue &other) const;
    bool operator==(const KeyValue &other) const;
    bool operator!=(const KeyValue &other) const { return !(*this == other); }
};

#endif // TABLEDB_TABLE_KEYVALUE_H
