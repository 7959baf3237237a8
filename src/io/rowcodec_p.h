#ifndef TABLEDB_IO_ROWCODEC_P_H
#define TABLEDB_IO_ROWCODEC_P_H

#include "table/columndef.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QVector>

#include <vector>

class QDataStream;
class StringPool;

// How the rows of one column list lie in a file and in memory, worked out
// once: runs of fixed cells move with one stream call each, String cells
// carry their own length.
class RowCodec
{
public:
    // `columns` with their offsets in the row's cell area, the bitmap at
    // `rowLength` (aligned) behind the first cell.
    RowCodec(const QList<const TableColumnDef *> &columns, uint64 rowLength, int nullBytes);
    // The same for a header's columns, placed one after the other as a table
    // places them.
    RowCodec(const QList<TableColumnDef> &columns, int nullBytes);

    // Whether rows carry String cells, which need a string pool to be read.
    bool hasStrings() const;
    // On reading, a String cell of no characters takes the last text that this
    // codec read for its column (what a reused scratch row would hold), instead
    // of being left as it is. For rows read straight into fresh row blocks.
    void setKeepLastText(bool keep) { m_keepLastText = keep; }

    void write(const unsigned char *cells, QDataStream &out);
    // The bytes of the row's file form, and the form itself written at `p`.
    int fileSize(const unsigned char *cells) const;
    void encode(const unsigned char *cells, char *p) const;
    // One row from `size` bytes at `data`: the bytes it took, 0 when the row
    // is not whole there (nothing is written then), -1 when a string length
    // cannot be real.
    int decode(const char *data, int size, unsigned char *cells, StringPool *pool);
    // False when the stream ran short or a string length cannot be real; the
    // row is then partly overwritten. Empty String cells are not touched.
    bool read(unsigned char *cells, QDataStream &in, StringPool *pool);

private:
    struct Piece
    {
        uint64 offset; // in the cell area
        int length; // bytes in the file
    };
    struct Segment
    {
        bool isString;
        int fileBytes; // fixed segments: sum of their pieces
        QVector<Piece> pieces; // fixed: cells and the bitmap; String: one piece
        int text; // String: its place in m_texts
    };
    // The texts of one String column met so far: a file repeats few of them
    // (accounts, codes), and one found here costs neither a QString nor a
    // pool look-up. Direct-mapped by a hash of the characters.
    struct TextColumn
    {
        std::vector<QString> recent; // pooled strings
        int last = -1; // slot of the last text read, -1 before the first
        int misses = 0; // since `recent` took its size
    };
    void build(const QList<const TableColumnDef *> &columns, uint64 rowLength, int nullBytes);
    bool readString(const Segment &s, unsigned char *cell, QDataStream &in, StringPool *pool);
    // The pooled string of `count` units, as FieldType::stringToStringFromPool
    // gives it.
    const QString &pooled(int text, const ushort *units, int count, StringPool *pool);
    // A String cell of no characters.
    void emptyText(int text, unsigned char *cell) const;

    // decode()'s plan, flat: the pieces and String cells in file order, and
    // for each String cell the fixed bytes in front of it.
    struct Step
    {
        uint64 offset; // in the cell area
        int length; // fixed: bytes in the file; -1 for a String cell
        int text; // String: its place in m_texts
    };
    struct TextStep
    {
        int fixedBefore;
    };

    QVector<Segment> m_segments;
    std::vector<Step> m_steps;
    std::vector<TextStep> m_textSteps;
    int m_fixedBytes = 0;
    std::vector<TextColumn> m_texts;
    bool m_keepLastText = false;
    QByteArray m_buffer; // one row's bytes on writing, a run or a text on reading
};

#endif // TABLEDB_IO_ROWCODEC_P_H
