// The cost of the two ticks with large queues, and of cell lookups.
//
// The queue is filled as submission fills it: every cell of 3-step tasks, the steps' rows
// with their parent, a queue root and a settings store in a temporary folder. The runner
// path names no program, so that a start costs the server's side only (the first poll then
// ends the step). Goals: every tick within 20 ms at 10,000 tasks and 250 ms at 100,000.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <random>

#include "bench/ServerOnDisk.h"
#include "calendar/Common.h"
#include "core/Monitor.h"
#include "core/QueueCycle.h"
#include "core/Server.h"
#include "core/tables/Status.h"
#include "runner/RunnerLink.h"
#include "storage/Settings.h"

namespace {

using namespace vq;

constexpr int kStepsPerTask = 3;
const VqDate kNow = MakeDate({2026, 11, 22, 12, 0, 0, 0});

// A server whose queue holds `count` tasks: a fifth finished two hours ago (beyond the stay of
// one hour, so that they all leave in the next monitor tick), the others Waiting, Ready or
// held, in a random order of priorities.
struct Fixture : bench::ServerOnDisk {
    explicit Fixture(int count) : ServerOnDisk("HOST", kNow) {
        server.RunnerPath = folder + "no-runner";
        std::mt19937 random(42);
        static const std::string phases[] = {kWaiting, kReady, kWaitingHold, kReadyHold};
        for (int i = 1; i <= count; ++i) {
            const bool finished = i % 5 == 0;
            keys.push_back(AddTask(i, finished ? kComplete : phases[random() % 4],
                                   ZeroPad(random() % 900 + 100, 6), finished));
        }
    }

    std::string AddTask(int number, const std::string& status, const std::string& priority,
                        bool finished) {
        const std::string name = "Nightly build " + std::to_string(number % 97);
        const std::string key = MakeRowKey(number, name);
        VqTable& tasks = server.tables.TaskTable;
        VqRow& row = tasks.AddRow(key, name);
        const std::string submitted = FormatDateTime(AddSeconds(kNow, -3 * 3600));
        const std::pair<const char*, std::string> cells[] = {
            {"ID", ZeroPad(number, 6)}, {"Status", status}, {"Class", "A"},
            {"UserName", "$LOCALUSER$"}, {"Password", std::string(80, 'A')}, {"Domain", "$LOCALS$"},
            {"Server", "HOST"}, {"JobReport", name}, {"Dependency", ""},
            {"Queue Priority", priority}, {"CPU", "22"}, {"SchTime", submitted},
            {"Repeat", std::string(60, '0')}, {"AllR", "0001"}, {"CurRepeat", "0"},
            {"SubTime", submitted}, {"JobIndex", ""}, {"CurStep", finished ? "0003" : "0000"},
            {"AllSteps", ZeroPad(kStepsPerTask, 4)}, {"JobRC", "01"}, {"MaxRC", "08"},
            {"NIzv", "0"}, {"RepCnt", "1"},
            {"RF", server.ServerPath + "$LOCALS$/$LOCALUSER$/" + name + "/" + ZeroPad(number, 6)},
            {"MaxRunTime", "000000000"}, {"PeakMem", "000000000"}, {"IO", "00000000000000"},
            {"TCPU", "0:00:00:00:000"}, {"Units", "000000000"}, {"RepCancel", "0"},
            {"Start", finished ? submitted : ""},
            {"End", finished ? FormatDateTime(AddSeconds(kNow, -2 * 3600)) : ""}};
        for (const auto& [column, value] : cells) row.cells[tasks.ColumnIndex(column)] = value;
        VqTable& steps = server.tables.StepTable;
        for (int step = 1; step <= kStepsPerTask; ++step) {
            VqRow& stepRow = steps.AddRow(MakeStepKey(key, step), StepRowText(step));
            const std::pair<const char*, std::string> stepCells[] = {
                {"StepStatus", finished ? kStepComplete : kStepPending}, {"Execute", "Yes"},
                {"StepRC", finished ? "01" : "00"}, {"SPeakMem", "000000000"}, {"SSMem", "0"},
                {"SIO", "00000000000000"}, {"STCPU", "0:00:00:00:000"}, {"SUnits", "000000000"},
                {"MinRC", "1"}, {"MaxRC", "1"}, {"Command", "make -j2 all"}, {"FileRC", ""},
                {"WorkDir", "%VQS%"}, {"Environ", "MODE=release"}, {"BuffHeight", "0300"},
                {"BuffWidth", "0080"}, {"Parent", key}};
            for (const auto& [column, value] : stepCells)
                stepRow.cells[steps.ColumnIndex(column)] = value;
        }
        return key;
    }

