// The console of the queue as a user meets it: vqserv on a bus of the test's own, vqctl's
// status, show, report, follow, queue, remove, add and wait, and what the bus itself returns.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/Files.h"
#include "tests/app/ServerProcess.h"

namespace vq::test {
namespace {

class ConsoleProcessTest : public BusServerProcessTest {
  protected:
    ProcessResult Ok(const std::vector<std::string>& args) {
        ProcessResult result = Vqctl(args);
        EXPECT_EQ(result.exitCode, 0) << args[0] << ": " << result.err;
        return result;
    }
    // vqctl add with these words; the new key.
    std::string Add(std::vector<std::string> words) {
        words.insert(words.begin(), "add");
        std::string out = Ok(words).out;
        if (!out.empty()) out.pop_back();
        return out;
    }
    std::string StatusOf(const std::string& key) {
        const nlohmann::json task = nlohmann::json::parse(Ok({"show", "--json", key}).out)["task"];
        return task["Status"];
    }
    // vqctl with these words in the background, its standard output going to `file`.
    std::unique_ptr<ChildProcess> InBackground(const std::vector<std::string>& words,
                                               const std::string& file) {
        const char* script = "out=$1; shift; exec \"$@\" > \"$out\"";
        std::vector<std::string> argv = {"/bin/sh", "-c", script, "sh", file, BinPath("vqctl")};
        argv.insert(argv.end(), words.begin(), words.end());
        return std::make_unique<ChildProcess>(argv, Env());
    }
    static bool Holds(const std::string& file, const std::string& text) {
        const auto holds = [&] { return ReadFileText(file).find(text) != std::string::npos; };
        return WaitUntil(holds, 5000, 20);
    }
};

TEST_F(ConsoleProcessTest, StatusShowsWhatTheBusReturnsAsJsonAndAsAPlainTable) {
    auto server = StartServer();
    const std::string done = Add({"--name", "Done", "--", "true"});
    const std::string later = Add({"--name", "Later", "--class", "C", "--at", "2099-01-01 00:00:00",
                                   "--after", "Nightly", "--", "echo", "later"});
    const std::string held = Add({"--at", "2099-01-01", "--", "sleep 1"});
    const std::string cancelled = Add({"--name", "Gone", "--at", "2099-01-01", "--", "true"});
    EXPECT_EQ(held, "000003-sleep");
    Ok({"hold", held});
    Ok({"cancel", cancelled});
    EXPECT_EQ(Vqctl({"wait", done}).exitCode, 0);

    // The JSON of vqctl is the bus's answer, row for row and cell for cell.
    const ProcessResult bus =
        RunProcess({"/usr/bin/busctl", "--address=" + busAddress, "--json=short", "call",
                    "com.halvenor.OrvantisServer", "/ServerTask",
                    "com.halvenor.OrvantisServer.Extras", "TaskRows", "s", ""},
                   Env());
    ASSERT_EQ(bus.exitCode, 0) << bus.err;
    const std::string json = Ok({"status", "--json"}).out;
    EXPECT_EQ(nlohmann::json::parse(json), nlohmann::json::parse(bus.out)["data"][0]);
    // The cells in the columns' order, the options of add in theirs.
    const nlohmann::ordered_json rows = nlohmann::ordered_json::parse(json);
    ASSERT_EQ(rows.size(), 4u);
    std::string names;
    for (const auto& cell : rows[0].items()) names += cell.key() + ",";
    EXPECT_EQ(names.substr(0, 38), "RowKey,JobName,ID,Status,Class,UserNam");
    const auto laterRow = std::find_if(rows.begin(), rows.end(),
                                       [&](const auto& row) { return row["RowKey"] == later; });
    ASSERT_NE(laterRow, rows.end());
    EXPECT_EQ((*laterRow)["Class"], "C");
    EXPECT_EQ((*laterRow)["Dependency"], "Nightly");

    // Not a terminal: no colours, the seven columns aligned under their heads.
    const std::string table = Ok({"status"}).out;
    EXPECT_EQ(table.find('\033'), std::string::npos);
    EXPECT_EQ(table.substr(0, table.find('\n')),
              "Key           Task Name  Task Status           Queue Priority  Task RC  "
              "Scheduled Time     Elapsed");
    const std::string laterLine =
        "000002-Later  Later      Waiting               0               01       "
        "01/01/99 00:00:00  ";
    EXPECT_NE(table.find("\n" + laterLine + "\n"), std::string::npos) << table;
    // On a terminal the status is coloured by its family.
    const ProcessResult onTerminal = RunProcess(
        {"/usr/bin/script", "-qec", BinPath("vqctl") + " status --status waiting", "/dev/null"},
        Env());
    EXPECT_NE(onTerminal.out.find("\033[33mWaiting - Hold\033[0m"), std::string::npos)
        << onTerminal.out;

    // Show, report, removal and the queue switch.
    EXPECT_NE(Ok({"show", done}).out.find("Step 0001  Complete"), std::string::npos);
    EXPECT_NE(Ok({"report", done}).out.find("Task Status:"), std::string::npos);
    const ProcessResult refused = Vqctl({"remove", held});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("only a finished task can be removed"), std::string::npos)
        << refused.err;
    Ok({"remove", cancelled});
    EXPECT_EQ(Vqctl({"show", cancelled}).exitCode, 2);
    EXPECT_EQ(Ok({"queue", "stop"}).out, "The queue is stopped.\n");
    EXPECT_EQ(Ok({"queue"}).out, "The queue is stopped.\n");
    EXPECT_EQ(Ok({"queue", "start"}).out, "The queue runs.\n");
    Stop(*server);
}

TEST_F(ConsoleProcessTest, FollowPrintsEachStepsOutputAsItGrowsUntilTheTaskEnds) {
    auto server = StartServer();
    // The server log as it stands, then what is added to it while it is followed.
    EXPECT_EQ(Vqctl({"requests", "first.txt"}).exitCode, 1);
    const std::string logged = dir.Path() + "log.txt";
    auto log = InBackground({"log", "--follow"}, logged);
    EXPECT_TRUE(Holds(logged, "\"first.txt\" is no request")) << ReadFileText(logged);
    EXPECT_EQ(Vqctl({"requests", "second.txt"}).exitCode, 1);
    EXPECT_TRUE(Holds(logged, "\"second.txt\" is no request")) << ReadFileText(logged);
    log->Signal(SIGTERM);
    EXPECT_NE(Ok({"log"}).out.find("LOG ENTRY - TIME: "), std::string::npos);

    const std::string file = dir.Path() + "Lines.vqf";
    Ok({"new-task", "--name", "Lines", "--step", "for i in 1 2 3; do echo line $i; sleep 1; done",
        "--step", "echo next step", file});
    std::string key = Ok({"submit", file}).out;
    key.pop_back();
    const std::string followed = dir.Path() + "followed.txt";
    auto follow = InBackground({"follow", key}, followed);
    // The first line comes while the step still runs.
    ASSERT_TRUE(WaitUntil([&] { return ReadFileText(followed) == "line 1\n"; }, 5000, 20))
        << ReadFileText(followed);
    EXPECT_EQ(StatusOf(key), "Running");
    const ProcessResult result = follow->Wait(10000);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(ReadFileText(followed), "line 1\nline 2\nline 3\nnext step\n");
    EXPECT_EQ(StatusOf(key), "Complete");
    Stop(*server);
}

TEST_F(ConsoleProcessTest, WaitTellsScriptsHowTheTaskEnded) {
    auto server = StartServer();
    struct Case {
        std::vector<std::string> words;
        int exitCode;
    };
    const Case cases[] = {
        {{"--", "exit 0"}, 0},
        {{"--", "exit 3"}, 1},
        {{"--at", "2099-01-01", "--", "true"}, 1},  // cancelled below
    };
    std::vector<std::string> keys;
    for (const Case& c : cases) keys.push_back(Add(c.words));
    Ok({"cancel", keys[2]});
    for (size_t i = 0; i < keys.size(); ++i)
        EXPECT_EQ(Vqctl({"wait", keys[i]}).exitCode, cases[i].exitCode) << keys[i];
    const ProcessResult unknown = Vqctl({"wait", "000099-None"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_NE(unknown.err.find("no task 000099-None in the queue"), std::string::npos)
        << unknown.err;
    Stop(*server);
}

}  // namespace
}  // namespace vq::test
