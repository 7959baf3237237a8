// Built against an installed tabledb: makes a table, adds a row and reads it back.
#include "table/table.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Table table(QStringLiteral("Quotes"));
    table.addColumn(QStringLiteral("price"), FieldType::Decimal, 2);
    Record row(&table);
    row.data(0) = decimal::fromString(QStringLiteral("101.25"));
    const QString text = row.data(0).toString();
    std::printf("%s\n", qPrintable(text));
    return text == QLatin1String("101.25") ? 0 : 1;
}
