// The server's door as a client meets it: vqserv on a bus of the test's own, driven by vqctl.
#include <filesystem>
#include <memory>

#include "core/tables/Status.h"
#include "platform/Files.h"
#include "storage/QueueDatabase.h"
#include "tests/app/ServerProcess.h"

namespace vq::test {
namespace {

class DoorProcessTest : public BusServerProcessTest {};

TEST_F(DoorProcessTest, WithoutAServerVqctlSaysWhatToDo) {
    const ProcessResult noServer = Vqctl({"exists", "000001-Task"});
    EXPECT_EQ(noServer.exitCode, 2);
    EXPECT_NE(noServer.err.find("no server is running for this user: start it with 'vqserv --headless'"),
              std::string::npos)
        << noServer.err;
    EXPECT_EQ(Vqctl({"hold"}).exitCode, 2);
}

TEST_F(DoorProcessTest, AServerWithoutABusSaysSoInItsLogAndServes) {
    busAddress = "unix:path=" + dir.Path() + "nobus";
    ChildProcess server(Vqserv(), Env());
    const std::string log = Root() + "$Data/SrvLog.txt";
    EXPECT_TRUE(WaitUntil([&] { return ReadFileText(log).find("clients can't reach") != std::string::npos; }, 5000, 20));
    EXPECT_NE(ReadFileText(log).find("No session bus was found: clients can't reach this server."), std::string::npos);
    Stop(server);
}

TEST_F(DoorProcessTest, ATaskHandedInThroughVqctlIsControlledOverTheBus) {
    auto server = StartServer();
    const std::string file = NewTask("Hello", {"--at", "2099-01-01 00:00:00"});
    const ProcessResult submitted = Vqctl({"submit", file});
    ASSERT_EQ(submitted.exitCode, 0) << submitted.err;
    EXPECT_EQ(submitted.out, "000001-Hello\n");
    EXPECT_TRUE(PathExists(file));
    EXPECT_TRUE(PathExists(Root() + "$LOCALS$/$LOCALUSER$/Hello/000001/Original Task File.vqf"));

    struct Call { std::vector<std::string> args; int exitCode; };
    const Call calls[] = {
        {{"exists", "000001-Hello"}, 0}, {{"exists", "000002-Hello"}, 1},
        {{"hold", "000001-Hello"}, 0},   {{"resume", "000001-Hello"}, 0},
        {{"resume", "000001-Hello"}, 1}, {{"cancel", "000001-Hello"}, 0},
        {{"cancel", "000001-Hello"}, 1}, {{"validate", "bob", "--domain", "CORP"}, 1},
        {{"requests"}, 0},               {{"mkdir", "/etc/orvantis"}, 1},
    };
    for (const Call& call : calls) EXPECT_EQ(Vqctl(call.args).exitCode, call.exitCode) << call.args[0] << " " << call.args[1];
    EXPECT_EQ(Vqctl({"validate", "$LOCALUSER$"}).out, "Granted\n");
    EXPECT_EQ(Vqctl({"location"}).out, Root() + "\n");
    EXPECT_EQ(Vqctl({"version"}).out, "2.1.487\n");

    const ProcessResult foreign = Vqctl({"submit", NewTask("Far", {"--server", "ELSEWHERE"})});
    EXPECT_EQ(foreign.exitCode, 1);
    EXPECT_NE(foreign.err.find("the server refused the task; its log says why: " + Root() + "$Data/SrvLog.txt"),
              std::string::npos)
        << foreign.err;

    // The members in their order, with the types of the properties.
    const ProcessResult xml = RunProcess({"/usr/bin/dbus-send", "--session", "--print-reply",
                                          "--dest=com.halvenor.OrvantisServer", "/ServerTask",
                                          "org.freedesktop.DBus.Introspectable.Introspect"},
                                         Env());
    size_t at = xml.out.find("interface name=\"com.halvenor.OrvantisServer.ServerTask\"");
    ASSERT_NE(at, std::string::npos) << xml.out << xml.err;
    for (const char* member : {"SubmitTask", "RaiseChkIfReq", "MkZkDir", "ValidateCredentials", "CancelTask",
                               "ResumeTask", "HoldTask", "WriteTaskInfo", "TaskExist"}) {
        at = xml.out.find(std::string("<method name=\"") + member + "\">", at);
        EXPECT_NE(at, std::string::npos) << member;
    }
    for (const char* property : {"name=\"ServerType\" type=\"n\"", "name=\"ServerVersion\" type=\"s\"",
                                 "name=\"QueueLocation\" type=\"s\""})
        EXPECT_NE(xml.out.find(property), std::string::npos) << property;
    Stop(*server);
}

TEST_F(DoorProcessTest, EveryAnsweredSubmissionSurvivesAKillOnce) {
    auto server = StartServer();
    std::vector<std::string> keys;
    for (const char* name : {"KeepA", "KeepB", "KeepC"}) {
        const ProcessResult submitted = Vqctl({"submit", NewTask(name)});
        ASSERT_EQ(submitted.exitCode, 0) << submitted.err;
        keys.push_back(submitted.out.substr(0, submitted.out.size() - 1));
    }
    server->Signal(SIGKILL);
    server->Wait(5000);

    server = StartServer();
    EXPECT_EQ(Vqctl({"submit", NewTask("KeepD")}).out, "000004-KeepD\n");
    Stop(*server);
    // Saved once each, and loaded without a recovery.
    const std::string jobs = ReadFileText(Root() + "$Data/Jobs.dat");
    for (const std::string& key : keys) {
        const std::string keyEnd = key.substr(6) + "<";  // "-KeepA<": the end of a key only
        EXPECT_NE(jobs.find(">" + key + "<"), std::string::npos) << key;
        EXPECT_EQ(jobs.find(keyEnd), jobs.rfind(keyEnd)) << key;
    }
    EXPECT_EQ(ReadFileText(Root() + "$Data/SrvLog.txt").find("Error occurred while loading"), std::string::npos);
}

// How often a task's key stands in the saved task rows: once, or the task was lost or doubled.
size_t SavedCount(const std::string& jobs, const std::string& key) {
    size_t count = 0;
    for (size_t at = jobs.find(">" + key + "<"); at != std::string::npos; at = jobs.find(">" + key + "<", at + 1)) ++count;
    return count;
}

TEST_F(DoorProcessTest, AHandedInTaskRunsByTheReturnCodesAndOutlivesAKill) {
    auto server = StartServer();
    const std::string folder = Root() + "$LOCALS$/$LOCALUSER$/Rules/000001/";
    // Step 1 ends with 3 (exit 2), so step 2 (for 1 only) is skipped and step 3 (for 3) runs.
    const std::string rules = dir.Path() + "Rules.vqf";
    ASSERT_EQ(Vqctl({"new-task", "--name", "Rules", "--max-rc", "3", "--step", "exit 2", "--step", "touch skipped",
                     "--rc", "1-1", "--step", "touch \"$ORVANTIS_TASK_FOLDER/third\"", "--rc", "3-3", rules})
                  .exitCode,
              0);
    ASSERT_EQ(Vqctl({"submit", rules}).out, "000001-Rules\n");
    // Long goes in once Rules has run, so that it can't take the one slot first.
    ASSERT_TRUE(WaitUntil([&] { return PathExists(folder + "third"); }, 10000, 50));
    ASSERT_EQ(Vqctl({"submit", NewTask("Long", {"--step", "sleep 10"})}).out, "000002-Long\n");

    TestServer rows;  // only its tables, to read the saved rows into
    auto savedStatus = [&](const std::string& key) {
        rows->tables.TaskTable.ClearRows();
        ReadTasksText(rows->tables, ReadFileText(Root() + "$Data/Jobs.dat"));
        return rows->tables.TaskTable.FindRow(key) ? GetCell(rows->tables, kTaskTable, key, "Status") : "";
    };
    // Killed once the end of Rules is saved, while Long runs.
    ASSERT_TRUE(WaitUntil([&] { return savedStatus("000001-Rules") == kComplete && savedStatus("000002-Long") == kRunning; },
                          10000, 50));
    EXPECT_TRUE(PathExists(folder + "third"));
    EXPECT_FALSE(PathExists(folder + "skipped"));
    const std::string report = ReadFileText(folder + "Rules.txt");
    for (const char* line : {"Step Return Code:....................... 03", "Step 2 Status:.......................... Skipped",
                             "Task Status:............................ Complete", "Max RC:................................. 03"})
        EXPECT_NE(report.find(line), std::string::npos) << line << "\n" << report;
    const ProcessResult info = Vqctl({"info", "000001-Rules"});
    EXPECT_NE(info.out.find("Task Status.........: Complete (1)"), std::string::npos) << info.out << info.err;
    EXPECT_NE(info.out.find("Progress............: Step 3 Of 3"), std::string::npos) << info.out;
    server->Signal(SIGKILL);
    server->Wait(5000);

    server = StartServer();
    EXPECT_EQ(Vqctl({"exists", "000002-Long"}).exitCode, 0);
    EXPECT_EQ(Vqctl({"submit", NewTask("After")}).out, "000003-After\n");
    Stop(*server);
    const std::string jobs = ReadFileText(Root() + "$Data/Jobs.dat");
    for (const char* key : {"000001-Rules", "000002-Long", "000003-After"}) EXPECT_EQ(SavedCount(jobs, key), 1u) << key;
    EXPECT_EQ(savedStatus("000001-Rules"), kComplete);
    // The load after the kill needed no recovery.
    for (const auto& entry : std::filesystem::directory_iterator(Root() + "$Data"))
        EXPECT_EQ(entry.path().extension().string().rfind(".bd", 0), std::string::npos) << entry.path();
    const std::string log = ReadFileText(Root() + "$Data/SrvLog.txt");
    EXPECT_EQ(log.find("Error occurred while loading"), std::string::npos) << log;
    EXPECT_EQ(log.find("There are no backup files"), std::string::npos) << log;
}

}  // namespace
}  // namespace vq::test
