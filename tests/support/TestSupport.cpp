#include "tests/support/TestSupport.h"

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
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

TestServer::TestServer() {
    registry = std::make_unique<Registry>(dir.Path() + "config/registry.db", dir.Path() + "config/autostart");
    server = std::make_unique<Server>(clock, op, *registry, screen);
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
    auto set = [&](const char* column, const std::string& value) {
        row.cells[tasks.ColumnIndex(column)] = value;
    };
    set("ID", ZeroPad(number, 6));
    set("Status", status);
    set("Class", "A");
    set("UserName", "tester");
    set("Domain", "LOCAL");
    set("Server", "HOST");
    set("JobReport", name);
    set("Queue Priority", priority);
    set("CPU", "22");
    set("SchTime", FormatDateTime(clock.Now()));
    set("AllR", "0001");
    set("CurRepeat", "0");
    set("SubTime", FormatDateTime(clock.Now()));
    set("CurStep", "0000");
    set("AllSteps", "0000");
    set("JobRC", "01");
    set("MaxRC", "08");
    set("RF", server->ServerPath + "LOCAL/tester/" + name + "/" + ZeroPad(number, 6));
    set("MaxRunTime", "000000000");
    set("PeakMem", "000000000");
    set("IO", "00000000000000");
    set("TCPU", "0:00:00:00:000");
    set("Units", "000000000");
    return key;
}

void TestServer::AddSteps(const std::string& taskKey, int count) {
    VqTable& steps = server->tables.StepTable;
    for (int i = 1; i <= count; ++i) {
        VqRow& row = steps.AddRow(MakeStepKey(taskKey, i), StepRowText(i));
        auto set = [&](const char* column, const std::string& value) {
            row.cells[steps.ColumnIndex(column)] = value;
        };
        set("StepStatus", "Pending");
        set("Execute", "Yes");
        set("StepRC", "00");
        set("MinRC", "1");
        set("MaxRC", "1");
        set("Command", "true");
        set("WorkDir", "%VQS%");
        set("Parent", taskKey);
    }
    SetCell(server->tables, kTaskTable, taskKey, "AllSteps", ZeroPad(count, 4));
}

std::string TestServer::LogText() const { return ReadFileText(server->DataPath + "SrvLog.txt"); }

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
