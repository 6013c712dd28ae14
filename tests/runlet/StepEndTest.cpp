// A step's end as runlet reports it: the return code from the exit or the FileRC file (the
// process tests run the usual cases, these the edges), the counters of its processes, alive
// and reaped, and the text of Diag1.txt.
#include <signal.h>

#include <gtest/gtest.h>

#include "runlet/Diagnostic.h"
#include "runlet/ReturnCode.h"
#include "runlet/StepMeter.h"

namespace vq {
namespace {

TEST(StepRcFromEndTest, ExitStatusPlusOneUpToNinetyEightAndSignalsNinetyEight) {
    EXPECT_EQ(StepRcFromEnd(CLD_EXITED, 96), 97);
    EXPECT_EQ(StepRcFromEnd(CLD_EXITED, 98), 98);
    EXPECT_EQ(StepRcFromEnd(CLD_KILLED, SIGKILL), 98);
    EXPECT_EQ(StepRcFromEnd(CLD_DUMPED, SIGSEGV), 98);
}

TEST(ParseFileRcTest, NumbersFromZeroToNinetyNineAndNothingElse) {
    const std::pair<const char*, int> numbers[] = {{"0", 0}, {"0\r\n", 0}, {"  42 \n", 42}, {"99", 99}, {"007", 7}};
    for (const auto& [text, rc] : numbers) EXPECT_EQ(ParseFileRc(text), rc) << text;
    for (const char* text : {"", " \r\n", "100", "-1", "+5", "4 2", "12abc", "99999999999999999999"})
        EXPECT_FALSE(ParseFileRc(text)) << text;
}

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

TEST(DiagnosticTest, HeaderAndOneLinePerProcess) {
    DiagnosticHeader header{"000012", "Build", 2, 4711, "held", "2026-11-22 12:00:00"};
    ProcessInfo shell;
    shell.stat.pid = 4711;
    shell.stat.ppid = 4700;
    shell.stat.state = 'T';
    shell.stat.userTicks = 150;
    shell.stat.systemTicks = 50;
    shell.memory = {2048, 1024};
    shell.commandLine = "sh -c make all";
    ProcessInfo gone;
    gone.stat.pid = 4712;
    gone.stat.ppid = 4711;
    gone.stat.state = 'Z';
    gone.stat.name = "cc1";
    const std::string text = FormatDiagnostic(header, {shell, gone}, 100);
    EXPECT_EQ(text.substr(0, text.find("\r\n\r\n") + 4),
              "Diagnostic of step 2 of task 000012 Build\r\n"
              "Taken 2026-11-22 12:00:00, process group 4711, step held, 2 processes\r\n\r\n");
    EXPECT_NE(text.find("    4711     4700  stopped            2.00         1024         2048  sh -c make all\r\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("zombie"), std::string::npos);
    EXPECT_NE(text.find("[cc1]\r\n"), std::string::npos);
}

}  // namespace
}  // namespace vq
