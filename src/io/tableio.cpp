#include "io/tableio.h"

#include "index/masterindex.h"
#include "index/masterindex_fast.h"
#include "index/masterindex_fast_cached.h"
#include "io/rowcodec_p.h"
#include "io/tableio_p.h"
#include "io/writebehinddevice_p.h"
#include "runtime/exception.h"
#include "table/table.h"

#include <QDataStream>
#include <QDir>
#include <QFileDevice>
#include <QFileInfo>
#include <QSet>
#include <QtDebug>

#include <cstring>
#include <memory>
#include <new>
#include <typeinfo>

namespace {

const int batchSize = 10240;
// Rows are written and parsed in blocks of about this size.
const int blockBytes = 256 * 1024;
// Rows wider than this are taken for damage: no real table comes near it, and
// a scratch row is allocated before the first row's bytes are seen.
const qint64 maxRowLength = 16 * 1024 * 1024;

// Exactly FilterProgressTrue, not a subclass: its calls can be skipped.
bool isPlainTrue(const FilterProgress &progress)
{
    return typeid(progress) == typeid(FilterProgressTrue);
}

QString streamName(const QDataStream &stream)
{
    if (auto *file = qobject_cast<QFileDevice *>(stream.device()))
        return file->fileName();
    return QStringLiteral("(stream)");
}

// Whether `list` copies every column of `target` from the same place of a
// row of `source`, so that the convertors can be skipped for a row copy.
bool isPlainCopy(const QList<FieldDefConvertor *> &list, const Table *source, const Table *target)
{
    const QList<TableColumnDef *> from = source->fieldDefs();
    const QList<TableColumnDef *> to = target->fieldDefs();
    if (list.size() != to.size() || from.size() != to.size()
        || source->rowLength() != target->rowLength())
        return false;
    for (int i = 0; i < list.size(); ++i) {
        const FieldDefConvertor &c = *list.at(i);
        const std::type_info &kind = typeid(c);
        if (kind != typeid(TableIO::FieldDefConvertor_Copy)
            && kind != typeid(TableIO::FieldDefConvertor_Copy4)
            && kind != typeid(TableIO::FieldDefConvertor_Copy8)
            && kind != typeid(TableIO::FieldDefConvertor_CopyString))
            return false;
        if (c.from != from.at(i) || c.to != to.at(i) || c.from->offset != c.to->offset)
            return false;
    }
    return true;
}

// `master` as a Fast key master of the library's own, or null. Such a master
// takes a file's rows one by one and sorts them once at the end, where batch
// after batch would each be merged into a growing list. Nothing outside can
// watch it work. The other kinds take a file's batches faster while the rows
// are still in the cache.
MasterIndex_Fast *ownFastMaster(MasterIndex *master)
{
    if (!master)
        return nullptr;
    const std::type_info &kind = typeid(*master);
    if (kind == typeid(MasterIndex_Fast) || kind == typeid(MasterIndex_Fast_Cached))
        return static_cast<MasterIndex_Fast *>(master);
    return nullptr;
}

// A device's bytes in blocks for the row parser, handed back as they are
// parsed: when reading stops, the device stands just behind the last parsed
// byte, as if each row had been read on its own. A device that can seek is
// read straight into the block, and what was not parsed is sought back over;
// a sequential one is peeked at, and only what was parsed is skipped.
class BlockSource
{
public:
    explicit BlockSource(QIODevice *device) : m_device(device), m_seekable(!device->isSequential())
    {
    }
    ~BlockSource() { giveBack(); }

    const char *data() const { return m_block.constData() + m_used; }
    int size() const { return m_size - m_used; }
    void consume(int n) { m_used += n; }

