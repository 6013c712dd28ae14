// Fuzz target: whatever the runner reads from outside. The start record and its three
// blocks from the server (as one stream), and the /proc and FileRC texts that it parses.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "runlet/ProcReader.h"
#include "runlet/ReturnCode.h"
#include "runlet/StepPlan.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);

    vq::ParseStat(bytes);
    vq::ParseStatusMemory(bytes);
    vq::ParseIo(bytes);
    vq::ParseCommandLine(bytes);
    vq::ParseFileRc(bytes);

    if (size < vq::StartRecord::kSize) return 0;
    vq::StepInput input;
    input.start = vq::StartRecord::Decode(bytes.substr(0, vq::StartRecord::kSize));
    std::string_view rest = bytes.substr(vq::StartRecord::kSize);
    auto take = [&rest](int32_t length) {
        const size_t n = length > 0 ? std::min(rest.size(), static_cast<size_t>(length)) : 0;
        std::string block(rest.substr(0, n));
        rest.remove_prefix(n);
        return block;
    };
    input.command = take(input.start.CommandLength);
    input.fileRc = take(input.start.FileRcLength);
    input.environ = take(input.start.EnvironLength);
    const vq::StepPlan plan = vq::MakeStepPlan(input, {"PATH=/usr/bin"}, "fuzzer");
    if (!plan.Refused() && plan.arguments.size() != 3) __builtin_trap();
    return 0;
}
