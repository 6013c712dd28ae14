#include "core/Monitor.h"

#include <algorithm>
#include <exception>
#include <limits>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Repeat.h"
#include "core/Server.h"
#include "core/StepSequencing.h"
#include "core/TaskControl.h"
#include "core/TaskStatus.h"
#include "core/tables/Status.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"
#include "reports/TaskInfo.h"
#include "reports/TaskReport.h"
#include "runner/Accounting.h"
#include "runner/RunnerLink.h"
#include "storage/Classes.h"
#include "storage/QueueDatabase.h"
#include "storage/Settings.h"

namespace vq {
namespace {

constexpr int kTaskInfoEvery = 6;

// What one tick has to do at its end, and what it read at its start.
struct Tick {
    bool saved = false;    // the queue database is saved at the end of the tick
    bool changed = false;  // the tree and lists are refreshed at the end of the tick
    int32_t period = 1;
    int64_t keepSeconds = 0;
    bool DiagnosticDue(const Server& server) const { return server.PollCount >= period; }
};

std::string TaskCell(Server& server, const std::string& taskKey, const char* column) {
    return GetCell(server.tables, kTaskTable, taskKey, column);
}

void SetTaskCell(Server& server, const std::string& taskKey, const char* column,
                 std::string value) {
    SetCell(server.tables, kTaskTable, taskKey, column, std::move(value));
}

int64_t TaskNumber(Server& server, const std::string& taskKey, const char* column) {
    return CellNumber(TaskCell(server, taskKey, column));
}

// NIzv holds "-1" for true; anything that reads as 0, the empty text too, is false.
bool NextRunFollows(Server& server, const std::string& taskKey) {
    return Val(TaskCell(server, taskKey, "NIzv")) != 0;
}

// The task gives its slot back and ends, whatever its rows hold: the end of a step that
// failed half-way must not be taken up again at every tick.
void AbandonTask(Server& server, const std::string& taskKey, const std::string& status,
                 uint8_t slot) {
    const bool cancelled = server.SlotState.at(slot).cancelled;
    FreeSlot(server, slot);
    server.SlotReportFile.at(slot).Reset();
    try {
        SetTaskCell(server, taskKey, "JobIndex", "");
        ChangeStatus(server, taskKey, status, cancelled ? kCompleteCancelled : kComplete);
    } catch (const std::exception&) {
        // The row itself is gone: nothing of it is left to end.
    }
}

void EndStep(Server& server, Tick& tick, const std::string& taskKey, const std::string& status,
             uint8_t slot) {
    // 1. Only the end of a step saves the queue: a long step causes no writes.
    tick.saved = true;
    SendRunnerCommand(server, slot, "END ");
    const int curStep = static_cast<int>(TaskNumber(server, taskKey, "CurStep"));
    const int allSteps = static_cast<int>(TaskNumber(server, taskKey, "AllSteps"));
    // 2. The final counters.
    AccountStepUsage(server, taskKey, curStep, true);
    // 3. The step's result.
    const int32_t rc = server.link.reply.StepRc;
    const std::string stepKey = MakeStepKey(taskKey, curStep);
    SetCell(server.tables, kStepTable, stepKey, "StepStatus", kStepComplete);
    SetCell(server.tables, kStepTable, stepKey, "StepRC", ZeroPad(rc, 2));
    // 4.-5. The report.
    if (server.link.reply.ReplyTextLength > 0)
        WriteReport(server, taskKey, "Data", false, server.link.ReplyText, slot, -1);
    WriteReport(server, taskKey, kStepComplete, true, std::to_string(curStep), slot, -1);
    RefreshReport(server, slot, taskKey);
    // 6. The task's return code.
    UpdateTaskRc(server, taskKey, rc);
    // 7. The next step, which keeps the slot.
    if (curStep < allSteps && rc != 0 && RunNextStep(server, false, taskKey, slot)) {
        WriteTaskInfo(server, taskKey);
        return;
    }
    // 8. Nothing further runs.
    EndRunningTask(server, taskKey, status, slot);
}

void EndOfStep(Server& server, Tick& tick, const std::string& taskKey, const std::string& status,
               uint8_t slot) {
    try {
        EndStep(server, tick, taskKey, status, slot);
    } catch (const std::exception&) {
        AbandonTask(server, taskKey, status, slot);
        throw;  // the tick ends and logs it
    }
}

void PollTask(Server& server, Tick& tick, const std::string& taskKey, const std::string& status,
              const std::string& jobIndex) {
    // 1. While a task runs, the screen follows it on every tick.
    tick.changed = true;
    const uint8_t slot = SlotFromJobIndex(jobIndex);
    // 2. How is the step?
    SendRunnerCommand(server, slot, "STAT");
    if (server.link.reply.RunnerState >= 4) return EndOfStep(server, tick, taskKey, status, slot);
    // 3. It still runs.
    if (server.link.reply.CountersValid == 1) {
        AccountStepUsage(server, taskKey, static_cast<int>(TaskNumber(server, taskKey, "CurStep")),
                         false);
        if (tick.DiagnosticDue(server)) RunDiagnostic(server, taskKey);
    }
    if (tick.period < kTaskInfoEvery || server.PollCount % kTaskInfoEvery == 0)
        WriteTaskInfo(server, taskKey);
    const std::string exceeded = CheckLimits(server, taskKey);
    if (exceeded.empty()) return;
    WriteReport(server, taskKey, "Data", false, exceeded, slot, -1);
    // A first limit lets the cleanup steps run; a limit exceeded in cleanup ends the task.
    if (server.SlotState.at(slot).cancelled)
        StopRunningTask(server, taskKey);
    else
        CancelRunningTask(server, taskKey);
}

void CheckRetention(Server& server, Tick& tick, const std::string& taskKey) {
    if (BaseStatus(TaskCell(server, taskKey, "Status")) != kComplete) return;
    const std::string end = TaskCell(server, taskKey, "End");
    if (end.empty()) return;  // no Complete row should have none; it stays for ever
    const VqDate deadline = AddSeconds(ReadDate(end), tick.keepSeconds);
    if (SecondsBetween(deadline, server.clock.Now()) > 0) {
        RemoveTask(server, taskKey, true);
        tick.changed = true;
    }
}

void CopyFileWhole(const std::string& from, const std::string& to) {
    std::string content, error;
    if (!ReadWholeFile(from, content)) throw VqError(from + ": " + ErrnoText(errno));
    if (!WriteFileAtomic(to, content, &error)) throw VqError(error);
}

}  // namespace

void EndRunningTask(Server& server, const std::string& taskKey, const std::string& status,
                    uint8_t slot) {
    // 1. The slot is given back.
    FreeSlot(server, slot);
    SetTaskCell(server, taskKey, "JobIndex", "");
    // 2.-3. The task's end.
    const std::string newStatus =
        server.SlotState.at(slot).cancelled ? kCompleteCancelled : kComplete;
    ChangeStatus(server, taskKey, status, newStatus);
    WriteReport(server, taskKey, newStatus, false, "", slot, -1);
    // 4. A task that asked to stop isn't run again.
    const int64_t jobRc = TaskNumber(server, taskKey, "JobRC");
    const bool repeats = NextRunFollows(server, taskKey);
    if (jobRc == 0 && repeats)
        WriteReport(server, taskKey, "Data", false, "\r\n" + kNoRepeatText + "\r\n", slot, -1);
    // 5. The report, and the active report is closed.
    RefreshReport(server, slot, taskKey);
    server.SlotReportFile.at(slot).Reset();
    // 6. Only a successful task releases its dependents.
    if (jobRc <= TaskNumber(server, taskKey, "MaxRC")) ReleaseDependents(server, taskKey);
    // 7. The next repetition.
    if (repeats && jobRc >= 1) PrepareNextRun(server, taskKey);
    WriteTaskInfo(server, taskKey);
}


int32_t DiagnosticPeriod(int64_t diagC) {
    // PollCount is 16 bits: a period it can't reach would never end, so the period is bounded.
    return static_cast<int32_t>(
        std::clamp<int64_t>(diagC / 5000, 0, std::numeric_limits<uint16_t>::max()));
}

void Timer3_Timer(Server& server) {
    // 1. The flags of this tick.
    Tick tick;
    // Settings read for many tasks (the clearing of folders at each removal) are read once.
    const Registry::ReadMemo settings(server.registry);
    try {
        // 2. The settings, read on every tick so that a change applies at once.
        Registry& reg = server.registry;
        tick.period = DiagnosticPeriod(GetSettingNumber(reg, "ServerSettings", "DiagC"));
        // Saturating, so that PollCount never overflows even when a failing tick skips the
        // reset below: with the period bounded to 65535 the count always reaches it.
        if (server.PollCount < std::numeric_limits<uint16_t>::max()) ++server.PollCount;
        tick.keepSeconds = GetSettingNumber(reg, "ServerSettings", "TIQH") * 3600 +
                           GetSettingNumber(reg, "ServerSettings", "TIQM") * 60;
        // 3. Every task, from the last row to the first, so that a removal is safe for the rows
        // still to come and a row added by a next repetition waits for the next tick.
        VqTable& tasks = server.tables.TaskTable;
        const int statusColumn = tasks.ColumnIndex("Status");
        const int jobIndexColumn = tasks.ColumnIndex("JobIndex");
        for (size_t i = tasks.RowCount(); i-- > 0;) {
            if (i >= tasks.RowCount()) continue;
            const VqRow& row = tasks.RowAt(i);
            const std::string key = row.key;
            const std::string status = row.cells[statusColumn];
            const std::string jobIndex = row.cells[jobIndexColumn];
            // A held task ("Running - Hold") is neither polled nor checked.
            if ((status == kRunning || status == kRunningCancelling) && !jobIndex.empty())
                PollTask(server, tick, key, status, jobIndex);
            CheckRetention(server, tick, key);
        }
        // 4. The end of a diagnostic period.
        if (tick.DiagnosticDue(server)) server.PollCount = 0;
    } catch (const std::exception& e) {
        // The tick ends, and with it its save and refresh.
        WriteServerLog(server,
                       std::string("Error occurred while checking tasks.\r\n\r\n") + e.what());
        return;
    }
    // 5.-6. The end of the tick.
    if (tick.saved) SaveQueueDatabase(server);
    if (tick.changed) server.screen.LoadTree();
}

bool RunDiagnostic(Server& server, const std::string& taskKey) {
    try {
        const std::string jobIndex = TaskCell(server, taskKey, "JobIndex");
        if (jobIndex.empty()) return false;
        SendRunnerCommand(server, SlotFromJobIndex(jobIndex), "DIAG", 1);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server,
                       std::string("Error occurred while running diagnostic!\n") + e.what());
        return false;
    }
}

