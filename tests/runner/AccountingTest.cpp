#include <gtest/gtest.h>

#include <cctype>

#include "calendar/Common.h"
#include "core/tables/CpuTime.h"
#include "core/tables/Status.h"
#include "runner/Accounting.h"
#include "storage/Classes.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

TEST(SystemUnitsTest, WeighsRoundsHalfToEvenAndGivesZeroWhenItDoesNotFit) {
    const struct {
        std::array<double, 7> ponders;
        int32_t cpu;
        int64_t io;  // ten-thousandths
        int32_t memory, units;
    } cases[] = {
        {{1, 1, 1}, 10, 5 * 10000, 100, 115},
        {{1, 1, 1}, 0, 25000, 0, 2},  // 2.5 goes to 2
        {{1, 1, 1}, 0, 35000, 0, 4},  // 3.5 goes to 4
        {{1, 0, 0}, -3, 0, 0, -3},
        {{1, 1, 0}, 2147483647, 0, 1, 0},  // beyond 32 bits
        {{1, 0, 0}, 2147483647, 0, 0, 2147483647},
    };
    for (const auto& c : cases)
        EXPECT_EQ(SystemUnits(c.ponders, c.cpu, c.io, c.memory), c.units) << c.cpu << " " << c.io;
}

TEST(FormatThousandsTest, GroupsWithTheLocaleSeparatorAndShowsZero) {
    const struct {
        const char* locale;
        int64_t n;
        const char* text;
    } cases[] = {
        {"en_US.UTF-8", 0, "0"},
        {"en_US.UTF-8", 1234567, "1,234,567"},
        {"en_US.UTF-8", -45000, "-45,000"},
        {"de_DE.UTF-8", 2147483647, "2.147.483.647"},
        {"C", 1234567, "1234567"},
    };
    for (const auto& c : cases) {
        test::LocaleScope locale(c.locale);
        ASSERT_TRUE(locale.Active());
        EXPECT_EQ(FormatThousands(c.n), c.text) << c.locale << " " << c.n;
    }
}

TEST(FormatThousandsTest, IoCountsRoundToWholeNumbers) {
    test::LocaleScope locale("en_US.UTF-8");
    ASSERT_TRUE(locale.Active());
    const std::pair<int64_t, const char*> cases[] = {
        {4999, "0"},
        {5000, "1"},
        {-5000, "-1"},
        {INT64_MAX, "922,337,203,685,478"},
        {INT64_MIN, "-922,337,203,685,478"},
    };
    for (const auto& [io, text] : cases) EXPECT_EQ(FormatThousandsIo(io), text) << io;
}

TEST(PriorityNameTest, NamesTheClassOfTheFirstDigit) {
    const std::pair<uint8_t, const char*> cases[] = {
        {6, "Low 6"},   {13, "BelowNormal 3"}, {22, "Normal 2"}, {34, "AboveNormal 4"},
        {40, "High 0"}, {51, "RealTime 1"},    {60, ""},         {123, "BelowNormal 2"},
    };
    for (const auto& [code, name] : cases) EXPECT_EQ(PriorityName(code), name) << int(code);
}

constexpr int64_t kTicksPerMs = 10000;
constexpr int64_t kTicksPerSecond = 1000 * kTicksPerMs;
constexpr int64_t kTicksPerDay = 86400 * kTicksPerSecond;

