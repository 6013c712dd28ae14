#include "core/QueueCycle.h"

#include <exception>

#include "calendar/Common.h"
#include "core/Repeat.h"
#include "core/Server.h"
#include "core/StepSequencing.h"
#include "core/tables/Status.h"
#include "reports/ServerLog.h"

namespace vq {
namespace {

void AgePriorities(VqTable& tasks, int priorityColumn, int statusColumn) {
    for (size_t i = 0; i < tasks.RowCount(); ++i) {
        std::string& priority = tasks.RowAt(i).cells[priorityColumn];
        int64_t value = priority.empty() ? 0 : CellNumber(priority);
        if (value > kPriorityBound) value = 1;
        const std::string& status = tasks.RowAt(i).cells[statusColumn];
        if (BaseStatus(status) != kComplete && !priority.empty() && value != 0)
            priority = ZeroPad(value + 1, 6);
    }
}

// Starts Ready tasks in the present order until no slot is free.
bool StartReadyTasks(Server& server, VqTable& tasks, int statusColumn) {
    bool changed = false;
    for (size_t i = 0; i < tasks.RowCount(); ++i) {
        if (tasks.RowAt(i).cells[statusColumn] != kReady) continue;
        uint8_t slot = 0;
        if (!FindFreeSlot(server, slot)) break;
        const std::string key = tasks.RowAt(i).key;
        const bool started = server.RunNextStepSeam ? server.RunNextStepSeam(server, true, key, slot)
                                                    : RunNextStep(server, true, key, slot);
        if (started) changed = true;
    }
    return changed;
}

// Lets Waiting tasks with a free or met dependency ask whether their run is due.
bool PromoteWaitingTasks(Server& server, VqTable& tasks, int statusColumn, int dependencyColumn) {
    bool changed = false;
    for (size_t i = 0; i < tasks.RowCount(); ++i) {
        if (tasks.RowAt(i).cells[statusColumn] != kWaiting) continue;
        const std::string& dependency = tasks.RowAt(i).cells[dependencyColumn];
        if (!dependency.empty() && dependency[0] != '$') continue;
        const std::string key = tasks.RowAt(i).key;
        const bool due = server.CheckRepeatSeam ? server.CheckRepeatSeam(server, key) : CheckRepeat(server, key);
        if (!due) continue;
        // The mark is spent: the name stands again for the next run.
        VqRow* row = tasks.FindRow(key);
        if (row && !row->cells[dependencyColumn].empty())
            row->cells[dependencyColumn].erase(0, 1);
        changed = true;
    }
    return changed;
}

}  // namespace

void Timer1_Timer(Server& server) {
    try {
        VqTable& tasks = server.tables.TaskTable;
        const int priorityColumn = tasks.ColumnIndex("Queue Priority");
        const int statusColumn = tasks.ColumnIndex("Status");
        const int dependencyColumn = tasks.ColumnIndex("Dependency");

        AgePriorities(tasks, priorityColumn, statusColumn);

        bool changed = false;
        const int oldSortKey = tasks.SortKey();
        const bool oldSortDescending = tasks.SortDescending();
        tasks.SortOn(priorityColumn, true);
        changed |= StartReadyTasks(server, tasks, statusColumn);
        tasks.SortOn(oldSortKey, oldSortDescending);

        changed |= PromoteWaitingTasks(server, tasks, statusColumn, dependencyColumn);
        if (changed) server.screen.LoadTree();
    } catch (const std::exception& e) {
        WriteServerLog(server, std::string("Error occurred while checking queue.\r\n\r\n") + e.what());
    }
}

bool FindFreeSlot(Server& server, uint8_t& slot) {
    if (server.RunningTaskCount >= server.MaxRunningTasks) return false;
    for (int i = 1; i <= server.SlotCount; ++i) {
        if (!server.SlotUsed[i]) {
            slot = static_cast<uint8_t>(i);
            return true;
        }
    }
    return false;
}

void QSS(Server& server, bool start) {
    server.QueueStarted = start;
    server.screen.QueueSwitched(start);
}

}  // namespace vq
