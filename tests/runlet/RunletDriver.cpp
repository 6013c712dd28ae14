#include "RunletDriver.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "runlet/ProcReader.h"
#include "runner/RunnerLink.h"
#include "tests/support/TestSupport.h"

namespace vq::test {

RunletDriver::RunletDriver(uid_t user) { Launch(user, {}, {}); }

RunletDriver::RunletDriver(const std::vector<std::string>& options, const std::vector<std::string>& environment) {
    Launch(static_cast<uid_t>(-1), options, environment);
}

void RunletDriver::Launch(uid_t user, const std::vector<std::string>& options,
                          const std::vector<std::string>& environment) {
    int toChild[2], fromChild[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0)
        throw std::runtime_error("pipes for runlet");
    // Everything the child needs is made before the fork; env(1) puts in the variables given.
    std::vector<std::string> arguments = {"/usr/bin/env"};
    arguments.insert(arguments.end(), environment.begin(), environment.end());
    arguments.push_back(BinPath("runlet"));
    arguments.insert(arguments.end(), options.begin(), options.end());
    std::vector<char*> argv;
    for (std::string& a : arguments) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(toChild[0], 0);
        ::dup2(fromChild[1], 1);
        if (user != static_cast<uid_t>(-1) && (::setgid(user) != 0 || ::setuid(user) != 0)) ::_exit(126);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(toChild[0]);
    ::close(fromChild[1]);
    toRunner_.Reset(toChild[1]);
    fromRunner_.Reset(fromChild[0]);
}

RunletDriver::~RunletDriver() {
    toRunner_.Reset();
    fromRunner_.Reset();
    if (WaitExit(5'000) == -1 && !reaped_) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

void RunletDriver::WriteBytes(const std::string& bytes) {
    const auto size = static_cast<int32_t>(bytes.size());
    if (WriteRunnerText(toRunner_.Get(), size, bytes) != size)
        throw std::runtime_error("runlet took no more input");
}

std::string RunletDriver::ReadBytes(size_t size, int timeoutMs) {
    std::string bytes;
    const int32_t got =
        ReadRunnerText(fromRunner_.Get(), static_cast<int32_t>(size), bytes, timeoutMs);
    if (got == -ETIMEDOUT) throw std::runtime_error("runlet did not answer in time");
    if (got != static_cast<int32_t>(size)) throw std::runtime_error("runlet closed its output");
    return bytes;
}

StartAck RunletDriver::Start(const StartRecord& start, const std::string& command, const std::string& fileRc,
                             const std::string& environ) {
    StartRecord record = start;
    record.CommandLength = static_cast<int32_t>(command.size());
    record.FileRcLength = static_cast<int32_t>(fileRc.size());
    record.EnvironLength = static_cast<int32_t>(environ.size());
    WriteBytes(record.Encode() + command + fileRc + environ);
    return StartAck::Decode(ReadBytes(StartAck::kSize));
}

Answer RunletDriver::Send(const char* command, int32_t argument) {
    WriteBytes(CommandRecord{command, argument}.Encode());
    Answer answer;
    answer.reply = ReplyRecord::Decode(ReadBytes(ReplyRecord::kSize, 30'000));
    if (answer.reply.ReplyTextLength > 0) answer.text = ReadBytes(static_cast<size_t>(answer.reply.ReplyTextLength));
    return answer;
}

Answer RunletDriver::WaitForEnd(int timeoutMs) {
    Answer answer;
    if (!WaitUntil([&] { return (answer = Send("STAT")).reply.RunnerState >= 4; }, timeoutMs, 10))
        throw std::runtime_error("the step did not end in time");
    return answer;
}

Answer RunletDriver::Repeat(const char* command) {
    for (int attempt = 0; attempt < 25; ++attempt) {
        Answer answer = Send(command);
        if (!(answer.reply.ReplyTextLength == -1 && answer.reply.WaitStatus == ReplyRecord::kWaitPending))
            return answer;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    throw std::runtime_error(std::string(command) + " never reached its state");
}

Answer RunletDriver::RunToEnd() {
    WaitForEnd();
    return Send("END ");
}

int RunletDriver::WaitExit(int timeoutMs) {
    int status = 0;
    if (reaped_ || !WaitUntil([&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; }, timeoutMs)) return -1;
    reaped_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

StartRecord MakeStart(const std::string& folder) {
    StartRecord start;
    start.TaskId = 12;
    start.TaskIdText = "000012";
    start.TaskName = "Runner test";
    start.StepNumber = 1;
    start.Priority = 22;
    start.UserName = "$LOCALUSER$";
    start.WorkDir = "%VQS%";
    start.OutputFile = folder + "Step1.txt";
    start.TaskRc = 1;
    start.OsKind = 6;
    return start;
}

bool ProcessAlive(pid_t pid) {
    const std::optional<ProcessStat> stat = ProcFiles().ReadStat(pid);
    return stat && stat->state != 'Z';
}

std::vector<pid_t> WaitForPids(const std::string& file, size_t count, int timeoutMs) {
    std::vector<pid_t> pids;
    const bool complete = WaitUntil(
        [&] {
            pids.clear();
            std::ifstream in(file);
            for (std::string line; std::getline(in, line);) pids.push_back(std::stoi(line));
            return pids.size() >= count;
        },
        timeoutMs);
    if (!complete) throw std::runtime_error(file + " did not get its lines in time");
    return pids;
}

}  // namespace vq::test