TEST(CpuTimeFromTicksTest, ReadsTheSpanAsADateFrom1601) {
    const std::pair<int64_t, const char*> cases[] = {
        {0, "0:00:00:00:000"},
        {((1 * 60 + 59) * 60 + 59) * kTicksPerSecond + 999 * kTicksPerMs + 9999, "0:01:59:59:999"},
        {30 * kTicksPerDay + 5 * kTicksPerSecond, "30:00:00:05:000"},
        {31 * kTicksPerDay, "0:00:00:00:000"},  // into February: the month isn't counted
        {60 * kTicksPerDay, "1:00:00:00:000"},  // 1601 has no leap day: March 2nd
        {INT64_MAX, "13:02:48:05:477"},         // 30828-09-14 02:48:05.477
    };
    for (const auto& [ticks, text] : cases) {
        CpuTime time;
        ASSERT_TRUE(CpuTimeFromTicks(ticks, time)) << ticks;
        EXPECT_EQ(FormatCpuTime(time), text) << ticks;
    }
    CpuTime untouched{1, 2, 3, 4, 5};
    EXPECT_FALSE(CpuTimeFromTicks(-1, untouched));
}

// A running task of one step in slot 1, with ponders 1, 1, 1 and the reply's counters to set.
struct OneStepTask {
    OneStepTask() {
        key = t.AddTask(1, "Sums", kRunning);
        t.AddSteps(key, 1);
        for (const char* column : {"SPeakMem", "SUnits"}) SetStep(column, "000000000");
        SetStep("SSMem", "0");
        SetStep("STCPU", "0:00:00:00:000");
        SetTask("CurStep", "0001");
        SetTask("JobIndex", "1");
        SetTask("Start", FormatDateTime(t.clock.Now()));
    }
    void Reply(int64_t userTicks, int64_t systemTicks, int64_t io, int32_t peak) {
        t->link.reply.CpuTimeA = userTicks;
        t->link.reply.CpuTimeB = systemTicks;
        t->link.reply.IoCount = io;
        t->link.reply.PeakMemory = peak;
    }
    std::string Step(const char* column) { return StepCell(t, key, 1, column); }
    std::string Task(const char* column) { return TaskCellOf(t, key, column); }
    void SetStep(const char* column, const std::string& value) {
        SetStepCell(t, key, 1, column, value);
    }
    void SetTask(const char* column, const std::string& value) {
        SetTaskCell(t, key, column, value);
    }
    test::TestServer t;
    std::string key;
};

class AccountingTest : public ::testing::Test, public OneStepTask {};

TEST_F(AccountingTest, ReadingsIntegrateMemoryAndOnlyTheFinalOneReachesTheTask) {
    Reply(6 * kTicksPerSecond, 4 * kTicksPerSecond, 5 * 10000, 100);
    ASSERT_TRUE(AccountStepUsage(*t, key, 1, false));
    EXPECT_EQ(Step("SUnits"), "000000115");
    EXPECT_EQ(Task("PeakMem"), "000000100");  // the peak at once, the sums not yet
    EXPECT_EQ(Task("Units"), "000000000");
    // A lower peak in the next reply: the peak stays, the memory units grow by the reply's own.
    Reply(6 * kTicksPerSecond, 4 * kTicksPerSecond, 5 * 10000 + 5000, 40);
    ASSERT_TRUE(AccountStepUsage(*t, key, 1, true));
    EXPECT_EQ(Step("SPeakMem"), "000000100");
    EXPECT_EQ(Step("SSMem"), "140");
    EXPECT_EQ(Step("SUnits"), "000000156");  // 10 s and 5.5 I/O: 15.5, to the even 16; plus 140
    EXPECT_EQ(Task("TCPU"), "0:00:00:10:000");
    EXPECT_EQ(Task("IO"), "00000000000006");
    EXPECT_EQ(Task("Units"), "000000156");
}

TEST_F(AccountingTest, CpuTimeAddsItsCarriesAndItsMillisecondsNeverCount) {
    const struct {
        int64_t user, system;
        const char *stepCpu, *units;
    } cases[] = {
        {((1 * 60 + 59) * 60 + 59) * kTicksPerSecond + 999 * kTicksPerMs, kTicksPerMs,
         "0:02:00:00:000", "000007200"},
        {59 * kTicksPerSecond + 999 * kTicksPerMs, 0, "0:00:00:59:999", "000000059"},
        {kTicksPerDay, kTicksPerDay + kTicksPerSecond, "2:00:00:01:000", "000172801"},
    };
    for (const auto& c : cases) {
        Reply(c.user, c.system, 0, 0);
        ASSERT_TRUE(AccountStepUsage(*t, key, 1, false));
        EXPECT_EQ(Step("STCPU"), c.stepCpu);
        EXPECT_EQ(Step("SUnits"), c.units) << c.stepCpu;
    }
}

