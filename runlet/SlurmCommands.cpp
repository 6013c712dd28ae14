#include "runlet/SlurmCommands.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/UniqueFd.h"
#include "runlet/StepProcess.h"

extern char** environ;

namespace vq {
namespace {

// A program that floods its output is cut off here; Slurm's answers are a few lines.
constexpr size_t kMostCaptured = 1024 * 1024;

std::vector<char*> PointersOf(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& t : texts) pointers.push_back(t.data());
    pointers.push_back(nullptr);
    return pointers;
}

struct Pipe {
    UniqueFd read, write;
    bool Make() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) return false;
        read.Reset(fds[0]);
        write.Reset(fds[1]);
        return true;
    }
};

bool ReadSome(UniqueFd& fd, std::string& into) {
    char buffer[8192];
    const ssize_t n = ::read(fd.Get(), buffer, sizeof buffer);
    if (n < 0 && (errno == EINTR || errno == EAGAIN)) return true;
    if (n <= 0) {
        fd.Reset();
        return false;
    }
    if (into.size() < kMostCaptured) into.append(buffer, static_cast<size_t>(n));
    return true;
}

// Feeds the input and gathers both outputs until the program closes them or the time is up.
bool Exchange(Pipe& in, Pipe& out, Pipe& err, const std::string& input, int64_t deadline, CommandResult& result) {
    size_t written = 0;
    if (input.empty()) in.write.Reset();
    while (out.read.Valid() || err.read.Valid()) {
        pollfd fds[3] = {{out.read.Get(), POLLIN, 0}, {err.read.Get(), POLLIN, 0}, {in.write.Get(), POLLOUT, 0}};
        const int64_t left = deadline - MonotonicMs();
        if (left <= 0) return false;
        if (::poll(fds, 3, static_cast<int>(left)) < 0 && errno != EINTR) return false;
        if (fds[0].revents) ReadSome(out.read, result.output);
        if (fds[1].revents) ReadSome(err.read, result.error);
        if (fds[2].revents & POLLOUT) {
            const ssize_t n = ::write(in.write.Get(), input.data() + written, input.size() - written);
            if (n > 0) written += static_cast<size_t>(n);
            if (n < 0 && errno != EINTR && errno != EAGAIN) in.write.Reset();
            if (written == input.size()) in.write.Reset();
        } else if (fds[2].revents) {
            in.write.Reset();
        }
    }
    return true;
}

bool WaitExited(pid_t pid, int64_t deadline, int& status) {
    for (;;) {
        const pid_t got = ::waitpid(pid, &status, WNOHANG);
        if (got == pid) return true;
        if (got < 0 && errno != EINTR) return false;
        if (MonotonicMs() >= deadline) return false;
        SleepMs(2);
    }
}

}  // namespace

CommandResult RunCommand(const CommandRequest& request) {
    CommandResult result;
    Pipe in, out, err;
    if (request.arguments.empty() || !in.Make() || !out.Make() || !err.Make()) {
        result.runError = std::string("no pipes: ") + std::strerror(errno);
        return result;
    }
    ::fcntl(in.write.Get(), F_SETFL, O_NONBLOCK);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_adddup2(&actions, in.read.Get(), 0);
    posix_spawn_file_actions_adddup2(&actions, out.write.Get(), 1);
    posix_spawn_file_actions_adddup2(&actions, err.write.Get(), 2);
    // A group of its own, so that a program past its bound is killed with whatever it started;
    // the runner's handled and ignored signals are the defaults again there.
    sigset_t all, none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    std::vector<std::string> arguments = request.arguments;
    std::vector<std::string> environment = request.environment.value_or(std::vector<std::string>{});
    std::vector<char*> argv = PointersOf(arguments);
    std::vector<char*> envp = PointersOf(environment);
    pid_t pid = -1;
    const int spawned = ::posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(),
                                       request.environment ? envp.data() : environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawned != 0) {
        result.found = spawned != ENOENT;
        result.runError = std::strerror(spawned);
        return result;
    }
    in.read.Reset();
    out.write.Reset();
    err.write.Reset();

    const int64_t deadline = MonotonicMs() + request.timeoutMs;
    int status = 0;
    if (!Exchange(in, out, err, request.input, deadline, result) || !WaitExited(pid, deadline, status)) {
        result.timedOut = true;
        ::kill(-pid, SIGKILL);
        ::kill(pid, SIGKILL);
        ReapChild(pid);
        return result;
    }
    if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
    return result;
}

}  // namespace vq
