#pragma once
// The step runner's side of the link: it reads the start record and its three text blocks,
// starts the step, answers each command record at once with a reply record, and ends after
// its reply to "END " or at the end of its input.
#include <sys/types.h>

#include <string>
#include <vector>

#include "runlet/ProcReader.h"
#include "runlet/StepMeter.h"
#include "runlet/StepPlan.h"
#include "runlet/StepProcess.h"

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
    Runlet(int input, int output);
    Runlet(const Runlet&) = delete;
    Runlet& operator=(const Runlet&) = delete;

    // The whole conversation of one step; returns the exit status of the runner.
    int Run();

private:
    bool ReadStart(StepInput& input);
    bool ReadBlock(int32_t length, const char* name, std::string& block);
    void StartStep(const StepInput& input);
    bool Answer(const CommandRecord& command);

    void Stop();
    void Continue();
    std::string ChangePriority(int32_t code);
    std::string WriteDiagnostic();
    void Kill();
    void FinishStep();

    void ReapEnded();
    void Refresh();
    bool WatchUntilCommand();
    // Kills what is left of the step and reaps it; `freshReading` when Refresh has just run.
    void TerminateStep(bool freshReading = false);
    bool AllInState(bool stopped) const;
    void SignalStepProcesses(int signal) const;
    int FinalStepRc();
    std::string JoinNotes() const;

    ReplyRecord MakeReply(const char* stage) const;
    bool Send(ReplyRecord reply, const std::string& text);
    bool SendAck(const char* stage, int32_t code);

    int input_;
    int output_;
    ProcFiles proc_;
    long ticksPerSecond_;
    StepMeter meter_;
    StartRecord start_;
    StepPlan plan_;
    StepGuard guard_;
    pid_t runner_;
    pid_t shell_ = -1;  // also the step's process group
    std::vector<ProcessInfo> processes_;  // the step's processes at the last reading
    bool countersValid_ = false;
    bool ended_ = false;
    int endHow_ = 0;
    int endStatus_ = 0;
    bool held_ = false;
    bool killedByRunner_ = false;
    std::string startError_;
    std::vector<std::string> notes_;
};

}  // namespace vq
