// The schedule options of vqctl new-task, next-runs and next-run-time, run as processes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/Files.h"
#include "storage/TaskFile.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

// No queue of the user's: the holidays come from --nonwork alone.
test::ProcessResult Vqctl(const std::vector<std::string>& args) {
    return test::RunVqctl(args, {"XDG_CONFIG_HOME=/nonexistent"});
}

class ScheduleCommands : public testing::Test {
  protected:
    std::string Repeat(const std::vector<std::string>& options) {
        std::vector<std::string> args = {"new-task", "--step", "true"};
        args.insert(args.end(), options.begin(), options.end());
        args.push_back(path);
        const test::ProcessResult run = Vqctl(args);
        if (run.exitCode != 0) return "exit " + std::to_string(run.exitCode) + ": " + run.err;
        TaskFileData task;
        std::string error;
        if (!LoadTaskFile(clock, path, task, error)) return error;
        return task.general.TaskRepeat + "|" + task.general.Dependent;
    }
    test::TempDir dir;
    test::FakeClock clock;
    const std::string path = dir.Path() + "s.vqf";
};

const std::string kBlanks38(38, ' ');

TEST_F(ScheduleCommands, NewTaskBuildsTheRepeatString) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "0000" + kBlanks38 + "0000ED|"},
        {{"--every", "1h30m", "--times", "3", "--mode", "wdh"}, "0003" + kBlanks38 + "0130WDH|"},
        {{"--every", "10m"}, "0000" + kBlanks38 + "0010ED|"},
        {{"--every", "2:05", "--after", "Build"}, "0000" + kBlanks38 + "0205ED|Build"},
        {{"--days", "1,3-4,31", "--weekdays", "sun,tue-wed,SAT", "--mode", "SS"},
         "0000X XX" + std::string(26, ' ') + "XX XX  X0000SS|"},
    };
    for (const auto& [options, expected] : cases) EXPECT_EQ(Repeat(options), expected);
}

TEST_F(ScheduleCommands, NewTaskRefusesABadSchedule) {
    const std::vector<std::string> bad[] = {
        {"--every", "0m"},  {"--every", "1h30x"}, {"--every", "100m"},    {"--times", "10000"},
        {"--days", "32"},   {"--days", "5-3"},    {"--weekdays", "mo"},   {"--mode", "XD"},
        {"--every", "2h", "--repeat", "0001" + kBlanks38 + "0000ED"},
    };
    for (const auto& options : bad) {
        const std::string result = Repeat(options);
        EXPECT_EQ(result.rfind("exit 2: vqctl new-task: ", 0), 0u) << options[0] << ": " << result;
    }
    EXPECT_FALSE(PathExists(path));
}

// The holiday Wednesday from the file is the weekend-and-holidays task's next run.
TEST_F(ScheduleCommands, NextRunTimePrintsThePlanOfOneCheckOrRefusesWhatItCantRead) {
    ASSERT_TRUE(WriteFileAtomic(dir.Path() + "NonWork.dat", "\"2027-03-17\"\r\n"));
    ASSERT_TRUE(WriteFileAtomic(dir.Path() + "bad.dat", "\"2027-03-17\"\r\n\"soon\"\r\n"));
    const std::string ok = "0000" + kBlanks38 + "0000ED";
    const struct {
        std::vector<std::string> args;
        int exitCode;
        const char* out;
        const char* err;
    } cases[] = {
        {{"--now", "2027-03-14 10:00:00", "--current", "0", "--scheduled", "2027-03-15 09:00:00",
          "--repeat", "0000" + kBlanks38 + "0000SSH", "--nonwork", dir.Path() + "NonWork.dat"},
         0,
         "NextSchedule=2027-03-17 09:00:00\nNextRun=2027-03-17 09:00:00\nRunCount=0\n"
         "RunNow=false\nMore=true\n",
         ""},
        {{"--scheduled", "2027-03-12", "--repeat", "0000ED"}, 2, "", "shorter than 46"},
        {{"--scheduled", "2027-03-12", "--now", "x", "--repeat", ok}, 2, "", "--now takes"},
        {{"--scheduled", "2027-03-12", "--repeat", ok, "--nonwork", dir.Path() + "bad.dat"}, 1, "",
         "line 2: not a date: 'soon'"},
        {{"--scheduled", "2027-03-12", "--repeat", ok, "--nonwork", dir.Path() + "none.dat"}, 1, "",
         "cannot read"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args = {"next-run-time"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const test::ProcessResult run = Vqctl(args);
        EXPECT_EQ(run.exitCode, c.exitCode) << c.err;
        EXPECT_EQ(run.out, c.out);
        EXPECT_NE(run.err.find(c.err), std::string::npos) << run.err;
    }
}

// 2099-03-13 is a Friday: three runs, then Monday.
TEST_F(ScheduleCommands, NextRunsListsTheRunsOfATaskFile) {
    Repeat({"--at", "2099-03-13 08:00", "--every", "2h", "--times", "3", "--mode", "WD"});
    const test::ProcessResult run = Vqctl({"next-runs", path, "--count", "5"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out,
              "2099-03-13 08:00:00\n2099-03-13 10:00:00\n2099-03-13 12:00:00\n"
              "2099-03-16 08:00:00\n2099-03-16 10:00:00\n");
    // Runs on two working days, then the series ends.
    Repeat({"--at", "2099-03-13 08:00", "--times", "2", "--mode", "WD"});
    const test::ProcessResult days = Vqctl({"next-runs", path, "--count", "5"});
    EXPECT_EQ(days.out, "2099-03-13 08:00:00\n2099-03-16 08:00:00\n");
}

}  // namespace
}  // namespace vq
