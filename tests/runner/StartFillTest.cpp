#include <gtest/gtest.h>

#include "calendar/Common.h"
#include "platform/Error.h"
#include "runner/StartFill.h"
#include "storage/Settings.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

class StartFillTest : public testing::Test {
  protected:
    StartFillTest() {
        key = t.AddTask(42, "Nightly");
        t.AddSteps(key, 2);
        const std::pair<const char*, const char*> taskCells[] = {
            {"SubTime", "2026-11-20 08:30:00"}, {"RepCnt", "3"}, {"JobRC", "05"}, {"Password", "41424344"}};
        for (const auto& [column, value] : taskCells) SetTaskCell(t, key, column, value);
        const std::pair<const char*, const char*> stepCells[] = {
            {"Command", "make all"}, {"FileRC", "rc.txt"}, {"Environ", "A=1\r\nB=2"},
            {"WorkDir", "/srv/build"}, {"MinRC", "5"}, {"MaxRC", "09"}, {"BuffWidth", "0300"},
            {"BuffHeight", "0400"}};
        for (const auto& [column, value] : stepCells) SetStepCell(t, key, 2, column, value);
        t->OsKind = 6;
    }
    StartFill Fill() { return FillStartRecord(*t, key, 2); }

    TestServer t;
    std::string key;
};

TEST_F(StartFillTest, TakesEveryFieldFromTheTablesAndTheDefaultSettings) {
    const StartFill fill = Fill();
    const std::pair<int32_t StartRecord::*, int32_t> numbers[] = {
        {&StartRecord::ConsMode, 7},         {&StartRecord::WindowX, -1},
        {&StartRecord::WindowY, -1},         {&StartRecord::WindowWidth, -1},
        {&StartRecord::WindowHeight, -1},    {&StartRecord::BufferWidth, 300},
        {&StartRecord::BufferHeight, 400},   {&StartRecord::TaskId, 42},
        {&StartRecord::StepNumber, 2},       {&StartRecord::Priority, 22},
        {&StartRecord::CommandLength, 8},    {&StartRecord::FileRcLength, 6},
        {&StartRecord::EnvironLength, 8},    {&StartRecord::TaskMaxRc, 8},
        {&StartRecord::TaskRc, 5},           {&StartRecord::StepMinRc, 5},
        {&StartRecord::StepMaxRc, 9},        {&StartRecord::RepeatCount, 3},
        {&StartRecord::SearchBlockSize, 2048}, {&StartRecord::MaxSearchSegment, 1024 * 1024},
        {&StartRecord::MaxLineSize, 256},    {&StartRecord::CaptureDelay, 200}};
    for (const auto& [field, value] : numbers) EXPECT_EQ(fill.record.*field, value) << value;
    const std::pair<std::string StartRecord::*, std::string> texts[] = {
        {&StartRecord::UserName, "tester"},
        {&StartRecord::Password, "ABCD"},  // the block as it stands, hex-decoded only
        {&StartRecord::TaskName, "Nightly"},
        {&StartRecord::SubmitTime, "2026-11-20 08:30:00"},
        {&StartRecord::WorkDir, "/srv/build"},
        {&StartRecord::OutputFile, TaskCellOf(t, key, "RF") + "/Step2.txt"},
        {&StartRecord::UserFolder, t->ServerPath + "LOCAL/tester/"},
        {&StartRecord::TaskIdText, "000042"}};
    for (const auto& [field, value] : texts) EXPECT_EQ(fill.record.*field, value);
    EXPECT_EQ(fill.record.OsKind, 6);
    const std::string blocks = fill.commandText + "|" + fill.fileRcText + "|" + fill.environText;
    EXPECT_EQ(blocks + "|" + fill.warnings, "make all|rc.txt|A=1\r\nB=2|");
}

// Each setting read again at every start, with what it gives the runner.
TEST_F(StartFillTest, ReadsTheSettingsAgainAtEveryStart) {
    SetStepCell(t, key, 2, "BuffWidth", "0601");
    const struct {
        const char *name, *value;
        int32_t StartRecord::*field;
        int32_t expected;
    } cases[] = {{"ConsMode", "0", &StartRecord::ConsMode, 0},
                 {"SBS", "4096", &StartRecord::SearchBlockSize, 4096},
                 {"MSFS", "1000", &StartRecord::MaxSearchSegment, 1000 * 1024},  // KB into bytes
                 {"MLS", "512", &StartRecord::MaxLineSize, 512},
                 {"CSTimeDelay", "350", &StartRecord::CaptureDelay, 350},
                 {"CSEnabled", "0", &StartRecord::CaptureDelay, -1},  // whatever the delay
                 {"BufW", "1000", &StartRecord::BufferWidth, 601}};
    for (const auto& c : cases) {
        t.SetSetting(c.name, c.value);
        EXPECT_EQ(Fill().record.*c.field, c.expected) << c.name;
    }
    EXPECT_EQ(Fill().warnings, "");  // 601 lies within the new maximum
}

