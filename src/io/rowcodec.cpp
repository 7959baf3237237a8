#include "io/rowcodec_p.h"

#include "table/fieldtype.h"

#include <QDataStream>
#include <QString>

#include <climits>
#include <cstring>

namespace {

// A text is read in steps of this size, so that a damaged length costs no
// more memory than the bytes that really follow it.
const int textStep = 1 << 20;
// Slots of a String column's recent texts, powers of two: a column starts
// small (a row list of a few rows) and grows while it misses.
const int fewTexts = 256;
const int manyTexts = 4096;

unsigned hashUnits(const ushort *units, int count)
{
    const char *p = reinterpret_cast<const char *>(units);
    const size_t bytes = size_t(count) * 2;
    quint64 h = quint64(count) * 0x9e3779b97f4a7c15ULL;
    size_t i = 0;
    for (; i + 8 <= bytes; i += 8) {
        quint64 word;
        std::memcpy(&word, p + i, 8);
        h = (h ^ word) * 0xff51afd7ed558ccdULL;
    }
    if (i < bytes) {
        quint64 word = 0;
        std::memcpy(&word, p + i, bytes - i);
        h = (h ^ word) * 0xff51afd7ed558ccdULL;
    }
    // Texts that differ in one character differ in few bits of the last word.
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ULL;
    h ^= h >> 33;
    return unsigned(h);
}

} // namespace

RowCodec::RowCodec(const QList<const TableColumnDef *> &columns, uint64 rowLength, int nullBytes)
{
    build(columns, rowLength, nullBytes);
}

RowCodec::RowCodec(const QList<TableColumnDef> &columns, int nullBytes)
{
    QList<TableColumnDef> placed = columns;
    QList<const TableColumnDef *> pointers;
    uint64 offset = 0;
    for (TableColumnDef &def : placed) {
        def.offset = offset;
        offset += def.lenAligned();
        pointers.append(&def);
    }
    build(pointers, offset, nullBytes);
}

void RowCodec::build(const QList<const TableColumnDef *> &columns, uint64 rowLength,
                     int nullBytes)
{
    Segment fixed{false, 0, {}, -1};
    // Cells that lie side by side in the row go out in one copy.
    auto addPiece = [&](uint64 offset, int length) {
        if (!fixed.pieces.isEmpty()) {
            Piece &last = fixed.pieces.last();
            if (last.offset + uint64(last.length) == offset) {
                last.length += length;
                fixed.fileBytes += length;
                return;
            }
        }
        fixed.pieces.append(Piece{offset, length});
        fixed.fileBytes += length;
    };
    auto closeFixed = [&]() {
        if (!fixed.pieces.isEmpty())
            m_segments.append(fixed);
        fixed = Segment{false, 0, {}, -1};
    };
    for (const TableColumnDef *def : columns) {
        if (def->type == FieldType::String) {
            closeFixed();
            m_segments.append(Segment{true, 0, {Piece{def->offset, 8}}, int(m_texts.size())});
            m_texts.emplace_back();
        } else {
            addPiece(def->offset, int(def->len));
        }
    }
    if (nullBytes > 0) {
        addPiece(rowLength, nullBytes);
    }
    closeFixed();

    for (const Segment &segment : qAsConst(m_segments)) {
        if (segment.isString) {
            m_textSteps.push_back(TextStep{m_fixedBytes});
            m_steps.push_back(Step{segment.pieces[0].offset, -1, segment.text});
            continue;
        }
        for (const Piece &piece : segment.pieces)
            m_steps.push_back(Step{piece.offset, piece.length, -1});
        m_fixedBytes += segment.fileBytes;
    }
}

bool RowCodec::hasStrings() const
{
    for (const Segment &s : m_segments) {
        if (s.isString)
            return true;
    }
    return false;
}

int RowCodec::fileSize(const unsigned char *cells) const
{
    int size = 0;
    for (const Segment &s : m_segments) {
        if (!s.isString) {
            size += s.fileBytes;
        } else {
            const QString &text = *reinterpret_cast<const QString *>(cells + s.pieces[0].offset);
            size += 4 + (text.isEmpty() ? 0 : text.size() * 2 + 2);
        }
    }
    return size;
}

void RowCodec::encode(const unsigned char *cells, char *p) const
{
    for (const Segment &s : m_segments) {
        if (!s.isString) {
            for (const Piece &piece : s.pieces) {
                std::memcpy(p, cells + piece.offset, size_t(piece.length));
                p += piece.length;
            }
            continue;
        }
        const QString &text = *reinterpret_cast<const QString *>(cells + s.pieces[0].offset);
        const qint32 count = text.size();
        std::memcpy(p, &count, 4);
        p += 4;
        if (count > 0) {
            // utf16() ends with the zero unit that the format carries.
            std::memcpy(p, text.utf16(), size_t(count) * 2 + 2);
            p += size_t(count) * 2 + 2;
        }
    }
}

