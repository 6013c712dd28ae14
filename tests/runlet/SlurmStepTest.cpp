// The runner with --backend=slurm, driven through its records as the server drives it, over
// a fake Slurm: small scripts first on PATH that log their arguments and answer from files
// that each test writes.
#include <signal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "RunletDriver.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kFakeSlurm = VQ_FAKE_SLURM_DIR;
const char* const kSuspend = "scontrol\tsuspend\t4711";
const char* const kCancel = "scancel\t4711";

class SlurmStepTest : public ::testing::Test {
protected:
    SlurmStepTest() { std::filesystem::create_directory(State()); }

    std::string State() const { return dir.Path() + "slurm"; }
    void Set(const std::string& name, const std::string& value) const {
        std::ofstream(State() + "/" + name) << value;
    }
    void Unset(const std::string& name) const { std::filesystem::remove(State() + "/" + name); }
    std::vector<std::string> Calls() const {
        std::vector<std::string> lines;
        std::istringstream log(ReadFileText(dir.Path() + "slurm.log"));
        for (std::string line; std::getline(log, line);) lines.push_back(line);
        return lines;
    }
    // The calls of one program, in order; the orders are the scontrol calls that change the job.
    std::vector<std::string> CallsOf(const std::string& program) const {
        std::vector<std::string> calls;
        for (const std::string& line : Calls())
            if (line.rfind(program + "\t", 0) == 0) calls.push_back(line);
        return calls;
    }
    std::vector<std::string> Orders() const {
        std::vector<std::string> orders = CallsOf("scontrol");
        std::erase_if(orders, [](const std::string& call) { return call.rfind("scontrol\tshow", 0) == 0; });
        return orders;
    }
    std::unique_ptr<RunletDriver> Runner(std::vector<std::string> options = {},
                                         const std::string& path = kFakeSlurm + ":/usr/bin:/bin") const {
        options.insert(options.begin(), {"--backend=slurm", "--poll-seconds=1"});
        return std::make_unique<RunletDriver>(
            options, std::vector<std::string>{"PATH=" + path, "FAKE_SLURM_LOG=" + dir.Path() + "slurm.log",
                                              "FAKE_SLURM_STATE=" + State()});
    }
    StartRecord Start() const { return MakeStart(dir.Path()); }

    TempDir dir;
};

// Each way a job ends gives the step's return code; the STAT text names the job all along.
TEST_F(SlurmStepTest, EndOfTheJobGivesTheReturnCode) {
    struct Case {
        const char* state;
        const char* exitCode;
        const char* fileRc;  // what the FileRC file holds, nullptr for no FileRC
        int rc;
        const char* note;
    };
    const Case cases[] = {
        {"COMPLETED", "0:0", nullptr, 1, ""},
        {"FAILED", "0:9", nullptr, 98, "Slurm job 4711 ended FAILED (JobLaunchFailure, exit code 0:9)."},
        {"TIMEOUT", "0:0", nullptr, 98, "Slurm job 4711 ended TIMEOUT (exit code 0:0)."},
        {"COMPLETED", "0:0", "0", 0, ""},
        {"gone", "", nullptr, 98, "Slurm no longer knows job 4711."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.state);
        if (c.state == std::string("gone")) Set("gone", "");
        Set("state", c.state);
        Set("exitcode", c.exitCode);
        Set("reason", c.state == std::string("FAILED") ? "JobLaunchFailure" : "None");
        if (c.fileRc) Set("rc.txt", c.fileRc);
        const auto runner = Runner({"--partition=given"});
        EXPECT_EQ(runner->Start(Start(), "true", c.fileRc ? State() + "/rc.txt" : "").AckStage, "STARTED ");
        const Answer stat = runner->Send("STAT");
        EXPECT_EQ(stat.reply.RunnerState, 4);
        // A job that Slurm never told of stays in the partition given.
        EXPECT_EQ(stat.text, std::string("Slurm job 4711 in partition ") + (*c.exitCode ? "debug." : "given."));
        const Answer end = runner->Send("END ");
        EXPECT_EQ(end.reply.StepRc, c.rc);
        EXPECT_EQ(end.text, c.note);
        EXPECT_EQ(runner->WaitExit(), 0);
        Unset("gone");
    }
    EXPECT_THAT(CallsOf("scancel"), ::testing::IsEmpty());
}

