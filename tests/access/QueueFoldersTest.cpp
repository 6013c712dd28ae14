// The queue folder tree, task folders and the clearing of old task folders.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <vector>

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
}

TEST_F(QueueFoldersTest, EnsureTaskFoldersOfAGoneTaskIsLogged) {
    EXPECT_FALSE(EnsureTaskFolders(*ts, "000099-Gone"));
    EXPECT_NE(ts.LogText().find("Error occurred while checking the task's folders!\n"), std::string::npos);
}

class ClearProjectFoldersTest : public QueueFoldersTest {
protected:
    ClearProjectFoldersTest() {
        MakeFolders(Project());
        MakeFolders(Outside());
        AppendToFile(Outside() + "keep.txt", "not the queue's");
    }
    std::string Project() { return Root() + "LOCAL/tester/Nightly/"; }
    // A folder beside the queue root that nothing may touch.
    std::string Outside() { return ts.dir.Path() + "outside/"; }
    void SetLimit(const char* clf) { SaveRegSetting(*ts.registry, "ServerSettings", "CLF", clf); }
    // A task folder whose last write lies `age` hours back.
    void MakeTaskFolder(const std::string& name, int age, bool active = false) {
        const std::string folder = Project() + name;
        MakeFolders(folder);
        AppendToFile(folder + "/Step1.txt", "output");
        if (active) AppendToFile(folder + "/ACTIVE.ACT", "Active Task\r\n");
        Age(folder, age);
    }
    static std::vector<std::string> FilesBelow(const std::string& folder) {
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
            files.push_back(entry.path().string());
        std::sort(files.begin(), files.end());
        return files;
    }
    static void Age(const std::string& path, int hours) {
        const time_t when = time(nullptr) - hours * 3600;
        const timespec times[2] = {{when, 0}, {when, 0}};
        utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
    }
    std::string key = ts.AddTask(500, "Nightly");
};

// A limit of 0 clears nothing; one out of range reads as the default of ten.
TEST_F(ClearProjectFoldersTest, ALimitOfZeroClearsNothingTenFoldersStayAndAnEleventhTakesTheOldestOnly) {
    for (int i = 1; i <= 11; ++i) MakeTaskFolder(ZeroPad(i, 6), i == 7 ? 500 : 100 - i);
    SetLimit("0");
    EXPECT_TRUE(ClearProjectFolders(*ts, key));
    EXPECT_TRUE(FolderExists(Project() + "000007"));
    SetLimit("-9223372036854775808");
    EXPECT_TRUE(ClearProjectFolders(*ts, key));
    for (int i = 1; i <= 11; ++i) EXPECT_EQ(PathExists(Project() + ZeroPad(i, 6)), i != 7) << i;
    EXPECT_EQ(ts->tables.FolList.RowCount(), 0u);
}

// Of the folders beyond the limit, only a six-digit one without a queued task and without
// ACTIVE.ACT goes.
TEST_F(ClearProjectFoldersTest, OnlyOldSixDigitFoldersWithoutTaskOrMarkerGo) {
    const struct { const char* name; int age; bool active, stays; } folders[] = {
        {"000001", 90, false, true},  // its task is in the queue
        {"000002", 80, true, true},   // holds ACTIVE.ACT without a task
        {"000003", 70, false, false}, {"000004", 10, false, true},  // the newest stays
        {"00002", 60, false, true},   {"abcdef", 70, false, true}, {".00003", 80, false, true}};
    SetLimit("1");
    for (const auto& f : folders) MakeTaskFolder(f.name, f.age, f.active);
    AppendToFile(Project() + "000005", "a file, not a folder");
    ts.AddTask(1, "Nightly");
    EXPECT_TRUE(ClearProjectFolders(*ts, key));
    for (const auto& f : folders) EXPECT_EQ(PathExists(Project() + f.name), f.stays) << f.name;
    EXPECT_TRUE(PathExists(Project() + "000005"));
}

