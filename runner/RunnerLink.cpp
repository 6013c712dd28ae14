#include "runner/RunnerLink.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "calendar/Common.h"
#include "core/Server.h"
#include "platform/Error.h"

namespace vq {
namespace {

using SteadyClock = std::chrono::steady_clock;

// How long a runner whose input has been closed may take to end by itself before it is killed.
constexpr int kRunnerGraceMs = 2000;
// A reply text longer than this can only come from a broken stream.
constexpr int32_t kMaxReplyText = 16 * 1024 * 1024;

// Blocks SIGPIPE while the link writes, so that a runner that has gone away gives EPIPE
// instead of ending the server, and takes back a SIGPIPE raised meanwhile. The server's own
// handling of the signal stays as it was.
class SigpipeGuard {
  public:
    SigpipeGuard() {
        sigemptyset(&set_);
        sigaddset(&set_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &set_, &old_);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    }
    ~SigpipeGuard() {
        if (!wasPending_) {
            sigset_t pending;
            sigpending(&pending);
            if (sigismember(&pending, SIGPIPE) == 1) {
                const timespec zero{};
                sigtimedwait(&set_, nullptr, &zero);
            }
        }
        pthread_sigmask(SIG_SETMASK, &old_, nullptr);
    }
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

  private:
    sigset_t set_{}, old_{};
    bool wasPending_ = false;
};

SteadyClock::time_point DeadlineIn(int ms) {
    return SteadyClock::now() + std::chrono::milliseconds(ms);
}

// Waits until `fd` is ready for `events`: 1 ready (or hung up: the call that follows tells),
// 0 when the deadline passed, -errno after a failure.
int WaitReady(int fd, short events, SteadyClock::time_point deadline) {
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - SteadyClock::now());
        pollfd p{fd, events, 0};
        const int r = ::poll(&p, 1, static_cast<int>(std::max<int64_t>(left.count(), 0)));
        if (r > 0) return 1;
        if (r == 0) return 0;
        if (errno != EINTR) return -errno;
    }
}

// Reads `length` bytes in blocks of at most 4096 until the deadline.
int32_t ReadBlocks(int fd, int32_t length, std::string& text, SteadyClock::time_point deadline) {
    int32_t got = 0;
    char block[kRunnerTextSlice];
    while (got < length) {
        const int ready = WaitReady(fd, POLLIN, deadline);
        if (ready == 0) return -ETIMEDOUT;
        if (ready < 0) return ready;
        const size_t want = std::min<size_t>(kRunnerTextSlice, static_cast<size_t>(length - got));
        const ssize_t n = ::read(fd, block, want);
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN) continue;
            return -errno;
        }
        if (n == 0) break;  // end of file: the runner has gone
        text.append(block, static_cast<size_t>(n));
        got += static_cast<int32_t>(n);
    }
    return got;
}

// Writes one slice whole, waiting for room until the deadline.
int32_t WriteSliceTo(int fd, const char* data, size_t size, SteadyClock::time_point deadline) {
    size_t done = 0;
    while (done < size) {
        const int ready = WaitReady(fd, POLLOUT, deadline);
        if (ready == 0) return -ETIMEDOUT;
        if (ready < 0) return ready;
        const ssize_t n = ::write(fd, data + done, size - done);
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN) continue;
            return -errno;
        }
        done += static_cast<size_t>(n);
    }
    return static_cast<int32_t>(done);
}

int32_t WritePipe(int fd, const std::string& text, int32_t length,
                  SteadyClock::time_point deadline) {
    if (fd < 0) return -EBADF;
    return WriteInSlices(text, length, [fd, deadline](const char* data, size_t size) {
        return WriteSliceTo(fd, data, size, deadline);
    });
}

