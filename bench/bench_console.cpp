// vqctl status and vqctl status --json end to end: a real vqserv on a bus of its own, with a
// queue of 10,000 tasks loaded from its database, asked by a real vqctl whose output goes to
// /dev/null. And how long the server's one thread is kept from its ticks while it answers:
// the longest wait of a small question asked during a status, less the wait when idle.
//   bench_console [--benchmark_filter=...]
// Goals: a status and a status --json under 500 ms each; the server busy for less than one
// tick interval (2000 ms) while it answers.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "access/ConsoleQueries.h"
#include "bench/ServerOnDisk.h"
#include "calendar/Common.h"
#include "core/tables/Status.h"
#include "storage/QueueDatabase.h"

extern char** environ;

namespace {

using namespace vq;
using Clock = std::chrono::steady_clock;

constexpr int kTasks = 10000;

std::string BinFolder() {
    char path[4096];
    const ssize_t size = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (size <= 0) std::abort();
    const std::string self(path, static_cast<size_t>(size));
    return self.substr(0, self.find_last_of('/') + 1);
}

// Starts a program with the environment of this process and `extra`; standard output to
// /dev/null unless `quiet` is false.
pid_t Spawn(const std::vector<std::string>& argv, const std::vector<std::string>& extra,
            bool quiet = true) {
    std::vector<std::string> env(extra);
    for (char** at = environ; *at; ++at) env.emplace_back(*at);
    std::vector<char*> args, envp;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    for (const std::string& e : env) envp.push_back(const_cast<char*>(e.c_str()));
    args.push_back(nullptr);
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (quiet) {
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    }
    pid_t pid = -1;
    if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), envp.data()) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

