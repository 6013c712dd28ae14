#include "RunletDriver.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "runlet/ProcReader.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

std::string Helper(const std::string& arguments) { return BinPath("vqstephelper") + " " + arguments; }

RunletDriver::RunletDriver(uid_t user) {
    int toChild[2], fromChild[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0)
        throw std::runtime_error("pipes for runlet");
    const std::string program = BinPath("runlet");
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(toChild[0], 0);
        ::dup2(fromChild[1], 1);
        if (user != static_cast<uid_t>(-1) && (::setgid(user) != 0 || ::setuid(user) != 0)) ::_exit(126);
        ::execl(program.c_str(), "runlet", static_cast<char*>(nullptr));
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
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(toRunner_.Get(), bytes.data() + done, bytes.size() - done);
        if (n <= 0) throw std::runtime_error("runlet took no more input");
        done += static_cast<size_t>(n);
    }
}

std::string RunletDriver::ReadBytes(size_t size, int timeoutMs) {
    std::string bytes;
    const int64_t deadline = NowMs() + timeoutMs;
    while (bytes.size() < size) {
        pollfd p{fromRunner_.Get(), POLLIN, 0};
        const int left = static_cast<int>(deadline - NowMs());
        if (left <= 0 || ::poll(&p, 1, left) <= 0) throw std::runtime_error("runlet did not answer in time");
        char buffer[4096];
        const ssize_t n = ::read(fromRunner_.Get(), buffer, std::min(sizeof buffer, size - bytes.size()));
        if (n <= 0) throw std::runtime_error("runlet closed its output");
        bytes.append(buffer, static_cast<size_t>(n));
    }
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
