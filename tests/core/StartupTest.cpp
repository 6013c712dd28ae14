// Start-up against a temporary settings store and queue root, and the closing path.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Startup.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "storage/Settings.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::ReadFileText;
using test::TempDir;
using test::TestServer;

struct FixedGuard final : InstanceGuard {
    explicit FixedGuard(bool another) : another(another) {}
    bool AnotherServerRuns() override { return ++asked, another; }
    bool another;
    int asked = 0;
};

// A server with an empty settings store and no queue root yet.
class StartupTest : public ::testing::Test {
protected:
    StartupTest() {
        server.ProgramFolder = "/opt/orvantis/bin/";
        request.queueRoot = dir.Path() + "queue";
    }
    std::string Stored(Hive hive, const std::string& key, const std::string& name) {
        auto value = registry.Read(hive, key, name);
        return value ? value->AsText() : "<missing>";
    }
    std::string Autostart() { return dir.Path() + "cfg/autostart/orvantis-server.desktop"; }

    TempDir dir;
    test::FakeClock clock;
    test::ScriptedOperator op;
    test::CountingScreen screen;
    Registry registry{dir.Path() + "cfg/registry.db", dir.Path() + "cfg/autostart"};
    Server server{clock, op, registry, screen};
    StartRequest request;
    FixedGuard noOther{false};
};

// A registration call ends before the guard is asked, a second server before the write test.
TEST_F(StartupTest, ARegistrationCallOrASecondServerEndsBeforeAnythingIsTouched) {
    FixedGuard other(true);
    request.commandLine = "/regserver /RegisterCOM";
    EXPECT_EQ(ProcessStart(server, request, other), StartResult::EndQuietly);
    EXPECT_EQ(other.asked, 0);
    request.commandLine = "";
    EXPECT_EQ(ProcessStart(server, request, other), StartResult::EndQuietly);
    EXPECT_EQ(other.asked, 1);
    EXPECT_FALSE(PathExists(registry.DatabasePath()));
    EXPECT_TRUE(op.messages.empty());
}

TEST_F(StartupTest, LogonWithoutStartServEndsAfterBringingLogonSettingsInLine) {
    MakeFolders(dir.Path() + "cfg/autostart");
    AppendToFile(Autostart(), "[Desktop Entry]\nExec=old LOGON\n");
    request.commandLine = "logon";
    EXPECT_EQ(ProcessStart(server, request, noOther), StartResult::EndQuietly);
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "AutoAdminLogon"), "0");
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "DefaultUserName"), "");
    EXPECT_FALSE(PathExists(Autostart()));
    EXPECT_FALSE(PathExists(request.queueRoot));
}

TEST_F(StartupTest, LogonWithStartServStartsAndWritesTheAutostartEntry) {
    SaveRegSetting(registry, "ServerSettings", "StartServ", "1");
    SaveRegSetting(registry, "ServerSettings", "LogonEn", "1");
    request.commandLine = "LOGON";
    EXPECT_EQ(ProcessStart(server, request, noOther), StartResult::Serve);
    EXPECT_TRUE(PathExists(Autostart()));
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "AutoAdminLogon"), "1");
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "DefaultUserName"), "<missing>");
}

