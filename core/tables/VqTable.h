#pragma once
// A table of text cells: rows in a position order, each found by its unique key in O(1) on
// average; columns found by key. Column 0 is the row text itself.
//
// A removed row leaves a gap that is closed the next time a position at or behind it is
// asked for, with one pass over the table. So removing many rows costs one pass, and a walk
// from the last row to the first that removes the row it stands on never closes a gap.
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/tables/RowIndex.h"

namespace vq {

struct VqColumn {
    std::string key;
    std::string caption;
    bool rightAligned = false;
    // "1" shown in the view, "0" hidden by the operator, "" never shown.
    std::string viewFlag;
};

struct VqRow {
    std::string key;
    std::vector<std::string> cells;  // cells[0] is the row text
    const std::string& Text() const { return cells[0]; }

private:
    friend class VqTable;
    size_t slot_ = 0;      // its place in the table's storage, gaps included
    bool removed_ = false;
};

class VqTable {
public:
    // Columns.
    void ClearColumns();
    void AddColumn(VqColumn column);
    const std::vector<VqColumn>& Columns() const { return columns_; }
    // The position of a column among the cells (0 for the row text); VqError when missing.
    int ColumnIndex(std::string_view key) const;
    bool HasColumn(std::string_view key) const;
    void SetViewFlag(size_t index, std::string flag) { columns_.at(index).viewFlag = std::move(flag); }

    // Rows. AddRow fails with VqError on a duplicate key.
    VqRow& AddRow(const std::string& key, const std::string& text);
    VqRow* FindRow(std::string_view key);
    const VqRow* FindRow(std::string_view key) const;
    // VqError when the row is missing.
    VqRow& Row(std::string_view key);
    // Takes the row out of the index at once; its storage goes when the gap is closed.
    bool RemoveRow(std::string_view key);
    void ClearRows();
    size_t RowCount() const { return rows_.size() - removedCount_; }
    // Rows by position, 0-based.
    VqRow& RowAt(size_t position) { return *rows_[StorageSlot(position)]; }
    const VqRow& RowAt(size_t position) const { return *rows_[StorageSlot(position)]; }

    // Cells; VqError when the row or column is missing.
    const std::string& Cell(std::string_view rowKey, std::string_view columnKey) const;
    void SetCell(std::string_view rowKey, std::string_view columnKey, std::string value);

    // Re-sorts the rows on the text of a column (stable). The key and direction are kept so
    // that a caller can put them back.
    void SortOn(int columnIndex, bool descending);
    int SortKey() const { return sortKey_; }
    bool SortDescending() const { return sortDescending_; }

private:
    int FindColumn(std::string_view key) const;
    // The storage slot of a position: the same while no gap lies at or before it.
    size_t StorageSlot(size_t position) const;
    // Drops the removed rows and numbers the others again; keeps their order.
    void CloseGaps() const;
    void NumberSlots() const;

    std::vector<VqColumn> columns_;
    // Positions in storage; closing the gaps is invisible to callers, hence mutable.
    mutable std::vector<std::unique_ptr<VqRow>> rows_;
    mutable size_t removedCount_ = 0;
    mutable size_t firstGap_ = 0;  // the lowest slot of a removed row, when there is one
    // Rows live on the heap and never move, so the index holds plain pointers.
    RowIndex rowIndex_;
    int sortKey_ = 0;
    bool sortDescending_ = false;
};

}  // namespace vq