    // Keeps the bytes not parsed yet and adds what follows them, up to a block.
    void refill()
    {
        if (m_block.size() < blockBytes)
            m_block.resize(blockBytes);
        if (!m_seekable) {
            if (m_used > 0)
                m_device->skip(m_used);
            m_used = 0;
            m_size = int(qMax<qint64>(0, m_device->peek(m_block.data(), blockBytes)));
            return;
        }
        const int kept = m_size - m_used;
        if (kept > 0 && m_used > 0)
            std::memmove(m_block.data(), m_block.constData() + m_used, size_t(kept));
        m_used = 0;
        m_size = kept;
        const qint64 got = m_device->read(m_block.data() + kept, blockBytes - kept);
        m_size += int(qMax<qint64>(0, got));
    }
    // Puts the device just behind the parsed bytes and forgets the block.
    void giveBack()
    {
        if (!m_seekable) {
            if (m_used > 0)
                m_device->skip(m_used);
        } else if (m_size > m_used) {
            m_device->seek(m_device->pos() - (m_size - m_used));
        }
        m_used = 0;
        m_size = 0;
    }

private:
    QIODevice *m_device;
    bool m_seekable;
    QByteArray m_block;
    int m_used = 0; // parsed bytes at the start of the block
    int m_size = 0; // bytes in the block
};

// Deletes the convertors of one read, also when a conversion throws.
struct ConvertorListOwner
{
    QList<FieldDefConvertor *> list;
    ~ConvertorListOwner() { qDeleteAll(list); }
};

} // namespace

// --- header ---

QString tableHeaderDamage(const TableIO::TableHeader &h, const QDataStream &stream)
{
    if (stream.status() != QDataStream::Ok)
        return QStringLiteral("header cut short");
    if (h.columns.size() != h.columnCount)
        return QStringLiteral("column list cut short");
    if (h.rowCount < 0)
        return QStringLiteral("negative row count");
    if (h.nullBytes != (int(h.columnCount) + 7) / 8)
        return QStringLiteral("null bitmap size does not fit the columns");
    qint64 length = 0;
    QSet<QString> names;
    for (const TableColumnDef &def : h.columns) {
        if (def.type < FieldType::Integer || def.type > FieldType::BoardList
            || (def.type == FieldType::VarChar && def.length <= 0))
            return QStringLiteral("column %1 has no valid type").arg(def.name);
        if (def.type != FieldType::String && def.len != FieldType::typeLength(def.type, def.length))
            return QStringLiteral("column %1 has a wrong width").arg(def.name);
        if (def.name.isEmpty() || names.contains(def.name.toLower()))
            return QStringLiteral("column names empty or repeated");
        names.insert(def.name.toLower());
        length += qint64(def.len);
        if (length > maxRowLength)
            return QStringLiteral("rows too wide");
    }
    if (length != h.rowLength)
        return QStringLiteral("row length does not fit the columns");
    return QString();
}


void TableIO::setupHeader(TableHeader &header, const Table *table)
{
    const QList<TableColumnDef *> defs = table->fieldDefs();
    header.version = s_versionDb;
    header.columnCount = quint16(defs.size());
    header.rowCount = table->masterIndex() ? table->masterIndex()->count() : 0;
    header.rowLength = qint32(table->rowLengthUnaligned());
    header.nullBytes = (defs.size() + 7) / 8;
    header.columns.clear();
    for (const TableColumnDef *def : defs)
        header.columns.append(TableColumnDef(nullptr, *def));
    header.masterColumns =
        table->masterIndex() ? table->masterIndex()->columnNames() : QStringList();
}

void TableIO::writeHeader(const TableHeader &header, QDataStream &stream)
{
    stream << qint32(header.version) << header.columnCount << header.rowCount << header.rowLength
           << header.nullBytes;
    for (const TableColumnDef &def : header.columns)
        def.write(stream);
    stream << qint32(header.masterColumns.size());
    for (const QString &name : header.masterColumns)
        stream << name;
}

void TableIO::readHeader(TableHeader &header, QDataStream &stream)
{
    qint32 version = 0;
    stream >> version;
    header.version = quint32(version);
    readHeaderAfterVersion(header, stream);
}

