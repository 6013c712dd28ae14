#pragma once
// Step sequencing: which step of a task runs next, the skipping of those that don't apply, the
// start of the chosen one through the step runner link, and the task's return code.
#include <cstdint>
#include <string>

namespace vq {
struct Server;

// Starts the next runnable step of a task; true when a step was started. With `firstStep` the
// task holds no slot yet and `slot` is the one FindFreeSlot offered; otherwise it is the task's.
// A first step that fails to start cancels the task.
bool RunNextStep(Server& server, bool firstStep, const std::string& taskKey, uint8_t slot);
// The first step at or after `fromStep` whose Execute is "Yes", or 0.
int NextExecutableStep(Server& server, const std::string& taskKey, int fromStep);
// Starts exactly that step; true when the start went through. Failures are logged here, and
// whatever the start had taken (slot, runner, JobIndex) is given back.
bool StartStep(Server& server, const std::string& taskKey, uint8_t slot, int step, bool firstStep);
// After a step ended with `rc`: JobRC becomes rc unless it is 0 or 99, which stay.
void UpdateTaskRc(Server& server, const std::string& taskKey, int32_t rc);

inline constexpr int kNoTaskIndexError = 81;
inline constexpr int kTaskIndexTakenError = 80;
inline const std::string kNoTaskIndexText = "No Task Index Available.";
inline const std::string kTaskIndexTakenText = "Task Index Already Taken.";
inline const std::string kNoStepsText = "There were no steps to execute.";
// How a runner's reply text begins when the cluster can't take steps at all.
inline const std::string kClusterUnusablePrefix = "Slurm can't be used: ";
}  // namespace vq
