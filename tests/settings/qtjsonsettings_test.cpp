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

} // namespace

// Rows marked `written` are also what escapedString makes of the value.
TEST(JsonEscaping, WrittenFormsAndScannerRules)
{
    const struct
    {
        QVariant value;
        QByteArray bytes;
        bool written = true;
    } cases[] = {
        {QStringLiteral("plain"), "plain"},
        {QStringLiteral("a,b"), "\"a,b\""}, {QStringLiteral("k=v;"), "\"k=v;\""},
        {QStringLiteral(" lead"), "\" lead\""}, {QStringLiteral("trail "), "\"trail \""},
        {QStringLiteral("tab\there\nnl\r"), "tab\\there\\nnl\\r"}, {QStringLiteral("q\"b\\"), "q\\\"b\\\\"},
        // A hex escape swallows following hex digits, so those are escaped too.
        {QString(QLatin1String("a") + QChar(0) + QLatin1String("1b")), "a\\0\\x31\\x62"},
        {QString(QChar(1) + QLatin1String("f g")), "\\x1\\x66 g"},
        {QStringLiteral("Цена"), "\xD0\xA6\xD0\xB5\xD0\xBD\xD0\xB0"},
        {QString::fromUcs4(U"\U0001F600x"), "\xF0\x9F\x98\x80x"},
        // Halves of a pair on their own, which UTF-8 cannot carry.
        {QString(QString(QChar(0xD83D)) + QChar(0xD83D) + QChar(0xDE00) + QLatin1String("a") + QChar(0xDE00)),
         "\\xd83d\xF0\x9F\x98\x80" "a\\xde00"},
        {QString(), ""},
        {QStringLiteral("x y"), "  x y \t", false},         // outer blanks trimmed
        {QStringLiteral("AB"), "\\x41\\102\\x", false},      // hex, octal, bare \x
        {QStringLiteral("abc"), "a\\\r\nb\\\nc", false},     // line continuations
        {QStringLiteral("ab"), "a\\qb\\", false},            // unknown escape, trailing backslash
        {QStringLiteral("?'\a"), "\\?\\'\\a", false},
        {QStringList{"a\t ", "b\t"}, "a\\t\\x20 \t, b\\t", false}, // escaped blanks are kept
        {QStringList{"a", "b", "c"}, "a, b ,c", false},
        {QStringList{"a, b", " c"}, "\"a, b\", \" c\"", false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.bytes.constData());
        if (c.written) {
            QByteArray bytes("abc"); // appended to, never replaced
            QtJsonSettings::escapedString(c.value.toString(), bytes, utf8());
            EXPECT_EQ(bytes, "abc" + c.bytes);
        }
        const QVariant back = unescaped(c.bytes);
        EXPECT_EQ(back.userType(), c.value.userType());
        EXPECT_EQ(back, c.value);
    }
    // Without a codec everything past ASCII, and what follows it, is hex.
    QByteArray bytes;
    QtJsonSettings::escapedString(QStringLiteral("\u00e9a"), bytes, nullptr);
    EXPECT_EQ(bytes, QByteArray("\\xe9\\x61"));
    EXPECT_EQ(unescaped(bytes, nullptr), QVariant(QStringLiteral("\u00e9a")));
    // Only the given range is read, and the list is replaced.
    QString text;
    QStringList list{"stale"};
    EXPECT_TRUE(QtJsonSettings::unescapedStringList("xx,a,b,yy", 3, 6, text, list, utf8()));
    EXPECT_EQ(list, (QStringList{"a", "b"}));
}

TEST(JsonValueText, EncodesAndDecodesEveryKind)
{
    const QByteArray binary("\x00\x01\x1f\x7f\x80\xff)(", 8);
    // Other types travel as a QDataStream of version 7 (Qt 4.0).
    const QVariant date(QDate(2024, 2, 29));
    QByteArray stream;
    QDataStream s(&stream, QIODevice::WriteOnly);
    s.setVersion(QDataStream::Qt_4_0);
    s << date;
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
        {date, "@Variant(" + QString::fromLatin1(stream.constData(), stream.size()) + ")"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(QtJsonSettings::variantToString(c.value), c.text);
        EXPECT_EQ(QtJsonSettings::stringToVariant(c.text), c.value) << qPrintable(c.text);
    }
    // The stream check must let well-formed nested containers through.
    const QVariant nested(QVariantList{
        QVariantMap{{"d", QDate(2000, 1, 2)}, {"l", QStringList{"a", QString()}}}, QVariant(), QChar('x'),
        QTime(12, 30), QVariantHash{{"h", QVariantList{1, 2.5, QByteArray("\0\1", 2)}}},
        QDateTime(QDate(2020, 5, 6), QTime(7, 8, 9), Qt::UTC)});
    EXPECT_EQ(QtJsonSettings::stringToVariant(QtJsonSettings::variantToString(nested)), nested);
    // A stray parenthesis is only warned about.
    EXPECT_EQ(QtJsonSettings::splitArgs(QStringLiteral("@Size(1)2)"), 5), (QStringList{"1", "2"}));
    EXPECT_EQ(QtJsonSettings::splitArgs(QString(), 5), QStringList());
}

