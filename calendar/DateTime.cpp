#include "calendar/DateTime.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/Error.h"

namespace vq {
namespace {

constexpr int64_t kMsPerDay = 86400000;
// Days from 1970-01-01 to the automation epoch 1899-12-30.
constexpr int64_t kEpochShift = 25569;

// Days since 1970-01-01 of a civil date (proleptic Gregorian).
int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

void CivilFromDays(int64_t z, int& year, int& month, int& day) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t y = static_cast<int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    year = static_cast<int>(y + (month <= 2));
}

int64_t ToMilliseconds(VqDate date) { return std::llround(date * kMsPerDay); }

VqDate FromMilliseconds(int64_t ms) { return static_cast<double>(ms) / kMsPerDay; }

std::tm ToTm(VqDate date) {
    const DateParts p = SplitDate(date);
    std::tm tm{};
    tm.tm_year = p.year - 1900;
    tm.tm_mon = p.month - 1;
    tm.tm_mday = p.day;
    tm.tm_hour = p.hour;
    tm.tm_min = p.minute;
    tm.tm_sec = p.second;
    tm.tm_wday = Weekday(date);
    tm.tm_isdst = -1;
    return tm;
}

std::string FormatTm(const char* pattern, const std::tm& tm) {
    char buffer[256];
    const size_t n = std::strftime(buffer, sizeof buffer, pattern, &tm);
    return std::string(buffer, n);
}

bool AllParsed(const char* end) {
    while (*end == ' ') ++end;
    return *end == '\0';
}

bool ValidParts(const DateParts& p) {
    if (p.month < 1 || p.month > 12 || p.day < 1 || p.day > 31) return false;
    if (p.hour < 0 || p.hour > 23 || p.minute < 0 || p.minute > 59) return false;
    if (p.second < 0 || p.second > 59) return false;
    int y, m, d;
    CivilFromDays(DaysFromCivil(p.year, p.month, p.day), y, m, d);
    return d == p.day;  // rejects 31 April and 29 February of a common year
}

bool ReadIsoForm(const std::string& text, DateParts& p) {
    int used = 0;
    p = DateParts{};
    const char* s = text.c_str();
    if (std::sscanf(s, " %4d-%2d-%2d %2d:%2d:%2d%n", &p.year, &p.month, &p.day, &p.hour,
                    &p.minute, &p.second, &used) == 6 && AllParsed(s + used))
        return ValidParts(p);
    p = DateParts{};
    used = 0;
    if (std::sscanf(s, " %4d-%2d-%2d %2d:%2d%n", &p.year, &p.month, &p.day, &p.hour, &p.minute,
                    &used) == 5 && AllParsed(s + used))
        return ValidParts(p);
    p = DateParts{};
    used = 0;
    if (std::sscanf(s, " %4d-%2d-%2d%n", &p.year, &p.month, &p.day, &used) == 3 &&
        AllParsed(s + used))
        return ValidParts(p);
    return false;
}

bool ReadLocaleForm(const std::string& text, DateParts& p) {
    for (const char* pattern : {"%x %X", "%x"}) {
        std::tm tm{};
        const char* end = strptime(text.c_str(), pattern, &tm);
        if (end && AllParsed(end)) {
            p = DateParts{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday,
                          tm.tm_hour, tm.tm_min, tm.tm_sec, 0};
            return ValidParts(p);
        }
    }
    return false;
}

}  // namespace

VqDate MakeDate(const DateParts& p) {
    const int64_t days = DaysFromCivil(p.year, p.month, p.day) + kEpochShift;
    const int64_t ms = ((p.hour * 60LL + p.minute) * 60 + p.second) * 1000 + p.millisecond;
    return FromMilliseconds(days * kMsPerDay + ms);
}

DateParts SplitDate(VqDate date) {
    int64_t ms = ToMilliseconds(date);
    int64_t days = ms / kMsPerDay;
    int64_t rest = ms % kMsPerDay;
    if (rest < 0) {
        rest += kMsPerDay;
        --days;
    }
    DateParts p;
    CivilFromDays(days - kEpochShift, p.year, p.month, p.day);
    p.millisecond = static_cast<int>(rest % 1000);
    rest /= 1000;
    p.second = static_cast<int>(rest % 60);
    rest /= 60;
    p.minute = static_cast<int>(rest % 60);
    p.hour = static_cast<int>(rest / 60);
    return p;
}

VqDate DateFromTimeT(std::time_t t, int milliseconds) {
    std::tm tm{};
    localtime_r(&t, &tm);
    return MakeDate({tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                     tm.tm_sec, milliseconds});
}

std::time_t DateToTimeT(VqDate date) {
    std::tm tm = ToTm(date);
    return std::mktime(&tm);
}

int64_t SecondsBetween(VqDate a, VqDate b) {
    return static_cast<int64_t>(std::llround((ToMilliseconds(b) - ToMilliseconds(a)) / 1000.0));
}

VqDate AddSeconds(VqDate date, int64_t seconds) {
    return FromMilliseconds(ToMilliseconds(date) + seconds * 1000);
}

int Weekday(VqDate date) {
    const int64_t days = ToMilliseconds(date) / kMsPerDay - (ToMilliseconds(date) < 0 ? 1 : 0);
    // 1899-12-30 was a Saturday.
    return static_cast<int>(((days + 6) % 7 + 7) % 7);
}

std::string FormatDateTime(VqDate date) {
    const DateParts p = SplitDate(date);
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d", p.year, p.month, p.day,
                  p.hour, p.minute, p.second);
    return buffer;
}

std::string FormatDateOnly(VqDate date) { return FormatDateTime(date).substr(0, 10); }

std::string FormatLocaleDateTime(VqDate date) { return FormatTm("%x %X", ToTm(date)); }
std::string FormatLocaleDate(VqDate date) { return FormatTm("%x", ToTm(date)); }
std::string FormatLocaleTime(VqDate date) { return FormatTm("%X", ToTm(date)); }

bool TryReadDate(const std::string& text, VqDate& date) {
    if (text == "0") {
        date = 0;
        return true;
    }
    DateParts p;
    if (ReadIsoForm(text, p) || ReadLocaleForm(text, p)) {
        date = MakeDate(p);
        return true;
    }
    return false;
}

VqDate ReadDate(const std::string& text) {
    VqDate date = 0;
    if (!TryReadDate(text, date)) throw VqError("Type mismatch", 13);
    return date;
}

}  // namespace vq