    // The task that the last start pass started, or the empty text.
    std::string StartedTask() {
        const int jobIndex = server.tables.TaskTable.ColumnIndex("JobIndex");
        for (const std::string& key : keys)
            if (VqRow* row = server.tables.TaskTable.FindRow(key);
                row && !row->cells[jobIndex].empty())
                return key;
        return {};
    }

    // The task gives back what its start took and is Ready again, so that the next tick
    // starts one as well.
    void ReadyAgain(const std::string& key) {
        server.link.currentSlot = 1;
        CloseRunner(server);
        server.SlotReportFile[1].Reset();
        FreeSlot(server, 1);
        const std::pair<const char*, const char*> cells[] = {
            {"JobIndex", ""}, {"Status", "Ready"}, {"CurStep", "0000"}, {"JobRC", "01"}};
        for (const auto& [column, value] : cells)
            SetCell(server.tables, kTaskTable, key, column, value);
    }

    std::vector<std::string> keys;
};

std::string Label(benchmark::State& state) {
    return std::to_string(state.range(0)) + " tasks of " + std::to_string(kStepsPerTask) + " steps";
}

// The queue cycle: ageing, the start pass, which starts the highest Ready task, and promotion.
void BM_Timer1Tick(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        Timer1_Timer(f.server);
        state.PauseTiming();
        const std::string started = f.StartedTask();
        if (started.empty()) state.SkipWithError("no task started");
        f.ReadyAgain(started);
        state.ResumeTiming();
    }
    state.SetLabel(Label(state));
}
BENCHMARK(BM_Timer1Tick)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The monitor in a tick in which a fifth of the tasks leave the queue at once (a restart after
// a long stop): each iteration gets a fresh queue, and the tick alone is timed.
void BM_Timer3TickFifthExpires(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        auto f = std::make_unique<Fixture>(count);
        state.ResumeTiming();
        Timer3_Timer(f->server);
        state.PauseTiming();
        const size_t left = f->server.tables.TaskTable.RowCount();
        if (left != static_cast<size_t>(count - count / 5) ||
            f->server.tables.StepTable.RowCount() != left * kStepsPerTask)
            state.SkipWithError("the finished tasks did not all leave");
        f.reset();
        state.ResumeTiming();
    }
    state.SetLabel(Label(state));
}
BENCHMARK(BM_Timer3TickFifthExpires)
    ->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(3)->Unit(benchmark::kMillisecond);

// The monitor in an ordinary tick: a task that the queue cycle has just started is polled and
// carried to its end, nothing expires; the walk over the whole queue is the cost.
void BM_Timer3TickWithRunningTask(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    SaveRegSetting(f.registry, "ServerSettings", "TIQH", "100");
    for (auto _ : state) {
        state.PauseTiming();
        Timer1_Timer(f.server);
        const std::string started = f.StartedTask();
        state.ResumeTiming();
        Timer3_Timer(f.server);
        state.PauseTiming();
        if (started.empty() || f.server.SlotUsed[1]) state.SkipWithError("no task ran to its end");
        f.ReadyAgain(started);
        state.ResumeTiming();
    }
    state.SetLabel(Label(state));
}
BENCHMARK(BM_Timer3TickWithRunningTask)
    ->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// One iteration is 1,000,000 GetCell calls on random rows.
void BM_GetCellMillion(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    std::mt19937 random(7);
    std::vector<size_t> picks(1000000);
    for (size_t& p : picks) p = random() % f.keys.size();
    size_t total = 0;
    for (auto _ : state) {
        for (size_t p : picks)
            total += GetCell(f.server.tables, kTaskTable, f.keys[p], "Queue Priority").size();
        benchmark::DoNotOptimize(total);
    }
    state.SetLabel(std::to_string(state.range(0)) + " tasks");
}
BENCHMARK(BM_GetCellMillion)->Arg(1000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
