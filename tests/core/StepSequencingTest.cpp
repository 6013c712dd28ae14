#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>

#include "core/StepSequencing.h"
#include "platform/Files.h"
#include "runner/RunnerLink.h"
#include "tests/support/RunnerSupport.h"

namespace vq::test {
namespace {

class StepSequencingTest : public testing::Test {
  protected:
    StepSequencingTest() { t->RunnerPath = BinPath("runlet"); }

    std::string Task(int steps) { return AddRunnableTask(t, 1, "Build", steps); }
    void Step(const std::string& key, int step, const std::string& command,
              const std::string& minRc = "1", const std::string& maxRc = "1") {
        SetStepCell(t, key, step, "Command", command);
        SetStepCell(t, key, step, "MinRC", minRc);
        SetStepCell(t, key, step, "MaxRC", maxRc);
    }
    // A step that asks for return code `rc` as it stands, through its FileRC.
    void StepReturning(const std::string& key, int step, int rc, const std::string& minRc = "1",
                       const std::string& maxRc = "1") {
        const std::string file = "rc" + std::to_string(step) + ".txt";
        Step(key, step, "echo " + std::to_string(rc) + " > " + file, minRc, maxRc);
        SetStepCell(t, key, step, "FileRC", file);
    }
    // Starts the task's first step and lets the monitor run it to its end.
    void RunToEnd(const std::string& key) {
        ASSERT_TRUE(RunNextStep(*t, true, key, 1));
        ASSERT_TRUE(TickUntilComplete(t, key));
    }
    std::string Status(const std::string& key) { return TaskCellOf(t, key, "Status"); }
    std::string StepStatus(const std::string& key, int step) {
        return StepCell(t, key, step, "StepStatus");
    }
    void ExpectSlotFree() {
        EXPECT_FALSE(t->SlotUsed[1]);
        EXPECT_EQ(t->RunningTaskCount, 0);
        EXPECT_EQ(t->link.slots[1].pid, -1);
    }
    std::string ActiveReport(const std::string& key) {
        return TaskCellOf(t, key, "RF") + "/Active-" + TaskCellOf(t, key, "JobReport") + ".txt";
    }

