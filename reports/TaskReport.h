#pragma once
#include <cstdint>
#include <string>

namespace vq {
struct Server;
// Makes the text of a report entry and writes it to the task's report (slot -1) or to the
// active report of the slot, at byte `position` from 1 or at the end (-1).
bool WriteReport(Server& server, const std::string& taskKey, const std::string& entry, bool isStep,
                 const std::string& text, int slot, int32_t position);
// Rewrites the task's report from the whole active report of the slot.
bool RefreshReport(Server& server, int slot, const std::string& taskKey);
// Deletes ACTIVE.ACT in the task's folder.
bool DeleteActiveMarker(Server& server, const std::string& taskKey);
}  // namespace vq
