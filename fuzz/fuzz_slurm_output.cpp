// Fuzz target: what the Slurm programs print, as the step runner reads it (sbatch's job id
// and errors, scontrol's job, sstat's reading), and the return code of a job it describes.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "runlet/SlurmParse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    vq::ParseSbatchJobId(text);
    vq::ClassifySbatchFailure(text);
    vq::SlurmMessage(text);
    vq::IsUnknownJobMessage(text);
    if (const std::optional<vq::SlurmJob> job = vq::ParseScontrolJob(text)) {
        vq::IsHeld(*job);
        if (const std::optional<int> rc = vq::StepRcOfJob(*job); rc && (*rc < 1 || *rc > 98)) __builtin_trap();
    }
    if (const std::optional<vq::SlurmUsage> usage = vq::ParseSstat(text))
        if (usage->cpuTicks < 0 || usage->peakKb < 0 || usage->readBytes < 0 || usage->writtenBytes < 0)
            __builtin_trap();
    if (const std::optional<int64_t> ticks = vq::ParseSlurmDuration(text); ticks && *ticks < 0) __builtin_trap();
    return 0;
}
