#include "core/tables/CpuTime.h"

#include "calendar/Common.h"

namespace vq {

std::string FormatCpuTime(const CpuTime& t) {
    return std::to_string(t.day) + ":" + ZeroPad(t.hour, 2) + ":" + ZeroPad(t.minute, 2) + ":" +
           ZeroPad(t.second, 2) + ":" + ZeroPad(t.millisecond, 3);
}

CpuTime ParseCpuTime(const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos || colon == 0) return {};
    auto piece = [&](size_t offset, size_t length) {
        const size_t at = colon + offset;
        return at < text.size() ? Val(std::string_view(text).substr(at, length)) : 0;
    };
    return {Val(text.substr(0, colon)), piece(1, 2), piece(4, 2), piece(7, 2), piece(10, 3)};
}

CpuTime AddCpuTime(const CpuTime& a, const CpuTime& b) {
    CpuTime s{a.day + b.day, a.hour + b.hour, a.minute + b.minute, a.second + b.second,
              a.millisecond + b.millisecond};
    if (s.millisecond >= 1000) { s.millisecond -= 1000; ++s.second; }
    if (s.second >= 60) { s.second -= 60; ++s.minute; }
    if (s.minute >= 60) { s.minute -= 60; ++s.hour; }
    if (s.hour >= 24) { s.hour -= 24; ++s.day; }
    return s;
}

TimeSpan SecondsToTimeSpan(int64_t seconds) {
    TimeSpan span;
    span.days = seconds / 86400;
    seconds %= 86400;
    span.hours = seconds / 3600;
    seconds %= 3600;
    span.minutes = seconds / 60;
    span.seconds = seconds % 60;
    return span;
}

int64_t TimeSpanToSeconds(const TimeSpan& s) {
    return s.days * 86400 + s.hours * 3600 + s.minutes * 60 + s.seconds;
}

std::string FormatTimeSpan(const TimeSpan& s) {
    return std::to_string(s.days) + (s.days == 1 ? " Day " : " Days ") + ZeroPad(s.hours, 2) + ":" +
           ZeroPad(s.minutes, 2) + ":" + ZeroPad(s.seconds, 2);
}

}  // namespace vq
