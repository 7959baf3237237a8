#include "toolcommands.h"

#include "io/tableio.h"
#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"
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
        Table table(QStringLiteral("Quotes"));
        table.addColumn(QStringLiteral("id"), FieldType::Integer, 0, false, QStringLiteral("Id"));
        table.addColumn(QStringLiteral("volume"), FieldType::Integer64);
        table.addColumn(QStringLiteral("ratio"), FieldType::Double);
        table.addColumn(QStringLiteral("price"), FieldType::Decimal, 2);
        table.addColumn(QStringLiteral("turnover"), FieldType::XDecimal, 4);
        table.addColumn(QStringLiteral("code"), FieldType::VarChar, 8);
        table.addColumn(QStringLiteral("time"), FieldType::DateTime);
        table.addColumn(QStringLiteral("note"), FieldType::String, 0, true, QStringLiteral("Заметка"),
                        false);
        const struct
        {
            int id;
            int64 volume;
            double ratio;
            const char *price, *turnover, *code, *time, *note;
        } rows[] = {
            { 1, 9007199254740993LL, 0.5, "271.35", "12345.6789", "SBER", "2026.11.20 10:00:00.125",
              "plain" },
            { 2, -7, -1.25, "-0.01", "0.0001", "GA,ZP", "2026.11.20 10:00:01.500",
              "say \"hi\"" },
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
                    row.data(3) = decimal::fromString(QString::fromLatin1(r.price));
                if (r.turnover)
                    row.data(4) = xdecimal::fromString(QString::fromLatin1(r.turnover));
                row.data(5) = QString::fromLatin1(r.code);
                if (r.time)
                    row.data(6) = datetime(QString::fromLatin1(r.time));
                if (r.note)
                    row.data(7) = QString::fromUtf8(r.note);
                row.append();
            }
        }
        TableIO(&table).write(QDir(m_dir.path()));
        m_file = m_dir.filePath(QStringLiteral("Quotes"));
        ASSERT_TRUE(QFile::exists(m_file));
    }

    QString path(const char *name) const { return m_dir.filePath(QString::fromLatin1(name)); }

    QTemporaryDir m_dir;
    QString m_file;
};

const char kCsv[] =
        "id,volume,ratio,price,turnover,code,time,note\r\n"
        "1,9007199254740993,0.5,271.35,12345.6789,SBER,2026.11.20 10:00:00.125,plain\r\n"
        "2,-7,-1.25,-0.01,0.0001,\"GA,ZP\",2026.11.20 10:00:01.500,\"say \"\"hi\"\"\"\r\n"
        "3,0,0,,,\" X \",,\r\n";

} // namespace

TEST_F(ToolTest, InfoShowsHeaderAndFile)
{
    const Result r = tool({ QStringLiteral("info"), m_file });
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const QString expected = QStringLiteral(
            "file      %1\n"
            "form      plain\n"
            "size      %2 bytes\n"
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
            "  7  note      Заметка  String     0       yes       no\n")
            .arg(m_file)
            .arg(QFileInfo(m_file).size());
    EXPECT_EQ(r.out, expected);
}

TEST_F(ToolTest, DumpAsCsvAndJson)
{
    Result r = tool({ QStringLiteral("dump"), m_file });
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QString::fromUtf8(kCsv));

    r = tool({ QStringLiteral("dump"), m_file, QStringLiteral("--format"), QStringLiteral("json"),
               QStringLiteral("--columns"), QStringLiteral("volume,price,note,time"),
               QStringLiteral("--limit"), QStringLiteral("3") });
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out,
              QStringLiteral("{\"volume\":9007199254740993,\"price\":\"271.35\",\"note\":\"plain\","
                             "\"time\":\"2026.11.20 10:00:00.125\"}\n"
                             "{\"volume\":-7,\"price\":\"-0.01\",\"note\":\"say \\\"hi\\\"\","
                             "\"time\":\"2026.11.20 10:00:01.500\"}\n"
                             "{\"volume\":0,\"price\":null,\"note\":null,\"time\":null}\n"));

    r = tool({ QStringLiteral("dump"), m_file, QStringLiteral("--limit"), QStringLiteral("1"),
               QStringLiteral("--columns"), QStringLiteral("code") });
    EXPECT_EQ(r.out, QStringLiteral("code\r\nSBER\r\n"));
}

