#pragma once
// What the Slurm programs print, read as plain data: the job id of "sbatch --parsable",
// the fields of "scontrol show job", the readings of "sstat", and a finished job's return
// code. Nothing here runs a program.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vq {

// The job id of "sbatch --parsable": "4711" or "4711;cluster" on the last line.
std::optional<std::string> ParseSbatchJobId(std::string_view output);

// Why sbatch gave no job: Slurm can't be reached (no controller, no configuration, no
// answer) or it refused the job itself (a bad partition, a bad option).
enum class SbatchFailure { Unreachable, Refused };
SbatchFailure ClassifySbatchFailure(std::string_view error);
// The last line that a Slurm program wrote, without its "sbatch: error: " prefix.
std::string SlurmMessage(std::string_view text);

// The fields of "scontrol show job" (one line with -o, or several), each the first time it
// is given.
struct SlurmJob {
    std::string state;      // JobState, e.g. "RUNNING"
    std::string reason;     // Reason, e.g. "JobHeldUser"
    std::string partition;  // Partition
    std::string exitCode;   // ExitCode, "status:signal"
};
std::optional<SlurmJob> ParseScontrolJob(std::string_view output);
// "scontrol" says so of a job that it doesn't know (any more).
bool IsUnknownJobMessage(std::string_view error);
// A pending job held by a user or an administrator.
bool IsHeld(const SlurmJob& job);

// A finished job's return code, as the step's: COMPLETED or FAILED with ExitCode s:0 gives
// s + 1, at most 98; a signal or any other end (CANCELLED, TIMEOUT, NODE_FAIL, ...) 98.
// Nothing while the job is not finished.
std::optional<int> StepRcOfJob(const SlurmJob& job);

// One reading of "sstat -n -P --noconvert --format=AveCPU,MaxRSS,MaxDiskRead,MaxDiskWrite":
// amounts without a unit letter are bytes (MaxRSS too, with --noconvert).
struct SlurmUsage {
    int64_t cpuTicks = 0;  // 100-ns ticks, user and system together
    int64_t peakKb = 0;
    int64_t readBytes = 0;
    int64_t writtenBytes = 0;
};
std::optional<SlurmUsage> ParseSstat(std::string_view output);
// Slurm's durations: [D-][HH:]MM:SS[.mmm], in 100-ns ticks.
std::optional<int64_t> ParseSlurmDuration(std::string_view text);
// Slurm's amounts: a number with an optional K, M, G, T or P (powers of 1024); without a
// letter the number counts `unit`s.
std::optional<int64_t> ParseSlurmAmount(std::string_view text, int64_t unit);

}  // namespace vq
