#pragma once
#include <cstdint>

namespace vq {
struct Server;
// Loads the queue database, leading the recovery when it fails; true only when the first
// load succeeded.
bool RecoverQueueDatabase(Server& server);
// Writes both working tables to disk.
bool SaveQueueDatabase(Server& server);
// The task number counter: with `save` it writes NextTaskNumber to the setting JobNumber and
// to TaskNO.dat; without, it returns the larger of the two stored copies.
int32_t JobNumberStore(Server& server, bool save);
}  // namespace vq
