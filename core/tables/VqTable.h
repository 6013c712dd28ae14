#pragma once
// A table of text cells: rows in a position order, each found by its unique key in O(1) on
// average; columns found by key. Column 0 is the row text itself.
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
    bool RemoveRow(std::string_view key);
    void ClearRows();
    size_t RowCount() const { return rows_.size(); }
    // Rows by position, 0-based.
    VqRow& RowAt(size_t position) { return *rows_[position]; }
    const VqRow& RowAt(size_t position) const { return *rows_[position]; }

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

    std::vector<VqColumn> columns_;
    std::vector<std::unique_ptr<VqRow>> rows_;
    // Rows live on the heap and never move, so the index holds plain pointers.
    RowIndex rowIndex_;
    int sortKey_ = 0;
    bool sortDescending_ = false;
};

}  // namespace vq
