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

TEST(frmSplash, ComesWithTheFirstStatusWordAndEndsTheStartUpOnTheLast) {
    frmSplash splash;
    auto* status = splash.findChild<QLabel*>(QStringLiteral("LabStat"));
    EXPECT_EQ(status->text(), QStringLiteral("Loading Application..."));
    EXPECT_EQ(splash.findChild<QLabel*>(QStringLiteral("lblVersion"))->text(),
              QStringLiteral("Personal Server Version 2.1.487"));

    test::TestServer ts;
    StartRequest request;
    request.queueRoot = ts->ServerPath;
    request.showStatus = SplashStatus(splash);
    NoOtherServer guard;
    request.commandLine = "/REGISTERCOM";
    ASSERT_EQ(ProcessStart(*ts, request, guard), StartResult::EndQuietly);
    EXPECT_FALSE(splash.isVisible());
    request.commandLine = "";
    ASSERT_EQ(ProcessStart(*ts, request, guard), StartResult::Serve);
    EXPECT_TRUE(splash.isVisible());
    EXPECT_EQ(status->text(), QStringLiteral("Loading Info..."));
}

}  // namespace
}  // namespace vq
