#include "calendar/DateTime.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

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

// Reads `least` to `most` digits at `at` into `value`.
bool ReadDigits(std::string_view text, size_t& at, size_t least, size_t most, int& value) {
    size_t count = 0;
    value = 0;
    while (count < most && at < text.size() && text[at] >= '0' && text[at] <= '9') {
        value = value * 10 + (text[at++] - '0');
        ++count;
    }
    return count >= least;
}

bool Expect(std::string_view text, size_t& at, char c) {
    if (at >= text.size() || text[at] != c) return false;
    ++at;
    return true;
}

size_t SkipBlanks(std::string_view text, size_t at) {
    while (at < text.size() && text[at] == ' ') ++at;
    return at;
}

// The cell form begins with a year of four digits and a dash. Only such a text is read as
// one: a short date such as "09-01-27" (nl_NL) is the locale's, not the year 9.
bool StartsAsCellForm(std::string_view text) {
    size_t at = SkipBlanks(text, 0);
    int year = 0;
    return ReadDigits(text, at, 4, 4, year) && Expect(text, at, '-');
}

// "yyyy-mm-dd", then optionally "hh:mm" or "hh:mm:ss" after blanks.
bool ReadCellForm(std::string_view text, DateParts& p) {
    p = DateParts{};
    size_t at = SkipBlanks(text, 0);
    if (!ReadDigits(text, at, 4, 4, p.year) || !Expect(text, at, '-') ||
        !ReadDigits(text, at, 1, 2, p.month) || !Expect(text, at, '-') ||
        !ReadDigits(text, at, 1, 2, p.day))
        return false;
    const size_t timeAt = SkipBlanks(text, at);
    if (timeAt < text.size() && timeAt > at) {
        at = timeAt;
        if (!ReadDigits(text, at, 1, 2, p.hour) || !Expect(text, at, ':') ||
            !ReadDigits(text, at, 1, 2, p.minute))
            return false;
        if (at < text.size() && text[at] == ':' && !ReadDigits(text, ++at, 1, 2, p.second))
            return false;
    }
    return SkipBlanks(text, at) == text.size() && ValidParts(p);
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
    if (StartsAsCellForm(text) ? ReadCellForm(text, p) : ReadLocaleForm(text, p)) {
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
