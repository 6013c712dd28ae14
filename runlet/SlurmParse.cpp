#include "runlet/SlurmParse.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <vector>

namespace vq {
namespace {

constexpr int kStepRcFailedJob = 98;
constexpr int64_t kTicksPerSecond = 10'000'000;

std::string_view Trim(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (size_t at = 0;;) {
        const size_t end = text.find(separator, at);
        parts.push_back(text.substr(at, end == std::string_view::npos ? end : end - at));
        if (end == std::string_view::npos) return parts;
        at = end + 1;
    }
}

std::string_view LastLine(std::string_view text) {
    std::string_view last;
    for (std::string_view line : Split(text, '\n'))
        if (!Trim(line).empty()) last = Trim(line);
    return last;
}

bool ContainsNoCase(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
           }) != text.end();
}

template <typename Number>
std::optional<Number> WholeNumber(std::string_view text) {
    Number value{};
    const char* end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || at != end) return std::nullopt;
    return value;
}

bool AllDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::optional<std::string> ParseSbatchJobId(std::string_view output) {
    const std::string_view line = LastLine(output);
    const std::string_view id = line.substr(0, line.find(';'));
    if (!AllDigits(id) || id.size() > 18) return std::nullopt;
    return std::string(id);
}

SbatchFailure ClassifySbatchFailure(std::string_view error) {
    static constexpr std::array kUnreachable = {
        "Unable to contact slurm controller", "Could not establish a configuration source",
        "Socket timed out",                   "Connection refused",
        "Zero Bytes were transmitted",        "Communication connection failure",
        "Unable to establish",                "slurm_load_partitions",
    };
    for (const char* sign : kUnreachable)
        if (ContainsNoCase(error, sign)) return SbatchFailure::Unreachable;
    return SbatchFailure::Refused;
}

std::string SlurmMessage(std::string_view text) {
    // The last line that says something: a hint to run "sbatch --help" doesn't.
    std::string_view line;
    for (std::string_view candidate : Split(text, '\n'))
        if (!Trim(candidate).empty() && Trim(candidate).rfind("Try \"", 0) != 0) line = Trim(candidate);
    // "sbatch: error: text", "sbatch: fatal: text" and "sbatch: text" lose the program and the level.
    const size_t colon = line.find(": ");
    if (colon != std::string_view::npos && colon > 0 && line.substr(0, colon).find(' ') == std::string_view::npos) {
        line.remove_prefix(colon + 2);
        for (std::string_view level : {"error: ", "fatal: "})
            if (line.rfind(level, 0) == 0) line.remove_prefix(level.size());
    }
    return std::string(line.substr(0, 500));
}

std::optional<SlurmJob> ParseScontrolJob(std::string_view output) {
    SlurmJob job;
    bool any = false;
    auto take = [](std::string& field, std::string_view value) {
        if (field.empty()) field = value;
    };
    for (std::string_view line : Split(output, '\n')) {
        for (std::string_view word : Split(line, ' ')) {
            word = Trim(word);
            const size_t equals = word.find('=');
            if (equals == std::string_view::npos) continue;
            const std::string_view key = word.substr(0, equals);
            const std::string_view value = word.substr(equals + 1);
            if (key == "JobState") take(job.state, value), any = true;
            else if (key == "Reason") take(job.reason, value);
            else if (key == "Partition") take(job.partition, value);
            else if (key == "ExitCode") take(job.exitCode, value);
        }
    }
    if (!any || job.state.empty()) return std::nullopt;
    return job;
}

bool IsUnknownJobMessage(std::string_view error) { return ContainsNoCase(error, "Invalid job id specified"); }

bool IsHeld(const SlurmJob& job) { return job.state == "PENDING" && job.reason.rfind("JobHeld", 0) == 0; }

