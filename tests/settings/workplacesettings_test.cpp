#include "settings/settings.h"
#include "settingstestenv.h"

class WorkplaceSettingsTest : public SettingsTestBase
{
protected:
    void SetUp() override
    {
        SettingsTestBase::SetUp();
        // The loaded workplace is process-wide; start every test with none.
        WorkplaceSettings reset{QString()};
    }

    void writeWorkplace(const QString &name, const QByteArray &json)
    {
        writeFile(WorkplaceSettings::fileInfoByName(name, true).filePath(), json);
    }
};

TEST_F(WorkplaceSettingsTest, EmptyNameGivesAnEmptyWorkplace)
{
    writeWorkplace("w1", R"({"k": "v"})");
    {
        WorkplaceSettings w("w1");
        EXPECT_EQ(w.value("k"), QVariant(QStringLiteral("v")));
    }
    WorkplaceSettings none{QString()};
    EXPECT_TRUE(none.allKeys().isEmpty());
    EXPECT_EQ(none.status(), QSettings::NoError);
}

TEST_F(WorkplaceSettingsTest, EditsGoToTheSharedMapOnDestructionNotToDisk)
{
    writeWorkplace("w1", R"({"k": "v", "g": {"x": "1"}})");
    const QByteArray onDisk = readFile(WorkplaceSettings::fileInfoByName("w1", true).filePath());
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
    WorkplaceSettings after("w1");
    EXPECT_EQ(after.value("k"), QVariant(QStringLiteral("edited")));
    EXPECT_EQ(after.value("g/y"), QVariant(2));
    EXPECT_EQ(readFile(WorkplaceSettings::fileInfoByName("w1", true).filePath()), onDisk);
}

TEST_F(WorkplaceSettingsTest, AnotherNameReloadsFromDisk)
{
    writeWorkplace("w1", R"({"k": "one"})");
    writeWorkplace("w2", R"({"k": "two"})");
    {
        WorkplaceSettings w("w1");
        w.setValue("k", QStringLiteral("unsaved"));
    }
    EXPECT_EQ(WorkplaceSettings("w2").value("k"), QVariant(QStringLiteral("two")));
    EXPECT_EQ(WorkplaceSettings("w1").value("k"), QVariant(QStringLiteral("one")));
}

TEST_F(WorkplaceSettingsTest, CopiesAreIndependentWorkingCopies)
{
    writeWorkplace("w1", R"({"k": "v"})");
    auto *original = new WorkplaceSettings("w1");
    WorkplaceSettings copy(*original);
    EXPECT_EQ(copy.value("k"), QVariant(QStringLiteral("v")));
    copy.setValue("k", QStringLiteral("copy"));
    EXPECT_EQ(original->value("k"), QVariant(QStringLiteral("v")));
    EXPECT_NE(copy.getQSettings(), original->getQSettings());

    WorkplaceSettings assigned{QString()};
    assigned = copy;
    EXPECT_EQ(assigned.value("k"), QVariant(QStringLiteral("copy")));
    delete original; // the copies keep working after their source is gone
    EXPECT_EQ(copy.value("k"), QVariant(QStringLiteral("copy")));
    assigned.setValue("k", QStringLiteral("assigned"));
    EXPECT_EQ(copy.value("k"), QVariant(QStringLiteral("copy")));
}

TEST_F(WorkplaceSettingsTest, ListingAndFileNames)
{
    writeWorkplace("b", "{}");
    writeWorkplace("a", "{}");
    writeFile(WorkplaceSettings::customDir().filePath("notes.txt"), "x");
    const auto list = WorkplaceSettings::workplaces(true);
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0].first, QStringLiteral("a"));
    EXPECT_EQ(list[1].first, QStringLiteral("b"));
    EXPECT_EQ(list[1].second.absoluteFilePath(),
              WorkplaceSettings::fileInfoByName("b", true).absoluteFilePath());
    EXPECT_EQ(WorkplaceSettings::fileInfoByName("x", true).filePath(),
              WorkplaceSettings::customDir().absolutePath() + QDir::separator() + "x.json");
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
    EXPECT_EQ(wp.second.filePath(), WorkplaceSettings::fileInfoByName("renamed", true).filePath());
    EXPECT_TRUE(wp.second.exists());
    EXPECT_FALSE(WorkplaceSettings::fileInfoByName("new", true).exists());

    writeWorkplace("taken", R"({"keep": "me"})");
    EXPECT_FALSE(WorkplaceSettings::rename(wp, "taken"));
    EXPECT_EQ(wp.first, QStringLiteral("renamed"));
    EXPECT_EQ(readFile(WorkplaceSettings::fileInfoByName("taken", true).filePath()),
              QByteArray(R"({"keep": "me"})"));
}
