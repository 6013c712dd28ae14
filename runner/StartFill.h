#pragma once
// The filling of the StartRecord and its three text blocks for one step, from the working
// tables and the settings read at this start, with the clamping of the priority and of the
// console buffer and the warnings that the clamping leaves for the report.
#include <string>

#include "runner/records/Records.h"

namespace vq {

struct Server;

struct StartFill {
    StartRecord record;
    std::string commandText, fileRcText, environText;
    // Each warning preceded by CR LF, in the order priority, buffer width, buffer height.
    // They change only what the runner is given, never the cells.
    std::string warnings;
};

// Fills everything for step `step` of the task. A missing row or cell, or a number cell that
// doesn't hold a number, fails with VqError.
StartFill FillStartRecord(Server& server, const std::string& taskKey, int step);

// The priority code given to the runner: clamped to the server maximum `serverMax` first, and
// only when that didn't apply, to the class maximum. Appends the warning to `warnings`.
int32_t ClampPriority(int32_t priority, int32_t serverMax, int32_t classMax, std::string& warnings);
// A console buffer size clamped to its maximum; `what` is "Width" or "Height".
int32_t ClampBufferSize(int32_t value, int32_t maximum, const std::string& what,
                        std::string& warnings);

}  // namespace vq
