#include "settings/settings.h"
#include "settingstestenv.h"

#include <memory>

namespace {

// The whole shared store, seen from its root.
QStringList storeKeys()
{
    return QSettings(QString(), QtJsonSettings::mapFormat()).allKeys();
}

} // namespace

TEST(MapSettings, ObjectsAliveTogetherDoNotSeeEachOtherAndLeaveNoKeys)
{
    MapSettings keeper; // keeps the store alive across the inner objects
    QString group;
    {
        MapSettings a, b;
        group = a.group();
        a.setValue("k", 1);
        b.setValue("k", 2);
        b.setValue("only_b", 3);
        EXPECT_EQ(a.allKeys(), QStringList{"k"});
        EXPECT_EQ(a.value("k"), QVariant(1));
        EXPECT_EQ(b.value("k"), QVariant(2));
        // Each object's group is its address.
        EXPECT_NE(a.group(), b.group());
        EXPECT_TRUE(a.group().startsWith("0x"));
        EXPECT_EQ(a.group().size(), 18);
        EXPECT_EQ(Settings(&a).status(), QSettings::NoError);
        // Destruction inside a group of the caller's still removes it all.
        a.beginGroup("inner");
        a.setValue("x", 2);
        EXPECT_TRUE(storeKeys().contains(group + "/inner/x"));
    }
    for (const QString &key : storeKeys())
        EXPECT_FALSE(key.startsWith(group)) << qPrintable(key);
}

TEST(MapSettings, CopiesAndRestoreTakeKeysFromAnySettings)
{
    MapSettings source;
    source.setValue("p/a", 1);
    source.setValue("q", QStringLiteral("x"));
    const MapSettings copy(source);
    EXPECT_EQ(copy.allKeys(), source.allKeys());
    EXPECT_EQ(copy.value("p/a"), QVariant(1));
    EXPECT_NE(copy.group(), source.group());
    const MapSettings fromHandle{Settings(&source)};
    EXPECT_EQ(fromHandle.asSetRef().value("q"), QVariant(QStringLiteral("x")));

    // Assignment replaces, from the own group whatever the caller entered.
    MapSettings assigned;
    assigned.setValue("stale", 1);
    assigned.beginGroup("deep");
    assigned = source;
    EXPECT_EQ(assigned.allKeys(), source.allKeys());
    EXPECT_FALSE(assigned.group().endsWith("deep"));
    source.setValue("q", QStringLiteral("changed"));
    EXPECT_EQ(copy.value("q"), QVariant(QStringLiteral("x")));

    // restore adds on top, and leaves the source's prefix again.
    MapSettings m;
    const QString sourceGroup = source.group();
    m.setValue("mine", 0);
    m.restore(static_cast<QSettings &>(source), "p");
    EXPECT_EQ(m.allKeys(), (QStringList{"a", "mine"}));
    EXPECT_EQ(source.group(), sourceGroup);
    m.restore(Settings(&source), "p");
    m.restore(static_cast<const QSettings &>(source));
    EXPECT_EQ(m.allKeys(), (QStringList{"a", "mine", "p/a", "q"}));
}

TEST(MapSettings, GroupsEnteredByTheCallerAreLeftByClearAndEndAllGroups)
{
    MapSettings m;
    const QString own = m.group();
    m.setValue("top", 1);
    m.beginGroup("a");
    m.setValue("x", 1);
    m.beginGroup("b");
    m.endAllGroups();
    EXPECT_EQ(m.group(), own);
    EXPECT_EQ(m.allKeys(), (QStringList{"a/x", "top"}));
    m.beginGroup("a");
    m.clear();
    EXPECT_EQ(m.group(), own);
    EXPECT_TRUE(m.allKeys().isEmpty());
}

TEST(MapSettings, StoreReplacesTheTargetAndStoreAddMerges)
{
    MapSettings from;
    from.setValue("k", 1);
    from.setValue("g", QStringLiteral("was a group in the target"));
    from.beginGroup("sub");
    from.setValue("only", 2);

    MapSettings to;
    to.setValue("p/old", 0);
    to.setValue("p/g/child", 0);
    to.setValue("outside", 0);
    // Inside a group, store copies only what that group holds.
    from.store(to, "p");
    EXPECT_EQ(to.allKeys(), (QStringList{"outside", "p/only"}));

    from.endAllGroups();
    to.setValue("p/g/child", 0);
    to.setValue("p/old", 0);
    from.storeAdd(to, "p");
    EXPECT_EQ(to.allKeys(), (QStringList{"outside", "p/g", "p/k", "p/old", "p/only", "p/sub/only"}));
    EXPECT_EQ(to.value("p/g"), QVariant(QStringLiteral("was a group in the target")));

    Settings target(&to);
    from.store(target, QString());
    EXPECT_EQ(to.allKeys(), (QStringList{"g", "k", "sub/only"}));
}

using MapSettingsFileTest = SettingsTestBase;

TEST_F(MapSettingsFileTest, FileContentRoundTripsThroughMemoryWithoutFiles)
{
    const QString path = homePath() + "/src.json";
    writeFile(path, R"({"g": {"a": "1", "list": ["x", "y"]}, "rows": [{"n": "r"}]})");
    const QStringList before = QDir::current().entryList(QDir::AllEntries | QDir::Hidden);

    auto m = std::make_unique<MapSettings>(Settings(QFileInfo(path), QString()));
    EXPECT_EQ(m->allKeys(), (QStringList{"g/a", "g/list", "rows/1/n", "rows/size"}));
    m->setValue("g/a", 2);
    m->sync();
    Settings out(QFileInfo(homePath() + "/out.json"), QString());
    m->store(out, "copy");
    out.sync();
    m.reset();

    const QJsonObject copy = readJson(homePath() + "/out.json").value("copy").toObject();
    EXPECT_EQ(copy.value("g").toObject().value("a"), QJsonValue("2"));
    EXPECT_TRUE(copy.value("rows").isObject());
    EXPECT_EQ(QDir::current().entryList(QDir::AllEntries | QDir::Hidden), before);
}
