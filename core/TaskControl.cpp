#include "core/TaskControl.h"

#include <algorithm>
#include <exception>
#include <vector>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Monitor.h"
#include "core/Server.h"
#include "core/StepSequencing.h"
#include "core/TaskStatus.h"
#include "core/tables/Status.h"
#include "reports/ServerLog.h"
#include "reports/TaskInfo.h"
#include "reports/TaskReport.h"
#include "runner/Accounting.h"
#include "runner/RunnerLink.h"
#include "storage/QueueDatabase.h"

namespace vq {
namespace {

// The steps of a task are the rows keyed by its key and "-Step1", "-Step2" and on, that
// name it as their parent: found through the row index, so that removing a task costs
// what its own rows cost, whatever the size of the queue.
void RemoveTaskSteps(Server& server, const std::string& taskKey) {
    VqTable& steps = server.tables.StepTable;
    const int parentColumn = steps.ColumnIndex("Parent");
    // A damaged count must not keep the task in the queue: read what it holds, at most the
    // four digits of its form.
    const int64_t allSteps =
        std::clamp<int64_t>(Val(GetCell(server.tables, kTaskTable, taskKey, "AllSteps")), 0, 9999);
    std::vector<std::string> keys;
    // Beyond AllSteps too, so that no step of the task outlives it whatever its count says.
    for (int step = 1;; ++step) {
        std::string key = MakeStepKey(taskKey, step);
        const VqRow* row = steps.FindRow(key);
        if (!row && step > allSteps) break;
        if (row && row->cells[parentColumn] == taskKey) keys.push_back(std::move(key));
    }
    // From the last row to the first.
    for (auto key = keys.rbegin(); key != keys.rend(); ++key) steps.RemoveRow(*key);
}

}  // namespace

bool CancelRunningTask(Server& server, const std::string& taskKey) {
    WorkingTables& tables = server.tables;
    auto taskCell = [&](const char* column) {
        return GetCell(tables, kTaskTable, taskKey, column);
    };
    try {
        // Only a task that runs and isn't cancelled yet: a held one can't be.
        const std::string jobIndex = taskCell("JobIndex");
        if (jobIndex.empty()) return false;
        const uint8_t slot = SlotFromJobIndex(jobIndex);
        SlotStateRecord& state = server.SlotState.at(slot);
        if (taskCell("Status") != kRunning || state.cancelled) return false;
        state.cancelled = true;
        SetCell(tables, kTaskTable, taskKey, "Status", kRunningCancelling);
        // The step ends; whatever the runner answered, its code is 99.
        SendRunnerCommand(server, slot, "KILL");
        SendRunnerCommand(server, slot, "END ");
        const int curStep = static_cast<int>(CellNumber(taskCell("CurStep")));
        const int allSteps = static_cast<int>(CellNumber(taskCell("AllSteps")));
        AccountStepUsage(server, taskKey, curStep, true);
        // The allowance of the cleanup.
        const auto& ponders = server.classes.Ponders;
        state.cleanupDeadline = AddSeconds(server.clock.Now(), RoundHalfEven(ponders[4]));
        state.cleanupUnitLimit =
            static_cast<int32_t>(CellNumber(taskCell("Units")) + RoundHalfEven(ponders[3]));
        const std::string stepKey = MakeStepKey(taskKey, curStep);
        SetCell(tables, kStepTable, stepKey, "StepStatus", kStepCancelled);
        SetCell(tables, kStepTable, stepKey, "StepRC", "99");
        if (server.link.reply.ReplyTextLength > 0)
            WriteReport(server, taskKey, "Data", false, server.link.ReplyText, slot, -1);
        WriteReport(server, taskKey, "Data", false, "\r\nCancelling...", slot, -1);
        WriteReport(server, taskKey, kStepCancelled, true, std::to_string(curStep), slot, -1);
        WriteReport(server, taskKey, "Data", false, "\r\nSearching for cleanup steps...", slot, -1);
        RefreshReport(server, slot, taskKey);
        if (CellNumber(taskCell("JobRC")) > 0) SetCell(tables, kTaskTable, taskKey, "JobRC", "99");
        // A later step whose range holds 99 cleans up; the monitor then ends the task.
        if (curStep < allSteps && RunNextStep(server, false, taskKey, slot)) {
            WriteTaskInfo(server, taskKey);
            return true;
        }
        EndRunningTask(server, taskKey, kRunningCancelling, slot);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server,
                       "Error occurred while canceling the task (" + taskKey + ")!\n" + e.what());
        return false;
    }
}

