#pragma once
// Task and step status texts and the phase of a status.
#include <string>

namespace vq {

inline const std::string kWaiting = "Waiting";
inline const std::string kWaitingHold = "Waiting - Hold";
inline const std::string kReady = "Ready";
inline const std::string kReadyHold = "Ready - Hold";
inline const std::string kRunning = "Running";
inline const std::string kRunningHold = "Running - Hold";
inline const std::string kRunningCancelling = "Running - Cancelling";
inline const std::string kComplete = "Complete";
inline const std::string kCompleteCancelled = "Complete - Cancelled";
inline const std::string kCompleteUnfinished = "Complete - Unfinished";
inline const std::string kRemoved = "Removed";
inline const std::string kHoldSuffix = " - Hold";

inline const std::string kStepPending = "Pending";
inline const std::string kStepRunning = "Running";
inline const std::string kStepComplete = "Complete";
inline const std::string kStepSkipped = "Skipped";
inline const std::string kStepCancelled = "Complete - Cancelled";

// The phase word by the first five characters: Running, Ready, Waiting, Complete, else Removed.
std::string BaseStatus(const std::string& status);

}  // namespace vq
