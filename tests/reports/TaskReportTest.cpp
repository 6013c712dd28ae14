// The pieces of the task report: labels, spans, the class block and the failure paths.
#include <gtest/gtest.h>

#include <fcntl.h>

#include <functional>

#include "core/Server.h"
#include "platform/Files.h"
#include "reports/TaskReport.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

TEST(ReportLabel, IsAlwaysFortyOneCharacters) {
    const struct {
        std::string text, label;
    } cases[] = {
        {"", std::string(40, '.') + " "},
        {std::string(40, 'x'), std::string(40, 'x') + " "},
        {std::string(45, 'y'), std::string(40, 'y') + " "},
    };
    for (const auto& c : cases) EXPECT_EQ(ReportLabel(c.text), c.label) << c.text;
}

TEST(ElapsedText, CountsWholeSecondsOrGivesTheEmptySpan) {
    const struct {
        const char *from, *to, *text;
    } cases[] = {
        {"", "2026-11-22 12:00:00", "0 Days 0:00:00"},
        {"2026-11-22 12:00:00", "2026-11-22 12:00:00", "0 Days 00:00:00"},
        {"2026-11-20 23:59:59", "2026-11-22 00:00:00", "1 Day 00:00:01"},
    };
    for (const auto& c : cases) EXPECT_EQ(ElapsedText(c.from, c.to), c.text) << c.from << c.to;
}

class TaskReportTest : public testing::Test {
protected:
    std::string Task() { return AddRunnableTask(t, 3, "Sums", 1, "Waiting"); }
    std::string Report(const std::string& key) { return ReadFileText(ReportPath(*t, key)); }

    LocaleScope locale{"C"};
    TestServer t;
};

// A class letter that isn't found is the first class.
TEST_F(TaskReportTest, AnUnknownClassShowsTheMaximumsOfClassA) {
    const std::string key = Task();
    SetCell(t->tables, kTaskTable, key, "Class", "7");
    const std::string block = ReportEntryText(*t, key, "Running", false, "");
    EXPECT_NE(block.find("\r\nThis is a class 7 task.\r\n\r\nMaximums Of Class A:\r\n"),
              std::string::npos) << block;
}

TEST_F(TaskReportTest, EntryNamesWithoutTextWriteNothing) {
    const std::string key = Task();
    const std::string before = Report(key);
    const struct {
        const char* entry;
        bool isStep;
        const char* text;
        bool result;
    } cases[] = {
        {"Data", false, "", true}, {"Data", true, "", true},       {"Skipped", false, "1", false},
        {"Ready - Hold", false, "", false}, {"Waiting", true, "1", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(WriteReport(*t, key, c.entry, c.isStep, c.text, -1, -1), c.result) << c.entry;
    EXPECT_EQ(Report(key), before);
    EXPECT_EQ(t.LogText(), "");
}

// Failures are logged with their own text and never thrown; the task's files stay as they were.
TEST_F(TaskReportTest, FailuresGoToTheServerLog) {
    const std::string key = Task();
    const std::string before = Report(key);
    const struct {
        const char* what;
        std::function<bool()> call;
        const char* logged;
    } cases[] = {
        {"no such task", [&] { return WriteReport(*t, "000009-Gone", "Waiting", false, "", -1, -1); },
         "Error occurred while gethering data for report!\n"},
        {"no such step", [&] { return WriteReport(*t, key, "Skipped", true, "4", -1, -1); },
         "Error occurred while gethering data for report!\n"},
        {"no active report", [&] { return WriteActiveReport(*t, "lost text", 1, -1); },
         "Error occurred while writing to active report!\nlost text\n"},
        {"position 0", [&] { return WriteActiveReport(*t, "x", 1, 0); },
         "Error occurred while writing to active report!\nx\n"},
        {"no slot", [&] { return RefreshReport(*t, 1, key); },
         "Error occurred while copying task report!\r\n"},
        {"no marker's task", [&] { return DeleteActiveMarker(*t, "000009-Gone"); },
         "Error occurred while deleting \""},
    };
    for (const auto& c : cases) {
        EXPECT_FALSE(c.call()) << c.what;
        EXPECT_NE(t.LogText().find(c.logged), std::string::npos) << c.what << "\n" << t.LogText();
    }
    EXPECT_EQ(Report(key), before);
}

TEST_F(TaskReportTest, AReportThatCantBeWrittenIsLoggedWithItsTask) {
    const std::string key = Task();
    SetCell(t->tables, kTaskTable, key, "RF", t.dir.Path() + "missing/folder");
    EXPECT_FALSE(WriteReport(*t, key, "Ready", false, "", -1, -1));
    EXPECT_NE(t.LogText().find(key + "\nError occurred while writing to task report!\n"),
              std::string::npos);
}

// The active report takes text at a byte from 1 or behind its end; the refresh copies it whole
// and a line end into the report, and the active report stays open.
TEST_F(TaskReportTest, TheActiveReportIsWrittenInPlaceAndCopied) {
    const std::string key = Task();
    const std::string active = ActiveReportPath(*t, key);
    ASSERT_TRUE(WriteFileAtomic(active, "abcdef"));
    t->SlotReportFile[1] = UniqueFd(::open(active.c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_TRUE(WriteActiveReport(*t, "XY", 1, 2));
    EXPECT_TRUE(WriteActiveReport(*t, "gh", 1, -1));
    EXPECT_TRUE(WriteReport(*t, key, "Data", false, "note", 1, -1));
    EXPECT_EQ(ReadFileText(active), "aXYdefgh\r\nnote\r\n");
    EXPECT_TRUE(RefreshReport(*t, 1, key));
    EXPECT_EQ(Report(key), "aXYdefgh\r\nnote\r\n\r\n");
    EXPECT_TRUE(t->SlotReportFile[1].Valid());
}

TEST_F(TaskReportTest, TheActiveMarkerGoesAndAMissingOneIsNoFailure) {
    const std::string key = Task();
    const std::string marker = TaskCellOf(t, key, "RF") + "/ACTIVE.ACT";
    ASSERT_TRUE(PathExists(marker));
    EXPECT_TRUE(DeleteActiveMarker(*t, key));
    EXPECT_FALSE(PathExists(marker));
    EXPECT_TRUE(DeleteActiveMarker(*t, key));
}

}  // namespace
}  // namespace vq::test
