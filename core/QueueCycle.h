#pragma once
// The queue cycle: one tick ages every waiting priority, starts Ready tasks highest priority
// first while slots are free, and lets Waiting tasks whose time and dependency allow become Ready.
#include <cstdint>

namespace vq {

struct Server;

// A value above this bound restarts the ageing.
inline constexpr int64_t kPriorityBound = 2000000000;

void Timer1_Timer(Server& server);
// The lowest free slot number; false when none is free or the running limit is reached.
bool FindFreeSlot(Server& server, uint8_t& slot);
// Starts (Timer1 on) or stops the queue.
void QSS(Server& server, bool start);

}  // namespace vq
