#pragma once
// The working tables that hold the whole queue: TaskTable and StepTable, their views, and the
// accessors by table number, row key and column key.
#include <cstdint>
#include <string>
#include <string_view>

#include "core/tables/VqTable.h"

namespace vq {

class Registry;

constexpr int16_t kTaskView = 1;
constexpr int16_t kTaskTable = 2;
constexpr int16_t kStepView = 4;
constexpr int16_t kStepTable = 5;

struct WorkingTables {
    WorkingTables();
    VqTable TaskView;
    VqTable TaskTable;
    VqTable StepView;
    VqTable StepTable;
    // Scratch list of the clearing of old task folders; no table number.
    VqTable FolList;

    // The table of a number, nullptr for a number that names none.
    VqTable* ByNumber(int16_t table);
};

// Builds the columns of TaskTable and StepTable and, from their view flags, of both views.
// The task columns whose flag is a setting read Show-<key> of section Settings.
void BuildColumns(WorkingTables& tables, Registry& reg);
// Builds TaskView's columns anew from TaskTable's flags (after the Options dialog).
void BuildViewColumns(WorkingTables& tables);
// Re-reads the Show- settings into TaskTable's view flags.
void ReadViewFlags(WorkingTables& tables, Registry& reg);

// The text of a cell; empty for a table number that names no table. A missing row or column
// fails with VqError into the caller.
std::string GetCell(WorkingTables& tables, int16_t table, std::string_view rowKey,
                    std::string_view columnKey);
// Writes a cell and returns true; does nothing for a table number that names no table.
bool SetCell(WorkingTables& tables, int16_t table, std::string_view rowKey,
             std::string_view columnKey, std::string value);
bool SetCell(WorkingTables& tables, int16_t table, std::string_view rowKey,
             std::string_view columnKey, int64_t value);
// A flag is kept as "-1" (true) or "0" (false).
bool SetCell(WorkingTables& tables, int16_t table, std::string_view rowKey,
             std::string_view columnKey, bool flag);
inline bool SetCell(WorkingTables& tables, int16_t table, std::string_view rowKey,
                    std::string_view columnKey, int value) {
    return SetCell(tables, table, rowKey, columnKey, static_cast<int64_t>(value));
}
// Avoids a text literal choosing the flag form.
inline bool SetCell(WorkingTables& tables, int16_t table, std::string_view rowKey,
                    std::string_view columnKey, const char* value) {
    return SetCell(tables, table, rowKey, columnKey, std::string(value));
}
// The position of a column among the cells of its table.
int ColumnIndex(WorkingTables& tables, int16_t table, std::string_view columnKey);
// True with the row text when the row exists; true and nothing for another table number.
bool GetRowText(WorkingTables& tables, int16_t table, std::string_view rowKey, std::string& text);

// Row keys: "000123-Nightly" and "000123-Nightly-Step2".
std::string MakeRowKey(int32_t taskNumber, const std::string& name);
std::string MakeStepKey(const std::string& taskKey, int step);
std::string StepRowText(int step);

}  // namespace vq
