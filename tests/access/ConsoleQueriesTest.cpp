// The console's questions on the engine: the rows in the task list's order with the texts the
// window shows, a task's steps and report, and the removal that only a finished task allows.
#include <gtest/gtest.h>
#include <unistd.h>

#include "access/ConsoleQueries.h"
#include "core/TaskControl.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "reports/TaskReport.h"
#include "storage/QueueDatabase.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::TestServer;

class ConsoleQueriesTest : public ::testing::Test {
  protected:
    // The names of the rows' RowKey cells, in the order given.
    static std::vector<std::string> Keys(const std::vector<ConsoleRow>& rows) {
        std::vector<std::string> keys;
        for (const ConsoleRow& row : rows) keys.push_back(row.front().second);
        return keys;
    }
    static std::string Cell(const ConsoleRow& row, const std::string& name) {
        for (const auto& [cell, text] : row)
            if (cell == name) return text;
        ADD_FAILURE() << "no cell " << name;
        return {};
    }
    // The kind of the refusal that `call` ends in, with the message checked for `mention`.
    template <typename Call>
    static std::string RefusalOf(Call call, const std::string& mention) {
        try {
            call();
        } catch (const ConsoleRefusal& refusal) {
            EXPECT_NE(std::string(refusal.what()).find(mention), std::string::npos)
                << refusal.what();
            return refusal.Kind();
        }
        return "no refusal";
    }

    TestServer ts;
};

TEST_F(ConsoleQueriesTest, TheWholeQueueInTableOrderAndAPhaseFromTheLastRowToTheFirst) {
    const std::string a = ts.AddTask(1, "A", kWaiting), b = ts.AddTask(2, "B", kRunningHold),
                      c = ts.AddTask(3, "C", kWaitingHold),
                      d = ts.AddTask(4, "D", kCompleteCancelled), e = ts.AddTask(5, "E", kWaiting);
    EXPECT_EQ(Keys(TaskRows(*ts, "")), (std::vector<std::string>{a, b, c, d, e}));
    EXPECT_EQ(Keys(TaskRows(*ts, kWaiting)), (std::vector<std::string>{e, c, a}));
    EXPECT_EQ(Keys(TaskRows(*ts, kRunning)), (std::vector<std::string>{b}));
    EXPECT_EQ(Keys(TaskRows(*ts, kComplete)), (std::vector<std::string>{d}));
    EXPECT_TRUE(TaskRows(*ts, kReady).empty());
    // Chosen cells come in the order asked for.
    const std::vector<ConsoleRow> chosen = TaskRows(*ts, kRunning, {"Elapsed", "Status", "RowKey"});
    ASSERT_EQ(chosen.size(), 1u);
    EXPECT_EQ(chosen[0], (ConsoleRow{{"Elapsed", ""}, {"Status", kRunningHold}, {"RowKey", b}}));
    const auto secretCell = [&] { TaskRows(*ts, "", {"Status", "Password"}); };
    EXPECT_EQ(RefusalOf(secretCell, "'Password'"), kNoSuchCell);
    for (const std::string phase : {"running", "Removed", "Waiting - Hold"})
        EXPECT_EQ(RefusalOf([&] { TaskRows(*ts, phase); }, "'" + phase + "'"), kNoSuchPhase);
}

TEST_F(ConsoleQueriesTest, ARowHasTheKeyTheListsColumnsAndTheElapsedTime) {
    const std::string key = ts.AddTask(7, "Nightly", kRunning);
    SetCell(ts->tables, kTaskTable, key, "Start", "2026-11-22 11:58:30");
    const ConsoleRow row = TaskRow(*ts, key);
    std::vector<std::string> names;
    for (const auto& cell : row) names.push_back(cell.first);
    const std::vector<std::string> expected = {
        "RowKey",   "JobName",  "ID",     "Status",     "Class",
        "UserName", "Domain",   "Server", "Dependency", "Queue Priority",
        "CPU",      "SchTime",  "AllR",   "CurRepeat",  "SubTime",
        "CurStep",  "AllSteps", "JobRC",  "MaxRC",      "MaxRunTime",
        "PeakMem",  "IO",       "TCPU",   "Units",      "Elapsed"};
    EXPECT_EQ(names, expected);
    EXPECT_EQ(Cell(row, "Elapsed"), "0 Days 00:01:30");

    // A finished run counts to its end; a run not yet started has no time.
    SetCell(ts->tables, kTaskTable, key, "Status", kComplete);
    SetCell(ts->tables, kTaskTable, key, "End", "2026-11-23 12:00:35");
    EXPECT_EQ(Cell(TaskRow(*ts, key), "Elapsed"), "1 Day 00:02:05");
    EXPECT_EQ(Cell(TaskRow(*ts, key), "CurRepeat"), "Never");
    EXPECT_EQ(Cell(TaskRow(*ts, ts.AddTask(8, "Later")), "Elapsed"), "");

    EXPECT_EQ(RefusalOf([&] { TaskRow(*ts, "000009-Nightly"); }, "000009-Nightly"), kNoSuchTask);
}

