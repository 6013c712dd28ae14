#pragma once
// What the tests that start real step runners share: a task that the runner accepts, step
// cells, and ticks of the monitor until a task has ended.
#include <string>

#include "access/QueueFolders.h"
#include "core/Monitor.h"
#include "core/tables/Status.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq::test {

// A task of the server's own user with `steps` steps of range 1 to 1 running `true`, its folders
// made as submission makes them.
inline std::string AddRunnableTask(TestServer& t, int number, const std::string& name, int steps,
                                   const std::string& status = "Ready") {
    const std::string key = t.AddTask(number, name, status);
    SetCell(t->tables, kTaskTable, key, "UserName", "$LOCALUSER$");
    SetTaskFolder(*t, key);
    t.AddSteps(key, steps);
    EnsureTaskFolders(*t, key);
    return key;
}

inline void SetStepCell(TestServer& t, const std::string& taskKey, int step, const char* column,
                        const std::string& value) {
    SetCell(t->tables, kStepTable, MakeStepKey(taskKey, step), column, value);
}
inline std::string StepCell(TestServer& t, const std::string& taskKey, int step,
                            const char* column) {
    return GetCell(t->tables, kStepTable, MakeStepKey(taskKey, step), column);
}
inline std::string TaskCellOf(TestServer& t, const std::string& taskKey, const char* column) {
    return GetCell(t->tables, kTaskTable, taskKey, column);
}

// Runs monitor ticks, the fake clock two seconds on for each, until the task's phase is
// Complete; false when it isn't within `limitMs` of real time.
inline bool TickUntilComplete(TestServer& t, const std::string& taskKey, int limitMs = 20000) {
    return WaitUntil(
        [&] {
            Timer3_Timer(*t);
            if (BaseStatus(TaskCellOf(t, taskKey, "Status")) == kComplete) return true;
            t.clock.Advance(2);
            return false;
        },
        limitMs);
}

}  // namespace vq::test
