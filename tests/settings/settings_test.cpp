#include "settings/settings.h"
#include "settingstestenv.h"

#include <QPointer>

using SettingsTest = SettingsTestBase;

TEST_F(SettingsTest, PortableAndInstalledLocations)
{
    const QString app = appDir();
    EXPECT_TRUE(Settings::isPortable());
    EXPECT_EQ(AppSettings::customPath().filePath(), app + "/user/settings/settings.json");
    EXPECT_EQ(DefaultSettings::customPath().filePath(), app + "/user/settings/default.json");
    EXPECT_EQ(AppSettings::appPath().filePath(), app + "/user_defaults/settings.json");
    EXPECT_EQ(DefaultSettings::appPath().filePath(), app + "/user_defaults/default.json");
    EXPECT_EQ(WorkplaceSettings::customDir().absolutePath(), app + "/user/workplaces");
    // User directories are made on first use, delivered ones never.
    EXPECT_TRUE(QFileInfo(app + "/user/settings").isDir());
    EXPECT_FALSE(QFileInfo::exists(app + "/user_defaults"));

    cleanAppDir();
    writeFile(app + "/.installed", QByteArray());
    EXPECT_FALSE(Settings::isPortable());
    const QString data = QStandardPaths::writableLocation(QStandardPaths::DataLocation);
    ASSERT_TRUE(data.startsWith(homePath())) << qPrintable(data);
    EXPECT_EQ(AppSettings::customPath().filePath(), data + "/settings/settings.json");
    EXPECT_EQ(WorkplaceSettings::customDir().absolutePath(), data + "/workplaces");
    EXPECT_EQ(AppSettings::appPath().filePath(), app + "/user_defaults/settings.json");
    EXPECT_FALSE(QFileInfo::exists(app + "/user"));
}

TEST_F(SettingsTest, ReadOnlyPicksTheUsersFileGroupByGroup)
{
    // Without a delivered file the user's file is read.
    const DefaultSettings missing = DefaultSettings::createReadOnly("missing");
    EXPECT_EQ(missing.getQSettings()->fileName(), DefaultSettings::customPath().filePath());
    EXPECT_TRUE(missing.allKeys().isEmpty());

    const QString appFile = AppSettings::appPath().filePath(), userFile = AppSettings::customPath().filePath();
    writeFile(appFile, R"({"A": {"k": "app A"}, "B": {"k": "app B"}})");
    writeFile(userFile, R"({"A": {"k": "user A"}})");
    const QByteArray delivered = readFile(appFile);
    AppSettings a = AppSettings::createReadOnly("A");
    EXPECT_EQ(a.value("k"), QVariant(QStringLiteral("user A")));
    AppSettings b = AppSettings::createReadOnly("B");
    EXPECT_EQ(b.group(), QStringLiteral("B"));
    EXPECT_EQ(b.value("k"), QVariant(QStringLiteral("app B")));
    EXPECT_EQ(AppSettings::createDefault("A").value("k"), QVariant(QStringLiteral("app A")));

    // Writing goes to the user's file and leaves the delivered one alone.
    {
        AppSettings w = AppSettings::createReadWrite("B");
        w.setValue("k", QStringLiteral("user B"));
    }
    EXPECT_EQ(readFile(appFile), delivered);
    EXPECT_EQ(AppSettings::createReadOnly("B").value("k"), QVariant(QStringLiteral("user B")));
}

