// The plain pieces of the Slurm backend: the runner's options, the splitting of the extra
// sbatch options, the sbatch call of a step, and the reading of what Slurm prints.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <tuple>

#include "runlet/RunletOptions.h"
#include "runlet/ShellWords.h"
#include "runlet/SlurmParse.h"
#include "runlet/SlurmStep.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using Words = std::vector<std::string>;

TEST(ShellWordsTest, SplitsAsAShellWouldWithoutExpandingAnything) {
    const std::pair<const char*, Words> cases[] = {
        {"", {}},
        {"  \t\n ", {}},
        {"--qos=low  --time=10", {"--qos=low", "--time=10"}},
        {"--comment='two words'", {"--comment=two words"}},
        {"\"a \\\"b\\\" \\\\ \\$HOME \\x\"", {"a \"b\" \\ $HOME \\x"}},
        {"'it'\\''s' \"\"", {"it's", ""}},
        {"a\\ b c\\\nd", {"a b", "cd"}},
        {"$HOME `date` *.txt ~", {"$HOME", "`date`", "*.txt", "~"}},
        {"x'y'\"z\"", {"xyz"}},
    };
    for (const auto& [text, words] : cases) {
        const ShellSplit split = SplitShellWords(text);
        EXPECT_EQ(split.words, words) << text;
        EXPECT_EQ(split.error, "") << text;
    }
    const std::pair<const char*, const char*> bad[] = {
        {"--comment='open", "the quote ' at 11 is not closed."},
        {"a \"b\\\"", "the quote \" at 3 is not closed."},
        {"a b\\", "it ends with a backslash."},
    };
    for (const auto& [text, error] : bad) {
        const ShellSplit split = SplitShellWords(text);
        EXPECT_EQ(split.error, error) << text;
        EXPECT_TRUE(split.words.empty()) << text;
    }
}

TEST(RunletOptionsTest, OptionsAndTheErrorThatNamesABadOne) {
    const RunletOptions none = ParseRunletOptions({});
    EXPECT_TRUE(none.Valid());
    EXPECT_FALSE(none.slurm);
    const RunletOptions all = ParseRunletOptions({"--backend=SLURM", "--poll-seconds=3600", "--partition=debug",
                                                  "--account=lab", "--sbatch-args=--qos=low '--comment=a b'"});
    EXPECT_TRUE(all.Valid()) << all.error;
    EXPECT_EQ(std::tie(all.slurm, all.pollSeconds, all.partition, all.account, all.sbatchArgs),
              std::make_tuple(true, 3600, "debug", "lab", Words{"--qos=low", "--comment=a b"}));
    EXPECT_FALSE(ParseRunletOptions({"--backend=local"}).slurm);

    const std::pair<const char*, const char*> bad[] = {
        {"--backend=pbs", "The runner's option --backend has a bad value \"pbs\": it is neither local nor slurm."},
        {"--poll-seconds=0", "The runner's option --poll-seconds has a bad value \"0\": it is no number from 1 to 3600."},
        {"--poll-seconds=2s", "The runner's option --poll-seconds has a bad value \"2s\": it is no number from 1 to 3600."},
        {"--sbatch-args=\"x", "The runner's option --sbatch-args has a bad value \"\"x\": the quote \" at 1 is not closed."},
        {"--queue=x", "The runner has no option --queue."},
        {"slurm", "The runner's argument \"slurm\" is not an option of the form --name=value."},
    };
    for (const auto& [argument, error] : bad) EXPECT_EQ(ParseRunletOptions({"--backend=slurm", argument}).error, error);
}

