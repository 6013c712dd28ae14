#include "runlet/LocalStep.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "runlet/Diagnostic.h"
#include "runlet/ReturnCode.h"

extern char** environ;

namespace vq {
namespace {

// "END " waits this long for a command that still runs; the server gives up after 30 s.
constexpr int kEndWaitMs = 20'000;
// How long the runner waits for killed processes to be gone.
constexpr int kReapWaitMs = 5'000;
// How often the runner reads the step while no command comes: twice as often as the
// server's polls, at a cost of about 0.5 % of a core for a step of 100 processes.
constexpr int kWatchMs = 1'000;
// "STOP" and "STRT" wait this long before they answer that the group isn't there yet.
constexpr int kStateWaitMs = 50;

int64_t Ticks100ns(const timeval& t) {
    return static_cast<int64_t>(t.tv_sec) * 10'000'000 + static_cast<int64_t>(t.tv_usec) * 10;
}

bool IsGone(char state) { return state == 'Z' || state == 'X'; }

}  // namespace

// The runner is linked statically, where the user database of the C library isn't at hand:
// the local password file, then the login name that the session gave.
std::string OwnLogin() {
    if (const std::optional<std::string> passwd = ReadSmallFile("/etc/passwd")) {
        std::string login = LoginOfUser(*passwd, ::geteuid());
        if (!login.empty()) return login;
    }
    for (const char* variable : {"LOGNAME", "USER"})
        if (const char* name = ::getenv(variable); name && *name) return name;
    return {};
}

std::vector<std::string> OwnEnvironment() {
    std::vector<std::string> variables;
    for (char** v = environ; v && *v; ++v) variables.emplace_back(*v);
    return variables;
}

LocalStep::LocalStep(const volatile sig_atomic_t& endRequested)
    : endRequested_(endRequested),
      ticksPerSecond_(::sysconf(_SC_CLK_TCK)),
      meter_(ticksPerSecond_),
      runner_(::getpid()) {}

int LocalStep::WatchIntervalMs() const { return kWatchMs; }

StartOutcome LocalStep::Start(const StepInput& input) {
    start_ = input.start;
    // The user database is read only when the name isn't $LOCALUSER$.
    const bool localUser = UserAllowed(TrimRight(input.start.UserName), "");
    plan_ = MakeStepPlan(input, OwnEnvironment(), localUser ? std::string() : OwnLogin());
    notes_ = plan_.notes;
    if (plan_.Refused()) {
        startError_ = plan_.refusal;
        ended_ = true;
        return StartOutcome::Refused;
    }
    LaunchResult launched = LaunchStep(plan_);
    notes_.insert(notes_.end(), launched.notes.begin(), launched.notes.end());
    if (!launched.Started()) {
        startError_ = "The step could not be started. " + launched.error;
        ended_ = true;
        return StartOutcome::Failed;
    }
    shell_ = launched.pid;
    if (!guard_.Start(shell_)) notes_.push_back("The guard of the step could not be started.");
    Refresh();  // the guard knows the step from its first moment
    return StartOutcome::Started;
}

// Waits briefly for the whole group to reach the state, so that the server seldom has to ask
// again; the answer comes well within the server's patience all the same.
bool LocalStep::Stop() {
    if (ended_) return true;
    held_ = true;
    const int64_t deadline = MonotonicMs() + kStateWaitMs;
    for (;;) {
        SignalStepProcesses(SIGSTOP);
        if (AllInState(true) || MonotonicMs() >= deadline) break;
        SleepMs(2);
        Refresh();
    }
    Refresh();
    return ended_ || AllInState(true);
}

bool LocalStep::Continue() {
    if (ended_) return true;
    held_ = false;
    const int64_t deadline = MonotonicMs() + kStateWaitMs;
    for (;;) {
        SignalStepProcesses(SIGCONT);
        if (AllInState(false) || MonotonicMs() >= deadline) break;
        SleepMs(2);
        Refresh();
    }
    Refresh();
    return ended_ || AllInState(false);
}

bool LocalStep::AllInState(bool stopped) const {
    for (const ProcessInfo& p : processes_) {
        const char state = p.stat.state;
        if (IsGone(state)) continue;
        // A process in uninterruptible sleep runs no code of its own until it wakes, and then
        // the stop it holds takes it at once. A shell in vfork waits so for a child that was
        // stopped before its exec, and would never reach 'T' while that child stays stopped.
        const bool isStopped = state == 'T' || state == 't' || (stopped && state == 'D');
        if (isStopped != stopped) return false;
    }
    return true;
}

std::string LocalStep::ChangePriority(int32_t code) {
    const std::optional<int> nice = NiceForPriority(code);
    if (!nice) return "Unknown CPU priority code " + std::to_string(code) + ".";
    // A nice value belongs to each thread, so every thread of every process gets it.
    int failure = 0;
    for (const ProcessInfo& p : processes_) {
        if (IsGone(p.stat.state)) continue;
        for (pid_t thread : proc_.ListThreads(p.stat.pid))
            if (::setpriority(PRIO_PROCESS, static_cast<id_t>(thread), *nice) != 0 && errno != ESRCH)
                failure = errno;
    }
    if (failure == 0) return {};
    return "CPU priority " + PriorityText(code) + " (nice " + std::to_string(*nice) +
           ") refused by the system: " + std::strerror(failure);
}

std::string LocalStep::WriteDiagnostic() {
    DiagnosticHeader header;
    header.taskId = TrimRight(start_.TaskIdText);
    header.taskName = TrimRight(start_.TaskName);
    header.step = start_.StepNumber;
    header.group = shell_;
    header.stepState = ended_ ? "ended" : held_ ? "held" : "running";
    header.takenAt = LocalTimeText();
    std::vector<ProcessInfo> snapshot;
    for (const ProcessInfo& p : processes_)
        if (std::optional<ProcessInfo> info = proc_.ReadProcess(p.stat.pid)) snapshot.push_back(std::move(*info));
    return WriteDiagnosticFile(plan_, FormatDiagnostic(header, snapshot, ticksPerSecond_));
}

void LocalStep::Kill() {
    if (shell_ <= 0) return;
    killedByRunner_ = true;
    SignalStepProcesses(SIGKILL);
}

int LocalStep::Finish() {
    if (shell_ > 0) {
        if (!ended_) WaitForChildEnd(shell_, kEndWaitMs, endRequested_);
        Refresh();
        if (!ended_ && !killedByRunner_) {
            notes_.push_back("The step still ran at \"END \" and was killed.");
            killedByRunner_ = true;
        }
    }
    if (shell_ > 0 && !killedByRunner_) {
        const auto left = std::count_if(processes_.begin(), processes_.end(),
                                        [](const ProcessInfo& p) { return !IsGone(p.stat.state); });
        if (left > 0)
            notes_.push_back(std::to_string(left) + " process" + (left == 1 ? "" : "es") +
                             " of the step still ran after its command had ended and " +
                             (left == 1 ? "was" : "were") + " killed.");
    }
    TerminateStep(true);
    rusage children{};
    if (shell_ > 0 && ::getrusage(RUSAGE_CHILDREN, &children) == 0)
        meter_.Final(Ticks100ns(children.ru_utime), Ticks100ns(children.ru_stime), children.ru_maxrss);
    return FinalStepRc();
}

void LocalStep::ReapEnded() {
    while (const std::optional<EndedChild> child = PeekEndedChild()) {
        if (child->pid == guard_.Pid()) {
            ReapChild(child->pid);
            guard_.Forget();
            continue;
        }
        // Read the last figures of the process while it can still be read.
        if (const std::optional<ProcessInfo> info = proc_.ReadProcess(child->pid, false)) meter_.Reaped(*info);
        if (child->pid == shell_) {
            ended_ = true;
            endHow_ = child->how;
            endStatus_ = child->status;
        }
        ReapChild(child->pid);
    }
}

void LocalStep::Refresh() {
    if (shell_ <= 0) return;
    ReapEnded();
    processes_.clear();
    std::optional<std::vector<pid_t>> pids = DescendantPids(proc_, runner_, guard_.Pid());
    if (!pids) {
        // Without children files: read every process and pick the step's.
        std::vector<ProcessStat> all;
        for (pid_t pid : proc_.ListPids())
            if (std::optional<ProcessStat> stat = proc_.ReadStat(pid)) all.push_back(std::move(*stat));
        if (!all.empty()) pids = StepPids(all, runner_, shell_, guard_.Pid());
    }
    countersValid_ = pids.has_value();
    if (!pids) return;
    for (pid_t pid : *pids)
        if (std::optional<ProcessInfo> info = proc_.ReadProcess(pid, false)) processes_.push_back(std::move(*info));
    meter_.Sample(processes_);
    guard_.Know(processes_);
}

void LocalStep::SignalStepProcesses(int signal) const {
    bool groupLives = false;
    std::vector<pid_t> outside;
    for (const ProcessInfo& p : processes_) {
        if (p.stat.pgrp == shell_)
            groupLives = true;
        else
            outside.push_back(p.stat.pid);
    }
    // The group's number is only used while a member holds it, so that it can't be another's.
    SignalStep(groupLives ? shell_ : 0, outside, signal);
}

void LocalStep::TerminateStep(bool freshReading) {
    if (shell_ <= 0) return;
    const int64_t deadline = MonotonicMs() + kReapWaitMs;
    for (;;) {
        if (!freshReading) Refresh();
        freshReading = false;
        if (processes_.empty() && ended_) return;
        SignalStepProcesses(SIGKILL);
        if (MonotonicMs() >= deadline) {
            notes_.push_back(std::to_string(processes_.size()) + " process(es) of the step could not be ended.");
            return;
        }
        SleepMs(1);
    }
}

int LocalStep::FinalStepRc() {
    if (!startError_.empty() || !ended_) return kStepRcFailed;
    if (!killedByRunner_)
        if (const std::optional<int> rc = StepRcFromFileRc(plan_.fileRcPath, notes_)) return *rc;
    return StepRcFromEnd(endHow_, endStatus_);
}

StepSnapshot LocalStep::Snapshot() const {
    StepSnapshot snapshot;
    snapshot.counters = meter_.Counters();
    snapshot.countersValid = shell_ > 0 && countersValid_;
    snapshot.ended = ended_;
    snapshot.held = held_;
    snapshot.stepRc = !ended_ ? 0 : startError_.empty() ? StepRcFromEnd(endHow_, endStatus_) : kStepRcFailed;
    return snapshot;
}

}  // namespace vq
