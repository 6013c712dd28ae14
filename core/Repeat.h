#pragma once
#include <string>

namespace vq {
struct Server;
// True when the task with this key became Ready.
bool CheckRepeat(Server& server, const std::string& taskKey);
// Marks the dependency of the tasks that wait for this one as met.
bool ReleaseDependents(Server& server, const std::string& taskKey);
}  // namespace vq