TEST_F(ToolTest, ConvertBothWaysKeepsRowsAndLeavesOneForm)
{
    Result r = tool({ QStringLiteral("convert"), m_file, QStringLiteral("--to"), QStringLiteral("gz") });
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(QFile::exists(m_file + QStringLiteral(".gz")));
    EXPECT_FALSE(QFile::exists(m_file));
    r = tool({ QStringLiteral("dump"), m_file + QStringLiteral(".gz") });
    EXPECT_EQ(r.out, QString::fromUtf8(kCsv));
    EXPECT_TRUE(tool({ QStringLiteral("info"), m_file + QStringLiteral(".gz") })
                        .out.contains(QLatin1String("form      gzip")));

    const QString copy = path("Copy");
    r = tool({ QStringLiteral("convert"), m_file + QStringLiteral(".gz"), QStringLiteral("--to"),
               QStringLiteral("plain"), QStringLiteral("-o"), copy });
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(QFile::exists(m_file + QStringLiteral(".gz")));
    EXPECT_EQ(tool({ QStringLiteral("dump"), copy }).out, QString::fromUtf8(kCsv));
}

TEST_F(ToolTest, DiffNamesChangesAndConvertors)
{
    Table other(QStringLiteral("Quotes2"));
    other.addColumn(QStringLiteral("id"), FieldType::Integer64, 0, false); // widened
    other.addColumn(QStringLiteral("price"), FieldType::Decimal, 2); // same
    other.addColumn(QStringLiteral("code"), FieldType::VarChar, 8); // same, 16 bytes
    other.addColumn(QStringLiteral("note"), FieldType::String); // same
    other.addColumn(QStringLiteral("ratio"), FieldType::Double, 0, false); // no longer nullable
    other.addColumn(QStringLiteral("venue"), FieldType::VarChar, 4); // new
    TableIO(&other).write(QDir(m_dir.path()));

    const Result r = tool({ QStringLiteral("diff"), m_file, path("Quotes2") });
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const QString expected = QStringLiteral(
            "schema of %1 -> %2:\n"
            "  ~ id Integer -> Integer64\n"
            "  - volume Integer64\n"
            "  ~ ratio Double nullable -> Double\n"
            "  - turnover XDecimal[4]\n"
            "  - time DateTime\n"
            "  + venue VarChar[4]\n"
            "reading %1 with the columns of %2:\n"
            "  id        converted from Integer (FieldDefConvertor)\n"
            "  price     8-byte copy (FieldDefConvertor_Copy8)\n"
            "  code      16-byte copy (FieldDefConvertor_Copy)\n"
            "  note      shared text (FieldDefConvertor_CopyString)\n"
            "  ratio     converted from Double (FieldDefConvertor)\n"
            "  venue     not in the file: as a new row has it\n"
            "  volume    dropped\n"
            "  turnover  dropped\n"
            "  time      dropped\n")
            .arg(m_file, path("Quotes2"));
    EXPECT_EQ(r.out, expected);
}

TEST_F(ToolTest, DamagedFilesAndBadUsage)
{
    EXPECT_EQ(tool({ QStringLiteral("check"), m_file }).code, 0);

    QFile file(m_file);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    file.close();
    // Cut inside the header, inside the last row, and with bytes to spare.
    const struct
    {
        QByteArray content;
        const char *says;
    } damaged[] = {
        { bytes.left(30), "header" },
        { bytes.left(bytes.size() - 3), "3 rows expected, 2 read" },
        { bytes + QByteArray("xyz"), "after the last" },
    };
    for (const auto &d : damaged) {
        QFile out(path("Cut"));
        ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(d.content);
        out.close();
        const Result r = tool({ QStringLiteral("check"), path("Cut") });
        EXPECT_EQ(r.code, 1) << d.says;
        EXPECT_TRUE(r.err.contains(path("Cut"))) << r.err.toStdString();
        EXPECT_TRUE(r.err.contains(QLatin1String(d.says), Qt::CaseInsensitive)) << r.err.toStdString();
        EXPECT_NE(tool({ QStringLiteral("convert"), path("Cut"), QStringLiteral("--to"),
                         QStringLiteral("gz") })
                          .code,
                  0);
        EXPECT_FALSE(QFile::exists(path("Cut.gz")));
    }

    const struct
    {
        QStringList arguments;
        int code;
    } usage[] = {
        { { QStringLiteral("check"), path("Missing") }, 1 },
        { { QStringLiteral("info"), m_dir.path() }, 1 },
        { {}, 2 },
        { { QStringLiteral("frobnicate"), m_file }, 2 },
        { { QStringLiteral("diff"), m_file }, 2 },
        { { QStringLiteral("dump"), m_file, QStringLiteral("--format"), QStringLiteral("xml") }, 2 },
        { { QStringLiteral("dump"), m_file, QStringLiteral("--columns"), QStringLiteral("nope") }, 2 },
        { { QStringLiteral("dump"), m_file, QStringLiteral("--limit"), QStringLiteral("-1") }, 2 },
        { { QStringLiteral("convert"), m_file }, 2 },
        { { QStringLiteral("info"), m_file, QStringLiteral("--bogus") }, 2 },
    };
    for (const auto &u : usage) {
        const Result r = tool(u.arguments);
        EXPECT_EQ(r.code, u.code) << u.arguments.join(QLatin1Char(' ')).toStdString();
        EXPECT_FALSE(r.err.isEmpty());
    }
}
