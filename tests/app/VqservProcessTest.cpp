// vqserv as a process: its command line, one server per user, start-up failures and the
// closing path on a signal.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "platform/Files.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::BinPath;
using test::ChildProcess;
using test::RunProcess;

class VqservProcessTest : public ::testing::Test {
protected:
    std::vector<std::string> Env(const std::string& config) {
        return {"XDG_CONFIG_HOME=" + config, "HOME=" + dir.Path() + "home", "VQS_TICK_MS=100",
                "LC_ALL=C"};
    }
    std::vector<std::string> Env() { return Env(dir.Path() + "cfg"); }
    std::string Root() { return dir.Path() + "queue/"; }
    bool Serves() {
        return test::WaitUntil([&] { return PathExists(Root() + "$JobQ/QPath"); }, 5000, 20);
    }
    test::TempDir dir;
};

// True when the process holds SIGTERM blocked, as vqserv's main does first of all.
bool HoldsSigterm(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("SigBlk:", 0) == 0)
            return (std::stoull(line.substr(7), nullptr, 16) >> (SIGTERM - 1)) & 1;
    return false;
}

TEST_F(VqservProcessTest, UsageErrorsEndWithTheUsage) {
    const std::vector<std::string> bad[] = {{"--bogus"}, {"--queue-root"}, {"--queue-root", ""}};
    for (const auto& args : bad) {
        std::vector<std::string> argv = {BinPath("vqserv")};
        argv.insert(argv.end(), args.begin(), args.end());
        const auto result = RunProcess(argv, Env());
        EXPECT_EQ(result.exitCode, 2) << args[0];
        EXPECT_NE(result.err.find("Usage: vqserv [OPTIONS]"), std::string::npos) << result.err;
    }
    const auto version = RunProcess({BinPath("vqserv"), "--version"}, Env());
    EXPECT_EQ(version.out, "Orvantis Personal Server 2.1.487\n");
    EXPECT_FALSE(PathExists(dir.Path() + "cfg"));
}

TEST_F(VqservProcessTest, ASecondServerSaysWhoServesWhatAndTheFirstClosesOnSigterm) {
    // A start at logon serves when StartServ, as vqctl sets it in the same store, is 1.
    const auto set =
        RunProcess({BinPath("vqctl"), "config", "set", "ServerSettings", "StartServ", "1"}, Env());
    ASSERT_EQ(set.exitCode, 0) << set.err;
    ChildProcess first({BinPath("vqserv"), "--headless", "--queue-root", Root(), "LOGON"}, Env());
    ASSERT_TRUE(Serves()) << first.ErrorText();
    EXPECT_TRUE(PathExists(dir.Path() + "cfg/autostart/orvantis-server.desktop"));
    const auto second =
        RunProcess({BinPath("vqserv"), "--queue-root", dir.Path() + "other"}, Env());
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_NE(second.err.find("already runs for this user (process " + std::to_string(first.Pid()) +
                              ", queue " + Root() + ")"),
              std::string::npos)
        << second.err;
    EXPECT_NE(second.err.find("The queue " + dir.Path() + "other/ given here is not served."),
              std::string::npos);
    EXPECT_FALSE(PathExists(dir.Path() + "other"));

    first.Signal(SIGTERM);
    const auto result = first.Wait(5000);
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

TEST_F(VqservProcessTest, ASignalDuringStartUpClosesTheServerCleanly) {
    ChildProcess server({BinPath("vqserv"), "--headless", "--queue-root", Root()}, Env());
    ASSERT_TRUE(test::WaitUntil([&] { return HoldsSigterm(server.Pid()); }, 5000, 1));
    server.Signal(SIGTERM);
    const auto result = server.Wait(5000);
    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

TEST_F(VqservProcessTest, AnUnwritableSettingsStoreEndsWithOneLineOfPathAndReason) {
    AppendToFile(dir.Path() + "plainfile", "x");
    const auto result = RunProcess({BinPath("vqserv"), "--headless", "--queue-root", Root()},
                                   Env(dir.Path() + "plainfile/cfg"));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err,
              "Orvantis Personal Server: Orvantis Server cannot write to registry. It is possible "
              "you don't have sufficient security permissions. (" +
                  dir.Path() + "plainfile/cfg/halvenor/orvantis-server: Not a directory)\n");
    EXPECT_FALSE(PathExists(Root()));
}

}  // namespace
}  // namespace vq