TEST_F(AccountingTest, AFailedSumIsSkippedAndTheOthersGoOn) {
    SetStep("SPeakMem", "lots");
    SetStep("SSMem", "2147483600");  // the next reading would overflow it
    SetTask("Units", "x");
    Reply(3 * kTicksPerSecond, 0, 0, 100);
    EXPECT_TRUE(AccountStepUsage(*t, key, 1, true));
    EXPECT_EQ(Step("SSMem"), "2147483600");
    EXPECT_EQ(Task("TCPU"), "0:00:00:03:000");
    EXPECT_EQ(Task("Units"), "x");
    EXPECT_EQ(Task("PeakMem"), "000000000");  // it follows the step's peak, which can't be read
}

TEST_F(AccountingTest, ASpanThatIsNoDateEndsTheAccountingBeforeAnyCell) {
    for (const auto& [user, system] : {std::pair<int64_t, int64_t>{-1, 0}, {0, -1}}) {
        Reply(user, system, 7 * 10000, 100);
        EXPECT_FALSE(AccountStepUsage(*t, key, 1, true));
        EXPECT_EQ(Step("SIO"), "");
        EXPECT_EQ(Task("PeakMem"), "000000000");
    }
}

ClassEntry Limits(int32_t time, int32_t cpu, int32_t memory, int32_t units) {
    ClassEntry e;
    e.ClassName = "A";
    e.MaxTime = time, e.MaxCpu = cpu, e.MaxMemory = memory, e.MaxUnits = units;
    return e;
}

const std::string kRunTimeOver =
    "\r\nTask has exceeded maximum running time! (0 Days 00:01:00)\r\n";
const std::string kClassTimeOver =
    "\r\nTask has exceeded maximum class running time! (1 Day 01:00:00)\r\n";
const std::string kCpuOver = "\r\nTask has exceeded maximum CPU time! (0 Days 00:00:10)\r\n";
const std::string kMemoryOver = "\r\nTask has exceeded maximum memory usage! (1,000 KB)\r\n";
const std::string kUnitsOver =
    "\r\nTask has exceeded maximum system units of class A!\r\n\r\n"
    "Max System Units:....................... 1,000\r\n";

