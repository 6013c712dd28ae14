// A task that runs away, as the running server meets it: its class allows 2 seconds of CPU, its
// step burns CPU in a loop, and the server cancels it while its cleanup step still runs.
#include "storage/Classes.h"
#include "tests/app/ServerProcess.h"

namespace vq::test {
namespace {

using ClassLimitProcessTest = BusServerProcessTest;

// Class B allows 2 seconds of CPU. CPU, memory and I/O weigh nothing in system units, so that
// no unit limit comes first; a cleanup may run a minute.
void WriteClassFile(const std::string& dataFolder) {
    ClassData data;
    data.ClassTable[1].MaxCpu = 2;
    data.Ponders = {0, 0, 0, 1000, 60, 0, 0};
    ComputeClassUnits(data);
    ASSERT_TRUE(MakeFolders(dataFolder));
    ASSERT_TRUE(WriteFileAtomic(dataFolder + kClassesFileName, ClassesFileText(data)));
}

TEST_F(ClassLimitProcessTest, AStepOverItsClassCpuLimitIsCancelledAndItsCleanupRuns) {
    WriteClassFile(Root() + "$Data/");
    auto server = StartServer();
    const std::string cleaned = dir.Path() + "cleaned.txt";
    const std::string file = dir.Path() + "Burn.vqf";
    ASSERT_EQ(Vqctl({"new-task", "--name", "Burn", "--class", "B", "--step", "while :; do :; done",
                     "--step", "echo cleaned > '" + cleaned + "'", "--rc", "99-99", file})
                  .exitCode,
              0);
    ASSERT_EQ(Vqctl({"submit", file}).out, "000001-Burn\n");

    const std::string folder = Root() + "$LOCALS$/$LOCALUSER$/Burn/000001/";
    ASSERT_TRUE(WaitUntil(
        [&] {
            // The info file may say so a moment before the report has its last entry.
            return ReadFileText(folder + "Info.zki").find("Complete - Cancelled") !=
                       std::string::npos &&
                   ReadFileText(folder + "Burn.txt").find("Task RC:") != std::string::npos;
        },
        60000, 50))
        << ReadFileText(folder + "Info.zki") << server->ErrorText();
    EXPECT_EQ(ReadFileText(cleaned), "cleaned\n");
    const std::string report = ReadFileText(folder + "Burn.txt");
    EXPECT_TRUE(InOrder(
        report,
        {"This is a class B task.", "Max CPU Time:........................... 0 Days 00:00:02",
         "\r\nTask has exceeded maximum CPU time! (0 Days 00:00:02)\r\n", "Cancelling...",
         "Step 1 Status:.......................... Complete - Cancelled",
         "Step Return Code:....................... 99", "Searching for cleanup steps...",
         "Step 2 Status:.......................... Running",
         "Step 2 Status:.......................... Complete\r\n",
         "Task Status:............................ Complete - Cancelled",
         "Task RC:................................ 99"}))
        << report;
    const std::string info = ReadFileText(folder + "Info.zki");
    EXPECT_NE(
        info.find(
            "Task Status.........: Complete - Cancelled\r\nProgress............: Step 2 Of 2\r\n"),
        std::string::npos)
        << info;
    Stop(*server);
}

}  // namespace
}  // namespace vq::test
