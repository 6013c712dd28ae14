#pragma once
// Readers of /proc for the processes of a step: what one process has used, and which
// processes belong to the step. The parsers take the file's text so that tests can feed them.
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vq {

// What /proc/<pid>/stat tells about one process. Times are in clock ticks; the child times
// hold the children that this process has reaped.
struct ProcessStat {
    pid_t pid = 0;
    std::string name;
    char state = '?';
    pid_t ppid = 0;
    pid_t pgrp = 0;
    uint64_t userTicks = 0, systemTicks = 0;
    uint64_t childUserTicks = 0, childSystemTicks = 0;
    int nice = 0;
    uint64_t startTicks = 0;  // since boot: with the pid, it names one process for good
};

struct ProcessMemory {
    uint64_t peakKb = 0;  // VmHWM: the highest resident size so far
    uint64_t residentKb = 0;
};

// Read and write system calls, including those of reaped children.
struct IoCalls {
    uint64_t reads = 0, writes = 0;
};

struct ProcessInfo {
    ProcessStat stat;
    ProcessMemory memory;  // zero for a zombie, whose memory is gone
    std::optional<IoCalls> io;
    std::string commandLine;
};

std::optional<ProcessStat> ParseStat(std::string_view text);
ProcessMemory ParseStatusMemory(std::string_view text);
std::optional<IoCalls> ParseIo(std::string_view text);
// The NUL-separated arguments joined by blanks.
std::string ParseCommandLine(std::string_view text);

// Reads /proc files of the process; `root` is "/proc" but for tests.
class ProcFiles {
public:
    explicit ProcFiles(std::string root = "/proc") : root_(std::move(root)) {}
    std::vector<pid_t> ListPids() const;
    std::vector<pid_t> ListThreads(pid_t pid) const;
    // The children of all threads of a process; nothing when the kernel has no such files.
    std::optional<std::vector<pid_t>> ListChildren(pid_t pid) const;
    std::optional<ProcessStat> ReadStat(pid_t pid) const;
    // Stat, memory, I/O and, when asked, the command line; nothing when the process has gone.
    std::optional<ProcessInfo> ReadProcess(pid_t pid, bool withCommandLine = true) const;

private:
    std::string Path(pid_t pid, const char* file) const;
    std::string root_;
};

// The processes of a step out of a list of stats: those of the step's group and all
// descendants of `runner` (the runner is a subreaper, so orphans of the step stay below
// it), except `excluded` (the runner's own guard).
std::vector<pid_t> StepPids(const std::vector<ProcessStat>& all, pid_t runner, pid_t group,
                            pid_t excluded);

// All descendants of `runner` but `excluded` and its descendants, found through the children
// files, without reading every process of the system; nothing when those files are missing.
std::optional<std::vector<pid_t>> DescendantPids(const ProcFiles& proc, pid_t runner, pid_t excluded);

// Reads a whole small file; nothing when it can't be opened.
std::optional<std::string> ReadSmallFile(const std::string& path);

}  // namespace vq
