#include "runner/StartFill.h"

#include "calendar/Common.h"
#include "core/Server.h"
#include "platform/Error.h"
#include "storage/Classes.h"
#include "storage/Enkripcija.h"
#include "storage/Settings.h"

namespace vq {
namespace {

constexpr const char* kServerSettings = "ServerSettings";

// A number cell: empty reads as 0, anything but a number fails.
int32_t CellLong(const std::string& text) {
    if (Trim(text).empty()) return 0;
    return static_cast<int32_t>(CellNumber(text));
}

int32_t SettingLong(Server& server, const char* name) {
    return static_cast<int32_t>(Val(GetSettingText(server.registry, kServerSettings, name)));
}

std::string PriorityText(int32_t code) { return PriorityName(ZeroPad(code, 2)); }

bool GoesToSlurm(Registry& reg, char classLetter) {
    if (ToUpper(GetSettingText(reg, kClusterSection, kClusterBackend)) != "SLURM") return false;
    const std::string classes = ToUpper(GetSettingText(reg, kClusterSection, kClusterClasses));
    return classes.empty() || classes.find(classLetter) != std::string::npos;
}

// "--name=value" for a setting that holds more than blanks.
void AddNamedArg(std::vector<std::string>& args, const char* option, const std::string& value) {
    if (!Trim(value).empty()) args.push_back(std::string("--") + option + "=" + value);
}

}  // namespace

char StepClassLetter(const std::string& classCell) {
    const char first = classCell.empty() ? 'A' : ToUpper(classCell.substr(0, 1))[0];
    return first >= 'A' && first <= 'Z' ? first : 'A';
}

std::vector<std::string> ClusterRunnerArgs(Registry& reg, char classLetter) {
    if (!GoesToSlurm(reg, classLetter)) return {};
    std::vector<std::string> args = {
        "--backend=slurm",
        "--poll-seconds=" +
            std::to_string(GetSettingNumber(reg, kClusterSection, kClusterPollSeconds))};
    AddNamedArg(args, "partition", Trim(GetSettingText(reg, kClusterSection, kClusterPartition)));
    AddNamedArg(args, "account", Trim(GetSettingText(reg, kClusterSection, kClusterAccount)));
    // As stored: the runner splits the options as a shell would.
    AddNamedArg(args, "sbatch-args", GetSettingText(reg, kClusterSection, kClusterExtraArgs));
    return args;
}

int32_t ClampPriority(int32_t priority, int32_t serverMax, int32_t classMax,
                      std::string& warnings) {
    if (priority > serverMax) {
        warnings += "\r\nCPU Priority = " + PriorityText(priority) +
                    "!\r\nSetting To Maximum CPU Priority (" + PriorityText(serverMax) + ")";
        return serverMax;
    }
    if (priority > classMax) {
        warnings += "\r\nCPU Priority = " + PriorityText(priority) +
                    "!\r\nSetting To Maximum Class CPU Priority (" + PriorityText(classMax) + ")";
        return classMax;
    }
    return priority;
}

int32_t ClampBufferSize(int32_t value, int32_t maximum, const std::string& what,
                        std::string& warnings) {
    if (value <= maximum) return value;
    warnings += "\r\nScreen Buffer Size " + what + " = " + std::to_string(value) +
                "!\r\nSetting To Maximum Screen Buffer Size (" + std::to_string(maximum) + ")";
    return maximum;
}

StartFill FillStartRecord(Server& server, const std::string& taskKey, int step) {
    WorkingTables& tables = server.tables;
    const std::string stepKey = MakeStepKey(taskKey, step);
    auto task = [&](const char* column) { return GetCell(tables, kTaskTable, taskKey, column); };
    auto stepCell = [&](const char* column) {
        return GetCell(tables, kStepTable, stepKey, column);
    };
    std::string taskName;
    if (!GetRowText(tables, kTaskTable, taskKey, taskName))
        throw VqError("Element not found: " + taskKey, 35601);

    StartFill fill;
    StartRecord& r = fill.record;
    r.ConsMode = SettingLong(server, "ConsMode");
    r.WindowX = r.WindowY = r.WindowWidth = r.WindowHeight = -1;
    r.TaskId = CellLong(task("ID"));
    r.StepNumber = step;
    // The server maximum is MJP without its first character ("P22" gives 22).
    const std::string mjp = GetSettingText(server.registry, kServerSettings, "MJP");
    const int32_t serverMax = static_cast<int32_t>(Val(mjp.empty() ? mjp : mjp.substr(1)));
    r.Priority = ClampPriority(CellLong(task("CPU")), serverMax,
                               ClassCpuPriority(server, task("Class")), fill.warnings);
    r.BufferWidth = ClampBufferSize(CellLong(stepCell("BuffWidth")), SettingLong(server, "BufW"),
                                    "Width", fill.warnings);
    r.BufferHeight = ClampBufferSize(CellLong(stepCell("BuffHeight")), SettingLong(server, "BufH"),
                                     "Height", fill.warnings);
    r.UserName = task("UserName");
    r.Password = HexDecode(task("Password"));
    r.Reserved1.clear();
    r.TaskName = taskName;
    r.SubmitTime = task("SubTime");

    fill.commandText = stepCell("Command");
    fill.fileRcText = stepCell("FileRC");
    fill.environText = stepCell("Environ");
    r.CommandLength = static_cast<int32_t>(fill.commandText.size());
    r.FileRcLength = static_cast<int32_t>(fill.fileRcText.size());
    r.EnvironLength = static_cast<int32_t>(fill.environText.size());

    r.WorkDir = stepCell("WorkDir");
    r.OutputFile = WithBackslash(task("RF")) + "Step" + std::to_string(step) + ".txt";
    r.UserFolder = WithBackslash(server.ServerPath) + task("Domain") + "/" + task("UserName") + "/";
    r.TaskIdText = task("ID");
    r.TaskMaxRc = CellLong(task("MaxRC"));
    r.TaskRc = CellLong(task("JobRC"));
    r.StepMinRc = CellLong(stepCell("MinRC"));
    r.StepMaxRc = CellLong(stepCell("MaxRC"));
    r.RepeatCount = CellLong(task("RepCnt"));
    r.Reserved2 = r.Reserved3 = 0;
    r.SearchBlockSize = SettingLong(server, "SBS");
    // MSFS is in kilobytes, the field in bytes.
    r.MaxSearchSegment = SettingLong(server, "MSFS") * 1024;
    r.MaxLineSize = SettingLong(server, "MLS");
    r.CaptureDelay =
        SettingLong(server, "CSEnabled") == 1 ? SettingLong(server, "CSTimeDelay") : -1;
    r.Reserved4 = 0;
    r.OsKind = server.OsKind;
    fill.classLetter = StepClassLetter(task("Class"));
    fill.runnerArgs = ClusterRunnerArgs(server.registry, fill.classLetter);
    return fill;
}

}  // namespace vq
