#include "runlet/StepMeter.h"

#include <algorithm>

namespace vq {

int64_t StepMeter::ToTicks100ns(uint64_t clockTicks) const {
    if (ticksPerSecond_ <= 0) return 0;
    return static_cast<int64_t>(clockTicks * 10'000'000ULL / static_cast<uint64_t>(ticksPerSecond_));
}

void StepMeter::Report(const StepCounters& reading) {
    reported_.userTime = std::max(reported_.userTime, reading.userTime);
    reported_.systemTime = std::max(reported_.systemTime, reading.systemTime);
    reported_.peakKb = std::max(reported_.peakKb, reading.peakKb);
    reported_.ioCalls = std::max(reported_.ioCalls, reading.ioCalls);
}

void StepMeter::Sample(const std::vector<ProcessInfo>& processes) {
    StepCounters reading = reaped_;
    reading.peakKb = 0;
    for (const ProcessInfo& p : processes) {
        reading.userTime += ToTicks100ns(p.stat.userTicks + p.stat.childUserTicks);
        reading.systemTime += ToTicks100ns(p.stat.systemTicks + p.stat.childSystemTicks);
        reading.peakKb += static_cast<int64_t>(p.memory.peakKb);
        if (p.io) reading.ioCalls += static_cast<int64_t>(p.io->reads + p.io->writes);
    }
    Report(reading);
}

void StepMeter::Reaped(const ProcessInfo& process) {
    reaped_.userTime += ToTicks100ns(process.stat.userTicks + process.stat.childUserTicks);
    reaped_.systemTime += ToTicks100ns(process.stat.systemTicks + process.stat.childSystemTicks);
    if (process.io) reaped_.ioCalls += static_cast<int64_t>(process.io->reads + process.io->writes);
    Report(reaped_);
}

void StepMeter::Final(int64_t userTime, int64_t systemTime, int64_t maxResidentKb) {
    Report({userTime, systemTime, maxResidentKb, 0});
}

}  // namespace vq
