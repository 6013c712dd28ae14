#include "storage/Settings.h"

#include "calendar/Common.h"

namespace vq {
namespace {

constexpr const char* kServer = "ServerSettings";
constexpr const char* kStart = "StartSet";

// Quotes the program path of a desktop entry's Exec line where it needs quoting.
std::string QuoteExecArgument(const std::string& path) {
    if (path.find_first_of(" \t\"'\\$`") == std::string::npos) return path;
    std::string quoted = "\"";
    for (char c : path) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

}  // namespace

const std::vector<SettingDef>& SettingDefs() {
    static const std::vector<SettingDef> defs = {
        {kServer, "TVal", nullptr, false, "write test at start-up"},
        {kServer, "ServPath", "", false, "the queue folder"},
        {kServer, "JobNumber", "0", true, "last issued task number"},
        {kServer, "StartQ", "1", true, "1: start the task queue with the server"},
        {kServer, "StartServ", "0", true, "1: start Orvantis Server at logon"},
        {kServer, "LogonEn", "0", true, "1: automatic logon is on"},
        {kServer, "DiagC", "5000", true, "period of the diagnostic run in milliseconds"},
        {kServer, "TIQH", "1", true, "hours that a complete task stays in the queue"},
        {kServer, "TIQM", "0", true, "minutes added to TIQH"},
        {kServer, "CLF", "10", true, "number of folders per task project"},
        {kServer, "JQPL", "100", false, "queue priority number of Low"},
        {kServer, "JQPN", "200", false, "queue priority number of Normal"},
        {kServer, "JQPH", "300", false, "queue priority number of High"},
        {kServer, "JQPIE", "500", false, "queue priority number of Immediate Execution"},
        {kServer, "MJP", "P22", false, "highest CPU priority of a task"},
        {kServer, "ConsMode", "7", true, "window mode of a task: 0 hide, 7 show minimized"},
        {kServer, "BufH", "800", false, "maximum height of a step's screen buffer"},
        {kServer, "BufW", "600", false, "maximum width of a step's screen buffer"},
        {kServer, "SBS", "2048", false, "search block size (bytes)"},
        // The Options dialog proposes 1000; a step started without a stored value uses 1024.
        {kServer, "MSFS", "1024", false, "max search segment in file (kilobytes)"},
        {kServer, "MLS", "256", false, "maximum line size"},
        {kServer, "CSEnabled", "1", true, "enable capture screen"},
        {kServer, "CSTimeDelay", "200", true, "time delay before capturing screen (ms)"},
        {kServer, "Max Run Jobs", nullptr, false, "the Max Running Tasks field as last applied"},
        {kServer, "ServAdm", nullptr, false, "administrators, scrambled"},
        {kServer, "ServUsers", nullptr, false, "users, scrambled"},
        {kServer, "ALOUser", nullptr, false, "user name of automatic logon"},
        {kServer, "ALODomain", nullptr, false, "domain of automatic logon"},
        {kServer, "ALOP", nullptr, false, "password of automatic logon, scrambled"},
        {kStart, "MainLeft", "1000", true, "window left"},
        {kStart, "MainTop", "1000", true, "window top"},
        {kStart, "MainWidth", "10000", true, "window width"},
        {kStart, "MainHeight", "8000", true, "window height"},
        {kStart, "WinState", "0", true, "window state"},
    };
    return defs;
}

const SettingDef* FindSettingDef(const std::string& section, const std::string& name) {
    for (const SettingDef& def : SettingDefs())
        if (ToUpper(def.section) == ToUpper(section) && ToUpper(def.name) == ToUpper(name)) return &def;
    return nullptr;
}

int DefaultColumnWidth(const std::string& caption, bool taskView) {
    if (taskView && caption.find("Time") != std::string::npos) return 1700;
    if (caption.find(" RC") != std::string::npos) return 850;
    return 1440;
}

std::string SettingDefault(const std::string& section, const std::string& name) {
    if (const SettingDef* def = FindSettingDef(section, name))
        return def->defaultValue ? def->defaultValue : "";
    if (ToUpper(section) == "SETTINGS" && name.rfind("Show-", 0) == 0) return "1";
    return "";
}

std::string SectionKey(const std::string& section) { return kServerRoot + "\\" + section; }

RegValue GetRegSetting(Registry& reg, const std::string& section, const std::string& name,
                       const RegValue& def) {
    if (name.empty()) return def;
    auto value = reg.Read(Hive::CurrentUser, SectionKey(section), name);
    return value ? *value : def;
}

std::string GetSettingText(Registry& reg, const std::string& section, const std::string& name) {
    return GetRegSetting(reg, section, name, RegValue::Text(SettingDefault(section, name))).AsText();
}

int64_t GetSettingNumber(Registry& reg, const std::string& section, const std::string& name) {
    return GetRegSetting(reg, section, name, RegValue::Text(SettingDefault(section, name))).AsNumber();
}

int SaveRegValue(Registry& reg, Hive hive, const std::string& path, const std::string& name,
                 const std::string& value, int form) {
    if (form == kFormInteger) return reg.Write(hive, path, name, RegValue::Integer(static_cast<int32_t>(Val(value))));
    return reg.Write(hive, path, name, RegValue::Text(value));
}

int SaveRegSetting(Registry& reg, const std::string& section, const std::string& name,
                   const std::string& value, int form) {
    return SaveRegValue(reg, Hive::CurrentUser, SectionKey(section), name, value, form);
}

int DeleteRegValue(Registry& reg, Hive hive, const std::string& path, const std::string& name) {
    return reg.Delete(hive, path, name);
}

int SetAutoLogon(Registry& reg, int flag, const std::string& user, const std::string& domain,
                 const std::string& password) {
    if (int code = SaveRegValue(reg, Hive::LocalMachine, kWinlogonKey, "AutoAdminLogon", std::to_string(flag)))
        return code;
    const std::pair<const char*, const std::string*> values[] = {
        {"DefaultUserName", &user}, {"DefaultDomainName", &domain}, {"DefaultPassword", &password}};
    for (const auto& [name, value] : values) {
        if (value->empty()) continue;
        const std::string stored = *value == " " ? "" : *value;
        if (int code = SaveRegValue(reg, Hive::LocalMachine, kWinlogonKey, name, stored)) return code;
    }
    return 0;
}

int SetRunAtLogon(Registry& reg, int flag, const std::string& programFolder) {
    if (flag == 1)
        return SaveRegValue(reg, Hive::CurrentUser, kRunKey, kRunValueName,
                            QuoteExecArgument(WithBackslash(programFolder) + "vqserv") + " LOGON");
    return DeleteRegValue(reg, Hive::CurrentUser, kRunKey, kRunValueName);
}

}  // namespace vq
