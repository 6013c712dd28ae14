// Folder work through opened folders that never follows a symbolic link.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "platform/Files.h"
#include "platform/SafeDelete.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

class SafeDeleteTest : public ::testing::Test {
  protected:
    SafeDeleteTest() {
        MakeFolders(Base() + "a/b");
        MakeFolders(Base() + "outside");
        AppendToFile(Base() + "outside/keep.txt", "not the tree's");
        symlink((Base() + "outside").c_str(), (Base() + "a/link").c_str());
    }
    std::string Base() { return dir.Path(); }
    test::TempDir dir;
};

TEST_F(SafeDeleteTest, OpenFolderBelowFollowsNoLinkOnTheWay) {
    const struct {
        const char* below;
        bool opens;
    } cases[] = {{"", true},        {"a/b", true},        {"a//b/", true},
                 {"a/link", false}, {"a/link/", false},   {"a/../a", false},
                 {"./a", false},    {"a/missing", false}, {"outside/keep.txt", false}};
    for (const auto& c : cases)
        EXPECT_EQ(OpenFolderBelow(Base(), c.below).Valid(), c.opens) << c.below;
}

TEST_F(SafeDeleteTest, AFolderSwappedForALinkAfterItWasOpenedLeadsNowhereElse) {
    AppendToFile(Base() + "a/b/Step1.txt", "output");
    const UniqueFd parent = OpenFolderBelow(Base(), "a");
    const UniqueFd folder = OpenSubfolder(parent.Get(), "b");
    ASSERT_TRUE(folder.Valid());
    // The name now leads out of the tree; the opened folder is still the one that was checked.
    ASSERT_EQ(std::rename((Base() + "a/b").c_str(), (Base() + "a/moved").c_str()), 0);
    ASSERT_EQ(symlink((Base() + "outside").c_str(), (Base() + "a/b").c_str()), 0);
    DeleteFiles(folder.Get());
    EXPECT_FALSE(RemoveEmptyFolder(parent.Get(), "b"));
    EXPECT_FALSE(PathExists(Base() + "a/moved/Step1.txt"));
    EXPECT_TRUE(PathExists(Base() + "outside/keep.txt"));
}

}  // namespace
}  // namespace vq
