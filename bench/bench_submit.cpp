// The cost of one submission with an empty queue and with a queue of 10,000 tasks of 3 steps.
// Goal: with 10,000 tasks at most twice the cost on an empty queue.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "access/Submission.h"
#include "bench/ServerOnDisk.h"
#include "calendar/Common.h"
#include "storage/Enkripcija.h"
#include "storage/TaskFile.h"

namespace {

using namespace vq;

// A server on a queue of its own with `count` tasks of 3 steps in its tables.
struct Fixture : bench::ServerOnDisk {
    explicit Fixture(int count) : ServerOnDisk("BENCH") {
        for (int i = 1; i <= count; ++i) AddQueuedTask(i);
        server.NextTaskNumber = count;
        TaskFileData task = NewTaskFile("Bench", "BENCH", "me", "2026-01-01 00:00:00");
        task.general.Password = HexEncode(ScrambleBlock("E", ""));
        for (size_t s = 1; s <= 3; ++s) task.steps.push_back(NewTaskStep("echo step", s));
        taskFileText = TaskFileText(task);
    }

    // A task as submission leaves it, without its folder.
    void AddQueuedTask(int number) {
        const std::string name = "Task " + std::to_string(number);
        const std::string key = MakeRowKey(number, name);
        VqTable& tasks = server.tables.TaskTable;
        VqRow& row = tasks.AddRow(key, name);
        const std::pair<const char*, std::string> cells[] = {
            {"ID", ZeroPad(number, 6)}, {"Status", "Waiting"}, {"Class", "A"}, {"UserName", "$LOCALUSER$"},
            {"Domain", "$LOCALS$"}, {"Queue Priority", "000200"}, {"SchTime", "2026-01-01 00:00:00"},
            {"AllSteps", "0003"}, {"JobRC", "01"}, {"MaxRC", "08"}, {"RF", server.ServerPath + name}};
        for (const auto& [column, value] : cells) row.cells[tasks.ColumnIndex(column)] = value;
        VqTable& steps = server.tables.StepTable;
        for (int s = 1; s <= 3; ++s) {
            VqRow& step = steps.AddRow(MakeStepKey(key, s), StepRowText(s));
            step.cells[steps.ColumnIndex("Command")] = "echo step";
            step.cells[steps.ColumnIndex("Parent")] = key;
        }
    }

    // Takes the task of the last submission out again, rows and folder.
    void Forget(const std::string& key) {
        const std::string rf = GetCell(server.tables, kTaskTable, key, "RF");
        for (int s = 1; s <= 3; ++s) server.tables.StepTable.RemoveRow(MakeStepKey(key, s));
        server.tables.TaskTable.RemoveRow(key);
        std::error_code ignored;
        std::filesystem::remove_all(rf, ignored);
    }

    std::string taskFileText;
};

void BM_SubmitTask(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        WriteFileAtomic(f.server.InQueuePath + "bench.vqf", f.taskFileText);
        state.ResumeTiming();
        std::string key;
        if (!SubmitTask(f.server, "bench.vqf", &key) || key.empty()) state.SkipWithError("the submission failed");
        state.PauseTiming();
        f.Forget(key);
        state.ResumeTiming();
    }
    state.SetLabel(std::to_string(state.range(0)) + " tasks of 3 steps in the queue");
}
BENCHMARK(BM_SubmitTask)->Arg(0)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
