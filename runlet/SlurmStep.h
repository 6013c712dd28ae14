#pragma once
// A step run as a job of a Slurm cluster: handed over with sbatch, looked at with scontrol
// and sstat every few seconds, suspended, held, re-prioritised and cancelled through Slurm,
// and cancelled by its guard when the runner dies.
#include <signal.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/UniqueFd.h"
#include "runlet/RunletOptions.h"
#include "runlet/SlurmCommands.h"
#include "runlet/SlurmParse.h"
#include "runlet/StepBackend.h"

namespace vq {

// The start of "Slurm can't be used" texts, which the server looks for.
inline constexpr const char* kSlurmUnusable = "Slurm can't be used: ";

// The sbatch call of a step, worked out before it is made: its arguments, the batch script
// on its standard input, and the step's environment as its own (passed on with --export=ALL).
// `privileged`: the user may give a job a negative nice value.
CommandRequest MakeSbatchRequest(const StepPlan& plan, const StartRecord& start, const RunletOptions& options,
                                 bool privileged, std::vector<std::string>& notes);
// Why sbatch gave no job, as the server reads it: Slurm can't be used at all (kSlurmUnusable),
// or it refused this job.
std::string SbatchFailureText(const CommandResult& result);
// The Slurm nice value of a CPU priority code; a negative one only for a privileged user,
// else 0 with a note of what was asked.
int SlurmNice(int code, bool privileged, std::vector<std::string>& notes);

// A small process beside the runner that cancels the job when the runner is gone without a
// word (killed from outside).
class JobGuard {
public:
    JobGuard() = default;
    JobGuard(const JobGuard&) = delete;
    JobGuard& operator=(const JobGuard&) = delete;
    ~JobGuard() { Release(); }

    bool Start();
    void Know(const std::string& jobId);
    // The job needs no guard any more: the guard ends without doing anything.
    void Release();

private:
    pid_t pid_ = -1;
    UniqueFd pipe_;
};

class SlurmStep : public StepBackend {
public:
    SlurmStep(RunletOptions options, const volatile sig_atomic_t& endRequested);

    StartOutcome Start(const StepInput& input) override;
    int WatchIntervalMs() const override;
    void Watch() override;
    void Refresh() override {}  // the answers come from the last poll, at once
    StepSnapshot Snapshot() const override;
    bool Stop() override;
    bool Continue() override;
    std::string ChangePriority(int32_t code) override;
    std::string WriteDiagnostic() override;
    void Kill() override;
    int Finish() override;
    void Abandon() override;
    void ReleaseGuard() override { guard_.Release(); }
    std::string StatusText() const override;
    std::string EndText() const override { return JoinLines(startError_, notes_); }

private:
    StartOutcome Submit(const StepInput& input);
    // Asks Slurm for the job's state (and, while it runs, its counters).
    void Poll();
    bool ReadJob();
    void ReadUsage();
    CommandResult Slurm(std::vector<std::string> arguments, int timeoutMs = 0);
    // Runs a command on the job; a refusal becomes a note, and false.
    bool Order(const std::vector<std::string>& arguments, const char* what);
    void Cancel();
    bool Ended() const { return !startError_.empty() || stepRc_.has_value(); }

    RunletOptions options_;
    const volatile sig_atomic_t& endRequested_;
    StepPlan plan_;
    StartRecord start_;
    JobGuard guard_;
    std::string jobId_;
    SlurmJob job_;             // at the last poll
    bool jobKnown_ = false;    // scontrol has told of the job at least once
    std::optional<int> stepRc_;  // once the job has ended
    std::optional<SlurmUsage> usage_;
    std::string lastSstat_;
    int64_t nextPollMs_ = 0;
    bool held_ = false;
    std::optional<int> niceWhenGoingOn_;  // asked for while the job was held
    enum class Asked { Nothing, Suspend, Hold, Resume, Release } asked_ = Asked::Nothing;
    bool killedByRunner_ = false;
    std::string startError_;
    std::vector<std::string> notes_;
};

}  // namespace vq
