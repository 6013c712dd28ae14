#include "console/ViewTableModel.h"

namespace vq {

ViewTableModel::ViewTableModel(VqTable& table, QIcon rowIcon, QObject* parent)
    : QAbstractTableModel(parent), table_(table), rowIcon_(std::move(rowIcon)) {}

int ViewTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(table_.RowCount());
}

int ViewTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(table_.Columns().size());
}

QVariant ViewTableModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const VqRow& row = table_.RowAt(static_cast<size_t>(index.row()));
    switch (role) {
        case Qt::DisplayRole:
        case Qt::ToolTipRole: {
            const size_t column = static_cast<size_t>(index.column());
            return column < row.cells.size() ? QString::fromStdString(row.cells[column]) : QString();
        }
        case Qt::DecorationRole:
            return index.column() == 0 ? QVariant(rowIcon_) : QVariant();
        case Qt::TextAlignmentRole:
            return QVariant::fromValue(
                Qt::AlignVCenter |
                (table_.Columns()[static_cast<size_t>(index.column())].rightAligned ? Qt::AlignRight
                                                                                    : Qt::AlignLeft));
        default:
            return {};
    }
}

QVariant ViewTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || section < 0 ||
        static_cast<size_t>(section) >= table_.Columns().size())
        return {};
    const VqColumn& column = table_.Columns()[static_cast<size_t>(section)];
    if (role == Qt::DisplayRole) return QString::fromStdString(column.caption);
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(Qt::AlignVCenter |
                                   (column.rightAligned ? Qt::AlignRight : Qt::AlignLeft));
    return {};
}

QString ViewTableModel::KeyAt(int row) const {
    if (row < 0 || row >= rowCount()) return {};
    return QString::fromStdString(table_.RowAt(static_cast<size_t>(row)).key);
}

int ViewTableModel::RowOf(const std::string& key) const {
    if (key.empty() || !table_.FindRow(key)) return -1;
    for (size_t i = 0; i < table_.RowCount(); ++i)
        if (table_.RowAt(i).key == key) return static_cast<int>(i);
    return -1;
}

void ViewTableModel::BeforeInsert(size_t position) {
    beginInsertRows({}, static_cast<int>(position), static_cast<int>(position));
}

void ViewTableModel::AfterInsert() { endInsertRows(); }

void ViewTableModel::BeforeRemove(size_t position) {
    beginRemoveRows({}, static_cast<int>(position), static_cast<int>(position));
}

void ViewTableModel::AfterRemove() { endRemoveRows(); }

void ViewTableModel::BeforeReset() { beginResetModel(); }

void ViewTableModel::AfterReset() { endResetModel(); }

void ViewTableModel::CellChanged(size_t position, int column) {
    const QModelIndex at = index(static_cast<int>(position), column);
    Q_EMIT dataChanged(at, at, {Qt::DisplayRole, Qt::ToolTipRole});
}

}  // namespace vq
