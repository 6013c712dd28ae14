#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <tuple>

#include "platform/Error.h"
#include "runner/RunnerLink.h"
#include "tests/support/Process.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

// True when `pid` is no child of this process any more: it has ended and been reaped.
bool Reaped(pid_t pid) { return ::waitpid(pid, nullptr, WNOHANG) == -1 && errno == ECHILD; }

// The pipes on standard input and output and nothing on error; descriptors that this setup
// would overwrite are refused.
TEST(RunnerLaunchPlan, PutsThePipesOnStandardInputAndOutputAndNothingOnError) {
    StartRecord start;
    start.UserName = "alice   ";
    start.TaskName = "Nightly ";
    start.TaskId = 42;
    start.StepNumber = 3;
    const RunnerLaunchPlan plan = MakeRunnerLaunchPlan("/opt/vq/runlet", 7, 9, start, {});
    EXPECT_EQ(plan.program, "/opt/vq/runlet");
    EXPECT_EQ(plan.argv, std::vector<std::string>{"/opt/vq/runlet"});  // a step run here
    const std::vector<std::string> cluster = {"--backend=slurm", "--sbatch-args=--qos='a b'"};
    EXPECT_EQ(MakeRunnerLaunchPlan("/opt/vq/runlet", 7, 9, start, cluster).argv,
              (std::vector<std::string>{"/opt/vq/runlet", "--backend=slurm",
                                        "--sbatch-args=--qos='a b'"}));
    const ChildFdAction actions[] = {{ChildFdAction::Dup2, 7, STDIN_FILENO},
                                     {ChildFdAction::Dup2, 9, STDOUT_FILENO},
                                     {ChildFdAction::OpenNull, -1, STDERR_FILENO}};
    ASSERT_EQ(plan.fdActions.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        const ChildFdAction& a = plan.fdActions[i];
        EXPECT_EQ(std::tie(a.kind, a.from, a.to),
                  std::tie(actions[i].kind, actions[i].from, actions[i].to));
    }
    EXPECT_EQ(plan.title, "alice/Nightly.42.3");
    EXPECT_THROW(MakeRunnerLaunchPlan("r", 0, 9, start, {}), std::invalid_argument);
    EXPECT_THROW(MakeRunnerLaunchPlan("r", 7, 1, start, {}), std::invalid_argument);
    EXPECT_THROW(MakeRunnerLaunchPlan("r", 7, 7, start, {}), std::invalid_argument);
}

