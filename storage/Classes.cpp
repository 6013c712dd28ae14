#include "storage/Classes.h"

namespace vq {

// Placeholder until the class file lands: the classes keep their defaults.
bool LoadClasses(Server&) { return true; }

// Placeholder until the class table lands: every class has the default CPUP, 22 (Normal 2).
uint8_t ClassCpuPriority(Server&, const std::string&) { return 22; }

// Placeholder until the class table lands: every class has the default QP, 0.
int32_t ClassQueuePriority(Server&, const std::string&) { return 0; }

}  // namespace vq
