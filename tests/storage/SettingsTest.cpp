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
    const std::pair<const char*, const char*> defaults[] = {
        {"JQPIE", "500"}, {"MSFS", "1024"}, {"ServPath", ""}, {"TVal", ""}};
    for (const auto& [name, value] : defaults)
        EXPECT_EQ(GetSettingText(reg, "ServerSettings", name), value);
    EXPECT_EQ(GetSettingNumber(reg, "StartSet", "MainWidth"), 10000);
    EXPECT_EQ(GetSettingText(reg, "Settings", "Show-Queue Priority"), "1");
    EXPECT_EQ(GetSettingText(reg, "Cluster", "Backend"), "local");
    EXPECT_EQ(GetSettingNumber(reg, "Cluster", "PollSeconds"), 2);
    EXPECT_EQ(GetRegSetting(reg, "ServerSettings", "", RegValue::Text("def")).AsText(), "def");
    EXPECT_FALSE(PathExists(reg.DatabasePath()));
}

TEST_F(SettingsTest, SavesAreTextAndBothFormsRead) {
    EXPECT_EQ(SaveRegSetting(reg, "ServerSettings", "JobNumber", "17"), 0);
    EXPECT_EQ(reg.Read(Hive::CurrentUser, SectionKey("ServerSettings"), "JobNumber")->form,
              kFormText);
    EXPECT_EQ(SaveRegSetting(reg, "ServerSettings", "TIQH", "5", kFormInteger), 0);
    EXPECT_EQ(reg.Read(Hive::CurrentUser, SectionKey("ServerSettings"), "TIQH")->form,
              kFormInteger);
    EXPECT_EQ(GetSettingNumber(reg, "ServerSettings", "TIQH"), 5);
    // The store finds a value whatever its case, as the registry does.
    EXPECT_EQ(GetRegSetting(reg, "serversettings", "tiqh", RegValue::Text("")).AsText(), "5");
}

TEST_F(SettingsTest, ValuesOfAnotherFormCountAsMissing) {
    SaveRegSetting(reg, "ServerSettings", "CLF", "3");
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(reg.DatabasePath().c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "UPDATE reg_values SET form = 3 WHERE name = 'CLF'", nullptr, nullptr,
                 nullptr);
    sqlite3_close(db);
    EXPECT_EQ(GetSettingNumber(reg, "ServerSettings", "CLF"), 10);
}

TEST_F(SettingsTest, AStoredValueOutOfItsRangeReadsAsTheDefault) {
    // Name, stored value, value in force.
    const char* cases[][3] = {
        {"CLF", "-1", "10"},       {"CLF", "abc", "10"},  {"CLF", "12x", "10"},
        {"CLF", " 12 ", " 12 "},   {"CLF", "0", "0"},     {"TIQM", "100", "0"},
        {"DiagC", "4999", "5000"}, {"StartQ", "2", "1"},  {"SBS", "512", "2048"},
        {"MJP", "P77", "P22"},     {"MJP", "P40", "P40"}, {"JobNumber", "1000000", "0"},
        {"ServPath", "-1", "-1"}};
    for (const auto& [name, stored, inForce] : cases) {
        SaveRegSetting(reg, "ServerSettings", name, stored);
        EXPECT_EQ(GetSettingText(reg, "ServerSettings", name), inForce) << name << "=" << stored;
    }
    SaveRegSetting(reg, "ServerSettings", "TIQH", "-3", kFormInteger);
    EXPECT_EQ(GetSettingNumber(reg, "ServerSettings", "TIQH"), 1);
}

TEST_F(SettingsTest, AnUnusableValueIsReportedOnceAndAgainAfterAFailedReport) {
    std::vector<std::string> notices;
    bool delivered = false;
    reg.SetNoticeSink([&](const std::string& text) {
        notices.push_back(text);
        return delivered;
    });
    SaveRegSetting(reg, "ServerSettings", "CLF", "-1");
    GetSettingNumber(reg, "ServerSettings", "CLF");
    delivered = true;
    for (int i = 0; i < 3; ++i) GetSettingNumber(reg, "ServerSettings", "CLF");
    ASSERT_EQ(notices.size(), 2u);
    EXPECT_EQ(
        notices[1],
        "The setting CLF of ServerSettings holds \"-1\", which is not a whole number from 0 to "
        "9999; its default 10 is used.");
    SaveRegSetting(reg, "ServerSettings", "CLF", "-2");
    GetSettingNumber(reg, "ServerSettings", "CLF");
    EXPECT_EQ(notices.size(), 3u);
}

// Start-up's blanks that empty the values, and its removal of the autostart entry, are seen
// in its own tests.
TEST_F(SettingsTest, AutoLogonEmptyArgumentsChangeTheFlagAlone) {
    SetAutoLogon(reg, 1, "ann", "HOME", "secret");
    EXPECT_EQ(SetAutoLogon(reg, 0, "", "", ""), 0);
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "AutoAdminLogon"), "0");
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "DefaultUserName"), "ann");
    EXPECT_EQ(Stored(Hive::LocalMachine, kWinlogonKey, "DefaultPassword"), "secret");
}