TEST_F(ConsoleQueriesTest, StepsInOrderWithTheirCommandAndOutputFile) {
    const std::string key = ts.AddTask(3, "Build");
    ts.AddSteps(key, 2);
    SetCell(ts->tables, kStepTable, MakeStepKey(key, 2), "Command", "make check");
    const std::vector<ConsoleRow> steps = StepRows(*ts, key);
    ASSERT_EQ(Keys(steps), (std::vector<std::string>{key + "-Step1", key + "-Step2"}));
    EXPECT_EQ(steps[1][1], (std::pair<std::string, std::string>{"Steps", "Step 0002"}));
    EXPECT_EQ(Cell(steps[1], "Command"), "make check");
    EXPECT_EQ(Cell(steps[1], "OutputFile"), ts->ServerPath + "LOCAL/tester/Build/000003/Step2.txt");
    // RowKey, the ten columns of the step list, Command, OutputFile.
    EXPECT_EQ(steps[0].size(), 13u);

    EXPECT_TRUE(StepRows(*ts, ts.AddTask(4, "Empty")).empty());
    EXPECT_EQ(RefusalOf([&] { StepRows(*ts, "000005-Build"); }, "000005-Build"), kNoSuchTask);
}

TEST_F(ConsoleQueriesTest, TheReportIsTheFileInTheTasksFolder) {
    const std::string key = test::AddRunnableTask(ts, 2, "Report", 1, kWaiting);
    ASSERT_EQ(::unlink(ReportPath(*ts, key).c_str()), 0);
    EXPECT_EQ(RefusalOf([&] { TaskReportText(*ts, key); }, ReportPath(*ts, key)), kNoReport);
    ASSERT_TRUE(AppendToFile(ReportPath(*ts, key), "\r\n    Task Report - 000002\r\n"));
    EXPECT_EQ(TaskReportText(*ts, key), "\r\n    Task Report - 000002\r\n");
    EXPECT_EQ(RefusalOf([&] { TaskReportText(*ts, "000003-Report"); }, "000003-Report"),
              kNoSuchTask);
}

TEST_F(ConsoleQueriesTest, OnlyAFinishedTaskIsRemovedWithItsSteps) {
    for (const std::string& status : {kWaiting, kReadyHold, kRunning, kRunningCancelling}) {
        const std::string key = ts.AddTask(1, "Busy", status);
        ts.AddSteps(key, 1);
        EXPECT_EQ(RefusalOf([&] { RemoveFinishedTask(*ts, key); }, key + " is " + status),
                  kNotFinished);
        EXPECT_TRUE(test::HasTask(ts, key));
        RemoveTask(*ts, key, false);
    }
    EXPECT_EQ(RefusalOf([&] { RemoveFinishedTask(*ts, "000001-Busy"); }, "000001-Busy"),
              kNoSuchTask);

    for (const std::string& status : {kComplete, kCompleteCancelled, kCompleteUnfinished}) {
        const std::string key = test::AddRunnableTask(ts, 2, "Done", 2, status);
        const std::string folder = test::TaskCellOf(ts, key, "RF");
        ASSERT_TRUE(SaveQueueDatabase(*ts));
        ASSERT_NE(test::ReadFileText(ts->DataPath + "Jobs.dat").find("Done"), std::string::npos);
        const int loads = ts.screen.treeLoads;
        RemoveFinishedTask(*ts, key);
        EXPECT_FALSE(test::HasTask(ts, key)) << status;
        EXPECT_EQ(ts->tables.StepTable.FindRow(MakeStepKey(key, 1)), nullptr);
        EXPECT_EQ(ts.screen.treeLoads, loads + 1);
        // The queue on disk no longer holds it.
        EXPECT_EQ(test::ReadFileText(ts->DataPath + "Jobs.dat").find("Done"), std::string::npos);
        EXPECT_TRUE(PathExists(folder)) << "the folder stays";
    }
}

}  // namespace
}  // namespace vq
