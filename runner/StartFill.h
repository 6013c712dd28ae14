#pragma once
// The filling of the StartRecord and its three text blocks for one step, from the working
// tables and the settings read at this start, with the clamping of the priority and of the
// console buffer and the warnings that the clamping leaves for the report.
#include <string>
#include <vector>

#include "runner/records/Records.h"

namespace vq {

struct Server;
class Registry;

struct StartFill {
    StartRecord record;
    std::string commandText, fileRcText, environText;
    // Each warning preceded by CR LF, in the order priority, buffer width, buffer height.
    // They change only what the runner is given, never the cells.
    std::string warnings;
    // The step's class letter, and the runner's arguments: none for a step that runs here,
    // the cluster's for one that goes to Slurm.
    char classLetter = 'A';
    std::vector<std::string> runnerArgs;
};

// Fills everything for step `step` of the task. A missing row or cell, or a number cell that
// doesn't hold a number, fails with VqError.
StartFill FillStartRecord(Server& server, const std::string& taskKey, int step);

// The class letter of a Class cell: its first letter upper-cased; a cell that doesn't start
// with a letter is class A, as the class table counts it.
char StepClassLetter(const std::string& classCell);
// The runner's arguments for a step of class `classLetter`, from the cluster settings in force:
// --backend=slurm and the poll period, then the partition, the account and the sbatch options
// each when set, for a class that goes to Slurm; nothing for one that runs here.
std::vector<std::string> ClusterRunnerArgs(Registry& reg, char classLetter);

// The priority code given to the runner: clamped to the server maximum `serverMax` first, and
// only when that didn't apply, to the class maximum. Appends the warning to `warnings`.
int32_t ClampPriority(int32_t priority, int32_t serverMax, int32_t classMax, std::string& warnings);
// A console buffer size clamped to its maximum; `what` is "Width" or "Height".
int32_t ClampBufferSize(int32_t value, int32_t maximum, const std::string& what,
                        std::string& warnings);

}  // namespace vq
