#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "core/Monitor.h"
#include "core/StepSequencing.h"
#include "core/TaskControl.h"
#include "platform/Files.h"
#include "storage/Settings.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

void Pause(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

class MonitorTest : public testing::Test {
  protected:
    MonitorTest() { t->RunnerPath = BinPath("runlet"); }

    // A finished task whose End lies `secondsAgo` in the past, with its folders and two steps.
    std::string FinishedTask(int number, const std::string& status, int64_t secondsAgo) {
        const std::string key =
            AddRunnableTask(t, number, "Done" + std::to_string(number), 2, status);
        SetTaskCell(t, key, "End", FormatDateTime(AddSeconds(t.clock.Now(), -secondsAgo)));
        return key;
    }
    std::string Folder(const std::string& key) { return TaskCellOf(t, key, "RF") + "/"; }

    TestServer t;
};

// PollCount goes back to 0 when it reaches the period: DiagC over 5000, a period below one tick
// as one, a period beyond the 16-bit count as its top.
TEST_F(MonitorTest, PollCountRunsThroughTheDiagnosticPeriod) {
    const struct {
        const char* diagC;
        int ticks, before, after;
    } cases[] = {{"60000", 11, 0, 11}, {"60000", 1, 11, 0}, {"5000", 1, 0, 0}, {"4999", 1, 3, 0},
                 {"-5000", 1, 3, 0}, {"2000000000", 1, 65534, 0}};
    for (const auto& c : cases) {
        t.SetSetting("DiagC", c.diagC);
        t->PollCount = static_cast<uint16_t>(c.before);
        for (int i = 0; i < c.ticks; ++i) Timer3_Timer(*t);
        EXPECT_EQ(t->PollCount, c.after) << c.diagC << " from " << c.before;
    }
}

// A failure ends the tick without its refresh, and its PollCount stops at its top instead of
// wrapping.
TEST_F(MonitorTest, AFailureEndsTheTickWithoutItsRefresh) {
    const std::string running = AddRunnableTask(t, 1, "Run", 1);
    ASSERT_TRUE(RunNextStep(*t, true, running, 1));
    const std::string broken = FinishedTask(2, "Complete", 10);  // the last row: walked first
    SetTaskCell(t, broken, "End", "yesterday");
    const int loads = t.screen.treeLoads;
    t->PollCount = 65535;
    Timer3_Timer(*t);
    EXPECT_EQ(t->PollCount, 65535);
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
    } cases[] = {{"Complete - Cancelled", 3601, "1", "0", true},
                 {"Complete", 3599, "1", "0", false},
                 {"Waiting", 7200, "1", "0", false},
                 {"Complete", -1, "0", "0", false},
                 {"Complete", 1801, "0", "30", true},
                 {"Complete", 1799, "0", "30", false},
                 {"Complete", 1, "0", "0", true},
                 {"Complete", 0, "0", "0", false}};
    int number = 0;
    for (const auto& c : cases) {
        t.SetSetting("TIQH", c.hours);
        t.SetSetting("TIQM", c.minutes);
        const std::string key =
            FinishedTask(++number, c.status, std::max<int64_t>(c.secondsAgo, 0));
        if (c.secondsAgo < 0) SetTaskCell(t, key, "End", "");
        const std::string folder = Folder(key);
        const int loads = t.screen.treeLoads;
        Timer3_Timer(*t);
        EXPECT_EQ(HasTask(t, key), !c.leaves) << number;
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
    SetTaskCell(t, key, "Status", "Running - Hold");
    Pause(300);  // the step (true) has ended by now
    const int loads = t.screen.treeLoads;
    for (int i = 0; i < 3; ++i) Timer3_Timer(*t);
    EXPECT_EQ(t.screen.treeLoads, loads);
    EXPECT_EQ(StepCell(t, key, 1, "StepStatus"), "Running");
    EXPECT_EQ(TaskCellOf(t, key, "Status"), "Running - Hold");
    SetTaskCell(t, key, "Status", "Running");
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
        EXPECT_THAT(log, testing::HasSubstr(std::string("Error occurred while ") + logged));
        EXPECT_EQ(TaskCellOf(t, key, "Status"), "Complete");
        EXPECT_EQ(TaskCellOf(t, key, "JobIndex"), "");
        EXPECT_FALSE(t->SlotUsed[1]);
        Timer3_Timer(*t);
        EXPECT_EQ(t.LogText(), log);
        RemoveTask(*t, key, false);
    }
}

