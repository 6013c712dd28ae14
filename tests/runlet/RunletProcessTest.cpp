// The runlet program as the server sees it: started with pipes, given a start record and its
// blocks, asked "STAT", "STOP", "STRT", "PRTY", "DIAG", "KILL" and "END ".
#include <pwd.h>
#include <signal.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "RunletDriver.h"
#include "runlet/ProcReader.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

using ::testing::HasSubstr;

constexpr int64_t kTicksPerMs = 10'000;  // 100-ns ticks

class RunletTest : public ::testing::Test {
protected:
    std::string Folder() const { return dir.Path(); }
    StartRecord Start() const { return MakeStart(Folder()); }
    static bool NoneAlive(const std::vector<pid_t>& pids) {
        return WaitUntil([&] { return std::none_of(pids.begin(), pids.end(), ProcessAlive); }, 2000);
    }

    TempDir dir;
    RunletDriver runlet;
};

TEST_F(RunletTest, ReturnCodeRule) {
    struct Case {
        const char* command;
        const char* fileRc;
        int32_t rc;
        const char* note;  // a part of the reply's text, "" for none
    };
    const Case cases[] = {
        {"exit 0", "", 1, ""},
        {"exit 97", "", 98, ""},
        {"exit 255", "", 98, ""},
        {"kill -TERM $$", "", 98, ""},
        {"echo 0 > rc.txt; exit 5", "rc.txt\r\n", 0, ""},
        {"exit 0", "absent.rc", 1, "was not found"},
        // Read with a bound: what isn't a regular file, or is too long, holds no number.
        {"mkfifo fifo; exit 2", "fifo", 3, "is not a regular file"},
        {"exit 2", "/dev/zero", 3, "is not a regular file"},
        {"truncate -s 20G huge; exit 2", "huge", 3, "holds no number from 0 to 99"},
        {"(echo 7; head -c 5000 /dev/zero) > long; exit 2", "long", 3, "holds no number from 0 to 99"},
    };
    for (const Case& c : cases) {
        RunletDriver driver;
        EXPECT_EQ(driver.Start(Start(), c.command, c.fileRc).AckStage, "STARTED ") << c.command;
        const Answer end = driver.RunToEnd();
        EXPECT_EQ(end.reply.StepRc, c.rc) << c.command;
        EXPECT_TRUE(*c.note ? end.text.find(c.note) != std::string::npos : end.text.empty())
            << c.command << ": " << end.text;
    }
}

// CPU burned by the step itself, then a 200 MB buffer filled by one child and 10,000 reads (and
// writes) by another: the counters grow while it runs, children count once they are reaped, and
// the peak stays.
TEST_F(RunletTest, CountersOfTheWholeStepGrowAndCountReapedChildren) {
    runlet.Start(Start(), BinPath("vqstephelper") + " burn 300" + "; dd if=/dev/zero of=/dev/null bs=200M count=1 2>/dev/null; "
                          "dd if=/dev/zero of=/dev/null bs=1 count=10000 2>/dev/null; true");
    int64_t cpu = 0, cpuWhileRunning = 0;
    for (ReplyRecord stat; stat.RunnerState < 4; std::this_thread::sleep_for(std::chrono::milliseconds(50))) {
        stat = runlet.Send("STAT").reply;
        ASSERT_EQ(stat.CountersValid, 1);
        EXPECT_GE(stat.CpuTimeA + stat.CpuTimeB, cpu);
        cpu = stat.CpuTimeA + stat.CpuTimeB;
        if (stat.RunnerState < 4) cpuWhileRunning = cpu;
    }
    EXPECT_GT(cpuWhileRunning, 0);
    const ReplyRecord end = runlet.Send("END ").reply;
    EXPECT_EQ(end.StepRc, 1);
    EXPECT_GE(end.CpuTimeA + end.CpuTimeB, std::max<int64_t>(cpu, 300 * kTicksPerMs));
    EXPECT_GE(end.PeakMemory, 200 * 1024);
    EXPECT_GE(end.IoCount, 10'000LL * 10'000);
}

