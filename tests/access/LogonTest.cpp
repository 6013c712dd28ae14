// Who may run tasks, and the request files of $InQ.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "access/Logon.h"
#include "platform/Files.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::TestServer;

TEST(LogonTest, ValidateLogonGrantsOnlyTheCurrentUser) {
    TestServer ts;
    struct Case { std::string user, domain, answer, userAfter; };
    const std::string no = kOnlyCurrentUser;
    const Case cases[] = {
        {"$LOCALUSER$", "", kGranted, "$LOCALUSER$"},
        {"$localuser$", "SOMEWHERE", kGranted, "$localuser$"},
        {"$LocalUser$", "$ads$", kGranted, "$LocalUser$"},
        {"$LOCALUSER$@corp", "", kGranted, "$LOCALUSER$"},
        {"$LOCALUSER$@corp.example", "$Locals$", kGranted, "$LOCALUSER$"},
        {"$LOCALUSER$@corp", "CORP", no, "$LOCALUSER$@corp"},
        {"root@$LOCALUSER$", "", no, "root"},
        {"alice", "", no, "alice"},
        {"", "", no, ""},
    };
    for (const Case& c : cases) {
        std::string user = c.user;
        EXPECT_EQ(ValidateLogon(*ts, user, "any password", c.domain, "client"), c.answer) << c.user << c.domain;
        EXPECT_EQ(user, c.userAfter) << c.user << c.domain;
    }
}

TEST(LogonTest, SplitUserNameTakesTheDomainUpToTheFirstDot) {
    struct Case { std::string text, result, namePart; };
    const Case cases[] = {
        {"ann@corp", "corp", "ann"},     {"ann@corp.example.org", "corp", "ann"},
        {"plain", "plain", "unchanged"}, {"ann@.org", "", "ann"},
        {"@corp", "corp", ""},           {"a.b@c@d.e", "c@d", "a.b"},
    };
    for (const Case& c : cases) {
        std::string namePart = "unchanged";
        EXPECT_EQ(SplitUserName(c.text, namePart), c.result) << c.text;
        EXPECT_EQ(namePart, c.namePart) << c.text;
    }
}

TEST(LogonTest, CheckRequestsDeletesRequestFilesOnly) {
    TestServer ts;
    const std::string in = ts->InQueuePath;
    for (const char* name : {"a.urf", "B.URF", ".hidden.urf", "task.vqf", "urf"}) AppendToFile(in + name, "x");
    ASSERT_TRUE(MakeFolders(in + "folder.urf"));
    EXPECT_TRUE(CheckRequests(*ts));
    EXPECT_FALSE(PathExists(in + "a.urf"));
    EXPECT_FALSE(PathExists(in + "B.URF"));
    for (const char* name : {".hidden.urf", "task.vqf", "urf", "folder.urf"}) EXPECT_TRUE(PathExists(in + name)) << name;
    EXPECT_EQ(ts.LogText(), "");
}

TEST(LogonTest, CheckRequestsFailsWithItsMessage) {
    TestServer ts;
    ts->InQueuePath = ts.dir.Path() + "gone/";
    EXPECT_FALSE(CheckRequests(*ts));
    EXPECT_NE(ts.LogText().find("Error occurred while checking for requests!\n" + ts->InQueuePath + ": "),
              std::string::npos);
}

}  // namespace
}  // namespace vq
