#pragma once
// The server's settings by section, name and default, over the settings store; the machine's
// auto logon values and the start at logon.
#include <cstdint>
#include <string>
#include <vector>

#include "storage/Registry.h"

namespace vq {

// One known setting: its section, name and the default that a missing value reads as.
struct SettingDef {
    const char* section;
    const char* name;
    const char* defaultValue;  // nullptr: no default (read as empty)
    bool integer;              // the default is an integer, else a text
    const char* meaning;
};

// Every known setting of ServerSettings and StartSet, in one place.
const std::vector<SettingDef>& SettingDefs();
// The definition of a setting, or nullptr.
const SettingDef* FindSettingDef(const std::string& section, const std::string& name);
// The default of any setting, the Show- switches and column widths of the views included;
// the empty text when the setting has none.
std::string SettingDefault(const std::string& section, const std::string& name);

// The key path of a section: Software\Halvenor\Orvantis Server\<section>.
std::string SectionKey(const std::string& section);

// The stored value, or `def` when the name is empty, the value is missing or of another form.
RegValue GetRegSetting(Registry& reg, const std::string& section, const std::string& name,
                       const RegValue& def);
// The same with the default of the settings table.
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
