#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <thread>

#include "core/Monitor.h"
#include "core/StepSequencing.h"
#include "platform/Files.h"
#include "storage/QueueDatabase.h"
#include "storage/Settings.h"
#include "tests/support/RunnerSupport.h"

namespace vq::test {
namespace {

void Pause(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

class MonitorTest : public testing::Test {
  protected:
    MonitorTest() { t->RunnerPath = BinPath("runlet"); }

    void SetSetting(const char* name, const std::string& value) {
        SaveRegSetting(*t.registry, "ServerSettings", name, value);
    }
    void SetTask(const std::string& key, const char* column, const std::string& value) {
        SetCell(t->tables, kTaskTable, key, column, value);
    }
    // A finished task whose End lies `secondsAgo` in the past, with its folders and two steps.
    std::string FinishedTask(int number, const std::string& status, int64_t secondsAgo) {
        const std::string key =
            AddRunnableTask(t, number, "Done" + std::to_string(number), 2, status);
        SetTask(key, "End", FormatDateTime(AddSeconds(t.clock.Now(), -secondsAgo)));
        return key;
    }
    bool Exists(const std::string& key) { return t->tables.TaskTable.FindRow(key) != nullptr; }
    std::string Folder(const std::string& key) { return TaskCellOf(t, key, "RF") + "/"; }

    TestServer t;
};

TEST(DiagnosticPeriod, IsDiagCOver5000BoundedToWhatPollCountCounts) {
    const std::pair<int64_t, int> periods[] = {{5000, 1}, {60000, 12}, {4999, 0}, {-5000, 0}, {5000LL * 70000, 65535}};
    for (const auto& [diagC, ticks] : periods) EXPECT_EQ(DiagnosticPeriod(diagC), ticks) << diagC;
}

TEST_F(MonitorTest, PollCountRunsThroughTheDiagnosticPeriod) {
    SetSetting("DiagC", "60000");
    for (int i = 1; i <= 11; ++i) {
        Timer3_Timer(*t);
        EXPECT_EQ(t->PollCount, i);
    }
    Timer3_Timer(*t);
    EXPECT_EQ(t->PollCount, 0);
    SetSetting("DiagC", "5000");
    Timer3_Timer(*t);
    EXPECT_EQ(t->PollCount, 0);
    SetSetting("DiagC", "100");  // a period of 0 ticks behaves like 1
    Timer3_Timer(*t);
    EXPECT_EQ(t->PollCount, 0);
}

TEST_F(MonitorTest, PollCountNeverOverflows) {
    SetSetting("DiagC", "2000000000");  // far more ticks than 16 bits hold
    t->PollCount = 65534;
    Timer3_Timer(*t);
    EXPECT_EQ(t->PollCount, 0);  // the bounded period is reached
    // Failing ticks skip the reset; the count stops at its top instead of wrapping.
    FinishedTask(1, "Complete", 10);
    SetTask(MakeRowKey(1, "Done1"), "End", "not a date");
    t->PollCount = 65535;
    Timer3_Timer(*t);
    EXPECT_EQ(t->PollCount, 65535);
}

TEST_F(MonitorTest, AFailureEndsTheTickWithoutItsRefresh) {
    const std::string running = AddRunnableTask(t, 1, "Run", 1);
    ASSERT_TRUE(RunNextStep(*t, true, running, 1));
    const std::string broken = FinishedTask(2, "Complete", 10);  // the last row: walked first
    SetTask(broken, "End", "yesterday");
    const int loads = t.screen.treeLoads;
    Timer3_Timer(*t);
    EXPECT_NE(t.LogText().find("Error occurred while checking tasks.\r\n\r\n"), std::string::npos);
    EXPECT_EQ(t.screen.treeLoads, loads);
    EXPECT_EQ(StepCell(t, running, 1, "StepStatus"), "Running");  // not reached in this tick
}

TEST_F(MonitorTest, FinishedTasksLeaveAfterTheirStay) {
    // TIQH 1, TIQM 0 by default.
    const std::string old = FinishedTask(1, "Complete", 3601);
    const std::string cancelled = FinishedTask(2, "Complete - Cancelled", 3601);
    const std::string unfinished = FinishedTask(3, "Complete - Unfinished", 3601);
    const std::string recent = FinishedTask(4, "Complete", 3599);
    const std::string noEnd = FinishedTask(5, "Complete", 0);
    SetTask(noEnd, "End", "");
    const std::string waiting = FinishedTask(6, "Waiting", 7200);
    const std::string oldFolder = Folder(old);
    const std::string activeMarker = oldFolder + "ACTIVE.ACT";
    ASSERT_TRUE(PathExists(activeMarker));
    const int loads = t.screen.treeLoads;
    Timer3_Timer(*t);
    EXPECT_FALSE(Exists(old));
    EXPECT_FALSE(Exists(cancelled));
    EXPECT_FALSE(Exists(unfinished));
    EXPECT_TRUE(Exists(recent));
    EXPECT_TRUE(Exists(noEnd));
    EXPECT_TRUE(Exists(waiting));
    EXPECT_EQ(t.screen.treeLoads, loads + 1);
    // The steps go with their task; the folder stays, its marker doesn't.
    EXPECT_EQ(t->tables.StepTable.FindRow(MakeStepKey(old, 1)), nullptr);
    EXPECT_EQ(t->tables.StepTable.FindRow(MakeStepKey(old, 2)), nullptr);
    EXPECT_NE(t->tables.StepTable.FindRow(MakeStepKey(recent, 1)), nullptr);
    EXPECT_FALSE(PathExists(activeMarker));
    EXPECT_TRUE(IsFolder(oldFolder));
}

TEST_F(MonitorTest, TheStayIsHoursAndMinutesAndWithNoStayATaskLeavesOnceItsEndIsPast) {
    SetSetting("TIQH", "0");
    SetSetting("TIQM", "30");
    const std::string gone = FinishedTask(1, "Complete", 1801);
    const std::string kept = FinishedTask(2, "Complete", 1799);
    Timer3_Timer(*t);
    EXPECT_FALSE(Exists(gone));
    EXPECT_TRUE(Exists(kept));
    SetSetting("TIQM", "0");
    const std::string now = FinishedTask(3, "Complete", 0);
    Timer3_Timer(*t);
    EXPECT_FALSE(Exists(kept));
    EXPECT_TRUE(Exists(now));
    t.clock.Advance(1);
    Timer3_Timer(*t);
    EXPECT_FALSE(Exists(now));
}

TEST_F(MonitorTest, ARunningTaskIsRefreshedOnEveryTickAndAHeldOneIsLeftAlone) {
    const std::string key = AddRunnableTask(t, 1, "Held", 1);
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    SetTask(key, "Status", "Running - Hold");
    Pause(300);  // the step (true) has ended by now
    const int loads = t.screen.treeLoads;
    for (int i = 0; i < 3; ++i) Timer3_Timer(*t);
    EXPECT_EQ(t.screen.treeLoads, loads);
    EXPECT_EQ(StepCell(t, key, 1, "StepStatus"), "Running");
    EXPECT_EQ(TaskCellOf(t, key, "Status"), "Running - Hold");
    SetTask(key, "Status", "Running");
    ASSERT_TRUE(TickUntilComplete(t, key));
    EXPECT_GT(t.screen.treeLoads, loads);
    EXPECT_EQ(StepCell(t, key, 1, "StepStatus"), "Complete");
}

TEST_F(MonitorTest, ACancelledTaskWhoseCleanupStepEndsIsCompleteCancelled) {
    const std::string key = AddRunnableTask(t, 1, "Cleanup", 1);
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    SetTask(key, "Status", "Running - Cancelling");
    t->SlotState[1].cancelled = true;
    ASSERT_TRUE(TickUntilComplete(t, key));
    EXPECT_EQ(TaskCellOf(t, key, "Status"), "Complete - Cancelled");
    EXPECT_FALSE(t->SlotUsed[1]);
}

TEST_F(MonitorTest, ARunnerKilledFromOutsideEndsItsStepWith98) {
    const std::string key = AddRunnableTask(t, 1, "Killed", 2);
    SetStepCell(t, key, 1, "Command", "sleep 2");
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    Timer3_Timer(*t);
    ASSERT_EQ(StepCell(t, key, 1, "StepStatus"), "Running");
    const pid_t runner = t->link.slots[1].pid;
    ASSERT_GT(runner, 0);
    ASSERT_EQ(::kill(runner, SIGKILL), 0);
    ASSERT_TRUE(TickUntilComplete(t, key, 5000));
    EXPECT_EQ(StepCell(t, key, 1, "StepStatus"), "Complete");
    EXPECT_EQ(StepCell(t, key, 1, "StepRC"), "98");
    EXPECT_EQ(StepCell(t, key, 2, "StepStatus"), "Skipped");  // range 1 to 1
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "98");
    EXPECT_EQ(TaskCellOf(t, key, "Status"), "Complete");
    EXPECT_EQ(t->link.ReplyText, "Step runner ended unexpectedly.");
    EXPECT_FALSE(t->SlotUsed[1]);
    EXPECT_EQ(t->link.slots[1].pid, -1);
}

TEST_F(MonitorTest, ADiagnosticFollowsAPollWithValidCountersWhenThePeriodEnds) {
    const std::string key = AddRunnableTask(t, 1, "Diag", 1);
    SetStepCell(t, key, 1, "Command", "sleep 1");
    SetSetting("DiagC", "10000");  // every second tick
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    Pause(200);
    Timer3_Timer(*t);
    ASSERT_EQ(t->link.reply.CountersValid, 1);
    EXPECT_FALSE(PathExists(Folder(key) + "Diag1.txt"));
    Timer3_Timer(*t);
    EXPECT_TRUE(PathExists(Folder(key) + "Diag1.txt"));
    ASSERT_TRUE(TickUntilComplete(t, key));
}

TEST_F(MonitorTest, RunDiagnosticNeedsASlot) {
    const std::string key = t.AddTask(1, "Idle");
    EXPECT_FALSE(RunDiagnostic(*t, key));
    EXPECT_FALSE(RunDiagnostic(*t, "000009-Missing"));
    EXPECT_NE(t.LogText().find("Error occurred while running diagnostic!\n"), std::string::npos);
}

TEST_F(MonitorTest, ARepeatingTaskGetsItsNextRunWhenItEnds) {
    const std::string key = AddRunnableTask(t, 1, "Daily", 1);
    SetTask(key, "NIzv", "-1");
    SetStepCell(t, key, 1, "Command", "exit 9");  // 10, above MaxRC 8: a failure repeats too
    ASSERT_TRUE(WriteFileAtomic(Folder(key) + kOriginalTaskFile, "task"));
    t->NextTaskNumber = 1;
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    ASSERT_TRUE(TickUntilComplete(t, key));
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "10");
    const std::string next = MakeRowKey(2, "Daily");
    ASSERT_TRUE(Exists(next));
    EXPECT_EQ(TaskCellOf(t, next, "Status"), "Waiting");
    EXPECT_EQ(TaskCellOf(t, next, "AllR"), "0002");
}

TEST_F(MonitorTest, ATaskThatAskedToStopDoesntRepeat) {
    const std::string key = AddRunnableTask(t, 1, "Stop", 1);
    SetTask(key, "NIzv", "-1");
    SetStepCell(t, key, 1, "Command", "echo 0 > rc.txt");
    SetStepCell(t, key, 1, "FileRC", "rc.txt");
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    ASSERT_TRUE(TickUntilComplete(t, key));
    EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "00");
    EXPECT_EQ(t->tables.TaskTable.RowCount(), 1u);
}