// True when the runner of `entry` has ended within `ms`; the process is not reaped here.
bool WaitForExit(const RunnerSlotEntry& entry, int ms) {
    if (entry.pid <= 0) return true;
    if (entry.processFd.Valid())
        return WaitReady(entry.processFd.Get(), POLLIN, DeadlineIn(ms)) == 1;
    // Without a pidfd: look without reaping until the time is up.
    const auto deadline = DeadlineIn(ms);
    for (;;) {
        siginfo_t info{};
        if (::waitid(P_PID, static_cast<id_t>(entry.pid), &info, WEXITED | WNOHANG | WNOWAIT) ==
                0 &&
            info.si_pid == entry.pid)
            return true;
        if (SteadyClock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Closes the pipes of an entry and ends its runner: the closed input asks it to end (and to
// take the step's processes with it); one that hasn't within the grace is killed. Reaped.
void CloseEntry(RunnerSlotEntry& entry) {
    entry.commandPipe.Reset();
    entry.replyPipe.Reset();
    if (entry.pid > 0) {
        if (!WaitForExit(entry, kRunnerGraceMs)) ::kill(entry.pid, SIGKILL);
        while (::waitpid(entry.pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    entry.pid = -1;
    entry.processFd.Reset();
}

void UseStandInReply(RunnerLink& link, const RunnerSlotEntry& entry) {
    link.reply = LostRunnerReply(entry);
    link.ReplyText = kRunnerEndedText;
}

// The runner of the entry died, fell silent or broke the stream: it is ended, and the slot
// answers from now on as a step that ended with return code 98.
void MarkLost(RunnerSlotEntry& entry) {
    entry.lost = true;
    CloseEntry(entry);
}

void RunnerLost(RunnerLink& link, RunnerSlotEntry& entry) {
    MarkLost(entry);
    UseStandInReply(link, entry);
}

void RememberCounters(RunnerSlotEntry& entry, const ReplyRecord& reply) {
    entry.lastCpuTimeA = reply.CpuTimeA;
    entry.lastCpuTimeB = reply.CpuTimeB;
    entry.lastIoCount = reply.IoCount;
    entry.lastPeakMemory = reply.PeakMemory;
}

RunnerSlotEntry& CurrentEntry(RunnerLink& link) {
    if (link.currentSlot < 0 || link.currentSlot >= kRunnerSlots)
        throw VqError("Subscript out of range", 9);
    return link.slots[static_cast<size_t>(link.currentSlot)];
}

void CheckSlot(const Server& server, uint8_t slot) {
    if (slot >= kRunnerSlots || slot >= server.SlotUsed.size())
        throw VqError("Subscript out of range", 9);
}

void CommandExchange(RunnerLink& link, RunnerSlotEntry& entry) {
    if (entry.lost || !entry.commandPipe.Valid() || !entry.replyPipe.Valid()) {
        // No runner to ask: never launched, lost, or ended after its "END ".
        UseStandInReply(link, entry);
        return;
    }
    SigpipeGuard guard;
    const auto deadline = DeadlineIn(link.replyTimeoutMs);
    // 1. The command record.
    const std::string command = link.command.Encode();
    if (WritePipe(entry.commandPipe.Get(), command, static_cast<int32_t>(command.size()),
                  deadline) != static_cast<int32_t>(command.size()))
        return RunnerLost(link, entry);
    // 2. The reply record.
    std::string bytes;
    if (ReadBlocks(entry.replyPipe.Get(), ReplyRecord::kSize, bytes, deadline) !=
        static_cast<int32_t>(ReplyRecord::kSize))
        return RunnerLost(link, entry);
    const ReplyRecord reply = ReplyRecord::Decode(bytes);
    // 3. Its text.
    if (reply.ReplyTextLength > kMaxReplyText) return RunnerLost(link, entry);
    if (reply.ReplyTextLength > 0) {
        std::string text;
        if (ReadBlocks(entry.replyPipe.Get(), reply.ReplyTextLength, text, deadline) !=
            reply.ReplyTextLength)
            return RunnerLost(link, entry);
        link.ReplyText = std::move(text);
    }
    link.reply = reply;
    if (reply.CountersValid == 1 || reply.RunnerState >= 4) RememberCounters(entry, reply);
    // 4. The runner is ending: wait for its exit (bounded), then close the slot.
    if (reply.RunnerState == 5) {
        WaitForExit(entry, link.replyTimeoutMs);
        CloseEntry(entry);
    }
}

void StartExchange(RunnerLink& link, RunnerSlotEntry& entry) {
    SigpipeGuard guard;
    const auto deadline = DeadlineIn(link.replyTimeoutMs);
    const int fd = entry.commandPipe.Get();
    // 1. The start record, 2. the three text blocks; a block of length 0 sends nothing.
    const std::string record = link.start.Encode();
    bool failed = WritePipe(fd, record, static_cast<int32_t>(record.size()), deadline) !=
                  static_cast<int32_t>(record.size());
    if (!failed) {
        const std::pair<const std::string*, int32_t> blocks[] = {
            {&link.commandText, link.start.CommandLength},
            {&link.fileRcText, link.start.FileRcLength},
            {&link.environText, link.start.EnvironLength}};
        for (const auto& [text, length] : blocks)
            if (length > 0 && WritePipe(fd, *text, length, deadline) != length) failed = true;
    }
    // 3. A start that failed closes the slot; its first poll ends the step.
    if (failed) return MarkLost(entry);
    // 4. The acknowledgement, not interpreted.
    std::string ack;
    if (ReadBlocks(entry.replyPipe.Get(), StartAck::kSize, ack, deadline) !=
        static_cast<int32_t>(StartAck::kSize))
        MarkLost(entry);
}

// posix_spawn's two data sets, destroyed with the object.
struct SpawnFileActions {
    SpawnFileActions() { posix_spawn_file_actions_init(&value); }
    ~SpawnFileActions() { posix_spawn_file_actions_destroy(&value); }
    posix_spawn_file_actions_t value;
};
struct SpawnAttributes {
    SpawnAttributes() { posix_spawnattr_init(&value); }
    ~SpawnAttributes() { posix_spawnattr_destroy(&value); }
    posix_spawnattr_t value;
};

std::string TrimRight(const std::string& text) {
    const size_t end = text.find_last_not_of(' ');
    return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

}  // namespace

RunnerLink::~RunnerLink() {
    for (RunnerSlotEntry& entry : slots)
        if (entry.pid > 0 || entry.commandPipe.Valid() || entry.replyPipe.Valid())
            CloseEntry(entry);
}

bool TakeSlot(Server& server, uint8_t slot) {
    CheckSlot(server, slot);
    if (server.SlotUsed[slot]) return false;
    server.SlotUsed[slot] = true;
    ++server.RunningTaskCount;
    return true;
}

void FreeSlot(Server& server, uint8_t slot) {
    CheckSlot(server, slot);
    // A slot freed twice must not take a second task off the count.
    if (!server.SlotUsed[slot]) return;
    server.SlotUsed[slot] = false;
    if (server.RunningTaskCount > 0) --server.RunningTaskCount;
}

uint8_t SlotFromJobIndex(const std::string& jobIndex) {
    const int64_t slot = CellNumber(jobIndex);
    if (slot < 0 || slot >= kRunnerSlots) throw VqError("Subscript out of range", 9);
    return static_cast<uint8_t>(slot);
}

ReplyRecord LostRunnerReply(const RunnerSlotEntry& entry) {
    ReplyRecord reply;
    reply.CpuTimeA = entry.lastCpuTimeA;
    reply.CpuTimeB = entry.lastCpuTimeB;
    reply.IoCount = entry.lastIoCount;
    reply.PeakMemory = entry.lastPeakMemory;
    reply.CountersValid = 0;
    reply.RunnerState = 5;
    reply.StepRc = kRunnerLostRc;
    reply.WaitStatus = 0;
    reply.ReplyTextLength = static_cast<int32_t>(kRunnerEndedText.size());
    return reply;
}

int32_t WriteInSlices(const std::string& text, int32_t length,
                      const std::function<int32_t(const char*, size_t)>& writeSlice) {
    const int32_t total = std::clamp<int32_t>(length, 0, static_cast<int32_t>(text.size()));
    int32_t done = 0;
    while (done < total) {
        const size_t slice = std::min<size_t>(kRunnerTextSlice, static_cast<size_t>(total - done));
        const int32_t n = writeSlice(text.data() + done, slice);
        if (n < 0) return n;
        done += n;
    }
    return done;
}

int32_t WriteRunnerText(int pipe, int32_t length, const std::string& text, int timeoutMs) {
    SigpipeGuard guard;
    return WritePipe(pipe, text, length, DeadlineIn(timeoutMs));
}

int32_t ReadRunnerText(int pipe, int32_t length, std::string& text, int timeoutMs) {
    return ReadBlocks(pipe, length, text, DeadlineIn(timeoutMs));
}

UniqueFd LiftAboveStdio(UniqueFd fd) {
    if (!fd.Valid() || fd.Get() > 2) return fd;
    return UniqueFd(::fcntl(fd.Get(), F_DUPFD_CLOEXEC, 3));
}

RunnerLaunchPlan MakeRunnerLaunchPlan(const std::string& runnerPath, int commandReadFd,
                                      int replyWriteFd, const StartRecord& start,
                                      const std::vector<std::string>& runnerArgs) {
    if (commandReadFd <= 2 || replyWriteFd <= 2 || commandReadFd == replyWriteFd)
        throw std::invalid_argument(
            "The runner's pipe ends must lie above the standard descriptors.");
    RunnerLaunchPlan plan;
    plan.program = runnerPath;
    plan.argv = {runnerPath};
    plan.argv.insert(plan.argv.end(), runnerArgs.begin(), runnerArgs.end());
    // dup2 clears close-on-exec on the copy: the runner keeps exactly these three.
    plan.fdActions = {{ChildFdAction::Dup2, commandReadFd, STDIN_FILENO},
                      {ChildFdAction::Dup2, replyWriteFd, STDOUT_FILENO},
                      {ChildFdAction::OpenNull, -1, STDERR_FILENO}};
    plan.title = TrimRight(start.UserName) + "/" + TrimRight(start.TaskName) + "." +
                 std::to_string(start.TaskId) + "." + std::to_string(start.StepNumber);
    return plan;
}

bool LaunchRunner(Server& server) {
    RunnerLink& link = server.link;
    RunnerSlotEntry& entry = CurrentEntry(link);
    const RunnerLaunchPlan plan = MakeRunnerLaunchPlan(
        server.RunnerPath, link.childCommandEnd.Get(), link.childReplyEnd.Get(), link.start,
        link.runnerArgs);
    SpawnFileActions actions;
    for (const ChildFdAction& action : plan.fdActions) {
        const int rc =
            action.kind == ChildFdAction::Dup2
                ? posix_spawn_file_actions_adddup2(&actions.value, action.from, action.to)
                : posix_spawn_file_actions_addopen(&actions.value, action.to, "/dev/null", O_WRONLY,
                                                   0);
        if (rc != 0) return false;
    }
    // The runner starts with no blocked signal and the usual handling of those a server
    // commonly ignores, whatever this process does with them.
    SpawnAttributes attributes;
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int signal : {SIGPIPE, SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGCHLD, SIGUSR1, SIGUSR2})
        sigaddset(&defaults, signal);
    posix_spawnattr_setsigmask(&attributes.value, &none);
    posix_spawnattr_setsigdefault(&attributes.value, &defaults);
    posix_spawnattr_setflags(&attributes.value, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<char*> argv;
    for (const std::string& arg : plan.argv) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, plan.program.c_str(), &actions.value, &attributes.value, argv.data(),
                    environ) != 0)
        return false;
    entry.pid = pid;
    // The process handle: a pidfd lets the exit be awaited with a time limit.
    entry.processFd = UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    return true;
}

void OpenRunner(Server& server) {
    RunnerLink& link = server.link;
    RunnerSlotEntry& entry = CurrentEntry(link);
    // A runner lives for one step: anything the slot still holds is ended first.
    CloseEntry(entry);
    entry.lost = true;  // until the runner has started
    entry.lastCpuTimeA = entry.lastCpuTimeB = entry.lastIoCount = 0;
    entry.lastPeakMemory = 0;
    // 1. The lengths of the three texts.
    link.start.CommandLength = static_cast<int32_t>(link.commandText.size());
    link.start.FileRcLength = static_cast<int32_t>(link.fileRcText.size());
    link.start.EnvironLength = static_cast<int32_t>(link.environText.size());
    // 2.-4. The reply pipe and the command pipe, close-on-exec; the child's ends are moved
    // above the standard descriptors so that its setup can't overwrite one with the other.
    int reply[2], command[2];
    if (::pipe2(reply, O_CLOEXEC) != 0) return;
    entry.replyPipe = UniqueFd(reply[0]);
    link.childReplyEnd = LiftAboveStdio(UniqueFd(reply[1]));
    if (::pipe2(command, O_CLOEXEC) != 0) {
        link.childReplyEnd.Reset();
        return CloseEntry(entry);
    }
    link.childCommandEnd = LiftAboveStdio(UniqueFd(command[0]));
    entry.commandPipe = UniqueFd(command[1]);
    // 5. The launch; 6. the server's copies of the child's ends are closed, so that the end of
    // the runner is an end of file on the reply pipe.
    const bool launched =
        link.childCommandEnd.Valid() && link.childReplyEnd.Valid() && LaunchRunner(server);
    link.childCommandEnd.Reset();
    link.childReplyEnd.Reset();
    if (!launched) return CloseEntry(entry);
    entry.lost = false;
    // 7. The start exchange.
    RunnerExchange(server, 1);
}

void RunnerExchange(Server& server, int mode) {
    RunnerLink& link = server.link;
    RunnerSlotEntry& entry = CurrentEntry(link);
    if (mode == 1)
        StartExchange(link, entry);
    else
        CommandExchange(link, entry);
}

void SendRunnerCommand(Server& server, uint8_t slot, const std::string& command) {
    server.link.currentSlot = slot;
    server.link.command.Command = command;
    RunnerExchange(server, 0);
}

void SendRunnerCommand(Server& server, uint8_t slot, const std::string& command, int32_t argument) {
    server.link.command.Argument = argument;
    SendRunnerCommand(server, slot, command);
}

void SendRunnerCommandRepeating(Server& server, uint8_t slot, const std::string& command) {
    const ReplyRecord& reply = server.link.reply;
    do {
        SendRunnerCommand(server, slot, command);
        server.clock.Sleep(200);
    } while (reply.ReplyTextLength == -1 && reply.WaitStatus == ReplyRecord::kWaitPending);
}

void CloseRunner(Server& server) { CloseEntry(CurrentEntry(server.link)); }

}  // namespace vq
