#include "core/tables/RowIndex.h"

#include <functional>

#include "core/tables/VqTable.h"

namespace vq {

uint64_t RowIndex::Hash(std::string_view key) { return std::hash<std::string_view>{}(key); }

size_t RowIndex::SlotOf(std::string_view key, uint64_t hash) const {
    const size_t mask = slots_.size() - 1;
    for (size_t i = hash & mask;; i = (i + 1) & mask) {
        const Slot& slot = slots_[i];
        if (!slot.row || (slot.hash == hash && slot.row->key == key)) return i;
    }
}

VqRow* RowIndex::Find(std::string_view key) const {
    if (size_ == 0) return nullptr;
    return slots_[SlotOf(key, Hash(key))].row;
}

bool RowIndex::Insert(VqRow* row) {
    // At most half full: probes stay short.
    if ((size_ + 1) * 2 > slots_.size()) Grow();
    const uint64_t hash = Hash(row->key);
    Slot& slot = slots_[SlotOf(row->key, hash)];
    if (slot.row) return false;
    slot = {hash, row};
    ++size_;
    return true;
}

bool RowIndex::Erase(std::string_view key) {
    if (size_ == 0) return false;
    const size_t mask = slots_.size() - 1;
    size_t hole = SlotOf(key, Hash(key));
    if (!slots_[hole].row) return false;
    // Backward shift: move each following row of the run into the hole when its home slot
    // doesn't lie between the hole and its present place.
    for (size_t next = (hole + 1) & mask; slots_[next].row; next = (next + 1) & mask) {
        const size_t home = slots_[next].hash & mask;
        const bool homeInGap = hole <= next ? (hole < home && home <= next) : (hole < home || home <= next);
        if (homeInGap) continue;
        slots_[hole] = slots_[next];
        hole = next;
    }
    slots_[hole] = Slot{};
    --size_;
    return true;
}

void RowIndex::Clear() {
    slots_.clear();
    size_ = 0;
}

void RowIndex::Grow() {
    std::vector<Slot> old = std::move(slots_);
    slots_.assign(old.empty() ? 16 : old.size() * 2, Slot{});
    const size_t mask = slots_.size() - 1;
    for (const Slot& slot : old) {
        if (!slot.row) continue;
        size_t i = slot.hash & mask;
        while (slots_[i].row) i = (i + 1) & mask;
        slots_[i] = slot;
    }
}

}  // namespace vq