TEST_F(StartupTest, AnOrdinaryStartSettlesPathsFoldersAndTheQueue) {
    ASSERT_EQ(ProcessStart(server, request, noOther), StartResult::Serve);
    const std::string root = dir.Path() + "queue/";
    EXPECT_EQ(server.ServerPath, root);
    EXPECT_EQ(server.DataPath, root + "$Data/");
    EXPECT_EQ(server.InQueuePath, root + "$InQ/");
    struct stat st {};
    ASSERT_EQ(stat(root.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);  // a root the start makes is private
    EXPECT_EQ(server.RunnerPath, "/opt/orvantis/bin/runlet");
    EXPECT_EQ(server.OsKind, 6);
    EXPECT_EQ(screen.queueSwitches, std::vector<bool>{true});
    EXPECT_EQ(screen.treeLoads, 1);
    EXPECT_EQ(clock.slept, 0);  // the pauses are the splash's, and there is none
}

// An unknown system is said and served all the same; that a notice comes once is the
// settings' test.
TEST_F(StartupTest, StoredSettingsApplyAndAnUnusableOneIsLogged) {
    SaveRegSetting(registry, "ServerSettings", "StartQ", "0");
    SaveRegSetting(registry, "ServerSettings", "CLF", "-1");
    request.osMajor = 10;
    ASSERT_EQ(ProcessStart(server, request, noOther), StartResult::Serve);
    EXPECT_EQ(server.OsKind, 0);
    ASSERT_EQ(op.messages.size(), 1u);
    EXPECT_EQ(op.messages[0].text, "Not supported OS Platform 2 / Major 10 / Minor 0");
    EXPECT_EQ(screen.queueSwitches, std::vector<bool>{false});
    EXPECT_EQ(GetSettingNumber(registry, "ServerSettings", "CLF"), 10);
    EXPECT_NE(ReadFileText(server.DataPath + "SrvLog.txt")
                  .find("The setting CLF of ServerSettings holds \"-1\""),
              std::string::npos);
}

// Where the queue root comes from: the given one, else the stored one, else at a first start
// the proposal or, with a window, what the chooser stores; and how a start without one ends.
TEST_F(StartupTest, TheQueueRootIsTheGivenOneElseTheStoredOneElseTheProposalOrTheChoice) {
    const std::string d = dir.Path();
    MakeFolders(d + "stored");
    AppendToFile(d + "plainfile", "x");
    const std::optional<std::string> noWindow;
    struct Case {
        std::string given, stored;
        std::optional<std::string> chosen;  // what the chooser stores, "" for Cancel
        int asked;
        std::string served, failure;  // served: "" when the start ends; failure: its message
    };
    const Case cases[] = {
        {"", d + "gone", noWindow, 0, "",
         "\"" + d + "gone\" can't be used: No such file or directory."},
        {d + "plainfile", d + "stored/", noWindow, 0, "",
         "\"" + d + "plainfile/\" can't be used: Not a directory."},
        {d + "plainfile/q", "", noWindow, 0, "",
         "\"" + d + "plainfile/q/\" can't be used: Not a directory."},
        {"", d + "stored/", noWindow, 0, d + "stored/", ""},
        {d + "q1//", "", noWindow, 0, d + "q1/", ""},
        {d + "x/../q3/./", d + "stored/", noWindow, 0, d + "q3/", ""},
        {"", d + "gone/", "", 1, "", ""},
        {"", "", d + "chosen/", 1, d + "chosen/", ""},
        {"", "", d + "missing/", 1, "", ""},
        {"", d + "stored/", d + "chosen/", 0, d + "stored/", ""},
        {d + "given", "", d + "chosen/", 0, d + "given/", ""},
        {"", "", noWindow, 0, d + "home/$JQ/", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.given + " with " + c.stored + " stored, " + c.chosen.value_or("no window"));
        Server s(clock, op, registry, screen);
        SaveRegSetting(registry, "ServerSettings", "ServPath", c.stored);
        op.messages.clear();
        request.queueRoot = c.given;
        request.proposedRoot = d + "home/$JQ";
        int asked = 0;
        request.chooseQueueFolder = nullptr;
        if (c.chosen) {
            if (c.chosen != d + "missing/") MakeFolders(*c.chosen);
            request.chooseQueueFolder = [&] {
                ++asked;
                if (!c.chosen->empty())
                    SaveRegSetting(registry, "ServerSettings", "ServPath", *c.chosen);
            };
        }
        const bool serves = ProcessStart(s, request, noOther) == StartResult::Serve;
        EXPECT_EQ(asked, c.asked);
        ASSERT_EQ(serves, !c.served.empty());
        if (serves) {
            EXPECT_EQ(s.ServerPath, c.served);
            EXPECT_EQ(GetSettingText(registry, "ServerSettings", "ServPath"), c.served);
            EXPECT_TRUE(PathExists(c.served + "$Data/" + kCreationTimeFile));
            continue;
        }
        EXPECT_FALSE(PathExists(d + "home"));
        ASSERT_EQ(op.messages.size(), c.failure.empty() ? 0u : 1u);
        if (c.failure.empty()) continue;
        EXPECT_NE(op.messages[0].text.find(c.failure), std::string::npos) << op.messages[0].text;
        EXPECT_NE(op.messages[0].text.find("--queue-root DIR"), std::string::npos);
        EXPECT_EQ(GetSettingText(registry, "ServerSettings", "ServPath"), c.stored);
    }
}

// The splash follows the loading: each word is shown before its stage and left for 200 ms.
TEST_F(StartupTest, TheStatusWordsComeInTheirOrderEachWithItsPause) {
    std::vector<std::string> words;
    std::vector<int> treeLoadsSeen;
    request.showStatus = [&](const std::string& word) {
        words.push_back(word);
        treeLoadsSeen.push_back(screen.treeLoads);
    };
    ASSERT_EQ(ProcessStart(server, request, noOther), StartResult::Serve);
    EXPECT_EQ(words, (std::vector<std::string>{"Creating Objects...", "Loading Settings...",
                                               "Loading Database...", "Loading Tree...",
                                               "Loading Info..."}));
    EXPECT_EQ(treeLoadsSeen, (std::vector<int>{0, 0, 0, 0, 1}));
    EXPECT_EQ(clock.slept, 1000);
}

TEST(TasksFoundRunning, BecomeCompleteUnfinishedWithTheirEndSet) {
    TestServer ts;
    const auto running = ts.AddTask(1, "R", kRunning);
    const auto held = ts.AddTask(2, "H", kRunningHold);
    const auto waiting = ts.AddTask(3, "W", kWaiting);
    SetCell(ts->tables, kTaskTable, running, "JobIndex", "1");
    FinishTasksFoundRunning(*ts);
    EXPECT_EQ(GetCell(ts->tables, kTaskTable, running, "Status"), kCompleteUnfinished);
    EXPECT_EQ(GetCell(ts->tables, kTaskTable, held, "Status"), kCompleteUnfinished);
    EXPECT_EQ(GetCell(ts->tables, kTaskTable, running, "End"), "2026-11-22 12:00:00");
    EXPECT_EQ(GetCell(ts->tables, kTaskTable, running, "JobIndex"), "1");
    EXPECT_EQ(GetCell(ts->tables, kTaskTable, waiting, "Status"), kWaiting);
}

// At a shutdown nobody is asked for long: the box says yes after 3 seconds.
TEST(CloseServer, NothingRunningAsksNothingNoKeepsTheServerAndYesLogsTheCancelledTasks) {
    TestServer ts;
    ts.AddTask(1, "W", kWaiting);
    EXPECT_TRUE(CloseServer(*ts, false));
    EXPECT_TRUE(ts.op.questions.empty());
    EXPECT_EQ(ts.screen.widthSaves, 2);  // by the save of the queue, then by the close itself
    ts.AddTask(2, "R", kRunning);
    ts.op.answers = {false};
    EXPECT_FALSE(CloseServer(*ts, false));
    ASSERT_EQ(ts.op.questions.size(), 1u);
    EXPECT_EQ(ts.op.questions[0].title, "Orvantis Server - Tasks Still Running");
    EXPECT_EQ(ts.op.questions[0].text,
              "The following tasks are currently running:\n\n000002-R\n\n"
              "If you close Orvantis Server all running tasks will be Cancelled.\n\n"
              "Do you still wish to close Orvantis Server?");
    EXPECT_EQ(ts.op.lastAutoYesMs, 0);
    EXPECT_EQ(ts.LogText(), "");
    ts.AddTask(3, "C", kRunningCancelling);
    EXPECT_TRUE(CloseServer(*ts, true));
    EXPECT_EQ(ts.op.lastAutoYesMs, 3000);
    EXPECT_NE(ts.LogText().find("Some running tasks were Cancelled because Orvantis Server was "
                                "shut down:\n\n000002-R\n\n000003-C\n\n"),
              std::string::npos);
}

}  // namespace
}  // namespace vq