void TableIO::readHeaderAfterVersion(TableHeader &header, QDataStream &stream)
{
    stream >> header.columnCount >> header.rowCount >> header.rowLength >> header.nullBytes;
    // Items are taken one by one while the stream lasts, never reserved by
    // a count: a damaged count costs no more than the bytes behind it.
    header.columns.clear();
    for (int i = 0; i < header.columnCount && stream.status() == QDataStream::Ok; ++i) {
        TableColumnDef def;
        def.read(stream);
        if (stream.status() == QDataStream::Ok)
            header.columns.append(def);
    }
    header.masterColumns.clear();
    qint32 masterCount = 0;
    stream >> masterCount;
    for (int i = 0; i < masterCount && stream.status() == QDataStream::Ok; ++i) {
        QString name;
        stream >> name;
        if (stream.status() == QDataStream::Ok)
            header.masterColumns.append(name);
    }
}

// --- rows ---

void TableIO::writeRecord(const Record &record, const TableHeader &header, QDataStream &stream)
{
    RowCodec codec(header.columns, header.nullBytes);
    codec.write(Table::cellsPtr(record.pointer()), stream);
}

void TableIO::readRecord(Record &record, const TableHeader &header, QDataStream &stream)
{
    RowCodec codec(header.columns, header.nullBytes);
    codec.read(Table::cellsPtr(record.pointer()), stream,
               codec.hasStrings() ? record.table()->stringPool() : nullptr);
}

void TableIO::writeRows(FilterProgress &progress, const TableHeader &header, QDataStream &stream)
{
    const MasterIndex *master = table->masterIndex();
    if (!master)
        return;
    RowCodec codec(header.columns, header.nullBytes);
    const bool report = !isPlainTrue(progress);
    // Rows are encoded in place into blocks, and a block goes to the device in
    // one call; a file being saved takes the block itself, without a copy.
    auto *behind = dynamic_cast<WriteBehindDevice *>(stream.device());
    QByteArray own;
    own.reserve(blockBytes); // kept across blocks
    QByteArray &block = behind ? behind->block() : own;
    int used = block.size(); // the header may be in the block already
    auto handOver = [&]() {
        block.resize(used);
        used = 0;
        if (!behind) {
            stream.writeRawData(block.constData(), block.size());
            block.resize(0);
            return true;
        }
        if (behind->push())
            return true;
        stream.setStatus(QDataStream::WriteFailed);
        return false;
    };
    block.resize(qMax(used, blockBytes));
    char *data = block.data();
    int i = 0;
    try {
        for (auto it = master->begin(); it != master->end(); ++it, ++i) {
            const unsigned char *cells = Table::cellsPtr(it->pointer());
            const int size = codec.fileSize(cells);
            if (block.size() - used < size) {
                if (!handOver())
                    return;
                block.resize(qMax(size, blockBytes));
                data = block.data();
            }
            codec.encode(cells, data + used);
            used += size;
            if (report)
                progress(i, header.rowCount);
        }
    } catch (...) {
        handOver(); // a progress that throws: the whole rows so far go out
        throw;
    }
    handOver();
}

// --- whole tables ---

QString TableIO::fileName(const QDir &dir) const
{
    return QFileInfo(dir, table->name()).filePath();
}

void TableIO::write(FilterProgress &progress, QDataStream &stream, bool withRows)
{
    TableLocker locker(table);
    TableHeader header;
    setupHeader(header, table);
    writeHeader(header, stream);
    if (withRows)
        writeRows(progress, header, stream);
}

void TableIO::write(QDataStream &stream, bool withRows)
{
    FilterProgressTrue progress;
    write(progress, stream, withRows);
}

void TableIO::write(FilterProgress &progress, const QDir &dir, bool withRows)
{
    m_lastError.clear();
    try {
        TableFileStream stream(fileName(dir), QIODevice::WriteOnly);
        if (!stream.device())
            stream.commit(); // throws: the file could not be opened
        write(progress, stream, withRows);
        stream.commit();
    } catch (const Exception &e) {
        m_lastError = e.message();
        throw;
    }
}

