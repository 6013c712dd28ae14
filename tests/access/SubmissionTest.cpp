// Submission: the cells of the task and step rows, the checks and the failure path.
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "access/Submission.h"
#include "core/Monitor.h"
#include "platform/Files.h"
#include "storage/Enkripcija.h"
#include "storage/Settings.h"
#include "storage/TaskFile.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::ReadFileText;
using test::TestServer;
using Edit = std::function<void(TaskFileData&)>;

// Writes a task of two steps, changed by `edit`, into $InQ as in.vqf and submits it.
bool SubmitTo(TestServer& ts, const Edit& edit = {}, std::string* key = nullptr) {
    ts->ComputerName = "HOST";
    TaskFileData task = NewTaskFile("Nightly", "host", "me", "2026-12-01 08:30:00");
    task.general.Password = HexEncode(ScrambleBlock("E", "secret"));
    task.steps = {NewTaskStep("echo one", 1), NewTaskStep("echo two", 2)};
    if (edit) edit(task);
    EXPECT_TRUE(SaveTaskFile(ts->InQueuePath + "in.vqf", task, false));
    return SubmitTask(*ts, "in.vqf", key);
}

class SubmissionTest : public ::testing::Test {
protected:
    bool Submit(const Edit& edit = {}, std::string* key = nullptr) { return SubmitTo(ts, edit, key); }
    std::string Task(const std::string& key, const char* column) {
        return GetCell(ts->tables, kTaskTable, key, column);
    }
    std::string Step(const std::string& key, const char* column) {
        return GetCell(ts->tables, kStepTable, key, column);
    }
    TestServer ts;
};

TEST_F(SubmissionTest, EveryCellOfTheTaskRowAndTheFolder) {
    ts->classes.ClassTable[0].QueuePriority = 999;
    ts->NextTaskNumber = 41;
    ASSERT_TRUE(Submit([](TaskFileData& t) {
        t.general.Dependent = "Other";
        t.general.MaxTime = "90";
        t.general.RepeatCancel = "1";
    }));
    const std::string key = "000042-Nightly";
    const std::string folder = ts->ServerPath + "$LOCALS$/$LOCALUSER$/Nightly/000042";
    const std::map<std::string, std::string> expected = {
        {"ID", "000042"}, {"Status", "Waiting"}, {"Class", "A"}, {"UserName", "$LOCALUSER$"},
        {"Domain", "$LOCALS$"}, {"Server", "host"}, {"JobReport", "Nightly"},
        {"Dependency", "Other"}, {"Queue Priority", "000200"}, {"CPU", "22"},
        {"SchTime", "2026-12-01 08:30:00"}, {"Repeat", SingleRunRepeat()}, {"AllR", "0001"},
        {"CurRepeat", "0"}, {"SubTime", "2026-11-22 12:00:00"}, {"JobIndex", ""},
        {"CurStep", "0000"}, {"AllSteps", "0002"}, {"JobRC", "01"}, {"MaxRC", "01"},
        {"NIzv", ""}, {"RepCnt", ""}, {"RF", folder}, {"MaxRunTime", "000000090"},
        {"PeakMem", "000000000"}, {"IO", "00000000000000"}, {"TCPU", "0:00:00:00:000"},
        {"Units", "000000000"}, {"RepCancel", "1"}, {"Start", ""}, {"End", ""}};
    for (const auto& [column, value] : expected) EXPECT_EQ(Task(key, column.c_str()), value) << column;
    EXPECT_EQ(Task(key, "Password").size(), 80u);
    EXPECT_EQ(Step(key + "-Step2", "Command"), "echo two");
    EXPECT_EQ(ts->tables.StepTable.FindRow(key + "-Step2")->Text(), "Step 0002");

    EXPECT_FALSE(PathExists(ts->InQueuePath + "in.vqf"));
    for (const std::string level :
         {"$LOCALS$", "$LOCALS$/$LOCALUSER$", "$LOCALS$/$LOCALUSER$/Nightly", "$LOCALS$/$LOCALUSER$/Nightly/000042"})
        EXPECT_TRUE(PathExists(ts->ServerPath + level + "/Orvantis.ctf")) << level;
    EXPECT_EQ(ReadFileText(folder + "/ACTIVE.ACT"), "Active Task\r\n");
    EXPECT_NE(ReadFileText(folder + "/Original Task File.vqf").find("echo two"), std::string::npos);
    EXPECT_EQ(ReadFileText(folder + "/VqSubmitUser$.$$$"), "host/$LOCALS$/me\r\n");
    EXPECT_EQ(ts.LogText(), "");
}

