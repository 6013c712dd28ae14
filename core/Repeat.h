#pragma once
#include <string>

namespace vq {
struct Server;
// True when the task with this key became Ready.
bool CheckRepeat(Server& server, const std::string& taskKey);
}  // namespace vq
