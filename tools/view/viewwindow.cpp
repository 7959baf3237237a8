#include "viewwindow.h"

#include "livesession.h"
#include "tablefile.h"
#include "tablepage.h"

#include "io/filterprogress.h"
#include "model/tablemodel.h"
#include "table/table.h"

#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QToolBar>

namespace {

QString sizeText(qint64 bytes)
{
    return QLocale::c().formattedDataSize(bytes, 1, QLocale::DataSizeTraditionalFormat);
}

} // namespace

ViewWindow::ViewWindow(QWidget *parent) : QMainWindow(parent)
{
    m_tabs = new QTabWidget(this);
    m_tabs->setDocumentMode(true);
    setCentralWidget(m_tabs);
    QToolBar *bar = addToolBar(QStringLiteral("Filter"));
    bar->setMovable(false);
    bar->addWidget(new QLabel(QStringLiteral(" Filter "), bar));
    m_filter = new QLineEdit(bar);
    m_filter->setPlaceholderText(QStringLiteral("text in any column of this tab"));
    m_filter->setClearButtonEnabled(true);
    m_filter->setMaximumWidth(360);
    bar->addWidget(m_filter);
    m_facts = new QLabel(this);
    m_rates = new QLabel(this);
    statusBar()->addWidget(m_facts, 1);
    statusBar()->addPermanentWidget(m_rates);
    connect(m_filter, &QLineEdit::textChanged, this, [this](const QString &text) {
        if (auto *page = qobject_cast<TablePage *>(m_tabs->currentWidget()))
            page->setFilter(text);
        updateStatus();
    });
    connect(m_tabs, &QTabWidget::currentChanged, this, &ViewWindow::pageChanged);
    connect(&m_tick, &QTimer::timeout, this, &ViewWindow::updateStatus);
    m_tick.start(1000);
    m_sinceTick.start();
    setWindowTitle(QStringLiteral("tabledb-view"));
}

ViewWindow::~ViewWindow()
{
    if (m_live)
        m_live->stop();
    // The tabs tell of each page they lose; the window no longer listens.
    m_tick.stop();
    m_tabs->disconnect(this);
    for (TablePage *page : m_pages)
        delete page;
    m_pages.clear();
    m_live.reset();
    m_tables.clear();
}

void ViewWindow::addPage(TablePage *page, const QString &title)
{
    m_pages.push_back(page);
    m_tabs->addTab(page, title);
    connect(page->model(), &QAbstractItemModel::rowsInserted, this, [this, page] {
        if (page == m_tabs->currentWidget())
            updateStatus();
    });
}

bool ViewWindow::openFiles(const QStringList &paths, QString *error)
{
    QStringList files, problems;
    for (const QString &path : paths) {
        const QFileInfo info(path);
        if (!info.isDir()) {
            files.append(path);
            continue;
        }
        const QDir dir(path);
        const int before = files.size();
        for (const QString &name : dir.entryList(QDir::Files, QDir::Name)) {
            // Only table files: their header says so.
            TableFile probe;
            QString ignored;
            if (probe.open(dir.filePath(name), &ignored))
                files.append(dir.filePath(name));
        }
        if (files.size() == before)
            problems.append(QStringLiteral("%1: no table files in it").arg(path));
    }
    for (const QString &path : files) {
        TableFile file;
        QString problem;
        if (!file.open(path, &problem)) {
            problems.append(problem);
            continue;
        }
        FilterProgressTrue progress;
        std::unique_ptr<Table> table = file.readTable(progress, &problem);
        auto *page = new TablePage(table.get(), nullptr, nullptr, QStringList(), m_tabs);
        QString facts = QStringLiteral("%1 columns · %2, %3, %4")
                                .arg(table->columnCount())
                                .arg(QDir::toNativeSeparators(path),
                                     file.isCompressed() ? QStringLiteral("gzip")
                                                         : QStringLiteral("plain"),
                                     sizeText(file.size()));
        if (!problem.isEmpty())
            facts += QStringLiteral(" · damaged: ") + problem;
        page->setFacts(facts);
        addPage(page, table->name());
        m_tables.push_back(std::move(table));
    }
    if (error)
        *error = problems.join(QLatin1Char('\n'));
    if (m_tables.empty())
        return false;
    setWindowTitle(QStringLiteral("tabledb-view — %1").arg(paths.join(QStringLiteral(", "))));
    pageChanged();
    return true;
}

