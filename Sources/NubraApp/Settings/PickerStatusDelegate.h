#pragma once

#include <QStyledItemDelegate>

// Paints, at the right of each entry in a picker's list, a short grey note held in the entry's
// statusRole: whether that choice works here.
class PickerStatusDelegate final : public QStyledItemDelegate {
public:
    static constexpr int statusRole = Qt::UserRole + 1;

    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};
