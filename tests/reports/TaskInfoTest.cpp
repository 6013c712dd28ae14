// Info.zki: its eleven lines for tasks in each phase, the next run and the failures.
#include <gtest/gtest.h>

#include "core/Server.h"
#include "reports/TaskInfo.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

class TaskInfoTest : public testing::Test {
protected:
    TaskInfoTest() { key = AddRunnableTask(t, 42, "Nightly", 3, "Waiting"); }
    void Cells(const std::vector<std::pair<const char*, std::string>>& cells) {
        for (const auto& [column, value] : cells) SetCell(t->tables, kTaskTable, key, column, value);
    }
    std::string Info() { return ReadFileText(TaskCellOf(t, key, "RF") + "/Info.zki"); }

    LocaleScope locale{"en_US.UTF-8"};
    TestServer t;
    std::string key;
};

// Sums of the finished steps; while the task runs, its current step counts in.
TEST_F(TaskInfoTest, ElevenLinesForARunningACompleteAndAnAbendedTask) {
    ASSERT_TRUE(locale.Active());
    Cells({{"CurStep", "0002"}, {"PeakMem", "000123456"}, {"IO", "00000000001500"},
           {"TCPU", "0:00:00:59:900"}, {"Units", "000000900"}, {"AllR", "0004"}});
    const std::pair<const char*, const char*> step[] = {
        {"SIO", "00000000000501"}, {"STCPU", "0:00:00:00:100"}, {"SUnits", "000000200"}};
    for (const auto& [column, value] : step) SetStepCell(t, key, 2, column, value);
    const struct {
        const char *status, *jobRc, *shown, *nextRun, *io, *cpu, *units;
    } cases[] = {
        {"Running", "01", "Running", "11/22/2026 12:00:00 PM", "2,001", "0:00:01:00:000", "1,100"},
        {"Running - Hold", "01", "Running - Hold", "11/22/2026 12:00:00 PM", "2,001",
         "0:00:01:00:000", "1,100"},
        {"Complete", "08", "Complete (8)", "Never", "1,500", "0:00:00:59:900", "900"},
        {"Complete", "09", "Abended (9 > 8)", "Never", "1,500", "0:00:00:59:900", "900"},
        {"Complete - Cancelled", "99", "Complete - Cancelled", "Never", "1,500", "0:00:00:59:900",
         "900"},
    };
    for (const auto& c : cases) {
        Cells({{"Status", c.status}, {"JobRC", c.jobRc}});
        ASSERT_TRUE(WriteTaskInfo(*t, key));
        EXPECT_EQ(Info(), std::string("Task Name...........: Nightly\r\n") +
                              "Task ID.............: 000042\r\n" +
                              "Task Status.........: " + c.shown + "\r\n" +
                              "Progress............: Step 2 Of 3\r\n" +
                              "Next Run Time.......: " + c.nextRun + "\r\n" +
                              "Task Repetition.....: 0004\r\n" +
                              "Peak Mem Usage......: 123,456 KB\r\n" +
                              "I/O Count...........: " + c.io + "\r\n" +
                              "CPU Time............: " + c.cpu + "\r\n" +
                              "System Units........: " + c.units + "\r\n" +
                              "Report File.........: Nightly\r\n")
            << c.status << c.jobRc;
    }
}

TEST_F(TaskInfoTest, TheNextRunFollowsTheRepeatAndTheSchedule) {
    const struct {
        const char *status, *curRepeat, *schTime, *text;
    } cases[] = {
        {"Waiting", "0", "2027-01-09 19:05:03", "01/09/2027 07:05:03 PM"},
        {"Waiting", "", "2027-01-09 19:05:03", "01/09/2027 07:05:03 PM"},
        {"Waiting - Hold", "2027-02-01 06:00:00", "2027-01-09 19:05:03", "02/01/2027 06:00:00 AM"},
        {"Waiting", "1899-12-30 00:00:00", "2027-01-09 19:05:03", "Never"},
        {"Complete - Unfinished", "2027-02-01 06:00:00", "2027-01-09 19:05:03", "Never"},
        {"Waiting", "0", "someday", "Unknown"},
    };
    ASSERT_TRUE(locale.Active());
    for (const auto& c : cases) {
        Cells({{"Status", c.status}, {"CurRepeat", c.curRepeat}, {"SchTime", c.schTime}});
        EXPECT_EQ(NextRunText(*t, key), c.text) << c.status << " " << c.curRepeat;
    }
    EXPECT_EQ(NextRunText(*t, "000001-Gone"), "Unknown");
}

TEST_F(TaskInfoTest, AWaitingTaskReadsStepZeroAndTheReportLosesItsExtension) {
    Cells({{"JobReport", "Nightly.build.TXT"}});
    ASSERT_TRUE(WriteTaskInfo(*t, key));
    const std::string info = Info();
    EXPECT_NE(info.find("Progress............: Step 0 Of 3\r\n"), std::string::npos) << info;
    EXPECT_NE(info.find("Report File.........: Nightly.build\r\n"), std::string::npos) << info;
}

// A task that has gone or a damaged number writes nothing and is logged.
TEST_F(TaskInfoTest, FailuresAreLoggedAndLeaveTheOldFile) {
    ASSERT_TRUE(WriteTaskInfo(*t, key));
    const std::string before = Info();
    Cells({{"Status", "Complete"}, {"JobRC", "x9"}});
    EXPECT_FALSE(WriteTaskInfo(*t, key));
    EXPECT_EQ(Info(), before);
    EXPECT_FALSE(WriteTaskInfo(*t, "000001-Gone"));
    const std::string log = t.LogText();
    EXPECT_NE(log.find("Error occurred while writing task info file! (" + key + ")\n"),
              std::string::npos) << log;
    EXPECT_NE(log.find("Error occurred while writing task info file! (000001-Gone)\n"),
              std::string::npos) << log;
}

}  // namespace
}  // namespace vq::test
