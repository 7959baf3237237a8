#ifndef TABLEDB_TOOLS_VIEWWINDOW_H
#define TABLEDB_TOOLS_VIEWWINDOW_H

#include <QElapsedTimer>
#include <QMainWindow>
#include <QTimer>

#include <memory>
#include <vector>

class LiveSession;
class QLabel;
class QLineEdit;
class QTabWidget;
class Table;
class TablePage;
struct FeedOptions;

// tabledb-view's window: a tab per table or view, a filter box for the tab
// shown, and the facts of that tab in the status bar, with the transactions
// and refreshes per second of a live session.
class ViewWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit ViewWindow(QWidget *parent = nullptr);
    // Stops a live session before its tables go.
    ~ViewWindow() override;

    // Opens table files, and the table files in directories. False with
    // `error` naming what could not be read when no table could; a file that
    // is damaged opens with the rows before the damage and says so.
    bool openFiles(const QStringList &paths, QString *error);
    // Builds the market of the feed's options and shows it, then starts its
    // streams on a worker thread.
    void startLive(const FeedOptions &options);
    // Shows the tab of that title (case aside); false if there is none.
    bool showTab(const QString &title);

private:
    void addPage(TablePage *page, const QString &title);
    void pageChanged();
    void updateStatus();

    QTabWidget *m_tabs;
    QLineEdit *m_filter;
    QLabel *m_facts;
    QLabel *m_rates;
    std::vector<TablePage *> m_pages; // children of the tabs; deleted first
    std::vector<std::unique_ptr<Table>> m_tables; // read from files
    std::unique_ptr<LiveSession> m_live;
    QTimer m_tick; // status and the fading of changed cells
    QElapsedTimer m_sinceTick;
    qint64 m_lastTransactions = 0;
    qint64 m_lastRefreshes = 0;
};

#endif // TABLEDB_TOOLS_VIEWWINDOW_H
