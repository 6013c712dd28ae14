// The console commands of vqctl where no server is needed to tell the answer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Files.h"
#include "storage/Registry.h"
#include "storage/Settings.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

// A bus where no server can be.
const std::string kNoBus = "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus";

TEST(ConsoleCommands, AnswersWithoutAServer) {
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        std::string said;  // on standard output for 0, else on standard error
    };
    const Case cases[] = {
        {{"--version"}, 0, "vqctl 2.1.487\n"},
        {{"add", "--class", "7", "--", "true"}, 2, "vqctl add: --class takes a letter A to Z"},
        {{"add", "--at", "tomorrow", "--", "true"},
         2,
         "--at takes \"yyyy-mm-dd hh:mm:ss\": 'tomorrow'"},
        {{"add", "--name", "a/b", "--", "true"}, 2, "TASKNAME"},
        {{"add"}, 2, "COMMAND is required"},
        {{"status"}, 2, "vqctl status: no server is running for this user"},
        {{"queue", "pause"}, 2, "pause"},
        {{"follow"}, 2, "KEY is required"},
    };
    for (const Case& c : cases) {
        const test::ProcessResult result = test::RunVqctl(c.args, {kNoBus});
        EXPECT_EQ(result.exitCode, c.exitCode) << c.args[0] << " " << result.err;
        const std::string& said = c.exitCode == 0 ? result.out : result.err;
        EXPECT_NE(said.find(c.said), std::string::npos) << c.args[0] << ": " << said;
    }
}

// The log of a server that has stopped is still there to read: its folder is in the settings.
TEST(ConsoleCommands, LogReadsTheQueueFolderOfTheSettingsWithoutAServer) {
    test::TempDir dir;
    const std::string config = dir.Path() + "config";
    const std::string env = "XDG_CONFIG_HOME=" + config;
    const std::vector<std::string> noBus = {kNoBus, env};
    EXPECT_EQ(test::RunVqctl({"log"}, noBus).exitCode, 2) << "no folder stored, no server";

    ::setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    {
        Registry registry(Registry::DefaultDatabasePath(), Registry::DefaultAutostartDir());
        SaveRegSetting(registry, "ServerSettings", "ServPath", dir.Path() + "q");
    }
    ::unsetenv("XDG_CONFIG_HOME");
    test::ProcessResult result = test::RunVqctl({"log"}, noBus);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "There Are No Errors In Log\n");

    MakeFolders(dir.Path() + "q/$Data");
    WriteFileAtomic(dir.Path() + "q/$Data/SrvLog.txt", "11/23/26 10:00:00 a line\r\n");
    result = test::RunVqctl({"log"}, noBus);
    EXPECT_EQ(result.out, "11/23/26 10:00:00 a line\r\n") << result.err;
}

}  // namespace
}  // namespace vq