class PrepareNextRunTest : public MonitorTest {
  protected:
    PrepareNextRunTest() {
        key = FinishedTask(7, "Complete", 10);
        SetTask(key, "AllR", "0004");
        SetTask(key, "JobRC", "03");
        SetTask(key, "CurStep", "0002");
        SetTask(key, "Start", "2026-11-22 11:00:00");
        SetTask(key, "TCPU", "0:00:01:00:000");
        SetTask(key, "Units", "000000123");
        SetTask(key, "NIzv", "-1");
        SetTask(key, "SchTime", "2026-11-23 12:00:00");
        SetStepCell(t, key, 2, "StepStatus", "Complete");
        SetStepCell(t, key, 2, "StepRC", "03");
        SetStepCell(t, key, 2, "SIO", "00000000000042");
        SetStepCell(t, key, 2, "SSMem", "77");
        SetStepCell(t, key, 2, "Command", "make");
        t->NextTaskNumber = 40;
    }
    std::string key;
};

TEST_F(PrepareNextRunTest, MakesANewRowWithANewNumberResetCellsAndANewFolder) {
    ASSERT_TRUE(WriteFileAtomic(Folder(key) + kOriginalTaskFile, "the task file"));
    ASSERT_TRUE(PrepareNextRun(*t, key));
    const std::string next = MakeRowKey(41, "Done7");
    ASSERT_TRUE(Exists(next));
    EXPECT_EQ(t->NextTaskNumber, 41);
    EXPECT_EQ(JobNumberStore(*t, false), 41);  // stored: a restart goes on from it
    // New and reset cells, then cells kept from the old row.
    const std::pair<const char*, const char*> cells[] = {
        {"ID", "000041"},       {"Status", "Waiting"},     {"AllR", "0005"},
        {"CurStep", "0000"},    {"JobRC", "01"},           {"TCPU", "0:00:00:00:000"},
        {"Units", "000000000"}, {"IO", "00000000000000"},  {"PeakMem", "000000000"},
        {"Queue Priority", "000000"}, {"Start", ""},       {"End", ""},
        {"JobIndex", ""},       {"NIzv", "-1"},            {"SchTime", "2026-11-23 12:00:00"},
        {"AllSteps", "0002"}};
    for (const auto& [column, value] : cells) EXPECT_EQ(TaskCellOf(t, next, column), value) << column;
    // Its own folder, with the task file.
    const std::string folder = TaskCellOf(t, next, "RF");
    EXPECT_EQ(folder, t->ServerPath + "LOCAL/$LOCALUSER$/Done7/000041");
    EXPECT_TRUE(IsFolder(folder));
    EXPECT_EQ(ReadFileText(folder + "/" + kOriginalTaskFile), "the task file");
    // The steps, copied and reset.
    for (int i = 1; i <= 2; ++i) {
        EXPECT_EQ(StepCell(t, next, i, "Parent"), next);
        EXPECT_EQ(StepCell(t, next, i, "StepStatus"), "Pending");
        EXPECT_EQ(StepCell(t, next, i, "StepRC"), "00");
        EXPECT_EQ(StepCell(t, next, i, "SIO"), "00000000000000");
        EXPECT_EQ(StepCell(t, next, i, "SSMem"), "0");
        EXPECT_EQ(StepCell(t, next, i, "STCPU"), "0:00:00:00:000");
    }
    EXPECT_EQ(StepCell(t, next, 2, "Command"), "make");
    // The finished row stays as it was.
    EXPECT_EQ(TaskCellOf(t, key, "Status"), "Complete");
    EXPECT_EQ(TaskCellOf(t, key, "AllR"), "0004");
    EXPECT_EQ(StepCell(t, key, 2, "StepRC"), "03");
}

TEST_F(PrepareNextRunTest, TheNumberStartsAgainAfter999999) {
    t->NextTaskNumber = 999999;
    PrepareNextRun(*t, key);
    EXPECT_TRUE(Exists(MakeRowKey(1, "Done7")));
}

TEST_F(PrepareNextRunTest, TheLastNumberIs999999NeverZero) {
    t->NextTaskNumber = 999998;
    PrepareNextRun(*t, key);
    EXPECT_TRUE(Exists(MakeRowKey(999999, "Done7")));
    EXPECT_FALSE(Exists(MakeRowKey(0, "Done7")));
}

TEST_F(PrepareNextRunTest, AMissingTaskFileFailsWithoutAMessageAndKeepsWhatWasWritten) {
    const std::string logBefore = t.LogText();
    EXPECT_FALSE(PrepareNextRun(*t, key));
    EXPECT_TRUE(Exists(MakeRowKey(41, "Done7")));
    EXPECT_EQ(t.LogText(), logBefore);
    EXPECT_FALSE(PrepareNextRun(*t, "000099-Missing"));
}

}  // namespace
}  // namespace vq::test