// The class maximum (CPUP of class A, 22) holds unless the server's own maximum MJP lies above
// it; the cell itself stays as it is.
TEST_F(StartFillTest, PriorityIsClampedAgainstTheServerAndTheClassMaximum) {
    const struct {
        const char *cpu, *mjp;
        int32_t priority;
        const char* warnings;
    } cases[] = {
        {"42", "P32", 32, "\r\nCPU Priority = High 2!\r\nSetting To Maximum CPU Priority (AboveNormal 2)"},
        {"31", "P42", 22,
         "\r\nCPU Priority = AboveNormal 1!\r\nSetting To Maximum Class CPU Priority (Normal 2)"},
        {"22", "P22", 22, ""},
    };
    for (const auto& c : cases) {
        SetTaskCell(t, key, "CPU", c.cpu);
        t.SetSetting("MJP", c.mjp);
        const StartFill fill = Fill();
        EXPECT_EQ(fill.record.Priority, c.priority) << c.cpu;
        EXPECT_EQ(fill.warnings, c.warnings) << c.cpu;
        EXPECT_EQ(TaskCellOf(t, key, "CPU"), c.cpu);
    }
}

TEST_F(StartFillTest, BufferSizesAreClampedAndTheWarningsComeInOrder) {
    SetTaskCell(t, key, "CPU", "23");
    SetStepCell(t, key, 2, "BuffWidth", "0601");
    SetStepCell(t, key, 2, "BuffHeight", "0900");
    const StartFill fill = Fill();
    EXPECT_EQ(fill.record.BufferWidth, 600);
    EXPECT_EQ(fill.record.BufferHeight, 800);
    EXPECT_EQ(
        fill.warnings,
        "\r\nCPU Priority = Normal 3!\r\nSetting To Maximum CPU Priority (Normal 2)"
        "\r\nScreen Buffer Size Width = 601!\r\nSetting To Maximum Screen Buffer Size (600)"
        "\r\nScreen Buffer Size Height = 900!\r\nSetting To Maximum Screen Buffer Size (800)");
    EXPECT_EQ(StepCell(t, key, 2, "BuffWidth"), "0601");
}

// The runner's arguments from the cluster settings stored at this start: Backend, Classes,
// Partition, Account, ExtraArgs, PollSeconds (null: not stored), the step's class, and the
// arguments joined by "|".
TEST_F(StartFillTest, AStepOfAClusterClassGetsTheSlurmArgumentsAndAnyOtherNone) {
    const char* names[] = {"Backend", "Classes", "Partition", "Account", "ExtraArgs", "PollSeconds"};
    const struct {
        const char* settings[6];
        char classLetter;
        const char* args;
    } cases[] = {
        {{nullptr, nullptr, nullptr, nullptr, nullptr, nullptr}, 'A', ""},
        {{"local", "", "debug", nullptr, nullptr, nullptr}, 'A', ""},
        {{"slurm", "", nullptr, nullptr, nullptr, nullptr}, 'Q', "--backend=slurm|--poll-seconds=2"},
        {{"SLURM", "cd", " debug ", "lab", "--qos=low --comment='a b' ", "10"}, 'C',
         "--backend=slurm|--poll-seconds=10|--partition=debug|--account=lab|"
         "--sbatch-args=--qos=low --comment='a b' "},
        {{"slurm", "CD", "debug", nullptr, nullptr, nullptr}, 'A', ""},
        {{"slurm", "D", "  ", "", " ", nullptr}, 'D', "--backend=slurm|--poll-seconds=2"},
        // Values that don't fit, stored past vqctl: their defaults are in force.
        {{"pbs", "", nullptr, nullptr, nullptr, nullptr}, 'A', ""},
        {{"slurm", "", nullptr, nullptr, nullptr, "0"}, 'A', "--backend=slurm|--poll-seconds=2"},
    };
    for (const auto& c : cases) {
        TempDir dir;
        Registry reg(dir.Path() + "registry.db", dir.Path() + "autostart");
        for (int i = 0; i < 6; ++i)
            if (c.settings[i]) SaveRegSetting(reg, "Cluster", names[i], c.settings[i]);
        std::string joined;
        for (const std::string& arg : ClusterRunnerArgs(reg, c.classLetter))
            joined += (joined.empty() ? "" : "|") + arg;
        EXPECT_EQ(joined, c.args) << c.classLetter << " " << (c.settings[0] ? c.settings[0] : "");
    }
}

TEST_F(StartFillTest, TheClassOfAStepIsTheFirstLetterOfItsCell) {
    const std::pair<const char*, char> cases[] = {
        {"C", 'C'}, {"c", 'C'}, {"dx", 'D'}, {"", 'A'}, {"3", 'A'}, {" B", 'A'}};
    for (const auto& [cell, letter] : cases) EXPECT_EQ(StepClassLetter(cell), letter) << cell;
    // The filling reads the cell and the settings of this start.
    SetTaskCell(t, key, "Class", "c");
    EXPECT_TRUE(Fill().runnerArgs.empty());
    SaveRegSetting(*t.registry, "Cluster", "Backend", "slurm");
    SaveRegSetting(*t.registry, "Cluster", "Classes", "C");
    const StartFill fill = Fill();
    EXPECT_EQ(fill.classLetter, 'C');
    EXPECT_EQ(fill.runnerArgs, (std::vector<std::string>{"--backend=slurm", "--poll-seconds=2"}));
}

TEST_F(StartFillTest, BadCellsFailIntoTheCaller) {
    // The password block is decoded as the scrambling does it: what isn't a digit is skipped.
    SetTaskCell(t, key, "Password", "4G14x2");
    EXPECT_EQ(Fill().record.Password, "AB");
    SetStepCell(t, key, 2, "MinRC", "one");
    EXPECT_THROW(Fill(), VqError);
    EXPECT_THROW(FillStartRecord(*t, key, 3), VqError);  // no such step
}

}  // namespace
}  // namespace vq::test
