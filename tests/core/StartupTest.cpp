// Start-up against a temporary settings store and queue root, and the closing path.
#include <gtest/gtest.h>

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

class FixedGuard final : public InstanceGuard {
public:
    explicit FixedGuard(bool another) : another_(another) {}
    bool AnotherServerRuns() override {
        ++asked;
        return another_;
    }
    int asked = 0;

private:
    bool another_;
};

// A server with an empty settings store and no queue root yet.
class StartupTest : public ::testing::Test {
protected:
    StartupTest() {
        registry = std::make_unique<Registry>(dir.Path() + "cfg/registry.db", dir.Path() + "cfg/autostart");
        server = std::make_unique<Server>(clock, op, *registry, screen);
        server->ProgramFolder = "/opt/orvantis/bin/";
        request.queueRoot = dir.Path() + "queue";
    }
    std::string Stored(Hive hive, const std::string& key, const std::string& name) {
        auto value = registry->Read(hive, key, name);
        return value ? value->AsText() : "<missing>";
    }
    std::string AutostartFile() const { return dir.Path() + "cfg/autostart/orvantis-server.desktop"; }

    TempDir dir;
    test::FakeClock clock;
    test::ScriptedOperator op;
    test::CountingScreen screen;
    std::unique_ptr<Registry> registry;
    std::unique_ptr<Server> server;
    StartRequest request;
    FixedGuard noOther{false};
};

TEST_F(StartupTest, ARegistrationCallEndsBeforeAnythingIsTouched) {
    request.commandLine = "/regserver /RegisterCOM";
    EXPECT_EQ(ProcessStart(*server, request, noOther), StartResult::EndQuietly);
    EXPECT_EQ(noOther.asked, 0);
    EXPECT_FALSE(PathExists(registry->DatabasePath()));
}

TEST_F(StartupTest, ASecondServerEndsQuietlyBeforeTheWriteTest) {
    FixedGuard other(true);
    EXPECT_EQ(ProcessStart(*server, request, other), StartResult::EndQuietly);
    EXPECT_EQ(Stored(Hive::CurrentUser, SectionKey("ServerSettings"), "TVal"), "<missing>");
    EXPECT_TRUE(op.messages.empty());
}

TEST_F(StartupTest, AStoreThatCannotBeWrittenEndsTheProcessWithTheMessage) {
    AppendToFile(dir.Path() + "plainfile", "x");
    Registry broken(dir.Path() + "plainfile/cfg/registry.db", dir.Path() + "plainfile/autostart");
    Server s(clock, op, broken, screen);
    EXPECT_EQ(ProcessStart(s, request, noOther), StartResult::EndFailed);
    ASSERT_EQ(op.messages.size(), 1u);
    EXPECT_EQ(op.messages[0].text, kRegistryWriteFailed);
    EXPECT_EQ(op.messages[0].icon, MessageIcon::Critical);
    EXPECT_FALSE(PathExists(request.queueRoot));
}

TEST_F(StartupTest, LogonWithoutStartServEndsAfterBringingLogonSettingsInLine) {
    MakeFolders(dir.Path() + "cfg/autostart");
    AppendToFile(AutostartFile(), "[Desktop Entry]\nExec=old LOGON\n");
    request.commandLine = "logon";
    EXPECT_EQ(ProcessStart(*server, request, noOther), StartResult::EndQuietly);
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "AutoAdminLogon"), "0");
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "DefaultUserName"), "");
    EXPECT_FALSE(PathExists(AutostartFile()));
    EXPECT_FALSE(PathExists(request.queueRoot));
}

TEST_F(StartupTest, LogonWithStartServStartsAndWritesTheAutostartEntry) {
    SaveRegSetting(*registry, "ServerSettings", "StartServ", "1");
    SaveRegSetting(*registry, "ServerSettings", "LogonEn", "1");
    request.commandLine = "LOGON";
    EXPECT_EQ(ProcessStart(*server, request, noOther), StartResult::Serve);
    EXPECT_NE(ReadFileText(AutostartFile()).find("\nExec=/opt/orvantis/bin/vqserv LOGON\n"), std::string::npos);
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "AutoAdminLogon"), "1");
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "DefaultUserName"), "<missing>");
}

TEST_F(StartupTest, AnOrdinaryStartSettlesPathsFoldersAndTheQueue) {
    ASSERT_EQ(ProcessStart(*server, request, noOther), StartResult::Serve);
    const std::string root = dir.Path() + "queue/";
    EXPECT_EQ(server->ServerPath, root);
    EXPECT_EQ(GetSettingText(*registry, "ServerSettings", "ServPath"), root);
    EXPECT_EQ(server->DataPath, root + "$Data/");
    EXPECT_EQ(server->InQueuePath, root + "$InQ/");
    EXPECT_EQ(server->RunnerPath, "/opt/orvantis/bin/runlet");
    EXPECT_EQ(server->OsKind, 6);
    EXPECT_FALSE(server->ComputerName.empty());
    EXPECT_EQ(server->ComputerName, ToUpper(server->ComputerName));
    for (const char* folder : {"$InQ", "$JobQ", "$JobR", "$Data"})
        EXPECT_TRUE(PathExists(root + folder + "/Orvantis.ctf")) << folder;
    EXPECT_EQ(ReadFileText(root + "$JobQ/QPath"), root + "\r\n");
    EXPECT_EQ(server->tables.TaskTable.Columns().size(), 33u);
    EXPECT_TRUE(server->QueueStarted);
    EXPECT_EQ(screen.queueSwitches, std::vector<bool>{true});
    EXPECT_EQ(screen.treeLoads, 1);
    EXPECT_EQ(Stored(Hive::CurrentUser, SectionKey("ServerSettings"), "TVal"), "2");
}