int WaitFor(pid_t pid) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A queue of `kTasks` one-step tasks, seven in ten waiting for 2099, the others complete,
// saved as the server's database; then a bus and a server on it.
struct ConsoleBench : bench::ServerOnDisk {
    ConsoleBench() : ServerOnDisk("HOST") {
        for (int i = 1; i <= kTasks; ++i) AddTask(i);
        server.NextTaskNumber = kTasks;
        if (!SaveQueueDatabase(server)) std::abort();
        env = {"XDG_CONFIG_HOME=" + folder + "cfg", "HOME=" + folder, "LC_ALL=C",
               "DBUS_SESSION_BUS_ADDRESS=unix:path=" + folder + "bus"};
        bus = Spawn({"/usr/bin/dbus-daemon", "--session", "--nofork",
                     "--address=unix:path=" + folder + "bus"},
                    {});
        while (!PathExists(folder + "bus"))
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        vqserv = Spawn({BinFolder() + "vqserv", "--headless", "--queue-root", root}, env);
        while (Vqctl({"queue"}) != 0) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ~ConsoleBench() {
        for (pid_t pid : {vqserv, bus}) {
            ::kill(pid, SIGTERM);
            WaitFor(pid);
        }
    }

    void AddTask(int number) {
        const std::string name = "Nightly build " + std::to_string(number % 50);
        const std::string key = MakeRowKey(number, name);
        const bool done = number % 10 < 3;
        VqTable& tasks = server.tables.TaskTable;
        VqRow& row = tasks.AddRow(key, name);
        const std::pair<const char*, std::string> cells[] = {
            {"ID", ZeroPad(number, 6)},
            {"Status", done ? kComplete : kWaiting},
            {"Class", "A"},
            {"UserName", "$LOCALUSER$"},
            {"Domain", "$LOCALS$"},
            {"Server", "HOST"},
            {"JobReport", name},
            {"Queue Priority", "000120"},
            {"CPU", "22"},
            {"SchTime", "2099-01-01 00:00:00"},
            {"SubTime", "2026-01-01 00:00:00"},
            {"AllR", "0001"},
            {"CurRepeat", "0"},
            {"CurStep", "0000"},
            {"AllSteps", "0001"},
            {"JobRC", "01"},
            {"MaxRC", "08"},
            {"MaxRunTime", "000000000"},
            {"PeakMem", "000001234"},
            {"IO", "00000000005678"},
            {"TCPU", "0:00:00:01:234"},
            {"Units", "000000042"},
            {"RF", root + "$LOCALS$/$LOCALUSER$/" + name + "/" + ZeroPad(number, 6)},
            // A finished task stays until long after the benchmark.
            {"Start", done ? "2026-01-01 00:00:00" : ""},
            {"End", done ? "2099-01-01 00:00:00" : ""}};
        for (const auto& [column, value] : cells) row.cells[tasks.ColumnIndex(column)] = value;
        VqTable& steps = server.tables.StepTable;
        VqRow& step = steps.AddRow(MakeStepKey(key, 1), StepRowText(1));
        const std::pair<const char*, std::string> stepCells[] = {
            {"StepStatus", done ? "Complete" : "Pending"},
            {"Execute", "Yes"},
            {"StepRC", "01"},
            {"MinRC", "1"},
            {"MaxRC", "1"},
            {"Command", "make -C src all"},
            {"WorkDir", "%VQS%"},
            {"Parent", key}};
        for (const auto& [column, value] : stepCells) step.cells[steps.ColumnIndex(column)] = value;
    }

    int Vqctl(std::vector<std::string> args) {
        args.insert(args.begin(), BinFolder() + "vqctl");
        return WaitFor(Spawn(args, env));
    }
    double TimedVqctlMs(const std::vector<std::string>& args) {
        const auto start = Clock::now();
        if (Vqctl(args) != 0) return -1;
        return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    }

    std::vector<std::string> env;
    pid_t bus = -1, vqserv = -1;
};

ConsoleBench& Shared() {
    static ConsoleBench bench;
    return bench;
}

void RunStatus(benchmark::State& state, const std::vector<std::string>& args) {
    ConsoleBench& b = Shared();
    for (auto _ : state) {
        const double ms = b.TimedVqctlMs(args);
        if (ms < 0) state.SkipWithError("vqctl failed");
        state.SetIterationTime(ms / 1000);
    }
    state.SetLabel(std::to_string(kTasks) + " tasks");
}

void BM_VqctlStatus(benchmark::State& state) { RunStatus(state, {"status"}); }
void BM_VqctlStatusJson(benchmark::State& state) { RunStatus(state, {"status", "--json"}); }
// The bus and the client's reading of the rows, without a table or JSON to make.
void BM_VqctlStatusKeys(benchmark::State& state) { RunStatus(state, {"status", "--keys"}); }
// The floor: a small question (whether the queue runs) with the process start it needs.
void BM_VqctlQueueQuestion(benchmark::State& state) { RunStatus(state, {"queue"}); }

// The engine's part of a status: the rows of the whole queue, without the bus.
void BM_TaskRowsInTheEngine(benchmark::State& state) {
    ConsoleBench& b = Shared();
    for (auto _ : state) benchmark::DoNotOptimize(TaskRows(b.server, ""));
    state.SetLabel(std::to_string(kTasks) + " tasks");
}

// A status --json is started, and small questions follow each other until it has ended;
// the longest of them, less an idle one, is how long the server's thread was not free.
void BM_ServerBusyWhileAnswering(benchmark::State& state) {
    ConsoleBench& b = Shared();
    const double idle = b.TimedVqctlMs({"queue"});
    double busiest = 0;
    for (auto _ : state) {
        const pid_t status = Spawn({BinFolder() + "vqctl", "status", "--json"}, b.env);
        double longest = 0;
        int finished = 0;
        while (::waitpid(status, &finished, WNOHANG) == 0)
            longest = std::max(longest, b.TimedVqctlMs({"queue"}));
        busiest = std::max(busiest, longest - idle);
        state.SetIterationTime(longest / 1000);
    }
    state.counters["busy_ms"] = busiest;
    state.counters["idle_question_ms"] = idle;
}

BENCHMARK(BM_VqctlStatus)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VqctlStatusJson)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VqctlStatusKeys)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VqctlQueueQuestion)->UseManualTime()->Iterations(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TaskRowsInTheEngine)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ServerBusyWhileAnswering)
    ->UseManualTime()
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
