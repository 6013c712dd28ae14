// The queue cycle: ageing, the start pass by priority text, slots, and the promotion pass.
#include <gtest/gtest.h>

#include "core/QueueCycle.h"
#include "core/tables/Status.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::TestServer;

class QueueCycleTest : public ::testing::Test {
protected:
    QueueCycleTest() {
        // Stand-ins that record the cycle's calls; a started task takes its slot.
        ts->RunNextStepSeam = [this](Server& s, bool first, const std::string& key, uint8_t slot) {
            started.push_back(key);
            EXPECT_TRUE(first);
            if (!startSucceeds) return false;
            s.SlotUsed[slot] = true;
            ++s.RunningTaskCount;
            SetCell(s.tables, kTaskTable, key, "Status", kRunning);
            return true;
        };
        ts->CheckRepeatSeam = [this](Server& s, const std::string& key) {
            checked.push_back(key);
            if (!due) return false;
            SetCell(s.tables, kTaskTable, key, "Status", kReady);
            return true;
        };
    }
    std::string Cell(const std::string& key, const char* column) {
        return GetCell(ts->tables, kTaskTable, key, column);
    }

    TestServer ts;
    std::vector<std::string> started, checked;
    bool startSucceeds = true;
    bool due = false;
};

TEST_F(QueueCycleTest, AnEmptyQueueDoesNothing) {
    Timer1_Timer(*ts);
    EXPECT_TRUE(started.empty());
    EXPECT_EQ(ts.screen.treeLoads, 0);
    EXPECT_EQ(ts.LogText(), "");
}

// Two ticks: every phase but Complete ages, 999999 grows wider, the bound restarts.
TEST_F(QueueCycleTest, AgesEveryPhaseButCompleteAndRestartsAboveTheBound) {
    const struct {
        std::string status;
        const char *before, *after;
    } cases[] = {{kWaitingHold, "000200", "000202"}, {kRunningHold, "000010", "000012"},
                 {kCompleteCancelled, "000300", "000300"}, {kWaiting, "000000", "000000"},
                 {kWaiting, "", ""}, {kWaiting, "999999", "1000001"},
                 {kWaiting, "1999999999", "2000000001"}, {kWaiting, "2000000000", "000002"}};
    std::vector<std::string> keys;
    for (const auto& c : cases) keys.push_back(ts.AddTask(static_cast<int>(keys.size()) + 1, "T", c.status, c.before));
    Timer1_Timer(*ts);
    Timer1_Timer(*ts);
    for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(Cell(keys[i], "Queue Priority"), cases[i].after) << cases[i].before;
}

TEST_F(QueueCycleTest, TheHighestPriorityTextStartsAndThePassEndsAtTheFirstMissingSlot) {
    const auto low = ts.AddTask(1, "Low", kReady, "000100");
    const auto high = ts.AddTask(2, "High", kReady, "000300");
    ts.AddTask(3, "Held", kReadyHold, "000900");
    Timer1_Timer(*ts);
    ASSERT_EQ(started, std::vector<std::string>{high});
    EXPECT_EQ(Cell(low, "Status"), kReady);
    EXPECT_EQ(ts.screen.treeLoads, 1);
    // The slot is taken: the next tick looks at no Ready task.
    Timer1_Timer(*ts);
    EXPECT_EQ(started.size(), 1u);
}

TEST_F(QueueCycleTest, TheSortIsOnTextSo1000000StandsBelow999998) {
    const auto wide = ts.AddTask(1, "Wide", kReady, "999999");   // ages to 1000000
    const auto narrow = ts.AddTask(2, "Narrow", kReady, "999997");  // ages to 999998
    Timer1_Timer(*ts);
    EXPECT_EQ(started, std::vector<std::string>{narrow});
    EXPECT_EQ(Cell(wide, "Status"), kReady);
}

TEST_F(QueueCycleTest, AFailedStartLeavesTheSlotForTheNextReadyTaskAndTheLimitStopsStarts) {
    startSucceeds = false;
    ts.AddTask(1, "A", kReady, "000300");
    ts.AddTask(2, "B", kReady, "000200");
    Timer1_Timer(*ts);
    EXPECT_EQ(started.size(), 2u);
    EXPECT_EQ(ts.screen.treeLoads, 0);
    ts->RunningTaskCount = 1;
    Timer1_Timer(*ts);
    EXPECT_EQ(started.size(), 2u);
}

