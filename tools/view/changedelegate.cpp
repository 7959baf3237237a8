#include "changedelegate.h"

#include "model/tablemodel.h"

void ChangeDelegate::initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    const QVariant age = index.data(TableModel::ChangedAgoRole);
    if (!age.isValid() || age.toLongLong() >= FlashMsecs)
        return;
    QColor flash(255, 190, 40);
    flash.setAlphaF(0.75 * (1.0 - double(age.toLongLong()) / FlashMsecs));
    option->backgroundBrush = flash;
}
