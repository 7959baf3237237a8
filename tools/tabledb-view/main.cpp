// tabledb-view: table files, or a live market session, in a window.

#include "feedoptions.h"
#include "viewwindow.h"

#include <QApplication>
#include <QPixmap>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

namespace {

const char *const kUsage =
        "Usage: tabledb-view [OPTIONS] FILE|DIRECTORY...\n"
        "       tabledb-view --live [OPTIONS] [FEED OPTIONS]\n"
        "\n"
        "Shows table files (plain or .gz), or every table file in a directory, a tab\n"
        "per table. Click a column's header to sort by it (again: the other way, a\n"
        "third time: back); the filter keeps the rows that hold its text.\n"
        "\n"
        "  --live                 run tabledb-feed's market session inside the viewer\n"
        "                         and show it as it changes; the feed's options\n"
        "                         (--instruments, --orders, --seed, --threads, see\n"
        "                         tabledb-feed --help) choose the session\n"
        "  --screenshot FILE      render the window offscreen into a PNG file and exit\n"
        "  --after SECONDS        wait this long before the screenshot (default 0)\n"
        "  --size WIDTHxHEIGHT    the window's size (default 1280x800)\n"
        "  --tab NAME             show the tab of that name first\n"
        "  -h, --help             this text\n";

struct Options
{
    bool live = false;
    QString screenshot;
    double after = 0;
    QSize size { 1280, 800 };
    QString tab;
    QStringList rest; // files, or the feed's options
};

// Takes the viewer's own options; what is left goes to the files or the feed.
bool parse(const QStringList &arguments, Options *options, QString *error)
{
    for (int i = 1; i < arguments.size(); ++i) {
        const QString &a = arguments[i];
        auto value = [&](QString *out) {
            if (i + 1 >= arguments.size()) {
                *error = QStringLiteral("%1 needs a value").arg(a);
                return false;
            }
            *out = arguments[++i];
            return true;
        };
        QString text;
        if (a == QLatin1String("--live")) {
            options->live = true;
        } else if (a == QLatin1String("--screenshot")) {
            if (!value(&options->screenshot))
                return false;
        } else if (a == QLatin1String("--after")) {
            bool ok = false;
            if (!value(&text))
                return false;
            options->after = text.toDouble(&ok);
            if (!ok || options->after < 0 || options->after > 3600) {
                *error = QStringLiteral("--after: expected seconds from 0 to 3600, got \"%1\"").arg(text);
                return false;
            }
        } else if (a == QLatin1String("--tab")) {
            if (!value(&options->tab))
                return false;
        } else if (a == QLatin1String("--size")) {
            if (!value(&text))
                return false;
            const QStringList parts = text.split(QLatin1Char('x'));
            const int w = parts.size() == 2 ? parts[0].toInt() : 0;
            const int h = parts.size() == 2 ? parts[1].toInt() : 0;
            if (w < 200 || h < 150 || w > 10000 || h > 10000) {
                *error = QStringLiteral("--size: expected WIDTHxHEIGHT from 200x150 up, got \"%1\"").arg(text);
                return false;
            }
            options->size = QSize(w, h);
        } else {
            options->rest.append(a);
        }
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    if (arguments.contains(QStringLiteral("-h")) || arguments.contains(QStringLiteral("--help"))) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    Options options;
    QString error;
    if (!parse(arguments, &options, &error)) {
        std::fprintf(stderr, "tabledb-view: %s\n", qPrintable(error));
        return 2;
    }
    FeedOptions feed;
    if (options.live) {
        switch (FeedOptions::parse(QStringList { arguments[0] } + options.rest, &feed, &error)) {
        case FeedOptions::Run:
            break;
        case FeedOptions::Error:
            std::fprintf(stderr, "tabledb-view: %s\n", qPrintable(error));
            return 2;
        default:
            std::fprintf(stdout, "%s\n", qPrintable(error));
            return 0;
        }
    } else if (options.rest.isEmpty()) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    // A screenshot needs no display.
    if (!options.screenshot.isEmpty() && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("tabledb-view"));
    ViewWindow window;
    window.resize(options.size);
    if (options.live) {
        window.startLive(feed);
    } else if (!window.openFiles(options.rest, &error)) {
        std::fprintf(stderr, "tabledb-view: %s\n", qPrintable(error));
        return 1;
    } else if (!error.isEmpty()) {
        std::fprintf(stderr, "tabledb-view: %s\n", qPrintable(error));
    }
    if (!options.tab.isEmpty() && !window.showTab(options.tab)) {
        std::fprintf(stderr, "tabledb-view: --tab: no tab \"%s\"\n", qPrintable(options.tab));
        return 2;
    }
    window.show();
    if (!options.screenshot.isEmpty()) {
        QTimer::singleShot(int(options.after * 1000), &window, [&] {
            const QPixmap shot = window.grab();
            if (!shot.save(options.screenshot, "PNG")) {
                std::fprintf(stderr, "tabledb-view: %s: cannot write the picture\n",
                             qPrintable(options.screenshot));
                app.exit(1);
                return;
            }
            std::fprintf(stdout, "wrote %s (%dx%d)\n", qPrintable(options.screenshot),
                         shot.width(), shot.height());
            app.exit(0);
        });
    }
    return app.exec();
}
