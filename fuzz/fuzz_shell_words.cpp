// Fuzz target: the splitting of the extra sbatch options as a shell would split them. Words
// that came out, each quoted again and joined, split into the same words.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "runlet/ShellWords.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const vq::ShellSplit split = vq::SplitShellWords(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!split.error.empty()) {
        if (!split.words.empty()) __builtin_trap();
        return 0;
    }
    std::string again;
    for (const std::string& word : split.words) again += vq::QuoteForShell(word) + " ";
    if (vq::SplitShellWords(again).words != split.words) __builtin_trap();
    return 0;
}