void ViewWindow::startLive(const FeedOptions &options)
{
    m_live.reset(new LiveSession(options));
    Market &market = m_live->market();
    IndexSort *byLast = nullptr;
    for (const MarketView &view : market.views()) {
        if (view.name == QLatin1String("instruments by last price"))
            byLast = view.index;
    }
    auto *instruments = new TablePage(market.instruments(), byLast, nullptr, QStringList(), m_tabs);
    instruments->setFacts(QStringLiteral("sorted by last price"));
    addPage(instruments, QStringLiteral("Instruments"));
    auto *orders = new TablePage(market.orders(), nullptr, nullptr, QStringList(), m_tabs);
    orders->setFacts(QStringLiteral("last and lot joined from the instruments"));
    addPage(orders, QStringLiteral("Orders"));
    auto *movers = new TablePage(market.instruments(), nullptr, market.topMovers(),
                                 { QStringLiteral("board"), QStringLiteral("code"),
                                   QStringLiteral("open"), QStringLiteral("last"),
                                   QStringLiteral("volume"), QStringLiteral("time") },
                                 m_tabs);
    movers->setFacts(QStringLiteral("moved 5% or more since the open, the most first"));
    addPage(movers, QStringLiteral("Top movers"));
    auto *positions = new TablePage(market.positions(), nullptr, nullptr, QStringList(), m_tabs);
    addPage(positions, QStringLiteral("Positions"));
    // The newest orders on top, through the page's own sorted index.
    orders->sortBy(0, Qt::DescendingOrder);
    setWindowTitle(QStringLiteral("tabledb-view — live market, seed %1").arg(options.seed));
    m_tick.setInterval(100);
    m_live->start();
    pageChanged();
}

bool ViewWindow::showTab(const QString &title)
{
    for (int i = 0; i < m_tabs->count(); ++i) {
        if (m_tabs->tabText(i).compare(title, Qt::CaseInsensitive) == 0) {
            m_tabs->setCurrentIndex(i);
            return true;
        }
    }
    return false;
}

void ViewWindow::pageChanged()
{
    if (auto *page = qobject_cast<TablePage *>(m_tabs->currentWidget())) {
        const QSignalBlocker blocker(m_filter);
        m_filter->setText(page->filter());
    }
    updateStatus();
}

void ViewWindow::updateStatus()
{
    if (auto *page = qobject_cast<TablePage *>(m_tabs->currentWidget())) {
        QString text = QStringLiteral("%1 rows").arg(page->model()->rowCount());
        if (!page->facts().isEmpty())
            text += QStringLiteral(" · ") + page->facts();
        m_facts->setText(text);
        // Changed cells fade between refreshes too.
        if (m_live)
            page->view()->viewport()->update();
    }
    if (!m_live || m_sinceTick.elapsed() < 1000)
        return;
    const double seconds = m_sinceTick.nsecsElapsed() / 1e9;
    m_sinceTick.start();
    qint64 refreshes = 0;
    for (TablePage *page : m_pages)
        refreshes += page->model()->refreshCount();
    const qint64 transactions = m_live->transactions();
    m_rates->setText(QStringLiteral("%1 transactions/s · %2 refreshes/s ")
                             .arg(QLocale::c().toString(double(transactions - m_lastTransactions) / seconds, 'f', 0))
                             .arg(double(refreshes - m_lastRefreshes) / seconds, 0, 'f', 0));
    m_lastTransactions = transactions;
    m_lastRefreshes = refreshes;
}