// A diagnostic needs a slot; a running step's follows a poll with valid counters.
TEST_F(MonitorTest, ADiagnosticFollowsAPollWithValidCountersWhenThePeriodEnds) {
    const std::string key = AddRunnableTask(t, 1, "Diag", 1);
    EXPECT_FALSE(RunDiagnostic(*t, key));
    EXPECT_FALSE(RunDiagnostic(*t, "000009-Missing"));
    EXPECT_NE(t.LogText().find("Error occurred while running diagnostic!\n"), std::string::npos);
    SetStepCell(t, key, 1, "Command", "sleep 1");
    t.SetSetting("DiagC", "10000");  // every second tick
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    Pause(200);
    Timer3_Timer(*t);
    ASSERT_EQ(t->link.reply.CountersValid, 1);
    EXPECT_FALSE(PathExists(Folder(key) + "Diag1.txt"));
    Timer3_Timer(*t);
    EXPECT_TRUE(PathExists(Folder(key) + "Diag1.txt"));
    ASSERT_TRUE(TickUntilComplete(t, key));
}

// A repeating task gets its next run when it ends, a failed one too, but not one that asked to
// stop with 0. The next run is a new row with the next number, copied and reset, with a folder
// of its own that holds the task file; the finished row stays as it was.
TEST_F(MonitorTest, ARepeatingTaskGetsItsNextRunUnlessItAskedToStop) {
    const struct {
        const char *command, *jobRc;
        bool repeats;
    } cases[] = {{"exit 9", "10", true}, {"echo 0 > rc.txt", "00", false}};
    int number = 0;
    for (const auto& c : cases) {
        const std::string key = AddRunnableTask(t, ++number, "Daily", 1);
        SetTaskCell(t, key, "NIzv", "-1");
        SetStepCell(t, key, 1, "Command", c.command);
        SetStepCell(t, key, 1, "FileRC", "rc.txt");
        ASSERT_TRUE(WriteFileAtomic(Folder(key) + kOriginalTaskFile, "task"));
        t->NextTaskNumber = 10 * number;
        ASSERT_TRUE(RunNextStep(*t, true, key, 1));
        ASSERT_TRUE(TickUntilComplete(t, key));
        EXPECT_EQ(TaskCellOf(t, key, "JobRC"), c.jobRc);
        EXPECT_EQ(HasTask(t, MakeRowKey(10 * number + 1, "Daily")), c.repeats) << c.command;
    }
    const std::string next = MakeRowKey(11, "Daily");
    const std::pair<const char*, const char*> cells[] = {
        {"ID", "000011"},       {"Status", "Waiting"},     {"AllR", "0002"},
        {"CurStep", "0000"},    {"JobRC", "01"},           {"TCPU", "0:00:00:00:000"},
        {"Units", "000000000"}, {"IO", "00000000000000"},  {"PeakMem", "000000000"},
        {"Queue Priority", "000000"}, {"Start", ""},       {"End", ""},
        {"JobIndex", ""},       {"NIzv", "-1"},            {"AllSteps", "0001"}};
    for (const auto& [column, value] : cells) EXPECT_EQ(TaskCellOf(t, next, column), value) << column;
    const std::pair<const char*, const char*> stepCells[] = {
        {"Parent", next.c_str()}, {"StepStatus", "Pending"}, {"StepRC", "00"},
        {"SIO", "00000000000000"}, {"SSMem", "0"}, {"STCPU", "0:00:00:00:000"}, {"Command", "exit 9"}};
    for (const auto& [column, value] : stepCells) EXPECT_EQ(StepCell(t, next, 1, column), value) << column;
    EXPECT_EQ(TaskCellOf(t, next, "RF"), t->ServerPath + "LOCAL/$LOCALUSER$/Daily/000011");
    EXPECT_EQ(ReadFileText(Folder(next) + kOriginalTaskFile), "task");
}

TEST_F(MonitorTest, ANextRunWithoutItsTaskFileFailsWithoutAMessageAndKeepsWhatWasWritten) {
    const std::string key = FinishedTask(7, "Complete", 10);
    t->NextTaskNumber = 40;
    EXPECT_FALSE(PrepareNextRun(*t, key));
    EXPECT_TRUE(HasTask(t, MakeRowKey(41, "Done7")));
    EXPECT_EQ(t.LogText(), "");
    EXPECT_FALSE(PrepareNextRun(*t, "000099-Missing"));
}

}  // namespace
}  // namespace vq::test
