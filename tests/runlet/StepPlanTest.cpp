// How a step is to be started, worked out before any process exists.
#include "runlet/StepPlan.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace vq {
namespace {

StepInput Input(const std::string& command) {
    StepInput input;
    input.start.UserName = FixedText("$LOCALUSER$", 40);
    input.start.OutputFile = FixedText("/q/$JobR/000012-Build/Step2.txt", 256);
    input.start.WorkDir = FixedText("%VQS%", 256);
    input.start.TaskIdText = FixedText("000012", 32);
    input.start.TaskId = 12;
    input.start.TaskName = FixedText("Build", 32);
    input.start.StepNumber = 2;
    input.start.TaskRc = 5;
    input.start.Priority = 22;
    input.command = command;
    return input;
}

TEST(StepPlanTest, TaskVariablesAreAddedAndWinOverEnviron) {
    StepInput input = Input("true");
    input.environ = "ORVANTIS_STEP=9\r\nPATH=/opt/bin\r\n";
    EXPECT_EQ(MakeStepPlan(input, {"PATH=/usr/bin", "HOME=/home/ann"}, "ann").environment,
              (std::vector<std::string>{"HOME=/home/ann", "PATH=/opt/bin", "ORVANTIS_TASK_ID=000012",
                                        "ORVANTIS_TASK_NAME=Build", "ORVANTIS_STEP=2",
                                        "ORVANTIS_TASK_FOLDER=/q/$JobR/000012-Build", "ORVANTIS_TASK_RC=5"}));
    input.start.TaskIdText = FixedText("", 32);
    input.environ.clear();
    EXPECT_EQ(MakeStepPlan(input, {}, "ann").environment.front(), "ORVANTIS_TASK_ID=12");
}

TEST(StepPlanTest, UsersOtherThanTheServersOwnAreRefused) {
    for (const char* user : {"$LOCALUSER$", "$localuser$", "ann"}) EXPECT_TRUE(UserAllowed(user, "ann")) << user;
    for (const char* user : {"Ann", "bob", "", "$LOCALUSER"}) EXPECT_FALSE(UserAllowed(user, "ann")) << user;
    EXPECT_FALSE(UserAllowed("", ""));
    StepInput input = Input("true");
    input.start.UserName = FixedText("bob", 40);
    const StepPlan plan = MakeStepPlan(input, {}, "ann");
    EXPECT_NE(plan.refusal.find("user \"bob\""), std::string::npos) << plan.refusal;
    EXPECT_TRUE(plan.arguments.empty());
}

TEST(StepPlanTest, LoginOfAUserFromThePasswordFile) {
    const std::string passwd =
        "root:x:0:0:root:/root:/bin/bash\n"
        "# a comment\n"
        "broken line\n"
        ":x:1000:1000::/:/bin/sh\n"
        "ann:x:1000:1000:Ann:/home/ann:/bin/bash\n"
        "bob:x:10001:10001::/home/bob:/bin/sh";
    const std::pair<unsigned, const char*> logins[] = {{0, "root"}, {1000, "ann"}, {10001, "bob"}, {100, ""}};
    for (const auto& [uid, login] : logins) EXPECT_EQ(LoginOfUser(passwd, uid), login) << uid;
    EXPECT_EQ(LoginOfUser("", 0), "");
}

TEST(StepPlanTest, WorkFolderWithTheTaskFolderMarkerAndFileRcInIt) {
    const std::pair<const char*, const char*> expanded[] = {{"%VQS%/data", "/q/t/data"}, {"%vqs%", "/q/t"},
                                                            {"/s/%VQS%x%VQS%", "/s//q/tx/q/t"}, {"/s/%VQS", "/s/%VQS"},
                                                            {"", "/q/t"}, {"/abs", "/abs"}};
    for (const auto& [workDir, folder] : expanded) EXPECT_EQ(ExpandWorkDir(workDir, "/q/t"), folder) << workDir;
    StepInput input = Input("true");
    input.fileRc = "rc.txt\r\n";  // FileRC: relative to the work folder, or absolute
    EXPECT_EQ(MakeStepPlan(input, {}, "ann").fileRcPath, "/q/$JobR/000012-Build/rc.txt");
    input.fileRc = "/tmp/rc";
    EXPECT_EQ(MakeStepPlan(input, {}, "ann").fileRcPath, "/tmp/rc");
    input.fileRc = " \r\n";
    EXPECT_EQ(MakeStepPlan(input, {}, "ann").fileRcPath, "");
    input.start.OutputFile = FixedText("Step1.txt", 256);
    input.start.WorkDir = FixedText("", 256);
    EXPECT_EQ(MakeStepPlan(input, {}, "ann").workDir, ".");
}

TEST(EnvironBlockTest, LinesWithCrLfOrLfAndBadLinesLeftOutWithANote) {
    std::vector<std::string> environment{"A=old", "B=1"};
    std::vector<std::string> notes;
    AddEnvironBlock(environment, "A=new\r\nB=x=y\n\r\nNO EQUALS\n=nameless\nC=\nA=newest", notes);
    EXPECT_EQ(MergeEnvironment(environment), (std::vector<std::string>{"B=x=y", "C=", "A=newest"}));
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_EQ(notes[0], "Environ line 4 is not NAME=VALUE and was left out: \"NO EQUALS\"");
    EXPECT_NE(notes[1].find("line 5"), std::string::npos);
    AddEnvironBlock(environment, "\r\n\n", notes);  // empty lines: nothing at all
    EXPECT_EQ(environment.size(), 6u);
    EXPECT_EQ(notes.size(), 2u);
}

TEST(PriorityTest, NiceValueOfEachClassAndNoneForAnUnknownOne) {
    const std::pair<int, int> nice[] = {{0, 19}, {9, 19}, {12, 10}, {22, 0}, {35, -5}, {40, -10}, {59, -15}};
    for (const auto& [code, value] : nice) EXPECT_EQ(NiceForPriority(code), value) << code;
    EXPECT_FALSE(NiceForPriority(60));
    EXPECT_FALSE(NiceForPriority(-1));
    EXPECT_EQ(PriorityText(51), "RealTime 1");
    EXPECT_EQ(PriorityText(72), "code 72");
    StepInput input = Input("true");
    input.start.Priority = 77;
    const StepPlan plan = MakeStepPlan(input, {}, "ann");
    EXPECT_FALSE(plan.nice);
    EXPECT_EQ(plan.notes, std::vector<std::string>{"Unknown CPU priority code 77; the step runs at the runner's own priority."});
}

}  // namespace
}  // namespace vq
