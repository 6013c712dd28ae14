// Whole reports of whole runs and info files, compared to the byte with the golden files once the moments
// of the locale's date and time are replaced: any change of text, order, dots or line ends
// shows. VQ_UPDATE_GOLDEN=1 writes the files anew instead, for review.
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "core/Monitor.h"
#include "core/StepSequencing.h"
#include "core/TaskControl.h"
#include "platform/Files.h"
#include "reports/TaskInfo.h"
#include "reports/TaskReport.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

std::string WithoutMoments(const std::string& text) {
    static const std::regex moment(R"(\d\d/\d\d/\d{4} \d\d:\d\d:\d\d [AP]M)");
    return std::regex_replace(text, moment, "<moment>");
}

void ExpectGolden(const std::string& actual, const std::string& name) {
    const std::string path = std::string(VQ_GOLDEN_DIR) + name;
    const std::string text = WithoutMoments(actual);
    if (std::getenv("VQ_UPDATE_GOLDEN")) {
        ASSERT_TRUE(WriteFileAtomic(path, text));
        return;
    }
    std::string golden;
    ASSERT_TRUE(ReadWholeFile(path, golden)) << path;
    EXPECT_EQ(text, golden) << name;
}

class TaskReportGolden : public testing::Test {
protected:
    TaskReportGolden() {
        t->RunnerPath = BinPath("vqfakerunner");
        // Maximums that print in every form, and a cleanup allowance that no run here reaches.
        ClassEntry& a = t->classes.ClassTable[0];
        a.MaxTime = 3600;
        a.MaxCpu = 90061;
        a.MaxMemory = 1048576;
        a.MaxIo = 25000000;
        a.MaxUnits = 1234567;
        t->classes.Ponders[3] = 100000;
        t->classes.Ponders[4] = 3600;
    }

    // A task whose steps run `fake` in the fake runner with counters at 0, its step cells as
    // a submission leaves them.
    std::string Task(int steps, const std::string& status = "Ready") {
        const std::string key = AddRunnableTask(t, 7, "Nightly", steps, status);
        for (int i = 1; i <= steps; ++i) {
            SetStepCell(t, key, i, "Command", "build part " + std::to_string(i));
            SetStepCell(t, key, i, "Environ", "FAKE_IDLE=1\r\nFAKE_POLLS=1");
            const std::pair<const char*, const char*> cells[] = {
                {"STCPU", "0:00:00:00:000"}, {"SIO", "00000000000000"},
                {"SPeakMem", "000000000"},   {"SUnits", "000000000"}, {"SSMem", "0"}};
            for (const auto& [column, value] : cells) SetStepCell(t, key, i, column, value);
        }
        return key;
    }
    void Range(const std::string& key, int step, const char* minRc, const char* maxRc) {
        SetStepCell(t, key, step, "MinRC", minRc);
        SetStepCell(t, key, step, "MaxRC", maxRc);
    }
    std::string Report(const std::string& key) { return ReadFileText(ReportPath(*t, key)); }
    std::string Info(const std::string& key) {
        return ReadFileText(TaskCellOf(t, key, "RF") + "/" + kTaskInfoFile);
    }

    LocaleScope locale{"en_US.UTF-8"};
    TestServer t;
};

TEST_F(TaskReportGolden, ThreeStepsWithOneSkipped) {
    ASSERT_TRUE(locale.Active());
    const std::string key = Task(3);
    SetStepCell(t, key, 1, "Environ", "FAKE_IDLE=1\r\nFAKE_POLLS=1\r\nFAKE_RC=3\r\nFAKE_TEXT=built");
    Range(key, 2, "1", "1");  // doesn't hold 3: skipped
    Range(key, 3, "2", "5");
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    ASSERT_TRUE(TickUntilComplete(t, key));
    ExpectGolden(Report(key), "three-steps-one-skipped.txt");
    ExpectGolden(Info(key), "three-steps-one-skipped.zki");
    // The active report holds the same entries, without the line end of the last copy.
    EXPECT_EQ(ReadFileText(ActiveReportPath(*t, key)) + "\r\n", Report(key));
    EXPECT_EQ(t.LogText(), "");
}

