#include "runlet/StepProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

namespace vq {
namespace {

// What the child tells the runner through its report pipe before exec; the pipe closes at a
// successful exec. Written with one write(), which is safe between fork and exec.
struct ChildReport {
    char kind;   // 'F' the start failed, 'N' a note
    char stage;  // 'P' priority, 'W' working folder, 'I' standard handles, 'E' exec
    int error;
};

[[noreturn]] void ChildFail(int fd, char stage) {
    const ChildReport report{'F', stage, errno};
    [[maybe_unused]] ssize_t n = ::write(fd, &report, sizeof report);
    ::_exit(127);
}

void ChildNote(int fd, char stage) {
    const ChildReport report{'N', stage, errno};
    [[maybe_unused]] ssize_t n = ::write(fd, &report, sizeof report);
}

void ResetSignals() {
    for (int sig : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD}) ::signal(sig, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

std::vector<char*> PointersOf(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& t : texts) pointers.push_back(t.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::string DescribeReport(const ChildReport& report, const StepPlan& plan) {
    const std::string reason = std::strerror(report.error);
    switch (report.stage) {
        case 'P': return "CPU priority (nice " + std::to_string(plan.nice.value_or(0)) + ") refused by the system: " + reason;
        case 'W': return "Working folder \"" + plan.workDir + "\" can't be used: " + reason;
        case 'I': return "Standard handles of the step can't be set: " + reason;
        default: return plan.shell + " can't be started: " + reason;
    }
}

bool IsPlainAbsolutePath(std::string_view path) {
    if (path.empty() || path.front() != '/') return false;
    for (size_t at = 0; at != std::string_view::npos;) {
        const size_t end = path.find('/', at + 1);
        const std::string_view part = path.substr(at + 1, end == std::string_view::npos ? end : end - at - 1);
        if (part == "." || part == "..") return false;
        at = end;
    }
    return true;
}

}  // namespace

std::string MakeTaskFolder(const std::string& folder) {
    struct stat info{};
    if (folder.empty() || ::stat(folder.c_str(), &info) == 0) return {};
    const std::string cantMake = "Task folder \"" + folder + "\" can't be made: ";
    if (errno != ENOENT) return cantMake + std::strerror(errno);
    if (!IsPlainAbsolutePath(folder)) return cantMake + "it is no plain absolute path.";
    // The missing folders, the deepest first.
    std::vector<std::string> missing;
    for (std::string path = folder; ::stat(path.c_str(), &info) != 0; path = FolderOf(path)) {
        if (errno != ENOENT) return cantMake + path + ": " + std::strerror(errno);
        missing.push_back(path);
        if (missing.size() > kMostFoldersMade)
            return cantMake + "more than " + std::to_string(kMostFoldersMade) + " folders of it are missing.";
    }
    for (auto path = missing.rbegin(); path != missing.rend(); ++path)
        if (::mkdir(path->c_str(), 0700) != 0 && errno != EEXIST) return cantMake + *path + ": " + std::strerror(errno);
    return {};
}

LaunchResult LaunchStep(const StepPlan& plan) {
    LaunchResult result;
    result.error = MakeTaskFolder(plan.taskFolder);
    if (!result.error.empty()) return result;
    const std::string output = plan.outputFile.empty() ? "/dev/null" : plan.outputFile;
    UniqueFd out(::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    if (!out.Valid()) {
        result.error = "Output file \"" + output + "\" can't be opened: " + std::strerror(errno);
        return result;
    }
    UniqueFd devNull(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    int reportPipe[2];
    if (!devNull.Valid() || ::pipe2(reportPipe, O_CLOEXEC) != 0) {
        result.error = std::string("The step can't be prepared: ") + std::strerror(errno);
        return result;
    }
    UniqueFd reportRead(reportPipe[0]), reportWrite(reportPipe[1]);

    // Everything the child needs is ready before the fork.
    std::vector<std::string> arguments = plan.arguments;
    std::vector<std::string> environment = plan.environment;
    std::vector<char*> argv = PointersOf(arguments);
    std::vector<char*> envp = PointersOf(environment);
    const char* shell = plan.shell.c_str();
    const char* workDir = plan.workDir.c_str();

    const pid_t pid = ::fork();
    if (pid < 0) {
        result.error = std::string("The step's process can't be made: ") + std::strerror(errno);
        return result;
    }
    if (pid == 0) {
        const int report = reportWrite.Get();
        ::setpgid(0, 0);
        ResetSignals();
        if (plan.nice && ::setpriority(PRIO_PROCESS, 0, *plan.nice) != 0) ChildNote(report, 'P');
        if (::chdir(workDir) != 0) ChildFail(report, 'W');
        if (::dup2(devNull.Get(), 0) < 0 || ::dup2(out.Get(), 1) < 0 || ::dup2(out.Get(), 2) < 0)
            ChildFail(report, 'I');
        // Whatever else the runner inherited stays out of the step.
        ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
        ::execve(shell, argv.data(), envp.data());
        ChildFail(report, 'E');
    }
    ::setpgid(pid, pid);  // also here, so that the group exists whichever runs first
    reportWrite.Reset();
    ChildReport report{};
    for (;;) {
        const ssize_t n = ::read(reportRead.Get(), &report, sizeof report);
        if (n < 0 && errno == EINTR) continue;
        if (n != static_cast<ssize_t>(sizeof report)) break;
        if (report.kind == 'N') {
            result.notes.push_back(DescribeReport(report, plan));
        } else {
            result.error = DescribeReport(report, plan);
        }
    }
    if (!result.error.empty()) {
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        return result;
    }
    result.pid = pid;
    return result;
}

namespace {

// What the runner tells its guard: 'P' a process of the step, 'D' the step is over. Each
// note goes in one write, smaller than a pipe's atomic size, so that notes never mix.
struct GuardNote {
    char kind;
    pid_t pid;
    uint64_t startTicks;
};

bool SameProcess(const std::optional<ProcessStat>& stat, uint64_t startTicks) {
    return stat && stat->startTicks == startTicks && stat->state != 'Z';
}

// Forgets what has ended once the list has grown long, so that a step that forks without end
// doesn't fill the guard's memory.
void ForgetEnded(const ProcFiles& proc, std::map<pid_t, uint64_t>& known, size_t& limit) {
    if (known.size() <= limit) return;
    std::erase_if(known, [&](const auto& entry) { return !SameProcess(proc.ReadStat(entry.first), entry.second); });
    limit = std::max<size_t>(4096, 2 * known.size());
}

[[noreturn]] void GuardStep(int pipe, pid_t group) {
    const ProcFiles proc;
    std::map<pid_t, uint64_t> known;
    size_t limit = 4096;
    GuardNote note{};
    for (;;) {
        const ssize_t n = ::read(pipe, &note, sizeof note);
        if (n < 0 && errno == EINTR) continue;
        if (n != static_cast<ssize_t>(sizeof note)) break;  // the runner is gone
        if (note.kind == 'D') ::_exit(0);
        known[note.pid] = note.startTicks;
        ForgetEnded(proc, known, limit);
    }
    EndStepProcesses(proc, group, known);
    ::_exit(0);
}

}  // namespace

void EndStepProcesses(const ProcFiles& proc, pid_t group, const std::map<pid_t, uint64_t>& known) {
    if (group > 0) ::kill(-group, SIGSTOP);
    std::map<pid_t, uint64_t> stopped;
    // A stop takes effect a moment after the signal: a process may fork once more in between,
    // so the children are looked for again until a pass finds nothing new.
    for (bool grew = true; grew;) {
        grew = false;
        std::vector<std::pair<pid_t, uint64_t>> next(known.begin(), known.end());
        next.insert(next.end(), stopped.begin(), stopped.end());
        std::set<pid_t> visited;
        while (!next.empty()) {
            const auto [pid, startTicks] = next.back();
            next.pop_back();
            if (!visited.insert(pid).second || !SameProcess(proc.ReadStat(pid), startTicks)) continue;
            if (stopped.emplace(pid, startTicks).second) {
                ::kill(pid, SIGSTOP);
                grew = true;
            }
            for (pid_t child : proc.ListChildren(pid).value_or(std::vector<pid_t>{}))
                if (const std::optional<ProcessStat> stat = proc.ReadStat(child))
                    next.emplace_back(child, stat->startTicks);
        }
    }
    for (const auto& [pid, startTicks] : stopped) ::kill(pid, SIGKILL);
    if (group > 0) ::kill(-group, SIGKILL);
}

pid_t ForkGuard(int keep) {
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    // Keep nothing of the runner open, above all not its pipes to the server, whose end
    // of file must come when the runner goes.
    const int devNull = ::open("/dev/null", O_RDWR);
    for (int fd = 0; fd < 3; ++fd) ::dup2(devNull, fd);
    if (keep > 3) ::close_range(3, static_cast<unsigned>(keep) - 1, 0);
    ::close_range(static_cast<unsigned>(keep) + 1, ~0U, 0);
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) ::signal(sig, SIG_IGN);
    return 0;
}

bool StepGuard::Start(pid_t group) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
    UniqueFd readEnd(fds[0]), writeEnd(fds[1]);
    // A guard that can't keep up must never hold the runner up.
    ::fcntl(writeEnd.Get(), F_SETFL, O_NONBLOCK);
    const pid_t pid = ForkGuard(readEnd.Get());
    if (pid < 0) return false;
    if (pid == 0) GuardStep(readEnd.Get(), group);
    pid_ = pid;
    pipe_ = std::move(writeEnd);
    return true;
}

void StepGuard::Know(const std::vector<ProcessInfo>& processes) {
    if (pid_ <= 0) return;
    std::map<pid_t, uint64_t> current;
    for (const ProcessInfo& p : processes) {
        const auto told = told_.find(p.stat.pid);
        if (told == told_.end() || told->second != p.stat.startTicks) {
            const GuardNote note{'P', p.stat.pid, p.stat.startTicks};
            // Not written (a full pipe): told again at the next reading.
            if (::write(pipe_.Get(), &note, sizeof note) != static_cast<ssize_t>(sizeof note)) continue;
        }
        current.emplace(p.stat.pid, p.stat.startTicks);
    }
    told_ = std::move(current);
}

void StepGuard::Release() {
    if (pid_ <= 0) return;
    const GuardNote done{'D', 0, 0};
    // The pipe may be full: then the guard is told by a blocking write.
    ::fcntl(pipe_.Get(), F_SETFL, 0);
    [[maybe_unused]] ssize_t n = ::write(pipe_.Get(), &done, sizeof done);
    pipe_.Reset();
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    told_.clear();
}

namespace {
std::optional<EndedChild> Peek(idtype_t type, id_t id) {
    siginfo_t info{};
    if (::waitid(type, id, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == 0) return std::nullopt;
    return EndedChild{info.si_pid, info.si_code, info.si_status};
}
}  // namespace

std::optional<EndedChild> PeekEndedChild() { return Peek(P_ALL, 0); }
std::optional<EndedChild> PeekEndedChild(pid_t pid) { return Peek(P_PID, static_cast<id_t>(pid)); }

void ReapChild(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
}

bool WaitForChildEnd(pid_t pid, int timeoutMs, const volatile sig_atomic_t& stop) {
    const int64_t deadline = MonotonicMs() + timeoutMs;
    // A pidfd becomes readable when the process ends; without one, look every few ms.
    UniqueFd pidFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    while (!PeekEndedChild(pid)) {
        const int64_t left = deadline - MonotonicMs();
        if (left <= 0 || stop) return false;
        if (pidFd.Valid()) {
            pollfd wait{pidFd.Get(), POLLIN, 0};
            ::poll(&wait, 1, static_cast<int>(left));
        } else {
            SleepMs(5);
        }
    }
    return true;
}

void SignalStep(pid_t group, const std::vector<pid_t>& pidsOutsideGroup, int signal) {
    if (group > 0) ::kill(-group, signal);
    for (pid_t pid : pidsOutsideGroup) ::kill(pid, signal);
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

bool BecomeSubreaper() { return ::prctl(PR_SET_CHILD_SUBREAPER, 1) == 0; }

int64_t MonotonicMs() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

void SleepMs(int milliseconds) {
    timespec pause{milliseconds / 1000, (milliseconds % 1000) * 1'000'000L};
    ::nanosleep(&pause, nullptr);
}

}  // namespace vq
