#include "runtime/logfile.h"

#include <QDir>
#include <QFileInfo>
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
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QStringLiteral("<missing>");
    }
    // One start of the program: open the log, write one line, close it.
    void start(const QString &name, int n) { LogFile(path(name)) << "start " << n << '\n'; }
    static QString line(int n) { return QStringLiteral("start %1\n").arg(n); }
    static QString rotated(const char *stem, int i) { return QStringLiteral("%1.%2.log").arg(QLatin1String(stem)).arg(i); }

    QTemporaryDir m_dir;
};

struct NamingLog : LogFile
{
    using LogFile::rotateName;
};

} // namespace

TEST_F(LogFileTest, SevenStartsKeepTheCurrentLogAndFiveOlderOnes)
{
    ASSERT_TRUE(m_dir.isValid());
    for (int n = 1; n <= 7; ++n) {
        start("app.log", n);
        EXPECT_EQ(contents("app.log"), line(n));
        for (int i = 1; i <= 5; ++i)
            EXPECT_EQ(contents(rotated("app", i)), i < n ? line(n - i) : QStringLiteral("<missing>")) << n;
    }
    EXPECT_EQ(QDir(m_dir.path()).entryList(QDir::Files).size(), 6);
}

TEST_F(LogFileTest, GapsAreSkippedAndBlockedNamesKeepTheirFiles)
{
    for (int n = 1; n <= 4; ++n)
        start("app.log", n);
    ASSERT_TRUE(QFile::remove(path(rotated("app", 2))));
    start("app.log", 5);
    EXPECT_EQ(contents(rotated("app", 1)), line(4));
    EXPECT_EQ(contents(rotated("app", 2)), line(3));
    EXPECT_EQ(contents(rotated("app", 3)), QStringLiteral("<missing>"));
    EXPECT_EQ(contents(rotated("app", 4)), line(1));

    // A directory where the oldest file should go cannot be removed or
    // replaced: every rename fails and the current log is appended to.
    ASSERT_TRUE(QDir(m_dir.path()).mkpath(QStringLiteral("other.5.log/x")));
    start("other.log", 1);
    for (int i = 1; i <= 4; ++i)
        ASSERT_TRUE(QFile::copy(path("other.log"), path(rotated("other", i))));
    start("other.log", 2);
    EXPECT_EQ(contents("other.log"), line(1) + line(2));
    EXPECT_EQ(contents(rotated("other", 1)), line(1));
}

// The time column's format is checked with the datetime formats.
TEST_F(LogFileTest, RotatedNamesAndUnopenableLog)
{
    EXPECT_EQ(NamingLog::rotateName(QFileInfo("logs/app.log"), 1), QStringLiteral("logs/app.1.log"));
    EXPECT_EQ(NamingLog::rotateName(QFileInfo("logs/app.tar.gz"), 3), QStringLiteral("logs/app.tar.3.gz"));
    // Without a suffix the name keeps a trailing point.
    start("app", 1);
    start("app", 2);
    EXPECT_EQ(contents("app.1."), line(1));

    // A log that cannot be opened swallows writes without complaint.
    LogFile nowhere(path("no/such/dir/app.log"));
    nowhere << "lost" << Qt::endl;
    EXPECT_FALSE(QFile::exists(path("no/such/dir/app.log")));
}
