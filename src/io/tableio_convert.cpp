#include "io/tableio.h"

#include "index/masterindex.h"
#include "table/table.h"

#include <QtDebug>

#include <typeinfo>

namespace {

// A Field on a cell of a bare row, for the convertors.
class CellField : public Field
{
public:
    CellField(TableColumnDef *def, unsigned char *cells) : Field(def, cells) { }
};

bool sameName(const QString &a, const QString &b)
{
    return QString::compare(a, b, Qt::CaseInsensitive) == 0;
}

// The copy class for a column that did not change, or null.
FieldDefConvertor *copyFor(const TableColumnDef &t, const TableColumnDef &s)
{
    if (t.type != s.type || t.length != s.length || t.len != s.len || t.nullable != s.nullable)
        return nullptr;
    if (t.type == FieldType::String)
        return new TableIO::FieldDefConvertor_CopyString;
    if (t.len == 4)
        return new TableIO::FieldDefConvertor_Copy4;
    if (t.len == 8)
        return new TableIO::FieldDefConvertor_Copy8;
    return new TableIO::FieldDefConvertor_Copy(int(t.len));
}

} // namespace

void TableIO::make_fromDefs(QList<FieldDefConvertor *> &list, const Table *source,
                            const Convertors &convertors)
{
    for (TableColumnDef *t : table->fieldDefs()) {
        QList<Convertor> matches;
        for (auto it = convertors.cbegin(); it != convertors.cend(); ++it) {
            if (sameName(it.key(), t->name))
                matches.append(it.value());
        }
        if (matches.isEmpty()) {
            const int column = source->columnIndex(t->name);
            if (column < 0)
                continue; // new to the program: the cell keeps its default
            TableColumnDef *s = source->fieldDefs().at(column);
            FieldDefConvertor *convertor = copyFor(*t, *s);
            if (!convertor)
                convertor = new FieldDefConvertor;
            convertor->from = s;
            convertor->to = t;
            list.append(convertor);
            continue;
        }
        for (const Convertor &entry : qAsConst(matches)) {
            const int column = source->columnIndex(entry.first);
            if (column < 0 || !entry.second) {
                QMessageLogger().warning().noquote() << "Column not found in translation.";
                continue;
            }
            entry.second->from = source->fieldDefs().at(column);
            entry.second->to = t;
            list.append(entry.second);
        }
    }
}

bool TableIO::isClaimed(const QString &name, const Convertors &convertors)
{
    if (name.isEmpty())
        return true;
    bool claimed = false;
    for (auto it = convertors.cbegin(); it != convertors.cend(); ++it) {
        if (sameName(it.key(), name))
            return false; // a target of its own
        if (sameName(it.value().first, name) && it.key().isEmpty())
            claimed = true;
    }
    return claimed;
}

void TableIO::convertDefs(const QList<FieldDefConvertor *> &list, unsigned char *target,
                          unsigned char *source)
{
    for (FieldDefConvertor *convertor : list) {
        CellField to(convertor->to, target);
        const CellField from(convertor->from, source);
        convertor->convert(to, from);
    }
}

void TableIO::filterRecords(FilterProgress &progress)
{
    TableIndexRebuilder rebuilder(table);
    TableUpdater updater(table);
    MasterIndex *master = table->masterIndex();
    if (!master || typeid(progress) == typeid(FilterProgressTrue))
        return; // keeps everything and reports nothing
    const int total = master->count();
    RangeSet<int> drop;
    int i = 0;
    for (auto it = master->begin(); it != master->end(); ++it, ++i) {
        if (!progress.filter(*it))
            drop.add(i, i + 1);
        progress(i, total);
    }
    master->removeRanges(drop);
}

void TableIO::memoryUsage(Table *table, uint64 &rowBytes, uint64 &paddingBytes)
{
    if (!table->masterIndex())
        return;
    const uint64 count = uint64(table->masterIndex()->count());
    rowBytes = count * table->rowSize();
    uint64 padding = 0;
    for (const TableColumnDef *def : table->fieldDefs())
        padding += def->lenAligned() - def->len;
    paddingBytes = padding * count;
}

void TableIO::memoryUsage(IndexList *index, uint64 &allocatedBytes, uint64 &unusedBytes)
{
    const PartitionList<Record> &list = index->list();
    uint64 capacity = 0;
    for (int i = 0; i < list.partitionCount(); ++i)
        capacity += uint64(list.partitionCapacity(i));
    allocatedBytes = 8 * capacity;
    unusedBytes = allocatedBytes - 8 * uint64(index->count());
}
