#include <gtest/gtest.h>

#include "calendar/Common.h"
#include "core/tables/CpuTime.h"
#include "core/tables/Status.h"
#include "runner/Accounting.h"
#include "storage/Classes.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using Ponders = std::array<double, 7>;

TEST(SystemUnitsTest, WeighsRoundsHalfToEvenAndGivesZeroWhenItDoesNotFit) {
    struct Case {
        Ponders ponders;
        int32_t cpu;
        int64_t io;  // ten-thousandths
        int32_t memory;
        int32_t units;
    };
    const Case cases[] = {
        {{1, 1, 1}, 10, 5 * 10000, 100, 115},
        {{2, 0.5, 0.25}, 3, 4 * 10000, 8, 11},
        {{1, 1, 1}, 0, 25000, 0, 2},  // 2.5 goes to 2
        {{1, 1, 1}, 0, 35000, 0, 4},  // 3.5 goes to 4
        {{1, 1, 1}, 0, 35001, 0, 4},
        {{1, 0, 0}, -3, 0, 0, -3},
        {{1, 1, 1}, 0, 5 * 10000, 0, 5},
        {{0, 0, 0}, 1000, 1000 * 10000, 1000, 0},
        {{1, 1, 0}, 2147483647, 0, 1, 0},  // beyond 32 bits
        {{1, 0, 0}, 2147483647, 0, 0, 2147483647},
    };
    for (const Case& c : cases)
        EXPECT_EQ(SystemUnits(c.ponders, c.cpu, c.io, c.memory), c.units)
            << c.cpu << " s, io " << c.io << ", " << c.memory << " KB";
}

TEST(FormatThousandsTest, GroupsWithTheLocaleSeparatorAndShowsZero) {
    struct Case {
        const char* locale;
        int64_t n;
        const char* text;
    };
    const Case cases[] = {
        {"en_US.UTF-8", 0, "0"},
        {"en_US.UTF-8", 999, "999"},
        {"en_US.UTF-8", 1000, "1,000"},
        {"en_US.UTF-8", 1234567, "1,234,567"},
        {"en_US.UTF-8", -45000, "-45,000"},
        {"de_DE.UTF-8", 2147483647, "2.147.483.647"},
        {"C", 1234567, "1234567"},
    };
    for (const Case& c : cases) {
        test::LocaleScope locale(c.locale);
        ASSERT_TRUE(locale.Active());
        EXPECT_EQ(FormatThousands(c.n), c.text) << c.locale << " " << c.n;
    }
}

TEST(FormatThousandsTest, IoCountsRoundToWholeNumbers) {
    test::LocaleScope locale("en_US.UTF-8");
    ASSERT_TRUE(locale.Active());
    const std::pair<int64_t, const char*> cases[] = {
        {0, "0"},
        {4999, "0"},
        {5000, "1"},
        {-5000, "-1"},
        {-4999, "0"},
        {12345678 * 10000LL + 4999, "12,345,678"},
        {INT64_MAX, "922,337,203,685,478"},
        {INT64_MIN, "-922,337,203,685,478"},
    };
    for (const auto& [io, text] : cases) EXPECT_EQ(FormatThousandsIo(io), text) << io;
}

TEST(PriorityNameTest, NamesTheClassOfTheFirstDigit) {
    const std::pair<uint8_t, const char*> cases[] = {
        {0, "Low 0"},
        {6, "Low 6"},
        {13, "BelowNormal 3"},
        {22, "Normal 2"},
        {34, "AboveNormal 4"},
        {40, "High 0"},
        {51, "RealTime 1"},
        {60, ""},
        {99, ""},
        {123, "BelowNormal 2"},
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
        for (const char* column : {"SPeakMem", "SUnits"})
            SetStepCell(t, key, 1, column, "000000000");
        SetStepCell(t, key, 1, "SSMem", "0");
        SetStepCell(t, key, 1, "STCPU", "0:00:00:00:000");
        SetCell(t->tables, kTaskTable, key, "CurStep", "0001");
        SetCell(t->tables, kTaskTable, key, "JobIndex", "1");
        SetCell(t->tables, kTaskTable, key, "Start", FormatDateTime(t.clock.Now()));
    }
    void Reply(int64_t userTicks, int64_t systemTicks, int64_t io, int32_t peak) {
        t->link.reply.CpuTimeA = userTicks;
        t->link.reply.CpuTimeB = systemTicks;
        t->link.reply.IoCount = io;
        t->link.reply.PeakMemory = peak;
    }
    std::string Step(const char* column) { return StepCell(t, key, 1, column); }
    std::string Task(const char* column) { return TaskCellOf(t, key, column); }
    void SetTask(const char* column, const std::string& value) {
        SetCell(t->tables, kTaskTable, key, column, value);
    }
    test::TestServer t;
    std::string key;
};

class AccountingTest : public ::testing::Test, public OneStepTask {};

