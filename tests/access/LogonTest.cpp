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
    // The name part before "@" is compared; a domain of "@" up to the first dot is split off.
    const Case cases[] = {
        {"$LOCALUSER$", "", kGranted, "$LOCALUSER$"},
        {"$localuser$", "SOMEWHERE", kGranted, "$localuser$"},
        {"$LocalUser$", "$ads$", kGranted, "$LocalUser$"},
        {"$LOCALUSER$@corp", "", kGranted, "$LOCALUSER$"},
        {"$LOCALUSER$@corp.example", "$Locals$", kGranted, "$LOCALUSER$"},
        {"$LOCALUSER$@.org", "", kGranted, "$LOCALUSER$"},
        {"a.b@c@d.e", "", no, "a.b"},
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

TEST(LogonTest, CheckRequestsDeletesRequestFilesOnlyAndFailsWithItsMessage) {
    TestServer ts;
    const std::string in = ts->InQueuePath;
    for (const char* name : {"a.urf", "B.URF", ".hidden.urf", "task.vqf", "urf"}) AppendToFile(in + name, "x");
    ASSERT_TRUE(MakeFolders(in + "folder.urf"));
    EXPECT_TRUE(CheckRequests(*ts));
    for (const char* name : {"a.urf", "B.URF"}) EXPECT_FALSE(PathExists(in + name)) << name;
    for (const char* name : {".hidden.urf", "task.vqf", "urf", "folder.urf"}) EXPECT_TRUE(PathExists(in + name)) << name;
    ts->InQueuePath = ts.dir.Path() + "gone/";
    EXPECT_FALSE(CheckRequests(*ts));
    EXPECT_NE(ts.LogText().find("Error occurred while checking for requests!\n" + ts->InQueuePath + ": "),
              std::string::npos);
}

}  // namespace
}  // namespace vq
