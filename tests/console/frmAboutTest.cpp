// The About box: its version line and "System Info..." with and without a tool.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QLabel>
#include <QPushButton>

#include "console/frmAbout.h"
#include "platform/Files.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

void AddTool(const std::string& path, const std::string& script, unsigned mode = 0755) {
    ASSERT_TRUE(WriteFileAtomic(path, "#!/bin/sh\n" + script + "\n"));
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
}

// PATH while it lives, then the one before.
struct PathScope {
    explicit PathScope(const std::string& path) : before(std::getenv("PATH")) {
        ::setenv("PATH", path.c_str(), 1);
    }
    ~PathScope() { ::setenv("PATH", before.c_str(), 1); }
    std::string before;
};

TEST(FindSystemInfoTool, TakesTheFirstToolOfTheListThatCanRunInAFolderOfThePath) {
    test::TempDir a, b;
    EXPECT_EQ(FindSystemInfoTool(a.Path() + ":" + b.Path()), "");
    AddTool(b.Path() + "hardinfo", "true");
    AddTool(a.Path() + "kinfocenter", "true", 0644);  // not runnable
    EXPECT_EQ(FindSystemInfoTool(":" + a.Path() + ":" + b.Path()), b.Path() + "hardinfo");
    AddTool(b.Path() + "kinfocenter", "true");
    EXPECT_EQ(FindSystemInfoTool(a.Path() + ":" + b.Path()), b.Path() + "kinfocenter");
}

TEST(frmAbout, ShowsTheVersionAndStartsTheToolOrSaysThatItIsUnavailable) {
    test::TestServer t;
    frmAbout about(*t);
    EXPECT_EQ(about.windowTitle(), QStringLiteral("About Orvantis Personal Server"));
    EXPECT_EQ(about.findChild<QLabel*>(QStringLiteral("lblVersion"))->text(),
              QStringLiteral("Personal Server Version 2.1.487"));
    auto* sysInfo = about.findChild<QPushButton*>(QStringLiteral("cmdSysInfo"));
    EXPECT_EQ(sysInfo->text(), QStringLiteral("&System Info..."));
    {
        PathScope none(t.dir.Path() + "nothing");
        sysInfo->click();
        ASSERT_EQ(t.op.messages.size(), 1u);
        EXPECT_EQ(t.op.messages[0].text, "System Information Is Unavailable At This Time \"\"");
    }
    const std::string marker = t.dir.Path() + "started";
    AddTool(t.dir.Path() + "hardinfo2", ": > '" + marker + "'");
    PathScope tools(t.dir.Path());
    sysInfo->click();
    EXPECT_TRUE(test::WaitUntil([&] { return PathExists(marker); }, 5000));
    EXPECT_EQ(t.op.messages.size(), 1u);
}

}  // namespace
}  // namespace vq
