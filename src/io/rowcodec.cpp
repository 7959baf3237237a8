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
            fixed.pieces.append(Piece{def->offset, int(def->len)});
            fixed.fileBytes += int(def->len);
        }
    }
    if (nullBytes > 0) {
        fixed.pieces.append(Piece{rowLength, nullBytes});
        fixed.fileBytes += nullBytes;
    }
    closeFixed();
}

void RowCodec::write(const unsigned char *cells, QDataStream &out)
{
    // The whole row goes to the stream in one call.
    int size = 0;
    for (const Segment &s : qAsConst(m_segments)) {
        if (!s.isString) {
            size += s.fileBytes;
        } else {
            const QString &text = *reinterpret_cast<const QString *>(cells + s.pieces[0].offset);
            size += 4 + (text.isEmpty() ? 0 : text.size() * 2 + 2);
        }
    }
    if (m_buffer.size() < size)
        m_buffer.resize(size);
    char *p = m_buffer.data();
    for (const Segment &s : qAsConst(m_segments)) {
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
    out.writeRawData(m_buffer.constData(), size);
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
