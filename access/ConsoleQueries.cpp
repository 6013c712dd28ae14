#include "access/ConsoleQueries.h"

#include <cerrno>

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

std::string LocaleDateText(const std::string& cell) {
    VqDate date = 0;
    return TryReadDate(cell, date) ? FormatLocaleDateTime(date) : cell;
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

// The columns that a list can show: a view flag of "1" or "0", not the never shown ones.
std::vector<size_t> ListColumns(const VqTable& table) {
    std::vector<size_t> columns;
    for (size_t i = 0; i < table.Columns().size(); ++i)
        if (!table.Columns()[i].viewFlag.empty()) columns.push_back(i);
    return columns;
}

ConsoleRow MakeTaskRow(Server& server, const std::vector<size_t>& columns, const VqRow& row) {
    const VqTable& table = server.tables.TaskTable;
    ConsoleRow cells{{kRowKeyCell, row.key}};
    cells.reserve(columns.size() + 2);
    for (size_t i : columns) {
        const std::string& key = table.Columns()[i].key;
        cells.emplace_back(key, key == "CurRepeat" ? NextRunText(server, row.key)
                                                   : DisplayedCellText(key, row.cells[i]));
    }
    cells.emplace_back(kElapsedCell, ElapsedText(server, table, row));
    return cells;
}

bool IsPhase(const std::string& phase) {
    return phase == kRunning || phase == kReady || phase == kWaiting || phase == kComplete;
}

}  // namespace

std::string DisplayedCellText(const std::string& columnKey, const std::string& cell) {
    if (columnKey == "CPU") return PriorityName(static_cast<uint8_t>(Val(cell)));
    if (columnKey == "Queue Priority") return std::to_string(Val(cell));
    if (columnKey == "PeakMem" || columnKey == "SPeakMem") return FormatThousands(Val(cell)) + " KB";
    if (columnKey == "Units" || columnKey == "SUnits") return FormatThousands(Val(cell));
    if (columnKey == "IO" || columnKey == "SIO") return FormatThousandsIo(Val(cell) * kIoScale);
    // No limit is kept as "000000000", so the test is on the number.
    if (columnKey == "MaxRunTime")
        return Val(cell) == 0 ? "Unlimited" : FormatTimeSpan(SecondsToTimeSpan(Val(cell)));
    if (columnKey == "SchTime" || columnKey == "SubTime") return LocaleDateText(cell);
    return cell;
}

std::vector<ConsoleRow> TaskRows(Server& server, const std::string& phase) {
    if (!phase.empty() && !IsPhase(phase))
        throw ConsoleRefusal(kNoSuchPhase, "no status phase '" + phase +
                                               "': it is one of Running, Ready, Waiting, Complete");
    const VqTable& table = server.tables.TaskTable;
    const std::vector<size_t> columns = ListColumns(table);
    const size_t statusColumn = static_cast<size_t>(table.ColumnIndex("Status"));
    std::vector<ConsoleRow> rows;
    const size_t count = table.RowCount();
    for (size_t n = 0; n < count; ++n) {
        // A group is visited from the last row to the first, the whole queue from the first.
        const VqRow& row = table.RowAt(phase.empty() ? n : count - 1 - n);
        if (phase.empty() || BaseStatus(row.cells[statusColumn]) == phase)
            rows.push_back(MakeTaskRow(server, columns, row));
    }
    return rows;
}

ConsoleRow TaskRow(Server& server, const std::string& taskKey) {
    return MakeTaskRow(server, ListColumns(server.tables.TaskTable), TaskRowOf(server, taskKey));
}

std::vector<ConsoleRow> StepRows(Server& server, const std::string& taskKey) {
    const std::string folder = WithBackslash(TaskRowOf(server, taskKey).cells[server.tables.TaskTable.ColumnIndex("RF")]);
    const VqTable& table = server.tables.StepTable;
    const std::vector<size_t> columns = ListColumns(table);
    const size_t command = static_cast<size_t>(table.ColumnIndex("Command"));
    std::vector<ConsoleRow> rows;
    // Steps are numbered from 1 without gaps, so their keys find them without a walk.
    for (int step = 1;; ++step) {
        const VqRow* row = table.FindRow(MakeStepKey(taskKey, step));
        if (!row) break;
        ConsoleRow cells{{kRowKeyCell, row->key}};
        for (size_t i : columns) cells.emplace_back(table.Columns()[i].key, DisplayedCellText(table.Columns()[i].key, row->cells[i]));
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
        throw ConsoleRefusal(kNoReport, "the report of " + taskKey + " can't be read: " + path + ": " + ErrnoText(errno));
    return text;
}

void RemoveFinishedTask(Server& server, const std::string& taskKey) {
    const VqRow& row = TaskRowOf(server, taskKey);
    const std::string status = row.cells[server.tables.TaskTable.ColumnIndex("Status")];
    if (BaseStatus(status) != kComplete)
        throw ConsoleRefusal(kNotFinished, "the task " + taskKey + " is " + status +
                                               ": only a finished task can be removed (cancel it first)");
    if (!RemoveTask(server, taskKey, true))
        throw ConsoleRefusal(kRemovalFailed, "the task " + taskKey + " could not be removed; the server log says why");
    SaveQueueDatabase(server);
    server.screen.LoadTree();
}

}  // namespace vq
