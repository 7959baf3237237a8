// tabledb-feed: a simulated market session streamed through the library, with
// its speed and the checks of every view, join and saved file at the end.

#include "feedoptions.h"
#include "feedsession.h"

#include <QCoreApplication>
#include <QFile>
#include <QTextStream>

#include <unistd.h>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

int main(int argc, char **argv)
{
#if defined(__GLIBC__)
    // A long-running process that builds and drops large transactions: with
    // glibc's sliding threshold every freed multi-megabyte buffer moves later
    // large allocations onto the heap, where they stay resident as holes. A
    // fixed threshold gives such buffers back when they are freed.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);
#endif
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tabledb-feed"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TABLEDB_VERSION_STRING));
    QTextStream out(stdout);
    QTextStream err(stderr);

    FeedOptions options;
    QString message;
    switch (FeedOptions::parse(app.arguments(), &options, &message)) {
    case FeedOptions::HelpShown:
    case FeedOptions::VersionShown:
        out << message;
        return 0;
    case FeedOptions::Error:
        err << "tabledb-feed: " << message << "\nTry 'tabledb-feed --help'.\n";
        return 2;
    case FeedOptions::Run:
        break;
    }

    const FeedSession::ProgressStyle style = options.quiet ? FeedSession::NoProgress
            : isatty(STDOUT_FILENO)                        ? FeedSession::LiveLine
                                                           : FeedSession::PlainLines;
    FeedSession session(options, &out, style);
    if (!options.quiet)
        out << "Building " << options.instruments << " instruments and " << options.orders
            << " orders (seed " << options.seed << ")..." << Qt::endl;
    const FeedSummary summary = session.run();
    out << summary.toText();
    out.flush();

    if (!options.summaryJson.isEmpty()) {
        QFile file(options.summaryJson);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
            || file.write(summary.toJson()) < 0) {
            err << "tabledb-feed: cannot write " << options.summaryJson << ": "
                << file.errorString() << '\n';
            return 1;
        }
    }
    return summary.passed() ? 0 : 1;
}