void TableIO::write(const QDir &dir)
{
    FilterProgressTrue progress;
    write(progress, dir, true);
}

void TableIO::read(FilterProgress &progress, QDataStream &stream, bool addColumns,
                   const Convertors &convertors, bool withRows)
{
    readStream(progress, stream, addColumns, convertors, withRows, streamName(stream));
}

void TableIO::read(QDataStream &stream)
{
    FilterProgressTrue progress;
    read(progress, stream, false, Convertors(), true);
}

void TableIO::read(QDataStream &stream, bool addColumns)
{
    FilterProgressTrue progress;
    read(progress, stream, addColumns, Convertors(), true);
}

void TableIO::read(QDataStream &stream, bool addColumns, const Convertors &convertors)
{
    FilterProgressTrue progress;
    read(progress, stream, addColumns, convertors, true);
}

void TableIO::read(FilterProgress &progress, const QDir &dir, bool addColumns)
{
    TableFileStream stream(fileName(dir), QIODevice::ReadOnly);
    if (!stream.device()) {
        m_lastError = QStringLiteral("Table file %1 was not read: %2")
                              .arg(fileName(dir), stream.openError());
        return;
    }
    readStream(progress, stream, addColumns, Convertors(), true, stream.targetName());
}

void TableIO::read(const QDir &dir, bool addColumns)
{
    FilterProgressTrue progress;
    read(progress, dir, addColumns);
}