// The step's folder, environment, task variables (which win over Environ) and output file; it
// gets none of the runner's pipes: standard input is empty and no descriptor above 2 is open.
TEST_F(RunletTest, StepRunsInItsFolderWithItsEnvironmentAndAppendsBothStreams) {
    { std::ofstream(Folder() + "Step1.txt") << "before\n"; }
    std::filesystem::create_directory(Folder() + "work");
    StartRecord start = Start();
    start.WorkDir = "%vqs%/work";
    start.TaskRc = 7;
    start.StepNumber = 2;
    runlet.Start(start,
                 "pwd; echo \"$GREETING|$SECOND|$ORVANTIS_TASK_ID|$ORVANTIS_TASK_NAME|$ORVANTIS_STEP|"
                 "$ORVANTIS_TASK_FOLDER|$ORVANTIS_TASK_RC\"; echo err >&2; cat; "
                 "ls /proc/self/fd | sort -n | tr '\\n' ' '",
                 "", "GREETING=hello world\r\nNOT A VARIABLE\r\nSECOND=a=b\nORVANTIS_STEP=9\n");
    const Answer end = runlet.RunToEnd();
    const std::string folder = Folder().substr(0, Folder().size() - 1);
    // In the listing, 3 is the folder that ls itself opens.
    EXPECT_EQ(ReadFileText(Folder() + "Step1.txt"),
              "before\n" + folder + "/work\nhello world|a=b|000012|Runner test|2|" + folder + "|7\nerr\n0 1 2 3 ");
    EXPECT_NE(end.text.find("Environ line 2"), std::string::npos) << end.text;
}

// A start refused (another user) or failed (no work folder, a task folder that may not be
// made) runs nothing; "END " tells why.
TEST_F(RunletTest, RefusedOrFailedStartRunsNothingAndEndTellsWhy) {
    struct Case {
        const char* user;
        const char* workDir;
        const char* folder;  // of the output file, below the test's folder
        const char* ack;
        const char* why;
    };
    const Case cases[] = {
        {"somebody", "%VQS%", "", "REFUSED ", "\"somebody\""},
        {"$LOCALUSER$", "no-such-folder", "", "FAILED  ", "no-such-folder"},
        {"$LOCALUSER$", "%VQS%", "a/b/c/d/e/", "FAILED  ", "more than 4 folders of it are missing"},
        {"$LOCALUSER$", "%VQS%", "x/../y/", "FAILED  ", "no plain absolute path"},
    };
    for (const Case& c : cases) {
        RunletDriver driver;
        StartRecord start = MakeStart(Folder() + c.folder);
        start.UserName = c.user;
        start.WorkDir = c.workDir;
        EXPECT_EQ(driver.Start(start, "touch " + Folder() + "ran").AckStage, c.ack);
        const Answer stat = driver.Send("STAT");
        EXPECT_EQ(stat.reply.RunnerState, 4);
        EXPECT_EQ(stat.reply.CountersValid, 0);
        const Answer end = driver.Send("END ");
        EXPECT_EQ(end.reply.StepRc, 98);
        EXPECT_NE(end.text.find(c.why), std::string::npos) << end.text;
        EXPECT_FALSE(std::filesystem::exists(Folder() + "ran"));
        EXPECT_FALSE(*c.folder && std::filesystem::exists(Folder() + std::string(c.folder, 1))) << c.folder;
    }
}

// A task folder deleted while its task waited is made again (0700), with the folders of its
// task, user and domain; the server's user may be named by its login. (The task folder alone is
// the step sequencing's test.)
TEST_F(RunletTest, MissingTaskFolderIsMadeAgain) {
    StartRecord start = MakeStart(Folder() + "d/u/t/000012/");
    start.UserName = ::getpwuid(::geteuid())->pw_name;
    EXPECT_EQ(runlet.Start(start, "echo ran").AckStage, "STARTED ");
    EXPECT_EQ(runlet.RunToEnd().reply.StepRc, 1);
    EXPECT_EQ(ReadFileText(Folder() + "d/u/t/000012/Step1.txt"), "ran\n");
    EXPECT_EQ(std::filesystem::status(Folder() + "d").permissions(), std::filesystem::perms::owner_all);
}

