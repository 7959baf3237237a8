// tabledb-view as a user starts it, rendering offscreen.

#include "feedoptions.h"
#include "feedsession.h"

#include <gtest/gtest.h>

#ifdef TABLEDB_VIEW_PROGRAM

#include <QImage>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>

namespace {

// The picture shows text: dark glyph pixels and their many shades of grey,
// not a window of a few flat colours.
void expectText(const QImage &image)
{
    QSet<QRgb> colours;
    qint64 dark = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            colours.insert(pixel);
            dark += qGray(pixel) < 96;
        }
    }
    EXPECT_GT(colours.size(), 40);
    EXPECT_GT(dark, qint64(image.width()) * image.height() / 200);
}

} // namespace

TEST(View, ShowsTheTablesAFeedSavedAndALiveSessionOffscreen)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    FeedOptions feed;
    feed.instruments = 60;
    feed.orders = 600;
    feed.transactions = 40;
    feed.compress = true;
    feed.dataDir = dir.filePath(QStringLiteral("data"));
    FeedSession(feed, nullptr, FeedSession::NoProgress).run();

    const QStringList size { QStringLiteral("--size"), QStringLiteral("900x600") };
    const struct
    {
        const char *what;
        QStringList arguments;
    } runs[] = {
        { "files", QStringList { feed.dataDir } + size },
        { "live", QStringList { "--live", "--instruments", "60", "--orders", "600", "--after", "1" } + size },
    };
    for (const auto &run : runs) {
        const QString picture = dir.filePath(QString::fromLatin1(run.what) + QStringLiteral(".png"));
        QProcess view;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        view.setProcessEnvironment(environment);
        view.start(QStringLiteral(TABLEDB_VIEW_PROGRAM),
                   run.arguments + QStringList { QStringLiteral("--screenshot"), picture });
        ASSERT_TRUE(view.waitForFinished(180000)) << run.what;
        EXPECT_EQ(view.exitStatus(), QProcess::NormalExit) << run.what;
        EXPECT_EQ(view.exitCode(), 0) << run.what << view.readAllStandardError().toStdString();
        const QImage image(picture);
        EXPECT_EQ(image.size(), QSize(900, 600)) << run.what;
        expectText(image);
    }
}

#endif
