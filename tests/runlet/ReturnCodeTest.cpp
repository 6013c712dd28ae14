// The return code of a step from its end and from its FileRC file; the process tests run the
// usual cases, these the edges.
#include "runlet/ReturnCode.h"

#include <signal.h>

#include <gtest/gtest.h>

namespace vq {
namespace {

TEST(StepRcFromEndTest, ExitStatusPlusOneUpToNinetyEightAndSignalsNinetyEight) {
    EXPECT_EQ(StepRcFromEnd(CLD_EXITED, 96), 97);
    EXPECT_EQ(StepRcFromEnd(CLD_EXITED, 98), 98);
    EXPECT_EQ(StepRcFromEnd(CLD_KILLED, SIGKILL), 98);
    EXPECT_EQ(StepRcFromEnd(CLD_DUMPED, SIGSEGV), 98);
}

TEST(ParseFileRcTest, NumbersFromZeroToNinetyNineAndNothingElse) {
    const std::pair<const char*, int> numbers[] = {{"0", 0}, {"0\r\n", 0}, {"  42 \n", 42}, {"99", 99}, {"007", 7}};
    for (const auto& [text, rc] : numbers) EXPECT_EQ(ParseFileRc(text), rc) << text;
    for (const char* text : {"", " \r\n", "100", "-1", "+5", "4 2", "12abc", "99999999999999999999"})
        EXPECT_FALSE(ParseFileRc(text)) << text;
}

}  // namespace
}  // namespace vq
