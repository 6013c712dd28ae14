#include "access/Submission.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Monitor.h"
#include "core/Server.h"
#include "core/tables/Status.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"
#include "reports/TaskInfo.h"
#include "storage/Classes.h"
#include "storage/Enkripcija.h"
#include "storage/QueueDatabase.h"
#include "storage/Settings.h"
#include "storage/TaskFile.h"

namespace vq {
namespace {

// A number field of a task file: empty reads as 0, anything else must be a whole number.
int64_t FieldNumber(const std::string& text) {
    return Trim(text).empty() ? 0 : CellNumber(text);
}

std::string Padded(const std::string& text, int width) { return ZeroPad(FieldNumber(text), width); }

// A task file that gives no MAXRC, or "0", gets 8.
std::string TaskMaxRC(const std::string& text) {
    return text.empty() || text == "0" ? "08" : Padded(text, 2);
}

bool IsBareFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

bool NameExists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

void DeleteInputFile(const std::string& path) {
    if (NameExists(path)) ::unlink(path.c_str());
}

void CopyWholeFile(const std::string& from, const std::string& to) {
    std::string content, error;
    if (!ReadWholeFile(from, content)) throw VqError(from + ": " + ErrnoText(errno), 75);
    if (!WriteFileAtomic(to, content, &error)) throw VqError(error, 75);
}

// Steps 6 to 11: the task's row, cell by cell in the order of the columns, so that a failure
// leaves the cells written before it.
void AddTaskRow(Server& server, const TaskGeneral& g, const std::string& key, int32_t number) {
    VqTable& tasks = server.tables.TaskTable;
    VqRow& row = tasks.AddRow(key, g.TaskName);
    auto set = [&](const char* column, std::string value) {
        row.cells[tasks.ColumnIndex(column)] = std::move(value);
    };
    set("Status", kWaiting);
    set("UserName", g.User);
    // The block is never unscrambled here: the test only sees that it is hex text of a block.
    if (g.Password.size() < 17 || HexDecode(g.Password).empty()) throw VqError("");
    set("Password", g.Password);
    set("Domain", g.Domain);
    set("Server", g.SubServer);
    set("JobReport", g.TaskReportFile);
    set("Dependency", g.Dependent);
    set("Queue Priority", ZeroPad(SubmittedQueuePriority(server, g.QueuePriority, g.TaskClass), 6));
    set("CPU", Padded(g.CpuPriority, 2));
    set("MaxRC", TaskMaxRC(g.MaxRC));
    set("SchTime", FormatDateTime(ReadDate(g.ScheduledTime)));
    set("MaxRunTime", Padded(g.MaxTime, 9));
    set("Class", g.TaskClass);
    set("Repeat", g.TaskRepeat);
    set("CurRepeat", "0");
    set("SubTime", FormatDateTime(server.clock.Now()));
    set("CurStep", "0000");
    set("TCPU", "0:00:00:00:000");
    set("AllR", "0001");
    set("IO", "00000000000000");
    set("PeakMem", "000000000");
    set("Units", "000000000");
    set("JobRC", "01");
    set("RepCancel", g.RepeatCancel);
    set("ID", ZeroPad(number, 6));
    set("RF", server.ServerPath + g.Domain + "/" + g.User + "/" + g.TaskName + "/" + ZeroPad(number, 6));
}

// Step 12 for one step. The defaults are applied to the step record itself.
void AddStepRow(Server& server, const std::string& key, int number, TaskStep& step) {
    if (step.WorkingDirectory.empty()) step.WorkingDirectory = "%VQS%";
    const int64_t minRC = FieldNumber(step.MinRC);
    if (minRC == 0) step.MinRC = "1";
    if (FieldNumber(step.MaxRC) < FieldNumber(step.MinRC)) step.MaxRC = step.MinRC;

    VqTable& steps = server.tables.StepTable;
    VqRow& row = steps.AddRow(MakeStepKey(key, number), StepRowText(number));
    auto set = [&](const char* column, std::string value) {
        row.cells[steps.ColumnIndex(column)] = std::move(value);
    };
    set("Command", step.Command);
    set("FileRC", step.FileRC);
    set("Execute", (FieldNumber(step.Execute) & 1) != 0 ? "Yes" : "No");
    set("WorkDir", step.WorkingDirectory);
    set("Environ", step.Environment);
    set("BuffHeight", Padded(step.BuffHeight, 4));
    set("BuffWidth", Padded(step.BuffWidth, 4));
    set("StepStatus", kStepPending);
    set("StepRC", "00");
    set("MinRC", step.MinRC);
    set("MaxRC", step.MaxRC);
    set("STCPU", "0:00:00:00:000");
    set("Parent", key);
    set("SIO", "00000000000000");
    set("SPeakMem", "000000000");
    set("SUnits", "000000000");
    set("SSMem", "0");
}

// Steps 4 to 19, on a task file that was read. The key of the new task.
std::string AcceptTask(Server& server, const std::string& path, TaskFileData& task) {
    TaskGeneral& g = task.general;
    const std::string nameProblem = FileSystemNameProblem(g);
    if (!nameProblem.empty()) throw VqError(nameProblem);
    if (ToUpper(g.Server) != server.ComputerName || ToUpper(g.SubServer) != server.ComputerName)
        throw VqError("");

    const int32_t number = TakeTaskNumber(server);
    const std::string key = MakeRowKey(number, g.TaskName);
    AddTaskRow(server, g, key, number);
    for (size_t i = 0; i < task.steps.size(); ++i)
        AddStepRow(server, key, static_cast<int>(i + 1), task.steps[i]);
    SetCell(server.tables, kTaskTable, key, "AllSteps", ZeroPad(static_cast<int64_t>(task.steps.size()), 4));

    const std::string folder = GetCell(server.tables, kTaskTable, key, "RF");
    EnsureTaskFolders(server, key);
    CopyWholeFile(path, WithBackslash(folder) + kOriginalTaskFile);
    ClearProjectFolders(server, key);
    server.screen.LoadTree();
    WriteTaskInfo(server, key);
    WriteSubmitUser(server, g.SubUser, g.SubDomain, g.SubServer, folder);
    // On disk before the answer, so that an accepted task survives a crash.
    if (!JournalSubmittedTask(server, key))
        throw VqError("The task could not be recorded in the queue database.");
    return key;
}

}  // namespace

int32_t SubmittedQueuePriority(Server& server, const std::string& code, const std::string& classLetter) {
    int64_t number = 0;
    try {
        switch (FieldNumber(code)) {
            case 1: number = 1; break;
            case 2: number = GetSettingNumber(server.registry, "ServerSettings", "JQPL"); break;
            case 3: number = GetSettingNumber(server.registry, "ServerSettings", "JQPN"); break;
            case 4: number = GetSettingNumber(server.registry, "ServerSettings", "JQPH"); break;
            case 5: number = GetSettingNumber(server.registry, "ServerSettings", "JQPIE"); break;
            default: break;
        }
    } catch (const VqError&) {
        number = 0;  // a code that is no number is any other code
    }
    const int32_t cap = ClassQueuePriority(server, classLetter);
    return cap >= number ? static_cast<int32_t>(number) : cap;
}

bool SubmitTask(Server& server, const std::string& fileName, std::string* newKey) {
    if (newKey) newKey->clear();
    const std::string path = server.InQueuePath + fileName;
    const std::string invalid = "File \"" + path + "\" is invalid and it will be deleted.";
    if (!IsBareFileName(fileName)) {
        WriteServerLog(server, "The task file name \"" + CutAtNul(fileName) +
                                   "\" is no name of a file in $InQ: nothing was read or deleted.");
        return false;
    }
    if (!NameExists(path)) return true;
    try {
        TaskFileData task;
        std::string LastTaskFileError;
        if (!LoadTaskFile(server.clock, path, task, LastTaskFileError)) {
            WriteServerLog(server, invalid + "\r\n" + LastTaskFileError);
        } else {
            const std::string key = AcceptTask(server, path, task);
            if (newKey) *newKey = key;
        }
    } catch (const std::exception& e) {
        const auto* vqError = dynamic_cast<const VqError*>(&e);
        const int number = vqError ? vqError->Number() : 0;
        WriteServerLog(server, invalid + "\r\nError #: " + std::to_string(number) + " - " + e.what());
        DeleteInputFile(path);
        return false;
    }
    DeleteInputFile(path);
    return true;
}

bool WriteSubmitUser(Server& server, const std::string& subUser, const std::string& subDomain,
                     const std::string& subServer, const std::string& folder) {
    const std::string path = WithBackslash(folder) + kSubmitUserFile;
    if (WriteFileAtomic(path, subServer + "/" + subDomain + "/" + subUser + "\r\n")) return true;
    WriteServerLog(server, "Error occurred while writing submit user data file.\nPath: " + path);
    return false;
}

}  // namespace vq
