#include "runtime/exception.h"

#include <QCoreApplication>
#include <QDebug>
#include <QRegularExpression>

#include <gtest/gtest.h>

// Readable failure output for QString comparisons.
inline void PrintTo(const QString &s, std::ostream *os)
{
    *os << '"' << s.toStdString() << '"';
}

namespace {

// Recursion the compiler can neither inline nor turn into a loop.
__attribute__((noinline)) Exception throwAtDepth(int depth)
{
    if (depth == 0)
        return Exception(QStringLiteral("deep"));
    Exception e = throwAtDepth(depth - 1);
    asm volatile("" ::: "memory");
    return e;
}

// Checks one stack line against the fixed columns and returns its hex address.
void expectLineFormat(const QString &line, int index, const QString &application)
{
    const QString prefix = QString::number(index).leftJustified(3) + QLatin1Char(' ')
        + application.leftJustified(35) + QLatin1String(" 0x");
    ASSERT_TRUE(line.startsWith(prefix)) << line.toStdString();
    const QString rest = line.mid(prefix.size());
    const QRegularExpression address(QStringLiteral("^[0-9a-f]{8,16} "));
    EXPECT_TRUE(address.match(rest).hasMatch()) << line.toStdString();
}

QStringList g_messages;

void collect(QtMsgType, const QMessageLogContext &, const QString &message)
{
    g_messages.append(message);
}

} // namespace

TEST(Exception, StackLinesFollowTheColumnFormat)
{
    const Exception e(QStringLiteral("bad field"));
    EXPECT_EQ(e.message(), QStringLiteral("bad field"));
    const QStringList stack = e.stack();
    ASSERT_GE(stack.size(), 2);
    for (int i = 0; i < stack.size(); ++i)
        expectLineFormat(stack.at(i), i + 1, QCoreApplication::applicationName());
    // Frame 0 (the capture itself) is left out, so the first line is the
    // constructor, resolved and demangled from the library's symbols.
    EXPECT_TRUE(stack.first().endsWith(QStringLiteral("Exception::Exception(QString const&)")))
        << stack.join(QLatin1Char('\n')).toStdString();
}

TEST(Exception, DeepStackIsCutAtThirtyOneLines)
{
    const Exception e = throwAtDepth(100);
    ASSERT_EQ(e.stack().size(), 31);
    expectLineFormat(e.stack().last(), 31, QCoreApplication::applicationName());
}

TEST(Exception, LongApplicationNamePushesTheAddressRight)
{
    const QString saved = QCoreApplication::applicationName();
    const QString longName = QStringLiteral("an application name of more than thirty-five characters %1");
    QCoreApplication::setApplicationName(longName);
    const Exception e(QStringLiteral("x"));
    QCoreApplication::setApplicationName(saved);

    ASSERT_FALSE(e.stack().isEmpty());
    // The '%1' in the name must come out literally, not be substituted.
    EXPECT_TRUE(e.stack().first().startsWith(QStringLiteral("1   ") + longName + QStringLiteral(" 0x")))
        << e.stack().first().toStdString();
}

TEST(Exception, CopiesCarryMessageAndStack)
{
    try {
        throw Exception(QStringLiteral("Can't convert from decimal to datetime."));
    } catch (const Exception &caught) {
        Exception assigned(QStringLiteral("other"));
        assigned = caught;
        EXPECT_EQ(assigned.message(), QStringLiteral("Can't convert from decimal to datetime."));
        EXPECT_EQ(assigned.stack(), caught.stack());
        EXPECT_FALSE(assigned.stack().isEmpty());
    }
}

TEST(Exception, DumpWritesOneQuotedMessagePerLine)
{
    const Exception e(QStringLiteral("x"));
    g_messages.clear();
    const QtMessageHandler previous = qInstallMessageHandler(collect);
    e.dump();
    qInstallMessageHandler(previous);

    ASSERT_EQ(g_messages.size(), e.stack().size());
    for (int i = 0; i < g_messages.size(); ++i) {
        QString quoted;
        QDebug(&quoted).nospace() << e.stack().at(i);
        EXPECT_EQ(g_messages.at(i), quoted);
        EXPECT_TRUE(g_messages.at(i).startsWith(QLatin1Char('"')));
    }
}
