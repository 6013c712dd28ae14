#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "core/StepSequencing.h"
#include "platform/Files.h"
#include "runner/RunnerLink.h"
#include "storage/Settings.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

class StepSequencingTest : public testing::Test {
  protected:
    StepSequencingTest() { t->RunnerPath = BinPath("runlet"); }

    std::string Task(int steps) { return AddRunnableTask(t, 1, "Build", steps); }
    void Range(const std::string& key, int step, const char* minRc, const char* maxRc) {
        SetStepCell(t, key, step, "MinRC", minRc);
        SetStepCell(t, key, step, "MaxRC", maxRc);
    }
    // Starts the task's first step and lets the monitor run it to its end.
    void RunToEnd(const std::string& key) {
        ASSERT_TRUE(RunNextStep(*t, true, key, 1));
        ASSERT_TRUE(TickUntilComplete(t, key));
    }
    std::string Status(const std::string& key) { return TaskCellOf(t, key, "Status"); }
    std::string StepStatus(const std::string& key, int step) {
        return StepCell(t, key, step, "StepStatus");
    }
    void ExpectSlotFree() {
        EXPECT_FALSE(t->SlotUsed[1]);
        EXPECT_EQ(t->RunningTaskCount, 0);
        EXPECT_EQ(t->link.slots[1].pid, -1);
    }
    std::string ActiveReport(const std::string& key) {
        return TaskCellOf(t, key, "RF") + "/Active-" + TaskCellOf(t, key, "JobReport") + ".txt";
    }

    TestServer t;
    int number = 1;
};

// Tasks that run nothing end in the call, without a slot, an active report or a repetition.
TEST_F(StepSequencingTest, ATaskWithNothingToRunEndsCompleteInTheCall) {
    const struct {
        int steps;
        bool repeats;
        const char* curStep;
    } cases[] = {{0, false, "0000"}, {3, false, "0003"}, {1, true, "0001"}};
    for (const auto& c : cases) {
        const std::string key = AddRunnableTask(t, ++number, "Idle", c.steps);
        for (int i = 1; i <= c.steps; ++i) SetStepCell(t, key, i, "Execute", "No");
        if (c.repeats) SetTaskCell(t, key, "NIzv", "-1");
        EXPECT_FALSE(RunNextStep(*t, true, key, 1));
        EXPECT_EQ(Status(key), "Complete");
        EXPECT_FALSE(TaskCellOf(t, key, "End").empty());
        EXPECT_EQ(TaskCellOf(t, key, "CurStep"), c.curStep);
        for (int i = 1; i <= c.steps; ++i) EXPECT_EQ(StepStatus(key, i), "Skipped");
        ExpectSlotFree();
        EXPECT_FALSE(PathExists(ActiveReport(key)));
    }
    EXPECT_EQ(t->tables.TaskTable.RowCount(), 3u);  // no next repetition
}