// Class A allows 90,000 s, 10 s of CPU, 1,000 KB and 1,000 units in every case. The step's cells
// are those whose names begin with "S" and a capital; "Start" is the task's.
TEST(CheckLimitsTest, LimitsOfTheTaskAndItsClass) {
    test::LocaleScope locale("en_US.UTF-8");
    ASSERT_TRUE(locale.Active());
    const std::string several = kRunTimeOver + kClassTimeOver + kCpuOver;
    const struct {
        const char* name;
        int64_t elapsed;
        std::vector<std::pair<const char*, std::string>> cells;
        std::string message;
    } cases[] = {
        {"run time at", 60, {{"MaxRunTime", "60"}}, ""},
        {"run time over", 61, {{"MaxRunTime", "60"}}, kRunTimeOver},
        {"class time over", 90061, {{"MaxRunTime", "0"}}, kClassTimeOver},
        {"cpu at", 0, {{"TCPU", "0:00:00:05:000"}, {"STCPU", "0:00:00:05:999"}}, ""},
        {"cpu over", 0, {{"TCPU", "0:00:00:05:000"}, {"STCPU", "0:00:00:06:000"}}, kCpuOver},
        {"step memory", 0, {{"PeakMem", "000000900"}, {"SPeakMem", "000001001"}}, kMemoryOver},
        {"units over", 0, {{"Units", "000000500"}, {"SUnits", "000000501"}}, kUnitsOver},
        {"several", 90061, {{"MaxRunTime", "60"}, {"STCPU", "0:00:00:11:000"}}, several},
        {"no number", 61, {{"MaxRunTime", "60"}, {"Units", "many"}}, ""},
        {"no start yet", 100, {{"MaxRunTime", "60"}, {"Start", ""}}, ""},
        {"no such step", 61, {{"MaxRunTime", "60"}, {"CurStep", "0002"}}, ""},
    };
    for (const auto& c : cases) {
        OneStepTask task;
        task.t->classes.ClassTable[0] = Limits(90000, 10, 1000, 1000);
        for (const auto& [column, value] : c.cells) {
            const bool ofStep = column[0] == 'S' && std::isupper(column[1]);
            ofStep ? task.SetStep(column, value) : task.SetTask(column, value);
        }
        task.t.clock.Advance(c.elapsed);
        EXPECT_EQ(CheckLimits(*task.t, task.key), c.message) << c.name;
    }
    // A limit of 0 is no limit.
    OneStepTask unlimited;
    unlimited.t->classes.ClassTable[0] = Limits(0, 0, 0, 0);
    unlimited.SetTask("MaxRunTime", "0");
    unlimited.SetTask("Units", "999999999");
    unlimited.SetStep("STCPU", "9:00:00:00:000");
    unlimited.t.clock.Advance(1000000);
    EXPECT_EQ(CheckLimits(*unlimited.t, unlimited.key), "");
}

TEST(CheckLimitsTest, AnIoLimitCountsOnlyThroughTheUnitsOfItsPonder) {
    for (const double ioPonder : {0.0, 1.0}) {
        OneStepTask task;
        ClassData& classes = task.t->classes;
        classes.Ponders = {1, 1, ioPonder};
        classes.ClassTable[0] = Limits(0, 0, 0, 0);
        classes.ClassTable[0].MaxIo = 10 * kIoScale;
        ComputeClassUnits(classes);
        task.t->link.reply.IoCount = 1000000 * kIoScale;
        ASSERT_TRUE(AccountStepUsage(*task.t, task.key, 1, false));
        EXPECT_EQ(CheckLimits(*task.t, task.key).find("maximum system units of class A!") !=
                      std::string::npos,
                  ioPonder != 0);
    }
}

TEST_F(AccountingTest, ACancelledTaskAnswersOnlyToItsCleanupAllowance) {
    test::LocaleScope locale("en_US.UTF-8");
    ASSERT_TRUE(locale.Active());
    t->classes.Ponders = {1, 1, 1, 2500.5, 29.5};   // half to the even: 2500 and 30
    t->classes.ClassTable[0] = Limits(1, 1, 1, 1);  // all exceeded, none looked at
    SetTask("Units", "000000040");
    SetTask("PeakMem", "000009999");
    t.clock.Advance(5);
    SlotStateRecord& state = t->SlotState[1];
    state.cancelled = true;
    state.cleanupUnitLimit = 140;
    const std::string units = "\r\nCleanup step has exceeded maximum system units! (2,500)\r\n";
    const std::string time = "\r\nCleanup step has exceeded maximum running time! (30 seconds)\r\n";
    const struct {
        int64_t secondsLate;
        const char* units;
        std::string message;
    } cases[] = {{0, "000000100", ""},
                 {0, "000000101", units},
                 {1, "000000100", time},
                 {1, "000000101", units + time}};
    for (const auto& c : cases) {
        state.cleanupDeadline = AddSeconds(t.clock.Now(), -c.secondsLate);
        SetStep("SUnits", c.units);
        EXPECT_EQ(CheckLimits(*t, key), c.message) << c.secondsLate << " " << c.units;
    }
}

}  // namespace
}  // namespace vq