TEST_F(QueueCycleTest, TheSortOfTheTableIsPutBack) {
    ts.AddTask(1, "b", kWaiting, "000100");
    ts.AddTask(2, "a", kWaiting, "000300");
    ts->tables.TaskTable.SortOn(0, false);
    Timer1_Timer(*ts);
    EXPECT_EQ(ts->tables.TaskTable.SortKey(), 0);
    EXPECT_FALSE(ts->tables.TaskTable.SortDescending());
    EXPECT_EQ(ts->tables.TaskTable.RowAt(0).Text(), "a");
}

TEST_F(QueueCycleTest, AMetDependencyLosesItsMarkWhenTheTaskBecomesReady) {
    due = true;
    const auto met = ts.AddTask(1, "Met", kWaiting);
    const auto waits = ts.AddTask(2, "Waits", kWaiting);
    const auto held = ts.AddTask(3, "Held", kWaitingHold);
    const auto free = ts.AddTask(4, "Free", kWaiting);
    SetCell(ts->tables, kTaskTable, met, "Dependency", "$Build");
    SetCell(ts->tables, kTaskTable, waits, "Dependency", "Build");
    Timer1_Timer(*ts);
    EXPECT_EQ(Cell(met, "Status"), kReady);
    EXPECT_EQ(Cell(met, "Dependency"), "Build");
    EXPECT_EQ(Cell(waits, "Status"), kWaiting);
    EXPECT_EQ(Cell(held, "Status"), kWaitingHold);
    EXPECT_EQ(Cell(free, "Status"), kReady);
    // The promotion pass walks the restored order: by name.
    EXPECT_EQ(checked, (std::vector<std::string>{free, met}));
    // Ready in this tick, started in the next one at the earliest.
    EXPECT_TRUE(started.empty());
    Timer1_Timer(*ts);
    EXPECT_EQ(started.size(), 1u);
}

TEST_F(QueueCycleTest, ATaskNotYetDueStaysWaitingWithItsMark) {
    const auto key = ts.AddTask(1, "Later", kWaiting);
    SetCell(ts->tables, kTaskTable, key, "Dependency", "$Build");
    Timer1_Timer(*ts);
    EXPECT_EQ(Cell(key, "Status"), kWaiting);
    EXPECT_EQ(Cell(key, "Dependency"), "$Build");
    EXPECT_EQ(ts.screen.treeLoads, 0);
}

TEST_F(QueueCycleTest, ABadPriorityEndsTheTickWithALogEntry) {
    const auto bad = ts.AddTask(1, "Bad", kReady, "12x");
    Timer1_Timer(*ts);
    EXPECT_TRUE(started.empty());
    EXPECT_NE(ts.LogText().find("Error occurred while checking queue.\r\n\r\nType mismatch"), std::string::npos);
    EXPECT_EQ(Cell(bad, "Queue Priority"), "12x");
}

TEST(FindFreeSlot, GivesTheLowestFreeSlotUnderTheLimit) {
    TestServer ts;
    ts->SizeSlots(3);
    ts->MaxRunningTasks = 2;
    uint8_t slot = 0;
    ASSERT_TRUE(FindFreeSlot(*ts, slot));
    EXPECT_EQ(slot, 1);
    ts->SlotUsed[1] = true;
    ts->RunningTaskCount = 1;
    ASSERT_TRUE(FindFreeSlot(*ts, slot));
    EXPECT_EQ(slot, 2);
    ts->RunningTaskCount = 2;
    EXPECT_FALSE(FindFreeSlot(*ts, slot));
    ts->RunningTaskCount = 1;
    ts->SlotUsed[2] = ts->SlotUsed[3] = true;
    EXPECT_FALSE(FindFreeSlot(*ts, slot));
}

TEST(QSS, SwitchesTheQueueAndTellsTheScreen) {
    TestServer ts;
    QSS(*ts, true);
    EXPECT_TRUE(ts->QueueStarted);
    QSS(*ts, false);
    EXPECT_FALSE(ts->QueueStarted);
    EXPECT_EQ(ts.screen.queueSwitches, (std::vector<bool>{true, false}));
}

}  // namespace
}  // namespace vq
