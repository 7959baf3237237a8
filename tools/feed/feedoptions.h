#ifndef TABLEDB_TOOLS_FEEDOPTIONS_H
#define TABLEDB_TOOLS_FEEDOPTIONS_H

#include <QString>
#include <QStringList>

// What a feed run does, as the command line states it.
struct FeedOptions
{
    int instruments = 2000;
    int orders = 100000;
    int transactions = 2000; // ignored when seconds > 0
    double seconds = 0;
    quint64 seed = 1;
    QString dataDir = QStringLiteral("feed-data");
    bool compress = false;
    int threads = 2;
    bool quiet = false;
    QString summaryJson;

    enum ParseResult { Run, HelpShown, VersionShown, Error };

    // Parses `arguments` (the program name first). On Error, `error` says
    // which option was wrong and why; on HelpShown/VersionShown `error`
    // holds the text to print.
    static ParseResult parse(const QStringList &arguments, FeedOptions *options, QString *error);
};

#endif // TABLEDB_TOOLS_FEEDOPTIONS_H
