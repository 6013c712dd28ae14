#pragma once
// Where a step runs: the one interface behind which the runner starts, reads, stops,
// continues, re-prioritises, diagnoses, kills and finishes a step. The runner itself keeps
// the records and the conversation with the server; a backend knows only its step.
#include <cstdint>
#include <string>
#include <vector>

#include "runlet/StepMeter.h"
#include "runlet/StepPlan.h"

namespace vq {

enum class StartOutcome { Started, Refused, Failed };

// What a reply record tells of the step.
struct StepSnapshot {
    StepCounters counters;
    bool countersValid = false;
    bool ended = false;
    bool held = false;
    int stepRc = 0;  // once ended
};

class StepBackend {
public:
    virtual ~StepBackend() = default;

    virtual StartOutcome Start(const StepInput& input) = 0;
    // How long the runner waits for a command before it calls Watch.
    virtual int WatchIntervalMs() const = 0;
    // Between commands: the step is looked at, so that the answers stay fresh.
    virtual void Watch() = 0;
    // Before a command is answered.
    virtual void Refresh() = 0;
    virtual StepSnapshot Snapshot() const = 0;
    // "STOP" and "STRT": true when the step has reached the state.
    virtual bool Stop() = 0;
    virtual bool Continue() = 0;
    // "PRTY" and "DIAG": the reply's text, empty when all went well.
    virtual std::string ChangePriority(int32_t code) = 0;
    virtual std::string WriteDiagnostic() = 0;
    virtual void Kill() = 0;
    // "END ": waits for the step, within the server's patience, and gives its return code.
    virtual int Finish() = 0;
    // The server has gone: nothing of the step may outlive the runner.
    virtual void Abandon() = 0;
    // The conversation is over: the step's guard goes without doing anything.
    virtual void ReleaseGuard() = 0;
    // The text of every "STAT" reply; empty for none.
    virtual std::string StatusText() const = 0;
    // The text of the "END " reply: why the step did not start, and what the report should know.
    virtual std::string EndText() const = 0;
};

// The lines of a reply text, joined with CR LF; an empty first line is left out.
inline std::string JoinLines(const std::string& first, const std::vector<std::string>& rest) {
    std::string text = first;
    for (const std::string& line : rest) {
        if (!text.empty()) text += "\r\n";
        text += line;
    }
    return text;
}

}  // namespace vq
