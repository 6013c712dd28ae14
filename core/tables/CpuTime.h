#pragma once
// The text forms of CPU time ("d:hh:mm:ss:mmm") and of durations ("2 Days 03:04:05").
#include <cstdint>
#include <string>

namespace vq {

struct CpuTime {
    int64_t day = 0;
    int64_t hour = 0, minute = 0, second = 0, millisecond = 0;
    bool operator==(const CpuTime&) const = default;
};

std::string FormatCpuTime(const CpuTime& time);
// All zeros when the text has no ":" after its first character.
CpuTime ParseCpuTime(const std::string& text);
// Field by field, each carry taken once, milliseconds first.
CpuTime AddCpuTime(const CpuTime& a, const CpuTime& b);

struct TimeSpan {
    int64_t days = 0, hours = 0, minutes = 0, seconds = 0;
    bool operator==(const TimeSpan&) const = default;
};

TimeSpan SecondsToTimeSpan(int64_t seconds);
int64_t TimeSpanToSeconds(const TimeSpan& span);
std::string FormatTimeSpan(const TimeSpan& span);

}  // namespace vq
