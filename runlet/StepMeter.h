#pragma once
// The counters of a step, added up over all its processes: those alive now (zombies
// included, they still hold their times), and those that the runner has reaped already.
// What is reported never goes down, so that the server's sums only grow.
#include <cstdint>
#include <vector>

#include "runlet/ProcReader.h"

namespace vq {

struct StepCounters {
    int64_t userTime = 0;    // 100-ns ticks
    int64_t systemTime = 0;  // 100-ns ticks
    int64_t peakKb = 0;
    int64_t ioCalls = 0;     // read and write system calls
};

class StepMeter {
public:
    explicit StepMeter(long clockTicksPerSecond) : ticksPerSecond_(clockTicksPerSecond) {}

    // One reading of the step's processes that have not been reaped yet. The memory peak of
    // the group is taken as the sum of the peaks of the processes alive together.
    void Sample(const std::vector<ProcessInfo>& processes);
    // The last reading of a process that the runner reaps now: its times and I/O stay counted.
    void Reaped(const ProcessInfo& process);
    // The runner's own figures for all the children it has reaped, which are finer than the
    // clock ticks of /proc; taken once the step's processes are all gone.
    void Final(int64_t userTime, int64_t systemTime, int64_t maxResidentKb);

    const StepCounters& Counters() const { return reported_; }

private:
    int64_t ToTicks100ns(uint64_t clockTicks) const;
    void Report(const StepCounters& reading);

    long ticksPerSecond_;
    StepCounters reaped_;
    StepCounters reported_;
};

}  // namespace vq
