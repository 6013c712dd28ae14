#include "tests/support/TestSupport.h"

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Monitor.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "storage/Settings.h"

namespace vq::test {

TempDir::TempDir() {
    std::string pattern = std::filesystem::temp_directory_path().string() + "/vqtest.XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (!mkdtemp(name.data())) std::abort();
    path_ = std::string(name.data()) + "/";
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

TestServer::TestServer(Screen* screenGiven) {
    registry = std::make_unique<Registry>(dir.Path() + "config/registry.db", dir.Path() + "config/autostart");
    server = std::make_unique<Server>(clock, op, *registry, screenGiven ? *screenGiven : screen);
    BuildColumns(server->tables, *registry);
    const std::string root = dir.Path() + "queue/";
    MakeFolders(root);
    SaveRegSetting(*registry, "ServerSettings", "ServPath", root);
    server->ServerPath = root;
    server->DataPath = root + "$Data/";
    server->InQueuePath = root + "$InQ/";
    server->ProgramFolder = VQ_TEST_PROGRAM_FOLDER;
    server->RunnerPath = server->ProgramFolder + "runlet";
    CheckQueueFolders(*server, root);
}

std::string TestServer::AddTask(int number, const std::string& name, const std::string& status,
                                const std::string& priority) {
    const std::string key = MakeRowKey(number, name);
    VqTable& tasks = server->tables.TaskTable;
    VqRow& row = tasks.AddRow(key, name);
    const std::string id = ZeroPad(number, 6), now = FormatDateTime(clock.Now());
    const std::pair<const char*, std::string> cells[] = {
        {"ID", id}, {"Status", status}, {"Class", "A"}, {"UserName", "tester"},
        {"Domain", "LOCAL"}, {"Server", "HOST"}, {"JobReport", name},
        {"Queue Priority", priority}, {"CPU", "22"}, {"SchTime", now}, {"SubTime", now},
        {"AllR", "0001"}, {"CurRepeat", "0"}, {"CurStep", "0000"}, {"AllSteps", "0000"},
        {"JobRC", "01"}, {"MaxRC", "08"}, {"MaxRunTime", "000000000"},
        {"PeakMem", "000000000"}, {"IO", "00000000000000"}, {"TCPU", "0:00:00:00:000"},
        {"Units", "000000000"},
        {"RF", server->ServerPath + "LOCAL/tester/" + name + "/" + id}};
    for (const auto& [column, value] : cells) row.cells[tasks.ColumnIndex(column)] = value;
    return key;
}

void TestServer::AddSteps(const std::string& taskKey, int count) {
    VqTable& steps = server->tables.StepTable;
    for (int i = 1; i <= count; ++i) {
        VqRow& row = steps.AddRow(MakeStepKey(taskKey, i), StepRowText(i));
        const std::pair<const char*, const char*> cells[] = {
            {"StepStatus", "Pending"}, {"Execute", "Yes"}, {"StepRC", "00"}, {"MinRC", "1"},
            {"MaxRC", "1"}, {"Command", "true"}, {"WorkDir", "%VQS%"}};
        for (const auto& [column, value] : cells) row.cells[steps.ColumnIndex(column)] = value;
        row.cells[steps.ColumnIndex("Parent")] = taskKey;
    }
    SetCell(server->tables, kTaskTable, taskKey, "AllSteps", ZeroPad(count, 4));
}

std::string TestServer::LogText() const { return ReadFileText(server->DataPath + "SrvLog.txt"); }

void TestServer::SetSetting(const char* name, const std::string& value) {
    SaveRegSetting(*registry, "ServerSettings", name, value);
}

std::string AddRunnableTask(TestServer& t, int number, const std::string& name, int steps,
                            const std::string& status) {
    const std::string key = t.AddTask(number, name, status);
    SetTaskCell(t, key, "UserName", "$LOCALUSER$");
    SetTaskFolder(*t, key);
    t.AddSteps(key, steps);
    EnsureTaskFolders(*t, key);
    return key;
}

void SetStepCell(TestServer& t, const std::string& taskKey, int step, const char* column,
                 const std::string& value) {
    SetCell(t->tables, kStepTable, MakeStepKey(taskKey, step), column, value);
}

std::string StepCell(TestServer& t, const std::string& taskKey, int step, const char* column) {
    return GetCell(t->tables, kStepTable, MakeStepKey(taskKey, step), column);
}

std::string TaskCellOf(TestServer& t, const std::string& taskKey, const char* column) {
    return GetCell(t->tables, kTaskTable, taskKey, column);
}

void SetTaskCell(TestServer& t, const std::string& taskKey, const char* column,
                 const std::string& value) {
    SetCell(t->tables, kTaskTable, taskKey, column, value);
}

bool HasTask(TestServer& t, const std::string& taskKey) {
    return t->tables.TaskTable.FindRow(taskKey) != nullptr;
}

bool TickUntilComplete(TestServer& t, const std::string& taskKey, int limitMs) {
    return WaitUntil(
        [&] {
            Timer3_Timer(*t);
            if (BaseStatus(TaskCellOf(t, taskKey, "Status")) == kComplete) return true;
            t.clock.Advance(2);
            return false;
        },
        limitMs);
}

LocaleScope::LocaleScope(const std::string& name)
    : name_(name), before_(std::setlocale(LC_ALL, nullptr)),
      active_(std::setlocale(LC_ALL, name.c_str()) != nullptr) {}

LocaleScope::~LocaleScope() { std::setlocale(LC_ALL, before_.c_str()); }

::testing::AssertionResult LocaleScope::Active() const {
    if (active_) return ::testing::AssertionSuccess();
    const std::string base = name_.substr(0, name_.find('.'));
    return ::testing::AssertionFailure()
           << "The locale " << name_ << " is missing. scripts/test.sh makes it; by hand: "
           << "localedef -i " << base << " -f UTF-8 " << name_;
}

std::string ReadFileText(const std::string& path) {
    std::string content;
    ReadWholeFile(path, content);
    return content;
}

}  // namespace vq::test