// Tasks run to their end by runners that answer with the return code of each step: the code
// and range of each step, then each step's status and code and the task's code. (The task's
// slot and cells as it ends are the cancelled task's test below.)
TEST_F(StepSequencingTest, TasksRunToTheirEndAsTheCodesSay) {
    t->RunnerPath = BinPath("vqfakerunner");
    struct StepCase {
        const char *rc, *minRc, *maxRc, *status, *stepRc;
    };
    const struct {
        const char* what;
        std::vector<StepCase> steps;
        const char *jobRc, *curStep;
    } cases[] = {
        {"three steps",
         {{"1", "1", "1", "Complete", "01"}, {"3", "1", "1", "Complete", "03"},
          {"1", "3", "3", "Complete", "01"}},
         "01", "0003"},
        {"0 first of three ends the task",
         {{"0", "1", "1", "Complete", "00"}, {"1", "1", "1", "Pending", "00"},
          {"1", "1", "1", "Pending", "00"}},
         "00", "0001"},
        {"a last step that doesn't fit",
         {{"2", "1", "1", "Complete", "02"}, {"1", "1", "1", "Skipped", "00"}}, "02", "0002"},
        {"99 sticks: the cleanup's 5 doesn't replace it",
         {{"99", "1", "1", "Complete", "99"}, {"5", "99", "99", "Complete", "05"},
          {"1", "5", "5", "Skipped", "00"}, {"1", "99", "99", "Complete", "01"}},
         "99", "0004"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const int steps = static_cast<int>(c.steps.size());
        const std::string key = AddRunnableTask(t, ++number, "Build", steps);
        for (int i = 1; i <= steps; ++i) {
            SetStepCell(t, key, i, "Environ", std::string("FAKE_RC=") + c.steps[i - 1].rc);
            Range(key, i, c.steps[i - 1].minRc, c.steps[i - 1].maxRc);
        }
        RunToEnd(key);
        EXPECT_EQ(Status(key), "Complete");
        for (int i = 1; i <= steps; ++i) {
            EXPECT_EQ(StepStatus(key, i), c.steps[i - 1].status) << i;
            EXPECT_EQ(StepCell(t, key, i, "StepRC"), c.steps[i - 1].stepRc) << i;
        }
        EXPECT_EQ(TaskCellOf(t, key, "JobRC"), c.jobRc);
        EXPECT_EQ(TaskCellOf(t, key, "CurStep"), c.curStep);
        EXPECT_FALSE(t->SlotReportFile[1].Valid());  // the active report is closed
    }
}

// A slot taken by another task, offered or not, cancels the task and stays with its owner.
TEST_F(StepSequencingTest, ASlotTakenByAnotherTaskCancelsTheTask) {
    const std::pair<int, const char*> cases[] = {{2, "Task Index Already Taken."},
                                                 {1, "No Task Index Available."}};
    for (const auto& [slots, failure] : cases) {
        t->SizeSlots(static_cast<uint8_t>(slots));
        t->MaxRunningTasks = slots;
        t->RunningTaskCount = 0;
        ASSERT_TRUE(TakeSlot(*t, 1));  // another task's
        const std::string key = AddRunnableTask(t, ++number, "Build", 1);
        EXPECT_FALSE(RunNextStep(*t, true, key, 1));
        EXPECT_EQ(Status(key), "Complete - Cancelled");
        EXPECT_THAT(t.LogText(), testing::HasSubstr("Error occurred while executing the step (" +
                                                    MakeStepKey(key, 1) + ")!\n" + failure));
        EXPECT_TRUE(t->SlotUsed[1]);
        EXPECT_EQ(t->RunningTaskCount, 1);
        EXPECT_EQ(StepStatus(key, 1), "Pending");
    }
}

// The active report can't be made once the task runs in its slot (its folder lies under a
// file): the task is cancelled as a running one, its step ends with 99, and a later step whose
// range holds 99 cleans up before the task ends "Complete - Cancelled".
TEST_F(StepSequencingTest, AFirstStepFailingInItsSlotIsCancelledWithItsCleanupSteps) {
    t->RunnerPath = t.dir.Path() + "no-runner";  // each step's runner is lost: it ends with 98
    const std::string blocker = t.dir.Path() + "blocker";
    ASSERT_TRUE(WriteFileAtomic(blocker, "x"));
    for (const bool cleanup : {true, false}) {
        SCOPED_TRACE(cleanup ? "with a cleanup step" : "without one");
        const std::string key = AddRunnableTask(t, ++number, "Build", 2);
        Range(key, 2, cleanup ? "99" : "1", cleanup ? "99" : "1");
        SetTaskCell(t, key, "RF", blocker + "/sub");
        EXPECT_FALSE(RunNextStep(*t, true, key, 1));
        EXPECT_THAT(t.LogText(), testing::HasSubstr("Error occurred while executing the step (" +
                                                    MakeStepKey(key, 1)));
        EXPECT_EQ(StepStatus(key, 1), "Complete - Cancelled");
        EXPECT_EQ(StepCell(t, key, 1, "StepRC"), "99");
        EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "99");
        if (cleanup) {
            EXPECT_EQ(Status(key), "Running - Cancelling");
            EXPECT_EQ(StepStatus(key, 2), "Running");
            EXPECT_TRUE(t->SlotState[1].cancelled);
            ASSERT_TRUE(TickUntilComplete(t, key));
            EXPECT_EQ(StepStatus(key, 2), "Complete");
            EXPECT_EQ(TaskCellOf(t, key, "JobRC"), "99");
        } else {
            EXPECT_EQ(StepStatus(key, 2), "Skipped");
        }
        EXPECT_EQ(Status(key), "Complete - Cancelled");
        EXPECT_EQ(TaskCellOf(t, key, "JobIndex"), "");
        ExpectSlotFree();
    }
}

TEST_F(StepSequencingTest, AStepWhoseTaskFolderWasDeletedWhileItWaitedRuns) {
    const std::string key = Task(1);
    std::filesystem::remove_all(TaskCellOf(t, key, "RF"));
    RunToEnd(key);  // by the real runner, which opens the step's output file there
    EXPECT_EQ(StepCell(t, key, 1, "StepRC"), "01");
    EXPECT_TRUE(PathExists(TaskCellOf(t, key, "RF") + "/Step1.txt"));
}

