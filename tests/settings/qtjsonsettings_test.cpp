#include "settings/settings.h"
#include "settingstestenv.h"

#include <QBuffer>
#include <QDataStream>
#include <QDate>
#include <QJsonArray>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QTextCodec>

namespace {

QTextCodec *utf8() { return QTextCodec::codecForName("utf-8"); }

// The text, or a QStringList when the bytes make a list.
QVariant unescaped(const QByteArray &bytes, QTextCodec *codec = utf8())
{
    QString text;
    QStringList list;
    return QtJsonSettings::unescapedStringList(bytes, 0, bytes.size(), text, list, codec) ? QVariant(list)
                                                                                          : QVariant(text);
}

QSettings::SettingsMap readBytes(const QByteArray &bytes, bool *ok = nullptr)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QSettings::SettingsMap map;
    const bool result = QtJsonSettings::readJsonFile(buffer, map);
    if (ok)
        *ok = result;
    return map;
}

QByteArray writeMap(const QSettings::SettingsMap &map)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(QtJsonSettings::writeJsonFile(buffer, map));
    return buffer.data();
}

} // namespace

TEST(JsonEscaping, KnownFormsAndRoundTrip)
{
    const struct
    {
        QString text;
        QByteArray bytes;
    } cases[] = {
        {QStringLiteral("plain"), "plain"},
        {QStringLiteral("a,b"), "\"a,b\""}, {QStringLiteral("k=v;"), "\"k=v;\""},
        {QStringLiteral(" lead"), "\" lead\""}, {QStringLiteral("trail "), "\"trail \""},
        {QStringLiteral("tab\there\nnl\r"), "tab\\there\\nnl\\r"}, {QStringLiteral("q\"b\\"), "q\\\"b\\\\"},
        // A hex escape swallows following hex digits, so those are escaped too.
        {QLatin1String("a") + QChar(0) + QLatin1String("1b"), "a\\0\\x31\\x62"},
        {QChar(1) + QLatin1String("f g"), "\\x1\\x66 g"},
        {QStringLiteral("Цена"), "\xD0\xA6\xD0\xB5\xD0\xBD\xD0\xB0"},
        {QString::fromUcs4(U"\U0001F600x"), "\xF0\x9F\x98\x80x"},
        // Halves of a pair on their own, which UTF-8 cannot carry.
        {QString(QChar(0xD83D)) + QChar(0xD83D) + QChar(0xDE00) + QLatin1String("a") + QChar(0xDE00),
         "\\xd83d\xF0\x9F\x98\x80" "a\\xde00"},
        {QString(), ""},
    };
    for (const auto &c : cases) {
        QByteArray bytes("abc"); // appended to, never replaced
        QtJsonSettings::escapedString(c.text, bytes, utf8());
        EXPECT_EQ(bytes, "abc" + c.bytes) << qPrintable(c.text);
        const QVariant back = unescaped(c.bytes);
        EXPECT_EQ(back.userType(), QMetaType::QString) << c.bytes.constData();
        EXPECT_EQ(back, QVariant(c.text)) << c.bytes.constData();
    }
    // Without a codec everything past ASCII, and what follows it, is hex.
    QByteArray bytes;
    QtJsonSettings::escapedString(QStringLiteral("\u00e9a"), bytes, nullptr);
    EXPECT_EQ(bytes, QByteArray("\\xe9\\x61"));
    EXPECT_EQ(unescaped(bytes, nullptr), QVariant(QStringLiteral("\u00e9a")));
}