// Damaged streams must neither crash nor allocate what their counts claim.
TEST(JsonValueText, UnknownOrDamagedFormsStayPlainText)
{
    const auto stream = [](const QByteArray &bytes) {
        return "@Variant(" + QString::fromLatin1(bytes.constData(), bytes.size()) + ")";
    };
    const QStringList texts{
        "@Foo(1)", "@Rect(1 2 3)", "@Size(1)", "@Point", "@Invalid(x)", "@ByteArray(open",
        "@Variant()", "@Variant(\x01\x02)",
        // A list type whose element count claims far more than is there; the
        // same inside a map, and inside a variant that holds a variant.
        stream(QByteArray("\x00\x00\x00\x09\x7f\xff\xff\xff", 8)),
        stream(QByteArray("\x00\x00\x00\x08\x00\x00\x00\x01\x00\x00\x00\x02\x00k\x00\x00\x00\x0b\xff\xff\xff\xf0", 22)),
        stream(QByteArray("\x00\x00\x00\x29\x00\x00\x00\x09\x7f\xff\xff\xff", 12)),
        // An xdecimal whose type word claims more digits than its 16 bytes hold.
        stream(QByteArray("\x00\x00\x00\x7f\x00\x00\x00\x09xdecimal\x00\x10\x40", 19) + QByteArray(14, '\0'))};
    for (const QString &t : texts) {
        const QVariant v = QtJsonSettings::stringToVariant(t);
        EXPECT_EQ(v.userType(), QMetaType::QString) << qPrintable(t);
        EXPECT_EQ(v.toString(), t);
    }
}

// The writer turns a "size" object into an array only when exactly one of
// its elements is missing; the readers take both shapes alike.
TEST(JsonTree, SizeMakesAnArrayOnlyWithOneElementMissing)
{
    EXPECT_FALSE(QtJsonSettings::arrayFromSize({{"1", 1}, {"2", 2}}, "size", 2).isValid());
    EXPECT_EQ(QtJsonSettings::arrayFromSize({{"2", 2}}, "size", 2), QVariant(QVariantList{QVariant(), 2}));
    EXPECT_EQ(QtJsonSettings::arrayFromSize({}, "size", QByteArray("1")), QVariant(QVariantList{QVariant()}));
    EXPECT_FALSE(QtJsonSettings::arrayFromSize({}, "Size", 1).isValid());
    EXPECT_FALSE(QtJsonSettings::arrayFromSize({}, "size", "x").isValid());
    EXPECT_FALSE(QtJsonSettings::arrayFromSize({}, "size", 2000000000).isValid());
}

