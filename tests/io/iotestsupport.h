#ifndef TABLEDB_TESTS_IO_IOTESTSUPPORT_H
#define TABLEDB_TESTS_IO_IOTESTSUPPORT_H

#include "io/tableio.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"
#include "table/table.h"
#include "support/files.h"
#include "table/tabletestsupport.h"

#include <QByteArray>
#include <QDataStream>
#include <QtEndian>

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

// Column 0 is the Integer key (IntKeyMaster), then one column of every other
// type; 9 columns in all, so the bitmap takes two bytes.
inline Table *makeAllTypesTable(const QString &name = QStringLiteral("orders"))
{
    auto *t = new Table(name);
    t->addColumn(QStringLiteral("key"), FieldType::Integer, 0, false);
    t->addColumn(QStringLiteral("qty"), FieldType::Integer64);
    t->addColumn(QStringLiteral("px"), FieldType::Double);
    t->addColumn(QStringLiteral("dec"), FieldType::Decimal, 2);
    t->addColumn(QStringLiteral("xdec"), FieldType::XDecimal, 4);
    t->addColumn(QStringLiteral("code"), FieldType::VarChar, 3);
    t->addColumn(QStringLiteral("time"), FieldType::DateTime);
    t->addColumn(QStringLiteral("text"), FieldType::String);
    t->addColumn(QStringLiteral("board"), FieldType::BoardList);
    t->setMasterIndex(new IntKeyMaster(t));
    return t;
}

// A row with key `key` and, column by column, a random value or NULL.
inline Record randomRow(Table *t, int key, std::mt19937 &rng)
{
    static const char *const texts[] = {"", "a", "ab", "SBER", "Газпром", "x y z"};
    Record row(t);
    row.data(0) = key;
    for (int c = 1; c < t->columnCount(); ++c) {
        if (rng() % 4 == 0)
            continue; // stays NULL
        Field f = row.data(c);
        const int v = int(rng() % 100000) - 50000;
        switch (f.type()) {
        case FieldType::Integer: f = v; break;
        case FieldType::Integer64: f = int64(v) * 1000003; break;
        case FieldType::Double: f = v / 7.0; break;
        case FieldType::Decimal: f = decimal(v, 2); break;
        case FieldType::XDecimal: f = xdecimal(int64(v) * 999, 4); break;
        case FieldType::VarChar: f = QString::fromUtf8(texts[rng() % 6]).left(f.length()); break;
        case FieldType::DateTime: FieldType::setInt64(f.data(), 1700000000000LL + v); f.clearNull(); break;
        case FieldType::String: // an empty one would take the text of the row before
            f.storeString(QString::fromUtf8(texts[1 + rng() % 5]));
            f.clearNull();
            break;
        case FieldType::BoardList: {
            boardlist b;
            std::memset(&b, 0, sizeof b);
            b.count = int(rng() % 4);
            for (int i = 0; i < b.count; ++i) {
                b.items[i].first = int(rng() % 5);
                b.items[i].second = v + i;
            }
            f = b;
            break;
        }
        default: break;
        }
    }
    return row;
}

inline Table *fillRandom(Table *t, int rows, unsigned seed)
{
    std::mt19937 rng(seed);
    QList<Record> list;
    for (int i = 0; i < rows; ++i)
        list.append(randomRow(t, int(rng() % 1000000), rng));
    TableUpdater updater(t);
    t->appendList(list);
    return t;
}

// The cell's stored form: raw bytes, the text for String cells.
inline QByteArray cellBytes(const Record &row, int column)
{
    const Field f = row.data(column);
    if (f.type() == FieldType::String)
        return f.toString().toUtf8();
    return QByteArray(reinterpret_cast<const char *>(f.data()), int(f.columnDef()->len));
}

// Same columns by name, same rows in master order (or, with `leadingOnly`,
// the first of them), same cells and NULL bits.
inline void expectSameRows(const Table *expected, const Table *actual, bool leadingOnly = false)
{
    if (leadingOnly)
        ASSERT_LE(actual->rowCount(), expected->rowCount());
    else
        ASSERT_EQ(expected->rowCount(), actual->rowCount());
    for (int r = 0; r < actual->rowCount(); ++r) {
        const Record &a = expected->at(r);
        const Record &b = actual->at(r);
        for (int c = 0; c < expected->columnCount(); ++c) {
            const int bc = actual->columnIndex(expected->columnName(c));
            ASSERT_GE(bc, 0) << expected->columnName(c).toStdString();
            ASSERT_EQ(a.data(c).isNull(), b.data(bc).isNull()) << "row " << r << " column " << c;
            if (!a.data(c).isNull()) {
                ASSERT_EQ(cellBytes(a, c), cellBytes(b, bc)) << "row " << r << " column " << c;
            }
        }
    }
}

inline QByteArray writeTable(Table *t, bool withRows = true)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    TableIO(t).write(out, withRows);
    return bytes;
}

// Runs `work` in a child process, killed after `killAfterMicroseconds` if that
// is not negative; its exit status (4 when it threw), or 128 + the signal.
template <typename Work>
int inChild(Work work, int killAfterMicroseconds = -1)
{
    const pid_t pid = fork();
    if (pid == 0) {
        int code = 4;
        try {
            code = work();
        } catch (...) {
        }
        _exit(code);
    }
    if (killAfterMicroseconds >= 0) {
        usleep(useconds_t(killAfterMicroseconds));
        kill(pid, SIGKILL);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Big-endian items and raw little-endian cells, spelled out by hand.
struct Bytes
{
    QByteArray data;
    Bytes &be32(quint32 v) { v = qToBigEndian(v); data.append(reinterpret_cast<char *>(&v), 4); return *this; }
    Bytes &be16(quint16 v) { v = qToBigEndian(v); data.append(reinterpret_cast<char *>(&v), 2); return *this; }
    Bytes &u8(quint8 v) { data.append(char(v)); return *this; }
    Bytes &le32(quint32 v) { v = qToLittleEndian(v); data.append(reinterpret_cast<char *>(&v), 4); return *this; }
    Bytes &le64(quint64 v) { v = qToLittleEndian(v); data.append(reinterpret_cast<char *>(&v), 8); return *this; }
    Bytes &raw(const QByteArray &b) { data.append(b); return *this; }
    Bytes &zeros(int n) { data.append(QByteArray(n, '\0')); return *this; }
    // QDataStream's QString: byte length, UTF-16 big-endian; 0xFFFFFFFF for null.
    Bytes &str(const QString &s)
    {
        if (s.isNull())
            return be32(0xFFFFFFFFu);
        be32(quint32(s.size() * 2));
        for (QChar ch : s)
            be16(ch.unicode());
        return *this;
    }
    // name, title, description, length, type, len, nullable, flag
    Bytes &column(const QString &name, int length, int type, int len, bool nullable)
    {
        str(name).str(QString()).str(QString()).be32(quint32(length)).u8(quint8(type));
        return be32(quint32(len)).u8(nullable).u8(1);
    }
};

#endif // TABLEDB_TESTS_IO_IOTESTSUPPORT_H