TEST(RunnerLaunchPlan, LiftsAPipeEndThatLandedOnStandardInput) {
    // A server started with its standard input closed gets pipe ends at 0.
    UniqueFd savedInput(::dup(STDIN_FILENO));
    ::close(STDIN_FILENO);
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_CLOEXEC), 0);
    UniqueFd writeEnd(fds[1]);
    ASSERT_EQ(fds[0], STDIN_FILENO);
    UniqueFd lifted = LiftAboveStdio(UniqueFd(fds[0]));
    const bool inputClosedAgain = ::fcntl(STDIN_FILENO, F_GETFD) == -1;
    if (savedInput.Valid()) ::dup2(savedInput.Get(), STDIN_FILENO);
    EXPECT_GT(lifted.Get(), 2);
    EXPECT_TRUE(::fcntl(lifted.Get(), F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(inputClosedAgain);
    // A descriptor above 2 stays as it is.
    const int high = writeEnd.Get();
    EXPECT_EQ(LiftAboveStdio(std::move(writeEnd)).Get(), high);
}

std::vector<size_t> SlicesOf(const std::string& text, int32_t length) {
    std::vector<size_t> slices;
    WriteInSlices(text, length, [&](const char*, size_t size) {
        slices.push_back(size);
        return static_cast<int32_t>(size);
    });
    return slices;
}

TEST(RunnerText, GoesOutInSlicesOfAtMost4096AndStopsAtTheFirstFailingWrite) {
    EXPECT_EQ(SlicesOf(std::string(4096, 'a'), 4096), std::vector<size_t>{4096});
    EXPECT_EQ(SlicesOf(std::string(4097, 'a'), 4097), (std::vector<size_t>{4096, 1}));
    EXPECT_TRUE(SlicesOf("", 0).empty());
    EXPECT_EQ(SlicesOf(std::string(10000, 'a'), 5000), (std::vector<size_t>{4096, 904}));
    int calls = 0;
    EXPECT_EQ(WriteInSlices(std::string(9000, 'a'), 9000,
                            [&](const char*, size_t) { return ++calls, -EPIPE; }),
              -EPIPE);
    EXPECT_EQ(calls, 1);
}

// A silent runner's timeout and a cut reply are the lost runner's cases below.
TEST(RunnerText, CrossesAPipeWholeAndABrokenPipeFailsTheWriteOnly) {
    int fds[2];
    ASSERT_EQ(::pipe2(fds, O_CLOEXEC), 0);
    UniqueFd readEnd(fds[0]), writeEnd(fds[1]);
    std::string text(10000, 'x');
    text[4096] = 'y';
    EXPECT_EQ(WriteRunnerText(writeEnd.Get(), 10000, text), 10000);
    std::string received;
    EXPECT_EQ(ReadRunnerText(readEnd.Get(), 10000, received), 10000);
    EXPECT_EQ(received, text);
    // The reader goes: the write fails, and the process lives on.
    readEnd.Reset();
    EXPECT_EQ(WriteRunnerText(writeEnd.Get(), 3, "abc"), -EPIPE);
}

// A slot taken twice is the sequencing's "Task Index Already Taken".
TEST(Slots, AreFreedOnceAndOnlyWithinTheirCount) {
    TestServer t;
    EXPECT_TRUE(TakeSlot(*t, 1));
    FreeSlot(*t, 1);
    FreeSlot(*t, 1);
    EXPECT_EQ(t->RunningTaskCount, 0);
    EXPECT_THROW(TakeSlot(*t, 2), VqError);  // one slot only
    EXPECT_THROW(FreeSlot(*t, 31), VqError);
}

class RunnerLinkTest : public testing::Test {
  protected:
    // The current values of a start in slot 1 with the given texts.
    void Prepare(const std::string& runner, const std::string& environ,
                 const std::string& command = "true", const std::string& fileRc = "") {
        t->RunnerPath = runner;
        RunnerLink& link = t->link;
        link.start = StartRecord{};
        link.start.TaskId = 7;
        link.start.StepNumber = 1;
        link.start.WorkDir = t.dir.Path();
        link.commandText = command;
        link.fileRcText = fileRc;
        link.environText = environ;
        link.currentSlot = 1;
    }
    RunnerSlotEntry& Slot() { return t->link.slots[1]; }
    void ExpectStandInReply() {
        const ReplyRecord& reply = t->link.reply;
        EXPECT_EQ(reply.RunnerState, 5);
        EXPECT_EQ(reply.StepRc, 98);
        EXPECT_EQ(reply.CountersValid, 0);
        EXPECT_EQ(reply.ReplyTextLength, static_cast<int32_t>(kRunnerEndedText.size()));
        EXPECT_EQ(t->link.ReplyText, "Step runner ended unexpectedly.");
    }

    TestServer t;
};

TEST_F(RunnerLinkTest, SendsTheStartRecordAndTheBlocksWithoutDelimitersSkippingAnEmptyOne) {
    const std::string dump = t.dir.Path() + "start.bin";
    const std::string environ = "FAKE=die\r\nFAKE_DUMP=" + dump;
    Prepare(BinPath("vqfakerunner"), environ, "", "rc.txt");
    OpenRunner(*t);
    EXPECT_EQ(t->link.start.CommandLength, 0);
    EXPECT_EQ(t->link.start.FileRcLength, 6);
    EXPECT_EQ(t->link.start.EnvironLength, static_cast<int32_t>(environ.size()));
    SendRunnerCommand(*t, 1, "END ");  // the fake ends without an answer
    const std::string received = ReadFileText(dump);
    EXPECT_EQ(received, t->link.start.Encode() + "rc.txt" + environ);
}

TEST_F(RunnerLinkTest, PollsTheRunnerUntilItEndsAndReapsIt) {
    Prepare(BinPath("vqfakerunner"), "FAKE_POLLS=1\nFAKE_RC=7\nFAKE_TEXT=all done");
    OpenRunner(*t);
    const pid_t pid = Slot().pid;
    ASSERT_GT(pid, 0);
    t->link.ReplyText = "before";
    SendRunnerCommand(*t, 1, "DIAG", 1);  // its argument stays for the commands that follow
    SendRunnerCommand(*t, 1, "STAT");
    EXPECT_EQ(t->link.reply.RunnerState, 1);
    EXPECT_EQ(t->link.command.Argument, 1);
    // A reply without text leaves the last text in place.
    EXPECT_EQ(t->link.ReplyText, "before");
    SendRunnerCommand(*t, 1, "STAT");
    EXPECT_EQ(t->link.reply.RunnerState, 4);
    SendRunnerCommand(*t, 1, "END ");
    EXPECT_EQ(t->link.reply.RunnerState, 5);
    EXPECT_EQ(t->link.reply.StepRc, 7);
    EXPECT_EQ(t->link.ReplyText, "all done");
    // After the reply to "END " the runner is gone and the slot closed.
    EXPECT_EQ(Slot().pid, -1);
    EXPECT_FALSE(Slot().commandPipe.Valid());
    EXPECT_FALSE(Slot().replyPipe.Valid());
    EXPECT_TRUE(Reaped(pid));
}

// A runner that can't be launched, ends before its acknowledgement, cuts its reply short, ends
// without an answer or falls silent is ended and reaped, and its step ends at the next poll
// with the stand-in reply, which keeps the counters that the runner had reported.
TEST_F(RunnerLinkTest, ALostRunnerEndsItsStepAtTheNextPoll) {
    const struct {
        bool launches;
        const char* environ;
        int polls;  // "STAT" answered before the loss
    } cases[] = {{false, "", 0},          {true, "FAKE=noack", 0},
                 {true, "FAKE=cut", 0},       {true, "FAKE=silent", 0},
                 {true, "FAKE=die\nFAKE_POLLS=1", 1}};
    t->link.replyTimeoutMs = 200;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.environ);
        Prepare(c.launches ? BinPath("vqfakerunner") : t.dir.Path() + "no-such-runner", c.environ);
        OpenRunner(*t);
        const pid_t pid = Slot().pid;
        for (int i = 0; i < c.polls; ++i) SendRunnerCommand(*t, 1, "STAT");
        const int64_t cpu = c.polls > 0 ? t->link.reply.CpuTimeA : 0;
        SendRunnerCommand(*t, 1, "STAT");
        ExpectStandInReply();
        EXPECT_EQ(t->link.reply.CpuTimeA, cpu);
        EXPECT_TRUE(Slot().lost);
        EXPECT_EQ(Slot().pid, -1);
        EXPECT_TRUE(pid <= 0 || Reaped(pid));
        SendRunnerCommand(*t, 1, "END ");
        ExpectStandInReply();
    }
}