bool PrepareNextRun(Server& server, const std::string& taskKey) {
    try {
        WorkingTables& tables = server.tables;
        // 1.-2. The new number and key.
        const int32_t number = TakeTaskNumber(server);
        const VqRow& oldTask = tables.TaskTable.Row(taskKey);
        const std::string name = oldTask.Text();
        const std::string newKey = MakeRowKey(number, name);
        const int allSteps = static_cast<int>(TaskNumber(server, taskKey, "AllSteps"));
        // 3. The steps, copied and reset.
        for (int i = 1; i <= allSteps; ++i) {
            const VqRow& oldStep = tables.StepTable.Row(MakeStepKey(taskKey, i));
            const std::vector<std::string> cells = oldStep.cells;
            const std::string stepKey = MakeStepKey(newKey, i);
            tables.StepTable.AddRow(stepKey, oldStep.Text()).cells = cells;
            const std::pair<const char*, const char*> resets[] = {
                {"Parent", nullptr},       {"StepStatus", "Pending"},
                {"StepRC", "00"},          {"STCPU", "0:00:00:00:000"},
                {"SIO", "00000000000000"}, {"SPeakMem", "000000000"},
                {"SUnits", "000000000"},   {"SSMem", "0"}};
            for (const auto& [column, value] : resets)
                SetCell(tables, kStepTable, stepKey, column, value ? std::string(value) : newKey);
        }
        // 4. The task, copied and reset.
        const std::vector<std::string> cells = oldTask.cells;
        const std::string oldFolder = TaskCell(server, taskKey, "RF");
        const int64_t allR = TaskNumber(server, taskKey, "AllR");
        const std::string className = TaskCell(server, taskKey, "Class");
        tables.TaskTable.AddRow(newKey, name).cells = cells;
        const std::pair<const char*, std::string> values[] = {
            {"Status", kWaiting},
            {"ID", ZeroPad(number, 6)},
            {"CurStep", "0000"},
            {"TCPU", "0:00:00:00:000"},
            {"Queue Priority", ZeroPad(ClassQueuePriority(server, className), 6)},
            {"IO", "00000000000000"},
            {"PeakMem", "000000000"},
            {"Units", "000000000"},
            {"Start", ""},
            {"End", ""},
            {"JobRC", "01"},
            {"AllR", ZeroPad(allR + 1, 4)},
            // The new row holds no slot, whatever the old one held when it was copied.
            {"JobIndex", ""}};
        for (const auto& [column, value] : values) SetTaskCell(server, newKey, column, value);
        // 5. A folder of its own.
        SetTaskFolder(server, newKey);
        // 6. The screen, the folders and the task file of the new run.
        server.screen.LoadTree();
        EnsureTaskFolders(server, newKey);
        CopyFileWhole(WithBackslash(oldFolder) + kOriginalTaskFile,
                      WithBackslash(TaskCell(server, newKey, "RF")) + kOriginalTaskFile);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace vq
