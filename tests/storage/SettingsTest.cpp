// The settings store: defaults, the two value forms, auto logon and the start at logon.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "platform/Files.h"
#include "storage/QueueDatabase.h"
#include "storage/Settings.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::ReadFileText;
using test::TempDir;

class SettingsTest : public ::testing::Test {
protected:
    std::string Stored(Hive hive, const std::string& key, const std::string& name) {
        auto value = reg.Read(hive, key, name);
        return value ? value->AsText() : "<missing>";
    }
    TempDir dir;
    Registry reg{dir.Path() + "cfg/registry.db", dir.Path() + "autostart"};
};

TEST_F(SettingsTest, AnEmptyStoreReadsTheDefaultsAndCreatesNothing) {
    EXPECT_EQ(GetSettingText(reg, "ServerSettings", "MJP"), "P22");
    EXPECT_EQ(GetSettingNumber(reg, "ServerSettings", "DiagC"), 5000);
    EXPECT_EQ(GetSettingNumber(reg, "ServerSettings", "StartQ"), 1);
    EXPECT_EQ(GetSettingNumber(reg, "ServerSettings", "CLF"), 10);
    EXPECT_EQ(GetSettingText(reg, "ServerSettings", "JQPIE"), "500");
    EXPECT_EQ(GetSettingText(reg, "ServerSettings", "MSFS"), "1024");
    EXPECT_EQ(GetSettingText(reg, "ServerSettings", "ServPath"), "");
    EXPECT_EQ(GetSettingNumber(reg, "StartSet", "MainWidth"), 10000);
    EXPECT_EQ(GetSettingText(reg, "Settings", "Show-Queue Priority"), "1");
    EXPECT_FALSE(PathExists(reg.DatabasePath()));
}

TEST_F(SettingsTest, AnEmptyNameGivesTheDefaultWithoutAQuery) {
    SaveRegSetting(reg, "ServerSettings", "", "stored");
    EXPECT_EQ(GetRegSetting(reg, "ServerSettings", "", RegValue::Text("def")).AsText(), "def");
}

TEST_F(SettingsTest, SavesAreTextAndBothFormsRead) {
    EXPECT_EQ(SaveRegSetting(reg, "ServerSettings", "JobNumber", "17"), 0);
    auto value = reg.Read(Hive::CurrentUser, SectionKey("ServerSettings"), "JobNumber");
    ASSERT_TRUE(value);
    EXPECT_EQ(value->form, kFormText);
    EXPECT_EQ(value->text, "17");

    EXPECT_EQ(SaveRegSetting(reg, "ServerSettings", "TIQH", "5", kFormInteger), 0);
    value = reg.Read(Hive::CurrentUser, SectionKey("ServerSettings"), "TIQH");
    ASSERT_TRUE(value);
    EXPECT_EQ(value->form, kFormInteger);
    EXPECT_EQ(GetSettingNumber(reg, "ServerSettings", "TIQH"), 5);
    EXPECT_EQ(GetSettingText(reg, "ServerSettings", "TIQH"), "5");
    // Names are found whatever their case, as in the registry.
    EXPECT_EQ(GetSettingText(reg, "serversettings", "tiqh"), "5");
}

TEST_F(SettingsTest, ValuesOfAnotherFormCountAsMissing) {
    SaveRegSetting(reg, "ServerSettings", "CLF", "3");
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(reg.DatabasePath().c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "UPDATE reg_values SET form = 3 WHERE name = 'CLF'", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    EXPECT_EQ(GetSettingNumber(reg, "ServerSettings", "CLF"), 10);
}

TEST_F(SettingsTest, AutoLogonEmptyArgumentsChangeTheFlagAloneBlanksEmptyTheValues) {
    SetAutoLogon(reg, 1, "ann", "HOME", "secret");
    EXPECT_EQ(SetAutoLogon(reg, 0, "", "", ""), 0);
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "AutoAdminLogon"), "0");
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "DefaultUserName"), "ann");
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "DefaultPassword"), "secret");
    EXPECT_EQ(SetAutoLogon(reg, 0, " ", " ", " "), 0);
    for (const char* name : {"DefaultUserName", "DefaultDomainName", "DefaultPassword"})
        EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, name), "") << name;
}

TEST_F(SettingsTest, RunAtLogonIsTheAutostartEntry) {
    const std::string entry = dir.Path() + "autostart/orvantis-server.desktop";
    EXPECT_EQ(SetRunAtLogon(reg, 1, "/opt/my apps/bin"), 0);
    const std::string text = ReadFileText(entry);
    EXPECT_NE(text.find("[Desktop Entry]\n"), std::string::npos);
    EXPECT_NE(text.find("\nExec=\"/opt/my apps/bin/vqserv\" LOGON\n"), std::string::npos);
    EXPECT_EQ(Stored(Hive::CurrentUser, kRunKey, kRunValueName), "\"/opt/my apps/bin/vqserv\" LOGON");
    EXPECT_EQ(SetRunAtLogon(reg, 0, "/opt/my apps/bin"), 0);
    EXPECT_FALSE(PathExists(entry));
    EXPECT_EQ(SetRunAtLogon(reg, 2, "/x"), 0);
}

TEST(ColumnWidths, DefaultFromTheCaption) {
    EXPECT_EQ(DefaultColumnWidth("Max Running Time", true), 1700);
    EXPECT_EQ(DefaultColumnWidth("Task RC", true), 850);
    EXPECT_EQ(DefaultColumnWidth("Task Name", true), 1440);
    EXPECT_EQ(DefaultColumnWidth("CPU Time", false), 1440);
    EXPECT_EQ(DefaultColumnWidth("Step RC", false), 850);
}

}  // namespace
}  // namespace vq
