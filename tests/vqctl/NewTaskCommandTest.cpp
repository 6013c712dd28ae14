// vqctl new-task, run as a process.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "calendar/Common.h"
#include "platform/Files.h"
#include "storage/Enkripcija.h"
#include "storage/TaskFile.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

struct RunResult {
    int exitCode = -1;
    std::string output;  // standard output and standard error
};

RunResult RunVqctl(std::vector<std::string> args, const std::vector<std::string>& env = {}) {
    args.insert(args.begin(), test::BinPath("vqctl"));
    const test::ProcessResult run = test::RunProcess(args, env);
    return {run.exitCode, run.out + run.err};
}

class NewTask : public ::testing::Test {
  protected:
    bool Load(const std::string& path) { return LoadTaskFile(clock, path, task, error); }
    test::TempDir dir;
    test::FakeClock clock;
    TaskFileData task;
    std::string error;
};

TEST_F(NewTask, FillsWhatIsNotGivenWithSensibleValues) {
    const std::string path = dir.Path() + "backup.vqf";
    const RunResult run = RunVqctl({"new-task", "--step", "tar czf /tmp/x.tgz .", path});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    ASSERT_TRUE(Load(path)) << error;
    const TaskGeneral& g = task.general;
    const std::string computer = ToUpper(GetComputerNameText());
    EXPECT_EQ(g.TaskName, "backup");
    EXPECT_EQ(g.TaskReportFile, "backup");
    EXPECT_EQ(g.User, "$LOCALUSER$");
    EXPECT_EQ(g.Domain, "$LOCALS$");
    EXPECT_EQ(g.Server, computer);
    EXPECT_EQ(g.SubServer, computer);
    EXPECT_EQ(g.TaskClass, "A");
    EXPECT_EQ(g.QueuePriority, "3");
    EXPECT_EQ(g.CpuPriority, "22");
    EXPECT_EQ(g.MaxRC, "1");
    EXPECT_EQ(g.MaxTime, "0");
    // A single run: times 0 without an interval.
    EXPECT_EQ(g.TaskRepeat, "0000" + std::string(38, ' ') + "0000ED");
    VqDate scheduled = 0;
    EXPECT_TRUE(TryReadDate(g.ScheduledTime, scheduled)) << g.ScheduledTime;
    EXPECT_EQ(g.Password.size(), 80u);
    EXPECT_EQ(ScrambleBlock("D", HexDecode(g.Password)), "");
    ASSERT_EQ(task.steps.size(), 1u);
    const TaskStep& s = task.steps[0];
    EXPECT_EQ(s.Command, "tar czf /tmp/x.tgz .");
    EXPECT_EQ(s.StepName, "Step 1");
    EXPECT_EQ(s.WorkingDirectory, "");
    EXPECT_EQ(s.MinRC, "1");
    EXPECT_EQ(s.MaxRC, "1");
    EXPECT_EQ(s.Execute, "1");
    EXPECT_TRUE(FileSystemNameProblem(g).empty());
}

TEST_F(NewTask, TakesTaskAndStepOptions) {
    const std::string path = dir.Path() + "t.vqf";
    // clang-format off
    const RunResult run = RunVqctl({"new-task", "--name", "Nightly build", "--class", "c",
        "--priority", "5", "--cpu-priority", "31", "--at", "2027-01-02 03:04:05", "--max-rc", "2",
        "--max-time", "3600", "--depends", "Other", "--report", "rep", "--password", "secret",
        "--encrypted",
        "--step", "make", "--step-name", "Build", "--dir", "/tmp", "--rc", "1-3", "--env", "A=1",
        "--env", "B=two words", "--file-rc", "rc.txt",
        "--step", "echo cleanup", "--rc", "0-99", "--skip", path});
    // clang-format on
    ASSERT_EQ(run.exitCode, 0) << run.output;
    ASSERT_TRUE(Load(path)) << error;
    const TaskGeneral& g = task.general;
    EXPECT_EQ(g.TaskName, "Nightly build");
    EXPECT_EQ(g.TaskClass, "C");
    EXPECT_EQ(g.QueuePriority, "5");
    EXPECT_EQ(g.CpuPriority, "31");
    EXPECT_EQ(g.ScheduledTime, "2027-01-02 03:04:05");
    EXPECT_EQ(g.MaxRC, "2");
    EXPECT_EQ(g.MaxTime, "3600");
    EXPECT_EQ(g.Dependent, "Other");
    EXPECT_EQ(g.TaskReportFile, "rep");
    EXPECT_EQ(g.EditPpp, "1");  // it came in encrypted form
    EXPECT_EQ(ScrambleBlock("D", HexDecode(g.Password)), "secret");
    ASSERT_EQ(task.steps.size(), 2u);
    EXPECT_EQ(task.steps[0].StepName, "Build");
    EXPECT_EQ(task.steps[0].WorkingDirectory, "/tmp");
    EXPECT_EQ(task.steps[0].MinRC, "1");
    EXPECT_EQ(task.steps[0].MaxRC, "3");
    EXPECT_EQ(task.steps[0].Environment, "A=1\r\nB=two words");
    EXPECT_EQ(task.steps[0].FileRC, "rc.txt");
    EXPECT_EQ(task.steps[0].Execute, "1");
    EXPECT_EQ(task.steps[1].Command, "echo cleanup");
    EXPECT_EQ(task.steps[1].MinRC, "0");
    EXPECT_EQ(task.steps[1].MaxRC, "99");
    EXPECT_EQ(task.steps[1].Execute, "0");
}

