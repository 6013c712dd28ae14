#include "reports/TaskReport.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/Server.h"
#include "core/tables/CpuTime.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"
#include "runner/Accounting.h"

namespace vq {
namespace {

const std::string kLineEnd = "\r\n";
constexpr size_t kLabelWidth = 40;

// The cells of one row, found once.
class RowCells {
public:
    RowCells(VqTable& table, const std::string& key) : table_(table), row_(table.Row(key)) {}
    const std::string& operator[](const char* column) const {
        return row_.cells.at(table_.ColumnIndex(column));
    }
    int64_t Number(const char* column) const { return Val((*this)[column]); }
    const std::string& Text() const { return row_.Text(); }

private:
    VqTable& table_;
    const VqRow& row_;
};

std::string Line(const std::string& label, const std::string& value) {
    return ReportLabel(label) + value + kLineEnd;
}

std::string Head(const RowCells& task, const std::string& behindId) {
    return kLineEnd + "    Task " + task.Text() + " - " + task["ID"] + behindId + kLineEnd + kLineEnd;
}

std::string Thousands(const RowCells& row, const char* column) {
    return FormatThousands(row.Number(column));
}

std::string ThousandsIo(const RowCells& row, const char* column) {
    return FormatThousandsIo(row.Number(column) * kIoScale);
}

// The class block of a task that starts: its class and the maximums of that class.
std::string RunningBlock(Server& server, const RowCells& task, const std::string& now) {
    const std::string& className = task["Class"];
    const ClassEntry& c = server.classes.ClassTable.at(ClassIndex(server, className));
    return Line("Task Status:", "Running") + Line("Start Time:", now) + kLineEnd +
           "This is a class " + className + " task." + kLineEnd + kLineEnd +
           "Maximums Of Class " + c.ClassName + ":" + kLineEnd + kLineEnd +
           Line("Max Running Time:", FormatTimeSpan(SecondsToTimeSpan(c.MaxTime))) + kLineEnd +
           Line("Max CPU Time:", FormatTimeSpan(SecondsToTimeSpan(c.MaxCpu))) +
           Line("Max Memory Usage:", FormatThousands(c.MaxMemory) + " KB") +
           Line("Max I/O Count:", FormatThousandsIo(c.MaxIo)) + kLineEnd +
           Line("Max System Units:", FormatThousands(c.MaxUnits));
}

std::string TaskEntry(Server& server, const RowCells& task, const std::string& entry,
                      const std::string& text, const std::string& now) {
    if (entry == "Waiting") return Head(task, "") + Line("Task Status:", entry) + Line("Time:", now);
    if (entry == "Ready") return Line("Task Status:", entry) + Line("Time:", now);
    if (entry == "Running") return RunningBlock(server, task, now);
    if (entry == "Complete" || entry == "Complete - Cancelled")
        return Head(task, "") + Line("Task Status:", entry) + Line("Complete Time:", now) +
               Line("Task RC:", task["JobRC"]) + Line("Max RC:", task["MaxRC"]) +
               Line("CPU Time:", task["TCPU"]) +
               Line("Peak Memory Usage:", Thousands(task, "PeakMem") + " KB") +
               Line("I/O Count:", ThousandsIo(task, "IO")) +
               Line("Total System Units:", Thousands(task, "Units")) +
               Line("Total Time Spend:", ElapsedText(task["Start"], FormatDateTime(server.clock.Now())));
    if (entry == "Data") return kLineEnd + text + kLineEnd;
    return {};
}

std::string StepEntry(Server& server, const RowCells& task, const std::string& taskKey,
                      const std::string& entry, const std::string& text, const std::string& now) {
    if (entry == "Data") return kLineEnd + text + kLineEnd;
    const bool known = entry == "Running" || entry == "Skipped" || entry == "Complete" ||
                       entry == "Complete - Cancelled";
    if (!known) return {};
    const RowCells step(server.tables.StepTable, MakeStepKey(taskKey, static_cast<int>(Val(text))));
    const std::string status = Line("Step " + text + " Status:", entry);
    const std::string where =
        Line("Command:", step["Command"]) + Line("Working Directory:", step["WorkDir"]);
    const std::string head = Head(task, " Step " + text);
    if (entry == "Running") return head + status + Line("Start Time:", now) + where;
    if (entry == "Skipped") return head + status + where;
    return kLineEnd + status + Line("Complete Time:", now) +
           Line("Step Return Code:", step["StepRC"]) + Line("CPU Time:", step["STCPU"]) +
           Line("Peak Memory Usage:", Thousands(step, "SPeakMem") + " KB") +
           Line("I/O Count:", ThousandsIo(step, "SIO")) +
           Line("System Units:", Thousands(step, "SUnits"));
}

int ActiveReportFd(Server& server, int slot) {
    const int fd = server.SlotReportFile.at(static_cast<size_t>(slot)).Get();
    if (fd < 0) throw VqError("Bad file name or number", 52);
    return fd;
}

void WriteAllAt(int fd, const std::string& text, off_t offset) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::pwrite(fd, text.data() + done, text.size() - done,
                                   offset + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw VqError(ErrnoText(errno));
        done += static_cast<size_t>(n);
    }
}

std::string ReadAllFrom(int fd) {
    std::string content;
    char buffer[65536];
    for (off_t offset = 0;;) {
        const ssize_t n = ::pread(fd, buffer, sizeof buffer, offset);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw VqError(ErrnoText(errno));
        if (n == 0) return content;
        content.append(buffer, static_cast<size_t>(n));
        offset += n;
    }
}

std::string TaskFolder(Server& server, const std::string& taskKey) {
    return WithBackslash(GetCell(server.tables, kTaskTable, taskKey, "RF"));
}

}  // namespace

