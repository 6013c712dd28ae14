#include "calendar/MUrnik.h"

#include <algorithm>

#include "calendar/Common.h"
#include "platform/Error.h"

namespace vq {
namespace {

constexpr int64_t kDay = 86400;
// A missed slot of a series with an hour part, or without minutes, may run this late.
constexpr int64_t kHourTolerance = 900;
constexpr int64_t kLeastMinuteTolerance = 30;
constexpr int64_t kSecondsPerIntervalMinute = 6;

// Wall time in whole seconds from 1899-12-30 00:00:00.
using Wall = int64_t;

Wall ToWall(VqDate date) { return SecondsBetween(0, date); }
VqDate FromWall(Wall seconds) { return AddSeconds(0, seconds); }
// The present time has a resolution of one second: the milliseconds are cut, not rounded.
Wall NowToWall(VqDate now) {
    DateParts parts = SplitDate(now);
    parts.millisecond = 0;
    return ToWall(MakeDate(parts));
}

int64_t DayOf(Wall t) { return t >= 0 ? t / kDay : (t - kDay + 1) / kDay; }
Wall TimeOfDay(Wall t) { return t - DayOf(t) * kDay; }
int YearOf(Wall t) { return SplitDate(FromWall(DayOf(t) * kDay)).year; }

bool AllBlank(const std::string& mask) {
    return std::all_of(mask.begin(), mask.end(), [](char c) { return c == ' '; });
}

int32_t NumberField(const std::string& repeat, size_t at, size_t length, const char* field) {
    try {
        return static_cast<int32_t>(CellNumber(repeat.substr(at, length)));
    } catch (const VqError&) {
        throw VqError(std::string("The repeat string's ") + field + " \"" +
                          repeat.substr(at, length) + "\" isn't a number.",
                      13);
    }
}

// One schedule with its masks read once.
class Calendar {
public:
    Calendar(const RepeatRule& rule, const NonWorkTest& isNonWorkDay)
        : rule_(rule), isNonWorkDay_(isNonWorkDay), mode_(ModeNumber(rule.Mode)),
          monthMask_(!AllBlank(rule.MonthDays)), weekMask_(!AllBlank(rule.WeekDays)) {}

    bool Intraday() const { return rule_.EveryHours > 0 || rule_.EveryMinutes > 0; }
    bool Repeats() const { return rule_.Times > 0 || Intraday(); }

    struct Day {
        int32_t result;
        Wall date;
    };

    Day Find(Wall date) const {
        for (int32_t moved = 0; moved <= 365; ++moved)
            if (Qualifies(date + moved * kDay)) return {moved, date + moved * kDay};
        return {kNoRunDay, date};
    }

    Day Advance(Wall date) const {
        bool moved = false;
        if (rule_.EveryHours > 0) date += rule_.EveryHours * 3600LL, moved = true;
        if (rule_.EveryMinutes > 0) date += rule_.EveryMinutes * 60LL, moved = true;
        if (rule_.Times < 1 && (monthMask_ || weekMask_)) date += kDay, moved = true;
        return moved ? Find(date) : Day{0, date};
    }

    RunDay ToRunDay(const Day& day) const {
        const bool found = day.result >= 0;
        return {day.result, FromWall(day.date), found && Repeats(), found && Intraday()};
    }

private:
    bool Qualifies(Wall date) const {
        const int64_t day = DayOf(date);
        // 1899-12-30 was a Saturday; w runs from 1 for Sunday to 7 for Saturday.
        const int w = static_cast<int>(((day + 6) % 7 + 7) % 7) + 1;
        const bool workday = w % 7 > 1;
        switch (mode_) {
            case 1: if (!workday) return false; break;
            case 2: if (!workday || isNonWorkDay_(FromWall(date))) return false; break;
            case 3: if (workday) return false; break;
            case 4: if (workday && !isNonWorkDay_(FromWall(date))) return false; break;
            default: break;
        }
        if (monthMask_ && rule_.MonthDays[SplitDate(FromWall(day * kDay)).day - 1] == ' ')
            return false;
        return !weekMask_ || rule_.WeekDays[w - 1] != ' ';
    }

