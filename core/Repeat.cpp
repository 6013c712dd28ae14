#include "core/Repeat.h"

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "calendar/MUrnik.h"
#include "core/Server.h"
#include "core/TaskControl.h"
#include "core/TaskStatus.h"
#include "core/tables/Status.h"
#include "platform/Error.h"
#include "reports/TaskReport.h"
#include "storage/Classes.h"

namespace vq {
namespace {

// A repeat string that can't be cut fails the queue check with the task's key in the message.
RepeatRule TaskRepeatRule(const std::string& repeat, const std::string& taskKey) {
    try {
        return ParseRepeat(repeat);
    } catch (const VqError& e) {
        throw VqError("The schedule of the task " + taskKey + " can't be read: " + e.what(),
                      e.Number());
    }
}

RunPlan PlanOfTask(Server& server, const std::string& taskKey) {
    WorkingTables& tables = server.tables;
    const RepeatRule rule = TaskRepeatRule(GetCell(tables, kTaskTable, taskKey, "Repeat"), taskKey);
    const VqDate current = ReadDate(GetCell(tables, kTaskTable, taskKey, "CurRepeat"));
    const VqDate scheduled = ReadDate(GetCell(tables, kTaskTable, taskKey, "SchTime"));
    return NextRunTime(server.clock.Now(), current, scheduled, rule,
                       [&server](VqDate date) { return IsNonWorkDay(server, date); });
}

}  // namespace

bool CheckRepeat(Server& server, const std::string& taskKey) {
    WorkingTables& tables = server.tables;
    const std::string oldNextRun = GetCell(tables, kTaskTable, taskKey, "CurRepeat");
    const RunPlan plan = PlanOfTask(server, taskKey);
    // Written at every check, due or not.
    const std::string nextRun = FormatDateTime(plan.NextRun);
    SetCell(tables, kTaskTable, taskKey, "CurRepeat", nextRun);
    SetCell(tables, kTaskTable, taskKey, "NIzv", plan.More);
    SetCell(tables, kTaskTable, taskKey, "SchTime", FormatDateTime(plan.NextSchedule));
    if (nextRun != oldNextRun) server.screen.LoadTree();
    if (!plan.RunNow) {
        // No run is due and none follows: the schedule is spent and the task ends.
        if (!plan.More) RequestCancel(server, taskKey);
        return false;
    }
    ChangeStatus(server, taskKey, kWaiting, kReady);
    SetCell(tables, kTaskTable, taskKey, "RepCnt", static_cast<int64_t>(plan.RunCount));
    EnsureTaskFolders(server, taskKey);
    WriteReport(server, taskKey, kReady, false, "", -1, -1);
    return true;
}

void ReleaseDependents(Server& server, const std::string& taskKey) {
    std::string name;
    if (!GetRowText(server.tables, kTaskTable, taskKey, name)) return;
    name = ToUpper(name);
    VqTable& tasks = server.tables.TaskTable;
    const int dependencyColumn = tasks.ColumnIndex("Dependency");
    const int statusColumn = tasks.ColumnIndex("Status");
    for (size_t i = 0; i < tasks.RowCount(); ++i) {
        VqRow& row = tasks.RowAt(i);
        if (BaseStatus(row.cells[statusColumn]) == kComplete) continue;
        std::string& dependency = row.cells[dependencyColumn];
        // A task of the same name isn't released by it; a mark already set doesn't match.
        if (ToUpper(dependency) == name && ToUpper(row.Text()) != name) dependency = "$" + dependency;
    }
}

}  // namespace vq