TEST_F(RunletTest, OversizedBlockIsSkippedAndTheConversationStaysInStep) {
    StartRecord start = Start();
    const std::string huge(17 * 1024 * 1024, 'x');
    start.CommandLength = static_cast<int32_t>(huge.size());
    start.EnvironLength = 3;
    std::thread writer([&] { runlet.WriteBytes(start.Encode() + huge + "A=1"); });
    const StartAck ack = StartAck::Decode(runlet.ReadBytes(StartAck::kSize));
    writer.join();
    EXPECT_EQ(ack.AckStage, "FAILED  ");
    const Answer end = runlet.Send("END ");
    EXPECT_EQ(end.reply.StepRc, 98);
    EXPECT_NE(end.text.find("Command block"), std::string::npos) << end.text;
}

TEST_F(RunletTest, StopFreezesTheWholeGroupStrtLetsItGoOnAndKillEndsItHeld) {
    runlet.Start(Start(), "sleep 30 & echo $! >> pids; sleep 30 & echo $! >> pids; echo $$ >> pids; wait");
    const std::vector<pid_t> pids = WaitForPids(Folder() + "pids", 3);
    auto allStopped = [&](bool stopped) {
        return std::all_of(pids.begin(), pids.end(),
                            [&](pid_t pid) { return (ProcFiles().ReadStat(pid)->state == 'T') == stopped; });
    };
    EXPECT_EQ(runlet.Repeat("STOP").reply.RunnerState, 2);
    EXPECT_EQ(runlet.Send("STAT").reply.RunnerState, 2);  // a poll doesn't let it go on
    EXPECT_TRUE(allStopped(true));
    EXPECT_EQ(runlet.Repeat("STRT").reply.RunnerState, 1);
    EXPECT_TRUE(allStopped(false));

    runlet.Repeat("STOP");
    runlet.Send("KILL");
    EXPECT_EQ(runlet.Send("END ").reply.StepRc, 98);
    EXPECT_TRUE(NoneAlive(pids));
    EXPECT_EQ(runlet.WaitExit(), 0);
}

TEST_F(RunletTest, InputClosedWithinTheStartRecordEndsTheRunnerWithoutAStep) {
    StartRecord start = Start();
    const std::string command = "touch ran";
    start.CommandLength = static_cast<int32_t>(command.size());
    runlet.WriteBytes(start.Encode() + command.substr(0, 3));
    runlet.CloseInput();
    EXPECT_EQ(runlet.WaitExit(), 1);
    EXPECT_FALSE(std::filesystem::exists(Folder() + "ran"));
}

TEST_F(RunletTest, UnknownCommandIsAnsweredAndStopOfAnEndedStepAtOnce) {
    runlet.Start(Start(), "exit 2");
    EXPECT_EQ(runlet.Send("WHAT").text, "Unknown command \"WHAT\".");
    runlet.WaitForEnd();
    const Answer stop = runlet.Send("STOP");
    EXPECT_EQ(stop.reply.ReplyTextLength, 0);
    EXPECT_EQ(stop.reply.WaitStatus, 0);
    EXPECT_EQ(runlet.Send("END ").reply.StepRc, 3);
}

