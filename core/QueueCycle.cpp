#include "core/QueueCycle.h"

#include <algorithm>
#include <exception>
#include <vector>

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

// The Ready rows in the order of a stable sort of the table on the priority text, highest
// first: the order in which the start pass meets them. Only "Ready" counts, not "Ready - Hold".
std::vector<const VqRow*> ReadyByPriority(const VqTable& tasks, int priorityColumn, int statusColumn) {
    std::vector<const VqRow*> ready;
    for (size_t i = 0; i < tasks.RowCount(); ++i)
        if (tasks.RowAt(i).cells[statusColumn] == kReady) ready.push_back(&tasks.RowAt(i));
    std::stable_sort(ready.begin(), ready.end(), [priorityColumn](const VqRow* a, const VqRow* b) {
        return b->cells[priorityColumn] < a->cells[priorityColumn];
    });
    return ready;
}

// Starts Ready tasks, highest priority first, until no slot is free.
bool StartReadyTasks(Server& server, const std::vector<std::string>& keys) {
    bool changed = false;
    for (const std::string& key : keys) {
        uint8_t slot = 0;
        if (!FindFreeSlot(server, slot)) break;
        if (RunNextStep(server, true, key, slot)) changed = true;
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
        if (!CheckRepeat(server, key)) continue;
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

        // The start pass walks the table as sorted on the priority text. Only Ready rows act
        // in that walk, so they alone are put in that order; the table keeps its own sort.
        std::vector<std::string> readyKeys;
        for (const VqRow* row : ReadyByPriority(tasks, priorityColumn, statusColumn))
            readyKeys.push_back(row->key);
        bool changed = false;
        try {
            changed = StartReadyTasks(server, readyKeys);
        } catch (...) {
            // A failure inside the start pass leaves the table sorted on the priority.
            tasks.SortOn(priorityColumn, true);
            throw;
        }
        tasks.SortOn(tasks.SortKey(), tasks.SortDescending());

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
