#ifndef TABLEDB_TOOLS_CELLTEXT_H
#define TABLEDB_TOOLS_CELLTEXT_H

#include <QString>

class Field;

// Text forms of cells for the dump command.
namespace CellText {

// The field quoted for CSV (RFC 4180): in double quotes, with inner quotes
// doubled, when it holds a comma, a quote, a line break or leading or
// trailing white space; otherwise as it is.
QString csv(const QString &text);

// The cell as a JSON value: null for NULL, integers and finite doubles as
// numbers, everything else (decimal, xdecimal, datetime, text, board lists)
// as a string in the library's text form.
QString json(const Field &cell);

// A JSON string literal.
QString jsonString(const QString &text);

} // namespace CellText

#endif // TABLEDB_TOOLS_CELLTEXT_H
