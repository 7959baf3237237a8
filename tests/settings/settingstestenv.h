#ifndef TABLEDB_TESTS_SETTINGS_SETTINGSTESTENV_H
#define TABLEDB_TESTS_SETTINGS_SETTINGSTESTENV_H

#include "support/files.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

// HOME is a fresh temporary directory and Qt's test mode is on, so the data
// location is never the real one; what the tests make beside the test
// program (".installed", "user", "user_defaults", "user_distrib") goes after
// each test.
class SettingsTestBase : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_home.isValid());
        m_oldHome = qgetenv("HOME");
        qputenv("HOME", QFile::encodeName(m_home.path()));
        QStandardPaths::setTestModeEnabled(true);
        cleanAppDir();
    }
    void TearDown() override
    {
        cleanAppDir();
        qputenv("HOME", m_oldHome);
    }
    static QString appDir() { return QCoreApplication::applicationDirPath(); }
    QString homePath() const { return m_home.path(); }

    // Asserts, for the many fixtures that write files in passing.
    static void writeFile(const QString &path, const QByteArray &content)
    {
        ASSERT_TRUE(::writeFile(path, content)) << qPrintable(path);
    }
    static QJsonObject readJson(const QString &path)
    {
        const QJsonDocument doc = QJsonDocument::fromJson(readFile(path));
        EXPECT_TRUE(doc.isObject()) << qPrintable(path);
        return doc.object();
    }

    // QSettings keeps a file's keys cached after writing it; a copy under a
    // new name makes the next QSettings really parse what is on disk.
    QString freshCopy(const QString &path)
    {
        const QString copy = QStringLiteral("%1/copy%2.json").arg(m_home.path()).arg(++m_copies);
        EXPECT_TRUE(QFile::copy(path, copy));
        return copy;
    }
    static void cleanAppDir()
    {
        QFile::remove(appDir() + QStringLiteral("/.installed"));
        for (const char *name : {"user", "user_defaults", "user_distrib"})
            QDir(appDir() + QLatin1Char('/') + QLatin1String(name)).removeRecursively();
    }

private:
    QTemporaryDir m_home;
    QByteArray m_oldHome;
    int m_copies = 0;
};

// Collects the messages of the "QGuiLog" category while alive.
class GuiLogCapture
{
public:
    GuiLogCapture() { s_messages.clear(); m_previous = qInstallMessageHandler(handler); }
    ~GuiLogCapture() { qInstallMessageHandler(m_previous); }
    QStringList messages() const { return s_messages; }

private:
    static void handler(QtMsgType, const QMessageLogContext &context, const QString &message)
    {
        if (context.category && QByteArray(context.category) == "QGuiLog")
            s_messages.append(message);
    }
    static inline QStringList s_messages;
    QtMessageHandler m_previous;
};

#endif // TABLEDB_TESTS_SETTINGS_SETTINGSTESTENV_H
