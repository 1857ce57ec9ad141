#include "NubraApp/History/HistoryView.h"

#include "NubraApp/Foundation/AppState.h"
#include "NubraApp/Foundation/HistoryNotifier.h"
#include "NubraApp/Foundation/Pronouncer.h"
#include "NubraApp/History/HistoryListModel.h"
#include "NubraCore/Anki/AnkiDelivery.h"
#include "NubraCore/History/HistoryExporter.h"
#include "NubraCore/Service/GlossAPI.h"
#include "NubraCore/Vocabulary/L10n.h"

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMimeDatabase>
#include <QMouseEvent>
#include <QPushButton>
#include <QSaveFile>
#include <QSet>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QThreadPool>
#include <QVBoxLayout>
#include <QWindow>

#include <algorithm>

namespace {

// A keyword of tabs and spaces only lists the recent records; line breaks do count as content.
bool isBlankKeyword(const QString& keyword) {
    return std::all_of(keyword.cbegin(), keyword.cend(), [](QChar c) {
        return c == QLatin1Char('\t') || c.category() == QChar::Separator_Space;
    });
}

// A group box title shows "&" only when doubled.
QString literalTitle(QString text) {
    return text.replace(QLatin1Char('&'), QStringLiteral("&&"));
}

void setSecondary(QWidget* widget) {
    QPalette palette = widget->palette();
    QColor color = palette.color(QPalette::WindowText);
    color.setAlphaF(0.62f);
    palette.setColor(QPalette::WindowText, color);
    widget->setPalette(palette);
}

// The system's name for a content type with its patterns; `firstPatterns` go in front, since the
// dialog gives a typed name the first pattern's suffix when the user switches filters.
QString typeFilter(const QString& mimeName, const QStringList& firstPatterns = {}) {
    const QMimeType type = QMimeDatabase().mimeTypeForName(mimeName);
    QStringList patterns = firstPatterns;
    for (const QString& pattern : type.globPatterns()) {
        if (!patterns.contains(pattern))
            patterns << pattern;
    }
    return QStringLiteral("%1 (%2)").arg(type.comment(), patterns.join(QLatin1Char(' ')));
}

QString startDirectory() {
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return !documents.isEmpty() && QFileInfo(documents).isDir() ? documents : QDir::homePath();
}

} // namespace

