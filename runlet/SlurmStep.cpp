#include "runlet/SlurmStep.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "runlet/Diagnostic.h"
#include "runlet/LocalStep.h"
#include "runlet/ReturnCode.h"
#include "runlet/ShellWords.h"
#include "runlet/StepProcess.h"

namespace vq {
namespace {

// Every Slurm program is killed past its bound, so that the runner answers within the
// server's 30 s: sbatch may take a while to reach a busy controller, the others are quick.
constexpr int kSbatchTimeoutMs = 12'000;
constexpr int kCommandTimeoutMs = 5'000;
// "END " waits this long for the job to end; then it is cancelled.
constexpr int kEndWaitMs = 15'000;
constexpr int kEndPollMs = 250;
// "STOP" and "STRT" look again this long for the state that they asked for.
constexpr int kStateWaitMs = 300;

// A job name of the task key and the step, in characters that every Slurm tool shows as they are.
std::string JobName(const StartRecord& start) {
    std::string key = TrimRight(start.TaskIdText);
    if (key.empty()) key = std::to_string(start.TaskId);
    std::string name = key + "-" + std::to_string(start.StepNumber);
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_' && c != '.') c = '_';
    return name;
}

// Slurm reads % in a file name as a pattern; %% is a %.
std::string LiteralFileName(const std::string& path) {
    std::string literal;
    for (char c : path) {
        literal += c;
        if (c == '%') literal += '%';
    }
    return literal;
}

// The command as one single-quoted shell word. sbatch refuses a script with CR LF in it, so a
// CR is made by printf at run time instead of standing in the script.
std::string QuoteCommand(const std::string& command) {
    std::string quoted = QuoteForShell(command);
    std::string result;
    for (char c : quoted) {
        if (c == '\r')
            result += "'\"$(printf '\\r')\"'";
        else
            result += c;
    }
    return result;
}

std::string WithCrLf(const std::string& text) {
    std::string result;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\n' && (at == 0 || text[at - 1] != '\r')) result += '\r';
        result += text[at];
    }
    return result;
}

}  // namespace

std::string SbatchFailureText(const CommandResult& result) {
    const std::string unusable = kSlurmUnusable;
    if (!result.found) return unusable + "sbatch was not found on PATH.";
    if (!result.runError.empty()) return unusable + "sbatch can't be run: " + result.runError + ".";
    if (result.timedOut)
        return unusable + "sbatch did not answer within " + std::to_string(kSbatchTimeoutMs / 1000) + " seconds.";
    if (result.exitStatus == 0) return unusable + "sbatch gave no job id but \"" + SlurmMessage(result.output) + "\".";
    if (ClassifySbatchFailure(result.error) == SbatchFailure::Unreachable)
        return unusable + "sbatch can't reach the controller: " + SlurmMessage(result.error);
    return "The step could not be started. " + SlurmMessage(result.error);
}

int SlurmNice(int code, bool privileged, std::vector<std::string>& notes) {
    const int nice = NiceForPriority(code).value_or(0);
    if (nice >= 0 || privileged) return nice;
    notes.push_back("CPU priority " + PriorityText(code) + " (nice " + std::to_string(nice) +
                    ") needs a privileged Slurm user; the job was given nice 0.");
    return 0;
}

CommandRequest MakeSbatchRequest(const StepPlan& plan, const StartRecord& start, const RunletOptions& options,
                                 bool privileged, std::vector<std::string>& notes) {
    CommandRequest request;
    request.arguments = {"sbatch", "--parsable"};
    // The cluster's own options first, so that those the step depends on come last and win.
    request.arguments.insert(request.arguments.end(), options.sbatchArgs.begin(), options.sbatchArgs.end());
    const std::string output = LiteralFileName(plan.outputFile.empty() ? "/dev/null" : plan.outputFile);
    for (std::string argument : {"--job-name=" + JobName(start), "--chdir=" + plan.workDir, "--output=" + output,
                                 "--error=" + output, std::string("--open-mode=append"), std::string("--export=ALL")})
        request.arguments.push_back(std::move(argument));
    if (!options.partition.empty()) request.arguments.push_back("--partition=" + options.partition);
    if (!options.account.empty()) request.arguments.push_back("--account=" + options.account);
    request.arguments.push_back("--nice=" + std::to_string(SlurmNice(start.Priority, privileged, notes)));
    request.input = "#!/bin/sh\nexec /bin/sh -c " + QuoteCommand(plan.arguments.back()) + "\n";
    request.environment = plan.environment;
    request.timeoutMs = kSbatchTimeoutMs;
    return request;
}

