#include "core/tables/WorkingTables.h"

#include <algorithm>

#include "calendar/Common.h"
#include "platform/Error.h"
#include "core/tables/Status.h"
#include "storage/Settings.h"

namespace vq {
namespace {

enum class Flag { Always, Setting, Never };

struct ColumnDef {
    const char* key;
    const char* caption;
    Flag flag;
    bool rightAligned;
};

const ColumnDef kTaskColumns[] = {
    {"JobName", "Task Name", Flag::Always, false},
    {"ID", "ID Number", Flag::Always, false},
    {"Status", "Task Status", Flag::Always, false},
    {"Class", "Class", Flag::Setting, false},
    {"UserName", "User Name", Flag::Setting, false},
    {"Password", "Password", Flag::Never, false},
    {"Domain", "Domain", Flag::Setting, false},
    {"Server", "Computer", Flag::Setting, false},
    {"JobReport", "Task Report File", Flag::Never, false},
    {"Dependency", "Dependent Task", Flag::Setting, false},
    {"Queue Priority", "Queue Priority", Flag::Setting, false},
    {"CPU", "CPU Priority", Flag::Setting, false},
    {"SchTime", "Scheduled Time", Flag::Setting, false},
    {"Repeat", "Task Repeat", Flag::Never, false},
    {"AllR", "Repetition", Flag::Setting, false},
    {"CurRepeat", "Next Run Time", Flag::Setting, false},
    {"SubTime", "Submit Time", Flag::Setting, false},
    {"JobIndex", "Task Index", Flag::Never, false},
    {"CurStep", "Current Step", Flag::Setting, false},
    {"AllSteps", "All Steps", Flag::Setting, false},
    {"JobRC", "Task RC", Flag::Setting, false},
    {"MaxRC", "Max RC", Flag::Setting, false},
    {"NIzv", "NIzv", Flag::Never, false},
    {"RepCnt", "RepCnt", Flag::Never, false},
    {"RF", "Root Folder", Flag::Never, false},
    {"MaxRunTime", "Max Running Time", Flag::Setting, false},
    {"PeakMem", "Peak Mem Usage", Flag::Setting, true},
    {"IO", "I/O Count", Flag::Setting, true},
    {"TCPU", "CPU Time", Flag::Setting, true},
    {"Units", "System Units", Flag::Setting, true},
    {"RepCancel", "RepCancel", Flag::Never, false},
    {"Start", "Start", Flag::Never, false},
    {"End", "End", Flag::Never, false},
};

const ColumnDef kStepColumns[] = {
    {"Steps", "Steps", Flag::Always, false},
    {"StepStatus", "Step Status", Flag::Always, false},
    {"Execute", "Execute", Flag::Always, false},
    {"StepRC", "Step RC", Flag::Always, false},
    {"SPeakMem", "Peak Mem Usage", Flag::Always, true},
    {"SSMem", "Mem Usage In System Units ", Flag::Never, false},
    {"SIO", "I/O Count", Flag::Always, true},
    {"STCPU", "CPU Time", Flag::Always, true},
    {"SUnits", "System Units", Flag::Always, true},
    {"MinRC", "Min RC", Flag::Always, false},
    {"MaxRC", "Max RC", Flag::Always, false},
    {"Command", "Command", Flag::Never, false},
    {"FileRC", "FileRC", Flag::Never, false},
    {"WorkDir", "Working Directory", Flag::Never, false},
    {"Environ", "Environment", Flag::Never, false},
    {"BuffHeight", "Buffer Height", Flag::Never, false},
    {"BuffWidth", "Buffer Widht", Flag::Never, false},
    {"Parent", "Parent", Flag::Never, false},
};

std::string ViewFlag(const ColumnDef& def, Registry* reg) {
    switch (def.flag) {
        case Flag::Always: return "1";
        case Flag::Never: return "";
        case Flag::Setting:
            return reg ? GetSettingText(*reg, "Settings", std::string("Show-") + def.key) : "1";
    }
    return "";
}

template <size_t N>
void BuildTable(VqTable& table, const ColumnDef (&defs)[N], Registry* reg) {
    table.ClearColumns();
    for (const ColumnDef& def : defs)
        table.AddColumn({def.key, def.caption, def.rightAligned, ViewFlag(def, reg)});
}

void BuildView(VqTable& view, const VqTable& table) {
    view.ClearColumns();
    for (const VqColumn& column : table.Columns())
        if (column.viewFlag == "1") view.AddColumn(column);
}

VqTable& TableOrFail(WorkingTables& tables, int16_t table) {
    VqTable* found = tables.ByNumber(table);
    if (!found) throw VqError("Invalid table number " + std::to_string(table));
    return *found;
}

}  // namespace

WorkingTables::WorkingTables() {
    FolList.AddColumn({"Folder", "Folder", false, ""});
    FolList.AddColumn({"Time", "Time", false, ""});
}

VqTable* WorkingTables::ByNumber(int16_t table) {
    switch (table) {
        case kTaskView: return &TaskView;
        case kTaskTable: return &TaskTable;
        case kStepView: return &StepView;
        case kStepTable: return &StepTable;
        default: return nullptr;
    }
}

void BuildColumns(WorkingTables& tables, Registry& reg) {
    BuildTable(tables.TaskTable, kTaskColumns, &reg);
    BuildTable(tables.StepTable, kStepColumns, nullptr);
    BuildView(tables.TaskView, tables.TaskTable);
    BuildView(tables.StepView, tables.StepTable);
}

void BuildViewColumns(WorkingTables& tables) { BuildView(tables.TaskView, tables.TaskTable); }

void ReadViewFlags(WorkingTables& tables, Registry& reg) {
    // Only the flags change; the rows and cells of TaskTable stay as they are.
    VqTable rebuilt;
    BuildTable(rebuilt, kTaskColumns, &reg);
    const size_t count = std::min(tables.TaskTable.Columns().size(), rebuilt.Columns().size());
    for (size_t i = 0; i < count; ++i) tables.TaskTable.SetViewFlag(i, rebuilt.Columns()[i].viewFlag);
}

std::string GetCell(WorkingTables& tables, int16_t table, std::string_view rowKey,
                    std::string_view columnKey) {
    VqTable* found = tables.ByNumber(table);
    return found ? found->Cell(rowKey, columnKey) : std::string();
}

bool SetCell(WorkingTables& tables, int16_t table, std::string_view rowKey,
             std::string_view columnKey, std::string value) {
    if (VqTable* found = tables.ByNumber(table)) found->SetCell(rowKey, columnKey, std::move(value));
    return true;
}

bool SetCell(WorkingTables& tables, int16_t table, std::string_view rowKey,
             std::string_view columnKey, int64_t value) {
    return SetCell(tables, table, rowKey, columnKey, std::to_string(value));
}

bool SetCell(WorkingTables& tables, int16_t table, std::string_view rowKey,
             std::string_view columnKey, bool flag) {
    return SetCell(tables, table, rowKey, columnKey, std::string(flag ? "-1" : "0"));
}

int ColumnIndex(WorkingTables& tables, int16_t table, std::string_view columnKey) {
    return TableOrFail(tables, table).ColumnIndex(columnKey);
}

bool GetRowText(WorkingTables& tables, int16_t table, std::string_view rowKey, std::string& text) {
    VqTable* found = tables.ByNumber(table);
    if (!found) return true;
    const VqRow* row = found->FindRow(rowKey);
    if (!row) return false;
    text = row->Text();
    return true;
}

std::string MakeRowKey(int32_t taskNumber, const std::string& name) {
    return ZeroPad(taskNumber, 6) + "-" + name;
}

std::string MakeStepKey(const std::string& taskKey, int step) {
    return taskKey + "-Step" + std::to_string(step);
}

std::string StepRowText(int step) { return "Step " + ZeroPad(step, 4); }

std::string BaseStatus(const std::string& status) {
    const std::string head = status.substr(0, 5);
    if (head == "Runni") return kRunning;
    if (head == "Ready") return kReady;
    if (head == "Waiti") return kWaiting;
    if (head == "Compl") return kComplete;
    return kRemoved;
}

}  // namespace vq
