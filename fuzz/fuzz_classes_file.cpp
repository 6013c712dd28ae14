// The Classes.dat reader on any bytes: it either reads the whole file or fails with an error
// that LoadClasses logs; the units are then computed from whatever was read. What was read
// is written again and must read back without failure and with the same numbers.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/Error.h"
#include "storage/Classes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vq::ClassData classes;
    try {
        vq::ReadClassesText(std::string(reinterpret_cast<const char*>(data), size), classes);
    } catch (const vq::VqError&) {
    }
    vq::ComputeClassUnits(classes);
    vq::ClassIndex(classes, std::string(reinterpret_cast<const char*>(data), size < 2 ? size : 2));
    const std::string text = vq::ClassesFileText(classes);
    vq::ClassData again;
    try {
        vq::ReadClassesText(text, again);
    } catch (const vq::VqError&) {
        std::abort();
    }
    for (size_t i = 0; i < again.ClassTable.size(); ++i) {
        const vq::ClassEntry &a = classes.ClassTable[i], &b = again.ClassTable[i];
        if (a.MaxTime != b.MaxTime || a.MaxCpu != b.MaxCpu || a.CpuPriority != b.CpuPriority ||
            a.MaxMemory != b.MaxMemory || a.MaxIo != b.MaxIo || a.QueuePriority != b.QueuePriority)
            std::abort();
    }
    return 0;
}
