// The queue cycle: ageing, the start pass by priority text through the real step sequencing,
// slots, a damaged task that stops only itself, and the sort put back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/QueueCycle.h"
#include "runner/RunnerLink.h"
#include "core/tables/Status.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::TestServer;
using ::testing::HasSubstr;
using ::testing::Not;

class QueueCycleTest : public ::testing::Test {
protected:
    // A runner that can't be launched: a start takes the slot and launches nothing.
    QueueCycleTest() { ts->RunnerPath = ts.dir.Path() + "no-runner"; }
    std::string Task(int number, const char* name, const std::string& status,
                     const char* priority) {
        const std::string key = ts.AddTask(number, name, status, priority);
        ts.AddSteps(key, 1);
        return key;
    }
    std::string Cell(const std::string& key, const char* column) {
        return GetCell(ts->tables, kTaskTable, key, column);
    }

    TestServer ts;
};

// Two ticks: every phase but Complete ages, 999999 grows wider, the bound restarts.
TEST_F(QueueCycleTest, AgesEveryPhaseButCompleteAndRestartsAboveTheBound) {
    const struct {
        std::string status;
        const char *before, *after;
    } cases[] = {{kWaitingHold, "000200", "000202"},   {kRunningHold, "000010", "000012"},
                 {kCompleteCancelled, "000300", "000300"}, {kWaiting, "000000", "000000"},
                 {kWaiting, "", ""},                    {kWaiting, "999999", "1000001"},
                 {kWaiting, "1999999999", "2000000001"}, {kWaiting, "2000000000", "000002"}};
    std::vector<std::string> keys;
    for (const auto& c : cases)
        keys.push_back(ts.AddTask(static_cast<int>(keys.size()) + 1, "T", c.status, c.before));
    Timer1_Timer(*ts);
    Timer1_Timer(*ts);
    for (size_t i = 0; i < keys.size(); ++i)
        EXPECT_EQ(Cell(keys[i], "Queue Priority"), cases[i].after) << cases[i].before;
}

// Three slots, of which the first is another task's, and room for two running tasks.
TEST_F(QueueCycleTest, TheHighestPriorityTextStartsAndThePassEndsAtTheFirstMissingSlot) {
    ts->SizeSlots(3);
    ts->MaxRunningTasks = 2;
    ASSERT_TRUE(TakeSlot(*ts, 1));
    const auto low = Task(1, "Low", kReady, "000100");
    const auto high = Task(2, "High", kReady, "000300");
    const auto held = Task(3, "Held", kReadyHold, "000900");
    const auto wide = Task(4, "Wide", kReady, "999999");      // 1000000: as text below 999998
    const auto narrow = Task(5, "Narrow", kReady, "999997");  // 999998: the highest text
    Timer1_Timer(*ts);
    EXPECT_EQ(Cell(narrow, "Status"), kRunning);
    EXPECT_EQ(Cell(narrow, "JobIndex"), "2");
    for (const auto& key : {low, high, wide}) EXPECT_EQ(Cell(key, "Status"), kReady) << key;
    EXPECT_EQ(Cell(held, "Status"), kReadyHold);
    EXPECT_EQ(ts.screen.treeLoads, 1);
    // Two tasks run: the next tick starts nothing though slot 3 is free; nor does one in which
    // every slot is taken below a higher limit.
    Timer1_Timer(*ts);
    ts->MaxRunningTasks = 3;
    ts->SlotUsed[3] = true;
    Timer1_Timer(*ts);
    EXPECT_EQ(Cell(wide, "Status"), kReady);
    EXPECT_EQ(ts->RunningTaskCount, 2);
}

// A task whose rows are damaged is logged with the step it stood at and cancelled, one with no
// step to run ends; either way the slot stays free and the next Ready task starts in the same
// tick.
TEST_F(QueueCycleTest, ADamagedTaskOrOneWithNoStepToRunStopsOnlyItself) {
    // Step 1's MinRC is no number, step 1's row is gone, or step 1 is not to be executed.
    const struct {
        const char *column, *value, *failure;
        std::string status;
    } cases[] = {{"MinRC", "one", "Type mismatch", kCompleteCancelled},
                 {nullptr, nullptr, "Element not found", kCompleteCancelled},
                 {"Execute", "No", nullptr, kComplete}};
    int number = 0;
    for (const auto& c : cases) {
        const auto damaged = Task(++number, "Damaged", kReady, "000500");
        const auto next = Task(++number, "Next", kReady, "000100");
        if (c.column)
            SetCell(ts->tables, kStepTable, MakeStepKey(damaged, 1), c.column, c.value);
        else
            ts->tables.StepTable.RemoveRow(MakeStepKey(damaged, 1));
        Timer1_Timer(*ts);
        if (c.failure) {
            EXPECT_THAT(ts.LogText(), HasSubstr("Error occurred while executing the step (" +
                                                MakeStepKey(damaged, 1) + ")!\n" + c.failure));
        }
        EXPECT_THAT(ts.LogText(), Not(HasSubstr("checking queue")));
        EXPECT_EQ(Cell(damaged, "Status"), c.status);
        EXPECT_EQ(Cell(damaged, "JobIndex"), "");
        EXPECT_EQ(Cell(next, "Status"), kRunning);
        EXPECT_EQ(ts->RunningTaskCount, 1);
        ts->SlotUsed[1] = false;  // room for the next case
        ts->RunningTaskCount = 0;
        SetCell(ts->tables, kTaskTable, next, "Status", kComplete);
    }
}

// An empty queue does nothing; a full one puts the sort of the table back.
TEST_F(QueueCycleTest, AnEmptyQueueDoesNothingAndTheSortOfTheTableIsPutBack) {
    Timer1_Timer(*ts);
    EXPECT_EQ(ts.screen.treeLoads, 0);
    EXPECT_EQ(ts.LogText(), "");
    ts.AddTask(1, "b", kWaiting, "000100");
    ts.AddTask(2, "a", kWaiting, "000300");
    ts->tables.TaskTable.SortOn(0, false);
    Timer1_Timer(*ts);
    EXPECT_EQ(ts->tables.TaskTable.SortKey(), 0);
    EXPECT_FALSE(ts->tables.TaskTable.SortDescending());
    EXPECT_EQ(ts->tables.TaskTable.RowAt(0).Text(), "a");
}

TEST_F(QueueCycleTest, ABadPriorityEndsTheTickWithALogEntry) {
    const auto bad = Task(1, "Bad", kReady, "12x");
    Timer1_Timer(*ts);
    EXPECT_THAT(ts.LogText(),
                HasSubstr("Error occurred while checking queue.\r\n\r\nType mismatch"));
    EXPECT_EQ(Cell(bad, "Queue Priority"), "12x");
    EXPECT_EQ(Cell(bad, "Status"), kReady);
}

}  // namespace
}  // namespace vq
