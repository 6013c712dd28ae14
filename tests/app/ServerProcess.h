#pragma once
// What the process tests of vqserv and vqctl share: a folder of their own for the settings
// store, the home and the queue root, and the ways to start, ask and stop the programs.
#include <gtest/gtest.h>
#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/Files.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq::test {

// True when every text stands in `report`, each behind the one before.
inline bool InOrder(const std::string& report, const std::vector<std::string>& texts) {
    size_t at = 0;
    for (const std::string& text : texts) {
        at = report.find(text, at);
        if (at == std::string::npos) return false;
    }
    return true;
}

class ServerProcessTest : public ::testing::Test {
protected:
    // `config` replaces the folder of the settings store; `busAddress` is added when set.
    std::vector<std::string> Env(const std::string& config = "") const {
        std::vector<std::string> env = {"XDG_CONFIG_HOME=" + (config.empty() ? dir.Path() + "cfg" : config),
                                        "HOME=" + dir.Path() + "home", "VQS_TICK_MS=50", "LC_ALL=C"};
        if (!busAddress.empty()) env.push_back("DBUS_SESSION_BUS_ADDRESS=" + busAddress);
        return env;
    }
    std::string Root() const { return dir.Path() + "queue/"; }
    std::vector<std::string> Vqserv() const { return {BinPath("vqserv"), "--headless", "--queue-root", Root()}; }
    ProcessResult Vqctl(std::vector<std::string> args) const {
        args.insert(args.begin(), BinPath("vqctl"));
        return RunProcess(args, Env());
    }
    static void Stop(ChildProcess& server) {
        server.Signal(SIGTERM);
        const ProcessResult result = server.Wait(5000);
        EXPECT_EQ(result.exitCode, 0) << result.err;
    }

    TempDir dir;
    std::string busAddress;
};

// A server test on a session bus of the test's own, with the server answering on it.
class BusServerProcessTest : public ServerProcessTest {
protected:
    BusServerProcessTest()
        : bus_({"/usr/bin/dbus-daemon", "--session", "--nofork", "--address=unix:path=" + dir.Path() + "bus"}, {}) {
        busAddress = "unix:path=" + dir.Path() + "bus";
        EXPECT_TRUE(WaitUntil([&] { return PathExists(dir.Path() + "bus"); }, 5000, 10)) << bus_.ErrorText();
    }
    // Starts the server and waits until it answers on the bus.
    std::unique_ptr<ChildProcess> StartServer() {
        auto server = std::make_unique<ChildProcess>(Vqserv(), Env());
        EXPECT_TRUE(WaitUntil([&] { return Vqctl({"location"}).exitCode == 0; }, 5000, 50)) << server->ErrorText();
        return server;
    }
    // Writes a task file of one step "true" and the given options of vqctl new-task.
    std::string NewTask(const std::string& name, std::vector<std::string> options = {}) {
        const std::string path = dir.Path() + name + ".vqf";
        options.insert(options.begin(), {"new-task", "--name", name, "--step", "true"});
        options.push_back(path);
        const ProcessResult made = Vqctl(options);
        EXPECT_EQ(made.exitCode, 0) << made.err;
        return path;
    }

private:
    ChildProcess bus_;
};

}  // namespace vq::test
