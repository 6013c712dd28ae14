// Schedules and dependencies in the real server: a series of two runs a minute apart, and
// tasks that wait for each other by name.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <ctime>
#include <thread>

#include "core/tables/Status.h"
#include "storage/QueueDatabase.h"
#include "tests/app/ServerProcess.h"

namespace vq::test {
namespace {

class ScheduleProcessTest : public BusServerProcessTest {
  protected:
    // Stops the server, which saves the queue database, and reads its task rows.
    void StopAndReadTasks(ChildProcess& server) {
        server.Signal(SIGTERM);
        EXPECT_EQ(server.Wait(10000).exitCode, 0) << server.ErrorText();
        ReadTasksText(rows->tables, ReadFileText(Root() + "$Data/Jobs.dat"));
    }
    std::string Cell(const std::string& key, const char* column) {
        return GetCell(rows->tables, kTaskTable, key, column);
    }
    std::string Folder(const std::string& name, const char* number) {
        return Root() + "$LOCALS$/$LOCALUSER$/" + name + "/" + number;
    }
    TestServer rows;  // only its tables, to read the saved rows into
};

// The only slow test: the second run comes a minute after the first.
TEST_F(ScheduleProcessTest, EveryMinuteTwiceRunsTwiceAndWaitsForTheNextDay) {
    auto server = StartServer();
    // A slot checked in its own second doesn't run: the first slot is two seconds ahead.
    const std::string at = FormatDateTime(DateFromTimeT(std::time(nullptr) + 2));
    const std::string file = NewTask("Twice", {"--at", at, "--every", "1m", "--times", "2", "--step",
                                               "echo ran >> \"$ORVANTIS_TASK_FOLDER/out.txt\""});
    ASSERT_EQ(Vqctl({"submit", file}).exitCode, 0);
    ASSERT_TRUE(WaitUntil([&] { return IsFolder(Folder("Twice", "000003")); }, 90000, 200))
        << "no third row";
    StopAndReadTasks(*server);
    for (const char* number : {"000001", "000002"}) {
        const std::string key = std::string(number) + "-Twice";
        EXPECT_EQ(Cell(key, "Status"), kComplete) << key;
        EXPECT_EQ(Cell(key, "AllR"), std::string("000") + number[5]) << key;
        EXPECT_EQ(ReadFileText(Folder("Twice", number) + "/out.txt"), "ran\n") << key;
    }
    const std::string next = "000003-Twice";
    EXPECT_EQ(Cell(next, "Status"), kWaiting);
    EXPECT_EQ(Cell(next, "AllR"), "0003");
    // The next day at the time of the first slot.
    const VqDate first = ReadDate(Cell("000001-Twice", "SchTime"));
    EXPECT_EQ(Cell(next, "SchTime"), FormatDateTime(first + 1));
}

TEST_F(ScheduleProcessTest, ATaskWaitsForTheSuccessfulEndOfTheTaskItNames) {
    auto server = StartServer();
    // Each waiting task is handed in before the one it waits for.
    const std::string done = "touch \"$ORVANTIS_TASK_FOLDER/done\"";
    const std::pair<const char*, std::vector<std::string>> tasks[] = {
        {"Deploy", {"--after", "BUILD", "--step", done}},
        {"Build", {"--step", "sleep 1"}},
        {"Notify", {"--after", "broken"}},
        {"Broken", {"--step", done + "; false"}},  // ends with 2, above its MaxRC 1
    };
    for (const auto& [name, options] : tasks)
        ASSERT_EQ(Vqctl({"submit", NewTask(name, options)}).exitCode, 0) << name;
    ASSERT_TRUE(WaitUntil(
        [&] {
            return PathExists(Folder("Deploy", "000001") + "/done") &&
                   PathExists(Folder("Broken", "000004") + "/done");
        },
        20000, 50));
    // Twenty ticks for the ends to be seen; Notify would have been released by now.
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    StopAndReadTasks(*server);
    EXPECT_EQ(Cell("000002-Build", "Status"), kComplete);
    EXPECT_EQ(Cell("000001-Deploy", "Status"), kComplete);
    EXPECT_GE(Cell("000001-Deploy", "Start"), Cell("000002-Build", "End"));
    EXPECT_EQ(Cell("000004-Broken", "Status"), kComplete);
    EXPECT_EQ(Cell("000003-Notify", "Status"), kWaiting);
    EXPECT_EQ(Cell("000003-Notify", "Dependency"), "broken");
}

}  // namespace
}  // namespace vq::test
