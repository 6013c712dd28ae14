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

std::string ValueOf(const std::vector<std::string>& environment, const std::string& name) {
    for (const std::string& entry : environment)
        if (entry.rfind(name + "=", 0) == 0) return entry.substr(name.size() + 1);
    return "<unset>";
}

TEST(StepPlanTest, TaskVariablesAreAddedAndWinOverEnviron) {
    StepInput input = Input("true");
    input.environ = "ORVANTIS_STEP=9\r\nPATH=/opt/bin\r\n";
    const StepPlan plan = MakeStepPlan(input, {"PATH=/usr/bin", "HOME=/home/ann"}, "ann");
    EXPECT_EQ(ValueOf(plan.environment, "PATH"), "/opt/bin");
    EXPECT_EQ(ValueOf(plan.environment, "HOME"), "/home/ann");
    // The task's own variables, all seen by a real step in the process tests, win.
    EXPECT_EQ(ValueOf(plan.environment, "ORVANTIS_STEP"), "2");
    EXPECT_EQ(std::count_if(plan.environment.begin(), plan.environment.end(),
                            [](const std::string& e) { return e.rfind("PATH=", 0) == 0; }),
              1);
}

TEST(StepPlanTest, TaskIdTextEmptyFallsBackToTheNumber) {
    StepInput input = Input("true");
    input.start.TaskIdText = FixedText("", 32);
    EXPECT_EQ(ValueOf(MakeStepPlan(input, {}, "ann").environment, "ORVANTIS_TASK_ID"), "12");
}

TEST(StepPlanTest, UsersOtherThanTheServersOwnAreRefused) {
    for (const char* user : {"$LOCALUSER$", "$localuser$", "ann"}) EXPECT_TRUE(UserAllowed(user, "ann")) << user;
    for (const char* user : {"Ann", "bob", "", "$LOCALUSER"}) EXPECT_FALSE(UserAllowed(user, "ann")) << user;
    EXPECT_FALSE(UserAllowed("", ""));

    StepInput input = Input("true");
    input.start.UserName = FixedText("bob", 40);
    const StepPlan plan = MakeStepPlan(input, {}, "ann");
    EXPECT_TRUE(plan.Refused());
    EXPECT_EQ(plan.refusal,
              "The step was not started: user \"bob\" is neither $LOCALUSER$ nor the server's user \"ann\".");
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
    EXPECT_EQ(LoginOfUser(passwd, 0), "root");
    EXPECT_EQ(LoginOfUser(passwd, 1000), "ann");
    EXPECT_EQ(LoginOfUser(passwd, 10001), "bob");
    EXPECT_EQ(LoginOfUser(passwd, 100), "");
    EXPECT_EQ(LoginOfUser("", 0), "");
}

TEST(StepPlanTest, WorkFolderWithTheTaskFolderMarker) {
    EXPECT_EQ(ExpandWorkDir("%VQS%/data", "/q/t"), "/q/t/data");
    EXPECT_EQ(ExpandWorkDir("%vqs%", "/q/t"), "/q/t");
    EXPECT_EQ(ExpandWorkDir("/srv/%VQS%x%VQS%", "/t"), "/srv//tx/t");
    EXPECT_EQ(ExpandWorkDir("/srv/%VQS", "/t"), "/srv/%VQS");
    EXPECT_EQ(ExpandWorkDir("", "/q/t"), "/q/t");
    EXPECT_EQ(ExpandWorkDir("/abs", "/q/t"), "/abs");

    StepInput input = Input("true");
    input.start.OutputFile = FixedText("Step1.txt", 256);
    input.start.WorkDir = FixedText("", 256);
    EXPECT_EQ(MakeStepPlan(input, {}, "ann").workDir, ".");
}

TEST(StepPlanTest, FileRcRelativeToTheWorkFolderOrAbsolute) {
    StepInput input = Input("true");
    input.fileRc = "rc.txt\r\n";
    EXPECT_EQ(MakeStepPlan(input, {}, "ann").fileRcPath, "/q/$JobR/000012-Build/rc.txt");
    input.fileRc = "/tmp/rc";
    EXPECT_EQ(MakeStepPlan(input, {}, "ann").fileRcPath, "/tmp/rc");
    input.fileRc = " \r\n";
    EXPECT_EQ(MakeStepPlan(input, {}, "ann").fileRcPath, "");
}

TEST(EnvironBlockTest, LinesWithCrLfOrLfAndBadLinesLeftOutWithANote) {
    std::vector<std::string> environment{"A=old", "B=1"};
    std::vector<std::string> notes;
    AddEnvironBlock(environment, "A=new\r\nB=x=y\n\r\nNO EQUALS\n=nameless\nC=\nA=newest", notes);
    EXPECT_EQ(MergeEnvironment(environment), (std::vector<std::string>{"B=x=y", "C=", "A=newest"}));
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_EQ(notes[0], "Environ line 4 is not NAME=VALUE and was left out: \"NO EQUALS\"");
    EXPECT_NE(notes[1].find("line 5"), std::string::npos);
    environment.clear();
    notes.clear();
    AddEnvironBlock(environment, "\r\n\n", notes);
    EXPECT_TRUE(environment.empty());
    EXPECT_TRUE(notes.empty());
}

TEST(PriorityTest, NiceValueOfEachClass) {
    const std::pair<int, int> nice[] = {{0, 19}, {9, 19}, {12, 10}, {22, 0}, {35, -5}, {40, -10}, {59, -15}};
    for (const auto& [code, value] : nice) EXPECT_EQ(NiceForPriority(code), value) << code;
    EXPECT_FALSE(NiceForPriority(60));
    EXPECT_FALSE(NiceForPriority(-1));
    EXPECT_EQ(PriorityText(22), "Normal 2");
    EXPECT_EQ(PriorityText(5), "Low 5");
    EXPECT_EQ(PriorityText(51), "RealTime 1");
    EXPECT_EQ(PriorityText(72), "code 72");

    StepInput input = Input("true");
    input.start.Priority = 77;
    const StepPlan plan = MakeStepPlan(input, {}, "ann");
    EXPECT_FALSE(plan.nice);
    ASSERT_EQ(plan.notes.size(), 1u);
    EXPECT_NE(plan.notes[0].find("77"), std::string::npos);
}

}  // namespace
}  // namespace vq
