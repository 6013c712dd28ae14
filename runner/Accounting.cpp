#include "runner/Accounting.h"

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "calendar/Common.h"

namespace vq {
namespace {

// The separator of the pattern's "," in the user's locale; none where the locale has none.
std::string ThousandsSeparator() {
    const std::lconv* conv = std::localeconv();
    return conv && conv->thousands_sep ? conv->thousands_sep : "";
}

std::string GroupDigits(uint64_t magnitude, bool negative) {
    const std::string digits = std::to_string(magnitude);
    const std::string separator = ThousandsSeparator();
    std::string text = negative ? "-" : "";
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) text += separator;
        text += digits[i];
    }
    return text;
}

}  // namespace

int32_t SystemUnits(const std::array<double, 7>& ponders, int32_t cpuSeconds, int64_t ioCount,
                    int32_t memory) {
    const double io = static_cast<double>(ioCount) / 10000.0;
    const double units = cpuSeconds * ponders[0] + memory * ponders[1] + io * ponders[2];
    if (!std::isfinite(units)) return 0;
    const double rounded = std::nearbyint(units);  // the default mode: a tie to the even one
    if (rounded < std::numeric_limits<int32_t>::min() ||
        rounded > std::numeric_limits<int32_t>::max())
        return 0;
    return static_cast<int32_t>(rounded);
}

std::string FormatThousands(int64_t n) {
    const uint64_t magnitude = n < 0 ? 0 - static_cast<uint64_t>(n) : static_cast<uint64_t>(n);
    return GroupDigits(magnitude, n < 0);
}

std::string FormatThousandsIo(int64_t ioCount) {
    // Rounded as a number format rounds: a half away from zero.
    const uint64_t magnitude =
        ioCount < 0 ? 0 - static_cast<uint64_t>(ioCount) : static_cast<uint64_t>(ioCount);
    const uint64_t whole = magnitude / 10000 + (magnitude % 10000 >= 5000 ? 1 : 0);
    return GroupDigits(whole, ioCount < 0 && whole != 0);
}

std::string PriorityName(uint8_t code) {
    const std::string digits = ZeroPad(code, 2);
    const std::string name = PriorityClassName(digits[0] - '0');
    return name.empty() ? "" : name + " " + digits.substr(1, 1);
}

// Placeholder until resource accounting lands: no sum is kept.
bool AccountStepUsage(Server&, const std::string&, int, bool) { return true; }

// Placeholder until resource limits land: no limit is ever exceeded.
std::string CheckLimits(Server&, const std::string&) { return {}; }

}  // namespace vq
