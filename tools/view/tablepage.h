#ifndef TABLEDB_TOOLS_TABLEPAGE_H
#define TABLEDB_TOOLS_TABLEPAGE_H

#include <QString>
#include <QStringList>
#include <QWidget>

#include <memory>

class Index;
class IndexIterative;
class IndexVector;
class QTableView;
class Table;
class TableModel;
class ViewIndex;

// One tab: a table view over a TableModel of one table. It starts on a base
// view (an index of the table, or its master index); a header click sorts by
// that column, a second click the other way, a third goes back to the base;
// the filter keeps rows whose shown cells hold the text. Both through a
// ViewIndex made for them, which the model is switched to, so that the
// selection and the scroll position stay.
class TablePage : public QWidget
{
    Q_OBJECT

public:
    // `list` or `vector` is the base view; both null for the master index.
    // None of them is owned; all must outlive the page.
    TablePage(Table *table, IndexIterative *list, IndexVector *vector,
              const QStringList &columns, QWidget *parent = nullptr);
    ~TablePage() override;

    Table *table() const { return m_table; }
    TableModel *model() const { return m_model; }
    QTableView *view() const { return m_view; }
    QString filter() const { return m_filter; }
    void setFilter(const QString &text);
    // Sorts by the model's column `section`; -1 goes back to the base view.
    void sortBy(int section, Qt::SortOrder order);
    // Facts for the status bar, besides the rows.
    QString facts() const { return m_facts; }
    void setFacts(const QString &facts) { m_facts = facts; }

private:
    // Up, then down, then the base view again.
    void headerClicked(int section);
    // Shows the base view or a ViewIndex for the present sort and filter.
    void showView();

    Table *m_table;
    IndexIterative *m_list;
    IndexVector *m_vector;
    TableModel *m_model;
    QTableView *m_view;
    std::unique_ptr<ViewIndex> m_index; // made and deleted under the table's lock
    int m_sortColumn = -1; // the model's
    Qt::SortOrder m_order = Qt::AscendingOrder;
    QString m_filter;
    QString m_facts;
    bool m_sized = false; // columns fitted to rows, not only to their titles
};

#endif // TABLEDB_TOOLS_TABLEPAGE_H
