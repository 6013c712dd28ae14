// The store's read memo: one moment of use of the settings.
#include <gtest/gtest.h>

#include "storage/Registry.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

// While a memo is open, what another process writes (here a second connection, as vqctl's) is
// seen at the next moment of use, not before; a write through the server's own store is seen
// at once, whatever the case of the key; a value that was missing stays missing.
TEST(RegistryReadMemoTest, AValueReadOnceStaysUntilTheMemoEndsOrTheStoreIsWrittenThroughIt) {
    test::TempDir dir;
    const std::string db = dir.Path() + "registry.db", autostart = dir.Path() + "autostart";
    Registry server(db, autostart), other(db, autostart);
    const auto read = [&server](const std::string& name) {
        const auto value = server.Read(Hive::CurrentUser, kServerRoot, name);
        return value ? value->AsText() : "<missing>";
    };
    ASSERT_EQ(other.Write(Hive::CurrentUser, kServerRoot, "CLF", RegValue::Text("5")), 0);
    {
        const Registry::ReadMemo memo(server);
        const Registry::ReadMemo joined(server);
        EXPECT_EQ(read("CLF"), "5");
        EXPECT_EQ(read("TIQH"), "<missing>");
        ASSERT_EQ(other.Write(Hive::CurrentUser, kServerRoot, "CLF", RegValue::Text("7")), 0);
        ASSERT_EQ(other.Write(Hive::CurrentUser, kServerRoot, "TIQH", RegValue::Text("2")), 0);
        EXPECT_EQ(read("clf"), "5");
        EXPECT_EQ(read("TIQH"), "<missing>");
        ASSERT_EQ(server.Write(Hive::CurrentUser, kServerRoot, "DiagC", RegValue::Text("1")), 0);
        EXPECT_EQ(read("CLF"), "7");
        EXPECT_EQ(read("TIQH"), "2");
    }
    ASSERT_EQ(other.Write(Hive::CurrentUser, kServerRoot, "CLF", RegValue::Text("9")), 0);
    EXPECT_EQ(read("CLF"), "9");
}

}  // namespace
}  // namespace vq
