// The return code of a step from its end and from its FileRC file.
#include "runlet/ReturnCode.h"

#include <signal.h>

#include <gtest/gtest.h>

namespace vq {
namespace {

TEST(StepRcFromEndTest, ExitStatusPlusOneUpToNinetyEight) {
    EXPECT_EQ(StepRcFromEnd(CLD_EXITED, 0), 1);
    EXPECT_EQ(StepRcFromEnd(CLD_EXITED, 3), 4);
    EXPECT_EQ(StepRcFromEnd(CLD_EXITED, 96), 97);
    EXPECT_EQ(StepRcFromEnd(CLD_EXITED, 97), 98);
    EXPECT_EQ(StepRcFromEnd(CLD_EXITED, 98), 98);
    EXPECT_EQ(StepRcFromEnd(CLD_EXITED, 255), 98);
}

TEST(StepRcFromEndTest, SignalGivesNinetyEight) {
    EXPECT_EQ(StepRcFromEnd(CLD_KILLED, SIGKILL), 98);
    EXPECT_EQ(StepRcFromEnd(CLD_DUMPED, SIGSEGV), 98);
}

TEST(ParseFileRcTest, NumbersFromZeroToNinetyNine) {
    EXPECT_EQ(ParseFileRc("0"), 0);
    EXPECT_EQ(ParseFileRc("0\r\n"), 0);
    EXPECT_EQ(ParseFileRc("  42 \n"), 42);
    EXPECT_EQ(ParseFileRc("99"), 99);
    EXPECT_EQ(ParseFileRc("007"), 7);
}

TEST(ParseFileRcTest, AnythingElseIsNoNumber) {
    EXPECT_FALSE(ParseFileRc(""));
    EXPECT_FALSE(ParseFileRc(" \r\n"));
    EXPECT_FALSE(ParseFileRc("100"));
    EXPECT_FALSE(ParseFileRc("-1"));
    EXPECT_FALSE(ParseFileRc("+5"));
    EXPECT_FALSE(ParseFileRc("4 2"));
    EXPECT_FALSE(ParseFileRc("12abc"));
    EXPECT_FALSE(ParseFileRc("99999999999999999999"));
}

}  // namespace
}  // namespace vq
