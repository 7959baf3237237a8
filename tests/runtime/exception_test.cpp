#include "runtime/exception.h"

#include <QCoreApplication>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

// Recursion the compiler can neither inline nor turn into a loop.
__attribute__((noinline)) Exception makeAtDepth(int depth)
{
    if (depth == 0)
        return Exception(QStringLiteral("deep"));
    Exception e = makeAtDepth(depth - 1);
    asm volatile("" ::: "memory");
    return e;
}

// Index left in 3, name left in 35 (a longer one pushes on), 8+ hex digits.
void expectLines(const QStringList &stack, const QString &application)
{
    const QRegularExpression address(QStringLiteral("^[0-9a-f]{8,16} "));
    for (int i = 0; i < stack.size(); ++i) {
        const QString prefix = QString::number(i + 1).leftJustified(3) + QLatin1Char(' ')
            + application.leftJustified(35) + QLatin1String(" 0x");
        EXPECT_TRUE(stack.at(i).startsWith(prefix)) << stack.at(i).toStdString();
        EXPECT_TRUE(address.match(stack.at(i).mid(prefix.size())).hasMatch()) << stack.at(i).toStdString();
    }
}

} // namespace

TEST(Exception, StackLinesFollowTheColumnFormatAndStopAtThirtyOne)
{
    const QString saved = QCoreApplication::applicationName();
    // The '%1' must come out literally, not be substituted again.
    for (const QString &name : {saved, QStringLiteral("an application name longer than thirty-five %1")}) {
        QCoreApplication::setApplicationName(name);
        const Exception e(QStringLiteral("bad field"));
        const Exception deep = makeAtDepth(100);
        QCoreApplication::setApplicationName(saved);
        EXPECT_EQ(e.message(), QStringLiteral("bad field"));
        ASSERT_GE(e.stack().size(), 2);
        EXPECT_EQ(deep.stack().size(), 31);
        expectLines(e.stack(), name);
        expectLines(deep.stack(), name);
        // The capture itself is left out: the first line is the constructor,
        // resolved and demangled from the library's symbols.
        EXPECT_TRUE(e.stack().first().endsWith(QStringLiteral("Exception::Exception(QString const&)")))
            << e.stack().join(QLatin1Char('\n')).toStdString();
    }
}
