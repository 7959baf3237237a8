#ifndef TABLEDB_TOOLS_CHANGEDELEGATE_H
#define TABLEDB_TOOLS_CHANGEDELEGATE_H

#include <QStyledItemDelegate>

// Paints a cell that changed in the last moments on a background that fades
// from amber to nothing, by the model's TableModel::ChangedAgoRole.
class ChangeDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    static const int FlashMsecs = 1500;

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;
};

#endif // TABLEDB_TOOLS_CHANGEDELEGATE_H