HistoryView::HistoryView(AppState& state, QWidget* parent)
    : QWidget(parent), m_state(state), m_model(new HistoryListModel(this)), m_rows(new HistoryRowView(this)) {
    setMinimumSize(620, 460);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(14);

    auto* searchSection = new QGroupBox(
        literalTitle(L10n::t(QStringLiteral("Search & Export"), QStringLiteral("搜索与导出"))), this);
    auto* searchLayout = new QVBoxLayout(searchSection);
    searchLayout->setSpacing(10);

    auto* searchRow = new QHBoxLayout;
    m_searchField = new QLineEdit(searchSection);
    m_searchField->setObjectName(QStringLiteral("searchField"));
    m_searchField->setPlaceholderText(L10n::t(QStringLiteral("Search (selection or explanation)"),
                                              QStringLiteral("搜索（选中内容或解释）")));
    // A screen reader would otherwise name the field after its section.
    m_searchField->setAccessibleName(m_searchField->placeholderText());
    auto* searchButton =
        new QPushButton(L10n::t(QStringLiteral("Search"), QStringLiteral("搜索")), searchSection);
    searchButton->setObjectName(QStringLiteral("searchButton"));
    searchButton->setAutoDefault(false);
    searchRow->addWidget(m_searchField, 1);
    searchRow->addWidget(searchButton);
    searchLayout->addLayout(searchRow);

    auto* buttonRow = new QHBoxLayout;
    auto* exportMarkdown = new QPushButton(
        QIcon::fromTheme(QStringLiteral("document-export")),
        L10n::t(QStringLiteral("Export Markdown"), QStringLiteral("导出 Markdown")), searchSection);
    exportMarkdown->setObjectName(QStringLiteral("exportMarkdownButton"));
    auto* exportJsonl =
        new QPushButton(QIcon::fromTheme(QStringLiteral("text-x-script")),
                        L10n::t(QStringLiteral("Export JSONL"), QStringLiteral("导出 JSONL")), searchSection);
    exportJsonl->setObjectName(QStringLiteral("exportJsonlButton"));
    auto* exportAnki =
        new QPushButton(QIcon::fromTheme(QStringLiteral("text-x-generic")),
                        L10n::t(QStringLiteral("Export Anki"), QStringLiteral("导出 Anki")), searchSection);
    exportAnki->setObjectName(QStringLiteral("exportAnkiButton"));
    exportAnki->setToolTip(
        L10n::t(QStringLiteral("A text file Anki imports: the selected records, or all "
                               "listed when none is selected"),
                QStringLiteral("Anki 可导入的文本文件：所选记录；未选择时为全部列出的记录")));
    m_addToAnki =
        new QPushButton(L10n::t(QStringLiteral("Add to Anki"), QStringLiteral("添加到 Anki")), searchSection);
    m_addToAnki->setObjectName(QStringLiteral("addToAnkiButton"));
    m_addToAnki->setEnabled(false);
    auto* clearAll =
        new QPushButton(L10n::t(QStringLiteral("Clear All"), QStringLiteral("清空全部")), searchSection);
    clearAll->setObjectName(QStringLiteral("clearAllButton"));
    QPalette destructive = clearAll->palette();
    destructive.setColor(QPalette::ButtonText, QColor(204, 36, 29));
    clearAll->setPalette(destructive);
    for (QPushButton* button : {exportMarkdown, exportJsonl, exportAnki, m_addToAnki, clearAll})
        button->setAutoDefault(false);
    buttonRow->addWidget(exportMarkdown);
    buttonRow->addWidget(exportJsonl);
    buttonRow->addWidget(exportAnki);
    buttonRow->addStretch(1);
    buttonRow->addWidget(m_addToAnki);
    buttonRow->addWidget(clearAll);
    searchLayout->addLayout(buttonRow);

    m_messageLabel = new QLabel(searchSection);
    m_messageLabel->setObjectName(QStringLiteral("messageLabel"));
    QFont caption = m_messageLabel->font();
    caption.setPixelSize(11);
    m_messageLabel->setFont(caption);
    m_messageLabel->setWordWrap(true);
    m_messageLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    setSecondary(m_messageLabel);
    m_messageLabel->hide();
    searchLayout->addWidget(m_messageLabel);
    layout->addWidget(searchSection);

    m_recordsSection = new QGroupBox(this);
    m_recordsSection->setObjectName(QStringLiteral("recordsSection"));
    auto* recordsLayout = new QVBoxLayout(m_recordsSection);
    m_recordsPages = new QStackedWidget(m_recordsSection);
    m_list = new QListView(m_recordsPages);
    m_list->setObjectName(QStringLiteral("recordList"));
    m_list->setModel(m_model);
    m_list->setItemDelegate(m_rows);
    // Rows are selected for Anki, one or many.
    m_list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // Row heights follow the width, so they are measured again on every resize; batches keep a full
    // history from stalling the first paint.
    m_list->setResizeMode(QListView::Adjust);
    m_list->setLayoutMode(QListView::Batched);
    m_list->setBatchSize(50);
    m_list->setMouseTracking(true);
    m_list->viewport()->installEventFilter(this);
    m_list->installEventFilter(this);
    m_recordsPages->addWidget(m_list);

    auto* emptyPage = new QWidget(m_recordsPages);
    auto* emptyLayout = new QVBoxLayout(emptyPage);
    emptyLayout->setContentsMargins(0, 24, 0, 24);
    auto* emptyLine = new QLabel(L10n::t(QStringLiteral("Select some text and Nubra will show up here."),
                                         QStringLiteral("选中一段文字，Nubra 会在这里出现。")),
                                 emptyPage);
    emptyLine->setObjectName(QStringLiteral("emptyLine"));
    emptyLine->setAlignment(Qt::AlignCenter);
    emptyLine->setWordWrap(true);
    setSecondary(emptyLine);
    emptyLayout->addWidget(emptyLine);
    emptyLayout->addStretch(1);
    m_recordsPages->addWidget(emptyPage);
    recordsLayout->addWidget(m_recordsPages);
    layout->addWidget(m_recordsSection, 1);

    connect(m_searchField, &QLineEdit::returnPressed, this, &HistoryView::reload);
    connect(searchButton, &QPushButton::clicked, this, &HistoryView::reload);
    connect(exportMarkdown, &QPushButton::clicked, this, [this] { startExport(ExportFormat::markdown); });
    connect(exportJsonl, &QPushButton::clicked, this, [this] { startExport(ExportFormat::jsonl); });
    connect(exportAnki, &QPushButton::clicked, this, [this] { startExport(ExportFormat::anki); });
    connect(m_addToAnki, &QPushButton::clicked, this, &HistoryView::addSelectionToAnki);
    connect(m_list->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { m_addToAnki->setEnabled(m_list->selectionModel()->hasSelection()); });
    connect(m_list, &QListView::customContextMenuRequested, this, &HistoryView::showListMenu);
    connect(clearAll, &QPushButton::clicked, this, &HistoryView::clearAll);
    // Queued: the click that asks for the delete is still being delivered to the row.
    connect(m_rows, &HistoryRowView::deleteRequested, this, &HistoryView::deleteRecord, Qt::QueuedConnection);
    connect(&HistoryNotifier::shared(), &HistoryNotifier::nubraHistoryDidUpdate, this, &HistoryView::reload);
    if (Pronouncer* pronouncer = Pronouncer::installed()) {
        // Rows draw Read Aloud once speech is known to work, and Stop while their text is read.
        for (auto change : {&Pronouncer::availabilityChanged, &Pronouncer::speakingChanged})
            connect(pronouncer, change, m_list->viewport(), qOverload<>(&QWidget::update));
    }
    connect(qApp, &QGuiApplication::focusWindowChanged, this, [this](QWindow* window) {
        if (window && window->title() == windowTitleText())
            reload();
    });

    renderRecords();
}

