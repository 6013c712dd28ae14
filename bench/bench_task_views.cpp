// The screen refresh that a tick asks for: LoadTree, which ends in the refresh of the shown
// node, with 10,000 tasks in the queue and the node Jobs shown. Once over the task views
// alone, once through the main window's models and lists, offscreen. Goal: under 100 ms, so
// that a tick never freezes the window.
#include <benchmark/benchmark.h>

#include <QApplication>

#include "bench/ServerOnDisk.h"
#include "calendar/Common.h"
#include "console/Form1.h"
#include "console/TaskViews.h"
#include "core/tables/Status.h"

namespace {

using namespace vq;

const VqDate kNow = MakeDate({2026, 11, 22, 12, 0, 0, 0});

// Tasks of three steps in the four groups, of four users in two domains.
struct Fixture : bench::ServerOnDisk {
    explicit Fixture(int count) : ServerOnDisk("HOST", kNow) {
        static const std::string phases[] = {kWaiting, kReady, kRunning, kComplete};
        const std::string submitted = FormatDateTime(AddSeconds(kNow, -3600));
        VqTable& tasks = server.tables.TaskTable;
        VqTable& steps = server.tables.StepTable;
        for (int i = 1; i <= count; ++i) {
            const std::string name = "Nightly build " + std::to_string(i % 97);
            const std::string key = MakeRowKey(i, name);
            VqRow& row = tasks.AddRow(key, name);
            const std::pair<const char*, std::string> cells[] = {
                {"ID", ZeroPad(i, 6)}, {"Status", phases[i % 4]}, {"Class", "A"},
                {"UserName", "user" + std::to_string(i % 4)}, {"Domain", i % 2 ? "LOCAL" : "OFFICE"},
                {"Server", "HOST"}, {"Queue Priority", ZeroPad(i % 900, 6)}, {"CPU", "22"},
                {"SchTime", submitted}, {"AllR", "0001"}, {"CurRepeat", "0"}, {"SubTime", submitted},
                {"CurStep", "0001"}, {"AllSteps", "0003"}, {"JobRC", "01"}, {"MaxRC", "08"},
                {"MaxRunTime", "000090061"}, {"PeakMem", "000204800"}, {"IO", "00000000012345"},
                {"TCPU", "0:00:01:02:003"}, {"Units", "000001234"}};
            for (const auto& [column, value] : cells) row.cells[tasks.ColumnIndex(column)] = value;
            for (int step = 1; step <= 3; ++step) {
                VqRow& stepRow = steps.AddRow(MakeStepKey(key, step), StepRowText(step));
                const std::pair<const char*, const char*> stepCells[] = {
                    {"StepStatus", "Pending"}, {"Execute", "Yes"}, {"StepRC", "00"},
                    {"SPeakMem", "000000000"}, {"SIO", "00000000000000"},
                    {"STCPU", "0:00:00:00:000"}, {"SUnits", "000000000"}, {"MinRC", "1"},
                    {"MaxRC", "1"}};
                for (const auto& [column, value] : stepCells)
                    stepRow.cells[steps.ColumnIndex(column)] = value;
                stepRow.cells[steps.ColumnIndex("Parent")] = key;
            }
        }
    }

    // What a tick with a running task changes: its sums.
    void Tick(int n) {
        VqTable& tasks = server.tables.TaskTable;
        const std::string key = tasks.RowAt(static_cast<size_t>(n) % tasks.RowCount()).key;
        tasks.SetCell(key, "Units", ZeroPad(1000 + n, 9));
        tasks.SetCell(key, "TCPU", "0:00:01:02:" + ZeroPad(n % 1000, 3));
    }
};

// The window as vqserv shows it at start-up.
void Open(Form1& window) {
    window.resize(1024, 640);
    window.LoadAtStart();
    window.show();
    QApplication::processEvents();
}

void BM_RefreshViews(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    ViewListener nobody;
    TaskViews views(f.server, nobody);
    views.BuildTaskColumns();
    views.BuildStepColumns();
    views.LoadTree();
    views.SelectNode("Jobs");
    int n = 0;
    for (auto _ : state) {
        f.Tick(++n);
        views.LoadTree();
    }
    state.SetLabel(std::to_string(views.Tasks().RowCount()) + " rows shown");
}
BENCHMARK(BM_RefreshViews)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_RefreshWindow(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    Form1 window(f.server);
    Open(window);
    int n = 0;
    for (auto _ : state) {
        f.Tick(++n);
        window.LoadTree();
        QApplication::processEvents();
    }
}
BENCHMARK(BM_RefreshWindow)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

// A click on a column header: the table sorted and the list built anew.
void BM_HeaderSort(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    Form1 window(f.server);
    Open(window);
    int column = 0;
    for (auto _ : state) {
        window.Views().SortOnColumn(column++ % 4);
        QApplication::processEvents();
    }
}
BENCHMARK(BM_HeaderSort)->Arg(10000)->Unit(benchmark::kMillisecond);

// The first fill of the list at start-up, which the ticks then only update.
void BM_FirstFill(benchmark::State& state) {
    Fixture f(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        Form1 window(f.server);
        window.LoadAtStart();
        benchmark::DoNotOptimize(f.server.tables.TaskView.RowCount());
    }
}
BENCHMARK(BM_FirstFill)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
