#include "toolcommands.h"

#include "io/tableio.h"
#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"
#include "support/warningcatcher.h"
#include "table/table.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>

namespace {

struct Result
{
    int code;
    QString out;
    QString err;
};

Result tool(QStringList arguments)
{
    arguments.prepend(QStringLiteral("tabledb-tool"));
    Result result;
    QTextStream out(&result.out), err(&result.err);
    result.code = runTool(arguments, out, err, false);
    out.flush();
    err.flush();
    return result;
}

// A table with a column of each cell type, saved by the library.
class ToolTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        Table table("Quotes");
        table.addColumn("id", FieldType::Integer, 0, false, "Id");
        table.addColumn("volume", FieldType::Integer64);
        table.addColumn("ratio", FieldType::Double);
        table.addColumn("price", FieldType::Decimal, 2);
        table.addColumn("turnover", FieldType::XDecimal, 4);
        table.addColumn("code", FieldType::VarChar, 8);
        table.addColumn("time", FieldType::DateTime);
        table.addColumn("note", FieldType::String, 0, true, QStringLiteral("Заметка"), false);
        const struct
        {
            int id;
            int64 volume;
            double ratio;
            const char *price, *turnover, *code, *time, *note;
        } rows[] = {
            { 1, 9007199254740993LL, 0.5, "271.35", "12345.6789", "SBER", "2026.11.20 10:00:00.125", "plain" },
            { 2, -7, -1.25, "-0.01", "0.0001", "GA,ZP", "2026.11.20 10:00:01.500", "say \"hi\"" },
            { 3, 0, 0, nullptr, nullptr, " X ", nullptr, nullptr },
        };
        {
            TableUpdater updater(&table);
            for (const auto &r : rows) {
                Record row(&table);
                row.data(0) = r.id;
                row.data(1) = r.volume;
                row.data(2) = r.ratio;
                if (r.price)
                    row.data(3) = decimal::fromString(r.price);
                if (r.turnover)
                    row.data(4) = xdecimal::fromString(r.turnover);
                row.data(5) = QString(r.code);
                if (r.time)
                    row.data(6) = datetime(r.time);
                if (r.note)
                    row.data(7) = QString(r.note);
                row.append();
            }
        }
        TableIO(&table).write(QDir(m_dir.path()));
        m_file = m_dir.filePath("Quotes");
        ASSERT_TRUE(QFile::exists(m_file));
    }

    QString path(const char *name) const { return m_dir.filePath(name); }

    QTemporaryDir m_dir;
    QString m_file;
};

const char kCsv[] =
        "id,volume,ratio,price,turnover,code,time,note\r\n"
        "1,9007199254740993,0.5,271.35,12345.6789,SBER,2026.11.20 10:00:00.125,plain\r\n"
        "2,-7,-1.25,-0.01,0.0001,\"GA,ZP\",2026.11.20 10:00:01.500,\"say \"\"hi\"\"\"\r\n"
        "3,0,0,,,\" X \",,\r\n";

} // namespace

// Converting keeps the rows and leaves one form; info tells the forms apart.
TEST_F(ToolTest, InfoAndConvertBothWays)
{
    const QString info = QStringLiteral(
            "file      %1\n"
            "form      %2\n"
            "size      %3 bytes\n"
            "version   0x20190101\n"
            "rows      3\n"
            "master    (order of arrival)\n"
            "columns   8\n"
            "  #  name      title    type       length  nullable  flag\n"
            "  0  id        Id       Integer    0       no        yes\n"
            "  1  volume             Integer64  0       yes       yes\n"
            "  2  ratio              Double     0       yes       yes\n"
            "  3  price              Decimal    2       yes       yes\n"
            "  4  turnover           XDecimal   4       yes       yes\n"
            "  5  code               VarChar    8       yes       yes\n"
            "  6  time               DateTime   0       yes       yes\n"
            "  7  note      Заметка  String     0       yes       no\n");
    Result r = tool({ "info", m_file });
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, info.arg(m_file, "plain", QString::number(QFileInfo(m_file).size())));

    const QString gz = m_file + ".gz";
    r = tool({ "convert", m_file, "--to", "gz" });
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const QString size = QString::number(QFileInfo(gz).size());
    EXPECT_EQ(r.out, QStringLiteral("wrote %1: 3 rows, %2 bytes\n").arg(gz, size));
    EXPECT_FALSE(QFile::exists(m_file));
    EXPECT_EQ(tool({ "info", gz }).out, info.arg(gz, "gzip", size));
    EXPECT_EQ(tool({ "dump", gz }).out, QString::fromUtf8(kCsv));

    const QString copy = path("Copy");
    r = tool({ "convert", gz, "--to", "plain", "-o", copy });
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(QFile::exists(gz));
    EXPECT_EQ(tool({ "dump", copy }).out, QString::fromUtf8(kCsv));
}

