#include "platform/DisplayProbe.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/UniqueFd.h"

namespace vq {
namespace {

std::string EnvText(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool UnixSocketAccepts(const std::string& path) {
    sockaddr_un address{};
    if (path.empty() || path.size() >= sizeof address.sun_path) return false;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return fd.Valid() &&
           ::connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool WaylandReachable(const DisplayEnvironment& env) {
    if (env.waylandDisplay.empty()) return false;
    if (env.waylandDisplay.front() == '/') return UnixSocketAccepts(env.waylandDisplay);
    return !env.runtimeDir.empty() &&
           UnixSocketAccepts(env.runtimeDir + "/" + env.waylandDisplay);
}

// DISPLAY is [host]:number[.screen]; an empty host or "unix" is this machine's socket.
bool X11Reachable(const std::string& display) {
    const size_t colon = display.rfind(':');
    if (colon == std::string::npos) return false;
    const std::string host = display.substr(0, colon);
    if (!host.empty() && host != "unix") return true;
    const std::string number = display.substr(colon + 1, display.find('.', colon) - colon - 1);
    if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos)
        return false;
    return UnixSocketAccepts("/tmp/.X11-unix/X" + number);
}

}  // namespace

DisplayEnvironment DisplayEnvironment::FromProcess() {
    return {EnvText("DISPLAY"), EnvText("WAYLAND_DISPLAY"), EnvText("XDG_RUNTIME_DIR"),
            EnvText("QT_QPA_PLATFORM")};
}

bool DisplayReachable(const DisplayEnvironment& env) {
    if (!env.qtPlatform.empty()) return true;
    return WaylandReachable(env) || (!env.display.empty() && X11Reachable(env.display));
}

}  // namespace vq
