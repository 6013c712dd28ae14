#pragma once
// Dates as the tables, files and reports use them. A date value is an automation date: days
// from 1899-12-30 as a double, the time of day as its fraction, in local time.
#include <cstdint>
#include <ctime>
#include <string>

namespace vq {

using VqDate = double;

struct DateParts {
    int year = 1899, month = 12, day = 30;
    int hour = 0, minute = 0, second = 0, millisecond = 0;
};

VqDate MakeDate(const DateParts& parts);
DateParts SplitDate(VqDate date);
// Local time of a POSIX time, with optional milliseconds.
VqDate DateFromTimeT(std::time_t t, int milliseconds = 0);
std::time_t DateToTimeT(VqDate date);
// Whole seconds between two dates (b - a), rounded.
int64_t SecondsBetween(VqDate a, VqDate b);
VqDate AddSeconds(VqDate date, int64_t seconds);
// Day of the week, 0 for Sunday.
int Weekday(VqDate date);

// "yyyy-mm-dd hh:mm:ss": the one form of every date cell, whatever the locale.
std::string FormatDateTime(VqDate date);
// "yyyy-mm-dd".
std::string FormatDateOnly(VqDate date);
// The user's short date and long time ("ddddd ttttt"): the LC_TIME form "%x %X".
std::string FormatLocaleDateTime(VqDate date);
std::string FormatLocaleDate(VqDate date);
std::string FormatLocaleTime(VqDate date);

// Reads "0" (the date 0); a text that begins with a four-digit year and a dash in the cell
// form "yyyy-mm-dd hh:mm:ss", "yyyy-mm-dd hh:mm" or "yyyy-mm-dd"; any other in the LC_TIME
// forms "%x %X" and "%x". Anything else fails with VqError "Type mismatch".
VqDate ReadDate(const std::string& text);
// The same without the failure.
bool TryReadDate(const std::string& text, VqDate& date);

}  // namespace vq
