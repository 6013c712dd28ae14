// Cancel, stop, kill, priority and removal of tasks, driven by the fake clock and real steps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "core/Monitor.h"
#include "core/Startup.h"
#include "core/StepSequencing.h"
#include "core/TaskControl.h"
#include "core/TaskHold.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "storage/QueueDatabase.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

using testing::HasSubstr;

class TaskControlTest : public testing::Test {
  protected:
    TaskControlTest() { t->RunnerPath = BinPath("runlet"); }

    // A task whose first step runs `first` in slot 1; steps behind it run `later` in turn,
    // each with the range 99 to 99 when it is a cleanup step.
    std::string RunningTask(const std::vector<std::pair<const char*, bool>>& later = {},
                            const char* first = "sleep 30") {
        const std::string key = AddRunnableTask(t, ++number, "Build", 1 + int(later.size()));
        SetStepCell(t, key, 1, "Command", first);
        int step = 1;
        for (const auto& [command, cleanup] : later) {
            SetStepCell(t, key, ++step, "Command", command);
            SetStepCell(t, key, step, "MinRC", cleanup ? "99" : "1");
            SetStepCell(t, key, step, "MaxRC", cleanup ? "99" : "1");
        }
        EXPECT_TRUE(RunNextStep(*t, true, key, 1));
        return key;
    }
    std::string Task(const std::string& key, const char* column) {
        return TaskCellOf(t, key, column);
    }
    std::string StepStatus(const std::string& key, int step) {
        return StepCell(t, key, step, "StepStatus");
    }
    std::string Folder(const std::string& key) { return Task(key, "RF") + "/"; }
    void ExpectEndedCancelled(const std::string& key) {
        EXPECT_EQ(Task(key, "Status"), kCompleteCancelled);
        EXPECT_FALSE(Task(key, "End").empty());
        EXPECT_EQ(Task(key, "JobIndex"), "");
        EXPECT_FALSE(t->SlotUsed[1]);
        EXPECT_EQ(t->link.slots[1].pid, -1);
    }

    TestServer t;
    int number = 0;
};

TEST_F(TaskControlTest, ACancelOfATaskWithoutAStepProcessEndsItAndSavesTheQueue) {
    const struct {
        const char *status, *jobIndex;
        bool result, saved;
        const char* after;
    } cases[] = {
        {"Ready - Hold", "", true, true, "Complete - Cancelled"},
        {"Complete", "", false, false, "Complete"},
        {"Running - Hold", "1", false, true, "Running - Hold"},  // a held step can't be cancelled
    };
    for (const auto& c : cases) {
        TestServer fresh;
        const std::string key = AddRunnableTask(fresh, 1, "Idle", 2, c.status);
        SetTaskCell(fresh, key, "JobIndex", c.jobIndex);
        EXPECT_EQ(RequestCancel(*fresh, key), c.result) << c.status;
        EXPECT_EQ(TaskCellOf(fresh, key, "Status"), c.after);
        EXPECT_EQ(PathExists(fresh->DataPath + kJobsFile), c.saved) << c.status;
    }
    EXPECT_FALSE(RequestCancel(*t, "000009-Missing"));
}

TEST_F(TaskControlTest, ACancelDuringTheLastStepEndsTheTaskInTheCall) {
    const std::string key = RunningTask();
    EXPECT_TRUE(RequestCancel(*t, key));
    ExpectEndedCancelled(key);
    EXPECT_EQ(StepCell(t, key, 1, "StepRC"), "99");
    EXPECT_EQ(Task(key, "JobRC"), "99");
}

// A later step whose range holds 99 cleans up; the task can neither be cancelled again nor held
// while it does. Its course and its end are pinned by the report's golden file.
TEST_F(TaskControlTest, ATaskRunningItsCleanupCanNeitherBeCancelledAgainNorHeld) {
    const std::string key = RunningTask({{"true", false}, {"true", true}});
    EXPECT_TRUE(RequestCancel(*t, key));
    ASSERT_EQ(Task(key, "Status"), kRunningCancelling);
    EXPECT_FALSE(CancelRunningTask(*t, key));
    EXPECT_FALSE(HoldTaskRow(*t, key));
    EXPECT_EQ(Task(key, "Status"), kRunningCancelling);
    ASSERT_TRUE(TickUntilComplete(t, key));
}

