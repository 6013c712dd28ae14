#pragma once
// The operating-system side of a step: starting its command in a process group of its own,
// the guard that ends the group when the runner itself dies, signals, and reaping.
#include <signal.h>
#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/UniqueFd.h"
#include "runlet/ProcReader.h"
#include "runlet/StepPlan.h"

namespace vq {

struct LaunchResult {
    pid_t pid = -1;                  // also the process group of the step
    std::string error;               // why the command could not be started
    std::vector<std::string> notes;  // what went wrong without stopping the start
    bool Started() const { return pid > 0; }
};

// Makes the missing folders of the task folder `folder`, each with mode 0700: a task folder
// deleted while its task waited, with at most the folders of its task, user and domain
// above it (`kMostFoldersMade`), so that a queue root that has gone (a disk not mounted) is
// never made again empty. Only a plain absolute path is made, without "." or "..". Gives
// why the folder can't be made; empty when it is there.
constexpr size_t kMostFoldersMade = 4;
std::string MakeTaskFolder(const std::string& folder);

// Starts `plan` as /bin/sh -c COMMAND in a new process group, in its working folder, with its
// environment and nice value, standard output and error appended to the output file (its
// task folder made when it is missing) and standard input from /dev/null. Reports a failed chdir or exec of the child as an error.
LaunchResult LaunchStep(const StepPlan& plan);

// A small process beside the runner, outside the step's group. It waits on a pipe that only
// the runner holds: when the runner is gone without a word (killed from outside), the guard
// ends the step's process group and every process of the step it has been told of, with
// their descendants, wherever they went (another group, another session, an orphan).
class StepGuard {
public:
    StepGuard() = default;
    StepGuard(const StepGuard&) = delete;
    StepGuard& operator=(const StepGuard&) = delete;
    ~StepGuard() { Release(); }

    bool Start(pid_t group);
    // Tells the guard of the step's processes at the runner's last reading; only those it
    // doesn't know yet go over the pipe.
    void Know(const std::vector<ProcessInfo>& processes);
    // The step is over: the guard ends without killing anything and is reaped.
    void Release();
    pid_t Pid() const { return pid_; }
    // The guard ended by itself and was reaped elsewhere.
    void Forget() { pid_ = -1; pipe_.Reset(); }

private:
    pid_t pid_ = -1;
    UniqueFd pipe_;
    std::map<pid_t, uint64_t> told_;  // pid and start time
};

// Forks a guard process. In the child only `keep` stays open (and /dev/null on 0 to 2), and
// the termination signals are ignored; it returns 0 there, and the child or -1 in the runner.
pid_t ForkGuard(int keep);

// Ends the process group `group`, the processes of `known` (pid and start time) that still
// run, and all their descendants: each is stopped first, so that none can fork away while
// the others are found, and all are killed at the end.
void EndStepProcesses(const ProcFiles& proc, pid_t group, const std::map<pid_t, uint64_t>& known);

// A child of the runner that has ended and is not reaped yet (a zombie): its /proc files can
// still be read. Nothing when no child has ended.
struct EndedChild {
    pid_t pid = 0;
    int how = 0;     // CLD_EXITED, CLD_KILLED, CLD_DUMPED
    int status = 0;  // the exit status or the signal
};
std::optional<EndedChild> PeekEndedChild();
std::optional<EndedChild> PeekEndedChild(pid_t pid);
void ReapChild(pid_t pid);
// Waits until the child `pid` has ended (without reaping it), at most `timeoutMs`, or until
// `stop` becomes true; true when it has ended.
bool WaitForChildEnd(pid_t pid, int timeoutMs, const volatile sig_atomic_t& stop);

// Sends `signal` to the step's process group and to each of `pids` that has left the group.
void SignalStep(pid_t group, const std::vector<pid_t>& pidsOutsideGroup, int signal);

// Writes all of `bytes`, through interruptions; false when the file takes no more.
bool WriteAll(int fd, const std::string& bytes);

// Makes the runner the reaper of orphans of the step, so that they stay below it.
bool BecomeSubreaper();

// Monotonic milliseconds, for the short bounded waits of the runner.
int64_t MonotonicMs();
void SleepMs(int milliseconds);

}  // namespace vq
