// The server log's entries, to the byte.
#include <gtest/gtest.h>

#include "reports/ServerLog.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

// In a Turkish locale, where a locale's upper-casing would turn "Time" into "TiME".
TEST(ServerLog, AnEntryHasItsExactFormWhateverTheLocale) {
    test::LocaleScope turkish("tr_TR.UTF-8");
    ASSERT_TRUE(turkish.Active());
    const std::string rule(47, '-');
    EXPECT_EQ(ServerLogEntry("Something failed.\nDetails", MakeDate({2027, 1, 9, 19, 5, 3, 0})),
              "\r\nLOG ENTRY - TIME: 09-01-2027 19:05:03\r\n" + rule +
                  "\r\nSomething failed.\nDetails\r\n" + rule + "\r\n");
}

// The first entry creates the file, the next ones are appended; a failed write is swallowed.
TEST(ServerLog, TheFileIsCreatedByTheFirstEntryAndAppended) {
    test::TestServer ts;
    EXPECT_TRUE(WriteServerLog(*ts, "one"));
    EXPECT_TRUE(WriteServerLog(*ts, "two"));
    const VqDate now = ts.clock.Now();
    EXPECT_EQ(ts.LogText(), ServerLogEntry("one", now) + ServerLogEntry("two", now));
    ts->DataPath = ts.dir.Path() + "missing/folder/";
    EXPECT_FALSE(WriteServerLog(*ts, "lost"));
    ts->DataPath.clear();
    EXPECT_FALSE(WriteServerLog(*ts, "lost"));
}

}  // namespace
}  // namespace vq
