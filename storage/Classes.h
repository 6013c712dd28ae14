#pragma once

namespace vq {
struct Server;
// Reads Classes.dat into the class table; true on success.
bool LoadClasses(Server& server);
}  // namespace vq
