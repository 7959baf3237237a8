#include "tablepage.h"

#include "changedelegate.h"
#include "viewindex.h"

#include "index/indexvector.h"
#include "index/masterindex.h"
#include "model/tablemodel.h"
#include "table/table.h"

#include <QHeaderView>
#include <QTableView>
#include <QVBoxLayout>

TablePage::TablePage(Table *table, IndexIterative *list, IndexVector *vector,
                     const QStringList &columns, QWidget *parent)
    : QWidget(parent), m_table(table), m_list(list), m_vector(vector)
{
    if (vector)
        m_model = new TableModel(vector, columns, this);
    else if (list)
        m_model = new TableModel(list, columns, this);
    else
        m_model = new TableModel(table, columns, this);
    m_view = new QTableView(this);
    m_view->setModel(m_model);
    m_view->setItemDelegate(new ChangeDelegate(m_view));
    m_view->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_view->setAlternatingRowColors(true);
    m_view->setWordWrap(false);
    m_view->verticalHeader()->hide();
    m_view->verticalHeader()->setDefaultSectionSize(m_view->fontMetrics().height() + 6);
    QHeaderView *header = m_view->horizontalHeader();
    header->setSectionsClickable(true);
    header->setHighlightSections(false);
    header->setResizeContentsPrecision(200);
    header->setStretchLastSection(true);
    connect(header, &QHeaderView::sectionClicked, this, &TablePage::headerClicked);
    m_view->resizeColumnsToContents();
    m_sized = m_model->rowCount() > 0;
    // A table that starts empty gets its widths from its first rows.
    connect(m_model, &QAbstractItemModel::rowsInserted, this, [this] {
        if (!m_sized) {
            m_sized = true;
            m_view->resizeColumnsToContents();
        }
    });
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_view);
}

TablePage::~TablePage()
{
    // The model lets go of the view before the view goes.
    delete m_model;
    m_model = nullptr;
    if (m_index && m_table) {
        TableLocker locker(m_table);
        m_index.reset();
    }
}

void TablePage::headerClicked(int section)
{
    if (section != m_sortColumn)
        sortBy(section, Qt::AscendingOrder);
    else if (m_order == Qt::AscendingOrder)
        sortBy(section, Qt::DescendingOrder);
    else
        sortBy(-1, Qt::AscendingOrder);
}

void TablePage::sortBy(int section, Qt::SortOrder order)
{
    m_sortColumn = section;
    m_order = order;
    QHeaderView *header = m_view->horizontalHeader();
    header->setSortIndicatorShown(m_sortColumn >= 0);
    if (m_sortColumn >= 0)
        header->setSortIndicator(m_sortColumn, m_order);
    showView();
    if (m_sortColumn >= 0)
        m_view->resizeColumnToContents(m_sortColumn);
}

void TablePage::setFilter(const QString &text)
{
    if (text == m_filter)
        return;
    m_filter = text;
    showView();
}

void TablePage::showView()
{
    if (!m_model->table())
        return;
    std::unique_ptr<ViewIndex> next;
    if (m_sortColumn >= 0 || !m_filter.isEmpty()) {
        QVector<int> columns;
        for (int c = 0; c < m_model->columnCount(); ++c)
            columns.append(m_model->tableColumn(c));
        // The base view's choice of rows stays; only a vector's or a sorted
        // index's own filter says which, and a list takes every row.
        const Index *admits = m_vector ? static_cast<const Index *>(m_vector)
                                       : dynamic_cast<const Index *>(m_list);
        TableLocker locker(m_table);
        next.reset(new ViewIndex(m_table, m_model->tableColumn(m_sortColumn), m_order, admits,
                                 m_filter, columns));
        next->build();
    }
    if (next)
        m_model->setIndex(static_cast<IndexIterative *>(next.get()));
    else if (m_vector)
        m_model->setIndex(m_vector);
    else
        m_model->setIndex(m_list ? m_list : m_table->masterIndex());
    TableLocker locker(m_table);
    m_index.swap(next);
    next.reset();
}
