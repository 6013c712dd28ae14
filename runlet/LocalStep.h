#pragma once
// A step run on this machine: /bin/sh -c COMMAND in a process group of its own, read through
// /proc, signalled as a group, and ended by its guard when the runner dies.
#include <signal.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "runlet/ProcReader.h"
#include "runlet/StepBackend.h"
#include "runlet/StepMeter.h"
#include "runlet/StepPlan.h"
#include "runlet/StepProcess.h"

namespace vq {

class LocalStep : public StepBackend {
public:
    // `endRequested` becomes true when the runner is asked to end; "END " stops waiting then.
    explicit LocalStep(const volatile sig_atomic_t& endRequested);

    StartOutcome Start(const StepInput& input) override;
    int WatchIntervalMs() const override;
    void Watch() override { Refresh(); }
    void Refresh() override;
    StepSnapshot Snapshot() const override;
    bool Stop() override;
    bool Continue() override;
    std::string ChangePriority(int32_t code) override;
    std::string WriteDiagnostic() override;
    void Kill() override;
    int Finish() override;
    void Abandon() override { TerminateStep(); }
    void ReleaseGuard() override { guard_.Release(); }
    std::string StatusText() const override { return {}; }
    std::string EndText() const override { return JoinLines(startError_, notes_); }

private:
    void ReapEnded();
    // Kills what is left of the step and reaps it; `freshReading` when Refresh has just run.
    void TerminateStep(bool freshReading = false);
    bool AllInState(bool stopped) const;
    void SignalStepProcesses(int signal) const;
    int FinalStepRc();

    const volatile sig_atomic_t& endRequested_;
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

// The runner's own environment, the base of every step's.
std::vector<std::string> OwnEnvironment();
// The login name of the runner's user, for a step that names its user.
std::string OwnLogin();

}  // namespace vq