// Whatever the step started ends with it: a child left in the group, one in a session of
// its own, an orphan of a double fork; at the step's end, on "KILL", when the server goes
// away in any way, and when the runner itself is killed.
TEST_F(RunletTest, EveryProcessOfTheStepEndsWithItWhereverItWent) {
    struct Case {
        const char* what;
        const char* rest;  // what the step does after it has left its processes behind
        void (*end)(RunletDriver&);
    };
    const Case cases[] = {
        {"step ended", "",
         [](RunletDriver& d) {
             EXPECT_THAT(d.RunToEnd().text, HasSubstr("3 processes of the step still ran after "
                                                      "its command had ended"));
         }},
        {"KILL", "; sleep 30", [](RunletDriver& d) { d.Send("KILL"), d.Send("END "); }},
        {"input closed", "; sleep 30", [](RunletDriver& d) { d.CloseInput(); }},
        {"termination signal", "; sleep 30", [](RunletDriver& d) { ::kill(d.Pid(), SIGTERM); }},
        {"reply pipe closed", "; sleep 30",
         [](RunletDriver& d) { d.CloseReplies(), d.WriteBytes(CommandRecord{"STAT", 0}.Encode()); }},
        {"runner killed", "; sleep 30", [](RunletDriver& d) { d.Send("STAT"), ::kill(d.Pid(), SIGKILL); }},
    };
    for (const Case& c : cases) {
        RunletDriver driver;
        const std::string file = Folder() + "pids" + std::to_string(&c - cases);
        // A child in the group, one in a session of its own, and the orphan of a subshell there.
        const std::string left = "sleep 1000 & echo $! >> " + file + "; setsid sleep 1000 & echo $! >> " +
                                 file + "; (setsid sleep 1000 & echo $! >> " + file + ")";
        driver.Start(Start(), left + c.rest);
        const std::vector<pid_t> pids = WaitForPids(file, 3);
        c.end(driver);
        EXPECT_NE(driver.WaitExit(), -1) << c.what;
        EXPECT_TRUE(NoneAlive(pids)) << c.what;
    }
}

TEST_F(RunletTest, PrioritySetsTheNiceValueOfEveryProcessAndDiagWritesASnapshot) {
    StartRecord start = Start();
    start.Priority = 12;  // BelowNormal 2
    runlet.Start(start, "sleep 30 & echo $! >> pids; echo $$ >> pids; wait");
    const std::vector<pid_t> pids = WaitForPids(Folder() + "pids", 2);
    auto allNice = [&](int nice) {
        return std::all_of(pids.begin(), pids.end(), [&](pid_t pid) { return ProcFiles().ReadStat(pid)->nice == nice; });
    };
    EXPECT_TRUE(allNice(10));
    EXPECT_EQ(runlet.Send("PRTY", 3).text, "");  // Low 3
    EXPECT_TRUE(allNice(19));
    EXPECT_EQ(runlet.Send("PRTY", 72).text, "Unknown CPU priority code 72.");
    EXPECT_TRUE(allNice(19));

    EXPECT_EQ(runlet.Send("DIAG", 1).text, "");
    const std::string text = ReadFileText(Folder() + "Diag1.txt");
    EXPECT_THAT(text, HasSubstr("Diagnostic of step 1 of task 000012 Runner test"));
    for (pid_t pid : pids) EXPECT_THAT(text, HasSubstr(" " + std::to_string(pid) + " "));
    runlet.Send("KILL");
    runlet.Send("END ");
}

TEST_F(RunletTest, PriorityThatTheSystemRefusesIsReportedInTheReply) {
    // A user without the right to raise priorities: this one, or nobody when the test is root.
    const uid_t user = ::geteuid() == 0 ? 65534 : static_cast<uid_t>(-1);
    std::filesystem::permissions(Folder(), std::filesystem::perms::all);
    RunletDriver plain(user);
    ASSERT_EQ(plain.Start(Start(), "echo $$ >> pids; sleep 30").AckStage, "STARTED ");
    const pid_t pid = WaitForPids(Folder() + "pids", 1)[0];
    const Answer high = plain.Send("PRTY", 40);
    EXPECT_EQ(high.text, "CPU priority High 0 (nice -10) refused by the system: Permission denied");
    EXPECT_EQ(ProcFiles().ReadStat(pid)->nice, ProcFiles().ReadStat(::getpid())->nice);  // as inherited
    EXPECT_EQ(plain.Send("PRTY", 12).text, "");  // lowering is always allowed
    EXPECT_EQ(ProcFiles().ReadStat(pid)->nice, 10);
    plain.Send("KILL");
    EXPECT_EQ(plain.Send("END ").reply.StepRc, 98);
}

}  // namespace
}  // namespace vq::test
