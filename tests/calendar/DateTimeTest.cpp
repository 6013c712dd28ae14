// Dates in cells and in the locale's form, numbers kept as text, casing, small helpers.
#include <gtest/gtest.h>

#include "calendar/Common.h"
#include "calendar/DateTime.h"
#include "platform/Error.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

const VqDate kSample = MakeDate({2027, 1, 9, 19, 5, 3, 0});

// The short date and long time of 9 January 2027, 19:05:03 in each locale, as its users
// write them.
struct LocaleDates {
    const char* locale;
    const char* dateTime;
    const char* date;
};
const LocaleDates kLocales[] = {
    {"C", "01/09/27 19:05:03", "01/09/27"},
    {"en_US.UTF-8", "01/09/2027 07:05:03 PM", "01/09/2027"},
    {"de_DE.UTF-8", "09.01.2027 19:05:03", "09.01.2027"},
    {"nl_NL.UTF-8", "09-01-27 19:05:03", "09-01-27"},
    {"en_GB.UTF-8", "09/01/27 19:05:03", "09/01/27"},
    {"tr_TR.UTF-8", "09-01-2027 19:05:03", "09-01-2027"},
};

TEST(Dates, EveryLocaleReadsItsOwnShortDateAndTheCellForm) {
    for (const LocaleDates& l : kLocales) {
        test::LocaleScope scope(l.locale);
        ASSERT_TRUE(scope.Active());
        EXPECT_EQ(FormatLocaleDateTime(kSample), l.dateTime) << l.locale;
        EXPECT_EQ(FormatDateTime(ReadDate(l.dateTime)), "2027-01-09 19:05:03") << l.locale;
        EXPECT_EQ(FormatDateTime(ReadDate(l.date)), "2027-01-09 00:00:00") << l.locale;
        for (const char* cell : {"2027-01-09 19:05:03", " 2027-1-9 19:05:03 ", "2027-01-09 19:05"})
            EXPECT_EQ(FormatDateOnly(ReadDate(cell)), "2027-01-09") << l.locale << " " << cell;
        EXPECT_EQ(FormatDateTime(ReadDate("2027-01-09")), "2027-01-09 00:00:00") << l.locale;
        EXPECT_DOUBLE_EQ(ReadDate("0"), 0.0) << l.locale;  // the date 0
    }
}

TEST(Dates, BadTextsFail) {
    test::LocaleScope dutch("nl_NL.UTF-8");
    ASSERT_TRUE(dutch.Active());
    for (const char* bad : {"", "yesterday", "2026-02-29", "2026-13-01", "2026-01-01 24:00:00",
                            "2026-01-01 10:00:00 trailing", "2026-01-01x", "2026-01-01 10",
                            "20261-01-01", "31-02-27", "2027-09-01-27"}) {
        VqDate d;
        EXPECT_FALSE(TryReadDate(bad, d)) << bad;
        EXPECT_THROW(ReadDate(bad), VqError) << bad;
    }
}

// The date 0 and adding seconds are pinned through the schedule calculation's tables.
TEST(Dates, AutomationDays) {
    EXPECT_DOUBLE_EQ(MakeDate({1900, 1, 1, 0, 0, 0, 0}), 2.0);
    EXPECT_DOUBLE_EQ(MakeDate({1970, 1, 1, 12, 0, 0, 0}), 25569.5);
    EXPECT_EQ(Weekday(MakeDate({2026, 11, 22, 0, 0, 0, 0})), 0);  // a Sunday
}

TEST(Numbers, ZeroPadValAndCellNumber) {
    EXPECT_EQ(ZeroPad(1000000, 6), "1000000");
    EXPECT_EQ(ZeroPad(-5, 2), "-05");
    EXPECT_EQ(Val(" 42abc"), 42);
    EXPECT_EQ(Val("abc"), 0);
    EXPECT_EQ(Val("99999999999999999999999"), INT64_MAX);
    EXPECT_EQ(CellNumber(" 000200 "), 200);
    EXPECT_THROW(CellNumber("12x"), VqError);
}

TEST(Casing, IsAsciiOnlyWhateverTheLocale) {
    test::LocaleScope turkish("tr_TR.UTF-8");
    ASSERT_TRUE(turkish.Active());
    EXPECT_EQ(ToUpper("mini-host"), "MINI-HOST");  // the computer name
    EXPECT_EQ(ToUpper("Log Entry - Time: \xc4\xb1 \xe9"), "LOG ENTRY - TIME: \xc4\xb1 \xe9");
    EXPECT_TRUE(EqualsNoCase("$localuser$", "$LOCALUSER$"));
    EXPECT_FALSE(EqualsNoCase("\xe9", "\xc9"));
}

// The priority lists are the Options and Properties windows' tests (35 and 42 entries).
TEST(Helpers, TheComputerNameIsAShortHostName) {
    const std::string name = GetComputerNameText();
    EXPECT_FALSE(name.empty());
    EXPECT_LE(name.size(), 15u);
    EXPECT_EQ(name.find('.'), std::string::npos);
}

}  // namespace
}  // namespace vq
