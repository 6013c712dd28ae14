// The console commands of vqctl where no server is needed to tell the answer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

test::ProcessResult Vqctl(std::vector<std::string> args) {
    args.insert(args.begin(), test::BinPath("vqctl"));
    // A bus where no server can be.
    return test::RunProcess(args, {"DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus"});
}

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
        {{"add", "--", "true"}, 2, "no server is running for this user"},
        {{"add"}, 2, "COMMAND is required"},
        {{"status"}, 2, "vqctl status: no server is running for this user"},
        {{"wait", "000001-Task"}, 2, "vqctl wait: no server is running"},
        {{"queue", "pause"}, 2, "pause"},
        {{"follow"}, 2, "KEY is required"},
    };
    for (const Case& c : cases) {
        const test::ProcessResult result = Vqctl(c.args);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.args[0] << " " << result.err;
        const std::string& said = c.exitCode == 0 ? result.out : result.err;
        EXPECT_NE(said.find(c.said), std::string::npos) << c.args[0] << ": " << said;
    }
}

}  // namespace
}  // namespace vq