std::optional<int> StepRcOfJob(const SlurmJob& job) {
    static constexpr std::array kStillGoing = {"PENDING",  "RUNNING", "SUSPENDED", "COMPLETING", "CONFIGURING",
                                               "REQUEUED", "RESIZING", "REQUEUE_HOLD", "REQUEUE_FED", "SIGNALING",
                                               "STAGE_OUT", "STOPPED", "RESV_DEL_HOLD", "UPDATE_DB", "POWER_UP_NODE"};
    for (const char* state : kStillGoing)
        if (job.state == state) return std::nullopt;
    if (job.state != "COMPLETED" && job.state != "FAILED") return kStepRcFailedJob;
    const std::vector<std::string_view> parts = Split(job.exitCode, ':');
    const std::optional<int> status = WholeNumber<int>(parts[0]);
    const std::optional<int> signal = parts.size() == 2 ? WholeNumber<int>(parts[1]) : std::nullopt;
    if (!status || !signal || *signal != 0 || *status < 0) return kStepRcFailedJob;
    return std::min(*status + 1, kStepRcFailedJob);
}

std::optional<int64_t> ParseSlurmDuration(std::string_view text) {
    text = Trim(text);
    int64_t days = 0;
    if (const size_t dash = text.find('-'); dash != std::string_view::npos) {
        const std::optional<int64_t> d = WholeNumber<int64_t>(text.substr(0, dash));
        if (!d || *d > 100'000) return std::nullopt;
        days = *d;
        text.remove_prefix(dash + 1);
    }
    int64_t fraction = 0;  // in 100-ns ticks
    if (const size_t dot = text.find('.'); dot != std::string_view::npos) {
        const std::string_view digits = text.substr(dot + 1);
        if (!AllDigits(digits) || digits.size() > 7) return std::nullopt;
        fraction = *WholeNumber<int64_t>(digits);
        for (size_t n = digits.size(); n < 7; ++n) fraction *= 10;
        text = text.substr(0, dot);
    }
    const std::vector<std::string_view> parts = Split(text, ':');
    if (parts.size() < 2 || parts.size() > 3) return std::nullopt;
    int64_t seconds = 0;
    for (std::string_view part : parts) {
        const std::optional<int64_t> n = WholeNumber<int64_t>(part);
        if (!AllDigits(part) || !n || *n > 1'000'000) return std::nullopt;
        seconds = seconds * 60 + *n;
    }
    return (days * 86'400 + seconds) * kTicksPerSecond + fraction;
}

std::optional<int64_t> ParseSlurmAmount(std::string_view text, int64_t unit) {
    text = Trim(text);
    static constexpr std::string_view kLetters = "KMGTP";
    int64_t scale = unit;
    if (!text.empty() && kLetters.find(text.back()) != std::string_view::npos) {
        scale = int64_t{1} << (10 * (kLetters.find(text.back()) + 1));
        text.remove_suffix(1);
    }
    // A whole number, or one with decimals as Slurm shows converted amounts ("1.50M").
    const size_t dot = text.find('.');
    const std::string_view whole = text.substr(0, dot);
    const std::string_view decimals = dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
    if (!AllDigits(whole) || (dot != std::string_view::npos && !AllDigits(decimals)) || whole.size() > 12 ||
        decimals.size() > 6)
        return std::nullopt;
    double value = static_cast<double>(*WholeNumber<int64_t>(whole));
    if (!decimals.empty())
        value += static_cast<double>(*WholeNumber<int64_t>(decimals)) / std::pow(10.0, static_cast<double>(decimals.size()));
    value *= static_cast<double>(scale);
    if (value > 9.0e18) return std::nullopt;
    return static_cast<int64_t>(value);
}

std::optional<SlurmUsage> ParseSstat(std::string_view output) {
    const std::vector<std::string_view> fields = Split(LastLine(output), '|');
    if (fields.size() < 4) return std::nullopt;
    const std::optional<int64_t> cpu = ParseSlurmDuration(fields[0]);
    const std::optional<int64_t> rss = ParseSlurmAmount(fields[1], 1);
    const std::optional<int64_t> read = ParseSlurmAmount(fields[2], 1);
    const std::optional<int64_t> written = ParseSlurmAmount(fields[3], 1);
    if (!cpu || !rss || !read || !written) return std::nullopt;
    return SlurmUsage{*cpu, *rss / 1024, *read, *written};
}

}  // namespace vq
