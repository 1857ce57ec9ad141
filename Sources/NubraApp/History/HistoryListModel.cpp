#include "NubraApp/History/HistoryListModel.h"

void HistoryListModel::setRecords(QList<HistoryRecord> records) {
    beginResetModel();
    m_records = std::move(records);
    endResetModel();
}

int HistoryListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(m_records.size());
}

QVariant HistoryListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_records.size())
        return {};
    const HistoryRecord& record = m_records.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
        return record.selectedText;
    case Qt::ToolTipRole:
        return record.gloss;
    default:
        return {};
    }
}
