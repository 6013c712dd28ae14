// Dates in cells and in the locale's form.
#include <gtest/gtest.h>

#include <clocale>

#include "calendar/Common.h"
#include "calendar/DateTime.h"
#include "platform/Error.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

TEST(CellDates, ReadTheSameWhateverTheLocale) {
    std::setlocale(LC_ALL, "C");
    const VqDate date = MakeDate({2027, 1, 9, 19, 5, 3, 0});
    EXPECT_EQ(FormatDateTime(date), "2027-01-09 19:05:03");
    EXPECT_EQ(FormatDateOnly(date), "2027-01-09");
    EXPECT_DOUBLE_EQ(ReadDate("2027-01-09 19:05:03"), date);
    EXPECT_DOUBLE_EQ(ReadDate(FormatLocaleDateTime(date)), date);
    EXPECT_EQ(FormatDateTime(ReadDate("2027-01-09")), "2027-01-09 00:00:00");
    EXPECT_EQ(FormatDateTime(ReadDate("01/09/27")), "2027-01-09 00:00:00");
    EXPECT_DOUBLE_EQ(ReadDate("0"), 0.0);  // the date 0
    EXPECT_EQ(FormatDateTime(0), "1899-12-30 00:00:00");
    EXPECT_DOUBLE_EQ(ReadDate("1899-12-30 00:00:00"), 0.0);
}

TEST(CellDates, AutomationDaysAndArithmetic) {
    EXPECT_DOUBLE_EQ(MakeDate({1900, 1, 1, 0, 0, 0, 0}), 2.0);
    EXPECT_DOUBLE_EQ(MakeDate({1970, 1, 1, 12, 0, 0, 0}), 25569.5);
    const VqDate d = MakeDate({2024, 2, 28, 23, 59, 30, 0});
    EXPECT_EQ(FormatDateTime(AddSeconds(d, 45)), "2024-02-29 00:00:15");
    EXPECT_EQ(SecondsBetween(d, AddSeconds(d, 3600)), 3600);
    EXPECT_EQ(Weekday(MakeDate({2026, 11, 22, 0, 0, 0, 0})), 0);  // a Sunday
    EXPECT_EQ(Weekday(0), 6);                                     // 1899-12-30, a Saturday
}

TEST(CellDates, BadTextsFail) {
    for (const char* bad : {"", "yesterday", "2026-02-29", "2026-13-01", "2026-01-01 24:00:00",
                            "2026-01-01 10:00:00 trailing"}) {
        VqDate d;
        EXPECT_FALSE(TryReadDate(bad, d)) << bad;
        EXPECT_THROW(ReadDate(bad), VqError) << bad;
    }
}

TEST(Numbers, ZeroPadValAndCellNumber) {
    EXPECT_EQ(ZeroPad(7, 6), "000007");
    EXPECT_EQ(ZeroPad(1000000, 6), "1000000");
    EXPECT_EQ(ZeroPad(-5, 2), "-05");
    EXPECT_EQ(Val(" 42abc"), 42);
    EXPECT_EQ(Val("abc"), 0);
    EXPECT_EQ(Val("-7"), -7);
    EXPECT_EQ(Val("99999999999999999999999"), INT64_MAX);
    EXPECT_EQ(CellNumber(" 000200 "), 200);
    EXPECT_THROW(CellNumber("12x"), VqError);
    EXPECT_THROW(CellNumber("-"), VqError);
}

TEST(Paths, WithBackslashAddsTheSeparatorOnce) {
    EXPECT_EQ(WithBackslash("/q"), "/q/");
    EXPECT_EQ(WithBackslash("/q/"), "/q/");
    EXPECT_EQ(WithBackslash(""), "");
    EXPECT_EQ(CutAtNul(std::string("abc\0def", 7)), "abc");
}

TEST(Priorities, TheListAndItsNames) {
    const auto list = FillPriorityList(false);
    ASSERT_EQ(list.size(), 35u);
    EXPECT_EQ(list.back().key, "P46");
    EXPECT_EQ(list.front().name, "Low 0");
    const auto all = FillPriorityList(true);
    ASSERT_EQ(all.size(), 42u);
    EXPECT_EQ(all.back().name, "RealTime 6");
    EXPECT_EQ(all[16].key, "P22");
    EXPECT_EQ(all[16].name, "Normal 2");
    EXPECT_EQ(PriorityName("22"), "Normal 2");
    EXPECT_EQ(PriorityName("13"), "BelowNormal 3");
}

TEST(Charsets, ByCodePage) {
    EXPECT_EQ(CharsetOfCodePage(1250), 238);
    EXPECT_EQ(CharsetOfCodePage(932), 128);
    EXPECT_EQ(CharsetOfCodePage(1252), 0);
    EXPECT_EQ(CharsetOfCodePage(437), 0);
}

TEST(Casing, IsAsciiOnlyWhateverTheLocale) {
    test::LocaleScope turkish("tr_TR.UTF-8");
    ASSERT_TRUE(turkish.Active());
    EXPECT_EQ(ToUpper("mini-host"), "MINI-HOST");  // the computer name
    EXPECT_EQ(ToUpper("Log Entry - Time: \xc4\xb1 \xe9"), "LOG ENTRY - TIME: \xc4\xb1 \xe9");
    EXPECT_TRUE(EqualsNoCase("$localuser$", "$LOCALUSER$"));
    EXPECT_TRUE(EqualsNoCase("%vqs%", "%VQS%"));
    EXPECT_FALSE(EqualsNoCase("\xe9", "\xc9"));
    EXPECT_FALSE(EqualsNoCase("ab", "abc"));
}

TEST(ComputerName, IsAShortHostName) {
    const std::string name = GetComputerNameText();
    EXPECT_FALSE(name.empty());
    EXPECT_LE(name.size(), 15u);
    EXPECT_EQ(name.find('.'), std::string::npos);
}

}  // namespace
}  // namespace vq