TEST(JsonUnescaping, ScannerRulesAndLists)
{
    const struct
    {
        QByteArray bytes;
        QVariant expected;
    } cases[] = {
        {"  x y \t", QStringLiteral("x y")},          // outer blanks trimmed
        {"\" x \"", QStringLiteral(" x ")},           // kept inside quotes
        {"\\x41\\102\\x", QStringLiteral("AB")},      // hex, octal, bare \x
        {"a\\\r\nb\\\nc", QStringLiteral("abc")},     // line continuations
        {"a\\qb\\", QStringLiteral("ab")},            // unknown escape, trailing backslash
        {"\\?\\'\\a", QStringLiteral("?'\a")},
        {"a\\t\\x20 \t, b\\t", QStringList{"a\t ", "b\t"}}, // escaped blanks are kept
        {"a, b ,c", QStringList{"a", "b", "c"}},
        {"\"a, b\", \" c\"", QStringList{"a, b", " c"}},
    };
    for (const auto &c : cases) {
        const QVariant got = unescaped(c.bytes);
        EXPECT_EQ(got.userType(), c.expected.userType()) << c.bytes.constData();
        EXPECT_EQ(got, c.expected) << c.bytes.constData();
    }

    // Only the given range is read, and the list is replaced.
    QString text;
    QStringList list{"stale"};
    EXPECT_TRUE(QtJsonSettings::unescapedStringList("xx,a,b,yy", 3, 6, text, list, utf8()));
    EXPECT_EQ(list, (QStringList{"a", "b"}));
}

