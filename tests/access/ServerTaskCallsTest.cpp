// The members of ServerTask on the engine: found rows forwarded, everything else false.
#include <gtest/gtest.h>
#include <unistd.h>

#include "access/ServerTaskCalls.h"
#include "calendar/Common.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::TestServer;

class ServerTaskCallsTest : public ::testing::Test {
protected:
    std::string Status(const std::string& key) { return GetCell(ts->tables, kTaskTable, key, "Status"); }
    TestServer ts;
    ServerTaskCalls calls{*ts};
};

TEST_F(ServerTaskCallsTest, AnUnknownKeyAnswersFalseAndChangesNothing) {
    const std::string key = ts.AddTask(1, "Known");
    for (const std::string& unknown : {std::string("000002-Known"), std::string(), std::string("\0x", 2)}) {
        EXPECT_FALSE(calls.TaskExist(unknown));
        EXPECT_FALSE(calls.HoldTask(unknown));
        EXPECT_FALSE(calls.ResumeTask(unknown));
        EXPECT_FALSE(calls.CancelTask(unknown));
    }
    EXPECT_TRUE(calls.TaskExist(key));
    EXPECT_EQ(Status(key), kWaiting);
}

// Hold, resume and cancel of a found task: the door's test over the bus.
TEST_F(ServerTaskCallsTest, ACancelOfAFinishedTaskFailsAndStillStopsItsRepeats) {
    const std::string done = ts.AddTask(2, "Done", kComplete);
    SetCell(ts->tables, kTaskTable, done, "RepCancel", "1");
    EXPECT_FALSE(calls.CancelTask(done));
    EXPECT_EQ(GetCell(ts->tables, kTaskTable, done, "RepCancel"), "0");
}

TEST_F(ServerTaskCallsTest, RaiseChkIfReqHandlesRequestFilesOfTheInputFolderOnly) {
    EXPECT_TRUE(calls.RaiseChkIfReq(""));
    const std::string in = ts->InQueuePath;
    const std::string outside = ts.dir.Path() + "outside.urf";
    for (const std::string& path : {in + "full.urf", in + "bare.urf", in + "task.vqf", outside})
        ASSERT_TRUE(AppendToFile(path, "x"));
    ASSERT_EQ(::symlink(outside.c_str(), (in + "link.urf").c_str()), 0);
    EXPECT_TRUE(calls.RaiseChkIfReq(in + "full.urf"));
    EXPECT_TRUE(calls.RaiseChkIfReq("bare.urf"));
    EXPECT_FALSE(PathExists(in + "full.urf"));
    EXPECT_FALSE(PathExists(in + "bare.urf"));
    for (const std::string& refused : {outside, in + "task.vqf", in + "../../outside.urf", in + "gone.urf",
                                       std::string("/etc/passwd"), in + "$InQ/x.urf"})
        EXPECT_FALSE(calls.RaiseChkIfReq(refused)) << refused;
    EXPECT_TRUE(PathExists(outside));
    EXPECT_TRUE(PathExists(in + "task.vqf"));
    // A link named as a request is a request file itself: the link goes, never what it names.
    EXPECT_TRUE(calls.RaiseChkIfReq(in + "link.urf"));
    EXPECT_TRUE(PathExists(outside));
}

TEST_F(ServerTaskCallsTest, MkZkDirMakesFoldersUnderTheQueueRootOnly) {
    const std::string root = ts->ServerPath, elsewhere = ts.dir.Path() + "elsewhere";
    ASSERT_TRUE(MakeFolders(elsewhere));
    ASSERT_EQ(::symlink(elsewhere.c_str(), (root + "link").c_str()), 0);
    struct Case { std::string path; bool made; };
    const Case cases[] = {
        {root + "Domain", true},         {root + "Domain/User/", true},
        {root, true},                    {root + "Domain/../../escaped", false},
        {root + "..", false},            {elsewhere + "/x", false},
        {root + "link/x", false},        {root + "link", false},
        {root + "no/parent/x", false},   {root.substr(0, root.size() - 1) + "sibling", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(calls.MkZkDir("u", "d", c.path, "3"), c.made) << c.path;
        EXPECT_EQ(PathExists(WithBackslash(c.path) + "Orvantis.ctf"), c.made) << c.path;
    }
    EXPECT_FALSE(PathExists(elsewhere + "/x"));
    EXPECT_FALSE(PathExists(ts.dir.Path() + "escaped"));
    EXPECT_NE(ts.LogText().find("Error occurred while creating folder!\n\nPath: " + root + "no/parent/x\n\n"),
              std::string::npos);
}

}  // namespace
}  // namespace vq
