#include "core/TaskStatus.h"

#include <exception>

#include "core/Server.h"
#include "core/tables/Status.h"
#include "reports/ServerLog.h"
#include "reports/TaskInfo.h"

namespace vq {

bool ChangeStatus(Server& server, const std::string& taskKey, const std::string& oldStatus,
                  const std::string& newStatus) {
    if (newStatus == oldStatus) return true;
    try {
        SetCell(server.tables, kTaskTable, taskKey, "Status", newStatus);
        const std::string phase = BaseStatus(newStatus);
        if (phase == kRemoved) return true;
        WriteTaskInfo(server, taskKey);
        if (phase == kRunning)
            SetCell(server.tables, kTaskTable, taskKey, "Start", FormatDateTime(server.clock.Now()));
        else if (phase == kComplete)
            SetCell(server.tables, kTaskTable, taskKey, "End", FormatDateTime(server.clock.Now()));
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, "Error occurred while changing task's status(" + taskKey + ")!\n" + e.what());
        return false;
    }
}

}  // namespace vq
