#pragma once
// What the process tests of vqserv and vqctl share: a folder of their own for the settings
// store, the home and the queue root, and the ways to start, ask and stop the programs.
#include <gtest/gtest.h>
#include <signal.h>

#include <string>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq::test {

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

}  // namespace vq::test
