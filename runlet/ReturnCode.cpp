#include "runlet/ReturnCode.h"

#include <signal.h>

#include <algorithm>
#include <charconv>

namespace vq {

int StepRcFromEnd(int how, int status) {
    if (how == CLD_EXITED) return std::min(status + 1, kStepRcFailed);
    return kStepRcFailed;
}

std::optional<int> ParseFileRc(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return std::nullopt;
    const size_t last = text.find_last_not_of(" \t\r\n");
    const std::string_view digits = text.substr(first, last - first + 1);
    if (digits.empty() || digits.size() > 9 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    int value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (value > 99) return std::nullopt;
    return value;
}

}  // namespace vq
