#pragma once
// The running-task monitor: each tick polls the runner of every running task, accounts what
// its step used, enforces the limits, carries the task from step to step and to its end,
// prepares its next repetition, and takes finished tasks out of the queue when their stay is
// over.
#include <cstdint>
#include <string>

namespace vq {
struct Server;

// One tick of the running-task monitor.
void Timer3_Timer(Server& server);
// Sends "DIAG" to the task's slot; false when the task holds none. Logs its own failure.
bool RunDiagnostic(Server& server, const std::string& taskKey);
// The end of a running task whose last step is over: the slot given back, the status
// "Complete", or "Complete - Cancelled" when the slot was cancelled, changed from `status`,
// the report closed, the dependents released and the next repetition prepared as it applies.
void EndRunningTask(Server& server, const std::string& taskKey, const std::string& status,
                    uint8_t slot);
// Makes the row of the task's next repetition: new number, reset cells, new folder. False
// when something failed; what was written stays.
bool PrepareNextRun(Server& server, const std::string& taskKey);

// The diagnostic period in ticks for a DiagC in milliseconds: DiagC / 5000, bounded to what
// PollCount can count (0 to 65535).
int32_t DiagnosticPeriod(int64_t diagC);

inline const std::string kNoRepeatText = "Task will not be executed again because Task RC = 0.";
inline const std::string kOriginalTaskFile = "Original Task File.vqf";
}  // namespace vq
