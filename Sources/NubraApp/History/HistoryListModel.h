#pragma once

#include "NubraCore/History/HistoryRecord.h"

#include <QAbstractListModel>
#include <QList>

// The records the history window lists, newest first. The rows are drawn by HistoryRowView.
class HistoryListModel final : public QAbstractListModel {
    Q_OBJECT
public:
    using QAbstractListModel::QAbstractListModel;

    void setRecords(QList<HistoryRecord> records);
    const QList<HistoryRecord>& records() const { return m_records; }
    const HistoryRecord& record(int row) const { return m_records.at(row); }

    int rowCount(const QModelIndex& parent = {}) const override;
    // The selected text, so that accessibility and keyboard search see something sensible.
    QVariant data(const QModelIndex& index, int role) const override;

private:
    QList<HistoryRecord> m_records;
};
