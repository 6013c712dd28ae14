#include "runner/Accounting.h"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using Ponders = std::array<double, 7>;

TEST(SystemUnitsTest, WeighsRoundsHalfToEvenAndGivesZeroWhenItDoesNotFit) {
    struct Case {
        Ponders ponders;
        int32_t cpu;
        int64_t io;  // ten-thousandths
        int32_t memory;
        int32_t units;
    };
    const Case cases[] = {
        {{1, 1, 1}, 10, 5 * 10000, 100, 115},
        {{2, 0.5, 0.25}, 3, 4 * 10000, 8, 11},
        {{1, 1, 1}, 0, 25000, 0, 2},   // 2.5 goes to 2
        {{1, 1, 1}, 0, 35000, 0, 4},   // 3.5 goes to 4
        {{1, 1, 1}, 0, 35001, 0, 4},
        {{1, 0, 0}, -3, 0, 0, -3},
        {{1, 1, 1}, 0, 5 * 10000, 0, 5},
        {{0, 0, 0}, 1000, 1000 * 10000, 1000, 0},
        {{1, 1, 0}, 2147483647, 0, 1, 0},  // beyond 32 bits
        {{1, 0, 0}, 2147483647, 0, 0, 2147483647},
    };
    for (const Case& c : cases)
        EXPECT_EQ(SystemUnits(c.ponders, c.cpu, c.io, c.memory), c.units)
            << c.cpu << " s, io " << c.io << ", " << c.memory << " KB";
}

TEST(FormatThousandsTest, GroupsWithTheLocaleSeparatorAndShowsZero) {
    struct Case {
        const char* locale;
        int64_t n;
        const char* text;
    };
    const Case cases[] = {
        {"en_US.UTF-8", 0, "0"},          {"en_US.UTF-8", 999, "999"},
        {"en_US.UTF-8", 1000, "1,000"},   {"en_US.UTF-8", 1234567, "1,234,567"},
        {"en_US.UTF-8", -45000, "-45,000"}, {"de_DE.UTF-8", 2147483647, "2.147.483.647"},
        {"C", 1234567, "1234567"},
    };
    for (const Case& c : cases) {
        test::LocaleScope locale(c.locale);
        ASSERT_TRUE(locale.Active());
        EXPECT_EQ(FormatThousands(c.n), c.text) << c.locale << " " << c.n;
    }
}

TEST(FormatThousandsTest, IoCountsRoundToWholeNumbers) {
    test::LocaleScope locale("en_US.UTF-8");
    ASSERT_TRUE(locale.Active());
    const std::pair<int64_t, const char*> cases[] = {
        {0, "0"},          {4999, "0"},       {5000, "1"},         {-5000, "-1"},
        {-4999, "0"},      {12345678 * 10000LL + 4999, "12,345,678"},
        {INT64_MAX, "922,337,203,685,478"}, {INT64_MIN, "-922,337,203,685,478"},
    };
    for (const auto& [io, text] : cases) EXPECT_EQ(FormatThousandsIo(io), text) << io;
}

TEST(PriorityNameTest, NamesTheClassOfTheFirstDigit) {
    const std::pair<uint8_t, const char*> cases[] = {
        {0, "Low 0"},        {6, "Low 6"},          {13, "BelowNormal 3"}, {22, "Normal 2"},
        {34, "AboveNormal 4"}, {40, "High 0"},      {51, "RealTime 1"},    {60, ""},
        {99, ""},            {123, "BelowNormal 2"},
    };
    for (const auto& [code, name] : cases) EXPECT_EQ(PriorityName(code), name) << int(code);
}

}  // namespace
}  // namespace vq
