#pragma once
#include <cstdint>
#include <string>

namespace vq {
struct Server;
// Stops a task at once, without cleanup steps (the closing path of the server).
bool KillTask(Server& server, const std::string& taskKey);
// Cancels a task that exists, with its cleanup steps, and refreshes the screen; false when
// there is no such row.
bool RequestCancel(Server& server, const std::string& taskKey);
// Cancels whatever the task is doing; false for a finished task.
bool CancelTaskRow(Server& server, const std::string& taskKey);
// Ends the running step and looks for cleanup steps.
bool CancelRunningTask(Server& server, const std::string& taskKey);
// Ends the running step and the task.
bool StopRunningTask(Server& server, const std::string& taskKey);
// Sends "PRTY" with the priority code to the task's runner when it has one, and keeps the code
// in CPU.
bool SetRunningPriority(Server& server, const std::string& taskKey, int32_t priority);
// Takes the task and its steps out of the queue; with `deleteFolders` the old folders of the
// task's name are cleared too. The task's own folder stays.
bool RemoveTask(Server& server, const std::string& taskKey, bool deleteFolders);
}  // namespace vq
