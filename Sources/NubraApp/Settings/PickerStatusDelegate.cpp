#include "NubraApp/Settings/PickerStatusDelegate.h"

#include <QPainter>

namespace {

constexpr int gap = 24;
constexpr int rightMargin = 8;

} // namespace

void PickerStatusDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                 const QModelIndex& index) const {
    QStyledItemDelegate::paint(painter, option, index);
    const QString status = index.data(statusRole).toString();
    if (status.isEmpty())
        return;
    painter->save();
    const bool selected = option.state & QStyle::State_Selected;
    painter->setPen(option.palette.color(selected ? QPalette::HighlightedText : QPalette::PlaceholderText));
    painter->setFont(option.font);
    painter->drawText(option.rect.adjusted(0, 0, -rightMargin, 0), Qt::AlignRight | Qt::AlignVCenter, status);
    painter->restore();
}

QSize PickerStatusDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    const QString status = index.data(statusRole).toString();
    if (!status.isEmpty())
        size.rwidth() += gap + option.fontMetrics.horizontalAdvance(status) + rightMargin;
    return size;
}
