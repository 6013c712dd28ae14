#pragma once
// A test of the real server: a session bus of the test's own, vqserv on a queue root in a
// temporary folder with short ticks, and vqctl as the client.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/Files.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq::test {

class ServerProcessTest : public ::testing::Test {
protected:
    ServerProcessTest()
        : bus_({"/usr/bin/dbus-daemon", "--session", "--nofork", "--address=unix:path=" + dir.Path() + "bus"}, {}) {
        EXPECT_TRUE(test::WaitUntil([&] { return PathExists(dir.Path() + "bus"); }, 5000, 10)) << bus_.ErrorText();
    }
    std::vector<std::string> Env() {
        return {"XDG_CONFIG_HOME=" + dir.Path() + "cfg", "HOME=" + dir.Path() + "home", "VQS_TICK_MS=50",
                "LC_ALL=C", "DBUS_SESSION_BUS_ADDRESS=unix:path=" + dir.Path() + "bus"};
    }
    std::string Root() { return dir.Path() + "queue/"; }
    test::ProcessResult Vqctl(std::vector<std::string> args) {
        args.insert(args.begin(), test::BinPath("vqctl"));
        return test::RunProcess(args, Env());
    }
    // Starts the server and waits until it answers on the bus.
    std::unique_ptr<test::ChildProcess> StartServer() {
        auto server = std::make_unique<test::ChildProcess>(
            std::vector<std::string>{test::BinPath("vqserv"), "--headless", "--queue-root", Root()}, Env());
        EXPECT_TRUE(test::WaitUntil([&] { return Vqctl({"location"}).exitCode == 0; }, 5000, 50))
            << server->ErrorText();
        return server;
    }
    std::string NewTask(const std::string& name, std::vector<std::string> options = {}) {
        const std::string path = dir.Path() + name + ".vqf";
        options.insert(options.begin(), {"new-task", "--name", name, "--step", "true"});
        options.push_back(path);
        const test::ProcessResult made = Vqctl(options);
        EXPECT_EQ(made.exitCode, 0) << made.err;
        return path;
    }

    test::TempDir dir;

private:
    test::ChildProcess bus_;
};

}  // namespace vq::test
