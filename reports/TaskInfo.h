#pragma once
#include <string>

namespace vq {
struct Server;
// Rewrites Info.zki in the task's folder.
bool WriteTaskInfo(Server& server, const std::string& taskKey);
}  // namespace vq
