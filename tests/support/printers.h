#ifndef TABLEDB_TESTS_PRINTERS_H
#define TABLEDB_TESTS_PRINTERS_H

// Readable failure messages for Qt types; force-included into every test file.

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <ostream>

inline void PrintTo(const QString &s, std::ostream *os)
{
    *os << '"' << s.toStdString() << '"';
}

inline void PrintTo(const QByteArray &b, std::ostream *os)
{
    *os << "QByteArray(\"" << b.toHex().toStdString() << "\")";
}

inline void PrintTo(const QStringList &l, std::ostream *os)
{
    *os << '{';
    for (int i = 0; i < l.size(); ++i)
        *os << (i ? ", \"" : " \"") << l.at(i).toStdString() << '"';
    *os << " }";
}

#endif // TABLEDB_TESTS_PRINTERS_H