void RowCodec::write(const unsigned char *cells, QDataStream &out)
{
    const int size = fileSize(cells);
    if (m_buffer.size() < size)
        m_buffer.resize(size);
    encode(cells, m_buffer.data());
    out.writeRawData(m_buffer.constData(), size);
}

int RowCodec::decode(const char *data, int size, unsigned char *cells, StringPool *pool)
{
    // Measure first, so that a row cut by the end of `data` changes nothing.
    qint64 texts = 0; // bytes of the String cells so far
    for (const TextStep &t : m_textSteps) {
        const qint64 at = t.fixedBefore + texts;
        if (at + 4 > size)
            return 0;
        qint32 count;
        std::memcpy(&count, data + at, 4);
        if (count > (INT_MAX - 2) / 2)
            return -1;
        texts += 4 + (count > 0 ? qint64(count) * 2 + 2 : 0);
        if (t.fixedBefore + texts > size) // the cell's end
            return 0;
    }
    const qint64 need = m_fixedBytes + texts;
    if (need > size)
        return 0;

    const char *p = data;
    for (const Step &step : m_steps) {
        if (step.length >= 0) {
            std::memcpy(cells + step.offset, p, size_t(step.length));
            p += step.length;
            continue;
        }
        qint32 count;
        std::memcpy(&count, p, 4);
        p += 4;
        if (count <= 0) {
            emptyText(step.text, cells + step.offset);
            continue;
        }
        const int bytes = count * 2 + 2;
        const char *units = p;
        if (quintptr(units) & 1) { // UTF-16 units are read in place only when aligned
            if (m_buffer.size() < bytes)
                m_buffer.resize(bytes);
            std::memcpy(m_buffer.data(), p, size_t(bytes));
            units = m_buffer.constData();
        }
        *reinterpret_cast<QString *>(cells + step.offset) =
                pooled(step.text, reinterpret_cast<const ushort *>(units), count, pool);
        p += bytes;
    }
    return int(need);
}

bool RowCodec::read(unsigned char *cells, QDataStream &in, StringPool *pool)
{
    for (const Segment &s : qAsConst(m_segments)) {
        if (s.isString) {
            if (!readString(s, cells + s.pieces[0].offset, in, pool))
                return false;
            continue;
        }
        if (s.pieces.size() == 1) {
            const Piece &piece = s.pieces[0];
            if (in.readRawData(reinterpret_cast<char *>(cells + piece.offset), piece.length)
                != piece.length)
                return false;
            continue;
        }
        if (m_buffer.size() < s.fileBytes)
            m_buffer.resize(s.fileBytes);
        if (in.readRawData(m_buffer.data(), s.fileBytes) != s.fileBytes)
            return false;
        const char *p = m_buffer.constData();
        for (const Piece &piece : s.pieces) {
            std::memcpy(cells + piece.offset, p, size_t(piece.length));
            p += piece.length;
        }
    }
    return true;
}

const QString &RowCodec::pooled(int text, const ushort *units, int count, StringPool *pool)
{
    TextColumn &column = m_texts[size_t(text)];
    const int size = int(column.recent.size());
    if (size == 0 || (column.misses >= 2 * size && size < manyTexts)) {
        column.recent.assign(size_t(size == 0 ? fewTexts : manyTexts), QString());
        column.misses = 0;
    }
    const int slot = int(hashUnits(units, count) & unsigned(column.recent.size() - 1));
    QString &entry = column.recent[size_t(slot)];
    // A text cut at a zero unit never matches its count: it takes the pool.
    if (entry.size() != count || std::memcmp(entry.constData(), units, size_t(count) * 2) != 0) {
        entry = FieldType::stringToStringFromPool(units, count, pool);
        ++column.misses;
    }
    // The slot holds the last text until a later text, which becomes the
    // last one, takes it.
    column.last = slot;
    return entry;
}

void RowCodec::emptyText(int text, unsigned char *cell) const
{
    if (!m_keepLastText)
        return; // the cell keeps what it held
    const TextColumn &column = m_texts[size_t(text)];
    QString &target = *reinterpret_cast<QString *>(cell);
    if (column.last < 0)
        target = QString();
    else
        target = column.recent[size_t(column.last)];
}

bool RowCodec::readString(const Segment &s, unsigned char *cell, QDataStream &in,
                          StringPool *pool)
{
    qint32 count = 0;
    if (in.readRawData(reinterpret_cast<char *>(&count), 4) != 4)
        return false;
    if (count <= 0) {
        emptyText(s.text, cell);
        return true;
    }
    if (count > (INT_MAX - 2) / 2)
        return false;
    const int bytes = count * 2 + 2;
    int have = 0;
    while (have < bytes) {
        const int step = qMin(bytes - have, textStep);
        if (m_buffer.size() < have + step)
            m_buffer.resize(have + step);
        if (in.readRawData(m_buffer.data() + have, step) != step)
            return false;
        have += step;
    }
    *reinterpret_cast<QString *>(cell) =
            pooled(s.text, reinterpret_cast<const ushort *>(m_buffer.constData()), count, pool);
    return true;
}
