// vqserv as a process: its command line, one server per user, start-up failures and the
// closing path on a signal.
#include <fstream>

#include "platform/Files.h"
#include "tests/app/ServerProcess.h"

namespace vq::test {
namespace {

using VqservProcessTest = ServerProcessTest;

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
    for (std::vector<std::string> args : bad) {
        args.insert(args.begin(), BinPath("vqserv"));
        const ProcessResult result = RunProcess(args, Env());
        EXPECT_EQ(result.exitCode, 2) << args[1];
        EXPECT_NE(result.err.find("Usage: vqserv [OPTIONS]"), std::string::npos) << result.err;
    }
    EXPECT_EQ(RunProcess({BinPath("vqserv"), "--version"}, Env()).out, "Orvantis Personal Server 2.1.487\n");
    EXPECT_FALSE(PathExists(dir.Path() + "cfg"));
}

TEST_F(VqservProcessTest, ASecondServerSaysWhoServesWhatAndTheFirstClosesOnSigterm) {
    // A start at logon serves when StartServ, as vqctl sets it in the same store, is 1.
    ASSERT_EQ(Vqctl({"config", "set", "ServerSettings", "StartServ", "1"}).exitCode, 0);
    std::vector<std::string> atLogon = Vqserv();
    atLogon.push_back("LOGON");
    ChildProcess first(atLogon, Env());
    ASSERT_TRUE(WaitUntil([&] { return PathExists(Root() + "$JobQ/QPath"); }, 5000, 20)) << first.ErrorText();
    EXPECT_TRUE(PathExists(dir.Path() + "cfg/autostart/orvantis-server.desktop"));
    const ProcessResult second = RunProcess({BinPath("vqserv"), "--queue-root", dir.Path() + "other"}, Env());
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_NE(second.err.find("already runs for this user (process " + std::to_string(first.Pid()) + ", queue " +
                              Root() + ")"),
              std::string::npos)
        << second.err;
    EXPECT_NE(second.err.find("The queue " + dir.Path() + "other/ given here is not served."), std::string::npos);
    EXPECT_FALSE(PathExists(dir.Path() + "other"));
    Stop(first);
}

TEST_F(VqservProcessTest, ASignalDuringStartUpClosesTheServerCleanly) {
    ChildProcess server(Vqserv(), Env());
    ASSERT_TRUE(WaitUntil([&] { return HoldsSigterm(server.Pid()); }, 5000, 1));
    server.Signal(SIGTERM);
    const ProcessResult result = server.Wait(5000);
    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.exitCode, 0) << result.err;
}

// With a display the window opens; a signal closes it through its own closing path, which
// keeps its placement.
TEST_F(VqservProcessTest, WithADisplayTheWindowOpensAndASignalClosesItKeepingItsPlacement) {
    std::vector<std::string> env = Env();
    env.push_back("QT_QPA_PLATFORM=offscreen");
    ChildProcess server({BinPath("vqserv"), "--queue-root", Root()}, env);
    ASSERT_TRUE(WaitUntil([&] { return server.ErrorText().find("serves the queue") != std::string::npos; },
                          10000, 20))
        << server.ErrorText();
    Stop(server);
    const ProcessResult placement = Vqctl({"config", "list", "StartSet"});
    // The default 10000 twips went through whole pixels at 96 dots per inch.
    EXPECT_NE(placement.out.find("MainWidth=10005"), std::string::npos) << placement.out;
}

TEST_F(VqservProcessTest, AnUnwritableSettingsStoreEndsWithOneLineOfPathAndReason) {
    AppendToFile(dir.Path() + "plainfile", "x");
    const ProcessResult result = RunProcess(Vqserv(), Env(dir.Path() + "plainfile/cfg"));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err,
              "Orvantis Personal Server: Orvantis Server cannot write to registry. It is possible "
              "you don't have sufficient security permissions. (" +
                  dir.Path() + "plainfile/cfg/halvenor/orvantis-server: Not a directory)\n");
    EXPECT_FALSE(PathExists(Root()));
}

}  // namespace
}  // namespace vq::test
