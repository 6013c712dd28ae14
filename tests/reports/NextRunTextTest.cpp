// The next run of the info file: the schedule, the repeat, or never.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "reports/TaskInfo.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

TEST(NextRunText, FollowsTheRepeatAndTheSchedule) {
    LocaleScope locale("en_US.UTF-8");
    ASSERT_TRUE(locale.Active());
    TestServer t;
    const std::string key = t.AddTask(1, "Nightly");
    const struct {
        const char *status, *curRepeat, *schTime, *text;
    } cases[] = {
        {"Waiting", "0", "2027-01-09 19:05:03", "01/09/2027 07:05:03 PM"},
        {"Waiting - Hold", "2027-02-01 06:00:00", "", "02/01/2027 06:00:00 AM"},
        {"Waiting", "1899-12-30 00:00:00", "2027-01-09 19:05:03", "Never"},
        {"Complete - Unfinished", "2027-02-01 06:00:00", "2027-01-09 19:05:03", "Never"},
        {"Waiting", "0", "someday", "Unknown"},
    };
    for (const auto& c : cases) {
        for (const auto& [column, value] : {std::pair{"Status", c.status}, {"CurRepeat", c.curRepeat},
                                            {"SchTime", c.schTime}})
            SetCell(t->tables, kTaskTable, key, column, value);
        EXPECT_EQ(NextRunText(*t, key), c.text) << c.status << " " << c.curRepeat;
    }
    EXPECT_EQ(NextRunText(*t, "000009-Gone"), "Unknown");
}

// A task that has gone or a damaged number writes nothing and is logged.
TEST(WriteTaskInfo, FailuresAreLoggedAndLeaveTheOldFile) {
    TestServer t;
    const std::string key = AddRunnableTask(t, 42, "Nightly", 1, "Complete");
    const std::string path = TaskCellOf(t, key, "RF") + "/" + kTaskInfoFile;
    const std::string before = ReadFileText(path);
    SetCell(t->tables, kTaskTable, key, "JobRC", "x9");
    EXPECT_FALSE(WriteTaskInfo(*t, key));
    EXPECT_FALSE(WriteTaskInfo(*t, "000001-Gone"));
    EXPECT_EQ(ReadFileText(path), before);
    for (const std::string& k : {key, std::string("000001-Gone")})
        EXPECT_NE(t.LogText().find("Error occurred while writing task info file! (" + k + ")\n"),
                  std::string::npos) << t.LogText();
}

// An info file that already says what the task says is left as it is; a change is written.
TEST(WriteTaskInfo, RewritesOnlyWhatChanged) {
    TestServer t;
    const std::string key = AddRunnableTask(t, 42, "Nightly", 1, "Complete");
    const std::string path = TaskCellOf(t, key, "RF") + "/" + kTaskInfoFile;
    auto inode = [&] {
        struct stat st {};
        return ::stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
    };
    ASSERT_TRUE(WriteTaskInfo(*t, key));
    const auto written = inode();
    ASSERT_TRUE(WriteTaskInfo(*t, key));
    EXPECT_EQ(inode(), written);
    SetCell(t->tables, kTaskTable, key, "Status", "Complete - Cancelled");
    ASSERT_TRUE(WriteTaskInfo(*t, key));
    EXPECT_NE(inode(), written);
    EXPECT_NE(ReadFileText(path).find("Complete - Cancelled"), std::string::npos);
}

}  // namespace
}  // namespace vq::test
