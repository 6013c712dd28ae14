#pragma once
// Running one Slurm program (sbatch, scontrol, squeue, sstat, scancel): found on PATH,
// given its standard input, its output and error captured, and killed when it takes longer
// than its bound, so that the runner always answers the server in time.
#include <optional>
#include <string>
#include <vector>

namespace vq {

struct CommandResult {
    bool found = true;      // false: the program is not on PATH (or can't be run)
    std::string runError;   // why it could not be run, when it could not
    bool timedOut = false;  // killed past its bound
    int exitStatus = -1;    // its exit status; -1 when it did not exit by itself
    std::string output;
    std::string error;

    bool Succeeded() const { return runError.empty() && !timedOut && exitStatus == 0; }
};

struct CommandRequest {
    std::vector<std::string> arguments;  // the program's name first
    std::string input;                   // its standard input, then end of file
    // Its environment; the runner's own when not given.
    std::optional<std::vector<std::string>> environment;
    int timeoutMs = 10'000;
};

CommandResult RunCommand(const CommandRequest& request);

}  // namespace vq
