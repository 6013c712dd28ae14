#include "core/TaskHold.h"

#include <exception>

#include "calendar/Common.h"
#include "core/Server.h"
#include "core/tables/Status.h"
#include "platform/Error.h"
#include "reports/ServerLog.h"
#include "reports/TaskInfo.h"
#include "runner/RunnerLink.h"

namespace vq {
namespace {

std::string Status(Server& server, const std::string& taskKey) {
    return GetCell(server.tables, kTaskTable, taskKey, "Status");
}

uint8_t SlotOfJobIndex(const std::string& jobIndex) {
    const int64_t slot = CellNumber(jobIndex);
    if (slot < 0 || slot >= kRunnerSlots) throw VqError("Subscript out of range", 9);
    return static_cast<uint8_t>(slot);
}

bool TaskExists(Server& server, const std::string& taskKey) {
    std::string text;
    return GetRowText(server.tables, kTaskTable, taskKey, text);
}

// The end of a hold or release, whatever its result.
void AfterHoldOrRelease(Server& server, const std::string& taskKey) {
    server.screen.LoadTree();
    WriteTaskInfo(server, taskKey);
}

}  // namespace

bool HoldTaskRow(Server& server, const std::string& taskKey) {
    try {
        if (!TaskExists(server, taskKey)) return false;
        const std::string jobIndex = GetCell(server.tables, kTaskTable, taskKey, "JobIndex");
        bool result = true;
        if (!jobIndex.empty()) {
            const uint8_t slot = SlotOfJobIndex(jobIndex);
            // A task being cancelled is on its way out: a pause would let its cleanup outlive
            // the allowance and keep its slot for as long as the hold lasts.
            if (server.SlotState.at(slot).cancelled) return false;
            result = PauseRunningTask(server, taskKey, slot);
        } else if (const std::string status = Status(server, taskKey); status.find("- Hold") == std::string::npos) {
            SetCell(server.tables, kTaskTable, taskKey, "Status", status + kHoldSuffix);
        }
        AfterHoldOrRelease(server, taskKey);
        return result;
    } catch (const std::exception&) {
        return false;
    }
}

bool ReleaseTaskRow(Server& server, const std::string& taskKey) {
    try {
        if (!TaskExists(server, taskKey)) return false;
        const std::string status = Status(server, taskKey);
        const size_t hold = status.find(kHoldSuffix);
        if (hold == std::string::npos) return false;
        const std::string jobIndex = GetCell(server.tables, kTaskTable, taskKey, "JobIndex");
        bool result = true;
        if (!jobIndex.empty())
            result = ResumeRunningTask(server, taskKey, SlotOfJobIndex(jobIndex));
        else
            SetCell(server.tables, kTaskTable, taskKey, "Status", status.substr(0, hold));
        AfterHoldOrRelease(server, taskKey);
        return result;
    } catch (const std::exception&) {
        return false;
    }
}

bool PauseRunningTask(Server& server, const std::string& taskKey, uint8_t slot) {
    try {
        SendRunnerCommandRepeating(server, slot, "STOP");
        // The Start of the run stays: this move stays inside the Running phase.
        SetCell(server.tables, kTaskTable, taskKey, "Status", kRunningHold);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, "Error occurred while trying to pause the task (" + taskKey + ")!\n" + e.what());
        return false;
    }
}

bool ResumeRunningTask(Server& server, const std::string& taskKey, uint8_t slot) {
    try {
        SetCell(server.tables, kTaskTable, taskKey, "Status", kRunning);
        SendRunnerCommandRepeating(server, slot, "STRT");
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, "Error occurred while resuming task (" + taskKey + ")!\n" + e.what());
        return false;
    }
}

}  // namespace vq