TEST(JsonRead, HandWrittenShapes)
{
    bool ok = false;
    // A leading byte order mark is skipped.
    const QSettings::SettingsMap map = readBytes("\xEF\xBB\xBF" R"J({
        "n": 42, "f": 1.5, "b": true, "z": null, "s": "@@x", "r": "@Rect(1 2 3 4)",
        "list": [1, "a"], "strings": ["@Rect(1 2 3 4)", "x"],
        "rows": [{"a": "1"}, {"a": "2", "sub": {"k": "v"}}],
        "g": {"h": {"i": "deep"}, "@Map_m": {"k": 1}}, "l": "a, @@b", "m": "a, @Point(1 2), @@c"})J", &ok);
    ASSERT_TRUE(ok);
    // Numbers typed by hand stay numbers; plain arrays are one value, their
    // items taken as they stand; an unquoted comma makes a list, whose items
    // are decoded only when one of them is encoded.
    const QSettings::SettingsMap expected{
        {"n", qint64(42)}, {"f", 1.5}, {"b", true}, {"z", QJsonValue(QJsonValue::Null).toVariant()},
        {"s", QStringLiteral("@x")}, {"r", QRect(1, 2, 3, 4)}, {"list", QVariantList{1.0, QStringLiteral("a")}},
        {"strings", QVariantList{QStringLiteral("@Rect(1 2 3 4)"), QStringLiteral("x")}}, {"rows/size", 2},
        {"rows/1/a", QStringLiteral("1")}, {"rows/2/a", QStringLiteral("2")}, {"rows/2/sub/k", QStringLiteral("v")},
        {"g/h/i", QStringLiteral("deep")}, {"g/m", QVariantMap{{"k", 1.0}}}, {"l", QStringList{"a", "@b"}},
        {"m", QVariantList{QStringLiteral("a"), QPoint(1, 2), QStringLiteral("@c")}}};
    EXPECT_EQ(map.keys(), expected.keys());
    for (auto it = expected.begin(); it != expected.end(); ++it) {
        EXPECT_EQ(map.value(it.key()), it.value()) << qPrintable(it.key());
        EXPECT_EQ(map.value(it.key()).userType(), it.value().userType()) << qPrintable(it.key());
    }

    // A document that is no object gives no keys but is no error.
    EXPECT_TRUE(readBytes("[1, 2]", &ok).isEmpty());
    EXPECT_TRUE(ok);
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
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    ASSERT_TRUE(QtJsonSettings::writeJsonFile(buffer, {{"", 1}, {"list", QStringList{"@x", "y"}},
        {"null", QString()}, {"i", 7}, {"s", QStringLiteral("a, b")}}));
    const QJsonObject o = QJsonDocument::fromJson(buffer.data()).object();
    EXPECT_EQ(o.keys(), (QStringList{"i", "list", "null", "s"})); // the empty key is skipped
    EXPECT_EQ(o.value("list").toArray(), QJsonArray({"@x", "y"}));
    EXPECT_EQ(o.value("i"), QJsonValue("7"));
    EXPECT_EQ(o.value("s"), QJsonValue("\"a, b\""));
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
    const QVariantMap map{{"k", QStringLiteral("v")}, {"n", QVariantMap{{"x", QStringLiteral("y")}}}};
    const struct
    {
        QString key;
        QVariant value;
        QVariant back = QVariant(); // what a read gives, when not the value itself
    } cases[] = {
        {"g/empty", QString(QLatin1String(""))},
        {"g/binary", binary},
        {"g/wideRect", QRect(QPoint(-2147483647, -5), QPoint(2147483647, 5))},
        {"g/mark", QStringLiteral("\uFEFF\uFEFFmarked")},
        {"g/map", map},
        {"g/sub/deeper/leaf", QStringLiteral("Ёлка 🎄")},
        {"big", QString(200000, QLatin1Char('x')) + QStringLiteral("Ж, \"end\"")},
        // Numbers take the text path and come back as text.
        {"n/int", 42, QStringLiteral("42")},
        {"n/double", 0.1, QStringLiteral("0.1")},
        {"n/bool", true, QStringLiteral("true")},
        {"n/list", QStringList{"a", "@b", QStringLiteral("\uFEFFc")},
         QVariantList{"a", "@b", QStringLiteral("\uFEFFc")}},
    };
    {
        QSettings s(path, QtJsonSettings::jsonFormat());
        for (const auto &c : cases)
            s.setValue(c.key, c.value);
        s.sync();
        EXPECT_EQ(s.status(), QSettings::NoError);
    }
    const QJsonObject g = readJson(path).value("g").toObject();
    EXPECT_EQ(g.value("@Map_map").toObject(), QJsonObject::fromVariantMap(map));
    EXPECT_FALSE(g.contains("map"));

    QSettings s(freshCopy(path), QtJsonSettings::jsonFormat());
    EXPECT_EQ(s.status(), QSettings::NoError);
    for (const auto &c : cases) {
        const QVariant &expected = c.back.isValid() ? c.back : c.value;
        EXPECT_EQ(s.value(c.key), expected) << qPrintable(c.key);
        EXPECT_EQ(s.value(c.key).userType(), expected.userType()) << qPrintable(c.key);
    }
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

    QSettings s(freshCopy(path), QtJsonSettings::jsonFormat());
    ASSERT_EQ(s.beginReadArray("rows"), 2);
    s.setArrayIndex(1);
    EXPECT_EQ(s.value("name"), QVariant(QStringLiteral("r1")));
}
