#include "core/TaskControl.h"

namespace vq {

// Placeholder until task control lands: nothing is stopped. With no step runner yet, no task
// can hold a step process.
bool KillTask(Server&, const std::string&) { return false; }

}  // namespace vq