// The guard's pipe carries the job id once, then "D" when the job needs no guard.
bool JobGuard::Start() {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
    UniqueFd readEnd(fds[0]), writeEnd(fds[1]);
    const pid_t pid = ForkGuard(readEnd.Get());
    if (pid < 0) return false;
    if (pid == 0) {
        std::string said;
        char buffer[64];
        for (;;) {
            const ssize_t n = ::read(readEnd.Get(), buffer, sizeof buffer);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            said.append(buffer, static_cast<size_t>(n));
        }
        // Only a runner gone without "D" leaves a job to cancel.
        const std::string jobId = said.substr(0, said.find('\n'));
        if (!jobId.empty() && said.find('D') == std::string::npos)
            RunCommand({{"scancel", jobId}, {}, std::nullopt, kCommandTimeoutMs});
        ::_exit(0);
    }
    pid_ = pid;
    pipe_ = std::move(writeEnd);
    return true;
}

void JobGuard::Know(const std::string& jobId) {
    if (pid_ <= 0) return;
    const std::string line = jobId + "\n";
    [[maybe_unused]] ssize_t n = ::write(pipe_.Get(), line.data(), line.size());
}

void JobGuard::Release() {
    if (pid_ <= 0) return;
    [[maybe_unused]] ssize_t n = ::write(pipe_.Get(), "D", 1);
    pipe_.Reset();
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
}

SlurmStep::SlurmStep(RunletOptions options, const volatile sig_atomic_t& endRequested)
    : options_(std::move(options)), endRequested_(endRequested) {}

StartOutcome SlurmStep::Start(const StepInput& input) {
    start_ = input.start;
    const bool localUser = UserAllowed(TrimRight(input.start.UserName), "");
    plan_ = MakeStepPlan(input, OwnEnvironment(), localUser ? std::string() : OwnLogin());
    notes_ = plan_.notes;
    if (plan_.Refused()) {
        startError_ = plan_.refusal;
        return StartOutcome::Refused;
    }
    // Slurm opens the output file on the node: its folder must be there first.
    if (const std::string error = MakeTaskFolder(plan_.taskFolder); !error.empty()) {
        startError_ = "The step could not be started. " + error;
        return StartOutcome::Failed;
    }
    if (!guard_.Start()) notes_.push_back("The guard of the Slurm job could not be started.");
    return Submit(input);
}

StartOutcome SlurmStep::Submit(const StepInput& input) {
    const CommandResult result = RunCommand(MakeSbatchRequest(plan_, input.start, options_, ::geteuid() == 0, notes_));
    const std::optional<std::string> jobId = result.Succeeded() ? ParseSbatchJobId(result.output) : std::nullopt;
    if (jobId) {
        jobId_ = *jobId;
        guard_.Know(jobId_);
        Poll();
        return StartOutcome::Started;
    }
    startError_ = SbatchFailureText(result);
    // A controller that was slow to answer may have queued the job all the same.
    if (result.timedOut) Slurm({"scancel", "--me", "--name=" + JobName(input.start)});
    guard_.Release();
    return StartOutcome::Failed;
}

CommandResult SlurmStep::Slurm(std::vector<std::string> arguments, int timeoutMs) {
    return RunCommand({std::move(arguments), {}, std::nullopt, timeoutMs > 0 ? timeoutMs : kCommandTimeoutMs});
}

int SlurmStep::WatchIntervalMs() const {
    if (jobId_.empty() || Ended()) return -1;
    return static_cast<int>(std::clamp<int64_t>(nextPollMs_ - MonotonicMs(), 0, options_.pollSeconds * 1000));
}

void SlurmStep::Watch() {
    if (!jobId_.empty() && !Ended() && MonotonicMs() >= nextPollMs_) Poll();
}

void SlurmStep::Poll() {
    nextPollMs_ = MonotonicMs() + options_.pollSeconds * 1000;
    if (ReadJob() && !Ended() && job_.state != "PENDING") ReadUsage();
}

