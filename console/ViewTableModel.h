#pragma once
// A Qt table model over one display list (TaskView or StepView). It holds nothing itself: the
// task views change the table and tell the model each row and cell as it changes, so that the
// widget keeps its selection and scroll position.
#include <QAbstractTableModel>
#include <QIcon>

#include "core/tables/VqTable.h"

namespace vq {

class ViewTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    ViewTableModel(VqTable& table, QIcon rowIcon, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    // The row's key, empty for an index outside the list.
    QString KeyAt(int row) const;
    // The row of a key, -1 when it isn't in the list.
    int RowOf(const std::string& key) const;

    void BeforeInsert(size_t position);
    void AfterInsert();
    void BeforeRemove(size_t position);
    void AfterRemove();
    void BeforeReset();
    void AfterReset();
    void CellChanged(size_t position, int column);

private:
    VqTable& table_;
    QIcon rowIcon_;
};

}  // namespace vq
