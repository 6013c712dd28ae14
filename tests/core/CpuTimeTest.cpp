// The text forms of CPU time and durations.
#include <gtest/gtest.h>

#include "core/tables/CpuTime.h"

namespace vq {
namespace {

TEST(CpuTimeText, FormatsAndParsesBothWays) {
    EXPECT_EQ(FormatCpuTime({0, 0, 0, 0, 0}), "0:00:00:00:000");
    EXPECT_EQ(FormatCpuTime({12, 1, 2, 3, 4}), "12:01:02:03:004");
    EXPECT_EQ(ParseCpuTime("12:01:02:03:004"), (CpuTime{12, 1, 2, 3, 4}));
    EXPECT_EQ(ParseCpuTime("0:00:00:00:000"), CpuTime{});
    const CpuTime t{3, 23, 59, 59, 999};
    EXPECT_EQ(ParseCpuTime(FormatCpuTime(t)), t);
}

TEST(CpuTimeText, ATextWithoutADayGivesZeros) {
    EXPECT_EQ(ParseCpuTime(":01:02:03:004"), CpuTime{});
    EXPECT_EQ(ParseCpuTime("1234"), CpuTime{});
    EXPECT_EQ(ParseCpuTime(""), CpuTime{});
    // A cut text reads what stands there.
    EXPECT_EQ(ParseCpuTime("2:05"), (CpuTime{2, 5, 0, 0, 0}));
}

TEST(CpuTimeSum, CarriesEachFieldOnceInOrder) {
    EXPECT_EQ(AddCpuTime({0, 0, 0, 0, 999}, {0, 0, 0, 0, 1}), (CpuTime{0, 0, 0, 1, 0}));
    EXPECT_EQ(AddCpuTime({0, 23, 59, 59, 999}, {0, 0, 0, 0, 1}), (CpuTime{1, 0, 0, 0, 0}));
    EXPECT_EQ(AddCpuTime({1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}), (CpuTime{2, 4, 6, 8, 10}));
}

TEST(TimeSpanText, FormatsDaysAndClock) {
    EXPECT_EQ(FormatTimeSpan(SecondsToTimeSpan(86400)), "1 Day 00:00:00");
    EXPECT_EQ(FormatTimeSpan(SecondsToTimeSpan(0)), "0 Days 00:00:00");
    const int64_t seconds = 2 * 86400 + 3 * 3600 + 4 * 60 + 5;
    EXPECT_EQ(FormatTimeSpan(SecondsToTimeSpan(seconds)), "2 Days 03:04:05");
    EXPECT_EQ(TimeSpanToSeconds(SecondsToTimeSpan(seconds)), seconds);
    EXPECT_EQ(FormatTimeSpan(SecondsToTimeSpan(400 * 86400 + 59)), "400 Days 00:00:59");
}

}  // namespace
}  // namespace vq
