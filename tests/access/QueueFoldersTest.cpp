// The queue folder tree, task folders and the clearing of old task folders.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "storage/Settings.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::ReadFileText;
using test::TestServer;

class QueueFoldersTest : public ::testing::Test {
protected:
    std::string Root() { return ts->ServerPath; }
    TestServer ts;
};

TEST_F(QueueFoldersTest, CheckMakesTheTreeAndQPath) {
    for (const char* f : {"", "$InQ/", "$JobQ/", "$JobR/", "$Data/"})
        EXPECT_NE(ReadFileText(Root() + f + "Orvantis.ctf").find("Orvantis Folder Created On: "), std::string::npos) << f;
    EXPECT_EQ(ReadFileText(Root() + "$JobQ/QPath"), Root() + "\r\n");
    EXPECT_TRUE(ts.op.messages.empty());
}

TEST_F(QueueFoldersTest, AnEmptyServPathFailsAfterTheTreeIsMade) {
    SaveRegSetting(*ts.registry, "ServerSettings", "ServPath", "");
    const std::string other = ts.dir.Path() + "other/";
    ASSERT_TRUE(MakeFolders(other));
    EXPECT_FALSE(CheckQueueFolders(*ts, other));
    EXPECT_TRUE(PathExists(other + "$Data/Orvantis.ctf"));
    ASSERT_EQ(ts.op.messages.size(), 1u);
    EXPECT_EQ(ts.op.messages[0].icon, MessageIcon::Critical);
    EXPECT_EQ(ts.op.messages[0].text.rfind("Error occurred while doing directory check!\nPath: \"\"\n", 0), 0u);
    EXPECT_NE(ts.LogText().find("Error occurred while doing directory check!"), std::string::npos);
}

TEST_F(QueueFoldersTest, MakeQueueFolderKeepsAnOwnFileAddsAMissingOneAndNeedsTheParent) {
    const std::string marked = ts.dir.Path() + "marked", plain = ts.dir.Path() + "plain";
    MakeFolders(marked);
    MakeFolders(plain);
    AppendToFile(marked + "/Orvantis.ctf", "mine\r\n");
    EXPECT_TRUE(MakeQueueFolder(*ts, "u", "d", marked + "/", "1"));
    EXPECT_EQ(ReadFileText(marked + "/Orvantis.ctf"), "mine\r\n");
    EXPECT_TRUE(MakeQueueFolder(*ts, "u", "d", plain, "2"));
    EXPECT_TRUE(PathExists(plain + "/Orvantis.ctf"));
    EXPECT_EQ(ts.LogText(), "");
    const std::string orphan = ts.dir.Path() + "no/such/parent";
    EXPECT_FALSE(MakeQueueFolder(*ts, "u", "d", orphan, "3"));
    EXPECT_NE(ts.LogText().find("Error occurred while creating folder!\n\nPath: " + orphan + "\n\n"),
              std::string::npos);
}

TEST_F(QueueFoldersTest, FileExistsGivesTheName) {
    EXPECT_EQ(FileExists(Root() + "$JobQ/QPath"), "QPath");
    EXPECT_EQ(FileExists(Root() + "$Data/"), "$Data");
    EXPECT_EQ(FileExists(Root() + "nothing"), "");
    EXPECT_TRUE(FolderExists(Root() + "$Data"));
    EXPECT_FALSE(FolderExists(Root() + "$JobQ/QPath"));
}

TEST_F(QueueFoldersTest, EnsureTaskFoldersMakesTheTaskTree) {
    const auto key = ts.AddTask(12, "Nightly");
    EXPECT_TRUE(EnsureTaskFolders(*ts, key));
    const std::string rf = GetCell(ts->tables, kTaskTable, key, "RF");
    EXPECT_EQ(rf, Root() + "LOCAL/tester/Nightly/000012");
    for (const std::string f : {"LOCAL", "LOCAL/tester", "LOCAL/tester/Nightly", "LOCAL/tester/Nightly/000012"})
        EXPECT_TRUE(PathExists(Root() + f + "/Orvantis.ctf")) << f;
    EXPECT_EQ(ReadFileText(rf + "/ACTIVE.ACT"), "Active Task\r\n");
}

TEST_F(QueueFoldersTest, AnEmptyDomainStillGivesWorkingPaths) {
    const auto key = ts.AddTask(3, "Solo");
    SetCell(ts->tables, kTaskTable, key, "Domain", "");
    SetTaskFolder(*ts, key);
    const std::string rf = GetCell(ts->tables, kTaskTable, key, "RF");
    EXPECT_EQ(rf, Root() + "/tester/Solo/000003");
    EXPECT_TRUE(EnsureTaskFolders(*ts, key));
    EXPECT_TRUE(PathExists(rf + "/ACTIVE.ACT"));
}

