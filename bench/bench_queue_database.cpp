// The cost of saving and loading the queue database with large queues of 3-step tasks, where
// that cost goes (the text alone against the files and folder checks), and the cost of the
// journal entry of one submission against the size of the queue.
//   bench_queue_database [--benchmark_filter=...]
// Goals at 10,000 tasks: a save under 150 ms, a load under 300 ms; a journal entry costs the
// same with an empty queue and with 10,000 tasks.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <vector>

#include "access/QueueFolders.h"
#include "bench/ServerOnDisk.h"
#include "calendar/Common.h"
#include "core/Server.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "storage/QueueDatabase.h"
#include "storage/Settings.h"

namespace {

using namespace vq;

// A server with its own queue root and settings store, holding `count` tasks of 3 steps with
// every cell filled as a submission fills it. Each task has its folder, as in a real queue: the
// first load makes them (outside the timing), later loads find them and their files as a
// restart does.
struct Fixture : bench::ServerOnDisk {
    explicit Fixture(int count) : ServerOnDisk("HOST") {
        for (int i = 1; i <= count; ++i) AddTask(i);
    }

    void AddTask(int number) {
        const std::string name = "Nightly build " + std::to_string(number % 50);
        const std::string key = MakeRowKey(number, name);
        VqTable& tasks = server.tables.TaskTable;
        VqRow& row = tasks.AddRow(key, name);
        const std::string now = FormatDateTime(clock.Now());
        const std::pair<const char*, std::string> cells[] = {
            {"ID", ZeroPad(number, 6)},
            {"Status", kWaiting},
            {"Class", "A"},
            {"UserName", "builder"},
            {"Password", std::string(80, 'C')},
            {"Domain", "LOCAL"},
            {"Server", "HOST"},
            {"JobReport", name},
            {"Queue Priority", "000120"},
            {"CPU", "22"},
            {"SchTime", now},
            {"Repeat", "0000000000000000000000000000000000000000"},
            {"AllR", "0001"},
            {"CurRepeat", "0"},
            {"SubTime", now},
            {"CurStep", "0000"},
            {"AllSteps", "0003"},
            {"JobRC", "01"},
            {"MaxRC", "08"},
            {"NIzv", "0"},
            {"RepCnt", "0"},
            {"RF", server.ServerPath + "LOCAL/builder/" + name + "/" + ZeroPad(number, 6)},
            {"MaxRunTime", "000003600"},
            {"PeakMem", "000000000"},
            {"IO", "00000000000000"},
            {"TCPU", "0:00:00:00:000"},
            {"Units", "000000000"},
            {"RepCancel", "0"}};
        for (const auto& [column, value] : cells) row.cells[tasks.ColumnIndex(column)] = value;
        VqTable& steps = server.tables.StepTable;
        for (int s = 1; s <= 3; ++s) {
            VqRow& step = steps.AddRow(MakeStepKey(key, s), StepRowText(s));
            const std::pair<const char*, std::string> stepCells[] = {
                {"StepStatus", "Pending"},
                {"Execute", "Yes"},
                {"StepRC", "00"},
                {"SPeakMem", "000000000"},
                {"SSMem", "0"},
                {"SIO", "00000000000000"},
                {"STCPU", "0:00:00:00:000"},
                {"SUnits", "000000000"},
                {"MinRC", "1"},
                {"MaxRC", "1"},
                {"Command", "make -C /home/builder/src/project" + std::to_string(s) + " all"},
                {"WorkDir", "%VQS%"},
                {"Environ", "BUILD=release\r\nJOBS=2"},
                {"BuffHeight", "0300"},
                {"BuffWidth", "0080"},
                {"Parent", key}};
            for (const auto& [column, value] : stepCells)
                step.cells[steps.ColumnIndex(column)] = value;
        }
    }

    int64_t FileSize(const std::string& name) {
        struct stat st {};
        return ::stat((server.DataPath + name).c_str(), &st) == 0 ? st.st_size : 0;
    }

};

void Label(benchmark::State& state, Fixture& f) {
    state.SetLabel(std::to_string(state.range(0)) + " tasks");
    state.counters["Jobs.dat_MB"] = static_cast<double>(f.FileSize(kJobsFile)) / 1e6;
    state.counters["Steps.dat_MB"] = static_cast<double>(f.FileSize(kStepsFile)) / 1e6;
}

// The whole save: the counter, both files, the backup pair, each through a flushed temporary.
void BM_SaveQueueDatabase(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    for (auto _ : state)
        if (!SaveQueueDatabase(f.server)) state.SkipWithError("save failed");
    Label(state, f);
}

// The whole load: both files read and parsed, the journal, the folder check of every task.
void BM_LoadQueueDatabase(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    if (!SaveQueueDatabase(f.server) || !LoadQueueDatabase(f.server))
        state.SkipWithError("setup failed");
    for (auto _ : state)
        if (!LoadQueueDatabase(f.server)) state.SkipWithError("load failed");
    Label(state, f);
}

// The text of both files alone, scrambling included, without any file.
void BM_BuildDatabaseText(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(TasksText(f.server.tables));
        benchmark::DoNotOptimize(StepsText(f.server.tables));
    }
    state.SetLabel(std::to_string(state.range(0)) + " tasks");
}

// Parsing both texts into the tables alone, without files or folder checks.
void BM_ParseDatabaseText(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    const std::string jobs = TasksText(f.server.tables), steps = StepsText(f.server.tables);
    for (auto _ : state) {
        f.server.tables.TaskTable.ClearRows();
        f.server.tables.StepTable.ClearRows();
        ReadTasksText(f.server.tables, jobs);
        ReadStepsText(f.server.tables, steps);
    }
    state.SetLabel(std::to_string(state.range(0)) + " tasks");
}

// One journal entry of a submitted 3-step task, flushed to disk, with `range(0)` other tasks
// in the queue. The entries of earlier iterations stay in the journal, as between two saves.
void BM_JournalSubmittedTask(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    f.AddTask(999999);
    const std::string key =
        f.server.tables.TaskTable.RowAt(f.server.tables.TaskTable.RowCount() - 1).key;
    for (auto _ : state)
        if (!JournalSubmittedTask(f.server, key)) state.SkipWithError("journal failed");
    state.SetLabel(std::to_string(state.range(0)) + " tasks in the queue");
}

BENCHMARK(BM_SaveQueueDatabase)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadQueueDatabase)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BuildDatabaseText)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseDatabaseText)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_JournalSubmittedTask)->Arg(0)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
