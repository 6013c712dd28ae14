#pragma once
// Resource accounting and limits: the sums of a step and its task from the runner's replies,
// and the check of the task's and its class's limits.
#include <string>

namespace vq {
struct Server;
// Brings the step's and the task's sums up to date from the counters of the shared reply;
// `isFinal` for the reading that follows "END ".
bool AccountStepUsage(Server& server, const std::string& taskKey, int stepNumber, bool isFinal);
// An empty text, or the message of the limits that the task has exceeded.
std::string CheckLimits(Server& server, const std::string& taskKey);
}  // namespace vq
