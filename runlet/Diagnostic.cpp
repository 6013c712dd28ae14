#include "runlet/Diagnostic.h"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <cstdio>
#include <ctime>

#include "platform/UniqueFd.h"
#include "runlet/StepProcess.h"

namespace vq {

std::string StateName(char state) {
    switch (state) {
        case 'R': return "running";
        case 'S': return "sleeping";
        case 'D': return "disk wait";
        case 'T': return "stopped";
        case 't': return "traced";
        case 'Z': return "zombie";
        case 'X': return "dead";
        case 'I': return "idle";
        default: return std::string("state ") + state;
    }
}

std::string LocalTimeText() {
    const time_t now = ::time(nullptr);
    tm local{};
    ::localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

std::string FormatDiagnostic(const DiagnosticHeader& header, const std::vector<ProcessInfo>& processes,
                             long ticksPerSecond) {
    std::string text = "Diagnostic of step " + std::to_string(header.step) + " of task " + header.taskId +
                       " " + header.taskName + "\r\n";
    text += "Taken " + header.takenAt + ", process group " + std::to_string(header.group) + ", step " +
            header.stepState + ", " + std::to_string(processes.size()) + " process" +
            (processes.size() == 1 ? "" : "es") + "\r\n\r\n";
    char line[256];
    std::snprintf(line, sizeof line, "%8s %8s  %-10s %12s %12s %12s  %s\r\n", "PID", "PPID", "State",
                  "CPU (s)", "Memory (KB)", "Peak (KB)", "Command line");
    text += line;
    for (const ProcessInfo& p : processes) {
        const uint64_t ticks = p.stat.userTicks + p.stat.systemTicks;
        const double seconds = ticksPerSecond > 0 ? static_cast<double>(ticks) / static_cast<double>(ticksPerSecond) : 0.0;
        std::snprintf(line, sizeof line, "%8d %8d  %-10s %12.2f %12llu %12llu  ", static_cast<int>(p.stat.pid),
                      static_cast<int>(p.stat.ppid), StateName(p.stat.state).c_str(), seconds,
                      static_cast<unsigned long long>(p.memory.residentKb),
                      static_cast<unsigned long long>(p.memory.peakKb));
        text += line;
        text += p.commandLine.empty() ? "[" + p.stat.name + "]" : p.commandLine;
        text += "\r\n";
    }
    return text;
}

std::string WriteDiagnosticFile(const StepPlan& plan, const std::string& text) {
    const std::string folder = !plan.taskFolder.empty() ? plan.taskFolder : plan.workDir;
    const std::string path = (folder.empty() ? std::string(".") : folder) + "/Diag1.txt";
    // Written whole: to a temporary file first, flushed, then renamed over the old one.
    const std::string temporary = path + ".tmp";
    UniqueFd fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    bool written = fd.Valid() && WriteAll(fd.Get(), text) && ::fsync(fd.Get()) == 0;
    fd.Reset();
    if (written) written = ::rename(temporary.c_str(), path.c_str()) == 0;
    if (written) return {};
    const std::string reason = std::strerror(errno);
    ::unlink(temporary.c_str());
    return "Diag1.txt could not be written in \"" + folder + "\": " + reason;
}

}  // namespace vq
