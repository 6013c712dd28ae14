#include "runlet/RunletOptions.h"

#include <charconv>

#include "calendar/Common.h"
#include "runlet/ShellWords.h"

namespace vq {
namespace {

constexpr int kLeastPollSeconds = 1;
constexpr int kMostPollSeconds = 3600;

bool ParsePollSeconds(std::string_view text, int& seconds) {
    const char* end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, seconds);
    return error == std::errc() && at == end && seconds >= kLeastPollSeconds && seconds <= kMostPollSeconds;
}

// Checks and takes one "--name=value" argument; false with options.error set when it is bad.
bool TakeOption(const std::string& argument, RunletOptions& options) {
    const size_t equals = argument.find('=');
    const std::string name = argument.substr(0, equals);
    if (equals == std::string::npos || name.rfind("--", 0) != 0) {
        options.error = "The runner's argument \"" + argument + "\" is not an option of the form --name=value.";
        return false;
    }
    const std::string value = argument.substr(equals + 1);
    auto bad = [&](const std::string& why) {
        options.error = "The runner's option " + name + " has a bad value \"" + value + "\": " + why;
        return false;
    };
    if (name == "--backend") {
        if (!EqualsNoCase(value, "local") && !EqualsNoCase(value, "slurm")) return bad("it is neither local nor slurm.");
        options.slurm = EqualsNoCase(value, "slurm");
    } else if (name == "--poll-seconds") {
        if (!ParsePollSeconds(value, options.pollSeconds))
            return bad("it is no number from " + std::to_string(kLeastPollSeconds) + " to " +
                       std::to_string(kMostPollSeconds) + ".");
    } else if (name == "--partition") {
        options.partition = value;
    } else if (name == "--account") {
        options.account = value;
    } else if (name == "--sbatch-args") {
        ShellSplit split = SplitShellWords(value);
        if (!split.error.empty()) return bad(split.error);
        options.sbatchArgs = std::move(split.words);
    } else {
        options.error = "The runner has no option " + name + ".";
        return false;
    }
    return true;
}

}  // namespace

RunletOptions ParseRunletOptions(const std::vector<std::string>& arguments) {
    RunletOptions options;
    for (const std::string& argument : arguments)
        if (!TakeOption(argument, options)) break;
    return options;
}

}  // namespace vq
