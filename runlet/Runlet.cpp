#include "runlet/Runlet.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "runlet/Diagnostic.h"
#include "runlet/ReturnCode.h"

extern char** environ;

namespace vq {
namespace {

volatile sig_atomic_t g_endRequested = 0;

constexpr int32_t kLongestBlock = 16 * 1024 * 1024;
// "END " waits this long for a command that still runs; the server gives up after 30 s.
constexpr int kEndWaitMs = 20'000;
// How long the runner waits for killed processes to be gone.
constexpr int kReapWaitMs = 5'000;
// How often the runner reads the step while no command comes: twice as often as the
// server's polls, at a cost of about 0.5 % of a core for a step of 100 processes.
constexpr int kWatchMs = 1'000;
// "STOP" and "STRT" wait this long before they answer that the group isn't there yet.
constexpr int kStateWaitMs = 50;

bool ReadExact(int fd, char* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::read(fd, buffer + done, size - done);
        if (n < 0 && errno == EINTR && !g_endRequested) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

bool WriteAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

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

int64_t Ticks100ns(const timeval& t) {
    return static_cast<int64_t>(t.tv_sec) * 10'000'000 + static_cast<int64_t>(t.tv_usec) * 10;
}

bool IsGone(char state) { return state == 'Z' || state == 'X'; }

}  // namespace

void RequestRunletEnd() { g_endRequested = 1; }

Runlet::Runlet(int input, int output)
    : input_(input),
      output_(output),
      ticksPerSecond_(::sysconf(_SC_CLK_TCK)),
      meter_(ticksPerSecond_),
      runner_(::getpid()) {}

int Runlet::Run() {
    StepInput input;
    if (!ReadStart(input)) return 1;
    StartStep(input);
    const char* stage = plan_.Refused() ? "REFUSED" : !startError_.empty() ? "FAILED" : "STARTED";
    if (!SendAck(stage, shell_ > 0 ? 0 : 1)) {
        TerminateStep();
        return 1;
    }
    for (;;) {
        std::string bytes(CommandRecord::kSize, '\0');
        if (!WatchUntilCommand() || !ReadExact(input_, bytes.data(), bytes.size())) {
            // The server has gone: nothing of the step may outlive it.
            TerminateStep();
            guard_.Release();
            return 1;
        }
        if (!Answer(CommandRecord::Decode(bytes))) break;
    }
    guard_.Release();
    return 0;
}

bool Runlet::ReadBlock(int32_t length, const char* name, std::string& block) {
    if (length <= 0) return true;
    if (length <= kLongestBlock) {
        block.assign(static_cast<size_t>(length), '\0');
        return ReadExact(input_, block.data(), block.size());
    }
    // Read past a block too long to keep, so that the records after it are read right.
    startError_ = std::string("The ") + name + " block of " + std::to_string(length) +
                  " bytes is longer than the runner takes (" + std::to_string(kLongestBlock) + ").";
    std::string chunk(65536, '\0');
    for (int64_t left = length; left > 0;) {
        const size_t part = static_cast<size_t>(std::min<int64_t>(left, static_cast<int64_t>(chunk.size())));
        if (!ReadExact(input_, chunk.data(), part)) return false;
        left -= static_cast<int64_t>(part);
    }
    return true;
}

bool Runlet::ReadStart(StepInput& input) {
    std::string bytes(StartRecord::kSize, '\0');
    if (!ReadExact(input_, bytes.data(), bytes.size())) return false;
    input.start = StartRecord::Decode(bytes);
    start_ = input.start;
    return ReadBlock(input.start.CommandLength, "Command", input.command) &&
           ReadBlock(input.start.FileRcLength, "FileRC", input.fileRc) &&
           ReadBlock(input.start.EnvironLength, "Environ", input.environ);
}

void Runlet::StartStep(const StepInput& input) {
    if (!startError_.empty()) {
        ended_ = true;
        return;
    }
    // The user database is read only when the name isn't $LOCALUSER$.
    const bool localUser = UserAllowed(TrimRight(input.start.UserName), "");
    plan_ = MakeStepPlan(input, OwnEnvironment(), localUser ? std::string() : OwnLogin());
    notes_ = plan_.notes;
    if (plan_.Refused()) {
        startError_ = plan_.refusal;
        ended_ = true;
        return;
    }
    LaunchResult launched = LaunchStep(plan_);
    notes_.insert(notes_.end(), launched.notes.begin(), launched.notes.end());
    if (!launched.Started()) {
        startError_ = "The step could not be started. " + launched.error;
        ended_ = true;
        return;
    }
    shell_ = launched.pid;
    if (!guard_.Start(shell_)) notes_.push_back("The guard of the step could not be started.");
    Refresh();  // the guard knows the step from its first moment
}

bool Runlet::Answer(const CommandRecord& command) {
    const std::string& name = command.Command;
    std::string text;
    if (name == "END ") {
        FinishStep();
        ReplyRecord reply = MakeReply("END");
        reply.StepRc = FinalStepRc();
        reply.RunnerState = kRunnerEnding;
        Send(reply, JoinNotes());
        return false;
    }
    Refresh();
    ReplyRecord reply;
    if (name == "STAT") {
        reply = MakeReply("STAT");
    } else if (name == "STOP" || name == "STRT") {
        name == "STOP" ? Stop() : Continue();
        reply = MakeReply(name.c_str());
        if (!ended_ && !AllInState(name == "STOP")) {
            reply.WaitStatus = ReplyRecord::kWaitPending;
            reply.ReplyTextLength = -1;
        }
    } else if (name == "PRTY") {
        text = ChangePriority(command.Argument);
        reply = MakeReply("PRTY");
    } else if (name == "DIAG") {
        text = WriteDiagnostic();
        reply = MakeReply("DIAG");
    } else if (name == "KILL") {
        Kill();
        reply = MakeReply("KILL");
    } else {
        text = "Unknown command \"" + name + "\".";
        reply = MakeReply("UNKNOWN");
    }
    if (!Send(reply, text)) {
        TerminateStep();
        return false;
    }
    return true;
}

// Waits briefly for the whole group to reach the state, so that the server seldom has to ask
// again; the answer comes well within the server's patience all the same.
void Runlet::Stop() {
    if (ended_) return;
    held_ = true;
    const int64_t deadline = MonotonicMs() + kStateWaitMs;
    for (;;) {
        SignalStepProcesses(SIGSTOP);
        if (AllInState(true) || MonotonicMs() >= deadline) return;
        SleepMs(2);
        Refresh();
    }
}

void Runlet::Continue() {
    if (ended_) return;
    held_ = false;
    const int64_t deadline = MonotonicMs() + kStateWaitMs;
    for (;;) {
        SignalStepProcesses(SIGCONT);
        if (AllInState(false) || MonotonicMs() >= deadline) return;
        SleepMs(2);
        Refresh();
    }
}

bool Runlet::AllInState(bool stopped) const {
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

std::string Runlet::ChangePriority(int32_t code) {
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

std::string Runlet::WriteDiagnostic() {
    DiagnosticHeader header;
    header.taskId = TrimRight(start_.TaskIdText);
    header.taskName = TrimRight(start_.TaskName);
    header.step = start_.StepNumber;
    header.group = shell_;
    header.stepState = ended_ ? "ended" : held_ ? "held" : "running";
    header.takenAt = LocalTimeText();
    const std::string folder = !plan_.taskFolder.empty() ? plan_.taskFolder : plan_.workDir;
    const std::string path = (folder.empty() ? std::string(".") : folder) + "/Diag1.txt";
    std::vector<ProcessInfo> snapshot;
    for (const ProcessInfo& p : processes_)
        if (std::optional<ProcessInfo> info = proc_.ReadProcess(p.stat.pid)) snapshot.push_back(std::move(*info));
    const std::string text = FormatDiagnostic(header, snapshot, ticksPerSecond_);
    // Written whole: to a temporary file first, then renamed over the old one.
    const std::string temporary = path + ".tmp";
    UniqueFd fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!fd.Valid() || !WriteAll(fd.Get(), text) || ::fsync(fd.Get()) != 0) {
        const std::string reason = std::strerror(errno);
        ::unlink(temporary.c_str());
        return "Diag1.txt could not be written in \"" + folder + "\": " + reason;
    }
    fd.Reset();
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        const std::string reason = std::strerror(errno);
        ::unlink(temporary.c_str());
        return "Diag1.txt could not be written in \"" + folder + "\": " + reason;
    }
    return {};
}

void Runlet::Kill() {
    if (shell_ <= 0) return;
    killedByRunner_ = true;
    SignalStepProcesses(SIGKILL);
}

void Runlet::FinishStep() {
    if (shell_ > 0) {
        if (!ended_) WaitForChildEnd(shell_, kEndWaitMs, g_endRequested);
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
}

void Runlet::ReapEnded() {
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

void Runlet::Refresh() {
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

// Between commands the runner keeps reading the step, so that its guard knows each process,
// also an orphan of a double fork that came after the last command. False when the runner
// is asked to end; the timeout also catches a signal that came just before the wait.
bool Runlet::WatchUntilCommand() {
    pollfd input{input_, POLLIN, 0};
    for (;;) {
        if (g_endRequested) return false;
        const int ready = ::poll(&input, 1, kWatchMs);
        if (ready > 0) return true;
        if (ready == 0) Refresh();
    }
}

void Runlet::SignalStepProcesses(int signal) const {
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

void Runlet::TerminateStep(bool freshReading) {
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

int Runlet::FinalStepRc() {
    if (!startError_.empty() || !ended_) return kStepRcFailed;
    if (!killedByRunner_ && !plan_.fileRcPath.empty()) {
        const FileRcReading reading = ReadFileRc(plan_.fileRcPath);
        if (reading.rc) return *reading.rc;
        notes_.push_back("FileRC file \"" + plan_.fileRcPath + "\" " + reading.problem +
                         "; the exit status gives the return code.");
    }
    return StepRcFromEnd(endHow_, endStatus_);
}

std::string Runlet::JoinNotes() const {
    std::string text = startError_;
    for (const std::string& note : notes_) {
        if (!text.empty()) text += "\r\n";
        text += note;
    }
    return text;
}

ReplyRecord Runlet::MakeReply(const char* stage) const {
    ReplyRecord reply;
    reply.ReplyStage = stage;
    const StepCounters& counters = meter_.Counters();
    reply.CpuTimeA = counters.userTime;
    reply.CpuTimeB = counters.systemTime;
    reply.PeakMemory = static_cast<int32_t>(std::min<int64_t>(counters.peakKb, INT32_MAX));
    reply.IoCount = counters.ioCalls * 10'000;
    reply.CountersValid = shell_ > 0 && countersValid_ ? 1 : 0;
    reply.RunnerState = ended_ ? kRunnerEnded : held_ ? kRunnerHeld : kRunnerRunning;
    reply.StepRc = !ended_ ? 0 : startError_.empty() ? StepRcFromEnd(endHow_, endStatus_) : kStepRcFailed;
    return reply;
}

bool Runlet::Send(ReplyRecord reply, const std::string& text) {
    if (reply.ReplyTextLength != -1) reply.ReplyTextLength = static_cast<int32_t>(text.size());
    std::string bytes = reply.Encode();
    if (reply.ReplyTextLength > 0) bytes += text;
    return WriteAll(output_, bytes);
}

bool Runlet::SendAck(const char* stage, int32_t code) {
    StartAck ack;
    ack.AckStage = stage;
    ack.AckCode = code;
    return WriteAll(output_, ack.Encode());
}

}  // namespace vq
