#include "feedoptions.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <limits>

namespace {

// Reads a whole number in [minimum, maximum]; false with a message otherwise.
bool readNumber(const QCommandLineParser &parser, const QString &name, qint64 minimum,
                qint64 maximum, qint64 *value, QString *error)
{
    if (!parser.isSet(name))
        return true;
    bool ok = false;
    const QString text = parser.value(name);
    const qint64 number = text.toLongLong(&ok);
    if (!ok || number < minimum || number > maximum) {
        *error = QStringLiteral("--%1: expected a whole number from %2 to %3, got \"%4\"")
                         .arg(name)
                         .arg(minimum)
                         .arg(maximum)
                         .arg(text);
        return false;
    }
    *value = number;
    return true;
}

} // namespace

FeedOptions::ParseResult FeedOptions::parse(const QStringList &arguments, FeedOptions *options,
                                            QString *error)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
            "A simulated market session streamed through tabledb: quotes, orders, trades and "
            "positions in keyed tables with sorted views, a join, a change log and saved "
            "files, checked at the end."));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    // The parser does not show defaults: the descriptions carry them, taken
    // from the values that an option left out keeps.
    auto option = [](const char *name, const char *description, const char *valueName,
                     const QString &defaultValue) {
        return QCommandLineOption(QString::fromLatin1(name),
                                  QStringLiteral("%1 (default %2).")
                                          .arg(QString::fromLatin1(description), defaultValue),
                                  QString::fromLatin1(valueName), defaultValue);
    };
    parser.addOptions({
            option("instruments", "Number of instruments", "N",
                   QString::number(options->instruments)),
            option("orders", "Orders placed before the session", "N",
                   QString::number(options->orders)),
            option("transactions", "Transactions to apply, all tables together", "N",
                   QString::number(options->transactions)),
            { QStringLiteral("seconds"),
              QStringLiteral("Run for S seconds instead of a number of transactions."),
              QStringLiteral("S") },
            option("seed", "Seed of the generated session", "N", QString::number(options->seed)),
            option("data", "Directory for the saved tables", "DIR", options->dataDir),
            { QStringLiteral("compress"), QStringLiteral("Save the tables gzip-compressed.") },
            option("threads", "Threads of the global pool", "N",
                   QString::number(options->threads)),
            { QStringLiteral("quiet"), QStringLiteral("Print only the final summary.") },
            { QStringLiteral("summary-json"), QStringLiteral("Write the summary as JSON to FILE."),
              QStringLiteral("FILE") },
    });
    if (!parser.parse(arguments)) {
        *error = parser.errorText();
        return Error;
    }
    if (parser.isSet(help)) {
        *error = parser.helpText();
        return HelpShown;
    }
    if (parser.isSet(version)) {
        *error = QStringLiteral("%1 %2\n").arg(QCoreApplication::applicationName(),
                                                QCoreApplication::applicationVersion());
        return VersionShown;
    }
    if (!parser.positionalArguments().isEmpty()) {
        *error = QStringLiteral("unexpected argument \"%1\"")
                         .arg(parser.positionalArguments().first());
        return Error;
    }

    qint64 instruments = options->instruments, orders = options->orders;
    qint64 transactions = options->transactions, threads = options->threads;
    qint64 seed = qint64(options->seed);
    if (!readNumber(parser, QStringLiteral("instruments"), 1, 1000000, &instruments, error)
        || !readNumber(parser, QStringLiteral("orders"), 0, 50000000, &orders, error)
        || !readNumber(parser, QStringLiteral("transactions"), 0, 1000000000, &transactions, error)
        || !readNumber(parser, QStringLiteral("threads"), 1, 256, &threads, error)
        || !readNumber(parser, QStringLiteral("seed"), 0, std::numeric_limits<qint64>::max(), &seed,
                       error))
        return Error;
    if (parser.isSet(QStringLiteral("seconds"))) {
        bool ok = false;
        const QString text = parser.value(QStringLiteral("seconds"));
        options->seconds = text.toDouble(&ok);
        if (!ok || !(options->seconds > 0) || options->seconds > 86400) {
            *error = QStringLiteral("--seconds: expected a number of seconds above 0 and at "
                                    "most 86400, got \"%1\"")
                             .arg(text);
            return Error;
        }
    }
    if (parser.value(QStringLiteral("data")).isEmpty()) {
        *error = QStringLiteral("--data: the directory name is empty");
        return Error;
    }
    options->instruments = int(instruments);
    options->orders = int(orders);
    options->transactions = int(transactions);
    options->threads = int(threads);
    options->seed = quint64(seed);
    options->dataDir = parser.value(QStringLiteral("data"));
    options->compress = parser.isSet(QStringLiteral("compress"));
    options->quiet = parser.isSet(QStringLiteral("quiet"));
    options->summaryJson = parser.value(QStringLiteral("summary-json"));
    return Run;
}