std::string ReportLabel(const std::string& text) {
    std::string label(kLabelWidth, '.');
    label.replace(0, std::min(text.size(), kLabelWidth), text, 0, kLabelWidth);
    return label + " ";
}

std::string ElapsedText(const std::string& from, const std::string& to) {
    if (from.empty() || to.empty()) return "0 Days 0:00:00";
    return FormatTimeSpan(SecondsToTimeSpan(SecondsBetween(ReadDate(from), ReadDate(to))));
}

std::string ReportPath(Server& server, const std::string& taskKey) {
    return TaskFolder(server, taskKey) + GetCell(server.tables, kTaskTable, taskKey, "JobReport") +
           ".txt";
}

std::string ActiveReportPath(Server& server, const std::string& taskKey) {
    return TaskFolder(server, taskKey) + kActiveReportPrefix +
           GetCell(server.tables, kTaskTable, taskKey, "JobReport") + ".txt";
}

std::string ReportEntryText(Server& server, const std::string& taskKey, const std::string& entry,
                            bool isStep, const std::string& text) {
    const RowCells task(server.tables.TaskTable, taskKey);
    const std::string now = FormatLocaleDateTime(server.clock.Now());
    return isStep ? StepEntry(server, task, taskKey, entry, text, now)
                  : TaskEntry(server, task, entry, text, now);
}

bool WriteReport(Server& server, const std::string& taskKey, const std::string& entry, bool isStep,
                 const std::string& text, int slot, int32_t position) {
    if (entry == "Data" && text.empty()) return true;
    std::string block;
    try {
        block = ReportEntryText(server, taskKey, entry, isStep, text);
    } catch (const std::exception& e) {
        WriteServerLog(server, std::string("Error occurred while gethering data for report!\n") + e.what());
        return false;
    }
    if (block.empty()) return false;
    return slot < 0 ? AppendReport(server, block, taskKey)
                    : WriteActiveReport(server, block, slot, position);
}

bool AppendReport(Server& server, const std::string& text, const std::string& taskKey) {
    try {
        std::string error;
        if (!AppendToFile(ReportPath(server, taskKey), text + kLineEnd, &error)) throw VqError(error);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server,
                       taskKey + "\nError occurred while writing to task report!\n" + e.what());
        return false;
    }
}

bool WriteActiveReport(Server& server, const std::string& text, int slot, int32_t position) {
    try {
        const int fd = ActiveReportFd(server, slot);
        off_t offset = position - 1;
        if (position == -1) {
            offset = ::lseek(fd, 0, SEEK_END);
            if (offset < 0) throw VqError(ErrnoText(errno));
        } else if (position < 1) {
            throw VqError("Bad record number", 63);
        }
        WriteAllAt(fd, text, offset);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, "Error occurred while writing to active report!\n" + text + "\n" +
                                   e.what());
        return false;
    }
}

bool RefreshReport(Server& server, int slot, const std::string& taskKey) {
    try {
        const std::string content = ReadAllFrom(ActiveReportFd(server, slot));
        std::string error;
        if (!WriteFileAtomic(ReportPath(server, taskKey), content + kLineEnd, &error))
            throw VqError(error);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server,
                       taskKey + "\r\nError occurred while copying task report!\r\n" + e.what());
        return false;
    }
}

bool DeleteActiveMarker(Server& server, const std::string& taskKey) {
    std::string path;
    try {
        path = TaskFolder(server, taskKey) + kActiveMarker;
        if (::unlink(path.c_str()) != 0 && errno != ENOENT) throw VqError(ErrnoText(errno));
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, "Error occurred while deleting \"" + path + "\"!\r\n" + e.what());
        return false;
    }
}

}  // namespace vq
