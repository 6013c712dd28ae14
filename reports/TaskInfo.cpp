#include "reports/TaskInfo.h"

#include <exception>

#include "calendar/Common.h"
#include "core/Server.h"
#include "core/tables/CpuTime.h"
#include "core/tables/Status.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"
#include "runner/Accounting.h"

namespace vq {
namespace {

constexpr size_t kInfoLabelWidth = 20;

// What a task has used: the finished steps, and the running step counted in.
struct Usage {
    int64_t io = 0;
    CpuTime cpu;
    int64_t units = 0;
};

Usage TaskUsage(Server& server, const std::string& taskKey, const std::string& status) {
    WorkingTables& tables = server.tables;
    auto cell = [&](const char* column) { return GetCell(tables, kTaskTable, taskKey, column); };
    Usage usage{CellNumber(cell("IO")), ParseCpuTime(cell("TCPU")), CellNumber(cell("Units"))};
    if (BaseStatus(status) != kRunning) return usage;
    const std::string stepKey = MakeStepKey(taskKey, static_cast<int>(CellNumber(cell("CurStep"))));
    if (!tables.StepTable.FindRow(stepKey)) return usage;
    auto step = [&](const char* column) { return GetCell(tables, kStepTable, stepKey, column); };
    usage.io += CellNumber(step("SIO"));
    usage.cpu = AddCpuTime(usage.cpu, ParseCpuTime(step("STCPU")));
    usage.units += CellNumber(step("SUnits"));
    return usage;
}

// "Complete" tells whether the task kept within its MaxRC; any other status stands as it is.
std::string InfoStatus(Server& server, const std::string& taskKey, const std::string& status) {
    if (status != kComplete) return status;
    const int64_t jobRc = CellNumber(GetCell(server.tables, kTaskTable, taskKey, "JobRC"));
    const int64_t maxRc = CellNumber(GetCell(server.tables, kTaskTable, taskKey, "MaxRC"));
    if (jobRc > maxRc)
        return "Abended (" + std::to_string(jobRc) + " > " + std::to_string(maxRc) + ")";
    return "Complete (" + std::to_string(jobRc) + ")";
}

// The report's name without ".txt", which the report file adds to the cell and a task file
// may have written into it; other dots belong to the name.
std::string WithoutExtension(const std::string& name) {
    const size_t size = name.size();
    if (size > 4 && EqualsNoCase(std::string_view(name).substr(size - 4), ".txt"))
        return name.substr(0, size - 4);
    return name;
}

}  // namespace

void InfoLine(std::string& file, const std::string& label, const std::string& value) {
    std::string dotted = label;
    if (dotted.size() < kInfoLabelWidth) dotted.append(kInfoLabelWidth - dotted.size(), '.');
    file += dotted + ": " + value + "\r\n";
}

std::string NextRunText(Server& server, const std::string& taskKey) {
    try {
        auto cell = [&](const char* column) { return GetCell(server.tables, kTaskTable, taskKey, column); };
        if (cell("Status").find(kComplete) != std::string::npos) return "Never";
        const std::string curRepeat = cell("CurRepeat");
        if (curRepeat == "0" || curRepeat.empty()) return FormatLocaleDateTime(ReadDate(cell("SchTime")));
        const VqDate next = ReadDate(curRepeat);
        if (next == 0) return "Never";
        return FormatLocaleDateTime(next);
    } catch (const std::exception&) {
        return "Unknown";
    }
}

std::string TaskInfoText(Server& server, const std::string& taskKey) {
    WorkingTables& tables = server.tables;
    const VqRow& row = tables.TaskTable.Row(taskKey);
    auto cell = [&](const char* column) { return GetCell(tables, kTaskTable, taskKey, column); };
    const std::string status = cell("Status");
    const Usage usage = TaskUsage(server, taskKey, status);
    std::string file;
    InfoLine(file, "Task Name", row.Text());
    InfoLine(file, "Task ID", cell("ID"));
    InfoLine(file, "Task Status", InfoStatus(server, taskKey, status));
    InfoLine(file, "Progress", "Step " + std::to_string(CellNumber(cell("CurStep"))) + " Of " +
                                   std::to_string(CellNumber(cell("AllSteps"))));
    InfoLine(file, "Next Run Time", NextRunText(server, taskKey));
    InfoLine(file, "Task Repetition", cell("AllR"));
    InfoLine(file, "Peak Mem Usage", FormatThousands(CellNumber(cell("PeakMem"))) + " KB");
    InfoLine(file, "I/O Count", FormatThousandsIo(usage.io * kIoScale));
    InfoLine(file, "CPU Time", FormatCpuTime(usage.cpu));
    InfoLine(file, "System Units", FormatThousands(usage.units));
    InfoLine(file, "Report File", WithoutExtension(cell("JobReport")));
    return file;
}

bool WriteTaskInfo(Server& server, const std::string& taskKey) {
    try {
        const std::string text = TaskInfoText(server, taskKey);
        const std::string path =
            WithBackslash(GetCell(server.tables, kTaskTable, taskKey, "RF")) + kTaskInfoFile;
        // A load of the queue and the polls of a step ask for the info file of every task
        // again; a file that already says the same needs no flushed rewrite.
        if (std::string current; ReadWholeFile(path, current) && current == text) return true;
        std::string error;
        if (!WriteFileAtomic(path, text, &error)) throw VqError(error);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, "Error occurred while writing task info file! (" + taskKey + ")\n" +
                                   e.what());
        return false;
    }
}

}  // namespace vq