// The entry's Exec line follows the desktop entry rules: an argument with a reserved character
// is quoted, and the value's own escapes and the doubled % come on top.
TEST_F(SettingsTest, RunAtLogonWritesTheProgramAsOneExecArgument) {
    const struct {
        const char* folder;
        const char* exec;
    } cases[] = {
        {"/usr/local/bin", "/usr/local/bin/vqserv LOGON"},
        {"/usr/local/bin/", "/usr/local/bin/vqserv LOGON"},
        {"/opt/my apps/bin", "\"/opt/my apps/bin/vqserv\" LOGON"},
        {"/opt/R&D", "\"/opt/R&D/vqserv\" LOGON"},
        {"/opt/a$b", "\"/opt/a\\\\$b/vqserv\" LOGON"},
        {"/opt/x\\y", "\"/opt/x\\\\\\\\y/vqserv\" LOGON"},
        {"/opt/100%", "/opt/100%%/vqserv LOGON"},
        {"/opt/a\nb", "\"/opt/a\\nb/vqserv\" LOGON"},
    };
    const std::string entry = dir.Path() + "autostart/orvantis-server.desktop";
    for (const auto& c : cases) {
        EXPECT_EQ(SetRunAtLogon(reg, 1, c.folder), 0);
        const std::string text = ReadFileText(entry);
        EXPECT_NE(text.find("[Desktop Entry]\n"), std::string::npos);
        EXPECT_NE(text.find("\nExec=" + std::string(c.exec) + "\n"), std::string::npos) << text;
        EXPECT_EQ(Stored(Hive::CurrentUser, kRunKey, kRunValueName), c.exec);
    }
}

// The cluster settings as vqctl checks them before it stores one: the name, the value, and
// what the refusal says it takes (empty: accepted).
TEST(ClusterSettings, AcceptOnlyWhatTheRunnerCanUse) {
    const char* backend = "one of local, slurm (in any case)";
    const char* letters = "class letters A to Z, such as CD";
    const char* shell =
        "options written as a shell would, each quote closed and no backslash at the very end";
    const char* poll = "a whole number from 1 to 3600";
    const struct {
        const char *name, *value, *takes;
    } cases[] = {
        {"Backend", "local", ""},           {"Backend", "SLURM", ""},
        {"Backend", "Slurm", ""},           {"Backend", "", backend},
        {"Backend", "pbs", backend},        {"Backend", "slurm ", backend},
        {"Classes", "", ""},                {"Classes", "cD", ""},
        {"Classes", "AZ", ""},              {"Classes", "C,D", letters},
        {"Classes", "C D", letters},        {"Classes", "1", letters},
        {"Classes", "\xc3\x89", letters},   {"PollSeconds", "1", ""},
        {"PollSeconds", " 3600 ", ""},      {"PollSeconds", "0", poll},
        {"PollSeconds", "3601", poll},      {"PollSeconds", "2s", poll},
        {"Partition", "debug gpu", ""},     {"Account", "", ""},
        {"ExtraArgs", "", ""},
        {"ExtraArgs", "--qos=low --comment='a \"b\" c'", ""},
        {"ExtraArgs", "--comment=\"it's \\\"here\\\"\"", ""},
        {"ExtraArgs", "--comment=it\\'s", ""},
        {"ExtraArgs", "--comment='a\\'", ""},  // a backslash within single quotes is itself
        {"ExtraArgs", "--comment='a b", shell},
        {"ExtraArgs", "--comment=\"a \\\"", shell},  // the escaped quote closes nothing
        {"ExtraArgs", "--comment=a\\", shell},
        {"ExtraArgs", "--comment=it's", shell},
    };
    for (const auto& c : cases) {
        const SettingDef* def = FindSettingDef("Cluster", c.name);
        ASSERT_NE(def, nullptr) << c.name;
        std::string problem = "unset";
        EXPECT_EQ(SettingValueFits(*def, c.value, &problem), *c.takes == 0) << c.name << c.value;
        EXPECT_EQ(problem, c.takes) << c.name << " " << c.value;
    }
}

TEST(ColumnWidths, DefaultFromTheCaptionOncePerKey) {
    const std::vector<SettingDef> defs = ColumnWidthDefs({{"MaxRunTime", "Max Running Time", true},
                                                          {"JobRC", "Task RC", true},
                                                          {"JobName", "Task Name", true},
                                                          {"STCPU", "CPU Time", false},
                                                          {"MaxRC", "Max RC", true},
                                                          {"MaxRC", "Max RC", false}});
    std::string shown;
    for (const SettingDef& def : defs)
        shown += def.section + "/" + def.name + "=" + *def.defaultValue + " ";
    EXPECT_EQ(shown,
              "Settings/MaxRunTime=1700 Settings/JobRC=850 Settings/JobName=1440 "
              "Settings/STCPU=1440 Settings/MaxRC=850 ");
}

}  // namespace
}  // namespace vq
