#ifndef TABLEDB_IO_FILTERPROGRESS_H
#define TABLEDB_IO_FILTERPROGRESS_H

#include "runtime/global.h"

class Record;

// Progress and row filter of the table file operations.
class TABLEDB_EXPORT FilterProgress
{
public:
    virtual ~FilterProgress();
    // Called with the row about to be handled and the total; the result is
    // ignored.
    virtual bool operator()(int current, int total) = 0;
    // False drops the row.
    virtual bool filter(const Record &record) const = 0;
};

// Keeps every row and reports nothing. Passed as exactly this class (not a
// subclass), it is not called at all: the per-row virtual calls are skipped.
class TABLEDB_EXPORT FilterProgressTrue : public FilterProgress
{
public:
    bool operator()(int current, int total) override;
    bool filter(const Record &record) const override;
};

#endif // TABLEDB_IO_FILTERPROGRESS_H
