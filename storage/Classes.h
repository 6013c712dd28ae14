#pragma once
#include <cstdint>
#include <string>

namespace vq {
struct Server;
// Reads Classes.dat into the class table; true on success.
bool LoadClasses(Server& server);
// The starting CPU priority (CPUP) of the class with this letter; it is the class's maximum
// when a step starts. A letter not found is the first class.
uint8_t ClassCpuPriority(Server& server, const std::string& classLetter);
// The starting queue priority (QP) of the class with this letter.
int32_t ClassQueuePriority(Server& server, const std::string& classLetter);
}  // namespace vq
