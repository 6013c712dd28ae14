#pragma once
#include <string>

namespace vq {
struct Server;
// Stops a task at once, without cleanup steps (the closing path of the server).
bool KillTask(Server& server, const std::string& taskKey);
}  // namespace vq
