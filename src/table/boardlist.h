#ifndef TABLEDB_TABLE_BOARDLIST_H
#define TABLEDB_TABLE_BOARDLIST_H

#include "runtime/global.h"

#include <QString>

// A fixed list of up to 50 pairs, stored in a cell byte for byte (404 bytes).
// All bytes zero is the empty list.
struct TABLEDB_EXPORT boardlist
{
    struct Entry
    {
        qint32 first;
        qint32 second;
    };
    enum { Capacity = 50 };

    qint32 count;
    Entry items[Capacity];

    // Reads the text form "first:second,second,... first:second...". Malformed
    // groups are skipped; a group with a bad number drops everything read so far.
    // Throws the const char * "List size exceed" past 49 pairs.
    void fromString(const QString &text);
    static boardlist fromText(const QString &text);
    // Groups by `first`, each group's numbers sorted as text, groups sorted as text.
    QString toString() const;
};

static_assert(sizeof(boardlist) == 404, "boardlist is a storage format of 404 bytes");

#endif // TABLEDB_TABLE_BOARDLIST_H