// False when Slurm could not be asked; a job that Slurm no longer knows has ended.
bool SlurmStep::ReadJob() {
    const CommandResult result = Slurm({"scontrol", "show", "job", "-o", jobId_});
    if (!result.Succeeded()) {
        if (result.runError.empty() && !result.timedOut && IsUnknownJobMessage(result.error)) {
            notes_.push_back("Slurm no longer knows job " + jobId_ + ".");
            stepRc_ = kStepRcFailed;
        }
        return false;
    }
    const std::optional<SlurmJob> job = ParseScontrolJob(result.output);
    if (!job) return false;
    job_ = *job;
    jobKnown_ = true;
    stepRc_ = StepRcOfJob(job_);
    return true;
}

void SlurmStep::ReadUsage() {
    const CommandResult result = Slurm({"sstat", "-n", "-P", "--noconvert", "-j", jobId_ + ".batch",
                                        "--format=AveCPU,MaxRSS,MaxDiskRead,MaxDiskWrite"});
    if (!result.Succeeded()) return;
    const std::optional<SlurmUsage> usage = ParseSstat(result.output);
    if (!usage) return;
    lastSstat_ = result.output;
    // What is reported never goes down, so that the server's sums only grow.
    if (usage_) {
        usage_->cpuTicks = std::max(usage_->cpuTicks, usage->cpuTicks);
        usage_->peakKb = std::max(usage_->peakKb, usage->peakKb);
        usage_->readBytes = std::max(usage_->readBytes, usage->readBytes);
        usage_->writtenBytes = std::max(usage_->writtenBytes, usage->writtenBytes);
    } else {
        usage_ = usage;
    }
}

StepSnapshot SlurmStep::Snapshot() const {
    StepSnapshot snapshot;
    snapshot.ended = Ended();
    snapshot.stepRc = !startError_.empty() ? kStepRcFailed : stepRc_.value_or(0);
    snapshot.held = held_;
    snapshot.countersValid = usage_.has_value() && job_.state != "PENDING";
    if (usage_) {
        // Slurm gives user and system time together; the I/O count is in kilobytes moved.
        snapshot.counters.userTime = usage_->cpuTicks;
        snapshot.counters.peakKb = usage_->peakKb;
        snapshot.counters.ioCalls = (usage_->readBytes + usage_->writtenBytes) / 1024;
    }
    return snapshot;
}

std::string SlurmStep::StatusText() const {
    if (!startError_.empty()) return startError_;
    const std::string partition = !job_.partition.empty()      ? job_.partition
                                  : !options_.partition.empty() ? options_.partition
                                                                : std::string("(default)");
    return "Slurm job " + jobId_ + " in partition " + partition + ".";
}

bool SlurmStep::Order(const std::vector<std::string>& arguments, const char* what) {
    const CommandResult result = Slurm(arguments);
    if (result.Succeeded()) return true;
    const std::string note = std::string("Slurm did not ") + what + " job " + jobId_ + ": " +
                             (result.timedOut ? std::string("no answer in time") : SlurmMessage(result.error + result.output));
    // A refusal asked again is told once.
    if (std::find(notes_.begin(), notes_.end(), note) == notes_.end()) notes_.push_back(note);
    return false;
}

// A running job is suspended, a pending one held in the queue; the answer waits briefly for
// Slurm to report the state, and "not yet" otherwise.
bool SlurmStep::Stop() {
    if (Ended()) return true;
    held_ = true;
    const int64_t deadline = MonotonicMs() + kStateWaitMs;
    for (;;) {
        ReadJob();
        if (Ended() || job_.state == "SUSPENDED" || IsHeld(job_)) return true;
        const bool pending = job_.state == "PENDING";
        const Asked needed = pending ? Asked::Hold : Asked::Suspend;
        if (asked_ != needed) {
            asked_ = needed;
            if (!Order({"scontrol", pending ? "hold" : "suspend", jobId_}, pending ? "hold" : "suspend")) {
                held_ = false;
                asked_ = Asked::Nothing;
                return true;  // refused: it goes on as it was
            }
            continue;
        }
        if (MonotonicMs() >= deadline) return false;
        SleepMs(50);
    }
}