TEST_F(SubmissionTest, TaskMaxRCAndQueuePriority) {
    ts->classes.ClassTable[1].QueuePriority = 150;  // B
    ts->classes.ClassTable[2].QueuePriority = 900;  // C
    struct Case { std::string maxRC, code, cls, wantMaxRC, wantPriority; };
    const Case cases[] = {
        {"", "4", "B", "08", "000150"},   {"0", "4", "C", "08", "000300"},
        {"00", "2", "C", "00", "000100"}, {"7", "5", "C", "07", "000500"},
        {"12", "3", "c", "12", "000200"}, {"1", "1", "C", "01", "000001"},
        {"1", "0", "C", "01", "000000"},  {"1", "6", "C", "01", "000000"},
        {"1", "x", "C", "01", "000000"},  {"1", "5", "Q", "01", "000000"}};
    for (const Case& c : cases) {
        ASSERT_TRUE(Submit([&](TaskFileData& t) {
            t.general.MaxRC = c.maxRC;
            t.general.QueuePriority = c.code;
            t.general.TaskClass = c.cls;
        }));
        const std::string key = MakeRowKey(ts->NextTaskNumber, "Nightly");
        EXPECT_EQ(Task(key, "MaxRC"), c.wantMaxRC) << c.maxRC;
        EXPECT_EQ(Task(key, "Queue Priority"), c.wantPriority) << c.code << c.cls;
    }
}

// The row of each step: its range, Execute and folder as given, then as the row holds them.
TEST_F(SubmissionTest, StepRangesExecuteAndWorkDir) {
    struct Case { std::string minRC, maxRC, execute, workDir, row; };
    const Case cases[] = {{"0", "0", "1", "", "1-1 Yes %VQS%"},
                          {"", "", "0", "/tmp", "1-1 No /tmp"},
                          {"3", "2", "2", "", "3-3 No %VQS%"},
                          {"2", "5", "3", "%VQS%/x", "2-5 Yes %VQS%/x"},
                          {"99", "99", "-1", "", "99-99 Yes %VQS%"}};
    ASSERT_TRUE(Submit([&](TaskFileData& t) {
        t.steps.clear();
        for (const Case& c : cases) {
            TaskStep step = NewTaskStep("true", t.steps.size() + 1);
            step.MinRC = c.minRC;
            step.MaxRC = c.maxRC;
            step.Execute = c.execute;
            step.WorkingDirectory = c.workDir;
            t.steps.push_back(step);
        }
    }));
    for (size_t i = 0; i < std::size(cases); ++i) {
        const std::string key = MakeStepKey("000001-Nightly", static_cast<int>(i + 1));
        EXPECT_EQ(Step(key, "MinRC") + "-" + Step(key, "MaxRC") + " " + Step(key, "Execute") + " " +
                      Step(key, "WorkDir"),
                  cases[i].row);
        EXPECT_EQ(Step(key, "StepStatus"), "Pending");
        EXPECT_EQ(Step(key, "BuffHeight"), "0300");
        EXPECT_EQ(Step(key, "Parent"), "000001-Nightly");
    }
}

TEST_F(SubmissionTest, NumbersWrapAfter999999NamesKeepTheirBlanksAndTheDomainMayBeEmpty) {
    ts->NextTaskNumber = 999999;
    std::string key;
    ASSERT_TRUE(Submit([](TaskFileData& t) {
        t.general.TaskName = "Nightly Backup Run";
        t.general.Domain = "";
    }, &key));
    EXPECT_EQ(key, "000001-Nightly Backup Run");
    EXPECT_TRUE(PathExists(ts->ServerPath + "$LOCALUSER$/Nightly Backup Run/000001/ACTIVE.ACT"));
}

