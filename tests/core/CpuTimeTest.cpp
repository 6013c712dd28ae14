// The text forms of CPU time and durations.
#include <gtest/gtest.h>

#include "core/tables/CpuTime.h"

namespace vq {
namespace {

TEST(CpuTimeText, FormatsAndParsesBothWaysAndATextWithoutADayGivesZeros) {
    const std::pair<const char*, CpuTime> forms[] = {{"0:00:00:00:000", {}},
                                                     {"12:01:02:03:004", {12, 1, 2, 3, 4}},
                                                     {"3:23:59:59:999", {3, 23, 59, 59, 999}}};
    for (const auto& [text, time] : forms) {
        EXPECT_EQ(FormatCpuTime(time), text);
        EXPECT_EQ(ParseCpuTime(text), time) << text;
    }
    for (const char* text : {":01:02:03:004", "1234", ""}) EXPECT_EQ(ParseCpuTime(text), CpuTime{});
    EXPECT_EQ(ParseCpuTime("2:05"), (CpuTime{2, 5, 0, 0, 0}));  // a cut text reads what stands
}

TEST(CpuTimeSum, CarriesEachFieldOnceInOrder) {
    EXPECT_EQ(AddCpuTime({0, 0, 0, 0, 999}, {0, 0, 0, 0, 1}), (CpuTime{0, 0, 0, 1, 0}));
    EXPECT_EQ(AddCpuTime({0, 23, 59, 59, 999}, {0, 0, 0, 0, 1}), (CpuTime{1, 0, 0, 0, 0}));
    EXPECT_EQ(AddCpuTime({1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}), (CpuTime{2, 4, 6, 8, 10}));
}

TEST(TimeSpanText, FormatsDaysAndClock) {
    const std::pair<int64_t, const char*> spans[] = {
        {0, "0 Days 00:00:00"},
        {86400, "1 Day 00:00:00"},
        {2 * 86400 + 3 * 3600 + 4 * 60 + 5, "2 Days 03:04:05"},
        {400 * 86400 + 59, "400 Days 00:00:59"}};
    for (const auto& [seconds, text] : spans) {
        EXPECT_EQ(FormatTimeSpan(SecondsToTimeSpan(seconds)), text);
        EXPECT_EQ(TimeSpanToSeconds(SecondsToTimeSpan(seconds)), seconds);
    }
}

}  // namespace
}  // namespace vq