// The command and the environment keep their spaces, quotes, % and line ends through sbatch:
// the script, run by a shell, runs the command as it was given.
TEST(SbatchRequestTest, ArgumentsScriptAndEnvironmentOfAStep) {
    test::TempDir dir;
    StepInput input;
    input.start.TaskIdText = "000012";
    input.start.StepNumber = 2;
    input.start.Priority = 12;  // BelowNormal: nice 10
    input.start.UserName = "$LOCALUSER$";
    input.start.WorkDir = "%VQS%";
    input.start.OutputFile = dir.Path() + "50% done/Step2.txt";
    input.command = "printf '%s|' \"it's\" 'a \"b\"' 100%; printf 'cr\\r' | od -c | head -1 | tr -s ' '\r\necho x";
    input.environ = "GREETING=hello 'world' 50%\r\n";
    const StepPlan plan = MakeStepPlan(input, {"PATH=/usr/bin:/bin"}, "");
    RunletOptions options;
    options.partition = "debug";
    options.sbatchArgs = {"--qos=low", "--output=elsewhere"};
    std::vector<std::string> notes;
    const CommandRequest request = MakeSbatchRequest(plan, input.start, options, false, notes);
    const std::string folder = dir.Path() + "50%% done";
    EXPECT_EQ(request.arguments,
              (Words{"sbatch", "--parsable", "--qos=low", "--output=elsewhere", "--job-name=000012-2",
                     "--chdir=" + dir.Path() + "50% done", "--output=" + folder + "/Step2.txt",
                     "--error=" + folder + "/Step2.txt", "--open-mode=append", "--export=ALL",
                     "--partition=debug", "--nice=10"}));
    EXPECT_EQ(request.input.find('\r'), std::string::npos);
    ASSERT_TRUE(request.environment);
    EXPECT_EQ(request.environment->at(1), "GREETING=hello 'world' 50%");
    EXPECT_TRUE(notes.empty());

    std::ofstream(dir.Path() + "script") << request.input;
    FILE* shell = ::popen(("sh " + dir.Path() + "script").c_str(), "r");
    std::string output;
    for (int c; (c = std::fgetc(shell)) != EOF;) output += static_cast<char>(c);
    ::pclose(shell);
    EXPECT_EQ(output, "it's|a \"b\"|100%|0000000 c r \\r\nx\n");
}

TEST(SbatchRequestTest, NegativeNiceOnlyForAPrivilegedUser) {
    const std::tuple<int, bool, int, const char*> cases[] = {
        {2, false, 19, ""},
        {22, false, 0, ""},
        {40, true, -10, ""},
        {40, false, 0, "CPU priority High 0 (nice -10) needs a privileged Slurm user; the job was given nice 0."},
    };
    for (const auto& [code, privileged, nice, note] : cases) {
        std::vector<std::string> notes;
        EXPECT_EQ(SlurmNice(code, privileged, notes), nice) << code;
        EXPECT_EQ(notes.empty() ? "" : notes[0], std::string(note)) << code;
    }
}

// A missing sbatch and an unreachable controller: the runner's test over the fake Slurm.
TEST(SbatchRequestTest, WhySbatchGaveNoJob) {
    auto failed = [](bool found, const char* runError, bool timedOut, int exitStatus, const char* output,
                     const char* error) {
        return SbatchFailureText({found, runError, timedOut, exitStatus, output, error});
    };
    EXPECT_EQ(failed(true, "Permission denied", false, -1, "", ""),
              "Slurm can't be used: sbatch can't be run: Permission denied.");
    EXPECT_EQ(failed(true, "", true, -1, "", ""), "Slurm can't be used: sbatch did not answer within 12 seconds.");
    EXPECT_EQ(failed(true, "", false, 0, "Submitted\n", ""), "Slurm can't be used: sbatch gave no job id but \"Submitted\".");
    EXPECT_EQ(failed(true, "", false, 255, "", "sbatch: unrecognized option '--bogus'\nTry \"sbatch --help\" for more information\n"),
              "The step could not be started. unrecognized option '--bogus'");
}

TEST(SlurmParseTest, JobIdOfSbatch) {
    EXPECT_EQ(ParseSbatchJobId("4711\n"), "4711");
    EXPECT_EQ(ParseSbatchJobId("4711;cluster1\n"), "4711");
    EXPECT_EQ(ParseSbatchJobId("note\n12\n\n"), "12");
    for (const char* text : {"", "\n", "Submitted batch job 4711", "47x1", "-1", "1234567890123456789"})
        EXPECT_FALSE(ParseSbatchJobId(text)) << text;
}

TEST(SlurmParseTest, FieldsOfScontrolShowJobOnOneLineOrMany) {
    const std::optional<SlurmJob> one = ParseScontrolJob(
        "JobId=7 JobName=000012-1 JobState=PENDING Reason=JobHeldUser Dependency=(null) ExitCode=0:0 "
        "Partition=debug Command=(null) WorkDir=/a Partition=other b StdOut=/x JobState=RUNNING\n");
    ASSERT_TRUE(one);
    EXPECT_EQ(std::tie(one->state, one->reason, one->partition, one->exitCode),
              std::make_tuple("PENDING", "JobHeldUser", "debug", "0:0"));
    EXPECT_TRUE(IsHeld(*one));
    const std::optional<SlurmJob> many = ParseScontrolJob(
        "JobId=7 JobName=x\n   JobState=COMPLETED Reason=None Dependency=(null)\n   ExitCode=3:0\n   Partition=p1\n");
    ASSERT_TRUE(many);
    EXPECT_EQ(std::tie(many->state, many->exitCode), std::make_tuple("COMPLETED", "3:0"));
    EXPECT_FALSE(IsHeld(*many));
    EXPECT_FALSE(ParseScontrolJob("slurm_load_jobs error: Invalid job id specified\n"));
    EXPECT_FALSE(ParseScontrolJob("JobState= Partition=x"));
    EXPECT_TRUE(IsUnknownJobMessage("slurm_load_jobs error: Invalid job id specified\n"));
}

