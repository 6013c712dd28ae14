#pragma once
// The task report: the text of each entry, the report in the task's folder and the active
// report that a running task holds open in its slot.
#include <cstdint>
#include <string>

namespace vq {
struct Server;

inline const std::string kActiveReportPrefix = "Active-";

// Makes the text of a report entry and writes it to the task's report (slot -1) or to the
// active report of the slot, at byte `position` from 1 or at the end (-1). `text` is the step
// number of a step entry, the data of "Data", empty otherwise. True for an empty "Data" entry,
// which writes nothing; false for an entry name without text and after a failure.
bool WriteReport(Server& server, const std::string& taskKey, const std::string& entry, bool isStep,
                 const std::string& text, int slot, int32_t position);
// The text of one entry; empty for an entry name without text. A missing row fails with
// VqError into the caller.
std::string ReportEntryText(Server& server, const std::string& taskKey, const std::string& entry,
                            bool isStep, const std::string& text);
// Appends the text and a line end to the task's report, creating it.
bool AppendReport(Server& server, const std::string& text, const std::string& taskKey);
// Writes the text into the open active report of the slot, at byte `position` from 1, or
// behind its end for -1.
bool WriteActiveReport(Server& server, const std::string& text, int slot, int32_t position);
// Rewrites the task's report from the whole active report of the slot and a line end. The
// active report stays open.
bool RefreshReport(Server& server, int slot, const std::string& taskKey);
// 40 dots with the text over their start, then a blank: always 41 characters.
std::string ReportLabel(const std::string& text);
// The whole seconds between two cell dates as a time span; "0 Days 0:00:00" when one is empty.
std::string ElapsedText(const std::string& from, const std::string& to);
// The paths of the task's report and of its active report.
std::string ReportPath(Server& server, const std::string& taskKey);
std::string ActiveReportPath(Server& server, const std::string& taskKey);
// Deletes ACTIVE.ACT in the task's folder.
bool DeleteActiveMarker(Server& server, const std::string& taskKey);
}  // namespace vq