    TestServer t;
};

TEST_F(StepSequencingTest, ATaskWithoutStepsEndsCompleteInTheTick) {
    const std::string key = Task(0);
    EXPECT_FALSE(RunNextStep(*t, true, key, 1));
    EXPECT_EQ(Status(key), "Complete");
    EXPECT_FALSE(TaskCellOf(t, key, "End").empty());
    EXPECT_EQ(TaskCellOf(t, key, "CurStep"), "0000");
    EXPECT_EQ(TaskCellOf(t, key, "JobIndex"), "");
    ExpectSlotFree();
    EXPECT_FALSE(PathExists(ActiveReport(key)));
}

TEST_F(StepSequencingTest, ATaskWhoseStepsAllSayNoSkipsThemAndEnds) {
    const std::string key = Task(3);
    for (int i = 1; i <= 3; ++i) SetStepCell(t, key, i, "Execute", "No");
    EXPECT_FALSE(RunNextStep(*t, true, key, 1));
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(StepStatus(key, i), "Skipped");
    EXPECT_EQ(TaskCellOf(t, key, "CurStep"), "0003");
    EXPECT_EQ(Status(key), "Complete");
    ExpectSlotFree();
}

TEST_F(StepSequencingTest, ARepeatingTaskWhoseStepsAreAllSkippedDoesntRepeat) {
    const std::string key = Task(1);
    SetStepCell(t, key, 1, "Execute", "No");
    SetCell(t->tables, kTaskTable, key, "NIzv", "-1");
    EXPECT_FALSE(RunNextStep(*t, true, key, 1));
    EXPECT_EQ(Status(key), "Complete");
    EXPECT_EQ(t->tables.TaskTable.RowCount(), 1u);
}

TEST_F(StepSequencingTest, AFirstStepStartsInItsSlot) {
    const std::string key = Task(2);
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    EXPECT_EQ(Status(key), "Running");
    EXPECT_FALSE(TaskCellOf(t, key, "Start").empty());
    EXPECT_EQ(TaskCellOf(t, key, "JobIndex"), "1");
    EXPECT_EQ(TaskCellOf(t, key, "CurStep"), "0001");
    EXPECT_EQ(StepStatus(key, 1), "Running");
    EXPECT_EQ(StepStatus(key, 2), "Pending");
    EXPECT_TRUE(t->SlotUsed[1]);
    EXPECT_EQ(t->RunningTaskCount, 1);
    EXPECT_FALSE(t->SlotState[1].cancelled);
    EXPECT_GT(t->link.slots[1].pid, 0);
    EXPECT_TRUE(t->SlotReportFile[1].Valid());
    EXPECT_TRUE(PathExists(ActiveReport(key)));
}

TEST_F(StepSequencingTest, AThreeStepTaskRunsToItsEndAsTheCodesSay) {
    const std::string key = Task(3);
    Step(key, 1, "true");    // 1
    Step(key, 2, "exit 2");  // 3
    Step(key, 3, "true", "3", "3");
    RunToEnd(key);
    EXPECT_EQ(Status(key), "Complete");
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(StepStatus(key, i), "Complete");
    EXPECT_EQ(StepCell(t, key, 1, "StepRC"), "01");
    EXPECT_EQ(StepCell(t, key, 2, "StepRC"), "03");
    EXPECT_EQ(StepCell(t, key, 3, "StepRC"), "01");
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "01");
    EXPECT_EQ(TaskCellOf(t, key, "JobIndex"), "");
    EXPECT_FALSE(TaskCellOf(t, key, "End").empty());
    ExpectSlotFree();
    EXPECT_FALSE(t->SlotReportFile[1].Valid());  // the active report is closed
    EXPECT_TRUE(PathExists(TaskCellOf(t, key, "RF") + "/Step2.txt"));
}

TEST_F(StepSequencingTest, TheNextStepIsTestedAgainstTheLastResultOnly) {
    // Step 1 returns 2: step 2 (1 to 1) is skipped, step 3 (2 to 2) runs.
    const std::string key = Task(3);
    Step(key, 1, "exit 1");
    Step(key, 2, "true");
    Step(key, 3, "true", "2", "2");
    RunToEnd(key);
    EXPECT_EQ(StepCell(t, key, 1, "StepRC"), "02");
    EXPECT_EQ(StepStatus(key, 2), "Skipped");
    EXPECT_EQ(StepStatus(key, 3), "Complete");
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "01");
}

TEST_F(StepSequencingTest, AStepReturningZeroEndsTheTaskAndLeavesTheRestPending) {
    const std::string key = Task(3);
    StepReturning(key, 1, 0);
    RunToEnd(key);
    EXPECT_EQ(Status(key), "Complete");
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "00");
    EXPECT_EQ(StepCell(t, key, 1, "StepRC"), "00");
    EXPECT_EQ(StepStatus(key, 2), "Pending");
    EXPECT_EQ(StepStatus(key, 3), "Pending");
    ExpectSlotFree();
}

TEST_F(StepSequencingTest, ALastStepThatDoesntFitIsSkippedAndTheTaskKeepsTheResultBefore) {
    const std::string key = Task(2);
    Step(key, 1, "exit 1");
    RunToEnd(key);
    EXPECT_EQ(StepStatus(key, 2), "Skipped");
    EXPECT_EQ(TaskCellOf(t, key, "CurStep"), "0002");
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "02");
    EXPECT_EQ(Status(key), "Complete");
    ExpectSlotFree();
}

TEST_F(StepSequencingTest, NinetyNineSticks) {
    const std::string key = Task(4);
    StepReturning(key, 1, 99);
    Step(key, 2, "exit 4", "99", "99");  // a cleanup step: returns 5
    Step(key, 3, "true", "5", "5");      // would run if 5 had replaced 99
    Step(key, 4, "true", "99", "99");
    RunToEnd(key);
    EXPECT_EQ(StepCell(t, key, 1, "StepRC"), "99");
    EXPECT_EQ(StepStatus(key, 2), "Complete");
    EXPECT_EQ(StepCell(t, key, 2, "StepRC"), "05");
    EXPECT_EQ(StepStatus(key, 3), "Skipped");
    EXPECT_EQ(StepStatus(key, 4), "Complete");
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "99");
}