bool SlurmStep::Continue() {
    if (Ended()) return true;
    held_ = false;
    const int64_t deadline = MonotonicMs() + kStateWaitMs;
    for (;;) {
        ReadJob();
        const bool suspended = job_.state == "SUSPENDED";
        if (Ended() || (!suspended && !IsHeld(job_))) {
            if (niceWhenGoingOn_ && !Ended())
                Order({"scontrol", "update", "JobId=" + jobId_, "Nice=" + std::to_string(*niceWhenGoingOn_)},
                      "change the nice value of");
            niceWhenGoingOn_.reset();
            return true;
        }
        const Asked needed = suspended ? Asked::Resume : Asked::Release;
        if (asked_ != needed) {
            asked_ = needed;
            if (!Order({"scontrol", suspended ? "resume" : "release", jobId_}, suspended ? "resume" : "release")) {
                held_ = true;
                asked_ = Asked::Nothing;
                return true;
            }
            continue;
        }
        if (MonotonicMs() >= deadline) return false;
        SleepMs(50);
    }
}

std::string SlurmStep::ChangePriority(int32_t code) {
    if (!NiceForPriority(code)) return "Unknown CPU priority code " + std::to_string(code) + ".";
    std::vector<std::string> notes;
    const int nice = SlurmNice(code, ::geteuid() == 0, notes);
    if (Ended()) return {};
    // Slurm lets a new nice value release a held or suspended job: it waits for "STRT".
    if (held_) {
        niceWhenGoingOn_ = nice;
        return JoinLines({}, notes);
    }
    const CommandResult result = Slurm({"scontrol", "update", "JobId=" + jobId_, "Nice=" + std::to_string(nice)});
    if (!result.Succeeded())
        notes.push_back("CPU priority " + PriorityText(code) + " (nice " + std::to_string(nice) + ") refused by Slurm: " +
                        (result.timedOut ? std::string("no answer in time") : SlurmMessage(result.error + result.output)));
    return JoinLines({}, notes);
}

std::string SlurmStep::WriteDiagnostic() {
    std::string text = "Diagnostic of step " + std::to_string(start_.StepNumber) + " of task " +
                       TrimRight(start_.TaskIdText) + " " + TrimRight(start_.TaskName) + "\n";
    text += "Taken " + LocalTimeText() + ", Slurm job " + jobId_ + ", step " +
            (Ended() ? "ended" : held_ ? "held" : "running") + "\n\n";
    if (!jobId_.empty()) {
        const CommandResult job = Slurm({"scontrol", "show", "job", jobId_});
        text += "scontrol show job " + jobId_ + ":\n" + (job.Succeeded() ? job.output : SlurmMessage(job.error)) + "\n";
    }
    text += "Last sstat reading (AveCPU|MaxRSS|MaxDiskRead|MaxDiskWrite):\n" +
            (lastSstat_.empty() ? std::string("none\n") : lastSstat_);
    return WriteDiagnosticFile(plan_, WithCrLf(text));
}

void SlurmStep::Kill() {
    if (jobId_.empty() || Ended()) return;
    killedByRunner_ = true;
    // A job that runs is killed at once (SIGKILL reaches the batch script and all its
    // processes), whatever it would do with a gentler signal.
    if (job_.state != "PENDING") Order({"scancel", "--signal=KILL", jobId_}, "kill");
    Order({"scancel", jobId_}, "cancel");
    ReadJob();
}

void SlurmStep::Cancel() {
    if (!jobId_.empty() && !Ended()) Order({"scancel", jobId_}, "cancel");
}

int SlurmStep::Finish() {
    if (!startError_.empty()) return kStepRcFailed;
    const int64_t deadline = MonotonicMs() + kEndWaitMs;
    while (!Ended() && MonotonicMs() < deadline && !endRequested_) {
        ReadJob();
        if (!Ended()) SleepMs(kEndPollMs);
    }
    if (!Ended()) {
        notes_.push_back("The step still ran at \"END \" and was cancelled.");
        killedByRunner_ = true;
        Cancel();
        return kStepRcFailed;
    }
    if (!killedByRunner_)
        if (const std::optional<int> rc = StepRcFromFileRc(plan_.fileRcPath, notes_)) return *rc;
    if (jobKnown_ && !killedByRunner_ && *stepRc_ == kStepRcFailed && job_.state != "COMPLETED")
        notes_.push_back("Slurm job " + jobId_ + " ended " + job_.state + " (" +
                         (job_.reason.empty() || job_.reason == "None" ? "" : job_.reason + ", ") + "exit code " +
                         job_.exitCode + ").");
    return *stepRc_;
}

void SlurmStep::Abandon() { Cancel(); }

}  // namespace vq