TEST_F(SettingsTest, StatusAndMessagesOfBrokenFiles)
{
    const QString broken = homePath() + "/broken.json";
    const QByteArray text("{ \"a\": 1,, }");
    writeFile(broken, text);
    {
        GuiLogCapture log;
        Settings s(QFileInfo(broken), "g");
        EXPECT_EQ(s.status(), QSettings::FormatError);
        EXPECT_EQ(s.group(), QStringLiteral("g"));
        EXPECT_TRUE(s.allKeys().isEmpty());
        // The parser's report names the file and the offset; then the three lines.
        ASSERT_EQ(log.messages().size(), 2) << qPrintable(log.messages().join("|"));
        EXPECT_TRUE(log.messages().at(0).startsWith("Ошибка при чтении настроек JSON:\n " + broken + " \n "));
        EXPECT_TRUE(log.messages().at(0).endsWith(QStringLiteral(" в строке 10"))) << qPrintable(log.messages().at(0));
        EXPECT_EQ(log.messages().at(1),
            "Файл конфигурации не может быть загружен.\nФормат файла не соответствует заданному.\n" + broken);
        // Usable, and the unreadable file is not written over.
        s.setValue("k", 1);
        EXPECT_EQ(s.value("k"), QVariant(1));
        s.sync();
    }
    EXPECT_EQ(readFile(broken), text);

    // JSON that gives no keys is a format error too; an empty or missing
    // file is not, and is not reported.
    writeFile(homePath() + "/array.json", "[1, 2]");
    EXPECT_EQ(Settings(QFileInfo(homePath() + "/array.json"), QString()).status(), QSettings::FormatError);
    writeFile(homePath() + "/empty.json", "");
    GuiLogCapture log;
    for (const char *name : {"/empty.json", "/none.json"})
        EXPECT_EQ(Settings(QFileInfo(homePath() + name), QString()).status(), QSettings::NoError) << name;
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(SettingsTest, CopiesShareOneQSettingsAndForwardToIt)
{
    QPointer<QSettings> owned;
    {
        Settings a(QFileInfo(homePath() + "/shared.json"), QString());
        owned = a.getQSettings();
        Settings s = a;
        EXPECT_EQ(a.getQSettings(), s.getQSettings());
        s.beginWriteArray("rows", 2);
        s.setArrayIndex(1);
        s.setValue("v", QStringLiteral("second"));
        s.endArray();
        s.beginGroup("g");
        s.setValue("a", 1);
        s.setValue("sub/b", 2);
        EXPECT_EQ(a.value("a"), QVariant(1));
        EXPECT_EQ(s.childKeys(), QStringList{"a"});
        EXPECT_EQ(s.childGroups(), QStringList{"sub"});
        s.remove("a");
        EXPECT_FALSE(a.contains("a"));
        s.endGroup();
        EXPECT_EQ(a.beginReadArray("rows"), 2);
        a.setArrayIndex(1);
        EXPECT_EQ(a.value("v"), QVariant(QStringLiteral("second")));
        a.endArray();
        EXPECT_EQ(a.allKeys(), (QStringList{"g/sub/b", "rows/2/v", "rows/size"}));
    }
    EXPECT_TRUE(owned.isNull()); // the last copy deleted what it made

    QSettings external(homePath() + "/external.json", QtJsonSettings::jsonFormat());
    Settings(&external).setValue("y", 1);
    EXPECT_EQ(external.value("y"), QVariant(1)); // and left alone what it was given
}

TEST_F(SettingsTest, IsResetAndDefaultClear)
{
    EXPECT_TRUE(AppSettings::isReset());
    AppSettings::createReadWrite("g").setValue("k", 1);
    EXPECT_FALSE(AppSettings::isReset());
    ASSERT_TRUE(QDir(appDir() + "/user/settings").removeRecursively());
    EXPECT_TRUE(AppSettings::isReset());

    // clear() empties only the group it stands in.
    DefaultSettings("other").setValue("keep", 1);
    DefaultSettings d = DefaultSettings::createReadWrite("mine");
    d.setValue("a", 1);
    d.setValue("sub/b", 2);
    d.clear();
    EXPECT_EQ(d.group(), QStringLiteral("mine"));
    EXPECT_TRUE(d.allKeys().isEmpty());
    d.endGroup();
    EXPECT_EQ(d.allKeys(), QStringList{"other/keep"});
}
