#pragma once
// Hold and release of a task: a waiting or ready task gets " - Hold" behind its status; a
// running one has its step process suspended and let go on.
#include <cstdint>
#include <string>

namespace vq {
struct Server;
// False when there is no such row, and for a task running its cleanup steps after a cancel,
// which is left as it is; else holds the task (a held one stays as it is), then refreshes
// the screen and the info file. A failure gives false without a message.
bool HoldTaskRow(Server& server, const std::string& taskKey);
// False when there is no such row or it isn't held; else releases it, then refreshes the
// screen and the info file. A failure gives false without a message.
bool ReleaseTaskRow(Server& server, const std::string& taskKey);
// "STOP" to the slot until the step is suspended; the task is "Running - Hold".
bool PauseRunningTask(Server& server, const std::string& taskKey, uint8_t slot);
// "STRT" to the slot until the step goes on; the task is "Running".
bool ResumeRunningTask(Server& server, const std::string& taskKey, uint8_t slot);
}  // namespace vq
