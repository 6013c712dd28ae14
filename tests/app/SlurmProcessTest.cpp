// Tasks whose steps run as jobs of a real one-node Slurm cluster (scripts/slurm-cluster.sh),
// driven through a running server: return codes, hold and resume, cancel with cleanup, and the
// CPU limit of a class read from Slurm's own counters.
#include <regex>

#include "storage/Classes.h"
#include "tests/app/ServerProcess.h"

namespace vq::test {
namespace {

constexpr int kTaskLimitMs = 60000;

class SlurmProcessTest : public BusServerProcessTest {
protected:
    void SetUp() override {
        const char* cluster = std::getenv("VQS_SLURM_CLUSTER");
        if (cluster == nullptr || std::string(cluster) != "1")
            GTEST_SKIP() << "No Slurm cluster for these tests: VQS_SLURM_CLUSTER is not 1. scripts/test.sh "
                            "starts one (scripts/slurm-cluster.sh start, as root) and sets it.";
    }

    // Class C goes to Slurm with a poll every second and the given CPU limit (0: none); class A
    // stays on this machine. CPU, memory and I/O weigh nothing in system units.
    std::unique_ptr<ChildProcess> StartSlurmServer(int classCpuLimit) {
        ClassData data;
        data.ClassTable[2].MaxCpu = classCpuLimit;
        data.Ponders = {0, 0, 0, 1000, 60, 0, 0};
        ComputeClassUnits(data);
        const std::string dataFolder = Root() + "$Data/";
        EXPECT_TRUE(MakeFolders(dataFolder));
        EXPECT_TRUE(WriteFileAtomic(dataFolder + kClassesFileName, ClassesFileText(data)));
        for (const auto& [name, value] : {std::pair{"Backend", "slurm"}, {"Classes", "c"}, {"PollSeconds", "1"}})
            EXPECT_EQ(Vqctl({"config", "set", "Cluster", name, value}).exitCode, 0) << name;
        return StartServer();
    }

    // Writes and submits a class C task of the given steps, each a command and its --rc range.
    std::string Submit(const std::string& name, const std::vector<std::pair<std::string, std::string>>& steps) {
        std::vector<std::string> args = {"new-task", "--name", name, "--class", "C"};
        for (const auto& [command, rc] : steps) {
            args.insert(args.end(), {"--step", command});
            if (!rc.empty()) args.insert(args.end(), {"--rc", rc});
        }
        args.push_back(dir.Path() + name + ".vqf");
        const ProcessResult made = Vqctl(args);
        EXPECT_EQ(made.exitCode, 0) << made.err;
        const ProcessResult submitted = Vqctl({"submit", dir.Path() + name + ".vqf"});
        EXPECT_EQ(submitted.exitCode, 0) << submitted.err;
        return submitted.out.substr(0, submitted.out.find('\n'));
    }

    std::string Folder(const std::string& name) const { return Root() + "$LOCALS$/$LOCALUSER$/" + name + "/000001/"; }
    std::string Report(const std::string& name) const { return ReadFileText(Folder(name) + name + ".txt"); }

    bool WaitForReport(const std::string& name, const std::string& text, int limitMs = kTaskLimitMs) const {
        return WaitUntil([&] { return Report(name).find(text) != std::string::npos; }, limitMs, 50);
    }

    // The Slurm job ids that the report names, in the order of the steps that ran.
    std::vector<std::string> JobIds(const std::string& name) const {
        static const std::regex kJobLine(R"(Slurm job (\d+) in partition debug\.)");
        const std::string report = Report(name);
        std::vector<std::string> ids;
        for (auto match = std::sregex_iterator(report.begin(), report.end(), kJobLine); match != std::sregex_iterator();
             ++match)
            ids.push_back((*match)[1]);
        return ids;
    }