TEST_F(AccountingTest, ReadingsIntegrateMemoryAndOnlyTheFinalOneReachesTheTask) {
    Reply(6 * kTicksPerSecond, 4 * kTicksPerSecond, 5 * 10000, 100);
    ASSERT_TRUE(AccountStepUsage(*t, key, 1, false));
    EXPECT_EQ(Step("STCPU"), "0:00:00:10:000");
    EXPECT_EQ(Step("SIO"), "00000000000005");
    EXPECT_EQ(Step("SPeakMem"), "000000100");
    EXPECT_EQ(Step("SSMem"), "100");
    EXPECT_EQ(Step("SUnits"), "000000115");
    EXPECT_EQ(Task("PeakMem"), "000000100");  // the peak at once, the sums not yet
    EXPECT_EQ(Task("TCPU"), "0:00:00:00:000");
    EXPECT_EQ(Task("Units"), "000000000");
    // A lower peak in the next reply: the peak stays, the memory units grow by the reply's own.
    Reply(6 * kTicksPerSecond, 4 * kTicksPerSecond, 5 * 10000 + 5000, 40);
    ASSERT_TRUE(AccountStepUsage(*t, key, 1, true));
    EXPECT_EQ(Step("SPeakMem"), "000000100");
    EXPECT_EQ(Step("SSMem"), "140");
    EXPECT_EQ(Step("SIO"), "00000000000006");
    EXPECT_EQ(Step("SUnits"), "000000156");  // 10 s and 5.5 I/O: 15.5, to the even 16; plus 140
    EXPECT_EQ(Task("TCPU"), "0:00:00:10:000");
    EXPECT_EQ(Task("IO"), "00000000000006");
    EXPECT_EQ(Task("Units"), "000000156");
}

TEST_F(AccountingTest, CpuTimeAddsItsCarriesAndItsMillisecondsNeverCount) {
    struct Case {
        int64_t user, system;
        const char* stepCpu;
        const char* units;
    };
    const Case cases[] = {
        {((1 * 60 + 59) * 60 + 59) * kTicksPerSecond + 999 * kTicksPerMs, kTicksPerMs,
         "0:02:00:00:000", "000007200"},
        {59 * kTicksPerSecond + 999 * kTicksPerMs, 0, "0:00:00:59:999", "000000059"},
        {kTicksPerDay, kTicksPerDay + kTicksPerSecond, "2:00:00:01:000", "000172801"},
    };
    for (const Case& c : cases) {
        SetStepCell(t, key, 1, "SSMem", "0");
        Reply(c.user, c.system, 0, 0);
        ASSERT_TRUE(AccountStepUsage(*t, key, 1, false));
        EXPECT_EQ(Step("STCPU"), c.stepCpu);
        EXPECT_EQ(Step("SUnits"), c.units) << c.stepCpu;
    }
}

TEST_F(AccountingTest, AFailedSumIsSkippedAndTheOthersGoOn) {
    SetStepCell(t, key, 1, "SPeakMem", "lots");
    SetStepCell(t, key, 1, "SSMem", "2147483600");  // the next reading would overflow it
    SetTask("Units", "x");
    Reply(3 * kTicksPerSecond, 0, 0, 100);
    EXPECT_TRUE(AccountStepUsage(*t, key, 1, true));
    EXPECT_EQ(Step("SPeakMem"), "lots");
    EXPECT_EQ(Step("SSMem"), "2147483600");
    EXPECT_EQ(Step("STCPU"), "0:00:00:03:000");
    EXPECT_EQ(Task("TCPU"), "0:00:00:03:000");
    EXPECT_EQ(Task("Units"), "x");
    EXPECT_EQ(Task("PeakMem"), "000000000");  // it follows the step's peak, which can't be read
}

TEST_F(AccountingTest, ASpanThatIsNoDateEndsTheAccountingBeforeAnyCell) {
    for (const auto& [user, system] : {std::pair<int64_t, int64_t>{-1, 0}, {0, -1}}) {
        Reply(user, system, 7 * 10000, 100);
        EXPECT_FALSE(AccountStepUsage(*t, key, 1, true));
        EXPECT_EQ(Step("SIO"), "");
        EXPECT_EQ(Step("SSMem"), "0");
        EXPECT_EQ(Task("PeakMem"), "000000000");
    }
}

struct LimitCase {
    const char* name;
    int64_t elapsed;
    std::vector<std::pair<const char*, std::string>> task, step;
    ClassEntry limits;
    const char* message;
};

ClassEntry Limits(int32_t time, int32_t cpu, int32_t memory, int32_t units) {
    ClassEntry e;
    e.ClassName = "A";
    e.MaxTime = time, e.MaxCpu = cpu, e.MaxMemory = memory, e.MaxUnits = units;
    return e;
}

