// The cost of one queue cycle tick and of cell lookups with large queues.
#include <benchmark/benchmark.h>

#include <random>

#include "calendar/Common.h"
#include "core/QueueCycle.h"
#include "core/Server.h"
#include "core/tables/Status.h"

namespace {

using namespace vq;

class StillClock final : public Clock {
public:
    VqDate Now() override { return 46000.5; }
    void Sleep(int) override {}
};

class SilentOperator final : public Operator {
public:
    void Message(const std::string&, MessageIcon, const std::string&) override {}
    bool AskYesNo(const std::string&, const std::string&, int) override { return true; }
    void Beep() override {}
};

// A server whose queue holds `count` tasks in mixed phases, the slot taken by a running one.
struct Fixture {
    explicit Fixture(int count) : registry("/nonexistent/registry.db", "/nonexistent/autostart"),
                                  server(clock, op, registry, screen) {
        BuildColumns(server.tables, registry);
        std::mt19937 random(42);
        VqTable& tasks = server.tables.TaskTable;
        const int priority = tasks.ColumnIndex("Queue Priority");
        const int status = tasks.ColumnIndex("Status");
        static const std::string phases[] = {kWaiting, kReady, kComplete, kWaitingHold, kReadyHold};
        for (int i = 1; i <= count; ++i) {
            const std::string key = MakeRowKey(i, "Task " + std::to_string(i));
            keys.push_back(key);
            VqRow& row = tasks.AddRow(key, "Task " + std::to_string(i));
            row.cells[tasks.ColumnIndex("ID")] = ZeroPad(i, 6);
            row.cells[priority] = ZeroPad(random() % 900 + 100, 6);
            row.cells[status] = phases[random() % 5];
        }
        server.SlotUsed[1] = true;
        server.RunningTaskCount = 1;
    }
    StillClock clock;
    SilentOperator op;
    Screen screen;
    Registry registry;
    Server server;
    std::vector<std::string> keys;
};

void BM_Timer1Tick(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    for (auto _ : state) Timer1_Timer(f.server);
    state.SetLabel(std::to_string(state.range(0)) + " tasks");
}
BENCHMARK(BM_Timer1Tick)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// One iteration is 1,000,000 GetCell calls on random rows.
void BM_GetCellMillion(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    std::mt19937 random(7);
    std::vector<size_t> picks(1000000);
    for (size_t& p : picks) p = random() % f.keys.size();
    size_t total = 0;
    for (auto _ : state) {
        for (size_t p : picks) total += GetCell(f.server.tables, kTaskTable, f.keys[p], "Queue Priority").size();
        benchmark::DoNotOptimize(total);
    }
    state.SetLabel(std::to_string(state.range(0)) + " tasks");
}
BENCHMARK(BM_GetCellMillion)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The same million calls walking the rows in table order, as the ticks do: the cost of the
// lookup itself, without the cache misses of random rows.
void BM_GetCellMillionInOrder(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    size_t total = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < 1000000; ++i)
            total += GetCell(f.server.tables, kTaskTable, f.keys[i % f.keys.size()], "Queue Priority").size();
        benchmark::DoNotOptimize(total);
    }
    state.SetLabel(std::to_string(state.range(0)) + " tasks");
}
BENCHMARK(BM_GetCellMillionInOrder)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// A million calls on the same 1,000 rows, whatever the size of the table: the cost of the
// lookup itself does not grow with the queue.
void BM_GetCellMillionSameRows(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    std::mt19937 random(11);
    std::vector<std::string> hot;
    for (int i = 0; i < 1000; ++i) hot.push_back(f.keys[random() % f.keys.size()]);
    size_t total = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < 1000000; ++i)
            total += GetCell(f.server.tables, kTaskTable, hot[i % hot.size()], "Queue Priority").size();
        benchmark::DoNotOptimize(total);
    }
    state.SetLabel(std::to_string(state.range(0)) + " tasks");
}
BENCHMARK(BM_GetCellMillionSameRows)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// The same after nine rows in ten were removed: removal leaves later lookups as fast.
void BM_GetCellMillionAfterRemoval(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)) * 10);
    std::vector<std::string> kept;
    for (size_t i = f.keys.size(); i-- > 0;) {
        if (i % 10 == 0)
            kept.push_back(f.keys[i]);
        else
            f.server.tables.TaskTable.RemoveRow(f.keys[i]);
    }
    std::mt19937 random(11);
    std::vector<std::string> hot;
    for (int i = 0; i < 1000; ++i) hot.push_back(kept[random() % kept.size()]);
    size_t total = 0;
    for (auto _ : state) {
        for (size_t i = 0; i < 1000000; ++i)
            total += GetCell(f.server.tables, kTaskTable, hot[i % hot.size()], "Queue Priority").size();
        benchmark::DoNotOptimize(total);
    }
    state.SetLabel(std::to_string(state.range(0)) + " tasks left of " + std::to_string(state.range(0) * 10));
}
BENCHMARK(BM_GetCellMillionAfterRemoval)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
