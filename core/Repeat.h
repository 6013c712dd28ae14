#pragma once
#include <string>

namespace vq {
struct Server;
// Asks the schedule whether a run of the Waiting task is due, writes CurRepeat, NIzv and
// SchTime, and makes the task Ready when it is; a spent schedule ends the task. True when the
// task became Ready. A repeat string that can't be read fails with VqError into the caller.
bool CheckRepeat(Server& server, const std::string& taskKey);
// Marks as met the dependency of every task, not yet Complete, that waits for this task's
// name, whatever the case.
void ReleaseDependents(Server& server, const std::string& taskKey);
}  // namespace vq
