#pragma once

#include <QStyledItemDelegate>

#include <cstdint>

struct HistoryRecord;

// Draws one history row: the selection (two lines at most), the explanation (three lines at most) and
// a line with time, source, cost and the Read Aloud (while speech works), Copy and Delete links. One instance
// paints every row of the list, so a full history scrolls without a widget per row.
class HistoryRowView final : public QStyledItemDelegate {
    Q_OBJECT
public:
    enum class Link { speak, copy, remove };

    explicit HistoryRowView(QObject* parent = nullptr);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    // Where a link sits in a row drawn in `rowRect` (the list's viewport coordinates).
    QRect linkRect(const QRect& rowRect, Link link) const;

signals:
    // The row's Delete link was clicked.
    void deleteRequested(std::int64_t id);

protected:
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;

private:
    const HistoryRecord* recordAt(const QModelIndex& index) const;
    QString linkText(Link link, const HistoryRecord* record = nullptr) const;
    // Read Aloud shows only while the application's pronouncer can speak.
    static bool offersSpeech();
    int contentWidth(const QRect& rowRect) const;

    QFont m_headlineFont;
    QFont m_glossFont;
    QFont m_captionFont;
};
