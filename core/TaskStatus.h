#pragma once
#include <string>

namespace vq {
struct Server;
// The one route of a task into a new phase: writes Status, then the info file and the Start or
// End date that the phase asks for. Equal texts write nothing.
bool ChangeStatus(Server& server, const std::string& taskKey, const std::string& oldStatus,
                  const std::string& newStatus);
}  // namespace vq
