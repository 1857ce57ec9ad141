#include "NubraApp/History/HistoryRowView.h"

#include "NubraApp/Foundation/Pronouncer.h"
#include "NubraApp/Foundation/SpeakerGlyph.h"
#include "NubraApp/History/HistoryListModel.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QAbstractItemView>
#include <QClipboard>
#include <QGuiApplication>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QTextLayout>

namespace {

constexpr int horizontalPadding = 12;
constexpr int verticalPadding = 8;
constexpr int itemSpacing = 6;
constexpr int captionSpacing = 6;
constexpr int linkSpacing = 14;
constexpr int iconSize = 12;
constexpr int iconGap = 4;
constexpr int headlineLines = 2;
constexpr int glossLines = 3;
// Emphasis of the explanation and the caption line, as a fraction of the text colour.
constexpr float secondaryAlpha = 0.62f;

QFont pixelFont(int pixelSize, QFont::Weight weight = QFont::Normal) {
    QFont font;
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

// `text` broken into at most `maxLines` lines of `width`; when more text remains, the last line ends
// with an ellipsis. The text's own line breaks are kept.
QStringList wrappedLines(const QString& text, const QFont& font, int width, int maxLines) {
    QString prepared = text;
    prepared.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    prepared.replace(QLatin1Char('\n'), QChar::LineSeparator);
    QStringList lines;
    if (prepared.isEmpty() || width <= 0)
        return lines;
    QTextLayout layout(prepared, font);
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    layout.beginLayout();
    while (lines.size() < maxLines) {
        QTextLine line = layout.createLine();
        if (!line.isValid())
            break;
        line.setLineWidth(width);
        const int start = line.textStart();
        const int end = start + line.textLength();
        if (lines.size() == maxLines - 1 && end < prepared.size()) {
            QString rest = prepared.mid(start);
            rest.replace(QChar::LineSeparator, QLatin1Char(' '));
            lines << QFontMetrics(font).elidedText(rest, Qt::ElideRight, width);
            break;
        }
        QString piece = prepared.mid(start, end - start);
        if (piece.endsWith(QChar::LineSeparator))
            piece.chop(1);
        lines << piece;
    }
    layout.endLayout();
    return lines;
}

int blockHeight(const QStringList& lines, const QFont& font) {
    return int(lines.size()) * QFontMetrics(font).lineSpacing();
}

QColor secondaryColor(const QPalette& palette) {
    QColor color = palette.color(QPalette::Text);
    color.setAlphaF(secondaryAlpha);
    return color;
}

QColor destructiveColor(const QPalette& palette) {
    // A red that reads on light and dark bases alike.
    return palette.color(QPalette::Base).lightness() < 128 ? QColor(255, 105, 97) : QColor(204, 36, 29);
}

QIcon linkIcon(HistoryRowView::Link link) {
    return QIcon::fromTheme(link == HistoryRowView::Link::copy ? QStringLiteral("edit-copy")
                                                               : QStringLiteral("edit-delete"));
}

bool isBeingRead(const HistoryRecord& record) {
    const Pronouncer* pronouncer = Pronouncer::installed();
    return pronouncer && !record.selectedText.isEmpty() && pronouncer->speakingText() == record.selectedText;
}

} // namespace

HistoryRowView::HistoryRowView(QObject* parent)
    : QStyledItemDelegate(parent), m_headlineFont(pixelFont(14, QFont::Bold)), m_glossFont(pixelFont(13)),
      m_captionFont(pixelFont(11)) {}

const HistoryRecord* HistoryRowView::recordAt(const QModelIndex& index) const {
    const auto* model = qobject_cast<const HistoryListModel*>(index.model());
    if (!model || !index.isValid() || index.row() >= model->rowCount())
        return nullptr;
    return &model->record(index.row());
}

QString HistoryRowView::linkText(Link link, const HistoryRecord* record) const {
    switch (link) {
    case Link::speak:
        return record && isBeingRead(*record) ? L10n::t(QStringLiteral("Stop"), QStringLiteral("停止"))
                                              : L10n::t(QStringLiteral("Read Aloud"), QStringLiteral("朗读"));
    case Link::copy:
        return L10n::t(QStringLiteral("Copy"), QStringLiteral("复制"));
    case Link::remove:
        return L10n::t(QStringLiteral("Delete"), QStringLiteral("删除"));
    }
    return {};
}

bool HistoryRowView::offersSpeech() {
    const Pronouncer* pronouncer = Pronouncer::installed();
    return pronouncer && pronouncer->isAvailable();
}

int HistoryRowView::contentWidth(const QRect& rowRect) const {
    return rowRect.width() - 2 * horizontalPadding;
}

QSize HistoryRowView::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
    const HistoryRecord* record = recordAt(index);
    if (!record)
        return {};
    // The list asks before it has placed the row: the row will span the viewport.
    const auto* view = qobject_cast<const QAbstractItemView*>(option.widget);
    const QRect row(0, 0, view ? view->viewport()->width() : option.rect.width(), 0);
    const int width = contentWidth(row);
    const QStringList headline = wrappedLines(record->selectedText, m_headlineFont, width, headlineLines);
    const QStringList gloss = wrappedLines(record->gloss, m_glossFont, width, glossLines);
    int height = 2 * verticalPadding + blockHeight(headline, m_headlineFont);
    if (!gloss.isEmpty())
        height += itemSpacing + blockHeight(gloss, m_glossFont);
    height += itemSpacing + QFontMetrics(m_captionFont).lineSpacing();
    return {row.width(), height};
}