TEST_F(SubmissionTest, TheFailurePathLogsDeletesAndKeepsWhatWasWritten) {
    const std::string invalid = "is invalid and it will be deleted.\r\n", checked = invalid + "Error #: 0 - \r\n";
    using Cells = std::map<std::string, std::string>;  // of the row left behind
    struct Case { const char* what; Edit edit; bool result; std::string logged; Cells cells; };
    // A foreign computer: the door's test.
    const Case cases[] = {
        {"foreign submitter", [](TaskFileData& t) { t.general.SubServer = "ELSEWHERE"; }, false, checked, {}},
        {"name with a slash", [](TaskFileData& t) { t.general.TaskName = "a/b"; }, false,
         invalid + "Error #: 0 - The field TASKNAME \"a/b\"", {}},
        {"user ..", [](TaskFileData& t) { t.general.User = ".."; }, false,
         invalid + "Error #: 0 - The field USER \"..\"", {}},
        {"short password", [](TaskFileData& t) { t.general.Password = "41424344"; }, false, checked,
         {{"Status", "Waiting"}, {"UserName", "$LOCALUSER$"}, {"Password", ""}}},
        {"no date", [](TaskFileData& t) { t.general.ScheduledTime = "2026-13-45"; }, false,
         invalid + "Error #: 13 - Type mismatch", {{"MaxRC", "01"}, {"SchTime", ""}, {"ID", ""}}},
        {"no step", [](TaskFileData& t) { t.steps.clear(); }, true, invalid + "ERROR: Cannot Open \"", {}},
    };
    for (const Case& c : cases) {
        TestServer ts;
        EXPECT_EQ(SubmitTo(ts, c.edit), c.result) << c.what;
        EXPECT_NE(ts.LogText().find("File \"" + ts->InQueuePath + "in.vqf\" " + c.logged), std::string::npos)
            << c.what << "\n" << ts.LogText();
        EXPECT_FALSE(PathExists(ts->InQueuePath + "in.vqf")) << c.what;
        EXPECT_EQ(ts->tables.TaskTable.RowCount(), c.cells.empty() ? 0u : 1u) << c.what;
        EXPECT_EQ(ts->tables.StepTable.RowCount(), 0u) << c.what;
        for (const auto& [column, value] : c.cells)
            EXPECT_EQ(GetCell(ts->tables, kTaskTable, "000001-Nightly", column), value) << c.what << column;
    }
}

TEST_F(SubmissionTest, AFileThatIsGoneOrNotInTheInputFolder) {
    std::string key = "stale";
    EXPECT_TRUE(SubmitTask(*ts, "never-there.vqf", &key));
    EXPECT_EQ(key, "");
    EXPECT_EQ(ts.LogText(), "");
    ASSERT_TRUE(AppendToFile(ts->ServerPath + "outside.vqf", "keep"));
    for (const char* name : {"../outside.vqf", "..", "", "/etc/hostname"})
        EXPECT_FALSE(SubmitTask(*ts, name)) << name;
    EXPECT_EQ(ReadFileText(ts->ServerPath + "outside.vqf"), "keep");
    EXPECT_NE(ts.LogText().find("is no name of a file in $InQ"), std::string::npos);
    EXPECT_EQ(ts->tables.TaskTable.RowCount(), 0u);
}

TEST_F(SubmissionTest, ASubmitUserFileThatCantBeWrittenIsLogged) {
    const std::string folder = ts.dir.Path() + "missing";
    EXPECT_FALSE(WriteSubmitUser(*ts, "u", "d", "s", folder));
    EXPECT_NE(ts.LogText().find("Error occurred while writing submit user data file.\nPath: " + folder +
                                "/VqSubmitUser$.$$$"),
              std::string::npos);
}

}  // namespace
}  // namespace vq
