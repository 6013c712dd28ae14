#pragma once
#include <cstdint>
#include <string>

namespace vq {
struct Server;
// Starts the next runnable step of a task; true when a step was started. With `firstStep` the
// task holds no slot yet and `slot` is the one FindFreeSlot offered.
bool RunNextStep(Server& server, bool firstStep, const std::string& taskKey, uint8_t slot);
}  // namespace vq
