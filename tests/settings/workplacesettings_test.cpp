#include "settings/settings.h"
#include "settingstestenv.h"

class WorkplaceSettingsTest : public SettingsTestBase
{
protected:
    void SetUp() override
    {
        SettingsTestBase::SetUp();
        WorkplaceSettings reset{QString()}; // the loaded workplace is process-wide
    }
    static QString fileOf(const QString &name)
    {
        return WorkplaceSettings::fileInfoByName(name, true).filePath();
    }
    static QVariant valueIn(const QString &name, const QString &key)
    {
        return WorkplaceSettings(name).value(key);
    }
};

TEST_F(WorkplaceSettingsTest, EditsStayInMemoryUntilAnotherNameOrAnEmptyOneIsLoaded)
{
    writeFile(fileOf("w1"), R"({"k": "v", "g": {"x": "1"}})");
    writeFile(fileOf("w2"), R"({"k": "two"})");
    const QByteArray onDisk = readFile(fileOf("w1"));
    {
        WorkplaceSettings w("w1");
        w.setValue("k", QStringLiteral("edited"));
        w.beginGroup("g");
        w.setValue("y", 2);
        // A second instance sees the shared state as it is now.
        WorkplaceSettings other("w1");
        EXPECT_EQ(other.value("k"), QVariant(QStringLiteral("v")));
        other.setValue("k", QStringLiteral("other"));
    } // w is destroyed last and wins
    EXPECT_EQ(valueIn("w1", "k"), QVariant(QStringLiteral("edited")));
    EXPECT_EQ(valueIn("w1", "g/y"), QVariant(2));
    EXPECT_EQ(readFile(fileOf("w1")), onDisk);

    // Another name drops the edits and reads from disk.
    EXPECT_EQ(valueIn("w2", "k"), QVariant(QStringLiteral("two")));
    EXPECT_EQ(valueIn("w1", "k"), QVariant(QStringLiteral("v")));
    WorkplaceSettings none{QString()};
    EXPECT_TRUE(none.allKeys().isEmpty());
    EXPECT_EQ(none.status(), QSettings::NoError);
}

TEST_F(WorkplaceSettingsTest, CopiesAreIndependentWorkingCopies)
{
    writeFile(fileOf("w1"), R"({"k": "v"})");
    auto *original = new WorkplaceSettings("w1");
    WorkplaceSettings copy(*original);
    EXPECT_EQ(copy.value("k"), QVariant(QStringLiteral("v")));
    copy.setValue("k", QStringLiteral("copy"));
    EXPECT_EQ(original->value("k"), QVariant(QStringLiteral("v")));

    WorkplaceSettings assigned{QString()};
    assigned = copy;
    EXPECT_EQ(assigned.value("k"), QVariant(QStringLiteral("copy")));
    delete original; // the copies keep working after their source is gone
    assigned.setValue("k", QStringLiteral("assigned"));
    EXPECT_EQ(copy.value("k"), QVariant(QStringLiteral("copy")));
}

TEST_F(WorkplaceSettingsTest, ListingAndFileNames)
{
    writeFile(fileOf("b"), "{}");
    writeFile(fileOf("a"), "{}");
    writeFile(WorkplaceSettings::customDir().filePath("notes.txt"), "x");
    const auto list = WorkplaceSettings::workplaces(true);
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0].first, QStringLiteral("a"));
    EXPECT_EQ(list[1].first, QStringLiteral("b"));
    EXPECT_EQ(list[1].second.absoluteFilePath(), WorkplaceSettings::customDir().absolutePath() + "/b.json");
    EXPECT_EQ(WorkplaceSettings::workplace("x", false).second.filePath(),
              appDir() + "/user_distrib/workplaces/x.json");
    EXPECT_EQ(WorkplaceSettings::fallbackName(), QStringLiteral("default"));

    // No delivered directory: nothing listed, nothing created.
    writeFile(appDir() + "/stray.json", "{}");
    EXPECT_TRUE(WorkplaceSettings::workplaces(false).isEmpty());
    QFile::remove(appDir() + "/stray.json");
    EXPECT_FALSE(QFileInfo::exists(appDir() + "/user_distrib"));
    writeFile(appDir() + "/user_distrib/workplaces/shipped.json", "{}");
    const auto shipped = WorkplaceSettings::workplaces(false);
    ASSERT_EQ(shipped.size(), 1);
    EXPECT_EQ(shipped[0].first, QStringLiteral("shipped"));
}

TEST_F(WorkplaceSettingsTest, RenameCreatesMissingFilesAndRefusesToOverwrite)
{
    auto wp = WorkplaceSettings::workplace("new", true);
    ASSERT_FALSE(wp.second.exists());
    ASSERT_TRUE(WorkplaceSettings::rename(wp, "renamed"));
    EXPECT_EQ(wp.first, QStringLiteral("renamed"));
    EXPECT_EQ(wp.second.filePath(), fileOf("renamed"));
    EXPECT_TRUE(wp.second.exists());
    EXPECT_FALSE(QFileInfo::exists(fileOf("new")));

    writeFile(fileOf("taken"), R"({"keep": "me"})");
    EXPECT_FALSE(WorkplaceSettings::rename(wp, "taken"));
    EXPECT_EQ(wp.first, QStringLiteral("renamed"));
    EXPECT_EQ(readFile(fileOf("taken")), QByteArray(R"({"keep": "me"})"));
}
