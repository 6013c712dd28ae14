// The schedule calculation against fixed clocks: single runs, day modes and holidays, the
// tolerance of missed slots, counted series, the year's end, daylight saving and leap days.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "calendar/MUrnik.h"
#include "platform/Error.h"
#include "platform/Files.h"

namespace vq {
namespace {

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

const char* const kNoRun = "1899-12-30 00:00:00";

struct Rule {
    int times = 0, hours = 0, minutes = 0;
    const char* mode = "ED";
    std::vector<int> monthDays = {};  // 1 to 31
    std::vector<int> weekDays = {};   // 0 Sunday to 6 Saturday

    RepeatRule Make() const {
        RepeatRule rule{times, std::string(31, ' '), std::string(7, ' '), hours, minutes, mode};
        for (int day : monthDays) rule.MonthDays[day - 1] = 'X';
        for (int day : weekDays) rule.WeekDays[day] = 'X';
        return rule;
    }
};

// 2027-03-17, a Wednesday, is the one holiday of these cases.
bool IsHoliday(VqDate date) { return FormatDateOnly(date) == "2027-03-17"; }

struct Case {
    const char* name;
    Rule rule;
    const char* scheduled;
    const char* current;
    const char* now;
    const char* nextSchedule;
    const char* nextRun;
    int runCount;
    bool runNow, more;
};

// 2027-03-12 is a Friday, 2027-03-13 a Saturday, 2027-03-15 a Monday.
const Case kCases[] = {
    {"SingleRunThreeDaysLate", {}, "2027-03-10 10:00:00", "0", "2027-03-13 10:00:00",
     "2027-03-10 10:00:00", kNoRun, 0, true, false},
    {"SingleRunInTheFuture", {}, "2027-03-20 10:00:00", "0", "2027-03-13 10:00:00",
     "2027-03-20 10:00:00", "2027-03-20 10:00:00", 0, false, true},
    {"SingleRunCheckedAtItsSecondIsNotDue", {}, "2027-03-20 10:00:00", "2027-03-20 10:00:00",
     "2027-03-20 10:00:00", "2027-03-20 10:00:00", "2027-03-20 10:00:00", 0, false, true},
    {"WorkingDayFromASaturday", {0, 0, 0, "WD"}, "2027-03-13 10:00:00", "0",
     "2027-03-12 18:00:00", "2027-03-15 10:00:00", "2027-03-15 10:00:00", 0, false, true},
    {"WeekendAndHolidaysTakesTheHolidayWednesday", {0, 0, 0, "SSH"}, "2027-03-15 09:00:00", "0",
     "2027-03-14 18:00:00", "2027-03-17 09:00:00", "2027-03-17 09:00:00", 0, false, true},
    {"WorkingDayExceptHolidaysSkipsIt", {0, 0, 0, "WDH"}, "2027-03-17 09:00:00", "0",
     "2027-03-14 18:00:00", "2027-03-18 09:00:00", "2027-03-18 09:00:00", 0, false, true},
    {"UnknownModeIsEveryDay", {0, 0, 0, "XX"}, "2027-03-13 10:00:00", "0",
     "2027-03-12 18:00:00", "2027-03-13 10:00:00", "2027-03-13 10:00:00", 0, false, true},
    {"Every10MinutesRunsAt55Seconds", {0, 0, 10}, "2027-03-12 08:10:00", "2027-03-12 08:10:00",
     "2027-03-12 08:10:55", "2027-03-12 08:20:00", "2027-03-12 08:20:00", 1, true, true},
    {"Every10MinutesSkipsAt61Seconds", {0, 0, 10}, "2027-03-12 08:10:00", "2027-03-12 08:10:00",
     "2027-03-12 08:11:01", "2027-03-12 08:20:00", "2027-03-12 08:20:00", 1, false, true},
    {"Every2MinutesRunsAt30Seconds", {0, 0, 2}, "2027-03-12 08:00:00", "0",
     "2027-03-12 08:00:30", "2027-03-12 08:02:00", "2027-03-12 08:02:00", 1, true, true},
    {"HourAndHalfRunsAt14Minutes", {0, 1, 30}, "2027-03-12 08:00:00", "0",
     "2027-03-12 08:14:00", "2027-03-12 09:30:00", "2027-03-12 09:30:00", 1, true, true},
    {"HourAndHalfSkipsAt901Seconds", {0, 1, 30}, "2027-03-12 08:00:00", "0",
     "2027-03-12 08:15:01", "2027-03-12 09:30:00", "2027-03-12 09:30:00", 1, false, true},
    {"ASlotCheckedAtItsSecondDoesNotRun", {0, 0, 10}, "2027-03-12 08:00:00", "0",
     "2027-03-12 08:00:00", "2027-03-12 08:10:00", "2027-03-12 08:10:00", 1, false, true},
    {"MissedSlotsAreWalkedToTheLastDue", {0, 0, 10}, "2027-03-12 08:00:00", "0",
     "2027-03-12 09:05:20", "2027-03-12 09:10:00", "2027-03-12 09:10:00", 7, false, true},
    {"Every2HoursThreeTimesFirstSlot", {3, 2, 0, "WD"}, "2027-03-12 08:00:00", "0",
     "2027-03-12 08:00:05", "2027-03-12 08:00:00", "2027-03-12 10:00:00", 1, true, true},
    {"Every2HoursThreeTimesLastSlotMovesToMonday", {3, 2, 0, "WD"}, "2027-03-12 08:00:00",
     "2027-03-12 12:00:00", "2027-03-12 12:00:05", "2027-03-15 08:00:00", "2027-03-15 08:00:00",
     3, true, true},
    {"Every2HoursThreeTimesNextDayCountsAgain", {3, 2, 0, "WD"}, "2027-03-15 08:00:00",
     "2027-03-15 08:00:00", "2027-03-15 08:00:03", "2027-03-15 08:00:00", "2027-03-15 10:00:00",
     1, true, true},
    // Down over the weekend: the walk restarts the count on Monday and keeps the base.
    {"Every2HoursThreeTimesCountsAgainAfterTheWeekend", {3, 2, 0, "WD"}, "2027-03-12 08:00:00",
     "2027-03-12 12:00:00", "2027-03-15 10:00:05", "2027-03-12 08:00:00", "2027-03-15 12:00:00",
     2, true, true},
    {"EveryHourMondayAloneGoesToTheNextMonday", {0, 1, 0, "ED", {}, {1}}, "2027-03-15 08:00:00",
     "0", "2027-03-15 08:00:10", "2027-03-22 09:00:00", "2027-03-22 09:00:00", 1, true, true},
    {"MasksWithoutCountRunOnceOnTheFirstDay", {0, 0, 0, "ED", {15}}, "2027-03-10 10:00:00", "0",
     "2027-03-12 10:00:00", "2027-03-15 10:00:00", "2027-03-15 10:00:00", 0, false, true},
    {"NoDateQualifies", {0, 1, 0, "WD", {}, {0}}, "2027-03-12 10:00:00", "0",
     "2027-03-12 10:00:00", "2027-03-12 10:00:00", kNoRun, kNoRunDay, false, false},
    {"NothingAcrossTheYearsEnd", {0, 1, 0}, "2027-12-31 23:59:50", "0", "2028-01-01 00:00:05",
     "2028-01-01 00:59:50", "2028-01-01 00:59:50", 1, false, true},
    {"LeapDayOfAMonthDayMask", {0, 0, 0, "ED", {29}}, "2028-02-27 10:00:00", "0",
     "2028-02-20 10:00:00", "2028-02-29 10:00:00", "2028-02-29 10:00:00", 0, false, true},
    {"CountedDaysFirstRun", {2, 0, 0, "WD"}, "2027-03-12 09:00:00", "0", "2027-03-12 09:00:05",
     "2027-03-12 09:00:00", "2027-03-15 09:00:00", 1, true, true},
    {"CountedDaysLastRunEndsTheSeries", {2, 0, 0, "WD"}, "2027-03-12 09:00:00",
     "2027-03-15 09:00:00", "2027-03-15 09:00:05", "2027-03-12 09:00:00", kNoRun, 2, true, false},
};

class NextRunTimeCases : public testing::TestWithParam<Case> {};

TEST_P(NextRunTimeCases, GivesThePlan) {
    const Case& c = GetParam();
    const RunPlan plan =
        NextRunTime(ReadDate(c.now), ReadDate(c.current), ReadDate(c.scheduled), c.rule.Make(),
                    IsHoliday);
    EXPECT_EQ(FormatDateTime(plan.NextSchedule), c.nextSchedule);
    EXPECT_EQ(FormatDateTime(plan.NextRun), c.nextRun);
    EXPECT_EQ(plan.RunCount, c.runCount);
    EXPECT_EQ(plan.RunNow, c.runNow);
    EXPECT_EQ(plan.More, c.more);
}

INSTANTIATE_TEST_SUITE_P(Schedule, NextRunTimeCases, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<Case>& info) { return info.param.name; });

TEST(FindRunDay, CountsTheDaysMoved) {
    const RepeatRule leapOnly = Rule{0, 0, 0, "WD", {29}, {2}}.Make();  // a Tuesday, the 29th
    const RunDay found = FindRunDay(ReadDate("2027-03-01 07:00:00"), leapOnly, IsHoliday);
    EXPECT_EQ(found.Result, 120);
    EXPECT_EQ(FormatDateTime(found.Date), "2027-06-29 07:00:00");
}

TEST(ParseRepeat, CutsTheFixedPositionsAndRefusesWhatIsNoNumber) {
    const std::string masks(38, ' ');
    const std::pair<std::string, const char*> bad[] = {
        {"0003" + masks + "000", "shorter than 46"},
        {"00a1" + masks + "0000ED", "count \"00a1\""},
        {"0001" + masks + "x100WD", "hours \"x1\""},
        {"0001" + masks + "01  WD", "minutes \"  \""},
    };
    for (const auto& [text, problem] : bad)
        EXPECT_THAT([&] { ParseRepeat(text); }, ThrowsMessage<VqError>(HasSubstr(problem)));
    EXPECT_NO_THROW(ParseRepeat("0000" + masks + "0000"));  // 46 characters, no mode
    const std::string monthDays = std::string(14, ' ') + "X" + std::string(16, ' ');  // the 15th
    const RepeatRule rule = ParseRepeat("0012" + monthDays + " X     0130WDH");
    EXPECT_EQ(std::tie(rule.Times, rule.MonthDays, rule.WeekDays, rule.EveryHours, rule.EveryMinutes,
                       rule.Mode),
              std::make_tuple(12, monthDays, " X     ", 1, 30, "WDH"));
    EXPECT_EQ(ModeNumber(rule.Mode), 2);
}

// The calculation works on local wall time, so a daylight-saving change moves no slot.
class DaylightSaving : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(PathExists("/usr/share/zoneinfo/Europe/Berlin"))
            << "the zone Europe/Berlin is missing: install tzdata (scripts/install-deps.sh)";
        if (const char* tz = std::getenv("TZ")) saved_ = tz, hadZone_ = true;
        ::setenv("TZ", "Europe/Berlin", 1);
        ::tzset();
    }
    void TearDown() override {
        if (hadZone_) ::setenv("TZ", saved_.c_str(), 1);
        else ::unsetenv("TZ");
        ::tzset();
    }
    static VqDate LocalAt(const char* utc) {
        std::tm tm{};
        ::strptime(utc, "%Y-%m-%d %H:%M:%S", &tm);
        return DateFromTimeT(::timegm(&tm));
    }
    std::string saved_;
    bool hadZone_ = false;
};

TEST_F(DaylightSaving, HourlySlotsFollowTheLocalClock) {
    const RepeatRule hourly = Rule{0, 1, 0}.Make();
    // Spring: 01:00:20 UTC is 03:00:20 summer time; 02:00 never was, 03:00 runs.
    const RunPlan spring = NextRunTime(LocalAt("2027-03-28 01:00:20"),
                                       ReadDate("2027-03-28 02:00:00"),
                                       ReadDate("2027-03-28 02:00:00"), hourly, IsHoliday);
    EXPECT_TRUE(spring.RunNow);
    EXPECT_EQ(FormatDateTime(spring.NextRun), "2027-03-28 04:00:00");
    // Autumn: 01:00:30 UTC is the second 02:00:30; the 02:00 slot ran in the first one.
    const RunPlan autumn = NextRunTime(LocalAt("2027-10-31 01:00:30"),
                                       ReadDate("2027-10-31 03:00:00"),
                                       ReadDate("2027-10-31 03:00:00"), hourly, IsHoliday);
    EXPECT_FALSE(autumn.RunNow);
    EXPECT_EQ(FormatDateTime(autumn.NextRun), "2027-10-31 03:00:00");
}

}  // namespace
}  // namespace vq
