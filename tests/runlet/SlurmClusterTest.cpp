// The runner's Slurm backend against a real one-node cluster, when the test run has one
// (VQS_SLURM_CLUSTER=1, with SLURM_CONF naming its configuration): the job runs the command
// as the local runner would, is suspended and resumed, killed, and cancelled by the guard.
#include <signal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "RunletDriver.h"
#include "runlet/SlurmCommands.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

using ::testing::MatchesRegex;

class SlurmClusterTest : public ::testing::Test {
protected:
    void SetUp() override {
        const char* cluster = std::getenv("VQS_SLURM_CLUSTER");
        if (!cluster || std::string(cluster) != "1")
            GTEST_SKIP() << "No Slurm cluster for this run: VQS_SLURM_CLUSTER is not 1 (scripts/test.sh sets it "
                            "once scripts/slurm-cluster.sh has started one).";
    }
    // The job's state as Slurm tells it.
    static std::string JobState(const std::string& jobId) {
        const CommandResult job = RunCommand({{"scontrol", "show", "job", "-o", jobId}, "", std::nullopt, 10'000});
        const size_t at = job.output.find("JobState=");
        return at == std::string::npos ? "" : job.output.substr(at + 9, job.output.find(' ', at) - at - 9);
    }
    static std::string JobIdOf(const std::string& statText) {
        return statText.substr(10, statText.find(' ', 10) - 10);  // "Slurm job N in ..."
    }

    TempDir dir;
};

TEST_F(SlurmClusterTest, JobRunsTheCommandAsGivenAndEndsWithItsCode) {
    const std::string folder = dir.Path() + "50% a 'b'/";
    std::filesystem::create_directory(folder);
    RunletDriver runner({"--backend=slurm", "--poll-seconds=1"}, {});
    ASSERT_EQ(runner.Start(MakeStart(folder), "printf '%s|' \"$GREETING\" \"it's\" 100% \"$ORVANTIS_STEP\"; exit 2", "",
                           "GREETING=hello \"world\" 5%,6\r\n")
                  .AckStage,
              "STARTED ");
    const Answer stat = runner.Send("STAT");
    EXPECT_THAT(stat.text, MatchesRegex("Slurm job [0-9]+ in partition debug\\."));
    const Answer end = runner.RunToEnd();
    EXPECT_EQ(end.reply.StepRc, 3);
    EXPECT_EQ(ReadFileText(folder + "Step1.txt"), "hello \"world\" 5%,6|it's|100%|1|");
}

TEST_F(SlurmClusterTest, HoldSuspendsTheJobResumeContinuesItKillEndsIt) {
    RunletDriver runner({"--backend=slurm", "--poll-seconds=1"}, {});
    runner.Start(MakeStart(dir.Path()), "while :; do :; done");
    const std::string jobId = JobIdOf(runner.Send("STAT").text);
    ASSERT_TRUE(WaitUntil([&] { return JobState(jobId) == "RUNNING"; }, 10'000, 100));
    EXPECT_EQ(runner.Repeat("STOP").reply.RunnerState, 2);
    EXPECT_EQ(JobState(jobId), "SUSPENDED");
    EXPECT_EQ(runner.Repeat("STRT").reply.RunnerState, 1);
    EXPECT_EQ(JobState(jobId), "RUNNING");
    Answer counted;
    EXPECT_TRUE(WaitUntil([&] { return (counted = runner.Send("STAT")).reply.CpuTimeA > 0; }, 10'000, 200));
    EXPECT_EQ(counted.reply.CountersValid, 1);
    EXPECT_GT(counted.reply.PeakMemory, 100);  // a shell's KB: sstat's bytes read as bytes
    EXPECT_LT(counted.reply.PeakMemory, 100 * 1024);
    EXPECT_EQ(runner.Send("DIAG", 1).text, "");
    EXPECT_THAT(ReadFileText(dir.Path() + "Diag1.txt"),
                ::testing::AllOf(::testing::HasSubstr("JobState=RUNNING"), ::testing::HasSubstr("|")));
    runner.Send("KILL");
    EXPECT_EQ(runner.Send("END ").reply.StepRc, 98);
    EXPECT_EQ(JobState(jobId), "CANCELLED");
}

// A job that waits for its start time is held in Slurm's queue and released again; the
// extra sbatch options reach sbatch.
TEST_F(SlurmClusterTest, PendingJobIsHeldAndReleased) {
    RunletDriver runner({"--backend=slurm", "--poll-seconds=1", "--sbatch-args=--begin=now+600 --comment='a b'"}, {});
    runner.Start(MakeStart(dir.Path()), "true");
    const std::string jobId = JobIdOf(runner.Send("STAT").text);
    EXPECT_EQ(JobState(jobId), "PENDING");
    EXPECT_EQ(runner.Repeat("STOP").reply.RunnerState, 2);
    EXPECT_THAT(RunCommand({{"scontrol", "show", "job", jobId}, "", std::nullopt, 10'000}).output,
                ::testing::AllOf(::testing::HasSubstr("Reason=JobHeld"), ::testing::HasSubstr("Comment=a b")));
    EXPECT_EQ(runner.Repeat("STRT").reply.RunnerState, 1);
    EXPECT_THAT(RunCommand({{"scontrol", "show", "job", jobId}, "", std::nullopt, 10'000}).output,
                ::testing::Not(::testing::HasSubstr("Reason=JobHeld")));
    runner.Send("KILL");
    EXPECT_EQ(runner.Send("END ").reply.StepRc, 98);
}

TEST_F(SlurmClusterTest, RunnerKilledLeavesNoJobBehind) {
    RunletDriver runner({"--backend=slurm", "--poll-seconds=1"}, {});
    runner.Start(MakeStart(dir.Path()), "sleep 300");
    const std::string jobId = JobIdOf(runner.Send("STAT").text);
    ::kill(runner.Pid(), SIGKILL);
    EXPECT_TRUE(WaitUntil([&] { return JobState(jobId) == "CANCELLED"; }, 15'000, 200)) << JobState(jobId);
}

}  // namespace
}  // namespace vq::test
