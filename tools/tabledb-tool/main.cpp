// tabledb-tool: looks inside table files without a program of their own.

#include "toolcommands.h"

#include <QCoreApplication>
#include <QTextStream>

#include <unistd.h>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tabledb-tool"));
    QTextStream out(stdout);
    QTextStream err(stderr);
    return runTool(app.arguments(), out, err, isatty(STDERR_FILENO));
}
