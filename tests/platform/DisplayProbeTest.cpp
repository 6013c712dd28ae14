// Whether the display that the environment names answers.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>

#include "platform/DisplayProbe.h"
#include "platform/UniqueFd.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

// A socket that listens at `path`, as a compositor's does.
UniqueFd Listen(const std::string& path) {
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    EXPECT_EQ(::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(fd.Get(), 4), 0);
    return fd;
}

TEST(DisplayProbe, OnlyADisplayThatAnswersCounts) {
    test::TempDir dir;
    const UniqueFd compositor = Listen(dir.Path() + "wayland-7");
    struct Case {
        DisplayEnvironment env;
        bool reachable;
    };
    const Case cases[] = {
        {{"", "wayland-7", dir.Path(), ""}, true},
        {{"", dir.Path() + "wayland-7", "", ""}, true},
        {{"", "wayland-8", dir.Path(), ""}, false},  // the session has ended
        {{"", "wayland-7", "", ""}, false},          // no runtime folder to find it in
        {{":9999", "", "", ""}, false},              // no X server on this machine
        {{"unix:9999.0", "", "", ""}, false},
        {{"not a display", "", "", ""}, false},
        {{"otherhost:0", "", "", ""}, true},  // another host is trusted, not probed
        {{":9999", "", "", "offscreen"}, true},
        {{"", "", "", ""}, false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(DisplayReachable(c.env), c.reachable)
            << c.env.display << "|" << c.env.waylandDisplay << "|" << c.env.qtPlatform;
}

}  // namespace
}  // namespace vq