TEST_F(ToolTest, DumpAsCsvAndJson)
{
    const struct
    {
        QStringList arguments;
        const char *out;
    } dumps[] = {
        { { "dump", m_file }, kCsv },
        { { "dump", m_file, "--format", "json", "--columns", "volume,price,note,time", "--limit", "3" },
          "{\"volume\":9007199254740993,\"price\":\"271.35\",\"note\":\"plain\","
          "\"time\":\"2026.11.20 10:00:00.125\"}\n"
          "{\"volume\":-7,\"price\":\"-0.01\",\"note\":\"say \\\"hi\\\"\","
          "\"time\":\"2026.11.20 10:00:01.500\"}\n"
          "{\"volume\":0,\"price\":null,\"note\":null,\"time\":null}\n" },
        { { "dump", m_file, "--limit", "1", "--columns", "code" }, "code\r\nSBER\r\n" },
    };
    for (const auto &d : dumps) {
        const Result r = tool(d.arguments);
        EXPECT_EQ(r.code, 0) << r.err.toStdString();
        EXPECT_EQ(r.out, QString::fromUtf8(d.out));
    }
}

// The convertors named are those the library's reader picks: a copy of the
// cell's width for an unchanged column, the converting one for any change of
// type, length or nullability.
TEST_F(ToolTest, DiffNamesChangesAndConvertors)
{
    Table other(QStringLiteral("Quotes2"));
    other.addColumn(QStringLiteral("id"), FieldType::Integer, 0, false); // same, 4 bytes
    other.addColumn(QStringLiteral("volume"), FieldType::Integer); // narrowed
    other.addColumn(QStringLiteral("price"), FieldType::Decimal, 4); // scale changed
    other.addColumn(QStringLiteral("code"), FieldType::VarChar, 8); // same, 16 bytes
    other.addColumn(QStringLiteral("note"), FieldType::String); // same
    other.addColumn(QStringLiteral("time"), FieldType::DateTime); // same, 8 bytes
    other.addColumn(QStringLiteral("ratio"), FieldType::Double, 0, false); // no longer nullable
    other.addColumn(QStringLiteral("venue"), FieldType::VarChar, 4); // new
    TableIO(&other).write(QDir(m_dir.path()));

    const Result r = tool({ "diff", m_file, path("Quotes2") });
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const QString expected = QStringLiteral(
            "schema of %1 -> %2:\n"
            "  ~ volume Integer64 nullable -> Integer nullable\n"
            "  ~ ratio Double nullable -> Double\n"
            "  ~ price Decimal[2] nullable -> Decimal[4] nullable\n"
            "  - turnover XDecimal[4]\n"
            "  + venue VarChar[4]\n"
            "reading %1 with the columns of %2:\n"
            "  id        4-byte copy (FieldDefConvertor_Copy4)\n"
            "  volume    converted from Integer64 (FieldDefConvertor)\n"
            "  price     converted from Decimal[2] (FieldDefConvertor)\n"
            "  code      16-byte copy (FieldDefConvertor_Copy)\n"
            "  note      shared text (FieldDefConvertor_CopyString)\n"
            "  time      8-byte copy (FieldDefConvertor_Copy8)\n"
            "  ratio     converted from Double (FieldDefConvertor)\n"
            "  venue     not in the file: as a new row has it\n"
            "  turnover  dropped\n")
            .arg(m_file, path("Quotes2"));
    EXPECT_EQ(r.out, expected);
}

TEST_F(ToolTest, DamagedFilesAndBadUsage)
{
    Result r = tool({ "check", m_file });
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.out, m_file + ": whole, 3 rows of 8 columns\n");

    QFile file(m_file);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    // Cut inside the header, inside the last row, and with bytes to spare:
    // check and convert say what is wrong, once (the library's warning of
    // the same is not passed on), and convert writes nothing.
    WarningCatcher warnings;
    const struct
    {
        QByteArray content;
        const char *says;
    } damaged[] = {
        { bytes.left(30), "header" },
        { bytes.left(bytes.size() - 3), "3 rows expected, 2 read" },
        { bytes + QByteArray("xyz"), "after the last" },
    };
    const QString cut = path("Cut");
    for (const auto &d : damaged) {
        QFile out(cut);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(d.content);
        out.close();
        for (const QStringList &command : { QStringList { "check", cut }, QStringList { "convert", cut, "--to", "gz" } }) {
            r = tool(command);
            EXPECT_EQ(r.code, 1) << command.first().toStdString() << ": " << d.says;
            EXPECT_TRUE(r.err.contains(cut)) << r.err.toStdString();
            EXPECT_TRUE(r.err.contains(QLatin1String(d.says), Qt::CaseInsensitive)) << r.err.toStdString();
        }
        EXPECT_FALSE(QFile::exists(cut + ".gz"));
    }
    EXPECT_EQ(warnings.messages(), QStringList());

    const struct
    {
        QStringList arguments;
        int code;
    } usage[] = {
        { { "check", path("Missing") }, 1 },
        { { "info", m_dir.path() }, 1 },
        { {}, 2 },
        { { "frobnicate", m_file }, 2 },
        { { "diff", m_file }, 2 },
        { { "dump", m_file, "--format", "xml" }, 2 },
        { { "dump", m_file, "--columns", "nope" }, 2 },
        { { "dump", m_file, "--limit", "-1" }, 2 },
        { { "convert", m_file }, 2 },
        { { "info", m_file, "--bogus" }, 2 },
    };
    for (const auto &u : usage) {
        r = tool(u.arguments);
        EXPECT_EQ(r.code, u.code) << u.arguments.join(QLatin1Char(' ')).toStdString();
        EXPECT_FALSE(r.err.isEmpty());
    }
}
