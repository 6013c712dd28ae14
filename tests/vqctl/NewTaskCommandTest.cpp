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

using test::RunVqctl;

class NewTask : public ::testing::Test {
protected:
    bool Load(const std::string& path) { return LoadTaskFile(clock, path, task, error); }
    test::TempDir dir;
    test::FakeClock clock;
    TaskFileData task;
    std::string error;
};

// The fields of a task file as "name=value" words, so that a test states them in one text.
std::string Fields(const TaskGeneral& g) {
    return "name=" + g.TaskName + " report=" + g.TaskReportFile + " user=" + g.User +
           " domain=" + g.Domain + " class=" + g.TaskClass + " priority=" + g.QueuePriority +
           " cpu=" + g.CpuPriority + " maxrc=" + g.MaxRC + " maxtime=" + g.MaxTime +
           " depends=" + g.Dependent + " encrypted=" + g.EditPpp;
}
std::string Fields(const TaskStep& s) {
    return s.StepName + ": " + s.Command + " in '" + s.WorkingDirectory + "' rc " + s.MinRC + "-" +
           s.MaxRC + " execute " + s.Execute + " env '" + s.Environment + "' filerc '" + s.FileRC +
           "'";
}

TEST_F(NewTask, FillsWhatIsNotGivenWithSensibleValues) {
    const std::string path = dir.Path() + "backup.vqf";
    const test::ProcessResult run = RunVqctl({"new-task", "--step", "tar czf /tmp/x.tgz .", path});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    ASSERT_TRUE(Load(path)) << error;
    const TaskGeneral& g = task.general;
    EXPECT_EQ(
        Fields(g),
        "name=backup report=backup user=$LOCALUSER$ domain=$LOCALS$ class=A priority=3 cpu=22 "
        "maxrc=1 maxtime=0 depends= encrypted=");
    const std::string computer = ToUpper(GetComputerNameText());
    EXPECT_EQ(g.Server + " " + g.SubServer, computer + " " + computer);
    // A single run: times 0 without an interval.
    EXPECT_EQ(g.TaskRepeat, "0000" + std::string(38, ' ') + "0000ED");
    VqDate scheduled = 0;
    EXPECT_TRUE(TryReadDate(g.ScheduledTime, scheduled)) << g.ScheduledTime;
    EXPECT_EQ(ScrambleBlock("D", HexDecode(g.Password)), "");
    ASSERT_EQ(task.steps.size(), 1u);
    EXPECT_EQ(Fields(task.steps[0]),
              "Step 1: tar czf /tmp/x.tgz . in '' rc 1-1 execute 1 env '' filerc ''");
}

// --at takes the user's short date, where "09-01-27" is 9 January 2027 (each locale's forms
// are the date tests' concern); an empty domain is allowed.
TEST_F(NewTask, TakesTaskAndStepOptions) {
    const std::string path = dir.Path() + "t.vqf";
    test::LocaleScope dutch("nl_NL.UTF-8");
    ASSERT_TRUE(dutch.Active());
    // clang-format off
    const test::ProcessResult run = RunVqctl({"new-task", "--name", "Nightly build", "--class", "c",
        "--priority", "5", "--cpu-priority", "31", "--at", "09-01-27 19:05:03", "--max-rc", "2",
        "--max-time", "3600", "--depends", "Other", "--report", "rep", "--password", "secret",
        "--encrypted", "--domain", "",
        "--step", "make", "--step-name", "Build", "--dir", "/tmp", "--rc", "1-3", "--env", "A=1",
        "--env", "B=two words", "--file-rc", "rc.txt",
        "--step", "echo cleanup", "--rc", "0-99", "--skip", path}, {"LC_ALL=nl_NL.UTF-8"});
    // clang-format on
    ASSERT_EQ(run.exitCode, 0) << run.err;
    ASSERT_TRUE(Load(path)) << error;
    EXPECT_EQ(Fields(task.general),
              "name=Nightly build report=rep user=$LOCALUSER$ domain= class=C priority=5 "
              "cpu=31 maxrc=2 maxtime=3600 depends=Other encrypted=1");
    EXPECT_EQ(task.general.ScheduledTime, "2027-01-09 19:05:03");
    EXPECT_EQ(ScrambleBlock("D", HexDecode(task.general.Password)), "secret");
    ASSERT_EQ(task.steps.size(), 2u);
    EXPECT_EQ(Fields(task.steps[0]),
              "Build: make in '/tmp' rc 1-3 execute 1 env 'A=1\r\nB=two words' filerc 'rc.txt'");
    EXPECT_EQ(Fields(task.steps[1]),
              "Step 2: echo cleanup in '' rc 0-99 execute 0 env '' filerc ''");
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
        {"new-task", "--step", "x", "--env", "novalue", path},   // no NAME=VALUE
        {"new-task", "--step", "x", "--repeat", "short", path},  // no repeat string
        {"new-task", "--step", "x", "--password", std::string(40, 'p'), path},
        {"new-task", "--step", "x", "--bogus", "1", path},
    };
    for (const auto& args : bad) {
        const test::ProcessResult run = RunVqctl(args);
        EXPECT_EQ(run.exitCode, 2) << args.back() << ": " << run.err;
        EXPECT_NE(run.err.find("vqctl new-task: "), std::string::npos) << run.err;
    }
    EXPECT_FALSE(PathExists(path));
    const test::ProcessResult unwritable =
        RunVqctl({"new-task", "--step", "x", dir.Path() + "missing/t.vqf"});
    EXPECT_EQ(unwritable.exitCode, 1) << unwritable.err;
}

}  // namespace
}  // namespace vq