// "STOP" and "STRT" are sent again every 200 ms while the answer is "not yet" (text length -1
// and wait status 258; the hold test counts the repeats), not on another status, and no more to
// a lost runner.
TEST_F(RunnerLinkTest, StopAndStartAreRepeatedUntilTheStepHasChanged) {
    const struct {
        bool lost;
        const char *environ, *command;
        int64_t slept;
        int32_t textLength;
    } cases[] = {{false, "FAKE_POLLS=5\nFAKE_STOPWAIT=3\nFAKE_STOPSTATUS=0", "STRT", 200, -1},
                 {true, "", "STOP", 200, static_cast<int32_t>(kRunnerEndedText.size())}};
    for (const auto& c : cases) {
        Prepare(c.lost ? t.dir.Path() + "no-such-runner" : BinPath("vqfakerunner"), c.environ);
        OpenRunner(*t);
        t.clock.slept = 0;
        SendRunnerCommandRepeating(*t, 1, c.command);
        EXPECT_EQ(t.clock.slept, c.slept) << c.environ;
        EXPECT_EQ(t->link.reply.ReplyTextLength, c.textLength) << c.environ;
        SendRunnerCommand(*t, 1, "END ");
    }
}

// The runner ends when its input closes, as runlet does; one that doesn't is killed after a
// grace, as the lost silent runner above is.
TEST(RunnerLink, AServerThatGoesLeavesNoRunnerBehind) {
    pid_t pid = -1;
    {
        TestServer other;
        other->RunnerPath = BinPath("vqfakerunner");
        other->link.currentSlot = 1;
        OpenRunner(*other);
        pid = other->link.slots[1].pid;
        ASSERT_GT(pid, 0);
    }
    EXPECT_TRUE(Reaped(pid));
}

}  // namespace
}  // namespace vq::test
