// The server log's entries, to the byte.
#include <gtest/gtest.h>

#include <clocale>

#include "reports/ServerLog.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

const std::string kRule(47, '-');

TEST(ServerLog, AnEntryHasItsExactForm) {
    std::setlocale(LC_ALL, "C");
    const VqDate when = MakeDate({2027, 1, 9, 19, 5, 3, 0});
    EXPECT_EQ(ServerLogEntry("Something failed.\nDetails", when),
              "\r\nLOG ENTRY - TIME: 01/09/27 19:05:03\r\n" + kRule + "\r\nSomething failed.\nDetails\r\n" +
                  kRule + "\r\n");
    EXPECT_EQ(ServerLogEntry("", when),
              "\r\nLOG ENTRY - TIME: 01/09/27 19:05:03\r\n" + kRule + "\r\n\r\n" + kRule + "\r\n");
}

TEST(ServerLog, TheHeaderIsUpperCaseInATurkishLocaleToo) {
    test::LocaleScope turkish("tr_TR.UTF-8");
    ASSERT_TRUE(turkish.Active());
    EXPECT_EQ(ServerLogEntry("x", MakeDate({2027, 1, 9, 19, 5, 3, 0})).substr(0, 41),
              "\r\nLOG ENTRY - TIME: 09-01-2027 19:05:03\r\n");
}

TEST(ServerLog, TheFileIsCreatedByTheFirstEntryAndAppended) {
    test::TestServer ts;
    EXPECT_EQ(ts.LogText(), "");
    EXPECT_TRUE(WriteServerLog(*ts, "one"));
    EXPECT_TRUE(WriteServerLog(*ts, "two"));
    const std::string text = ts.LogText();
    EXPECT_EQ(text, ServerLogEntry("one", ts.clock.Now()) + ServerLogEntry("two", ts.clock.Now()));
}

TEST(ServerLog, AFailedWriteIsSwallowed) {
    test::TestServer ts;
    ts->DataPath = ts.dir.Path() + "missing/folder/";
    EXPECT_FALSE(WriteServerLog(*ts, "lost"));
    ts->DataPath.clear();
    EXPECT_FALSE(WriteServerLog(*ts, "lost"));
}

}  // namespace
}  // namespace vq