// Pending: no counters, and the partition given until Slurm names one. Running: sstat's
// readings at each poll.
TEST_F(SlurmStepTest, CountersComeFromSstatOnceTheJobRuns) {
    Set("state", "PENDING");
    Set("partition", "");
    Set("sstat", "00:00:02.500|2048K|4096|6144\n");
    const auto runner = Runner({"--partition=given"});
    runner->Start(Start(), "true", "", "GREETING=hello 'world' 50%\r\n");
    const Answer pending = runner->Send("STAT");
    EXPECT_EQ(pending.reply.RunnerState, 1);
    EXPECT_EQ(pending.reply.CountersValid, 0);
    EXPECT_EQ(pending.text, "Slurm job 4711 in partition given.");
    EXPECT_THAT(ReadFileText(State() + "/sbatch.env"), HasSubstr("GREETING=hello 'world' 50%\n"));
    EXPECT_THAT(ReadFileText(State() + "/sbatch.env"), HasSubstr("ORVANTIS_TASK_ID=000012\n"));

    Set("state", "RUNNING");
    Set("partition", "debug");
    Answer running;
    ASSERT_TRUE(WaitUntil([&] { return (running = runner->Send("STAT")).reply.CountersValid == 1; }, 5'000, 100));
    EXPECT_EQ(std::tie(running.text, running.reply.CpuTimeA, running.reply.PeakMemory, running.reply.IoCount),
              std::make_tuple("Slurm job 4711 in partition debug.", 25'000'000, 2048, 10 * 10'000));
    EXPECT_THAT(CallsOf("sstat"), Contains("sstat\t-n\t-P\t--noconvert\t-j\t4711.batch\t"
                                           "--format=AveCPU,MaxRSS,MaxDiskRead,MaxDiskWrite"));
    // "STAT" answers from the last poll: twenty of them ask Slurm nothing.
    const size_t asked = Calls().size();
    for (int i = 0; i < 20; ++i) runner->Send("STAT");
    EXPECT_LE(Calls().size(), asked + 2);
    Set("state", "COMPLETED");
    EXPECT_EQ(runner->RunToEnd().reply.StepRc, 1);
}

// A running job is suspended and resumed, a pending one held and released; until Slurm tells
// the state, the answer is "not yet" and the order is not given again.
TEST_F(SlurmStepTest, StopAndStrtSuspendARunningJobAndHoldAPendingOne) {
    const auto runner = Runner();
    runner->Start(Start(), "true");
    Set("lag", "");
    const Answer notYet = runner->Send("STOP");
    EXPECT_EQ(notYet.reply.ReplyTextLength, -1);
    EXPECT_EQ(notYet.reply.WaitStatus, 258);
    EXPECT_EQ(runner->Send("STOP").reply.WaitStatus, 258);
    Set("state", "SUSPENDED");
    EXPECT_EQ(runner->Send("STOP").reply.RunnerState, 2);
    Unset("lag");
    EXPECT_EQ(runner->Send("STRT").reply.RunnerState, 1);

    // A new nice value would let Slurm release the held job: it is given once the job goes on.
    Set("state", "PENDING");
    EXPECT_EQ(runner->Repeat("STOP").reply.RunnerState, 2);
    EXPECT_EQ(runner->Send("PRTY", 3).text, "");
    EXPECT_EQ(runner->Repeat("STRT").reply.RunnerState, 1);
    // Each order once, though STOP was asked again while Slurm lagged.
    EXPECT_THAT(Orders(), ElementsAre(kSuspend, "scontrol\tresume\t4711", "scontrol\thold\t4711",
                                      "scontrol\trelease\t4711", "scontrol\tupdate\tJobId=4711\tNice=19"));

    // Refused (not an operator): answered at once, the job runs on, the END text tells why.
    Set("state", "RUNNING");
    Set("refuse-suspend", "scontrol: error: Access/permission denied\n");
    for (int attempt = 0; attempt < 2; ++attempt) {
        const Answer refused = runner->Send("STOP");
        EXPECT_EQ(refused.reply.WaitStatus, 0);
        EXPECT_EQ(refused.reply.RunnerState, 1);
    }
    EXPECT_EQ(CallsOf("scontrol\tsuspend").size(), 3u);  // asked again the next time
    runner->Send("KILL");
    EXPECT_EQ(runner->Send("END ").text, "Slurm did not suspend job 4711: Access/permission denied");
}

TEST_F(SlurmStepTest, KillSignalsTheWholeJobThenCancelsIt) {
    const auto runner = Runner();
    runner->Start(Start(), "sleep 100");
    EXPECT_EQ(runner->Send("KILL").reply.RunnerState, 4);
    EXPECT_THAT(CallsOf("scancel"), ElementsAre("scancel\t--signal=KILL\t4711", kCancel));
    EXPECT_EQ(runner->Send("END ").reply.StepRc, 98);
}

// A runner that goes without "END " leaves no job behind: its guard cancels it when the
// runner itself is killed, and the runner does when the server goes.
TEST_F(SlurmStepTest, RunnerThatGoesLeavesAScancelBehind) {
    const std::pair<const char*, void (*)(RunletDriver&)> ends[] = {
        {"runner killed", [](RunletDriver& d) { ::kill(d.Pid(), SIGKILL); }},
        {"input closed", [](RunletDriver& d) { d.CloseInput(); }},
    };
    for (const auto& [what, end] : ends) {
        SCOPED_TRACE(what);
        std::filesystem::remove(dir.Path() + "slurm.log");
        Set("state", "RUNNING");
        const auto runner = Runner();
        runner->Start(Start(), "sleep 100");
        runner->Send("STAT");
        end(*runner);
        EXPECT_TRUE(WaitUntil([&] { return !CallsOf("scancel").empty(); }, 5'000)) << what;
        EXPECT_THAT(CallsOf("scancel"), ElementsAre(kCancel));
    }
}

// No job: the texts that the server reads, with 98 at "END ".
TEST_F(SlurmStepTest, StepThatSlurmDoesNotTakeEndsWith98AndWhy) {
    struct Case {
        const char* what;
        const char* refusal;  // sbatch's error, "" for none
        std::vector<std::string> options;
        std::string path;
        const char* text;
    };
    const Case cases[] = {
        {"no sbatch", "", {}, "/nonexistent", "Slurm can't be used: sbatch was not found on PATH."},
        {"no controller",
         "sbatch: error: Batch job submission failed: Unable to contact slurm controller (connect failure)\n",
         {}, "",
         "Slurm can't be used: sbatch can't reach the controller: Batch job submission failed: Unable to "
         "contact slurm controller (connect failure)"},
        {"no configuration",
         "sbatch: error: resolve_ctls_from_dns_srv: res_nsearch error: Unknown host\n"
         "sbatch: fatal: Could not establish a configuration source\n",
         {}, "", "Slurm can't be used: sbatch can't reach the controller: Could not establish a configuration source"},
        {"bad partition",
         "sbatch: error: invalid partition specified: nosuch\n"
         "sbatch: error: Batch job submission failed: Invalid partition name specified\n",
         {"--partition=nosuch"}, "",
         "The step could not be started. Batch job submission failed: Invalid partition name specified"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Set("refuse-sbatch", c.refusal);
        if (!*c.refusal) Unset("refuse-sbatch");
        const auto runner = c.path.empty() ? Runner(c.options) : Runner(c.options, c.path);
        EXPECT_EQ(runner->Start(Start(), "touch " + dir.Path() + "ran").AckStage, "FAILED  ");
        const Answer stat = runner->Send("STAT");
        EXPECT_EQ(stat.reply.RunnerState, 4);
        EXPECT_EQ(stat.reply.CountersValid, 0);
        EXPECT_EQ(stat.text, c.text);
        const Answer end = runner->Send("END ");
        EXPECT_EQ(end.reply.StepRc, 98);
        EXPECT_EQ(end.text, c.text);
    }
    EXPECT_THAT(CallsOf("scancel"), ::testing::IsEmpty());
    EXPECT_THAT(CallsOf("scontrol"), ::testing::IsEmpty());
}

TEST_F(SlurmStepTest, BadOptionFailsTheStartAndEndNamesIt) {
    const auto runner = Runner({"--poll-seconds=never"});
    EXPECT_EQ(runner->Start(Start(), "true").AckStage, "FAILED  ");
    const Answer end = runner->Send("END ");
    EXPECT_EQ(end.reply.StepRc, 98);
    EXPECT_EQ(end.text, "The runner's option --poll-seconds has a bad value \"never\": it is no number from 1 to 3600.");
}

TEST_F(SlurmStepTest, PriorityGoesToSlurmAndDiagWritesTheJobAndItsLastReading) {
    Set("sstat", "00:01.000|100K|0|0\n");
    const auto runner = Runner();
    runner->Start(Start(), "true");
    WaitUntil([&] { return runner->Send("STAT").reply.CountersValid == 1; }, 5'000, 100);
    EXPECT_EQ(runner->Send("PRTY", 3).text, "");
    Set("refuse-update", "scontrol: error: Invalid nice value\n");
    EXPECT_EQ(runner->Send("PRTY", 22).text,
              "CPU priority Normal 2 (nice 0) refused by Slurm: Invalid nice value");
    EXPECT_THAT(CallsOf("scontrol\tupdate"),
                ElementsAre("scontrol\tupdate\tJobId=4711\tNice=19", "scontrol\tupdate\tJobId=4711\tNice=0"));

    EXPECT_EQ(runner->Send("DIAG", 1).text, "");
    const std::string diag = ReadFileText(dir.Path() + "Diag1.txt");
    EXPECT_THAT(diag, HasSubstr("Diagnostic of step 1 of task 000012 Runner test\r\n"));
    EXPECT_THAT(diag, HasSubstr("scontrol show job 4711:\r\nJobId=4711 "));
    EXPECT_THAT(diag, HasSubstr("00:01.000|100K|0|0\r\n"));
    runner->Send("KILL");
    runner->Send("END ");
}

}  // namespace
}  // namespace vq::test