TEST(JsonValueText, EncodesAndDecodesEveryKind)
{
    const QByteArray binary("\x00\x01\x1f\x7f\x80\xff)(", 8);
    const struct
    {
        QVariant value;
        QString text;
    } cases[] = {
        {QVariant(), QStringLiteral("@Invalid()")},
        {QStringLiteral("@foo"), QStringLiteral("@@foo")},
        {QStringLiteral("@Rect(1 2 3 4)"), QStringLiteral("@@Rect(1 2 3 4)")},
        {QRect(1, 2, 3, 4), QStringLiteral("@Rect(1 2 3 4)")},
        {QSize(5, 6), QStringLiteral("@Size(5 6)")},
        {QPoint(-7, 8), QStringLiteral("@Point(-7 8)")},
        {QByteArray("ab"), QStringLiteral("@ByteArray(ab)")},
        {binary, "@ByteArray(" + QString::fromLatin1(binary.constData(), binary.size()) + ")"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(QtJsonSettings::variantToString(c.value), c.text);
        EXPECT_EQ(QtJsonSettings::stringToVariant(c.text), c.value) << qPrintable(c.text);
    }
    EXPECT_EQ(QtJsonSettings::variantToString(42), QStringLiteral("42"));
    EXPECT_EQ(QtJsonSettings::variantToString(true), QStringLiteral("true"));
    EXPECT_EQ(QtJsonSettings::stringToVariant(QStringLiteral("42")), QVariant(QStringLiteral("42")));

    // Other types travel as a QDataStream of version 7 (Qt 4.0).
    const QVariant date(QDate(2024, 2, 29));
    QByteArray stream;
    QDataStream s(&stream, QIODevice::WriteOnly);
    s.setVersion(QDataStream::Qt_4_0);
    s << date;
    const QString text = QtJsonSettings::variantToString(date);
    EXPECT_EQ(text, "@Variant(" + QString::fromLatin1(stream.constData(), stream.size()) + ")");
    EXPECT_EQ(QtJsonSettings::stringToVariant(text), date);
    const QVariant nested(QVariantList{
        QVariantMap{{"d", QDate(2000, 1, 2)}, {"l", QStringList{"a", QString()}}}, QVariant(), QChar('x'),
        QTime(12, 30), QVariantHash{{"h", QVariantList{1, 2.5, QByteArray("\0\1", 2)}}},
        QDateTime(QDate(2020, 5, 6), QTime(7, 8, 9), Qt::UTC)});
    EXPECT_EQ(QtJsonSettings::stringToVariant(QtJsonSettings::variantToString(nested)), nested);

    // A list decodes its items only when one of them is encoded.
    EXPECT_EQ(QtJsonSettings::stringListToVariantList({"a", "@@b"}), QVariant(QStringList{"a", "@b"}));
    const QVariant mixed = QtJsonSettings::stringListToVariantList({"a", "@Point(1 2)", "@@c"});
    ASSERT_EQ(mixed.userType(), QMetaType::QVariantList);
    EXPECT_EQ(mixed.toList(), (QVariantList{QStringLiteral("a"), QPoint(1, 2), QStringLiteral("@c")}));

    EXPECT_EQ(QtJsonSettings::splitArgs(QStringLiteral("@Rect(1 -2 30 4)"), 5),
              (QStringList{"1", "-2", "30", "4"}));
    // A stray parenthesis is only warned about.
    EXPECT_EQ(QtJsonSettings::splitArgs(QStringLiteral("@Size(1)2)"), 5), (QStringList{"1", "2"}));
    EXPECT_EQ(QtJsonSettings::splitArgs(QString(), 5), QStringList());
}

// Damaged streams must neither crash nor allocate what their counts claim.
TEST(JsonValueText, UnknownOrDamagedFormsStayPlainText)
{
    const QStringList texts{
        "@Foo(1)", "@Rect(1 2 3)", "@Size(1)", "@Point", "@Invalid(x)", "@ByteArray(open",
        "@Variant()", "@Variant(\x01\x02)",
        // A list type whose element count claims far more than is there.
        QStringLiteral("@Variant(") + QString::fromLatin1("\x00\x00\x00\x09\x7f\xff\xff\xff)", 9),
        // The same inside a map.
        QStringLiteral("@Variant(")
            + QString::fromLatin1("\x00\x00\x00\x08\x00\x00\x00\x01\x00\x00\x00\x02\x00k"
                                  "\x00\x00\x00\x0b\xff\xff\xff\xf0)",
                                  27),
        // And inside a variant that holds a variant.
        QStringLiteral("@Variant(") + QString::fromLatin1("\x00\x00\x00\x29\x00\x00\x00\x09\x7f\xff\xff\xff)", 13),
        // An xdecimal whose type word claims more digits than its 16 bytes hold.
        QStringLiteral("@Variant(")
            + QString::fromLatin1("\x00\x00\x00\x7f\x00\x00\x00\x09xdecimal\x00\x10\x40", 19)
            + QString(14, QChar(0)) + QLatin1Char(')')};
    for (const QString &t : texts) {
        const QVariant v = QtJsonSettings::stringToVariant(t);
        EXPECT_EQ(v.userType(), QMetaType::QString) << qPrintable(t);
        EXPECT_EQ(v.toString(), t);
    }
}

TEST(JsonTree, ArraysCountFromOneAndMapsKeepTheirMark)
{
    EXPECT_FALSE(QtJsonSettings::arrayFromSize({{"1", 1}, {"2", 2}}, "size", 2).isValid());
    EXPECT_EQ(QtJsonSettings::arrayFromSize({{"2", 2}}, "size", 2), QVariant(QVariantList{QVariant(), 2}));
    EXPECT_EQ(QtJsonSettings::arrayFromSize({}, "size", QByteArray("1")), QVariant(QVariantList{QVariant()}));
    EXPECT_FALSE(QtJsonSettings::arrayFromSize({}, "Size", 1).isValid());
    EXPECT_FALSE(QtJsonSettings::arrayFromSize({}, "size", "x").isValid());
    EXPECT_FALSE(QtJsonSettings::arrayFromSize({}, "size", 2000000000).isValid());

    QVariant root;
    root = QtJsonSettings::insertPath(root, "a/b/c", 1);
    root = QtJsonSettings::insertPath(root, "a/m", QVariantMap{{"k", 2}});
    root = QtJsonSettings::insertPath(root, "top", 3);
    const QVariantMap expected{
        {"a", QVariantMap{{"b", QVariantMap{{"c", 1}}}, {"@Map_m", QVariantMap{{"k", 2}}}}}, {"top", 3}};
    EXPECT_EQ(root.toMap(), expected);
    QString path;
    QSettings::SettingsMap flat;
    QtJsonSettings::flatten(path, flat, root);
    EXPECT_TRUE(path.isEmpty());
    EXPECT_EQ(flat, (QSettings::SettingsMap{{"a/b/c", 1}, {"a/m", QVariantMap{{"k", 2}}}, {"top", 3}}));
}

TEST(JsonRead, HandWrittenShapes)
{
    bool ok = false;
    // A leading byte order mark is skipped.
    const QSettings::SettingsMap map = readBytes("\xEF\xBB\xBF" R"J({
        "n": 42, "f": 1.5, "b": true, "z": null, "s": "@@x", "r": "@Rect(1 2 3 4)",
        "list": [1, "a"], "strings": ["@Rect(1 2 3 4)", "x"],
        "rows": [{"a": "1"}, {"a": "2", "sub": {"k": "v"}}],
        "g": {"h": {"i": "deep"}, "@Map_m": {"k": 1}}, "l": "a, b"})J", &ok);
    ASSERT_TRUE(ok);
    EXPECT_EQ(map.value("n").toInt(), 42);
    EXPECT_NE(map.value("n").userType(), QMetaType::QString);
    EXPECT_EQ(map.value("f").toDouble(), 1.5);
    EXPECT_EQ(map.value("b"), QVariant(true));
    EXPECT_TRUE(map.contains("z"));
    EXPECT_EQ(map.value("s"), QVariant(QStringLiteral("@x")));
    EXPECT_EQ(map.value("r"), QVariant(QRect(1, 2, 3, 4)));
    // Plain arrays are one value, their items taken as they stand.
    EXPECT_EQ(map.value("list").toList(), (QVariantList{1.0, QStringLiteral("a")}));
    EXPECT_EQ(map.value("strings").toList().first(), QVariant(QStringLiteral("@Rect(1 2 3 4)")));
    EXPECT_EQ(map.value("rows/size"), QVariant(2));
    EXPECT_EQ(map.value("rows/1/a"), QVariant(QStringLiteral("1")));
    EXPECT_EQ(map.value("rows/2/sub/k"), QVariant(QStringLiteral("v")));
    EXPECT_EQ(map.value("g/h/i"), QVariant(QStringLiteral("deep")));
    EXPECT_EQ(map.value("g/m"), QVariant(QVariantMap{{"k", 1.0}}));
    EXPECT_EQ(map.value("l"), QVariant(QStringList{"a", "b"}));

    // A document that is no object gives no keys but is no error.
    EXPECT_TRUE(readBytes("[1, 2]", &ok).isEmpty());
    EXPECT_TRUE(ok);
    const int depth = 500;
    QByteArray deep;
    for (int i = 0; i < depth; ++i)
        deep += "{\"k\":";
    const QSettings::SettingsMap deepMap = readBytes(deep + "\"leaf\"" + QByteArray(depth, '}'), &ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(deepMap.size(), 1);
    EXPECT_EQ(deepMap.first(), QVariant(QStringLiteral("leaf")));
    EXPECT_EQ(deepMap.firstKey().count(QLatin1Char('/')), depth - 1);
}

TEST(JsonRead, BrokenInputIsLoggedAndGivesNothing)
{
    for (const QByteArray &bytes : {QByteArray(), QByteArray("{\"a\": "), QByteArray("\xEF\xBB\xBF")}) {
        GuiLogCapture log;
        bool ok = true;
        EXPECT_TRUE(readBytes(bytes, &ok).isEmpty());
        EXPECT_FALSE(ok);
        ASSERT_EQ(log.messages().size(), 1);
        EXPECT_TRUE(log.messages().first().startsWith(
            QStringLiteral("Ошибка при чтении настроек JSON:\n QBuffer \n ")))
            << qPrintable(log.messages().first());
    }
}

TEST(JsonWrite, PassThroughAndEncodedValues)
{
    const QSettings::SettingsMap map{
        {"", 1}, {"list", QStringList{"@x", "y"}}, {"null", QString()}, {"i", 7}, {"s", QStringLiteral("a, b")}};
    const QJsonObject o = QJsonDocument::fromJson(writeMap(map)).object();
    EXPECT_EQ(o.size(), 4); // the empty key is skipped
    EXPECT_EQ(o.value("list").toArray(), QJsonArray({"@x", "y"}));
    EXPECT_EQ(o.value("i"), QJsonValue("7"));
    EXPECT_EQ(o.value("s"), QJsonValue("\"a, b\""));
    EXPECT_EQ(readBytes(writeMap(map)).value("s"), QVariant(QStringLiteral("a, b")));
}

using JsonFileTest = SettingsTestBase;

// The text forms are checked above; this is the whole path through QSettings
// for values whose size or bytes are out of the ordinary.
TEST_F(JsonFileTest, EveryValueKindSurvivesTheFile)
{
    const QString path = homePath() + "/kinds.json";
    QByteArray binary;
    for (int i = 0; i < 256; ++i)
        binary += char(i);
    const QList<QPair<QString, QVariant>> values{
        {"g/at", QStringLiteral("@foo")},
        {"g/spaces", QStringLiteral("  both  ")},
        {"g/empty", QString(QLatin1String(""))},
        {"g/binary", binary},
        {"g/wideRect", QRect(QPoint(-2147483647, -5), QPoint(2147483647, 5))},
        {"g/mark", QStringLiteral("\uFEFF\uFEFFmarked")},
        {"g/date", QDate(2023, 12, 31)},
        {"g/invalid", QVariant()},
        {"g/map", QVariantMap{{"k", QStringLiteral("v")}, {"n", QVariantMap{{"x", QStringLiteral("y")}}}}},
        {"g/sub/deeper/leaf", QStringLiteral("Ёлка 🎄")},
        {"big", QString(200000, QLatin1Char('x')) + QStringLiteral("Ж, \"end\"")},
    };
    {
        QSettings s(path, QtJsonSettings::jsonFormat());
        for (const auto &kv : values)
            s.setValue(kv.first, kv.second);
        s.setValue("n/int", 42);
        s.setValue("n/double", 0.1);
        s.setValue("n/bool", true);
        s.setValue("n/list", QStringList{"a", "@b", QStringLiteral("\uFEFFc")});
        s.sync();
        EXPECT_EQ(s.status(), QSettings::NoError);
    }
    const QJsonObject root = readJson(path);
    const QJsonObject g = root.value("g").toObject();
    EXPECT_EQ(g.value("at"), QJsonValue("@@foo"));
    EXPECT_TRUE(g.value("@Map_map").isObject());
    EXPECT_FALSE(g.contains("map"));
    EXPECT_EQ(g.value("sub").toObject().value("deeper").toObject().value("leaf"),
              QJsonValue(QStringLiteral("Ёлка 🎄")));
    EXPECT_EQ(root.value("n").toObject().value("int"), QJsonValue("42"));
    EXPECT_TRUE(root.value("n").toObject().value("list").isArray());

    QSettings s(freshCopy(path), QtJsonSettings::jsonFormat());
    EXPECT_EQ(s.status(), QSettings::NoError);
    for (const auto &kv : values)
        EXPECT_EQ(s.value(kv.first), kv.second) << qPrintable(kv.first);
    EXPECT_EQ(s.value("n/int").toInt(), 42);
    EXPECT_EQ(s.value("n/double").toDouble(), 0.1);
    EXPECT_TRUE(s.value("n/bool").toBool());
    EXPECT_EQ(s.value("n/list").toList(), (QVariantList{"a", "@b", QStringLiteral("\uFEFFc")}));
}

TEST_F(JsonFileTest, WrittenArraysStayObjectsWithSize)
{
    const QString path = homePath() + "/array.json";
    {
        QSettings s(path, QtJsonSettings::jsonFormat());
        s.beginWriteArray("rows");
        for (int i = 0; i < 2; ++i) {
            s.setArrayIndex(i);
            s.setValue("name", QStringLiteral("r%1").arg(i));
        }
        s.endArray();
    }
    const QJsonObject rows = readJson(path).value("rows").toObject();
    EXPECT_EQ(rows.keys(), (QStringList{"1", "2", "size"}));
    EXPECT_EQ(rows.value("2").toObject().value("name"), QJsonValue("r1"));

    // The same rows written by hand as an array of objects read alike.
    const QString handPath = homePath() + "/hand.json";
    writeFile(handPath, R"({"rows": [{"name": "r0"}, {"name": "r1"}]})");
    for (const QString &p : {freshCopy(path), handPath}) {
        QSettings s(p, QtJsonSettings::jsonFormat());
        ASSERT_EQ(s.beginReadArray("rows"), 2) << qPrintable(p);
        s.setArrayIndex(1);
        EXPECT_EQ(s.value("name"), QVariant(QStringLiteral("r1")));
    }
}