QString HistoryView::windowTitleText() {
    return L10n::t(QStringLiteral("History"), QStringLiteral("历史记录"));
}

const QList<HistoryRecord>& HistoryView::records() const {
    return m_model->records();
}

QFileDialog* HistoryView::exportDialog() const {
    return m_exportDialog;
}

QRect HistoryView::linkRect(int row, HistoryRowView::Link link) const {
    return m_rows->linkRect(m_list->visualRect(m_model->index(row)), link);
}

void HistoryView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (Pronouncer* pronouncer = Pronouncer::installed())
        pronouncer->prepare();
    reload();
}

bool HistoryView::eventFilter(QObject* watched, QEvent* event) {
    // The links cannot take focus, so the row under the keyboard answers Copy and Delete keys.
    if (watched == m_list && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        const QModelIndex current = m_list->currentIndex();
        if (current.isValid() && key->matches(QKeySequence::Copy)) {
            QGuiApplication::clipboard()->setText(m_model->record(current.row()).gloss);
            return true;
        }
        if (current.isValid() && key->matches(QKeySequence::Delete)) {
            deleteRecord(m_model->record(current.row()).id);
            m_list->setCurrentIndex(m_model->index(std::min(current.row(), m_model->rowCount() - 1)));
            return true;
        }
    }
    // The links are painted, not widgets: the hand cursor has to be set by hand.
    if (watched == m_list->viewport() && event->type() == QEvent::MouseMove) {
        const QPoint at = static_cast<QMouseEvent*>(event)->position().toPoint();
        const int row = m_list->indexAt(at).row();
        const bool onLink = row >= 0 && (linkRect(row, HistoryRowView::Link::speak).contains(at) ||
                                         linkRect(row, HistoryRowView::Link::copy).contains(at) ||
                                         linkRect(row, HistoryRowView::Link::remove).contains(at));
        if (onLink)
            m_list->viewport()->setCursor(Qt::PointingHandCursor);
        else
            m_list->viewport()->unsetCursor();
    }
    return QWidget::eventFilter(watched, event);
}