// The allowance is ponder 4 seconds and ponder 3 units from the cancel on; the monitor stops a
// cleanup that goes beyond it (here its time; which limits count is the accounting's test), and
// the task keeps JobRC 99.
TEST_F(TaskControlTest, ACleanupThatOverrunsItsAllowanceIsStopped) {
    t->classes.Ponders[3] = 1e9;
    t->classes.Ponders[4] = 10;
    const std::string key = RunningTask({{"sleep 30", true}});
    ASSERT_TRUE(RequestCancel(*t, key));
    t.clock.Advance(11);
    ASSERT_TRUE(TickUntilComplete(t, key, 5000));
    ExpectEndedCancelled(key);
    EXPECT_EQ(StepStatus(key, 2), kStepCancelled);
    EXPECT_EQ(Task(key, "JobRC"), "99");
}

// At shutdown a running task ends at once, without cleanup and without releasing anybody; a
// repeating one gets its next run only if it asked to go on after a cancel.
TEST_F(TaskControlTest, ShutdownKillsARunningRepeatingTaskWithoutCleanup) {
    for (const char* repCancel : {"1", "0"}) {
        SCOPED_TRACE(repCancel);
        const std::string key = RunningTask({{"echo yes > cleanup.txt", true}});
        SetTaskCell(t, key, "NIzv", "-1");
        SetTaskCell(t, key, "RepCancel", repCancel);
        ASSERT_TRUE(WriteFileAtomic(Folder(key) + kOriginalTaskFile, "task"));
        t->NextTaskNumber = 10 * number;
        EXPECT_TRUE(CloseServer(*t, true));
        ExpectEndedCancelled(key);
        EXPECT_EQ(Task(key, "JobRC"), "01");
        EXPECT_EQ(StepStatus(key, 2), "Pending");
        EXPECT_EQ(t->tables.TaskTable.FindRow(MakeRowKey(10 * number + 1, "Build")) != nullptr,
                  repCancel == std::string("1"));
    }
}

// A held step's processes really stop, and go on when the task is released.
TEST_F(TaskControlTest, AHeldStepStopsAndGoesOnWhenReleased) {
    const std::string key = RunningTask({}, "while :; do echo x >> ticks.txt; sleep 0.02; done");
    const std::string file = Folder(key) + "ticks.txt";
    auto size = [&] {
        std::string text;
        ReadWholeFile(file, text);
        return text.size();
    };
    ASSERT_TRUE(WaitUntil([&] { return size() > 0; }, 5000));
    ASSERT_TRUE(HoldTaskRow(*t, key));
    const size_t held = size();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(size(), held);
    ASSERT_TRUE(ReleaseTaskRow(*t, key));
    EXPECT_TRUE(WaitUntil([&] { return size() > held; }, 5000));
    EXPECT_TRUE(RequestCancel(*t, key));
}

TEST_F(TaskControlTest, APriorityReachesTheRunningStepAndIsKeptInCpu) {
    const std::string waiting = AddRunnableTask(t, 50, "Later", 1);
    EXPECT_TRUE(SetRunningPriority(*t, waiting, 41));
    EXPECT_EQ(Task(waiting, "CPU"), "41");
    const std::string key = AddRunnableTask(t, 51, "Nice", 1);
    SetStepCell(t, key, 1, "Command", "sleep 0.3; nice > nice.txt");
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    EXPECT_TRUE(SetRunningPriority(*t, key, 3));  // Low: the least priority, always allowed
    EXPECT_EQ(Task(key, "CPU"), "03");
    ASSERT_TRUE(TickUntilComplete(t, key));
    std::string nice;
    ASSERT_TRUE(ReadWholeFile(Folder(key) + "nice.txt", nice));
    EXPECT_EQ(nice, "19\n");
}

TEST_F(TaskControlTest, EachOperationLogsItsOwnFailure) {
    const std::string missing = "000009-Missing";
    const std::pair<std::function<bool()>, const char*> cases[] = {
        {[&] { return KillTask(*t, missing); }, "Error occurred while killing the task ("},
        {[&] { return CancelRunningTask(*t, missing); },
         "Error occurred while canceling the task ("},
        {[&] { return StopRunningTask(*t, missing); }, "Error occurred while stopping the task ("},
        {[&] { return PauseRunningTask(*t, missing, 1); },
         "Error occurred while trying to pause the task ("},
        {[&] { return ResumeRunningTask(*t, missing, 1); }, "Error occurred while resuming task ("},
        {[&] { return SetRunningPriority(*t, missing, 22); },
         "Error occurred while setting the task priority ("},
        {[&] { return RemoveTask(*t, missing, false); },
         "Error occurred while removing the task form the queue("},
    };
    for (const auto& [operation, text] : cases) {
        EXPECT_FALSE(operation()) << text;
        EXPECT_THAT(t.LogText(), HasSubstr(std::string(text) + missing + ")!\n")) << text;
    }
}

}  // namespace
}  // namespace vq::test
