#ifndef TABLEDB_MODEL_CELLTEXT_H
#define TABLEDB_MODEL_CELLTEXT_H

#include "runtime/global.h"

#include <QString>

class Field;

// Text forms of cells, one routine each, shared by what shows or exports
// them: tabledb-tool's dump and TableModel.
namespace CellText {

// The cell as text: Field::toString(), empty for NULL. This is what a CSV
// dump writes (before quoting) and what a model displays.
TABLEDB_EXPORT QString text(const Field &cell);

// The field quoted for CSV (RFC 4180): in double quotes, with inner quotes
// doubled, when it holds a comma, a quote, a line break or leading or
// trailing white space; otherwise as it is.
TABLEDB_EXPORT QString csv(const QString &text);

// The cell as a JSON value: null for NULL, integers and finite doubles as
// numbers, everything else (decimal, xdecimal, datetime, text, board lists)
// as a string in the library's text form.
TABLEDB_EXPORT QString json(const Field &cell);

// A JSON string literal.
TABLEDB_EXPORT QString jsonString(const QString &text);

} // namespace CellText

#endif // TABLEDB_MODEL_CELLTEXT_H