TEST_F(QueueFoldersTest, EnsureTaskFoldersOfAGoneTaskIsLogged) {
    EXPECT_FALSE(EnsureTaskFolders(*ts, "000099-Gone"));
    EXPECT_NE(ts.LogText().find("Error occurred while checking the task's folders!\n"), std::string::npos);
}

class ClearProjectFoldersTest : public QueueFoldersTest {
protected:
    ClearProjectFoldersTest() { MakeFolders(Project()); }
    std::string Project() { return Root() + "LOCAL/tester/Nightly/"; }
    // A task folder whose last write lies `age` hours back.
    void MakeTaskFolder(const std::string& name, int age, bool active = false) {
        const std::string folder = Project() + name;
        MakeFolders(folder);
        AppendToFile(folder + "/Step1.txt", "output");
        if (active) AppendToFile(folder + "/ACTIVE.ACT", "Active Task\r\n");
        const time_t when = time(nullptr) - age * 3600;
        utimbuf times{when, when};
        utime(folder.c_str(), &times);
    }
    std::string key = ts.AddTask(500, "Nightly");
};

TEST_F(ClearProjectFoldersTest, TenFoldersStayAndAnEleventhTakesTheOldestOnly) {
    for (int i = 1; i <= 10; ++i) MakeTaskFolder(ZeroPad(i, 6), i == 7 ? 500 : 100 - i);
    EXPECT_TRUE(ClearProjectFolders(*ts, key));
    for (int i = 1; i <= 10; ++i) EXPECT_TRUE(FolderExists(Project() + ZeroPad(i, 6))) << i;
    MakeTaskFolder(ZeroPad(11, 6), 89);
    EXPECT_TRUE(ClearProjectFolders(*ts, key));
    for (int i = 1; i <= 11; ++i) EXPECT_EQ(FolderExists(Project() + ZeroPad(i, 6)), i != 7) << i;
    EXPECT_FALSE(PathExists(Project() + "000007"));
    EXPECT_EQ(ts->tables.FolList.RowCount(), 0u);
}

TEST_F(ClearProjectFoldersTest, OnlySixDigitFolderNamesCount) {
    SaveRegSetting(*ts.registry, "ServerSettings", "CLF", "1");
    MakeTaskFolder("000001", 50);
    MakeTaskFolder("00002", 60);
    MakeTaskFolder("abcdef", 70);
    MakeTaskFolder(".00003", 80);
    AppendToFile(Project() + "000004", "a file, not a folder");
    EXPECT_TRUE(ClearProjectFolders(*ts, key));
    for (const char* f : {"000001", "00002", "abcdef", ".00003", "000004"})
        EXPECT_TRUE(PathExists(Project() + f)) << f;
}

TEST_F(ClearProjectFoldersTest, QueuedTasksAndActiveMarkersKeepTheirFolders) {
    SaveRegSetting(*ts.registry, "ServerSettings", "CLF", "1");
    MakeTaskFolder("000001", 90);  // its task is in the queue
    MakeTaskFolder("000002", 80, true);  // holds ACTIVE.ACT without a task
    MakeTaskFolder("000003", 70);  // goes
    MakeTaskFolder("000004", 10);  // the newest stays
    ts.AddTask(1, "Nightly");
    EXPECT_TRUE(ClearProjectFolders(*ts, key));
    EXPECT_TRUE(FolderExists(Project() + "000001"));
    EXPECT_TRUE(FolderExists(Project() + "000002"));
    EXPECT_FALSE(PathExists(Project() + "000003"));
    EXPECT_TRUE(FolderExists(Project() + "000004"));
}

TEST_F(ClearProjectFoldersTest, ALimitOfZeroClearsNothing) {
    SaveRegSetting(*ts.registry, "ServerSettings", "CLF", "0");
    MakeTaskFolder("000001", 90);
    MakeTaskFolder("000002", 80);
    EXPECT_TRUE(ClearProjectFolders(*ts, key));
    EXPECT_TRUE(FolderExists(Project() + "000001"));
}

TEST_F(QueueFoldersTest, AcceptQueueFolderStoresOnlyAPrivateRootWhoseTreeIsMade) {
    const std::string root = ts.dir.Path() + "new/deep/root";
    std::string reason;
    EXPECT_TRUE(AcceptQueueFolder(*ts, root + "//", reason)) << reason;
    EXPECT_EQ(GetSettingText(*ts.registry, "ServerSettings", "ServPath"), root + "/");
    EXPECT_TRUE(PathExists(root + "/$Data/Orvantis.ctf"));
    struct stat st {};
    ASSERT_EQ(stat(root.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);

    AppendToFile(ts.dir.Path() + "new/$Data", "a file where a folder must be");
    EXPECT_FALSE(AcceptQueueFolder(*ts, ts.dir.Path() + "new", reason));
    EXPECT_EQ(reason, ts.dir.Path() + "new/$Data: Not a directory");
    EXPECT_EQ(GetSettingText(*ts.registry, "ServerSettings", "ServPath"), root + "/");
}

}  // namespace
}  // namespace vq