TEST_F(ClearProjectFoldersTest, LinksInsideATaskFolderGoAsLinksAndSubfoldersAreNotEntered) {
    SetLimit("1");
    MakeTaskFolder("000001", 90);
    const std::string old = Project() + "000001/";
    symlink(Outside().c_str(), (old + "to-folder").c_str());
    symlink((Outside() + "keep.txt").c_str(), (old + "to-file").c_str());
    MakeFolders(old + "nested");
    AppendToFile(old + "nested/Step2.txt", "deeper");
    symlink(Outside().c_str(), (old + "nested/to-folder").c_str());
    Age(old, 90);
    MakeTaskFolder("000002", 10);
    const std::vector<std::string> outside = FilesBelow(Outside());
    EXPECT_TRUE(ClearProjectFolders(*ts, key));
    EXPECT_EQ(FilesBelow(Outside()), outside);
    for (const char* gone : {"Step1.txt", "to-folder", "to-file"}) {
        struct stat st {};
        EXPECT_NE(lstat((old + gone).c_str(), &st), 0) << gone;
    }
    // The subfolder keeps what it holds, so the task folder stays too.
    EXPECT_TRUE(PathExists(old + "nested/Step2.txt"));
    EXPECT_TRUE(PathExists(old + "nested/to-folder/keep.txt"));
}

// Every folder on the way from the root to a task folder may be a link out of the tree.
TEST_F(ClearProjectFoldersTest, NothingOutsideTheRootIsDeletedThroughALinkedFolder) {
    struct Case { const char* link; const char* target; const char* domain; const char* task; };
    const Case cases[] = {
        {"LOCAL/tester/Nightly/000001", "000001", "LOCAL", "Nightly"},  // a task folder
        {"LOCAL/tester/Linked", "", "LOCAL", "Linked"},                 // a project folder
        {"OTHER", "domain", "OTHER", "Other"},                          // a domain folder
    };
    SetLimit("1");
    MakeTaskFolder("000002", 10);
    for (const char* folder :
         {"000001", "000003", "domain/tester/Other/000001", "domain/tester/Other/000003"}) {
        MakeFolders(Outside() + folder);
        AppendToFile(Outside() + folder + "/Step1.txt", "not the queue's");
        Age(Outside() + folder, 500);
    }
    const std::vector<std::string> before = FilesBelow(Outside());
    for (const Case& c : cases) {
        const std::string link = Root() + c.link;
        ASSERT_EQ(symlink((Outside() + c.target).c_str(), link.c_str()), 0) << link;
        Age(link, 500);
        const std::string taskKey = ts.AddTask(600, c.task);
        SetCell(ts->tables, kTaskTable, taskKey, "Domain", c.domain);
        EXPECT_TRUE(ClearProjectFolders(*ts, taskKey)) << c.link;
        EXPECT_EQ(FilesBelow(Outside()), before) << c.link;
        struct stat st {};
        EXPECT_EQ(lstat(link.c_str(), &st), 0) << c.link;
    }
}

// A root that is stored private with its tree: the folder dialog's tests.
TEST_F(QueueFoldersTest, AcceptQueueFolderStoresNoRootWhoseTreeCantBeMadeAndSaysWhy) {
    MakeFolders(ts.dir.Path() + "new");
    AppendToFile(ts.dir.Path() + "new/$Data", "a file where a folder must be");
    std::string reason;
    EXPECT_FALSE(AcceptQueueFolder(*ts, ts.dir.Path() + "new", reason));
    EXPECT_EQ(reason, ts.dir.Path() + "new/$Data: Not a directory");
    EXPECT_EQ(GetSettingText(*ts.registry, "ServerSettings", "ServPath"), Root());
}

TEST_F(QueueFoldersTest, CellsOfALoadedQueueMakeNothingOutsideTheRoot) {
    const std::string outside = WithoutBackslash(Root()) + "-outside";
    std::filesystem::create_directories(outside);
    std::filesystem::create_symlink(outside, Root() + "linked");
    AppendToFile(Root() + "a-file", "a file where a task folder must be");
    const std::pair<const char*, std::string> cases[] = {
        {"RF", Root() + "a-file"},
        {"RF", outside + "/000001"},
        {"RF", Root() + "../escaped/000001"},
        {"RF", Root() + "linked/tester/Nightly/000001"},
        {"Domain", ".."},
        {"Domain", "linked"}};
    int number = 0;
    for (const auto& [column, value] : cases) {
        const auto key = ts.AddTask(++number, "Nightly");
        SetCell(ts->tables, kTaskTable, key, column, value);
        EXPECT_FALSE(EnsureTaskFolders(*ts, key)) << value;
        EXPECT_TRUE(std::filesystem::is_empty(outside)) << value;
        EXPECT_FALSE(PathExists(WithoutBackslash(Root()) + "/../escaped")) << value;
    }
    EXPECT_NE(ts.LogText().find("is not under the queue root"), std::string::npos);
}

}  // namespace
}  // namespace vq