    const RepeatRule& rule_;
    const NonWorkTest& isNonWorkDay_;
    int mode_;
    bool monthMask_, weekMask_;
};

RunPlan NoDayQualifies(RunPlan plan, int32_t result) {
    plan.RunCount = result;
    plan.RunNow = false;
    plan.More = false;
    plan.NextRun = 0;
    return plan;
}

// A slot that was due `late` seconds ago runs if it is within the tolerance of its interval.
bool WithinTolerance(const RepeatRule& rule, int64_t late) {
    if (late <= 0) return false;
    if (rule.EveryHours != 0 || rule.EveryMinutes < 1) return late <= kHourTolerance;
    return late <= std::max(kLeastMinuteTolerance, rule.EveryMinutes * kSecondsPerIntervalMinute);
}

}  // namespace

RepeatRule ParseRepeat(const std::string& repeat) {
    if (repeat.size() < kRepeatFixedLength)
        throw VqError("The repeat string \"" + repeat + "\" is shorter than " +
                          std::to_string(kRepeatFixedLength) + " characters.",
                      13);
    RepeatRule rule;
    rule.Times = NumberField(repeat, 0, 4, "count");
    rule.MonthDays = repeat.substr(4, 31);
    rule.WeekDays = repeat.substr(35, 7);
    rule.EveryHours = NumberField(repeat, 42, 2, "hours");
    rule.EveryMinutes = NumberField(repeat, 44, 2, "minutes");
    rule.Mode = repeat.substr(46);
    return rule;
}

std::string FormatRepeat(const RepeatRule& rule) {
    auto fit = [](std::string mask, size_t width) {
        mask.resize(width, ' ');
        return mask;
    };
    return ZeroPad(rule.Times, 4) + fit(rule.MonthDays, 31) + fit(rule.WeekDays, 7) +
           ZeroPad(rule.EveryHours, 2) + ZeroPad(rule.EveryMinutes, 2) + rule.Mode;
}

int ModeNumber(const std::string& mode) {
    static const char* const kModes[] = {"ED", "WD", "WDH", "SS", "SSH"};
    for (int i = 0; i < 5; ++i)
        if (mode == kModes[i]) return i;
    return 0;
}

RunDay FindRunDay(VqDate date, const RepeatRule& rule, const NonWorkTest& isNonWorkDay) {
    const Calendar calendar(rule, isNonWorkDay);
    return calendar.ToRunDay(calendar.Find(ToWall(date)));
}

RunDay AdvanceRun(VqDate date, const RepeatRule& rule, const NonWorkTest& isNonWorkDay) {
    const Calendar calendar(rule, isNonWorkDay);
    return calendar.ToRunDay(calendar.Advance(ToWall(date)));
}

RunPlan NextRunTime(VqDate nowDate, VqDate current, VqDate scheduled, const RepeatRule& rule,
                    const NonWorkTest& isNonWorkDay) {
    const Calendar calendar(rule, isNonWorkDay);
    const Wall now = NowToWall(nowDate);
    // 1. The plan of a check that finds nothing to do.
    RunPlan plan{scheduled, current, rule.Times, false, true};
    // 2. Not due yet. The date 0 of a new task is always before now.
    if (ToWall(current) >= now) return plan;
    // 3.-4. The first slot.
    const Calendar::Day first = calendar.Find(ToWall(scheduled));
    plan.NextSchedule = FromWall(first.date);
    if (first.result < 0) return NoDayQualifies(plan, first.result);
    // 5. A single run has no tolerance: it runs however late the check comes.
    if (!calendar.Repeats()) {
        if (first.date > now) return plan.NextRun = FromWall(first.date), plan;
        plan.NextRun = 0;
        plan.RunNow = true;
        plan.More = false;
        return plan;
    }
    // 6. The walk of the slots that are due. A count without an interval counts days.
    const bool countsDays = !calendar.Intraday();
    Wall slot = first.date, lastDue = first.date;
    int32_t count = 0;
    bool restarted = false, countUsedUp = false;
    while (slot <= now) {
        lastDue = slot;
        const Calendar::Day next = countsDays ? calendar.Find(slot + kDay) : calendar.Advance(slot);
        if (next.result < 0) return NoDayQualifies(plan, next.result);
        slot = next.date;
        count = restarted ? 1 : count + 1;
        restarted = false;
        if (rule.Times < 1 || count < rule.Times) continue;
        if (countsDays) {
            // The last day of the count: the series ends with this slot.
            countUsedUp = true;
            break;
        }
        // The day's count is used up: the next day begins at the scheduled time of day.
        const Calendar::Day nextDay =
            calendar.Find(DayOf(lastDue) * kDay + TimeOfDay(ToWall(scheduled)) + kDay);
        if (nextDay.result < 0) return NoDayQualifies(plan, nextDay.result);
        slot = nextDay.date;
        restarted = true;
    }
    plan.RunCount = count;
    // 7. Whether the last slot that is due runs; nothing runs across a year's end.
    if (lastDue <= now && YearOf(lastDue) == YearOf(now))
        plan.RunNow = WithinTolerance(rule, now - lastDue);
    // 8.
    plan.NextRun = countUsedUp ? 0 : FromWall(slot);
    plan.More = !countUsedUp;
    // 9. The base of the next check.
    plan.NextSchedule = scheduled;
    if (lastDue > now)
        plan.RunNow = false;
    else if (rule.Times < 1 || restarted)
        plan.NextSchedule = FromWall(slot);
    return plan;
}

}  // namespace vq
