// The thousands forms of reports and views, in the separators of the locale.
#include <gtest/gtest.h>

#include <limits>

#include "calendar/Common.h"
#include "tests/support/TestSupport.h"

namespace vq::test {
namespace {

TEST(FormatThousands, GroupsByThreeWithTheLocalesSeparator) {
    const struct {
        const char* locale;
        int64_t value;
        const char* text;
    } cases[] = {
        {"en_US.UTF-8", 0, "0"},
        {"en_US.UTF-8", 999, "999"},
        {"en_US.UTF-8", 1000, "1,000"},
        {"en_US.UTF-8", 123456789, "123,456,789"},
        {"en_US.UTF-8", -1234, "-1,234"},
        {"en_US.UTF-8", std::numeric_limits<int64_t>::min(), "-9,223,372,036,854,775,808"},
        {"de_DE.UTF-8", 1234567, "1.234.567"},
        {"C", 1234567, "1234567"},
    };
    for (const auto& c : cases) {
        LocaleScope scope(c.locale);
        ASSERT_TRUE(scope.Active());
        EXPECT_EQ(FormatThousands(c.value), c.text) << c.locale << " " << c.value;
    }
}

// I/O counts are kept in ten-thousandths; the form shows whole numbers, halves away from 0.
TEST(FormatThousandsIo, RoundsTenThousandthsToWholeCounts) {
    LocaleScope scope("en_US.UTF-8");
    ASSERT_TRUE(scope.Active());
    const struct {
        int64_t tenThousandths;
        const char* text;
    } cases[] = {{0, "0"}, {4999, "0"}, {5000, "1"}, {15000, "2"}, {25000, "3"},
                 {-5000, "-1"}, {12345670000, "1,234,567"}};
    for (const auto& c : cases) EXPECT_EQ(FormatThousandsIo(c.tenThousandths), c.text) << c.tenThousandths;
}

}  // namespace
}  // namespace vq::test
