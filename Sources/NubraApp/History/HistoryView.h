#pragma once

#include "NubraApp/History/HistoryRowView.h"
#include "NubraCore/History/HistoryRecord.h"

#include <QPointer>
#include <QWidget>

#include <optional>

class AppState;
class HistoryListModel;
class QFileDialog;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListView;
class QPushButton;
class QStackedWidget;

// Browse, search, copy, delete and export past lookups. The list reloads when the view is shown, when
// the history changes (HistoryNotifier), when a window titled like the history window is activated,
// on a search, and after a clear or a delete. Main thread only.
class HistoryView final : public QWidget {
    Q_OBJECT
public:
    explicit HistoryView(AppState& state, QWidget* parent = nullptr);

    // "历史记录" / "History": the title of the window that hosts this view.
    static QString windowTitleText();

    // Lists what the search field asks for, at most the history limit, newest first.
    void reload();

    const QList<HistoryRecord>& records() const;
    const std::optional<QString>& message() const { return m_message; }
    // The save dialog of the export waiting for an answer, if any.
    QFileDialog* exportDialog() const;
    // Where a listed row's link is, in the list viewport's coordinates.
    QRect linkRect(int row, HistoryRowView::Link link) const;
    // The records of the selected rows, in list order.
    QList<HistoryRecord> selectedRecords() const;
    // Sends the selected rows to Anki (the selection's context menu and the "Add to Anki" button).
    void addSelectionToAnki();

protected:
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The Anki text file holds the selected rows, or every listed row when none is selected.
    enum class ExportFormat { markdown, jsonl, anki };

    void clearAll();
    // The row's Delete link and the Delete key: the record goes, the list follows.
    void deleteRecord(std::int64_t id);
    void startExport(ExportFormat format);
    void writeExport(ExportFormat format, const QString& path);
    void setMessage(const QString& text);
    void showListMenu(const QPoint& at);
    void renderRecords();

    AppState& m_state;
    HistoryListModel* m_model;
    HistoryRowView* m_rows;
    QLineEdit* m_searchField;
    QLabel* m_messageLabel;
    QGroupBox* m_recordsSection;
    QStackedWidget* m_recordsPages;
    QListView* m_list;
    QPushButton* m_addToAnki;
    QPointer<QFileDialog> m_exportDialog;
    std::optional<QString> m_message;
};
