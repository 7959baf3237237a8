#ifndef TABLEDB_IO_TABLEIO_P_H
#define TABLEDB_IO_TABLEIO_P_H

#include "io/tableio.h"

class QDataStream;

// Why a header read from `stream` cannot describe rows that are safe to
// read (counts, widths, names), or an empty text.
QString tableHeaderDamage(const TableIO::TableHeader &header, const QDataStream &stream);

#endif // TABLEDB_IO_TABLEIO_P_H
