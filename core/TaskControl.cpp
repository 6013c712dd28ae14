#include "core/TaskControl.h"

#include <exception>

#include "access/QueueFolders.h"
#include "core/Server.h"
#include "core/TaskStatus.h"
#include "core/tables/Status.h"
#include "reports/ServerLog.h"
#include "reports/TaskReport.h"
#include "storage/QueueDatabase.h"

namespace vq {

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
        // The steps go first, from the last row to the first.
        VqTable& steps = server.tables.StepTable;
        const int parentColumn = steps.ColumnIndex("Parent");
        for (size_t i = steps.RowCount(); i-- > 0;)
            if (steps.RowAt(i).cells[parentColumn] == taskKey)
                steps.RemoveRow(std::string(steps.RowAt(i).key));
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