QRect HistoryRowView::linkRect(const QRect& rowRect, Link link) const {
    // The caption line is the row's last item, so the links sit a padding above the row's bottom.
    const QFontMetrics metrics(m_captionFont);
    const int height = std::max(metrics.lineSpacing(), iconSize);
    const int top = rowRect.bottom() + 1 - verticalPadding - metrics.lineSpacing();
    auto width = [&](Link which) { return iconSize + iconGap + metrics.horizontalAdvance(linkText(which)); };
    int right = rowRect.right() + 1 - horizontalPadding;
    if (link == Link::speak && !offersSpeech())
        return {};
    if (link != Link::remove)
        right -= width(Link::remove) + linkSpacing;
    if (link == Link::speak)
        right -= width(Link::copy) + linkSpacing;
    return {right - width(link), top, width(link), height};
}

void HistoryRowView::paint(QPainter* painter, const QStyleOptionViewItem& option,
                           const QModelIndex& index) const {
    const HistoryRecord* record = recordAt(index);
    if (!record)
        return;
    painter->save();
    const QPalette& palette = option.palette;
    const QRect rect = option.rect;
    if (option.state & QStyle::State_MouseOver)
        painter->fillRect(rect, palette.color(QPalette::AlternateBase));
    // Selected rows are what "Add to Anki" takes.
    if (option.state & QStyle::State_Selected) {
        QColor selected = palette.color(QPalette::Highlight);
        selected.setAlphaF(0.18f);
        painter->fillRect(rect, selected);
    }
    // The row that keyboard Copy and Delete act on.
    if ((option.state & QStyle::State_HasFocus) && (option.state & QStyle::State_Active)) {
        QColor focus = palette.color(QPalette::Highlight);
        focus.setAlphaF(0.6f);
        painter->setPen(QPen(focus, 1));
        painter->drawRect(rect.adjusted(1, 1, -2, -2));
    }

    const int left = rect.left() + horizontalPadding;
    const int width = contentWidth(rect);
    int y = rect.top() + verticalPadding;
    auto drawLines = [&](const QStringList& lines, const QFont& font, const QColor& color) {
        const QFontMetrics metrics(font);
        painter->setFont(font);
        painter->setPen(color);
        for (const QString& line : lines) {
            painter->drawText(QPoint(left, y + metrics.ascent()), line);
            y += metrics.lineSpacing();
        }
    };
    drawLines(wrappedLines(record->selectedText, m_headlineFont, width, headlineLines), m_headlineFont,
              palette.color(QPalette::Text));
    const QStringList gloss = wrappedLines(record->gloss, m_glossFont, width, glossLines);
    if (!gloss.isEmpty()) {
        y += itemSpacing;
        drawLines(gloss, m_glossFont, secondaryColor(palette));
    }

    // Caption line: date, time, source and cost on the left, the links on the right.
    const QFontMetrics caption(m_captionFont);
    const QRect speakRect = linkRect(rect, Link::speak);
    const QRect copyRect = linkRect(rect, Link::copy);
    const QRect removeRect = linkRect(rect, Link::remove);
    const QLocale locale;
    const QDateTime local = record->createdAt.toLocalTime();
    const QStringList items = {
        locale.toString(local.date(), QLocale::ShortFormat),
        locale.toString(local.time(), QLocale::ShortFormat),
        QStringLiteral("·"),
        record->sourceApp,
        QStringLiteral("·"),
        QString::number(record->creditsCost) + L10n::t(QStringLiteral(" credits"), QStringLiteral(" 积分")),
    };
    painter->setFont(m_captionFont);
    painter->setPen(secondaryColor(palette));
    const int baseline = rect.bottom() + 1 - verticalPadding - caption.descent();
    const int captionRight = (speakRect.isNull() ? copyRect : speakRect).left() - linkSpacing;
    int x = left;
    for (const QString& item : items) {
        if (x >= captionRight)
            break;
        const QString shown = caption.elidedText(item, Qt::ElideRight, captionRight - x);
        painter->drawText(QPoint(x, baseline), shown);
        x += caption.horizontalAdvance(shown) + captionSpacing;
    }

    auto drawLink = [&](const QRect& area, Link link, const QColor& color) {
        const QRect iconArea(area.left(), area.center().y() - iconSize / 2, iconSize, iconSize);
        if (link == Link::speak)
            SpeakerGlyph::paint(*painter, iconArea, isBeingRead(*record), color);
        else if (const QIcon icon = linkIcon(link); !icon.isNull())
            icon.paint(painter, iconArea);
        painter->setPen(color);
        painter->drawText(QPoint(area.left() + iconSize + iconGap, baseline), linkText(link, record));
    };
    if (!speakRect.isNull())
        drawLink(speakRect, Link::speak, palette.color(QPalette::Link));
    drawLink(copyRect, Link::copy, palette.color(QPalette::Link));
    drawLink(removeRect, Link::remove, destructiveColor(palette));

    // A hairline between rows, as in a grouped list.
    if (index.row() + 1 < index.model()->rowCount()) {
        QColor line = palette.color(QPalette::Text);
        line.setAlphaF(0.12f);
        painter->setPen(line);
        painter->drawLine(left, rect.bottom(), rect.right() - horizontalPadding, rect.bottom());
    }
    painter->restore();
}

bool HistoryRowView::editorEvent(QEvent* event, QAbstractItemModel*, const QStyleOptionViewItem& option,
                                 const QModelIndex& index) {
    const HistoryRecord* record = recordAt(index);
    if (!record)
        return false;
    const auto type = event->type();
    if (type != QEvent::MouseButtonPress && type != QEvent::MouseButtonRelease &&
        type != QEvent::MouseButtonDblClick)
        return false;
    const auto* mouse = static_cast<QMouseEvent*>(event);
    const QPoint at = mouse->position().toPoint();
    std::optional<Link> hit;
    for (Link link : {Link::speak, Link::copy, Link::remove}) {
        if (linkRect(option.rect, link).contains(at))
            hit = link;
    }
    if (!hit || mouse->button() != Qt::LeftButton)
        return false;
    if (type == QEvent::MouseButtonRelease) {
        if (*hit == Link::speak)
            Pronouncer::installed()->toggle(record->selectedText);
        else if (*hit == Link::copy)
            QGuiApplication::clipboard()->setText(record->gloss);
        else
            emit deleteRequested(record->id);
    }
    return true;
}
