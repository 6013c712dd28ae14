#include "core/Repeat.h"

namespace vq {

// Placeholder until repeat and dependency land: no task is found due, so none becomes Ready.
bool CheckRepeat(Server&, const std::string&) { return false; }

// Placeholder until repeat and dependency land: no dependent is released.
bool ReleaseDependents(Server&, const std::string&) { return true; }

}  // namespace vq