void HistoryView::reload() {
    // A new lookup or a search must not undo the rows picked for Anki: those still listed stay picked.
    QSet<std::int64_t> selected;
    for (const HistoryRecord& record : selectedRecords())
        selected.insert(record.id);
    const QString keyword = m_searchField->text();
    const int limit = m_state.settings().historyLimit();
    // The search keeps the blanks around the keyword; they only decide whether there is one.
    m_model->setRecords(isBlankKeyword(keyword) ? m_state.history().recent(limit)
                                                : m_state.history().search(keyword, limit));
    QItemSelection kept;
    for (int row = 0; row < m_model->rowCount(); ++row) {
        if (selected.contains(m_model->record(row).id))
            kept.select(m_model->index(row), m_model->index(row));
    }
    m_list->selectionModel()->select(kept, QItemSelectionModel::Select);
    // A reset model says nothing about the selection it dropped.
    m_addToAnki->setEnabled(!kept.isEmpty());
    renderRecords();
    if (!m_state.settings().recordHistory())
        setMessage(L10n::t(QStringLiteral("History recording is off — new lookups won't be saved."),
                           QStringLiteral("已开启「不记录历史」模式，新查询不会写入。")));
}

void HistoryView::deleteRecord(std::int64_t id) {
    m_state.history().remove(id);
    reload();
}

void HistoryView::renderRecords() {
    const qsizetype count = m_model->rowCount();
    QString title = L10n::t(QStringLiteral("Records"), QStringLiteral("记录"));
    if (count > 0)
        title += QStringLiteral("（%1）").arg(count);
    m_recordsSection->setTitle(title);
    m_recordsPages->setCurrentIndex(count > 0 ? 0 : 1);
}

void HistoryView::setMessage(const QString& text) {
    m_message = text;
    m_messageLabel->setText(text);
    m_messageLabel->show();
}

