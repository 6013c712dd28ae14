#pragma once
// The server's settings by section, name and default, over the settings store; the machine's
// auto logon values and the start at logon.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "storage/Registry.h"

namespace vq {

// What a setting holds: any text, a whole number of a range, a priority key ("P22"), one word
// of `choices` in any case, class letters A to Z in any case (none at all too), or options
// written as a shell would take them (every quote closed, no backslash left at the end).
enum class SettingKind { Text, Number, PriorityKey, Choice, ClassLetters, ShellWords };

// One known setting, spelled as the settings table spells it.
struct SettingDef {
    std::string section;
    std::string name;
    std::optional<std::string> defaultValue;  // none: nobody reads it
    SettingKind kind = SettingKind::Text;
    int64_t min = 0, max = 0;  // the range of a Number
    std::string meaning;
    std::vector<std::string> choices = {};  // the words of a Choice, lower case
};

// The section of the cluster settings and its names.
inline constexpr const char* kClusterSection = "Cluster";
inline constexpr const char* kClusterBackend = "Backend";
inline constexpr const char* kClusterClasses = "Classes";
inline constexpr const char* kClusterPartition = "Partition";
inline constexpr const char* kClusterAccount = "Account";
inline constexpr const char* kClusterExtraArgs = "ExtraArgs";
inline constexpr const char* kClusterPollSeconds = "PollSeconds";

// Every setting of ServerSettings, StartSet and Cluster, and the Show- switches of Settings.
const std::vector<SettingDef>& SettingDefs();
// A column that a view can show; its width is a setting of section Settings.
struct ViewColumn {
    std::string key;
    std::string caption;
    bool taskView;
};
// The width settings of the view columns, each with the default of its caption.
std::vector<SettingDef> ColumnWidthDefs(const std::vector<ViewColumn>& columns);
// The definition of a setting of SettingDefs(), matched exactly, or nullptr.
const SettingDef* FindSettingDef(const std::string& section, const std::string& name);
// The default of a setting of SettingDefs(); the empty text when it has none.
std::string SettingDefault(const std::string& section, const std::string& name);
// True when the setting can take `value`; else false, with `problem` saying what it takes.
bool SettingValueFits(const SettingDef& def, const std::string& value,
                      std::string* problem = nullptr);

// The key path of a section: Software\Halvenor\Orvantis Server\<section>.
std::string SectionKey(const std::string& section);

// The stored value, or `def` when the name is empty, the value is missing or of another form.
RegValue GetRegSetting(Registry& reg, const std::string& section, const std::string& name,
                       const RegValue& def);
// The value in force: the stored one when the setting can take it, else the default of the
// settings table; a stored value that doesn't fit is reported once through the store's notices.
std::string GetSettingText(Registry& reg, const std::string& section, const std::string& name);
int64_t GetSettingNumber(Registry& reg, const std::string& section, const std::string& name);

// Stores a value; form 0 (and 1) stores its text, 4 an integer. Returns 0 for success.
int SaveRegSetting(Registry& reg, const std::string& section, const std::string& name,
                   const std::string& value, int form = 0);
int SaveRegValue(Registry& reg, Hive hive, const std::string& path, const std::string& name,
                 const std::string& value, int form = 0);
int DeleteRegValue(Registry& reg, Hive hive, const std::string& path, const std::string& name);

// AutoAdminLogon gets the flag; each of user, domain, password: empty leaves its value alone,
// one blank writes an empty value, anything else is written. Returns the first failing code.
int SetAutoLogon(Registry& reg, int flag, const std::string& user, const std::string& domain,
                 const std::string& password);
// 1: the start-at-logon entry runs `programFolder`vqserv LOGON; anything else removes it.
int SetRunAtLogon(Registry& reg, int flag, const std::string& programFolder);

// The width default of a view column by its caption (task view or step view).
int DefaultColumnWidth(const std::string& caption, bool taskView);

}  // namespace vq
