#pragma once
// Drives the real runlet program through its two pipes, as the server does, with a time
// limit on every answer so that a fault fails the test instead of hanging it.
#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/UniqueFd.h"
#include "runner/records/Records.h"
#include "tests/support/Process.h"

namespace vq::test {

struct Answer {
    ReplyRecord reply;
    std::string text;
};

class RunletDriver {
public:
    // `user` other than -1: the runner runs as that user (the test must be root for that).
    explicit RunletDriver(uid_t user = static_cast<uid_t>(-1));
    // The runner with these options, and these NAME=VALUE set in its environment.
    RunletDriver(const std::vector<std::string>& options, const std::vector<std::string>& environment);
    ~RunletDriver();
    RunletDriver(const RunletDriver&) = delete;
    RunletDriver& operator=(const RunletDriver&) = delete;

    StartAck Start(const StartRecord& start, const std::string& command, const std::string& fileRc = "",
                   const std::string& environ = "");
    Answer Send(const char* command, int32_t argument = 0);
    // "STAT" until the step has ended.
    Answer WaitForEnd(int timeoutMs = 10'000);
    // "STOP" or "STRT" again while the answer is "not yet", as the server does.
    Answer Repeat(const char* command);
    // "STAT" until the step has ended, then "END ".
    Answer RunToEnd();

    void CloseInput() { toRunner_.Reset(); }
    void CloseReplies() { fromRunner_.Reset(); }
    // The runner's exit status, or -1 when it hasn't ended within the time.
    int WaitExit(int timeoutMs = 5'000);
    pid_t Pid() const { return pid_; }

    void WriteBytes(const std::string& bytes);
    std::string ReadBytes(size_t size, int timeoutMs = 5'000);

private:
    void Launch(uid_t user, const std::vector<std::string>& options, const std::vector<std::string>& environment);

    pid_t pid_ = -1;
    bool reaped_ = false;
    UniqueFd toRunner_;
    UniqueFd fromRunner_;
};

// A start record for a step whose output file is `folder` + "Step1.txt", run in the task's
// folder by the server's user at Normal priority.
StartRecord MakeStart(const std::string& folder);

// A process that still runs: a zombie, which waits for its reaper only, doesn't count.
bool ProcessAlive(pid_t pid);
// Waits until `file` has `count` lines, each starting with a pid, and returns the pids.
std::vector<pid_t> WaitForPids(const std::string& file, size_t count, int timeoutMs = 5'000);

}  // namespace vq::test
