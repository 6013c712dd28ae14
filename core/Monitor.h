#pragma once

namespace vq {
struct Server;
// One tick of the running-task monitor.
void Timer3_Timer(Server& server);
}  // namespace vq
