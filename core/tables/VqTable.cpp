#include "core/tables/VqTable.h"

#include <algorithm>

#include "platform/Error.h"

namespace vq {

void VqTable::ClearColumns() {
    columns_.clear();
    ClearRows();
}

void VqTable::AddColumn(VqColumn column) {
    columns_.push_back(std::move(column));
    for (auto& row : rows_) row->cells.resize(columns_.size());
}

// A table has a few dozen columns: a scan that compares lengths first beats hashing the key.
int VqTable::FindColumn(std::string_view key) const {
    for (size_t i = 0; i < columns_.size(); ++i)
        if (columns_[i].key.size() == key.size() && columns_[i].key == key) return static_cast<int>(i);
    return -1;
}

int VqTable::ColumnIndex(std::string_view key) const {
    const int index = FindColumn(key);
    if (index < 0) throw VqError("Invalid column key: " + std::string(key), 35600);
    return index;
}

bool VqTable::HasColumn(std::string_view key) const { return FindColumn(key) >= 0; }

VqRow& VqTable::AddRow(const std::string& key, const std::string& text) {
    if (rowIndex_.Find(key)) throw VqError("Key is not unique in collection: " + key, 35602);
    auto row = std::make_unique<VqRow>();
    row->key = key;
    row->cells.resize(std::max<size_t>(columns_.size(), 1));
    row->cells[0] = text;
    VqRow& added = *row;
    added.slot_ = rows_.size();
    rowIndex_.Insert(&added);
    rows_.push_back(std::move(row));
    return added;
}

VqRow* VqTable::FindRow(std::string_view key) { return rowIndex_.Find(key); }

const VqRow* VqTable::FindRow(std::string_view key) const { return rowIndex_.Find(key); }

VqRow& VqTable::Row(std::string_view key) {
    VqRow* row = FindRow(key);
    if (!row) throw VqError("Element not found: " + std::string(key), 35601);
    return *row;
}

bool VqTable::RemoveRow(std::string_view key) {
    VqRow* target = rowIndex_.Find(key);
    if (!target) return false;
    rowIndex_.Erase(key);
    target->removed_ = true;
    if (removedCount_ == 0 || target->slot_ < firstGap_) firstGap_ = target->slot_;
    ++removedCount_;
    return true;
}

void VqTable::ClearRows() {
    rowIndex_.Clear();
    rows_.clear();
    removedCount_ = 0;
}

size_t VqTable::StorageSlot(size_t position) const {
    if (removedCount_ > 0 && position >= firstGap_) CloseGaps();
    return position;
}

void VqTable::CloseGaps() const {
    std::erase_if(rows_, [](const auto& row) { return row->removed_; });
    removedCount_ = 0;
    NumberSlots();
}

void VqTable::NumberSlots() const {
    for (size_t i = 0; i < rows_.size(); ++i) rows_[i]->slot_ = i;
}

const std::string& VqTable::Cell(std::string_view rowKey, std::string_view columnKey) const {
    const int column = ColumnIndex(columnKey);
    const VqRow* row = FindRow(rowKey);
    if (!row) throw VqError("Element not found: " + std::string(rowKey), 35601);
    return row->cells[column];
}

void VqTable::SetCell(std::string_view rowKey, std::string_view columnKey, std::string value) {
    const int column = ColumnIndex(columnKey);
    Row(rowKey).cells[column] = std::move(value);
}

void VqTable::SortOn(int columnIndex, bool descending) {
    sortKey_ = columnIndex;
    sortDescending_ = descending;
    if (columnIndex < 0 || static_cast<size_t>(columnIndex) >= columns_.size()) return;
    const size_t c = static_cast<size_t>(columnIndex);
    auto before = [c, descending](const auto& a, const auto& b) {
        return descending ? b->cells[c] < a->cells[c] : a->cells[c] < b->cells[c];
    };
    if (removedCount_ > 0) CloseGaps();
    // Ageing keeps the order of most ticks: a sorted table costs one pass.
    if (std::is_sorted(rows_.begin(), rows_.end(), before)) return;
    std::stable_sort(rows_.begin(), rows_.end(), before);
    NumberSlots();
}

}  // namespace vq