bool StopRunningTask(Server& server, const std::string& taskKey) {
    WorkingTables& tables = server.tables;
    auto taskCell = [&](const char* column) {
        return GetCell(tables, kTaskTable, taskKey, column);
    };
    try {
        // 1. The step ends.
        const uint8_t slot = SlotFromJobIndex(taskCell("JobIndex"));
        SendRunnerCommand(server, slot, "KILL");
        SendRunnerCommand(server, slot, "END ");
        // 2.-5. The task ends with its step; its codes stay as they are.
        if (server.link.reply.ReplyTextLength > 0)
            WriteReport(server, taskKey, "Data", false, server.link.ReplyText, slot, -1);
        ChangeStatus(server, taskKey, taskCell("Status"), kCompleteCancelled);
        const int curStep = static_cast<int>(CellNumber(taskCell("CurStep")));
        SetCell(tables, kStepTable, MakeStepKey(taskKey, curStep), "StepStatus", kStepCancelled);
        AccountStepUsage(server, taskKey, curStep, true);
        // 6. The report, and the active report is closed.
        WriteReport(server, taskKey, kStepCancelled, true, std::to_string(curStep), slot, -1);
        WriteReport(server, taskKey, kCompleteCancelled, false, "", slot, -1);
        RefreshReport(server, slot, taskKey);
        server.SlotReportFile.at(slot).Reset();
        // 7. The slot is given back.
        FreeSlot(server, slot);
        SetCell(tables, kTaskTable, taskKey, "JobIndex", "");
        // 8. Only a stop that asked for it leaves a next run; nothing is released.
        if (Val(taskCell("NIzv")) != 0 && CellNumber(taskCell("JobRC")) > 0 &&
            taskCell("RepCancel") == "1")
            PrepareNextRun(server, taskKey);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server,
                       "Error occurred while stopping the task (" + taskKey + ")!\n" + e.what());
        return false;
    }
}

bool SetRunningPriority(Server& server, const std::string& taskKey, int32_t priority) {
    try {
        const std::string jobIndex = GetCell(server.tables, kTaskTable, taskKey, "JobIndex");
        if (!jobIndex.empty())
            SendRunnerCommand(server, SlotFromJobIndex(jobIndex), "PRTY", priority);
        SetCell(server.tables, kTaskTable, taskKey, "CPU", ZeroPad(priority, 2));
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, "Error occurred while setting the task priority (" + taskKey +
                                   ")!\n" + e.what());
        return false;
    }
}

bool RequestCancel(Server& server, const std::string& taskKey) {
    std::string text;
    if (!GetRowText(server.tables, kTaskTable, taskKey, text)) return false;
    const bool result = CancelTaskRow(server, taskKey);
    server.screen.LoadTree();
    return result;
}

namespace {

// A cancel of whatever the task is doing: a running step ends through `endRunning`; a task
// without a step process ends here.
bool EndTaskRow(Server& server, const std::string& taskKey,
                bool (*endRunning)(Server&, const std::string&)) {
    try {
        const std::string status = GetCell(server.tables, kTaskTable, taskKey, "Status");
        if (status.find(kComplete) != std::string::npos) return false;
        bool result = true;
        if (!GetCell(server.tables, kTaskTable, taskKey, "JobIndex").empty()) {
            result = endRunning(server, taskKey);
        } else {
            // No step process: the task ends here, and a waiting repetition doesn't follow.
            WriteReport(server, taskKey, kCompleteCancelled, false, "", -1, -1);
            ChangeStatus(server, taskKey, status, kCompleteCancelled);
        }
        SaveQueueDatabase(server);
        return result;
    } catch (const std::exception& e) {
        WriteServerLog(server,
                       "Error occurred while killing the task (" + taskKey + ")!\n" + e.what());
        return false;
    }
}

}  // namespace

bool CancelTaskRow(Server& server, const std::string& taskKey) {
    return EndTaskRow(server, taskKey, CancelRunningTask);
}

bool KillTask(Server& server, const std::string& taskKey) {
    return EndTaskRow(server, taskKey, StopRunningTask);
}

bool RemoveTask(Server& server, const std::string& taskKey, bool deleteFolders) {
    try {
        const std::string status = GetCell(server.tables, kTaskTable, taskKey, "Status");
        ChangeStatus(server, taskKey, status, kRemoved);
        RemoveTaskSteps(server, taskKey);
        DeleteActiveMarker(server, taskKey);
        if (deleteFolders) ClearProjectFolders(server, taskKey);
        server.tables.TaskTable.RemoveRow(taskKey);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, "Error occurred while removing the task form the queue(" + taskKey +
                                   ")!\n" + e.what());
        return false;
    }
}

}  // namespace vq
