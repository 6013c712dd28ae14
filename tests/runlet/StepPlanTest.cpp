// How a step is to be started, worked out before any process exists.
#include "runlet/StepPlan.h"

#include <gtest/gtest.h>

#include "RunletDriver.h"

namespace vq {
namespace {

// The step of the runner's process tests, in the task folder /q/t.
StepInput Input() {
    StepInput input;
    input.start = test::MakeStart("/q/t/");
    input.command = "true";
    return input;
}

TEST(StepPlanTest, UsersOtherThanTheServersOwnAreRefused) {
    for (const char* user : {"$LOCALUSER$", "$localuser$", "ann"}) EXPECT_TRUE(UserAllowed(user, "ann")) << user;
    for (const char* user : {"Ann", "bob", "", "$LOCALUSER"}) EXPECT_FALSE(UserAllowed(user, "ann")) << user;
    EXPECT_FALSE(UserAllowed("", ""));
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
    StepInput input = Input();
    input.fileRc = " \r\n";  // blanks name no file
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
    AddEnvironBlock(environment, "\r\n\n", notes);  // empty lines: nothing at all
    EXPECT_EQ(environment.size(), 6u);
    EXPECT_EQ(notes.size(), 2u);
}

TEST(PriorityTest, NiceValueOfEachClassAndNoneForAnUnknownOne) {
    const std::pair<int, int> nice[] = {{0, 19}, {9, 19}, {12, 10}, {22, 0}, {35, -5}, {40, -10}, {59, -15}};
    for (const auto& [code, value] : nice) EXPECT_EQ(NiceForPriority(code), value) << code;
    EXPECT_FALSE(NiceForPriority(60));
    EXPECT_FALSE(NiceForPriority(-1));
    StepInput input = Input();
    input.start.Priority = 77;
    const StepPlan plan = MakeStepPlan(input, {}, "ann");
    EXPECT_FALSE(plan.nice);
    EXPECT_EQ(plan.notes, std::vector<std::string>{"Unknown CPU priority code 77; the step runs at the runner's own priority."});
}

}  // namespace
}  // namespace vq