TEST(CheckLimitsTest, LimitsOfTheTaskAndItsClass) {
    test::LocaleScope locale("en_US.UTF-8");
    ASSERT_TRUE(locale.Active());
    const LimitCase cases[] = {
        {"no limits", 1000000, {{"MaxRunTime", "0"}}, {}, Limits(0, 0, 0, 0), ""},
        {"run time at", 60, {{"MaxRunTime", "60"}}, {}, Limits(0, 0, 0, 0), ""},
        {"run time over",
         61,
         {{"MaxRunTime", "60"}},
         {},
         Limits(0, 0, 0, 0),
         "\r\nTask has exceeded maximum running time! (0 Days 00:01:00)\r\n"},
        {"class time over",
         90061,
         {},
         {},
         Limits(90000, 0, 0, 0),
         "\r\nTask has exceeded maximum class running time! (1 Day 01:00:00)\r\n"},
        {"cpu at, milliseconds left out",
         0,
         {{"TCPU", "0:00:00:05:000"}},
         {{"STCPU", "0:00:00:05:999"}},
         Limits(0, 10, 0, 0),
         ""},
        {"cpu over",
         0,
         {{"TCPU", "0:00:00:05:000"}},
         {{"STCPU", "0:00:00:06:000"}},
         Limits(0, 10, 0, 0),
         "\r\nTask has exceeded maximum CPU time! (0 Days 00:00:10)\r\n"},
        {"memory of the step",
         0,
         {{"PeakMem", "000000900"}},
         {{"SPeakMem", "000001001"}},
         Limits(0, 0, 1000, 0),
         "\r\nTask has exceeded maximum memory usage! (1,000 KB)\r\n"},
        {"units at",
         0,
         {{"Units", "000000050"}},
         {{"SUnits", "000000050"}},
         Limits(0, 0, 0, 100),
         ""},
        {"units over",
         0,
         {{"Units", "000000500"}},
         {{"SUnits", "000000501"}},
         Limits(0, 0, 0, 1000),
         "\r\nTask has exceeded maximum system units of class A!\r\n\r\n"
         "Max System Units:....................... 1,000\r\n"},
        {"three at once",
         61,
         {{"MaxRunTime", "60"}, {"PeakMem", "000002000"}},
         {{"STCPU", "0:00:00:11:000"}},
         Limits(0, 10, 1000, 0),
         "\r\nTask has exceeded maximum running time! (0 Days 00:01:00)\r\n"
         "\r\nTask has exceeded maximum CPU time! (0 Days 00:00:10)\r\n"
         "\r\nTask has exceeded maximum memory usage! (1,000 KB)\r\n"},
        {"a cell that is no number",
         61,
         {{"MaxRunTime", "60"}, {"Units", "many"}},
         {},
         Limits(0, 0, 0, 0),
         ""},
        {"no start yet", 100, {{"MaxRunTime", "60"}, {"Start", ""}}, {}, Limits(0, 0, 0, 0), ""},
        {"no such step",
         61,
         {{"MaxRunTime", "60"}, {"CurStep", "0002"}},
         {},
         Limits(0, 0, 0, 0),
         ""},
    };
    for (const LimitCase& c : cases) {
        OneStepTask task;
        task.t->classes.ClassTable[0] = c.limits;
        for (const auto& [column, value] : c.task) task.SetTask(column, value);
        for (const auto& [column, value] : c.step) SetStepCell(task.t, task.key, 1, column, value);
        task.t.clock.Advance(c.elapsed);
        EXPECT_EQ(CheckLimits(*task.t, task.key), c.message) << c.name;
    }
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
        const std::string message = CheckLimits(*task.t, task.key);
        if (ioPonder == 0)
            EXPECT_EQ(message, "");
        else
            EXPECT_NE(message.find("maximum system units of class A!"), std::string::npos);
    }
}

TEST(CheckLimitsTest, ACancelledTaskAnswersOnlyToItsCleanupAllowance) {
    test::LocaleScope locale("en_US.UTF-8");
    ASSERT_TRUE(locale.Active());
    struct Case {
        int64_t seconds;
        const char* units;
        const char* message;
    };
    const Case cases[] = {
        {30, "000000100", ""},
        {30, "000000101", "\r\nCleanup step has exceeded maximum system units! (2,500)\r\n"},
        {31, "000000100", "\r\nCleanup step has exceeded maximum running time! (30 seconds)\r\n"},
        {31, "000000101",
         "\r\nCleanup step has exceeded maximum system units! (2,500)\r\n"
         "\r\nCleanup step has exceeded maximum running time! (30 seconds)\r\n"},
    };
    for (const Case& c : cases) {
        OneStepTask task;
        task.t->classes.Ponders = {1, 1, 1, 2500.5, 29.5};   // half to the even: 2500 and 30
        task.t->classes.ClassTable[0] = Limits(1, 1, 1, 1);  // all exceeded, none looked at
        SlotStateRecord& state = task.t->SlotState[1];
        state.cancelled = true;
        state.cleanupUnitLimit = 140;
        state.cleanupDeadline = AddSeconds(task.t.clock.Now(), 30);
        task.SetTask("Units", "000000040");
        task.SetTask("PeakMem", "000009999");
        SetStepCell(task.t, task.key, 1, "SUnits", c.units);
        task.t.clock.Advance(c.seconds);
        EXPECT_EQ(CheckLimits(*task.t, task.key), c.message) << c.seconds << " " << c.units;
    }
}

}  // namespace
}  // namespace vq
