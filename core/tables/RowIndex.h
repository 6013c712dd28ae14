#pragma once
// The index of a table's rows by key: open addressing with linear probing in one flat array of
// (hash, row) pairs, so that a lookup touches one slot and the row it finds. Removal shifts
// the following slots back instead of leaving tombstones, so lookups stay as fast after it.
#include <cstdint>
#include <string_view>
#include <vector>

namespace vq {

struct VqRow;

class RowIndex {
public:
    VqRow* Find(std::string_view key) const;
    // False when a row of that key is there already.
    bool Insert(VqRow* row);
    bool Erase(std::string_view key);
    void Clear();
    size_t Size() const { return size_; }

private:
    struct Slot {
        uint64_t hash = 0;
        VqRow* row = nullptr;
    };
    static uint64_t Hash(std::string_view key);
    size_t SlotOf(std::string_view key, uint64_t hash) const;  // the key's slot or an empty one
    void Grow();

    std::vector<Slot> slots_;
    size_t size_ = 0;
};

}  // namespace vq
