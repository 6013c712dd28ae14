// Renders the main window over a queue of twenty tasks in every state to a PNG, offscreen, so
// that a person can look at it: scripts/render-window.sh.
#include <QApplication>
#include <QTreeView>
#include <cstdio>

#include "calendar/Common.h"
#include "console/Form1.h"
#include "core/tables/WorkingTables.h"
#include "tests/support/TestSupport.h"

namespace {

struct TaskSample {
    const char* name;
    const char* status;
    const char* domain;
    const char* user;
    const char* peakMem;
    const char* units;
    const char* cpu;
    int steps;
};

constexpr TaskSample kTasks[] = {
    {"Nightly backup", "Running", "LOCAL", "ann", "000184320", "000001250", "0:00:03:12:450", 4},
    {"Index mail", "Running - Hold", "LOCAL", "ann", "000051200", "000000310", "0:00:00:41:002", 2},
    {"Render frames", "Running - Cancelling", "STUDIO", "bob", "001048576", "000009120", "0:01:12:09:700", 3},
    {"Sync photos", "Ready", "LOCAL", "ann", "000000000", "000000000", "0:00:00:00:000", 2},
    {"Compile docs", "Ready", "STUDIO", "bob", "000000000", "000000000", "0:00:00:00:000", 5},
    {"Weekly report", "Ready - Hold", "OFFICE", "carla", "000000000", "000000000", "0:00:00:00:000", 3},
    {"Archive logs", "Waiting", "LOCAL", "ann", "000000000", "000000000", "0:00:00:00:000", 2},
    {"Payroll export", "Waiting", "OFFICE", "carla", "000000000", "000000000", "0:00:00:00:000", 4},
    {"Clean temp", "Waiting - Hold", "LOCAL", "ann", "000000000", "000000000", "0:00:00:00:000", 1},
    {"Database dump", "Waiting", "OFFICE", "dave", "000000000", "000000000", "0:00:00:00:000", 3},
    {"Transcode audio", "Waiting", "STUDIO", "bob", "000000000", "000000000", "0:00:00:00:000", 2},
    {"Mirror site", "Complete", "LOCAL", "ann", "000020480", "000000140", "0:00:00:12:250", 2},
    {"Spell check", "Complete", "OFFICE", "carla", "000008192", "000000020", "0:00:00:02:010", 1},
    {"Test suite", "Complete - Cancelled", "STUDIO", "bob", "000409600", "000004410", "0:00:21:33:125", 6},
    {"Old import", "Complete - Unfinished", "OFFICE", "dave", "000012288", "000000095", "0:00:01:05:000", 2},
    {"Thumbnail cache", "Complete", "STUDIO", "bob", "000102400", "000000875", "0:00:04:48:300", 3},
    {"Calendar sync", "Waiting", "LOCAL", "ann", "000000000", "000000000", "0:00:00:00:000", 1},
    {"Invoice run", "Ready", "OFFICE", "carla", "000000000", "000000000", "0:00:00:00:000", 2},
    {"Feed fetch", "Complete", "LOCAL", "ann", "000004096", "000000012", "0:00:00:01:500", 1},
    {"Disk scrub", "Waiting", "LOCAL", "root", "000000000", "000000000", "0:00:00:00:000", 2},
};

void FillQueue(vq::test::TestServer& t) {
    using vq::test::SetStepCell;
    using vq::test::SetTaskCell;
    int number = 101;
    for (const TaskSample& sample : kTasks) {
        const std::string key = t.AddTask(number, sample.name, sample.status,
                                          vq::ZeroPad(200 + number % 7 * 13, 6));
        const std::pair<const char*, std::string> cells[] = {
            {"Domain", sample.domain}, {"UserName", sample.user}, {"PeakMem", sample.peakMem},
            {"Units", sample.units},   {"TCPU", sample.cpu},      {"IO", "00000000" + std::to_string(100000 + number * 37)},
            {"MaxRunTime", number % 3 == 0 ? "000000000" : "000090061"},
            {"CPU", number % 4 == 0 ? "32" : "22"},
            {"Class", number % 5 == 0 ? "B" : "A"},
            {"Dependency", number % 6 == 0 ? "$Nightly backup" : ""}};
        for (const auto& [column, value] : cells) SetTaskCell(t, key, column, value);
        t.AddSteps(key, sample.steps);
        const bool started = std::string(sample.status).rfind("Running", 0) == 0 ||
                             std::string(sample.status).rfind("Complete", 0) == 0;
        for (int step = 1; step <= sample.steps; ++step) {
            const bool done = started && (step < 2 || sample.status[0] == 'C');
            SetStepCell(t, key, step, "StepStatus", done ? "Complete" : started && step == 2 ? "Running" : "Pending");
            SetStepCell(t, key, step, "StepRC", done ? "01" : "00");
            SetStepCell(t, key, step, "SPeakMem", done ? "000020480" : "0");
            SetStepCell(t, key, step, "SIO", done ? "00000000004521" : "0");
            SetStepCell(t, key, step, "STCPU", done ? "0:00:00:12:250" : "0:00:00:00:000");
            SetStepCell(t, key, step, "SUnits", done ? "000000140" : "0");
        }
        SetTaskCell(t, key, "AllSteps", vq::ZeroPad(sample.steps, 4));
        ++number;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUTPUT.png [WIDTH HEIGHT]\n", argv[0]);
        return 2;
    }
    QApplication app(argc, argv);
    vq::test::TestServer t;
    FillQueue(t);
    vq::Form1 window(*t);
    window.resize(argc > 3 ? std::atoi(argv[2]) : 1024, argc > 3 ? std::atoi(argv[3]) : 640);
    window.LoadAtStart();
    window.show();
    QApplication::processEvents();
    window.Views().TaskRowClicked(t->tables.TaskTable.RowAt(0).key);
    QApplication::processEvents();
    if (!window.grab().save(QString::fromLocal8Bit(argv[1]))) {
        std::fprintf(stderr, "could not write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
