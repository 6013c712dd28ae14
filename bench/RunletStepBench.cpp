// The cost of one step through the step runner (launch of runlet, start exchange, "STAT",
// "END ", exit) for a step running `true`, against a bare fork/exec/wait of /bin/true.
// BM_StepRatio measures both alternately in one loop and reports link / bare as "ratio".
// BM_StepWithLongEnviron: the time to the StartAck of the same step with an Environ block of
// N lines of distinct names, which the runner must merge into its environment in well under
// a second at 100,000 lines (the shell's own start with such an environment is not counted).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/BareTrue.h"
#include "runner/records/Records.h"

namespace {

std::string RunletPath() {
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "runlet").string();
}

void WriteAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) std::abort();
        done += static_cast<size_t>(n);
    }
}

std::string ReadExact(int fd, size_t size) {
    std::string bytes(size, '\0');
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::read(fd, bytes.data() + done, size - done);
        if (n <= 0) std::abort();
        done += static_cast<size_t>(n);
    }
    return bytes;
}

vq::ReplyRecord Exchange(int to, int from, const char* command) {
    WriteAll(to, vq::CommandRecord{command, 0}.Encode());
    vq::ReplyRecord reply = vq::ReplyRecord::Decode(ReadExact(from, vq::ReplyRecord::kSize));
    if (reply.ReplyTextLength > 0) ReadExact(from, static_cast<size_t>(reply.ReplyTextLength));
    return reply;
}

// Returns the time from the start record to the runner's StartAck: what the runner itself
// takes to read the step, plan it and start its command.
std::chrono::steady_clock::duration StepThroughRunlet(const std::string& runlet, const std::string& startBytes) {
    int toChild[2], fromChild[2];
    if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0) std::abort();
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(toChild[0], 0);
        ::dup2(fromChild[1], 1);
        ::execl(runlet.c_str(), "runlet", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(toChild[0]);
    ::close(fromChild[1]);
    const auto sent = std::chrono::steady_clock::now();
    WriteAll(toChild[1], startBytes);
    ReadExact(fromChild[0], vq::StartAck::kSize);
    const auto started = std::chrono::steady_clock::now();
    Exchange(toChild[1], fromChild[0], "STAT");
    if (Exchange(toChild[1], fromChild[0], "END ").RunnerState != 5) std::abort();
    int status = 0;
    ::waitpid(pid, &status, 0);
    ::close(toChild[1]);
    ::close(fromChild[0]);
    return started - sent;
}

std::string StartBytes(const std::string& environ = "") {
    vq::StartRecord start;
    start.UserName = "$LOCALUSER$";
    start.TaskIdText = "000001";
    start.TaskName = "bench";
    start.StepNumber = 1;
    start.Priority = 22;
    start.WorkDir = "/tmp";
    start.OutputFile = "/dev/null";
    const std::string command = "true";
    start.CommandLength = static_cast<int32_t>(command.size());
    start.EnvironLength = static_cast<int32_t>(environ.size());
    return start.Encode() + command + environ;
}

void BM_BareForkExecWait(benchmark::State& state) {
    for (auto _ : state) vq::bench::BareTrue();
}
BENCHMARK(BM_BareForkExecWait)->Unit(benchmark::kMicrosecond);

void BM_StepThroughRunlet(benchmark::State& state) {
    const std::string runlet = RunletPath();
    const std::string start = StartBytes();
    for (auto _ : state) StepThroughRunlet(runlet, start);
}
BENCHMARK(BM_StepThroughRunlet)->Unit(benchmark::kMicrosecond);

void BM_StepRatio(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    const std::string runlet = RunletPath();
    const std::string start = StartBytes();
    Clock::duration bare{}, link{};
    for (auto _ : state) {
        const auto t0 = Clock::now();
        vq::bench::BareTrue();
        const auto t1 = Clock::now();
        StepThroughRunlet(runlet, start);
        const auto t2 = Clock::now();
        bare += t1 - t0;
        link += t2 - t1;
    }
    state.counters["ratio"] = std::chrono::duration<double>(link).count() / std::chrono::duration<double>(bare).count();
}
BENCHMARK(BM_StepRatio)->Unit(benchmark::kMicrosecond);

void BM_StepWithLongEnviron(benchmark::State& state) {
    std::string environ;
    for (int64_t line = 0; line < state.range(0); ++line) environ += "V" + std::to_string(line) + "=x\r\n";
    const std::string runlet = RunletPath();
    const std::string start = StartBytes(environ);
    for (auto _ : state)
        state.SetIterationTime(std::chrono::duration<double>(StepThroughRunlet(runlet, start)).count());
}
BENCHMARK(BM_StepWithLongEnviron)->Arg(10'000)->Arg(100'000)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
