#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <thread>

#include "core/Monitor.h"
#include "core/StepSequencing.h"
#include "core/TaskControl.h"
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

// PollCount goes back to 0 when it reaches the period (a period of 0 ticks behaves like 1); a
// failing tick skips that, and the count stops at its top instead of wrapping.
TEST_F(MonitorTest, PollCountRunsThroughTheDiagnosticPeriod) {
    const struct {
        const char* diagC;
        int ticks, before, after;
    } cases[] = {{"60000", 11, 0, 11}, {"60000", 1, 11, 0}, {"5000", 1, 0, 0}, {"100", 1, 0, 0},
                 {"2000000000", 1, 65534, 0}};
    for (const auto& c : cases) {
        SetSetting("DiagC", c.diagC);
        t->PollCount = static_cast<uint16_t>(c.before);
        for (int i = 0; i < c.ticks; ++i) Timer3_Timer(*t);
        EXPECT_EQ(t->PollCount, c.after) << c.diagC << " from " << c.before;
    }
    SetTask(FinishedTask(1, "Complete", 10), "End", "not a date");
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

// A finished task leaves when End plus TIQH hours and TIQM minutes lies in the past: its rows
// and its ACTIVE.ACT go, its folder stays.
TEST_F(MonitorTest, FinishedTasksLeaveAfterTheirStay) {
    const struct {
        const char* status;
        int64_t secondsAgo;  // -1: no End
        const char *hours, *minutes;
        bool leaves;
    } cases[] = {{"Complete", 3601, "1", "0", true},
                 {"Complete - Cancelled", 3601, "1", "0", true},
                 {"Complete - Unfinished", 3601, "1", "0", true},
                 {"Complete", 3599, "1", "0", false},
                 {"Waiting", 7200, "1", "0", false},
                 {"Complete", -1, "0", "0", false},
                 {"Complete", 1801, "0", "30", true},
                 {"Complete", 1799, "0", "30", false},
                 {"Complete", 1, "0", "0", true},
                 {"Complete", 0, "0", "0", false}};
    int number = 0;
    for (const auto& c : cases) {
        SetSetting("TIQH", c.hours);
        SetSetting("TIQM", c.minutes);
        const std::string key =
            FinishedTask(++number, c.status, std::max<int64_t>(c.secondsAgo, 0));
        if (c.secondsAgo < 0) SetTask(key, "End", "");
        const std::string folder = Folder(key);
        const int loads = t.screen.treeLoads;
        Timer3_Timer(*t);
        EXPECT_EQ(Exists(key), !c.leaves) << number;
        EXPECT_EQ(t.screen.treeLoads, loads + (c.leaves ? 1 : 0)) << number;
        EXPECT_EQ(t->tables.StepTable.FindRow(MakeStepKey(key, 2)) != nullptr, !c.leaves) << number;
        EXPECT_EQ(PathExists(folder + "ACTIVE.ACT"), !c.leaves) << number;
        EXPECT_TRUE(IsFolder(folder));
        if (!c.leaves) RemoveTask(*t, key, false);
    }
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

// A damaged row met while a step ends is logged once: the task gives its slot back and ends,
// and the next tick doesn't take it up again.
TEST_F(MonitorTest, ADamagedRowEndsItsTaskOnce) {
    t->RunnerPath = t.dir.Path() + "no-runner";  // the first poll ends the step with 98
    // A later step's MinRC damaged, or the running step's row gone.
    const std::pair<bool, const char*> cases[] = {
        {true, "executing the step (000001-Run-Step2)!\nType mismatch"},
        {false, "checking tasks.\r\n\r\nElement not found"}};
    for (const auto& [laterStep, logged] : cases) {
        const std::string key = AddRunnableTask(t, 1, "Run", 2);
        SetStepCell(t, key, 2, "MinRC", "98");
        ASSERT_TRUE(RunNextStep(*t, true, key, 1));
        if (laterStep)
            SetStepCell(t, key, 2, "MinRC", "x");
        else
            t->tables.StepTable.RemoveRow(MakeStepKey(key, 1));
        Timer3_Timer(*t);
        const std::string log = t.LogText();
        EXPECT_NE(log.find(std::string("Error occurred while ") + logged), std::string::npos)
            << log;
        EXPECT_EQ(TaskCellOf(t, key, "Status"), "Complete");
        EXPECT_EQ(TaskCellOf(t, key, "JobIndex"), "");
        EXPECT_FALSE(t->SlotUsed[1]);
        Timer3_Timer(*t);
        EXPECT_EQ(t.LogText(), log);
        RemoveTask(*t, key, false);
    }
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

// A repeating task gets its next run when it ends, a failed one too, but not one that asked to
// stop with 0.
TEST_F(MonitorTest, ARepeatingTaskGetsItsNextRunUnlessItAskedToStop) {
    const struct {
        const char *command, *jobRc;
        bool repeats;
    } cases[] = {{"exit 9", "10", true}, {"echo 0 > rc.txt", "00", false}};
    int number = 0;
    for (const auto& c : cases) {
        const std::string key = AddRunnableTask(t, ++number, "Daily", 1);
        SetTask(key, "NIzv", "-1");
        SetStepCell(t, key, 1, "Command", c.command);
        SetStepCell(t, key, 1, "FileRC", "rc.txt");
        ASSERT_TRUE(WriteFileAtomic(Folder(key) + kOriginalTaskFile, "task"));
        t->NextTaskNumber = 10 * number;
        ASSERT_TRUE(RunNextStep(*t, true, key, 1));
        ASSERT_TRUE(TickUntilComplete(t, key));
        EXPECT_EQ(TaskCellOf(t, key, "JobRC"), c.jobRc);
        const std::string next = MakeRowKey(10 * number + 1, "Daily");
        EXPECT_EQ(Exists(next), c.repeats) << c.command;
        if (c.repeats) {
            EXPECT_EQ(TaskCellOf(t, next, "Status"), "Waiting");
            EXPECT_EQ(TaskCellOf(t, next, "AllR"), "0002");
        }
    }
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
