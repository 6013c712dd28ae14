#include "core/Monitor.h"

namespace vq {

// Placeholder until the running-task monitor lands: there is nothing to poll yet.
void Timer3_Timer(Server&) {}

}  // namespace vq
