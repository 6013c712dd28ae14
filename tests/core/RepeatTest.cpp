// Repeat and dependency through the queue cycle: a due run makes the task Ready, the schedule's
// state is written at every check, a spent schedule cancels, a bad repeat string fails the tick
// alone, and an end releases the tasks that wait for its name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/Monitor.h"
#include "core/QueueCycle.h"
#include "core/Repeat.h"
#include "core/TaskControl.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

using ::testing::HasSubstr;

const std::string kSingleRun = "0000" + std::string(38, ' ') + "0000ED";
const std::string kEvery10Minutes = "0000" + std::string(38, ' ') + "0010ED";
// Working days that are Sundays: no date qualifies.
const std::string kNoDay = "0000" + std::string(31, ' ') + "X      0100WD";

class RepeatTest : public testing::Test {
  protected:
    std::string Waiting(int number, const char* name, const std::string& repeat,
                        const char* scheduled, const char* dependency = "") {
        const std::string key = AddRunnableTask(t, number, name, 1, kWaiting);
        Set(key, "Repeat", repeat);
        Set(key, "SchTime", scheduled);
        Set(key, "Dependency", dependency);
        return key;
    }
    void Set(const std::string& key, const char* column, const std::string& value) {
        SetCell(t->tables, kTaskTable, key, column, value);
    }
    std::string Cell(const std::string& key, const char* column) { return TaskCellOf(t, key, column); }

    TestServer t;  // the clock stands at 2026-11-22 12:00:00
};

struct CheckCase {
    const char* name;
    std::string repeat;
    const char* scheduled;
    const char* dependency;
    const char* status;
    const char *curRepeat, *nIzv, *schTime, *dependencyAfter;
    const char* repCnt;  // the slot's number, set when Ready; a single run's is its count 0
};

TEST_F(RepeatTest, EachCheckWritesTheScheduleAndADueRunBecomesReady) {
    const CheckCase cases[] = {
        {"due single run", kSingleRun, "2026-11-19 12:00:00", "", "Ready", "1899-12-30 00:00:00",
         "0", "2026-11-19 12:00:00", "", "0"},
        {"met dependency", kSingleRun, "2026-11-19 12:00:00", "$Build", "Ready",
         "1899-12-30 00:00:00", "0", "2026-11-19 12:00:00", "Build", "0"},
        {"unmet dependency", kSingleRun, "2026-11-19 12:00:00", "Build", "Waiting", "0", "",
         "2026-11-19 12:00:00", "Build", ""},
        {"future single run", kSingleRun, "2026-11-23 08:00:00", "", "Waiting",
         "2026-11-23 08:00:00", "-1", "2026-11-23 08:00:00", "", ""},
        {"series slot due", kEvery10Minutes, "2026-11-22 11:59:30", "", "Ready",
         "2026-11-22 12:09:30", "-1", "2026-11-22 12:09:30", "", "1"},
        {"series slot missed", kEvery10Minutes, "2026-11-22 11:58:00", "", "Waiting",
         "2026-11-22 12:08:00", "-1", "2026-11-22 12:08:00", "", ""},
        {"no day qualifies", kNoDay, "2026-11-19 12:00:00", "", "Complete - Cancelled",
         "1899-12-30 00:00:00", "0", "2026-11-19 12:00:00", "", ""},
    };
    int number = 0;
    for (const CheckCase& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string key = Waiting(++number, "Job", c.repeat, c.scheduled, c.dependency);
        Timer1_Timer(*t);
        EXPECT_EQ(Cell(key, "Status"), c.status);
        EXPECT_EQ(Cell(key, "CurRepeat"), c.curRepeat);
        EXPECT_EQ(Cell(key, "NIzv"), c.nIzv);
        EXPECT_EQ(Cell(key, "SchTime"), c.schTime);
        EXPECT_EQ(Cell(key, "Dependency"), c.dependencyAfter);
        EXPECT_EQ(Cell(key, "RepCnt"), c.repCnt);
        RemoveTask(*t, key, false);
    }
    EXPECT_EQ(t.LogText(), "");
}

TEST_F(RepeatTest, TheViewsAreRefreshedOnlyWhenTheNextRunChanges) {
    Waiting(1, "Later", kSingleRun, "2026-11-23 08:00:00");
    Timer1_Timer(*t);
    EXPECT_EQ(t.screen.treeLoads, 1);
    Timer1_Timer(*t);  // the same next run, and nothing became Ready
    EXPECT_EQ(t.screen.treeLoads, 1);
}

