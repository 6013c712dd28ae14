#pragma once
// The text of Diag1.txt: a snapshot of the step's processes.
#include <sys/types.h>

#include <string>
#include <vector>

#include "runlet/ProcReader.h"
#include "runlet/StepPlan.h"

namespace vq {

struct DiagnosticHeader {
    std::string taskId;
    std::string taskName;
    int step = 0;
    pid_t group = 0;
    std::string stepState;  // "running", "held", "ended"
    std::string takenAt;    // "yyyy-mm-dd hh:mm:ss"
};

std::string FormatDiagnostic(const DiagnosticHeader& header, const std::vector<ProcessInfo>& processes,
                             long ticksPerSecond);
// A process state letter of /proc in words.
std::string StateName(char state);
// Local time now as "yyyy-mm-dd hh:mm:ss".
std::string LocalTimeText();
// Writes `text` whole as Diag1.txt in the step's task folder (its working folder when it has
// none); gives why it could not, empty when it was written.
std::string WriteDiagnosticFile(const StepPlan& plan, const std::string& text);

}  // namespace vq