TEST(SlurmParseTest, ReturnCodeOfEveryStateAJobCanEndIn) {
    const std::tuple<const char*, const char*, std::optional<int>> cases[] = {
        {"COMPLETED", "0:0", 1},       {"FAILED", "2:0", 3},           {"FAILED", "97:0", 98},
        {"FAILED", "255:0", 98},       {"FAILED", "0:9", 98},          {"COMPLETED", "0:15", 98},
        {"FAILED", "", 98},            {"FAILED", "x:0", 98},          {"CANCELLED", "0:15", 98},
        {"CANCELLED", "0:0", 98},      {"TIMEOUT", "0:0", 98},         {"NODE_FAIL", "0:0", 98},
        {"OUT_OF_MEMORY", "0:125", 98}, {"PREEMPTED", "0:0", 98},      {"BOOT_FAIL", "0:0", 98},
        {"DEADLINE", "0:0", 98},       {"REVOKED", "0:0", 98},         {"SPECIAL_EXIT", "1:0", 98},
        {"PENDING", "0:0", std::nullopt}, {"RUNNING", "0:0", std::nullopt}, {"SUSPENDED", "0:0", std::nullopt},
        {"COMPLETING", "0:0", std::nullopt}, {"CONFIGURING", "0:0", std::nullopt},
        {"REQUEUED", "0:0", std::nullopt},
    };
    for (const auto& [state, exitCode, rc] : cases)
        EXPECT_EQ(StepRcOfJob({state, "None", "debug", exitCode}), rc) << state << " " << exitCode;
}

TEST(SlurmParseTest, DurationsAmountsAndReadingsOfSstat) {
    const std::pair<const char*, std::optional<int64_t>> durations[] = {
        {"00:00.000", 0},         {"01:02.5", 625'000'000},    {"1:02:03", 37'230'000'000},
        {"2-00:00:01", 1'728'010'000'000}, {"00:01.0000001", 10'000'001}, {"", std::nullopt},
        {"12", std::nullopt},     {"1:2:3:4", std::nullopt},   {"a:00", std::nullopt},
        {"-01:00", std::nullopt}, {"00:01.12345678", std::nullopt},
    };
    for (const auto& [text, ticks] : durations) EXPECT_EQ(ParseSlurmDuration(text), ticks) << text;
    const std::tuple<const char*, int64_t, std::optional<int64_t>> amounts[] = {
        {"0", 1024, 0},       {"2048K", 1024, 2'097'152}, {"1.5M", 1, 1'572'864}, {"12345", 1, 12'345},
        {"3", 1024, 3072},    {"1G", 1, 1'073'741'824},   {"", 1, std::nullopt},  {"K", 1, std::nullopt},
        {"1.2.3", 1, std::nullopt}, {"-5", 1, std::nullopt}, {"9999999999999P", 1, std::nullopt},
    };
    for (const auto& [text, unit, bytes] : amounts) EXPECT_EQ(ParseSlurmAmount(text, unit), bytes) << text;

    // As the cluster prints them: RSS in bytes, a disk figure converted all the same.
    const std::pair<const char*, SlurmUsage> readings[] = {
        {"00:00:01|1462272|8057|1.00M\n", {10'000'000, 1428, 8057, 1'048'576}},
        {"00:01:02.500|204800K|4096|1.5K", {625'000'000, 204800, 4096, 1536}},
    };
    const auto fields = [](const SlurmUsage& u) { return std::tie(u.cpuTicks, u.peakKb, u.readBytes, u.writtenBytes); };
    for (const auto& [text, expected] : readings) {
        const std::optional<SlurmUsage> usage = ParseSstat(text);
        ASSERT_TRUE(usage) << text;
        EXPECT_EQ(fields(*usage), fields(expected)) << text;
    }
    for (const char* text : {"", "\n", "00:01.000|0K|0", "x|0|0|0", "00:01.000||0|0"})
        EXPECT_FALSE(ParseSstat(text)) << text;
}

}  // namespace
}  // namespace vq
