// The server's door as a client meets it: vqserv on a bus of the test's own, driven by vqctl.
#include <memory>

#include "platform/Files.h"
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

}  // namespace
}  // namespace vq::test
