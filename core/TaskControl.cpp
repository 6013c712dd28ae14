#include "core/TaskControl.h"

#include <algorithm>
#include <exception>
#include <vector>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Server.h"
#include "core/TaskStatus.h"
#include "core/tables/Status.h"
#include "reports/ServerLog.h"
#include "reports/TaskReport.h"
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

// Placeholder until task control lands: nothing is stopped.
bool KillTask(Server&, const std::string&) { return false; }

// Placeholder until task control lands: a running step isn't cancelled.
bool CancelRunningTask(Server&, const std::string&) { return false; }

// Placeholder until task control lands: a running step isn't stopped.
bool StopRunningTask(Server&, const std::string&) { return false; }

bool RequestCancel(Server& server, const std::string& taskKey) {
    std::string text;
    if (!GetRowText(server.tables, kTaskTable, taskKey, text)) return false;
    const bool result = CancelTaskRow(server, taskKey);
    server.screen.LoadTree();
    return result;
}

bool CancelTaskRow(Server& server, const std::string& taskKey) {
    try {
        const std::string status = GetCell(server.tables, kTaskTable, taskKey, "Status");
        if (status.find(kComplete) != std::string::npos) return false;
        bool result = true;
        if (!GetCell(server.tables, kTaskTable, taskKey, "JobIndex").empty()) {
            result = CancelRunningTask(server, taskKey);
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
