#include "access/ConsoleQueries.h"

#include <algorithm>
#include <cerrno>

#include "access/DisplayedText.h"
#include "calendar/Common.h"
#include "calendar/DateTime.h"
#include "core/Server.h"
#include "core/TaskControl.h"
#include "core/tables/CpuTime.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "reports/TaskInfo.h"
#include "reports/TaskReport.h"
#include "runner/Accounting.h"
#include "storage/Classes.h"
#include "storage/QueueDatabase.h"

namespace vq {
namespace {

const VqRow& TaskRowOf(Server& server, const std::string& taskKey) {
    const VqRow* row = server.tables.TaskTable.FindRow(taskKey);
    if (!row) throw ConsoleRefusal(kNoSuchTask, "no task " + taskKey + " in the queue");
    return *row;
}

// How long the run took, or has taken so far; empty before the first start.
std::string ElapsedText(Server& server, const VqTable& table, const VqRow& row) {
    const std::string& start = row.cells[table.ColumnIndex("Start")];
    const std::string& end = row.cells[table.ColumnIndex("End")];
    VqDate from = 0, to = 0;
    if (start.empty() || !TryReadDate(start, from)) return {};
    if (end.empty() || !TryReadDate(end, to)) to = server.clock.Now();
    return FormatTimeSpan(SecondsToTimeSpan(SecondsBetween(from, to)));
}

// Where a cell of a console row comes from: a column of the table, or one of the cells
// worked out from the row.
struct CellSource {
    enum Kind { Column, Key, NextRun, Elapsed } kind;
    std::string name;
    size_t column = 0;
};

// The columns that a list can show: a view flag of "1" or "0", not the never shown ones.
std::vector<CellSource> ListCells(const VqTable& table) {
    std::vector<CellSource> cells;
    for (size_t i = 0; i < table.Columns().size(); ++i) {
        const std::string& key = table.Columns()[i].key;
        if (!table.Columns()[i].viewFlag.empty())
            cells.push_back(
                {key == "CurRepeat" ? CellSource::NextRun : CellSource::Column, key, i});
    }
    return cells;
}

std::vector<CellSource> TaskCells(const VqTable& table) {
    std::vector<CellSource> cells = ListCells(table);
    cells.insert(cells.begin(), {CellSource::Key, kRowKeyCell});
    cells.push_back({CellSource::Elapsed, kElapsedCell});
    return cells;
}

// The cells of `all` that `names` names, in the order of `names`; all of them for none.
std::vector<CellSource> ChosenCells(std::vector<CellSource> all,
                                    const std::vector<std::string>& names) {
    if (names.empty()) return all;
    std::vector<CellSource> chosen;
    for (const std::string& name : names) {
        const auto found = std::find_if(all.begin(), all.end(),
                                        [&](const CellSource& c) { return c.name == name; });
        if (found == all.end())
            throw ConsoleRefusal(kNoSuchCell, "no cell '" + name + "' in a task's row");
        chosen.push_back(*found);
    }
    return chosen;
}

ConsoleRow MakeTaskRow(Server& server, const std::vector<CellSource>& cells, const VqRow& row) {
    const VqTable& table = server.tables.TaskTable;
    ConsoleRow result;
    result.reserve(cells.size());
    for (const CellSource& cell : cells) {
        switch (cell.kind) {
            case CellSource::Column:
                result.emplace_back(cell.name,
                                    DisplayedCellText(kTaskTable, cell.name, row.cells[cell.column]));
                break;
            case CellSource::Key:
                result.emplace_back(cell.name, row.key);
                break;
            case CellSource::NextRun:
                result.emplace_back(cell.name, NextRunText(server, row.key));
                break;
            case CellSource::Elapsed:
                result.emplace_back(cell.name, ElapsedText(server, table, row));
                break;
        }
    }
    return result;
}

bool IsPhase(const std::string& phase) {
    return phase == kRunning || phase == kReady || phase == kWaiting || phase == kComplete;
}

}  // namespace

std::vector<ConsoleRow> TaskRows(Server& server, const std::string& phase,
                                 const std::vector<std::string>& cellNames) {
    if (!phase.empty() && !IsPhase(phase))
        throw ConsoleRefusal(kNoSuchPhase, "no status phase '" + phase +
                                               "': it is one of Running, Ready, Waiting, Complete");
    const VqTable& table = server.tables.TaskTable;
    const std::vector<CellSource> cells = ChosenCells(TaskCells(table), cellNames);
    const size_t statusColumn = static_cast<size_t>(table.ColumnIndex("Status"));
    std::vector<ConsoleRow> rows;
    const size_t count = table.RowCount();
    for (size_t n = 0; n < count; ++n) {
        // A group is visited from the last row to the first, the whole queue from the first.
        const VqRow& row = table.RowAt(phase.empty() ? n : count - 1 - n);
        if (phase.empty() || BaseStatus(row.cells[statusColumn]) == phase)
            rows.push_back(MakeTaskRow(server, cells, row));
    }
    return rows;
}

ConsoleRow TaskRow(Server& server, const std::string& taskKey) {
    return MakeTaskRow(server, TaskCells(server.tables.TaskTable), TaskRowOf(server, taskKey));
}

std::vector<ConsoleRow> StepRows(Server& server, const std::string& taskKey) {
    const std::string folder =
        WithBackslash(TaskRowOf(server, taskKey).cells[server.tables.TaskTable.ColumnIndex("RF")]);
    const VqTable& table = server.tables.StepTable;
    const std::vector<CellSource> columns = ListCells(table);
    const size_t command = static_cast<size_t>(table.ColumnIndex("Command"));
    std::vector<ConsoleRow> rows;
    // Steps are numbered from 1 without gaps, so their keys find them without a walk.
    for (int step = 1;; ++step) {
        const VqRow* row = table.FindRow(MakeStepKey(taskKey, step));
        if (!row) break;
        ConsoleRow cells{{kRowKeyCell, row->key}};
        for (const CellSource& c : columns)
            cells.emplace_back(c.name, DisplayedCellText(kStepTable, c.name, row->cells[c.column]));
        cells.emplace_back("Command", row->cells[command]);
        // Where the step runner appends what the step prints.
        cells.emplace_back(kOutputFileCell, folder + "Step" + std::to_string(step) + ".txt");
        rows.push_back(std::move(cells));
    }
    return rows;
}

std::string TaskReportText(Server& server, const std::string& taskKey) {
    TaskRowOf(server, taskKey);
    const std::string path = ReportPath(server, taskKey);
    std::string text;
    if (!ReadWholeFile(path, text))
        throw ConsoleRefusal(kNoReport, "the report of " + taskKey + " can't be read: " + path +
                                            ": " + ErrnoText(errno));
    return text;
}

void RemoveFinishedTask(Server& server, const std::string& taskKey) {
    const VqRow& row = TaskRowOf(server, taskKey);
    const std::string status = row.cells[server.tables.TaskTable.ColumnIndex("Status")];
    if (BaseStatus(status) != kComplete)
        throw ConsoleRefusal(kNotFinished,
                             "the task " + taskKey + " is " + status +
                                 ": only a finished task can be removed (cancel it first)");
    if (!RemoveTask(server, taskKey, true))
        throw ConsoleRefusal(kRemovalFailed, "the task " + taskKey +
                                                 " could not be removed; the server log says why");
    SaveQueueDatabase(server);
    server.screen.LoadTree();
}

}  // namespace vq