TEST_F(StepSequencingTest, NextExecutableStepLooksFromTheGivenStepOn) {
    const std::string key = Task(4);
    SetStepCell(t, key, 1, "Execute", "No");
    SetStepCell(t, key, 3, "Execute", "no");  // only "Yes" runs
    SetStepCell(t, key, 4, "Execute", "No");
    EXPECT_EQ(NextExecutableStep(*t, key, 1), 2);
    EXPECT_EQ(NextExecutableStep(*t, key, 2), 2);
    EXPECT_EQ(NextExecutableStep(*t, key, 3), 0);
}

TEST_F(StepSequencingTest, ATakenSlotCancelsTheTaskAndStaysWithItsOwner) {
    t->SizeSlots(2);
    t->MaxRunningTasks = 2;
    ASSERT_TRUE(TakeSlot(*t, 1));  // another task's
    const std::string key = Task(1);
    EXPECT_FALSE(RunNextStep(*t, true, key, 1));
    EXPECT_EQ(Status(key), "Complete - Cancelled");
    EXPECT_NE(t.LogText().find("Error occurred while executing the step (" + MakeStepKey(key, 1) +
                               ")!\nTask Index Already Taken."),
              std::string::npos)
        << t.LogText();
    EXPECT_TRUE(t->SlotUsed[1]);
    EXPECT_EQ(t->RunningTaskCount, 1);
    EXPECT_EQ(StepStatus(key, 1), "Pending");
}

TEST_F(StepSequencingTest, NoFreeSlotCancelsTheTask) {
    ASSERT_TRUE(TakeSlot(*t, 1));
    const std::string key = Task(1);
    EXPECT_FALSE(RunNextStep(*t, true, key, 1));
    EXPECT_EQ(Status(key), "Complete - Cancelled");
    EXPECT_NE(t.LogText().find("No Task Index Available."), std::string::npos);
    EXPECT_EQ(t->RunningTaskCount, 1);
}

TEST_F(StepSequencingTest, AFailureAfterTheSlotWasTakenGivesEverythingBack) {
    const std::string key = Task(1);
    Step(key, 1, "sleep 20");
    // The active report can't be made: the task's folder is a file.
    const std::string blocker = t.dir.Path() + "blocker";
    ASSERT_TRUE(WriteFileAtomic(blocker, "x"));
    SetCell(t->tables, kTaskTable, key, "RF", blocker + "/sub");
    EXPECT_FALSE(RunNextStep(*t, true, key, 1));
    EXPECT_EQ(Status(key), "Complete - Cancelled");
    EXPECT_EQ(TaskCellOf(t, key, "JobIndex"), "");
    EXPECT_EQ(StepStatus(key, 1), "Complete - Cancelled");
    ExpectSlotFree();
    EXPECT_FALSE(t->SlotReportFile[1].Valid());
    EXPECT_NE(t.LogText().find("Error occurred while executing the step ("), std::string::npos);
}

TEST_F(StepSequencingTest, ALaterStepThatFailsToStartEndsTheTaskWithItsResult) {
    const std::string key = Task(2);
    Step(key, 1, "exit 1", "1", "1");
    Step(key, 2, "true", "2", "2");
    SetStepCell(t, key, 2, "BuffWidth", "wide");
    RunToEnd(key);
    EXPECT_EQ(Status(key), "Complete");
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "02");
    EXPECT_NE(t.LogText().find("(" + MakeStepKey(key, 2) + ")!"), std::string::npos);
    ExpectSlotFree();
}

TEST(UpdateTaskRc, ZeroAndNinetyNineStay) {
    TestServer t;
    const std::string key = t.AddTask(1, "T");
    UpdateTaskRc(*t, key, 7);
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "07");
    SetCell(t->tables, kTaskTable, key, "JobRC", "99");
    UpdateTaskRc(*t, key, 1);
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "99");
    SetCell(t->tables, kTaskTable, key, "JobRC", "00");
    UpdateTaskRc(*t, key, 1);
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "00");
}

}  // namespace
}  // namespace vq::test
