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
    Segment fixed{false, 0, {}};
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
        fixed = Segment{false, 0, {}};
    };
    for (const TableColumnDef *def : columns) {
        if (def->type == FieldType::String) {
            closeFixed();
            m_segments.append(Segment{true, 0, {Piece{def->offset, 8}}});
        } else {
            addPiece(def->offset, int(def->len));
        }
    }
    if (nullBytes > 0) {
        addPiece(rowLength, nullBytes);
    }
    closeFixed();
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
    qint64 need = 0;
    for (const Segment &s : qAsConst(m_segments)) {
        if (!s.isString) {
            need += s.fileBytes;
            continue;
        }
        if (need + 4 > size)
            return 0;
        qint32 count;
        std::memcpy(&count, data + need, 4);
        need += 4;
        if (count > (INT_MAX - 2) / 2)
            return -1;
        if (count > 0)
            need += qint64(count) * 2 + 2;
        if (need > size)
            return 0;
    }
    if (need > size)
        return 0;

    const char *p = data;
    for (const Segment &s : qAsConst(m_segments)) {
        if (!s.isString) {
            for (const Piece &piece : s.pieces) {
                std::memcpy(cells + piece.offset, p, size_t(piece.length));
                p += piece.length;
            }
            continue;
        }
        qint32 count;
        std::memcpy(&count, p, 4);
        p += 4;
        if (count <= 0)
            continue; // the cell keeps what it held
        const int bytes = count * 2 + 2;
        const char *units = p;
        if (quintptr(units) & 1) { // UTF-16 units are read in place only when aligned
            if (m_buffer.size() < bytes)
                m_buffer.resize(bytes);
            std::memcpy(m_buffer.data(), p, size_t(bytes));
            units = m_buffer.constData();
        }
        *reinterpret_cast<QString *>(cells + s.pieces[0].offset) = FieldType::stringToStringFromPool(
            reinterpret_cast<const ushort *>(units), count, pool);
        p += bytes;
    }
    return int(need);
}

bool RowCodec::read(unsigned char *cells, QDataStream &in, StringPool *pool)
{
    for (const Segment &s : qAsConst(m_segments)) {
        if (s.isString) {
            if (!readString(cells + s.pieces[0].offset, in, pool))
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

bool RowCodec::readString(unsigned char *cell, QDataStream &in, StringPool *pool)
{
    qint32 count = 0;
    if (in.readRawData(reinterpret_cast<char *>(&count), 4) != 4)
        return false;
    if (count <= 0)
        return true; // the cell keeps what it held
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
    *reinterpret_cast<QString *>(cell) = FieldType::stringToStringFromPool(
        reinterpret_cast<const ushort *>(m_buffer.constData()), count, pool);
    return true;
}
