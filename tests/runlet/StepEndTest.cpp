// A step's end as runlet reports it: the number of a FileRC file (the process tests run the
// return codes), the counters of its processes, alive and reaped, and the text of Diag1.txt.
#include <gtest/gtest.h>

#include <tuple>

#include "runlet/Diagnostic.h"
#include "runlet/ReturnCode.h"
#include "runlet/StepMeter.h"

namespace vq {
namespace {

TEST(ParseFileRcTest, NumbersFromZeroToNinetyNineAndNothingElse) {
    const std::pair<const char*, int> numbers[] = {{"0", 0}, {"0\r\n", 0}, {"  42 \n", 42}, {"99", 99}, {"007", 7}};
    for (const auto& [text, rc] : numbers) EXPECT_EQ(ParseFileRc(text), rc) << text;
    for (const char* text : {"", " \r\n", "100", "-1", "+5", "4 2", "12abc", "99999999999999999999"})
        EXPECT_FALSE(ParseFileRc(text)) << text;
}

ProcessInfo Process(pid_t pid, uint64_t utime, uint64_t cutime, uint64_t stime, uint64_t peakKb,
                    std::optional<IoCalls> io) {
    ProcessInfo p;
    p.stat.pid = pid;
    p.stat.userTicks = utime;
    p.stat.childUserTicks = cutime;
    p.stat.systemTicks = stime;
    p.memory.peakKb = peakKb;
    p.io = io;
    return p;
}

constexpr int64_t kTick = 100'000;  // one clock tick of 1/100 s in 100-ns ticks

// One step's life: processes alive together are summed (reaped children's times included),
// a reaped process stays counted, one gone unseen takes nothing back, the runner's own
// final figures raise what they can.
TEST(StepMeterTest, CountsAliveAndReapedProcessesAndNeverGoesDown) {
    StepMeter meter(100);
    const ProcessInfo child = Process(2, 50, 0, 10, 204800, IoCalls{10000, 2});
    const auto counters = [&meter] {
        const StepCounters& c = meter.Counters();
        return std::make_tuple(c.userTime, c.systemTime, c.peakKb, c.ioCalls);
    };
    meter.Sample({Process(1, 10, 5, 2, 1000, IoCalls{30, 4}), child, Process(3, 1, 0, 0, 8, std::nullopt)});
    EXPECT_EQ(counters(), std::make_tuple(66 * kTick, 12 * kTick, 205808, 10036));
    meter.Reaped(child);
    meter.Sample({Process(1, 10, 5, 2, 1000, IoCalls{31, 4})});
    // 3 went unseen: its tick stays reported.
    EXPECT_EQ(counters(), std::make_tuple(66 * kTick, 12 * kTick, 205808, 10037));
    meter.Final(70 * kTick + 7, 2 * kTick, 300000);
    EXPECT_EQ(counters(), std::make_tuple(70 * kTick + 7, 12 * kTick, 300000, 10037));
}

TEST(DiagnosticTest, HeaderAndOneLinePerProcess) {
    DiagnosticHeader header{"000012", "Build", 2, 4711, "held", "2026-11-22 12:00:00"};
    ProcessInfo shell = Process(4711, 150, 0, 50, 2048, std::nullopt);
    shell.stat.ppid = 4700;
    shell.stat.state = 'T';
    shell.memory.residentKb = 1024;
    shell.commandLine = "sh -c make all";
    ProcessInfo gone = Process(4712, 0, 0, 0, 0, std::nullopt);
    gone.stat.ppid = 4711;
    gone.stat.state = 'Z';
    gone.stat.name = "cc1";
    const std::string text = FormatDiagnostic(header, {shell, gone}, 100);
    for (const char* part : {"Taken 2026-11-22 12:00:00, process group 4711, step held, 2 processes\r\n\r\n",
                             "    4711     4700  stopped            2.00         1024         2048  sh -c make all\r\n",
                             "zombie", "[cc1]\r\n"})
        EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
}

}  // namespace
}  // namespace vq
