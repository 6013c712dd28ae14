#pragma once
// The schedule calculation: is a run of a waiting task due now, and when is the next one? The
// answer rests on the repeat string, the scheduled time, the last computed run and the clock
// alone, so it can be replayed at any moment, also after the server was down. All arithmetic
// is calendar arithmetic on local wall time in whole seconds.
#include <cstdint>
#include <functional>
#include <string>

#include "calendar/DateTime.h"

namespace vq {

// The result of a search that found no qualifying day within 366 dates.
inline constexpr int32_t kNoRunDay = -9;
// The repeat string is at least this long; the mode follows.
inline constexpr size_t kRepeatFixedLength = 46;

// The repeat string cut at its fixed positions.
struct RepeatRule {
    int32_t Times = 0;
    std::string MonthDays = std::string(31, ' ');  // day 1 first; a blank is a day not allowed
    std::string WeekDays = std::string(7, ' ');    // Sunday first
    int32_t EveryHours = 0;
    int32_t EveryMinutes = 0;
    std::string Mode = "ED";  // "ED", "WD", "WDH", "SS" or "SSH"; any other text is "ED"
};

// Cuts a repeat string. A string shorter than 46 characters, or numeric fields that aren't
// numbers, fail with VqError.
RepeatRule ParseRepeat(const std::string& repeat);
// The repeat string of a rule.
std::string FormatRepeat(const RepeatRule& rule);
// 0 "ED" (and any unknown text), 1 "WD", 2 "WDH", 3 "SS", 4 "SSH".
int ModeNumber(const std::string& mode);

struct RunDay {
    int32_t Result = 0;  // days moved forward, or kNoRunDay
    VqDate Date = 0;
    bool Repeats = false;   // Times, EveryHours or EveryMinutes above 0
    bool Intraday = false;  // EveryHours or EveryMinutes above 0
};

struct RunPlan {
    VqDate NextSchedule = 0;  // what SchTime becomes
    VqDate NextRun = 0;       // what CurRepeat becomes; 0 if no run follows
    int32_t RunCount = 0;     // the slot's number in the day or the series; kNoRunDay
    bool RunNow = false;      // the task is due now
    bool More = true;         // a further run follows this check
};

// True for a non-working day (the holidays of NonWork.dat).
using NonWorkTest = std::function<bool(VqDate)>;

// The first date from `date` on, up to 365 days after it and at the same time of day, that
// the mode and both masks allow.
RunDay FindRunDay(VqDate date, const RepeatRule& rule, const NonWorkTest& isNonWorkDay);
// The slot after `date`.
RunDay AdvanceRun(VqDate date, const RepeatRule& rule, const NonWorkTest& isNonWorkDay);
// The plan of a check at `now`; `current` is CurRepeat, `scheduled` SchTime.
//
// Times above 0 with no interval counts days: one run on each of the next `Times` qualifying
// days at the scheduled time of day, then the series ends.
RunPlan NextRunTime(VqDate now, VqDate current, VqDate scheduled, const RepeatRule& rule,
                    const NonWorkTest& isNonWorkDay);

}  // namespace vq
