#pragma once
// The task info file: Info.zki in the task's folder, eleven lines that sum up one task for
// client programs.
#include <string>

namespace vq {
struct Server;

inline const std::string kTaskInfoFile = "Info.zki";

// Rewrites Info.zki in the task's folder; false after a failure, which is logged.
bool WriteTaskInfo(Server& server, const std::string& taskKey);
// The text of Info.zki for the task. A missing row or a damaged cell fails with VqError.
std::string TaskInfoText(Server& server, const std::string& taskKey);
// Appends one line: the label dotted to 20 characters, ": ", the value, CR LF.
void InfoLine(std::string& file, const std::string& label, const std::string& value);
// The value of the line "Next Run Time": "Never", the scheduled or the next repeat time, or
// "Unknown" when the cells can't be read.
std::string NextRunText(Server& server, const std::string& taskKey);
}  // namespace vq
