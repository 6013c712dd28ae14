// The /proc parsers and the choice of the step's processes.
#include "runlet/ProcReader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/support/TestSupport.h"

namespace vq {
namespace {

// A line of /proc/<pid>/stat: pid, name, state, ppid, pgrp, 9 fields, utime, stime, cutime,
// cstime, priority, nice, 2 fields, start time, more fields.
constexpr const char* kStat = "9 (x) S 1 9 1 0 -1 4194560 10 0 0 0 1 2 3 4 20 -5 1 0 100 2000 300\n";

// A name with blanks and parentheses must not shift the fields behind it.
TEST(ParseStatTest, ReadsTheFieldsBehindTheNameWhateverTheNameHolds) {
    std::string line = kStat;
    line.replace(3, 1, "a) (b c) Z 1");
    const auto stat = ParseStat(line);
    ASSERT_TRUE(stat);
    EXPECT_EQ(stat->pid, 9);
    EXPECT_EQ(stat->name, "a) (b c) Z 1");
    EXPECT_EQ(stat->state, 'S');
    EXPECT_EQ(stat->ppid, 1);
    EXPECT_EQ(stat->pgrp, 9);
    EXPECT_EQ(stat->userTicks, 1u);
    EXPECT_EQ(stat->systemTicks, 2u);
    EXPECT_EQ(stat->childUserTicks, 3u);
    EXPECT_EQ(stat->childSystemTicks, 4u);
    EXPECT_EQ(stat->nice, -5);
    EXPECT_EQ(stat->startTicks, 100u);
}

TEST(ParseStatTest, RefusesCutOrDamagedLines) {
    const std::string good = kStat;
    ASSERT_TRUE(ParseStat(good));
    const std::string cutBeforeStartTime = good.substr(0, good.find(" 100 2000"));
    const std::pair<std::string, std::string> damages[] = {
        {"9 (", "abc ("}, {") S ", ") SS "}, {" 1 2 3 4 20", " one 2 3 4 20"}, {" 100 2000", " -100 2000"}};
    for (const auto& [from, to] : damages) {
        std::string bad = good;
        bad.replace(bad.find(from), from.size(), to);
        EXPECT_FALSE(ParseStat(bad)) << bad;
    }
    for (const std::string& bad : {std::string(), std::string("9 (x"), good.substr(0, 30), cutBeforeStartTime})
        EXPECT_FALSE(ParseStat(bad)) << bad;
}

TEST(ParseStatusMemoryTest, PeakAndResidentInKilobytesOrNothing) {
    const ProcessMemory memory = ParseStatusMemory("Name:\tsh\nVmPeak:\t  9000 kB\nVmHWM:\t  204812 kB\nVmRSS:\t 1500 kB\n");
    EXPECT_EQ(memory.peakKb, 204812u);
    EXPECT_EQ(memory.residentKb, 1500u);
    EXPECT_EQ(ParseStatusMemory("Name:\tsh\nState:\tZ (zombie)\n").peakKb, 0u);  // a zombie
    EXPECT_EQ(ParseStatusMemory("VmHWMx:\t5 kB\n").peakKb, 0u);
    for (const char* bad : {"rchar: 1\nsyscr: 5\n", "syscr: five\nsyscw: 1\n", ""}) EXPECT_FALSE(ParseIo(bad)) << bad;
}

TEST(ProcFilesTest, DescendantsThroughTheChildrenFilesOfEveryThread) {
    test::TempDir dir;
    const std::string root = dir.Path() + "proc";
    auto children = [&](pid_t pid, pid_t thread, const std::string& list) {
        const std::string folder = root + "/" + std::to_string(pid) + "/task/" + std::to_string(thread);
        std::filesystem::create_directories(folder);
        std::ofstream(folder + "/children") << list;
    };
    children(100, 100, "101 102 ");  // the runner: its guard and the shell
    children(101, 101, "109 ");      // the guard's child counts as little as the guard
    children(102, 102, "103 ");
    children(102, 105, "104 ");      // a child forked by a second thread of the shell
    children(103, 103, "");
    const ProcFiles proc(root);
    EXPECT_EQ(DescendantPids(proc, 100, 101), (std::vector<pid_t>{102, 103, 104}));
    EXPECT_EQ(DescendantPids(proc, 102, -1), (std::vector<pid_t>{103, 104}));
    // A kernel without children files gives nothing, and the caller reads every process.
    EXPECT_FALSE(DescendantPids(proc, 555, -1));
}

ProcessStat Stat(pid_t pid, pid_t ppid, pid_t pgrp) {
    ProcessStat s;
    s.pid = pid;
    s.ppid = ppid;
    s.pgrp = pgrp;
    return s;
}

TEST(StepPidsTest, GroupMembersAndDescendantsOfTheRunnerButNotItsGuard) {
    const pid_t runner = 100, guard = 101, shell = 102;
    const std::vector<ProcessStat> all = {
        Stat(1, 0, 1),        Stat(50, 1, 50),         // init, the server
        Stat(runner, 50, 50), Stat(guard, runner, 50),
        Stat(shell, runner, shell),
        Stat(103, shell, shell), Stat(104, 103, shell),  // child, grandchild
        Stat(105, runner, 105), Stat(106, 105, 105),     // an orphan that left the group, its child
        Stat(107, 1, shell),                             // a member of the group below someone else
        Stat(108, 50, 50),                               // another child of the server
        Stat(109, guard, 50)};                           // nothing of the guard counts
    EXPECT_EQ(StepPids(all, runner, shell, guard), (std::vector<pid_t>{102, 103, 104, 105, 106, 107}));
    EXPECT_EQ(StepPids({}, runner, shell, guard), std::vector<pid_t>{});
    // A loop of parents in a list read while processes change ends.
    EXPECT_EQ(StepPids({Stat(7, 8, 7), Stat(8, 7, 8)}, runner, 99, -1), std::vector<pid_t>{});
}

}  // namespace
}  // namespace vq
