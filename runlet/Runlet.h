#pragma once
// The step runner's side of the link: it reads the start record and its three text blocks,
// has its backend start the step, answers each command record at once with a reply record,
// and ends after its reply to "END " or at the end of its input.
#include <memory>
#include <string>

#include "runlet/RunletOptions.h"
#include "runlet/StepBackend.h"
#include "runlet/StepPlan.h"

namespace vq {

// Runner states of the reply record.
enum : uint8_t {
    kRunnerRunning = 1,
    kRunnerHeld = 2,
    kRunnerEnded = 4,
    kRunnerEnding = 5,
};

// Set from a signal handler: the runner is asked to end (SIGTERM, SIGINT, SIGHUP).
void RequestRunletEnd();

class Runlet {
public:
    // `input` carries records from the server, `output` the answers.
    Runlet(int input, int output, RunletOptions options = {});
    Runlet(const Runlet&) = delete;
    Runlet& operator=(const Runlet&) = delete;

    // The whole conversation of one step; returns the exit status of the runner.
    int Run();

private:
    bool ReadStart(StepInput& input);
    bool ReadBlock(int32_t length, const char* name, std::string& block);
    bool Answer(const CommandRecord& command);
    bool WatchUntilCommand();
    void Abandon();

    ReplyRecord MakeReply(const char* stage) const;
    bool Send(ReplyRecord reply, const std::string& text);
    bool SendAck(const char* stage, int32_t code);

    int input_;
    int output_;
    RunletOptions options_;
    std::unique_ptr<StepBackend> step_;  // none when the step was not given to a backend
    std::string startError_;             // why it was not: the runner's own reason
};

}  // namespace vq
