// A tour of the table store: a table with a column of each type, rows added,
// cloned and copied, a column added to the live table, and every row dumped.

#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"
#include "table/table.h"

#include <QCoreApplication>
#include <QTextStream>

namespace {

void fill(Record &row, int id, const QString &code, const QString &price, const QString &when)
{
    row.data(QStringLiteral("id")) = id;
    row.data(QStringLiteral("volume")) = int64(1000000) * id;
    row.data(QStringLiteral("ratio")) = 1.0 / (id + 1);
    row.data(QStringLiteral("price")) = decimal::fromString(price);
    row.data(QStringLiteral("turnover")) = xdecimal::fromString(price + QStringLiteral("1234"));
    row.data(QStringLiteral("code")) = code;
    row.data(QStringLiteral("time")) = datetime(when);
    row.data(QStringLiteral("board")) = QStringLiteral("TQBR"); // shared through the table's pool
    row.data(QStringLiteral("lots")) = boardlist::fromText(QStringLiteral("1:10,20 2:5"));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);

    Table quotes(QStringLiteral("Quotes"), QStringLiteral("Котировки"));
    quotes.addColumn(QStringLiteral("id"), FieldType::Integer, 0, false);
    quotes.addColumn(QStringLiteral("volume"), FieldType::Integer64);
    quotes.addColumn(QStringLiteral("ratio"), FieldType::Double);
    quotes.addColumn(QStringLiteral("price"), FieldType::Decimal, 2);
    quotes.addColumn(QStringLiteral("turnover"), FieldType::XDecimal, 4);
    quotes.addColumn(QStringLiteral("code"), FieldType::VarChar, 8);
    quotes.addColumn(QStringLiteral("time"), FieldType::DateTime);
    quotes.addColumn(QStringLiteral("board"), FieldType::String);
    quotes.addColumn(QStringLiteral("lots"), FieldType::BoardList);

    out << "Columns:";
    for (int i = 0; i < quotes.columnCount(); ++i)
        out << ' ' << quotes.columnName(i) << ':' << quotes.columnTypeName(i);
    out << "\nRow size: " << quotes.rowSize() << " bytes\n\n";

    {
        Record sber(&quotes);
        fill(sber, 1, QStringLiteral("SBER"), QStringLiteral("271.35"),
            QStringLiteral("2026.11.20 10:00:00.125"));
        sber.append();
        Record gazp(&quotes);
        fill(gazp, 2, QStringLiteral("GAZP"), QStringLiteral("128.04"),
            QStringLiteral("2026.11.20 10:00:01.500"));
        gazp.append();

        // A clone is a new row with the same cells; it joins the table only when appended.
        Record clone = sber.clone();
        clone.data(QStringLiteral("id")) = 3;
        clone.append();
        // copy() takes cells and null flags over, here only the price column.
        Record copy(&quotes);
        copy.data(QStringLiteral("id")) = 4;
        const int price = quotes.columnIndex(QStringLiteral("price"));
        copy.copy(gazp, price, price);
        copy.append();
    } // handles held across addColumn would dangle: the blocks may move

    for (int i = 0; i < quotes.rowCount(); ++i)
        out << quotes.at(i).dump(false) << '\n';

    // Adding a column re-lays every live row in place; the new cell starts NULL.
    quotes.addColumn(QStringLiteral("comment"), FieldType::Double, 0, true);
    out << "\nAfter adding 'comment' (row size " << quotes.rowSize()
        << " bytes), NULL cells left out:\n";
    for (int i = 0; i < quotes.rowCount(); ++i)
        out << quotes.at(i).dump(true) << '\n';
    return 0;
}
