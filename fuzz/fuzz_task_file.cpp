// The task file reader on any bytes: the plain parse, and the encrypted form where the bytes
// hold its frame. No input may crash, hang or read out of bounds; a failure must be reported
// in the load's message form.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "storage/TaskFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vq::TaskFileData task;
    std::string error;
    const bool ok = vq::ParseTaskFileText(std::string(reinterpret_cast<const char*>(data), size),
                                          "fuzz.vqf", task, error);
    if (ok) {
        // A successful load has at least one step and the lists its counts give.
        if (task.steps.empty() ||
            task.steps.size() != static_cast<size_t>(task.general.NumberSteps))
            std::abort();
    } else if (error.rfind("ERROR: Cannot Open \"fuzz.vqf\". \n\n", 0) != 0 ||
               error.find("\n\nLoad Progress Number: ") == std::string::npos) {
        std::abort();
    }
    return 0;
}