// What a fake runner's Environ block makes it answer: `polls` "STAT" as running, each "STAT"
// with `statText`, and an "END " with `rc` and `endText`.
std::string FakeAnswers(int polls, const std::string& statText, int rc = 1,
                        const std::string& endText = "") {
    std::string block = "FAKE_POLLS=" + std::to_string(polls) + "\r\nFAKE_STATTEXT=" + statText +
                        "\r\nFAKE_RC=" + std::to_string(rc);
    return endText.empty() ? block : block + "\r\nFAKE_TEXT=" + endText;
}

size_t Count(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// A step of a cluster class starts its runner with the Slurm arguments, and the runner's first
// answer (the job and the partition) follows the step's Running entry; a step of another class
// starts as ever. The reply that the caller last had is left as it was.
TEST_F(StepSequencingTest, AStepOfAClusterClassShowsItsJobInTheReport) {
    t->RunnerPath = BinPath("vqfakerunner");
    SaveRegSetting(*t.registry, "Cluster", "Backend", "slurm");
    SaveRegSetting(*t.registry, "Cluster", "Classes", "C");
    SaveRegSetting(*t.registry, "Cluster", "Partition", "debug");
    const std::string job = "Slurm job 4711 in partition debug.";
    const std::pair<const char*, const char*> cases[] = {
        {"C", "--backend=slurm\n--poll-seconds=2\n--partition=debug\n"}, {"A", ""}};
    for (const auto& [taskClass, args] : cases) {
        SCOPED_TRACE(taskClass);
        const std::string key = AddRunnableTask(t, ++number, "Build", 1);
        SetTaskCell(t, key, "Class", taskClass);
        const std::string argsFile = t.dir.Path() + "args-" + taskClass;
        SetStepCell(t, key, 1, "Environ", FakeAnswers(2, job) + "\r\nFAKE_IDLE=1\r\nFAKE_ARGS=" + argsFile);
        t->link.reply.StepRc = 7;
        t->link.ReplyText = "before";
        ASSERT_TRUE(RunNextStep(*t, true, key, 1));
        EXPECT_EQ(t->link.reply.StepRc, 7);
        EXPECT_EQ(t->link.ReplyText, "before");
        EXPECT_EQ(ReadFileText(argsFile), args);
        const std::string report = ReadFileText(ActiveReport(key));
        const size_t running = report.find("Step 1 Status:");
        ASSERT_NE(running, std::string::npos);
        EXPECT_EQ(report.find("\r\n" + job + "\r\n", running) != std::string::npos, *args != 0)
            << report;
        ASSERT_TRUE(TickUntilComplete(t, key));
        EXPECT_EQ(StepCell(t, key, 1, "StepRC"), "01");
    }
    EXPECT_THAT(t.LogText(), testing::Not(testing::HasSubstr("Slurm")));
}

// A cluster that can't be used is logged once for each reason until a step has started on
// it; the steps end with 98 and the runner's text. A job that Slurm refused is no such case.
TEST_F(StepSequencingTest, AClusterThatCantBeUsedIsLoggedOncePerReason) {
    t->RunnerPath = BinPath("vqfakerunner");
    SaveRegSetting(*t.registry, "Cluster", "Backend", "slurm");
    const std::string noSbatch = "Slurm can't be used: sbatch was not found on PATH.";
    const std::string noController = "Slurm can't be used: sbatch could not reach the controller.";
    const std::string refused = "The step could not be started. Invalid partition name specified";
    const struct {
        std::string statText;
        bool starts;
        size_t logLines;
    } cases[] = {{noSbatch, false, 1},  {noSbatch, false, 1}, {refused, false, 1},
                 {noController, false, 2}, {noSbatch, false, 3}, {noSbatch, false, 3},
                 {"Slurm job 12 in partition debug.", true, 3}, {noSbatch, false, 4}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.statText);
        const std::string key = AddRunnableTask(t, ++number, "Build", 1);
        SetTaskCell(t, key, "Class", "d");
        SetStepCell(t, key, 1, "Environ",
                    c.starts ? FakeAnswers(1, c.statText) : FakeAnswers(0, c.statText, 98, c.statText));
        ASSERT_TRUE(RunNextStep(*t, true, key, 1));
        ASSERT_TRUE(TickUntilComplete(t, key));
        EXPECT_EQ(Count(t.LogText(), "can't run on the Slurm cluster"), c.logLines);
        EXPECT_EQ(StepCell(t, key, 1, "StepRC"), c.starts ? "01" : "98");
        // The text comes once: from the step's end, not as the start's data.
        EXPECT_EQ(Count(ReadFileText(TaskCellOf(t, key, "RF") + "/" +
                                     TaskCellOf(t, key, "JobReport") + ".txt"),
                        c.statText),
                  1u);
    }
    EXPECT_THAT(t.LogText(), testing::HasSubstr("Steps of class D can't run on the Slurm cluster: "
                                                "sbatch was not found on PATH."));
}

}  // namespace
}  // namespace vq::test