TEST_F(RepeatTest, ABadRepeatStringFailsTheTickWithTheTaskNamedAndChangesNothing) {
    const std::string bad = "00x0" + std::string(38, ' ') + "0000ED";
    const std::string key = Waiting(1, "Bad", bad, "2026-11-19 12:00:00");
    Timer1_Timer(*t);
    EXPECT_EQ(Cell(key, "Status"), kWaiting);
    EXPECT_EQ(Cell(key, "CurRepeat"), "0");
    EXPECT_THAT(t.LogText(), HasSubstr("Error occurred while checking queue.\r\n\r\n"
                                       "The schedule of the task " + key));
    EXPECT_THAT(t.LogText(), HasSubstr("isn't a number"));
}

TEST_F(RepeatTest, AnEndReleasesTheWaitingTasksOfItsNameWhateverTheCase) {
    const std::string finished = Waiting(1, "Build", kSingleRun, "2026-11-19 12:00:00");
    const struct {
        const char* name;
        const char* status;
        const char* dependency;
        const char* after;
    } rows[] = {
        {"Deploy", "Waiting", "build", "$build"},
        {"Audit", "Waiting - Hold", "BUILD", "$BUILD"},
        {"Old", "Complete", "Build", "Build"},
        {"Marked", "Waiting", "$Build", "$Build"},
        {"Other", "Waiting", "Test", "Test"},
        {"Build", "Waiting", "build", "build"},  // the same name isn't released by it
    };
    std::vector<std::string> keys;
    for (const auto& row : rows) {
        keys.push_back(t.AddTask(static_cast<int>(keys.size()) + 2, row.name, row.status));
        Set(keys.back(), "Dependency", row.dependency);
    }
    ReleaseDependents(*t, finished);
    for (size_t i = 0; i < keys.size(); ++i)
        EXPECT_EQ(Cell(keys[i], "Dependency"), rows[i].after) << rows[i].name;
}

// Real runs: A runs, then B, which depends on A by name, and B's next row waits for A again.
// (A failed A is the end-to-end test's.)
TEST_F(RepeatTest, ASuccessfulEndReleasesAndTheNextRowOfASeriesWaitsAgain) {
    t->NextTaskNumber = 2;
    const std::string a = Waiting(1, "Build", kSingleRun, "2026-11-19 12:00:00");
    const std::string b = Waiting(2, "Deploy", kEvery10Minutes, "2026-11-22 12:00:00", "BUILD");
    ASSERT_TRUE(WriteFileAtomic(Cell(b, "RF") + "/" + kOriginalTaskFile, "b"));
    Timer1_Timer(*t);  // A becomes Ready
    Timer1_Timer(*t);  // and starts
    ASSERT_TRUE(TickUntilComplete(t, a));
    EXPECT_EQ(Cell(b, "Dependency"), "$BUILD");
    // The run took ticks of the fake clock: B's first slot is ten seconds ago.
    Set(b, "SchTime", FormatDateTime(AddSeconds(t.clock.Now(), -10)));
    Timer1_Timer(*t);
    Timer1_Timer(*t);
    ASSERT_TRUE(TickUntilComplete(t, b));
    const std::string next = MakeRowKey(3, "Deploy");
    ASSERT_EQ(Cell(next, "Status"), kWaiting);
    t.clock.Advance(3600);
    Timer1_Timer(*t);
    EXPECT_EQ(Cell(next, "Status"), kWaiting);
}

TEST_F(RepeatTest, ACancelledRunEndingWithinItsMaxRcReleases) {
    const std::string a = Waiting(1, "Build", kSingleRun, "2026-11-19 12:00:00");
    SetStepCell(t, a, 1, "Command", "sleep 30");
    Set(a, "MaxRC", "99");
    const std::string b = Waiting(2, "Deploy", kSingleRun, "2026-11-19 12:00:00", "build");
    Timer1_Timer(*t);
    Timer1_Timer(*t);
    ASSERT_EQ(Cell(a, "Status"), kRunning);
    ASSERT_TRUE(RequestCancel(*t, a));
    ASSERT_TRUE(TickUntilComplete(t, a));
    EXPECT_EQ(Cell(a, "Status"), kCompleteCancelled);
    EXPECT_EQ(Cell(b, "Dependency"), "$build");
}

}  // namespace
}  // namespace vq::test
