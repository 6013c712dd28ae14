// Running a Slurm program: its input given, its output and error kept apart, and a program
// that outlives its bound killed with what it started.
#include <gtest/gtest.h>

#include <chrono>

#include "RunletDriver.h"
#include "runlet/SlurmCommands.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

TEST(RunCommandTest, InputOutputErrorAndExitStatus) {
    const std::string big(200'000, 'x');  // more than a pipe holds, both ways
    const CommandResult result =
        RunCommand({{"sh", "-c", "cat; echo warned >&2; exit 3"}, big, std::nullopt, 5'000});
    EXPECT_EQ(result.output, big);
    EXPECT_EQ(result.error, "warned\n");
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_FALSE(result.Succeeded());
}

// A missing program: the runner's test of a PATH without sbatch.
TEST(RunCommandTest, AProgramThatTakesTooLongIsKilledWithItsChild) {
    TempDir dir;
    const auto before = std::chrono::steady_clock::now();
    const CommandResult slow =
        RunCommand({{"sh", "-c", "sleep 30 & echo $! > " + dir.Path() + "pid; wait"}, "", std::nullopt, 300});
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
    EXPECT_TRUE(slow.timedOut);
    EXPECT_TRUE(slow.found);
    // The program's own child went with it.
    const pid_t child = std::stoi(ReadFileText(dir.Path() + "pid"));
    EXPECT_TRUE(WaitUntil([&] { return !ProcessAlive(child); }, 2'000));
}

}  // namespace
}  // namespace vq::test
