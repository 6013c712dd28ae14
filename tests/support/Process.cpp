#include "tests/support/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <cstdlib>

#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

std::string TempName(const char* what) {
    static int counter = 0;
    return "/tmp/vqproc." + std::to_string(getpid()) + "." + std::to_string(++counter) + "." + what;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env)
    : outPath_(TempName("out")), errPath_(TempName("err")) {
    pid_ = fork();
    if (pid_ == 0) {
        const int out = open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int err = open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int in = open("/dev/null", O_RDONLY);
        dup2(in, 0);
        dup2(out, 1);
        dup2(err, 2);
        for (const std::string& e : env) putenv(strdup(e.c_str()));
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess() {
    if (!reaped_ && pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    unlink(outPath_.c_str());
    unlink(errPath_.c_str());
}

void ChildProcess::Signal(int sig) { kill(pid_, sig); }

std::string ChildProcess::ErrorText() const { return ReadFileText(errPath_); }

ProcessResult ChildProcess::Wait(int limitMs) {
    ProcessResult result;
    int status = 0;
    if (!WaitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, limitMs, 10)) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    }
    reaped_ = true;
    if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    result.out = ReadFileText(outPath_);
    result.err = ReadFileText(errPath_);
    return result;
}

ProcessResult RunProcess(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                         int limitMs) {
    ChildProcess child(argv, env);
    return child.Wait(limitMs);
}

std::string BinPath(const std::string& program) { return std::string(VQ_TEST_PROGRAM_FOLDER) + program; }

ProcessResult RunVqctl(std::vector<std::string> args, const std::vector<std::string>& env) {
    args.insert(args.begin(), BinPath("vqctl"));
    return RunProcess(args, env);
}

}  // namespace vq::test