void TableIO::readStream(FilterProgress &progress, QDataStream &stream, bool addColumns,
                         const Convertors &convertors, bool withRows, const QString &source)
{
    m_lastError.clear();
    if (stream.atEnd())
        return;

    TableIndexRebuilder rebuilder(table);
    TableUpdater updater(table);
    table->clear();

    auto fail = [&](const QString &what) {
        m_lastError = QStringLiteral("Table file %1 is damaged: %2").arg(source, what);
        QMessageLogger().warning().noquote() << m_lastError;
    };
    // Another version is told apart from a cut one, and nothing is read
    // behind the version word of another format.
    TableHeader header;
    qint32 version = 0;
    stream >> version;
    header.version = quint32(version);
    if (stream.status() != QDataStream::Ok) {
        fail(QStringLiteral("header cut short"));
        return;
    }
    if (header.version != s_versionDb)
        return;
    readHeaderAfterVersion(header, stream);
    QString damage = tableHeaderDamage(header, stream);
    // The layout of the file's rows.
    Table saved(QStringLiteral("saved"));
    if (damage.isEmpty()) {
        try {
            for (const TableColumnDef &def : qAsConst(header.columns))
                saved.addColumn(def);
        } catch (const QString &error) {
            damage = error;
        }
        if (damage.isEmpty() && saved.columnCount() != header.columns.size())
            damage = QStringLiteral("column names repeated");
    }
    if (!damage.isEmpty()) {
        fail(damage);
        return;
    }

    if (addColumns) {
        for (const TableColumnDef &def : qAsConst(header.columns)) {
            if (table->columnExists(def.name) || isClaimed(def.name, convertors))
                continue;
            table->addColumn(def.name, def.type, def.length, def.nullable, def.title, def.flag,
                             def.description);
        }
    }
    if (!withRows)
        return;

    ConvertorListOwner convertorList;
    make_fromDefs(convertorList.list, &saved, convertors);

    Record scratch(&saved);
    if (!scratch)
        throw std::bad_alloc();
    unsigned char *scratchCells = Table::cellsPtr(scratch.pointer());
    QList<const TableColumnDef *> savedDefs;
    for (const TableColumnDef *def : saved.fieldDefs())
        savedDefs.append(def);
    RowCodec codec(savedDefs, saved.rowLength(), header.nullBytes);
    // The table makes its pool on first use and never frees it: ask only if needed.
    StringPool *pool = codec.hasStrings() ? table->stringPool() : nullptr;
    // An unchanged schema takes each row straight into its new block, as a
    // copy of a scratch row would leave it: empty texts take the column's last
    // text, and the bitmap's bits behind the last column stay clear.
    const bool direct = isPlainCopy(convertorList.list, &saved, table);
    codec.setKeepLastText(direct);
    const int tailBits = header.columnCount % 8;
    const qint64 lastNullByte =
            tailBits != 0 ? qint64(saved.rowLength()) + header.nullBytes - 1 : -1; // in the cells
    const unsigned char lastNullMask = (unsigned char)((1u << tailBits) - 1);

    // Rows of no columns have no bytes that could prove them.
    const int rowCount = header.columnCount > 0 ? header.rowCount : 0;
    const bool plain = isPlainTrue(progress);
    // A Fast master, the only index the table has while it is read, is filled
    // row by row and sorted once instead of batch by batch: when no code from
    // outside runs during the read (progress, filter, convertors), nothing can
    // tell the difference. On an exception the table holds what the batches
    // would have given it.
    MasterIndex_Fast *fast = plain && convertors.isEmpty() ? ownFastMaster(table->masterIndex())
                                                           : nullptr;
    std::unique_ptr<MasterIndex_Fast::Filler> filler(fast ? new MasterIndex_Fast::Filler(fast)
                                                          : nullptr);
    int kept = 0; // rows given to the filler
    QList<Record> batch;
    if (!filler)
        batch.reserve(batchSize);
    BlockSource bytes(stream.device());
    auto nextRow = [&](unsigned char *cells) -> bool {
        bool fresh = false;
        for (;;) {
            if (bytes.size() > 0) {
                const int n = codec.decode(bytes.data(), bytes.size(), cells, pool);
                if (n > 0) {
                    bytes.consume(n);
                    return true;
                }
                if (n < 0)
                    return false;
            }
            if (fresh) {
                // Wider than a block, or the stream ends inside it.
                bytes.giveBack();
                return codec.read(cells, stream, pool);
            }
            bytes.refill();
            fresh = true;
        }
    };

    int rowsRead = 0;
    try {
        for (; rowsRead < rowCount; ++rowsRead) {
            if (!plain)
                progress(rowsRead, rowCount);
            Record row;
            if (direct) {
                row = Record(table);
                if (!row) {
                    // A stream that ends here is told as such first.
                    if (!nextRow(scratchCells))
                        break;
                    throw std::bad_alloc();
                }
                unsigned char *cells = Table::cellsPtr(row.pointer());
                if (!nextRow(cells))
                    break;
                if (lastNullByte >= 0)
                    cells[lastNullByte] &= lastNullMask;
            } else {
                if (!nextRow(scratchCells))
                    break;
                row = Record(table);
                if (!row)
                    throw std::bad_alloc();
                convertDefs(convertorList.list, Table::cellsPtr(row.pointer()), scratchCells);
            }
            if (!plain && !progress.filter(row))
                continue;
            if (filler) {
                filler->append(std::move(row));
                ++kept;
                continue;
            }
            if (batch.size() >= batchSize) {
                table->appendList(batch);
                batch.clear();
            }
            // Moved in: the row's count is not touched again.
            batch.append(Record());
            batch.last() = std::move(row);
        }
    } catch (...) {
        if (filler) {
            // The batches that were full before the last row came.
            filler->keepFirst(kept > 0 ? (kept - 1) / batchSize * batchSize : 0);
            filler->finish();
        }
        throw;
    }
    if (filler)
        filler->finish();
    if (!batch.isEmpty())
        table->appendList(batch);
    if (rowsRead < header.rowCount)
        fail(QStringLiteral("%1 rows expected, %2 read").arg(header.rowCount).arg(rowsRead));
}
