#pragma once
// Runs the project's programs from tests: with extra environment, captured output and a
// time limit after which the program is killed.
#include <sys/types.h>

#include <string>
#include <vector>

namespace vq::test {

struct ProcessResult {
    int exitCode = -1;  // -1 when killed by a signal or the limit
    int signal = 0;
    std::string out, err;
};

// A program started in the background with its output going to files.
class ChildProcess {
public:
    ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return pid_; }
    void Signal(int sig);
    // Waits up to `limitMs`; a program still running then is killed.
    ProcessResult Wait(int limitMs);
    // The standard error written so far.
    std::string ErrorText() const;

private:
    pid_t pid_ = -1;
    std::string outPath_, errPath_;
    bool reaped_ = false;
};

ProcessResult RunProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                         int limitMs = 10000);
// A program of build/bin.
std::string BinPath(const std::string& program);
// vqctl with these arguments, run as RunProcess runs a program.
ProcessResult RunVqctl(std::vector<std::string> args, const std::vector<std::string>& env = {});

}  // namespace vq::test
