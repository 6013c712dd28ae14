#pragma once
// Whether the display that the environment names can be reached, so that a server started with
// a stale DISPLAY (a closed SSH forwarding, a session that has ended) serves without a window
// instead of failing in the toolkit.
#include <string>

namespace vq {

struct DisplayEnvironment {
    std::string display;         // DISPLAY
    std::string waylandDisplay;  // WAYLAND_DISPLAY
    std::string runtimeDir;      // XDG_RUNTIME_DIR
    std::string qtPlatform;      // QT_QPA_PLATFORM
    static DisplayEnvironment FromProcess();
};

// True when a window can be shown: a platform named outright, a Wayland socket or a local X
// socket that accepts a connection, or an X display on another host (not probed: it may be slow).
bool DisplayReachable(const DisplayEnvironment& env);

}  // namespace vq
