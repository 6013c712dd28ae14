// vqserv and vqctl as processes: one server per user, the write test, the closing path, and
// the settings from the command line.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <thread>

#include "platform/Files.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::BinPath;
using test::ChildProcess;
using test::ReadFileText;
using test::RunProcess;

class VqservProcessTest : public ::testing::Test {
protected:
    std::vector<std::string> Env(const std::string& config) {
        return {"XDG_CONFIG_HOME=" + config, "HOME=" + dir.Path() + "home", "VQS_TICK_MS=100",
                "LC_ALL=C"};
    }
    std::vector<std::string> Env() { return Env(dir.Path() + "cfg"); }
    std::string Root() { return dir.Path() + "queue/"; }
    bool WaitForFile(const std::string& path, int limitMs) {
        return test::WaitUntil([&] { return PathExists(path); }, limitMs, 20);
    }
    test::TempDir dir;
};

TEST_F(VqservProcessTest, ASecondServerExitsAtOnceAndTheFirstClosesOnSigterm) {
    ChildProcess first({BinPath("vqserv"), "--headless", "--queue-root", Root()}, Env());
    ASSERT_TRUE(WaitForFile(Root() + "$JobQ/QPath", 5000)) << first.ErrorText();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));

    const auto second = RunProcess({BinPath("vqserv"), "--headless"}, Env(), 5000);
    EXPECT_FALSE(second.timedOut);
    EXPECT_EQ(second.exitCode, 0);

    first.Signal(SIGTERM);
    const auto result = first.Wait(5000);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

TEST_F(VqservProcessTest, AnUnwritableConfigEndsWithTheWriteTestMessage) {
    AppendToFile(dir.Path() + "plainfile", "x");
    const auto result = RunProcess({BinPath("vqserv"), "--headless", "--queue-root", Root()},
                                   Env(dir.Path() + "plainfile/cfg"), 5000);
    EXPECT_FALSE(result.timedOut);
    EXPECT_NE(result.exitCode, 0);
    EXPECT_NE(result.err.find("Orvantis Server cannot write to registry. It is possible you don't "
                              "have sufficient security permissions."),
              std::string::npos);
    EXPECT_FALSE(PathExists(Root()));
}

TEST_F(VqservProcessTest, VqctlReadsAndWritesTheSameSettings) {
    auto result = RunProcess({BinPath("vqctl"), "config", "get", "ServerSettings", "TIQH"}, Env());
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "1\n");
    result = RunProcess({BinPath("vqctl"), "config", "set", "ServerSettings", "StartServ", "1"}, Env());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    result = RunProcess({BinPath("vqctl"), "config", "get", "serversettings", "StartServ"}, Env());
    EXPECT_EQ(result.out, "1\n");
    result = RunProcess({BinPath("vqctl"), "config", "list", "ServerSettings"}, Env());
    EXPECT_NE(result.out.find("\nStartServ=1\n"), std::string::npos);
    EXPECT_NE(result.out.find("\nMJP=P22\n"), std::string::npos);
    result = RunProcess({BinPath("vqctl"), "config", "list"}, Env());
    EXPECT_NE(result.out.find("StartSet MainWidth=10000\n"), std::string::npos);
    result = RunProcess({BinPath("vqctl"), "config", "get"}, Env());
    EXPECT_EQ(result.exitCode, 2);

    // With StartServ 1 a logon start serves, and the autostart entry is written.
    ChildProcess server({BinPath("vqserv"), "--headless", "--queue-root", Root(), "LOGON"}, Env());
    ASSERT_TRUE(WaitForFile(Root() + "$JobQ/QPath", 5000)) << server.ErrorText();
    EXPECT_NE(ReadFileText(dir.Path() + "cfg/autostart/orvantis-server.desktop").find("vqserv LOGON"),
              std::string::npos);
    server.Signal(SIGINT);
    EXPECT_EQ(server.Wait(5000).exitCode, 0);
}

}  // namespace
}  // namespace vq
