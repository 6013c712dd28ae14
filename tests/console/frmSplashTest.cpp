// The splash follows the status words of a real start-up.
#include "console/frmSplash.h"

#include <gtest/gtest.h>

#include <QLabel>

#include "core/Startup.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

struct NoOtherServer final : InstanceGuard {
    bool AnotherServerRuns() override { return false; }
};

TEST(frmSplash, ShowsItsVersionAndEndsTheStartUpOnItsLastStatusWord) {
    frmSplash splash;
    auto* status = splash.findChild<QLabel*>(QStringLiteral("LabStat"));
    EXPECT_EQ(status->text(), QStringLiteral("Loading Application..."));
    EXPECT_EQ(splash.findChild<QLabel*>(QStringLiteral("lblVersion"))->text(),
              QStringLiteral("Personal Server Version 2.1.487"));
    splash.show();

    test::TestServer ts;
    StartRequest request;
    request.queueRoot = ts->ServerPath;
    std::vector<QString> seen;
    auto show = SplashStatus(splash);
    request.showStatus = [&](const std::string& word) {
        show(word);
        seen.push_back(status->text());
    };
    NoOtherServer guard;
    ASSERT_EQ(ProcessStart(*ts, request, guard), StartResult::Serve);
    EXPECT_EQ(seen.front(), QStringLiteral("Creating Objects..."));
    EXPECT_EQ(status->text(), QStringLiteral("Loading Info..."));
    EXPECT_EQ(seen.size(), 5u);
}

}  // namespace
}  // namespace vq
