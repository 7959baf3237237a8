#include "runtime/logfile.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class LogFileTest : public ::testing::Test
{
protected:
    QString path(const QString &name) const { return m_dir.path() + QLatin1Char('/') + name; }

    QString contents(const QString &name) const
    {
        QFile file(path(name));
        if (!file.open(QIODevice::ReadOnly))
            return QStringLiteral("<missing>");
        return QString::fromUtf8(file.readAll());
    }

    // One start of the program: open the log, write one line, close it.
    void start(const QString &name, int n)
    {
        LogFile log(path(name));
        log << "start " << n << '\n';
    }

    QStringList files() const { return QDir(m_dir.path()).entryList(QDir::Files, QDir::Name); }

    QTemporaryDir m_dir;
};

// Exposes the protected naming rule.
class NamingLog : public LogFile
{
public:
    using LogFile::rotateName;
};

} // namespace

TEST_F(LogFileTest, SevenStartsKeepTheCurrentLogAndFiveOlderOnes)
{
    ASSERT_TRUE(m_dir.isValid());
    start(QStringLiteral("app.log"), 1);
    EXPECT_EQ(files(), QStringList{QStringLiteral("app.log")});
    EXPECT_EQ(contents(QStringLiteral("app.log")), QStringLiteral("start 1\n"));

    start(QStringLiteral("app.log"), 2);
    EXPECT_EQ(contents(QStringLiteral("app.log")), QStringLiteral("start 2\n"));
    EXPECT_EQ(contents(QStringLiteral("app.1.log")), QStringLiteral("start 1\n"));

    for (int n = 3; n <= 7; ++n)
        start(QStringLiteral("app.log"), n);
    EXPECT_EQ(files().size(), 6);
    EXPECT_EQ(contents(QStringLiteral("app.log")), QStringLiteral("start 7\n"));
    for (int i = 1; i <= 5; ++i)
        EXPECT_EQ(contents(QStringLiteral("app.%1.log").arg(i)), QStringLiteral("start %1\n").arg(7 - i));
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("app.6.log"))));
}

TEST_F(LogFileTest, GapsAreSkippedAndBlockedNamesKeepTheirFiles)
{
    for (int n = 1; n <= 4; ++n)
        start(QStringLiteral("app.log"), n);
    ASSERT_TRUE(QFile::remove(path(QStringLiteral("app.2.log"))));
    start(QStringLiteral("app.log"), 5);
    EXPECT_EQ(contents(QStringLiteral("app.1.log")), QStringLiteral("start 4\n"));
    EXPECT_EQ(contents(QStringLiteral("app.2.log")), QStringLiteral("start 3\n"));
    EXPECT_EQ(contents(QStringLiteral("app.3.log")), QStringLiteral("<missing>"));
    EXPECT_EQ(contents(QStringLiteral("app.4.log")), QStringLiteral("start 1\n"));

    // A directory where the oldest file should go cannot be removed or
    // replaced: every rename fails and the current log is appended to.
    ASSERT_TRUE(QDir(m_dir.path()).mkpath(QStringLiteral("other.5.log/x")));
    start(QStringLiteral("other.log"), 1);
    for (int i = 1; i <= 4; ++i)
        ASSERT_TRUE(QFile::copy(path(QStringLiteral("other.log")), path(QStringLiteral("other.%1.log").arg(i))));
    start(QStringLiteral("other.log"), 2);
    EXPECT_EQ(contents(QStringLiteral("other.log")), QStringLiteral("start 1\nstart 2\n"));
    EXPECT_EQ(contents(QStringLiteral("other.1.log")), QStringLiteral("start 1\n"));
}

TEST_F(LogFileTest, RotatedNamesAndTimestampFormat)
{
    EXPECT_EQ(NamingLog::rotateName(QFileInfo(QStringLiteral("logs/app.log")), 1),
              QStringLiteral("logs/app.1.log"));
    EXPECT_EQ(NamingLog::rotateName(QFileInfo(QStringLiteral("logs/app.tar.gz")), 3),
              QStringLiteral("logs/app.tar.3.gz"));
    EXPECT_EQ(NamingLog::rotateName(QFileInfo(QStringLiteral("logs/app")), 2),
              QStringLiteral("logs/app.2."));

    start(QStringLiteral("app"), 1);
    start(QStringLiteral("app"), 2);
    EXPECT_EQ(contents(QStringLiteral("app.1.")), QStringLiteral("start 1\n"));

    EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d$"))
                        .match(LogFile::timestamp())
                        .hasMatch())
            << LogFile::timestamp().toStdString();

    // A log that cannot be opened swallows writes without complaint.
    LogFile nowhere(path(QStringLiteral("no/such/dir/app.log")));
    nowhere << "lost" << Qt::endl;
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("no/such/dir/app.log"))));
}