TEST_F(StartupTest, StartQZeroLeavesTheQueueStopped) {
    SaveRegSetting(*registry, "ServerSettings", "StartQ", "0");
    ASSERT_EQ(ProcessStart(*server, request, noOther), StartResult::Serve);
    EXPECT_FALSE(server->QueueStarted);
    EXPECT_EQ(screen.queueSwitches, std::vector<bool>{false});
}

TEST_F(StartupTest, WithoutARootGivenTheStoredOneServesElseTheProposal) {
    const std::string stored = dir.Path() + "stored/";
    MakeFolders(stored);
    request.queueRoot.clear();
    request.proposedRoot = dir.Path() + "home/$JQ";
    ASSERT_EQ(ProcessStart(*server, request, noOther), StartResult::Serve);
    EXPECT_EQ(server->ServerPath, dir.Path() + "home/$JQ/");
    EXPECT_TRUE(PathExists(dir.Path() + "home/$JQ/$Data/Orvantis.ctf"));
    SaveRegSetting(*registry, "ServerSettings", "ServPath", stored);
    Server again(clock, op, *registry, screen);
    again.ProgramFolder = "/opt/orvantis/bin/";
    ASSERT_EQ(ProcessStart(again, request, noOther), StartResult::Serve);
    EXPECT_EQ(again.ServerPath, stored);
}

TEST_F(StartupTest, ARootThatCannotBeMadeEndsTheProcess) {
    AppendToFile(dir.Path() + "plainfile", "x");
    request.queueRoot = dir.Path() + "plainfile/queue";
    EXPECT_EQ(ProcessStart(*server, request, noOther), StartResult::EndFailed);
    ASSERT_FALSE(op.messages.empty());
    EXPECT_EQ(op.messages.back().text, "Cannot change queue folder.\n\nPlease choose another path.");
}

TEST(OsKind, MapsTheKnownSystemsAndNamesTheOthers) {
    const int systems[][4] = {{1, 4, 0, 1}, {1, 4, 10, 2}, {2, 3, 51, 3}, {2, 4, 7, 4}, {2, 6, 3, 6}};
    for (const auto& s : systems) EXPECT_EQ(OsKindOf(s[0], s[1], s[2]), s[3]) << s[0] << s[1] << s[2];
    std::string message;
    EXPECT_EQ(OsKindOf(2, 10, 0, &message), 0);
    EXPECT_EQ(message, "Not supported OS Platform 2 / Major 10 / Minor 0");
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

class CloseServerTest : public ::testing::Test {
protected:
    TestServer ts;
};

TEST_F(CloseServerTest, NothingRunningAsksNothing) {
    ts.AddTask(1, "W", kWaiting);
    EXPECT_TRUE(CloseServer(*ts, false));
    EXPECT_TRUE(ts.op.questions.empty());
    EXPECT_EQ(ts.screen.widthSaves, 2);  // by the save of the queue, then by the close itself
    EXPECT_EQ(ts.LogText(), "");
}

TEST_F(CloseServerTest, NoKeepsTheServerRunning) {
    ts.AddTask(1, "R", kRunning);
    ts.op.answers = {false};
    EXPECT_FALSE(CloseServer(*ts, false));
    ASSERT_EQ(ts.op.questions.size(), 1u);
    EXPECT_EQ(ts.op.questions[0].title, "Orvantis Server - Tasks Still Running");
    EXPECT_EQ(ts.op.questions[0].text,
              "The following tasks are currently running:\n\n000001-R\n\n"
              "If you close Orvantis Server all running tasks will be Cancelled.\n\n"
              "Do you still wish to close Orvantis Server?");
    EXPECT_EQ(ts.op.lastAutoYesMs, 0);
    EXPECT_EQ(ts.LogText(), "");
}

TEST_F(CloseServerTest, YesLogsTheCancelledTasks) {
    ts.AddTask(1, "R", kRunning);
    ts.AddTask(2, "C", kRunningCancelling);
    ts.AddTask(3, "W", kWaiting);
    EXPECT_TRUE(CloseServer(*ts, true));
    EXPECT_EQ(ts.op.lastAutoYesMs, 3000);
    EXPECT_NE(ts.LogText().find("Some running tasks were Cancelled because Orvantis Server was shut "
                                "down:\n\n000001-R\n\n000002-C\n\n"),
              std::string::npos);
}

}  // namespace
}  // namespace vq