QList<HistoryRecord> HistoryView::selectedRecords() const {
    QModelIndexList rows = m_list->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end(),
              [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
    QList<HistoryRecord> records;
    for (const QModelIndex& row : rows)
        records << m_model->record(row.row());
    return records;
}

void HistoryView::showListMenu(const QPoint& at) {
    const QModelIndex under = m_list->indexAt(at);
    if (!under.isValid())
        return;
    // A right click outside the selection acts on that row alone, as file managers do.
    if (!m_list->selectionModel()->isSelected(under))
        m_list->selectionModel()->select(under, QItemSelectionModel::ClearAndSelect);
    QMenu menu(this);
    menu.addAction(L10n::t(QStringLiteral("Add to Anki"), QStringLiteral("添加到 Anki")), this,
                   &HistoryView::addSelectionToAnki);
    menu.addAction(L10n::t(QStringLiteral("Export for Anki…"), QStringLiteral("导出为 Anki 文件…")), this,
                   [this] { startExport(ExportFormat::anki); });
    menu.exec(m_list->viewport()->mapToGlobal(at));
}

void HistoryView::addSelectionToAnki() {
    const QList<HistoryRecord> records = selectedRecords();
    if (records.isEmpty())
        return;
    QList<AnkiNote> notes;
    for (const HistoryRecord& record : records)
        notes << AnkiNote::fromStored(record);
    const AppSettings& settings = m_state.settings();
    auto* delivery = new AnkiDelivery(AnkiConnect(AnkiConnect::configuredURL(), nubraDirectSession()),
                                      AnkiTextFile::pendingFolder(), this);
    m_addToAnki->setEnabled(false);
    setMessage(L10n::t(QStringLiteral("Adding to Anki…"), QStringLiteral("正在添加到 Anki…")));
    connect(delivery, &AnkiDelivery::finished, this, [this, delivery](const AnkiReport& report) {
        delivery->deleteLater();
        m_addToAnki->setEnabled(m_list->selectionModel()->hasSelection());
        setMessage(report.message());
    });
    delivery->send(notes, {settings.ankiDeck(), settings.ankiNoteType()});
}

void HistoryView::clearAll() {
    // What the user saw listed (after search and limit) is what the message reports.
    const qsizetype listed = m_model->rowCount();
    try {
        m_state.history().clear();
    } catch (const HistoryStoreError& error) {
        setMessage(L10n::t(QStringLiteral("Clear failed: "), QStringLiteral("清除失败：")) +
                   error.localizedDescription());
        return;
    }
    reload();
    if (listed > 0)
        setMessage(L10n::t(QStringLiteral("Cleared %1 record(s).").arg(listed),
                           QStringLiteral("已清除 %1 条历史。").arg(listed)));
    else
        setMessage(L10n::t(QStringLiteral("History is already empty."), QStringLiteral("历史已是空的。")));
}

void HistoryView::startExport(ExportFormat format) {
    if (m_exportDialog)
        m_exportDialog->close();
    const bool markdown = format == ExportFormat::markdown;
    const bool anki = format == ExportFormat::anki;
    auto* dialog = new QFileDialog(
        this, L10n::t(QStringLiteral("Export History"), QStringLiteral("导出历史记录")), startDirectory());
    dialog->setObjectName(QStringLiteral("exportDialog"));
    // Qt's own dialog: the GTK one would run GLib on this thread.
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    const QString anyFile = typeFilter(QStringLiteral("application/octet-stream"), {QStringLiteral("*")});
    if (anki)
        dialog->setNameFilters(
            {typeFilter(QStringLiteral("text/plain"), {QStringLiteral("*.txt")}), anyFile});
    else if (markdown)
        dialog->setNameFilters(
            {typeFilter(QStringLiteral("text/markdown")), typeFilter(QStringLiteral("text/plain")), anyFile});
    else
        dialog->setNameFilters(
            {typeFilter(QStringLiteral("application/json"), {QStringLiteral("*.jsonl")}), anyFile});
    // After the filters: choosing a filter rewrites the suffix of the name already typed.
    const QDateTime now = QDateTime::currentDateTime();
    dialog->selectFile(anki ? AnkiTextFile::suggestedFileName(now)
                            : HistoryExporter::suggestedFileName(markdown ? HistoryExporter::Format::markdown
                                                                          : HistoryExporter::Format::jsonl,
                                                                 now));
    connect(dialog, &QFileDialog::fileSelected, this,
            [this, format](const QString& path) { writeExport(format, path); });
    m_exportDialog = dialog;
    dialog->open();
}

void HistoryView::writeExport(ExportFormat format, const QString& path) {
    QList<HistoryRecord> records = m_model->records();
    QByteArray text;
    switch (format) {
    case ExportFormat::markdown:
        text = HistoryExporter::markdown(records, QDateTime::currentDateTime());
        break;
    case ExportFormat::jsonl:
        text = HistoryExporter::jsonl(records);
        break;
    case ExportFormat::anki: {
        if (m_list->selectionModel()->hasSelection())
            records = selectedRecords();
        QList<AnkiNote> notes;
        for (const HistoryRecord& record : records)
            notes << AnkiNote::fromStored(record);
        const AppSettings& settings = m_state.settings();
        text = AnkiTextFile::document(notes, {settings.ankiDeck(), settings.ankiNoteType()});
        break;
    }
    }
    const qsizetype count = records.size();
    const QString fileName = QFileInfo(path).fileName();
    // The write may meet a slow or remote disk, so it runs off the GUI thread; QSaveFile replaces the
    // destination only once every byte is on disk.
    QPointer<HistoryView> self(this);
    QThreadPool::globalInstance()->start([self, text, path, count, fileName] {
        QSaveFile file(path);
        std::optional<QString> error;
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit())
            error = file.errorString();
        QMetaObject::invokeMethod(
            qApp,
            [self, error, count, fileName] {
                if (!self)
                    return;
                if (error)
                    self->setMessage(
                        L10n::t(QStringLiteral("Export failed: "), QStringLiteral("导出失败：")) + *error);
                else
                    self->setMessage(
                        L10n::t(QStringLiteral("Exported %1 record(s) to %2").arg(count).arg(fileName),
                                QStringLiteral("已导出 %1 条到 %2").arg(count).arg(fileName)));
            },
            Qt::QueuedConnection);
    });
}
