// Hold and release of a running task: the step is suspended and let go on through its runner.
#include <gtest/gtest.h>

#include "core/StepSequencing.h"
#include "core/TaskHold.h"
#include "core/tables/Status.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

TEST(TaskHoldTest, ARunningTaskIsPausedAndResumedThroughItsRunner) {
    TestServer t;
    t->RunnerPath = BinPath("vqfakerunner");
    const std::string key = AddRunnableTask(t, 1, "Build", 1);
    // The runner answers "not yet" twice before each state is reached.
    SetStepCell(t, key, 1, "Environ", "FAKE_POLLS=1000\nFAKE_STOPWAIT=2");
    ASSERT_TRUE(RunNextStep(*t, true, key, 1));
    const std::string start = TaskCellOf(t, key, "Start");
    const int64_t sleptBefore = t.clock.slept;

    EXPECT_TRUE(HoldTaskRow(*t, key));
    EXPECT_EQ(TaskCellOf(t, key, "Status"), kRunningHold);
    EXPECT_EQ(t.clock.slept - sleptBefore, 3 * 200);  // two answers of "not yet", then the state
    EXPECT_TRUE(ReleaseTaskRow(*t, key));
    EXPECT_EQ(TaskCellOf(t, key, "Status"), kRunning);
    EXPECT_FALSE(ReleaseTaskRow(*t, key));
    EXPECT_EQ(TaskCellOf(t, key, "Start"), start);
    EXPECT_EQ(TaskCellOf(t, key, "JobIndex"), "1");
}

}  // namespace
}  // namespace vq::test
