// Adding up the counters of a step's processes, alive and reaped.
#include "runlet/StepMeter.h"

#include <gtest/gtest.h>

namespace vq {
namespace {

ProcessInfo Process(pid_t pid, uint64_t utime, uint64_t stime, uint64_t cutime, uint64_t cstime, uint64_t peakKb,
                    std::optional<IoCalls> io) {
    ProcessInfo p;
    p.stat.pid = pid;
    p.stat.userTicks = utime;
    p.stat.systemTicks = stime;
    p.stat.childUserTicks = cutime;
    p.stat.childSystemTicks = cstime;
    p.memory.peakKb = peakKb;
    p.io = io;
    return p;
}

constexpr int64_t kTick = 100'000;  // one clock tick of 1/100 s in 100-ns ticks

TEST(StepMeterTest, SumsTheProcessesAliveTogether) {
    StepMeter meter(100);
    meter.Sample({Process(1, 10, 2, 5, 1, 1000, IoCalls{30, 4}), Process(2, 20, 0, 0, 0, 204800, IoCalls{1, 1})});
    const StepCounters& c = meter.Counters();
    EXPECT_EQ(c.userTime, 35 * kTick);
    EXPECT_EQ(c.systemTime, 3 * kTick);
    EXPECT_EQ(c.peakKb, 205800);
    EXPECT_EQ(c.ioCalls, 36);
    meter.Sample({Process(1, 10, 2, 5, 1, 1000, std::nullopt)});  // unknown I/O counts nothing
    EXPECT_EQ(meter.Counters().ioCalls, 36);
}

TEST(StepMeterTest, ReapedProcessesStayCounted) {
    StepMeter meter(100);
    const ProcessInfo child = Process(2, 50, 10, 0, 0, 0, IoCalls{10000, 2});
    meter.Sample({Process(1, 1, 0, 0, 0, 500, IoCalls{3, 0}), child});
    meter.Reaped(child);
    meter.Sample({Process(1, 2, 0, 0, 0, 500, IoCalls{4, 0})});
    const StepCounters& c = meter.Counters();
    EXPECT_EQ(c.userTime, 52 * kTick);
    EXPECT_EQ(c.systemTime, 10 * kTick);
    EXPECT_EQ(c.ioCalls, 10006);
}

TEST(StepMeterTest, CountersNeverGoDown) {
    StepMeter meter(100);
    meter.Sample({Process(1, 40, 0, 0, 0, 9000, IoCalls{50, 0})});
    // A process gone without being seen at its end (reaped by someone else) takes its
    // figures away; what was reported stays.
    meter.Sample({Process(3, 1, 0, 0, 0, 100, IoCalls{1, 0})});
    const StepCounters& c = meter.Counters();
    EXPECT_EQ(c.userTime, 40 * kTick);
    EXPECT_EQ(c.peakKb, 9000);
    EXPECT_EQ(c.ioCalls, 50);
}

TEST(StepMeterTest, FinalFiguresRaiseButNeverLower) {
    StepMeter meter(100);
    meter.Sample({Process(1, 30, 30, 0, 0, 800, IoCalls{5, 5})});
    meter.Final(31 * kTick + 7, 2 * kTick, 204800);
    const StepCounters& c = meter.Counters();
    EXPECT_EQ(c.userTime, 31 * kTick + 7);
    EXPECT_EQ(c.systemTime, 30 * kTick);
    EXPECT_EQ(c.peakKb, 204800);
    EXPECT_EQ(c.ioCalls, 10);
}

}  // namespace
}  // namespace vq