TEST_F(TaskReportGolden, CancelledBeforeItRan) {
    ASSERT_TRUE(locale.Active());
    const std::string key = Task(2, "Waiting");
    t.clock.Advance(90);
    ASSERT_TRUE(RequestCancel(*t, key));
    ExpectGolden(Report(key), "cancelled-before-run.txt");
    ExpectGolden(Info(key), "cancelled-before-run.zki");
    EXPECT_FALSE(PathExists(ActiveReportPath(*t, key)));
}

TEST_F(TaskReportGolden, CancelledWithACleanupStep) {
    ASSERT_TRUE(locale.Active());
    const std::string key = Task(3);
    SetStepCell(t, key, 1, "Environ", "FAKE_IDLE=1\r\nFAKE_POLLS=1000");
    Range(key, 3, "99", "99");
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    Timer3_Timer(*t);
    t.clock.Advance(2);
    ASSERT_TRUE(RequestCancel(*t, key));
    ASSERT_TRUE(TickUntilComplete(t, key));
    EXPECT_EQ(TaskCellOf(t, key, "Status"), "Complete - Cancelled");
    ExpectGolden(Report(key), "cancelled-with-cleanup.txt");
    ExpectGolden(Info(key), "cancelled-with-cleanup.zki");
}

// The class allows 2 seconds of CPU; the fake runner reports one more second at each command, so
// that the monitor's check cancels the task and its cleanup step still runs.
TEST_F(TaskReportGolden, StoppedByItsClassCpuLimit) {
    ASSERT_TRUE(locale.Active());
    t->classes.ClassTable[0].MaxCpu = 2;
    const std::string key = Task(3);
    SetStepCell(t, key, 1, "Environ", "FAKE_POLLS=1000");
    Range(key, 3, "99", "99");
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    ASSERT_TRUE(TickUntilComplete(t, key));
    EXPECT_EQ(TaskCellOf(t, key, "Status"), "Complete - Cancelled");
    ExpectGolden(Report(key), "cpu-limit.txt");
    ExpectGolden(Info(key), "cpu-limit.zki");
    EXPECT_EQ(t.LogText(), "");
}

// Info.zki of a running, a complete and an abended task: sums of the finished steps, and
// while the task runs its current step counted in.
TEST_F(TaskReportGolden, InfoFilesOfEachPhase) {
    ASSERT_TRUE(locale.Active());
    const std::string key = Task(3, "Waiting");
    const std::pair<const char*, const char*> task[] = {
        {"CurStep", "0002"}, {"PeakMem", "000123456"}, {"IO", "00000000001500"}, {"AllR", "0004"},
        {"TCPU", "0:00:00:59:900"}, {"Units", "000000900"}, {"JobReport", "Nightly.build.TXT"},
        {"CurRepeat", "2027-02-01 06:00:00"}};
    for (const auto& [column, value] : task) SetCell(t->tables, kTaskTable, key, column, value);
    const std::pair<const char*, const char*> step[] = {
        {"SIO", "00000000000501"}, {"STCPU", "0:00:00:00:100"}, {"SUnits", "000000200"}};
    for (const auto& [column, value] : step) SetStepCell(t, key, 2, column, value);
    const struct {
        const char *status, *jobRc, *golden;
    } cases[] = {{"Running", "01", "info-running.zki"},
                 {"Complete", "08", "info-complete.zki"},
                 {"Complete", "09", "info-abended.zki"},
                 {"Complete - Cancelled", "99", "info-cancelled.zki"}};
    for (const auto& c : cases) {
        SetCell(t->tables, kTaskTable, key, "Status", c.status);
        SetCell(t->tables, kTaskTable, key, "JobRC", c.jobRc);
        ASSERT_TRUE(WriteTaskInfo(*t, key));
        ExpectGolden(Info(key), c.golden);
    }
}

}  // namespace
}  // namespace vq::test