    // The job's state as Slurm tells it ("RUNNING", "SUSPENDED", "CANCELLED", ...).
    static std::string JobState(const std::string& jobId) {
        const ProcessResult result = RunProcess({"/bin/sh", "-c", "exec squeue -h -t all -o %T -j " + jobId}, {});
        return result.out.substr(0, result.out.find('\n'));
    }
};

TEST_F(SlurmProcessTest, AStepThatExitsTwoOnTheClusterLeadsToTheStepForReturnCodeThree) {
    auto server = StartSlurmServer(0);
    const std::string key = Submit("Three", {{"echo one $SLURM_JOB_ID", ""},
                                             {"echo two; exit 2", ""},
                                             {"echo not run", "2-2"},
                                             {"echo three $SLURM_JOB_ID", "3-3"}});
    ASSERT_EQ(key, "000001-Three");
    ASSERT_TRUE(WaitForReport("Three", "Task RC:")) << Report("Three") << server->ErrorText();

    const std::string report = Report("Three");
    const std::vector<std::string> jobs = JobIds("Three");
    ASSERT_EQ(jobs.size(), 3u) << report;
    EXPECT_TRUE(InOrder(report, {"This is a class C task.", "Step 1 Status:.......................... Running",
                                 "Slurm job " + jobs[0] + " in partition debug.",
                                 "Step Return Code:....................... 01",
                                 "Slurm job " + jobs[1] + " in partition debug.",
                                 "Step Return Code:....................... 03",
                                 "Step 3 Status:.......................... Skipped",
                                 "Step 4 Status:.......................... Running",
                                 "Slurm job " + jobs[2] + " in partition debug.",
                                 "Task Status:............................ Complete", "Task RC:................................ 01"}))
        << report;
    // Each step printed into its own output file from inside its own job.
    EXPECT_EQ(ReadFileText(Folder("Three") + "Step1.txt"), "one " + jobs[0] + "\n");
    EXPECT_EQ(ReadFileText(Folder("Three") + "Step2.txt"), "two\n");
    EXPECT_EQ(ReadFileText(Folder("Three") + "Step4.txt"), "three " + jobs[2] + "\n");
    EXPECT_EQ(JobState(jobs[1]), "FAILED");
    Stop(*server);
}

TEST_F(SlurmProcessTest, AHoldOfTheRunningStepSuspendsItsJobAndAResumeLetsItFinish) {
    auto server = StartSlurmServer(0);
    const std::string key = Submit("Tick", {{"for i in 1 2 3 4 5 6; do echo $i; sleep 0.5; done", ""}});
    ASSERT_TRUE(WaitForReport("Tick", "Slurm job ")) << Report("Tick") << server->ErrorText();
    const std::string job = JobIds("Tick").at(0);
    ASSERT_TRUE(WaitUntil([&] { return JobState(job) == "RUNNING"; }, 10000, 50)) << JobState(job);

    ASSERT_EQ(Vqctl({"hold", key}).exitCode, 0);
    ASSERT_TRUE(WaitUntil([&] { return JobState(job) == "SUSPENDED"; }, 10000, 50)) << JobState(job);
    EXPECT_NE(Vqctl({"status"}).out.find("Running - Hold"), std::string::npos);
    // Nothing is printed while the job stands still.
    const std::string printed = ReadFileText(Folder("Tick") + "Step1.txt");
    usleep(1500 * 1000);
    EXPECT_EQ(ReadFileText(Folder("Tick") + "Step1.txt"), printed);
    EXPECT_EQ(JobState(job), "SUSPENDED");

    ASSERT_EQ(Vqctl({"resume", key}).exitCode, 0);
    ASSERT_TRUE(WaitForReport("Tick", "Task RC:")) << Report("Tick") << server->ErrorText();
    EXPECT_EQ(ReadFileText(Folder("Tick") + "Step1.txt"), "1\n2\n3\n4\n5\n6\n");
    EXPECT_NE(Report("Tick").find("Task Status:............................ Complete\r\n"), std::string::npos);
    EXPECT_EQ(JobState(job), "COMPLETED");
    Stop(*server);
}

TEST_F(SlurmProcessTest, ACancelEndsTheJobAndTheCleanupStepRunsOnTheClusterToo) {
    auto server = StartSlurmServer(0);
    const std::string key = Submit("Cancel", {{"sleep 300", ""}, {"echo cleaned $SLURM_JOB_ID", "99-99"}});
    ASSERT_TRUE(WaitForReport("Cancel", "Slurm job ")) << Report("Cancel") << server->ErrorText();
    const std::string job = JobIds("Cancel").at(0);
    ASSERT_TRUE(WaitUntil([&] { return JobState(job) == "RUNNING"; }, 10000, 50)) << JobState(job);

    ASSERT_EQ(Vqctl({"cancel", key}).exitCode, 0);
    ASSERT_TRUE(WaitForReport("Cancel", "Task RC:")) << Report("Cancel") << server->ErrorText();
    const std::vector<std::string> jobs = JobIds("Cancel");
    ASSERT_EQ(jobs.size(), 2u) << Report("Cancel");
    EXPECT_TRUE(InOrder(Report("Cancel"), {"Cancelling...", "Step 1 Status:.......................... Complete - Cancelled",
                                           "Step Return Code:....................... 99", "Searching for cleanup steps...",
                                           "Step 2 Status:.......................... Running",
                                           "Slurm job " + jobs[1] + " in partition debug.",
                                           "Task Status:............................ Complete - Cancelled",
                                           "Task RC:................................ 99"}))
        << Report("Cancel");
    EXPECT_EQ(JobState(job), "CANCELLED");
    EXPECT_EQ(ReadFileText(Folder("Cancel") + "Step2.txt"), "cleaned " + jobs[1] + "\n");
    Stop(*server);
}

TEST_F(SlurmProcessTest, ALoopingStepIsCancelledAtItsClassCpuLimitFromSlurmsCounters) {
    auto server = StartSlurmServer(2);
    Submit("Burn", {{"while :; do :; done", ""}, {"echo cleaned $SLURM_JOB_ID", "99-99"}});
    ASSERT_TRUE(WaitForReport("Burn", "Task RC:")) << Report("Burn") << server->ErrorText();
    const std::vector<std::string> jobs = JobIds("Burn");
    ASSERT_EQ(jobs.size(), 2u) << Report("Burn");
    EXPECT_TRUE(InOrder(Report("Burn"), {"Max CPU Time:........................... 0 Days 00:00:02",
                                         "Slurm job " + jobs[0] + " in partition debug.",
                                         "\r\nTask has exceeded maximum CPU time! (0 Days 00:00:02)\r\n", "Cancelling...",
                                         "Step 1 Status:.......................... Complete - Cancelled",
                                         "Task Status:............................ Complete - Cancelled"}))
        << Report("Burn");
    // The CPU time that crossed the limit is the job's, as sstat counted it.
    static const std::regex kCpuTime(R"(Complete - Cancelled\r\n(?:.*\r\n){3}CPU Time:\.+ 0:00:00:(\d\d):)");
    std::smatch cpu;
    const std::string report = Report("Burn");
    ASSERT_TRUE(std::regex_search(report, cpu, kCpuTime)) << report;
    EXPECT_GE(std::stoi(cpu[1]), 2) << report;
    EXPECT_EQ(JobState(jobs[0]), "CANCELLED");
    EXPECT_EQ(ReadFileText(Folder("Burn") + "Step2.txt"), "cleaned " + jobs[1] + "\n");
    Stop(*server);
}

}  // namespace
}  // namespace vq::test
