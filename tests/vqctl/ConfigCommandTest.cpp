// vqctl config, run as a process against a settings store of its own.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Files.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

class Config : public ::testing::Test {
protected:
    test::ProcessResult Run(std::vector<std::string> args) {
        args.insert(args.begin(), "config");
        return test::RunVqctl(args, {"XDG_CONFIG_HOME=" + dir.Path() + "cfg"});
    }
    test::TempDir dir;
};

TEST_F(Config, GetPrintsTheValueInForceAndSetChangesIt) {
    // Defaults of every kind are the settings store's tests' concern.
    EXPECT_EQ(Run({"get", "Settings", "Class"}).out, "1440\n");
    EXPECT_EQ(Run({"set", "ServerSettings", "StartServ", "1"}).exitCode, 0);
    EXPECT_EQ(Run({"set", "ServerSettings", "CLF", "0", "--integer"}).exitCode, 0);
    EXPECT_EQ(Run({"set", "Cluster", "Backend", "Slurm"}).exitCode, 0);
    EXPECT_EQ(Run({"set", "Cluster", "ExtraArgs", "--", "--qos=low --comment='a b'"}).exitCode, 0);
    EXPECT_EQ(Run({"get", "ServerSettings", "StartServ"}).out, "1\n");
    EXPECT_EQ(Run({"list", "Cluster"}).out,
              "Backend=Slurm\nClasses=\nPartition=\nAccount=\n"
              "ExtraArgs=--qos=low --comment='a b'\nPollSeconds=2\n");
    const std::string all = Run({"list"}).out;
    for (const char* line : {"ServerSettings StartServ=1\n", "ServerSettings CLF=0\n",
                             "ServerSettings MJP=P22\n", "Settings MaxRunTime=1700\n",
                             "Cluster Backend=Slurm\n"})
        EXPECT_NE(all.find(line), std::string::npos) << line;
}

TEST_F(Config, RefusesUnknownNamesAndValuesThatDontFitAndStoresNothing) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"get", "ServerSetings", "StartQ"},
         "no section \"ServerSetings\"; the nearest: ServerSettings,"},
        {{"set", "ServerSettings", "startq", "0"},
         "no setting \"startq\" in ServerSettings; the nearest: StartQ,"},
        {{"set", "ServerSettings", "CLF", "-1"},
         "CLF takes a whole number from 0 to 9999, not \"-1\""},
        {{"set", "ServerSettings", "MJP", "P27"}, "MJP takes a priority key"},
        {{"set", "ServerSettings", "MJP", "P22", "--integer"}, "MJP is a text"},
        {{"get", "ServerSettings"}, "vqctl config get: NAME is required"},
        {{"set", "Cluster", "Backend", "pbs"},
         "Backend takes one of local, slurm (in any case), not \"pbs\""},
        {{"set", "Cluster", "Classes", "C,D"}, "Classes takes class letters A to Z"},
        {{"set", "Cluster", "PollSeconds", "0"}, "PollSeconds takes a whole number from 1 to 3600"},
        {{"set", "Cluster", "ExtraArgs", "--", "--comment='a"}, "ExtraArgs takes options written as"},
    };
    for (const auto& [args, message] : cases) {
        const test::ProcessResult run = Run(args);
        EXPECT_EQ(run.exitCode, 2) << message;
        EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
    }
    EXPECT_FALSE(PathExists(dir.Path() + "cfg/halvenor/orvantis-server/registry.db"));
}

}  // namespace
}  // namespace vq
