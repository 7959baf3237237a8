// The row-list reader, over a stream of lists one after another. A host
// knows the table "orders"; the first byte says whether unknown tables are
// made from the lists' headers. Property: the lists that were read, once
// written, read back and write the same bytes again.

#include "fuzzsupport.h"

#include "io/tableio.h"
#include "runtime/iapphub.h"
#include "table/table.h"

#include <QDataStream>

#include <memory>
#include <vector>

namespace {

class Host : public IAppHub, public ITableRegistry
{
public:
    Host() : known(new Table(QStringLiteral("orders")))
    {
        known->addColumn(QStringLiteral("key"), FieldType::Integer, 0, false);
        known->addColumn(QStringLiteral("qty"), FieldType::Integer64);
        known->addColumn(QStringLiteral("dec"), FieldType::Decimal, 2);
        known->addColumn(QStringLiteral("code"), FieldType::VarChar, 3);
        known->addColumn(QStringLiteral("text"), FieldType::String);
        IAppHub::setInstance(this);
    }

    ITableRegistry *tableRegistry() override { return this; }
    Table *table(const QString &name) const override
    {
        return name == known->name() ? known.get() : nullptr;
    }
    bool contains(const QString &name) const override { return table(name) != nullptr; }
    bool compressTables() const override { return false; }
    void registerJoin(TableJoin *) override { }

    std::unique_ptr<Table> known;
};

// The lists of one stream; the tables that reading made are theirs to delete.
struct Lists
{
    ~Lists()
    {
        for (PartitionList<Record> &list : lists) {
            Table *table = list.isEmpty() ? nullptr : list.begin()->table();
            list.clear();
            if (table && table != host().known.get())
                delete table;
        }
    }
    static Host &host()
    {
        static Host h;
        return h;
    }

    std::vector<PartitionList<Record>> lists;
};

void readAll(const QByteArray &bytes, bool createTable, Lists &out)
{
    QDataStream in(bytes);
    FilterProgressTrue progress;
    // A list of no rows reads as nothing, so the count of lists is bounded by
    // the bytes and not by this guard.
    for (int i = 0; i < 64 && !in.atEnd() && in.status() == QDataStream::Ok; ++i) {
        PartitionList<Record> list;
        TableIO::readRowList(progress, in, list, createTable);
        if (!list.isEmpty())
            out.lists.push_back(std::move(list));
    }
}

QByteArray writeAll(const Lists &lists)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    FilterProgressTrue progress;
    for (const PartitionList<Record> &list : lists.lists)
        TableIO::writeRowList(progress, out, list);
    return bytes;
}

} // namespace

FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1 || size > 4096)
        return 0;
    Lists::host();
    const bool createTable = data[0] & 1;
    Lists first;
    readAll(QByteArray(reinterpret_cast<const char *>(data) + 1, int(size) - 1), createTable, first);
    const QByteArray written = writeAll(first);

    Lists second;
    readAll(written, true, second);
    FUZZ_CHECK(second.lists.size() == first.lists.size(),
               QStringLiteral("%1 lists written, %2 read back").arg(first.lists.size()).arg(second.lists.size()));
    FUZZ_CHECK(writeAll(second) == written,
               QStringLiteral("the lists read back write other bytes than ")
                   + QString::fromLatin1(written.toHex()));
    return 0;
}
