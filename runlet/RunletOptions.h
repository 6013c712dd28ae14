#pragma once
// The runner's command line: where the step runs, and for a Slurm cluster how.
#include <string>
#include <vector>

namespace vq {

struct RunletOptions {
    bool slurm = false;  // --backend=slurm; --backend=local or nothing runs the step here
    int pollSeconds = 2;
    std::string partition;
    std::string account;
    std::vector<std::string> sbatchArgs;  // --sbatch-args, split as a shell would
    std::string error;                    // an unknown option or a bad value, named

    bool Valid() const { return error.empty(); }
};

RunletOptions ParseRunletOptions(const std::vector<std::string>& arguments);

}  // namespace vq