// --at takes the user's short date, and the cell form whatever the locale; an empty domain
// is allowed.
TEST_F(NewTask, TakesTheLocalesDateAndTheCellForm) {
    const std::pair<const char*, const char*> cases[] = {
        {"nl_NL.UTF-8", "09-01-27 19:05:03"}, {"nl_NL.UTF-8", "2027-01-09 19:05:03"},
        {"en_GB.UTF-8", "09/01/27 19:05:03"}, {"de_DE.UTF-8", "09.01.2027 19:05:03"}};
    const std::string path = dir.Path() + "at.vqf";
    for (const auto& [locale, at] : cases) {
        test::LocaleScope scope(locale);
        ASSERT_TRUE(scope.Active());
        const RunResult run =
            RunVqctl({"new-task", "--step", "x", "--domain", "", "--at", at, path},
                     {std::string("LC_ALL=") + locale});
        ASSERT_EQ(run.exitCode, 0) << run.output;
        ASSERT_TRUE(Load(path)) << error;
        EXPECT_EQ(task.general.ScheduledTime, "2027-01-09 19:05:03") << locale << " " << at;
        EXPECT_EQ(task.general.Domain, "");
    }
}

TEST_F(NewTask, RefusesWhatWouldMakeAnInvalidTaskFile) {
    const std::string path = dir.Path() + "bad.vqf";
    const std::vector<std::vector<std::string>> bad = {
        {"new-task", path},                                      // no step
        {"new-task", "--step", "x"},                             // no file
        {"new-task", "--rc", "1-1", "--step", "x", path},        // step option before a step
        {"new-task", "--step", "x", "--rc", "5-2", path},        // range upside down
        {"new-task", "--step", "x", "--class", "AB", path},      // no class letter
        {"new-task", "--step", "x", "--priority", "6", path},    // no priority code
        {"new-task", "--step", "x", "--at", "tomorrow", path},   // no date
        {"new-task", "--step", "x", "--name", "a/b", path},      // no folder name
        {"new-task", "--step", "x", "--user", "..", path},       // no folder name
        {"new-task", "--step", "x", "--env", "novalue", path},   // no NAME=VALUE
        {"new-task", "--step", "x", "--repeat", "short", path},  // no repeat string
        {"new-task", "--step", "x", "--password", std::string(40, 'p'), path},
        {"new-task", "--step", "x", "--bogus", "1", path},
        {"new-task", "--step"},
    };
    for (const auto& args : bad) {
        const RunResult run = RunVqctl(args);
        EXPECT_EQ(run.exitCode, 2) << args.back() << ": " << run.output;
        EXPECT_NE(run.output.find("vqctl new-task: "), std::string::npos) << run.output;
    }
    EXPECT_FALSE(PathExists(path));
    const RunResult unwritable =
        RunVqctl({"new-task", "--step", "x", dir.Path() + "missing/t.vqf"});
    EXPECT_EQ(unwritable.exitCode, 1) << unwritable.output;
}

}  // namespace
}  // namespace vq
