#ifndef TABLEDB_INDEX_MASTERINDEXKEY_H
#define TABLEDB_INDEX_MASTERINDEXKEY_H

#include "index/masterindex_fast_pure.h"


// Search by packed key (MasterKey) on top of a key master index. The search
// compares packed bytes with memcmp, not with the index's compare(): where
// the two orders differ (numbers on a little-endian machine in a Column
// index) a key search can miss a row that find() would find. Both paths are
// kept as they are; MasterIndexCached takes the key path.
template <typename Base>
class MasterIndexKey : public Base
{
public:
    using Base::Base;

    // memcmp of the row's packed key with `key`, over the row key's length
    // (a shorter `key` orders before a row key that begins with it).
    int compareKey(const Record &record, const MasterKey &key) const
    {
        return this->compareRowKey(record, key);
    }

    // As IndexSort::search, `from` exclusive: the first row whose packed key
    // equals `key`, or -1. The Fast kind compares in place and allocates
    // nothing; the Column kind packs the row's key at each step.
    int searchKey(const MasterKey &key, int from) const
    {
        int lo = qMax(from + 1, 0);
        int hi = this->count();
        int result = -1;
        if (lo >= hi)
            return -1;
        auto loIt = this->begin() + lo;
        while (lo < hi) {
            const int mid = lo + ((hi - lo) >> 1);
            const auto midIt = loIt + (mid - lo);
            const int c = this->compareRowKey(*midIt, key);
            if (c > 0) {
                hi = mid;
            } else if (c < 0) {
                lo = mid + 1;
                loIt = midIt + 1;
            } else {
                result = mid;
                hi = mid;
            }
        }
        return result;
    }

    // The row at searchKey(key, from), or an empty Record.
    Record findKey(const MasterKey &key, int from) const
    {
        const int p = searchKey(key, from);
        return p == -1 ? Record() : *(this->begin() + p);
    }

};

#endif // TABLEDB_INDEX_MASTERINDEXKEY_H
