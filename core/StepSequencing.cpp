#include "core/StepSequencing.h"

namespace vq {

// Placeholder until step sequencing lands: no step is started.
bool RunNextStep(Server&, bool, const std::string&, uint8_t) { return false; }

}  // namespace vq
