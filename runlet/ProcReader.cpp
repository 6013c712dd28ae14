#include "runlet/ProcReader.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <set>

#include "platform/UniqueFd.h"

namespace vq {
namespace {

template <typename T>
bool ParseNumber(std::string_view text, T& value) {
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    return ec == std::errc() && end == text.data() + text.size();
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

std::vector<std::string_view> SplitBlanks(std::string_view text) {
    std::vector<std::string_view> words;
    size_t at = 0;
    while (at < text.size()) {
        while (at < text.size() && IsBlank(text[at])) ++at;
        const size_t start = at;
        while (at < text.size() && !IsBlank(text[at])) ++at;
        if (at > start) words.push_back(text.substr(start, at - start));
    }
    return words;
}

// The number after "Name:" in a "Name:   123 kB" line of a key-value file, if present.
std::optional<uint64_t> KeyedNumber(std::string_view text, std::string_view key) {
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(at, end - at);
        at = end + 1;
        if (line.size() <= key.size() || line.substr(0, key.size()) != key || line[key.size()] != ':')
            continue;
        const std::vector<std::string_view> words = SplitBlanks(line.substr(key.size() + 1));
        uint64_t value = 0;
        if (!words.empty() && ParseNumber(words.front(), value)) return value;
        return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace

std::optional<ProcessStat> ParseStat(std::string_view text) {
    // "pid (name) state ppid pgrp ...": the name may hold blanks and parentheses, so the
    // fields after it start behind the last ")".
    const size_t open = text.find(" (");
    const size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return std::nullopt;
    ProcessStat stat;
    if (!ParseNumber(text.substr(0, open), stat.pid)) return std::nullopt;
    stat.name = std::string(text.substr(open + 2, close - open - 2));
    const std::vector<std::string_view> fields = SplitBlanks(text.substr(close + 1));
    // fields[0] is field 3 of the file (state), so field k is fields[k - 3].
    if (fields.size() < 20 || fields[0].size() != 1) return std::nullopt;
    stat.state = fields[0][0];
    const bool ok = ParseNumber(fields[1], stat.ppid) && ParseNumber(fields[2], stat.pgrp) &&
                    ParseNumber(fields[11], stat.userTicks) &&
                    ParseNumber(fields[12], stat.systemTicks) &&
                    ParseNumber(fields[13], stat.childUserTicks) &&
                    ParseNumber(fields[14], stat.childSystemTicks) &&
                    ParseNumber(fields[16], stat.nice) && ParseNumber(fields[19], stat.startTicks);
    if (!ok) return std::nullopt;
    return stat;
}

ProcessMemory ParseStatusMemory(std::string_view text) {
    ProcessMemory memory;
    memory.peakKb = KeyedNumber(text, "VmHWM").value_or(0);
    memory.residentKb = KeyedNumber(text, "VmRSS").value_or(0);
    return memory;
}

std::optional<IoCalls> ParseIo(std::string_view text) {
    const auto reads = KeyedNumber(text, "syscr");
    const auto writes = KeyedNumber(text, "syscw");
    if (!reads || !writes) return std::nullopt;
    return IoCalls{*reads, *writes};
}

std::string ParseCommandLine(std::string_view text) {
    std::string line(text);
    while (!line.empty() && line.back() == '\0') line.pop_back();
    std::replace(line.begin(), line.end(), '\0', ' ');
    return line;
}

std::optional<std::string> ReadSmallFile(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.Valid()) return std::nullopt;
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd.Get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return std::nullopt;
        if (n == 0) break;
        text.append(buffer, static_cast<size_t>(n));
    }
    return text;
}

std::string ProcFiles::Path(pid_t pid, const char* file) const {
    return root_ + "/" + std::to_string(pid) + "/" + file;
}

namespace {
std::vector<pid_t> NumericEntries(const std::string& folder) {
    std::vector<pid_t> pids;
    DIR* dir = ::opendir(folder.c_str());
    if (!dir) return pids;
    while (const dirent* entry = ::readdir(dir)) {
        pid_t pid = 0;
        const std::string_view name(entry->d_name);
        if (ParseNumber(name, pid) && pid > 0) pids.push_back(pid);
    }
    ::closedir(dir);
    return pids;
}
}  // namespace

std::vector<pid_t> ProcFiles::ListPids() const { return NumericEntries(root_); }

std::vector<pid_t> ProcFiles::ListThreads(pid_t pid) const {
    return NumericEntries(root_ + "/" + std::to_string(pid) + "/task");
}

std::optional<std::vector<pid_t>> ProcFiles::ListChildren(pid_t pid) const {
    std::vector<pid_t> children;
    bool anyFile = false;
    for (pid_t thread : ListThreads(pid)) {
        const auto text = ReadSmallFile(root_ + "/" + std::to_string(pid) + "/task/" + std::to_string(thread) + "/children");
        if (!text) continue;
        anyFile = true;
        for (std::string_view word : SplitBlanks(*text)) {
            pid_t child = 0;
            if (ParseNumber(word, child)) children.push_back(child);
        }
    }
    if (!anyFile) return std::nullopt;
    return children;
}

std::optional<ProcessStat> ProcFiles::ReadStat(pid_t pid) const {
    const auto text = ReadSmallFile(Path(pid, "stat"));
    if (!text) return std::nullopt;
    return ParseStat(*text);
}

std::optional<ProcessInfo> ProcFiles::ReadProcess(pid_t pid, bool withCommandLine) const {
    ProcessInfo info;
    const auto stat = ReadStat(pid);
    if (!stat) return std::nullopt;
    info.stat = *stat;
    if (const auto status = ReadSmallFile(Path(pid, "status"))) info.memory = ParseStatusMemory(*status);
    if (const auto io = ReadSmallFile(Path(pid, "io"))) info.io = ParseIo(*io);
    if (!withCommandLine) return info;
    if (const auto cmdline = ReadSmallFile(Path(pid, "cmdline"))) info.commandLine = ParseCommandLine(*cmdline);
    return info;
}

std::optional<std::vector<pid_t>> DescendantPids(const ProcFiles& proc, pid_t runner, pid_t excluded) {
    const auto first = proc.ListChildren(runner);
    if (!first) return std::nullopt;
    std::vector<pid_t> found;
    std::set<pid_t> seen{runner};
    std::vector<pid_t> next = *first;
    while (!next.empty()) {
        const pid_t pid = next.back();
        next.pop_back();
        if (pid == excluded || !seen.insert(pid).second) continue;
        found.push_back(pid);
        if (const auto children = proc.ListChildren(pid)) next.insert(next.end(), children->begin(), children->end());
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<pid_t> StepPids(const std::vector<ProcessStat>& all, pid_t runner, pid_t group,
                            pid_t excluded) {
    std::map<pid_t, pid_t> parentOf;
    for (const ProcessStat& s : all) parentOf[s.pid] = s.ppid;
    std::vector<pid_t> pids;
    for (const ProcessStat& s : all) {
        if (s.pid == runner || s.pid == excluded) continue;
        bool belongs = group > 0 && s.pgrp == group;
        // Walk up the parents; the set stops a loop in a list read while processes change.
        std::set<pid_t> seen;
        for (pid_t p = s.ppid; !belongs && p > 0 && seen.insert(p).second;) {
            if (p == excluded) break;
            if (p == runner) belongs = true;
            const auto up = parentOf.find(p);
            if (up == parentOf.end()) break;
            p = up->second;
        }
        if (belongs) pids.push_back(s.pid);
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

}  // namespace vq
