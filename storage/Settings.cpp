#include "storage/Settings.h"

#include <algorithm>
#include <optional>

#include "calendar/Common.h"

namespace vq {
namespace {

constexpr const char* kServer = "ServerSettings";
constexpr const char* kStart = "StartSet";
constexpr const char* kViews = "Settings";

// The task view's columns that the operator may hide, each by a Show- switch.
constexpr const char* kSwitchedColumns[] = {
    "Class",   "UserName",   "Domain",    "Server",  "Dependency", "Queue Priority", "CPU",
    "SchTime", "AllR",       "CurRepeat", "SubTime", "CurStep",    "AllSteps",       "JobRC",
    "MaxRC",   "MaxRunTime", "PeakMem",   "IO",      "TCPU",       "Units"};

// A text that is a whole decimal number, blanks around it allowed.
std::optional<int64_t> WholeNumber(const std::string& text) {
    const std::string trimmed = Trim(text);
    const size_t digits = !trimmed.empty() && trimmed[0] == '-' ? 1 : 0;
    if (trimmed.size() == digits || trimmed.size() - digits > 18 ||
        trimmed.find_first_not_of("0123456789", digits) != std::string::npos)
        return std::nullopt;
    return std::stoll(trimmed);
}

// True when a shell would take `text` whole: every quote closed, no backslash left at the end.
// Nothing is split or expanded here; the runner splits the words itself.
bool ShellQuotesClosed(const std::string& text) {
    char quote = 0;  // the open quote, if any
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quote == '\'') {
            if (c == '\'') quote = 0;
        } else if (c == '\\') {
            if (++i == text.size()) return false;  // escapes nothing: the line would go on
        } else if (quote == '"') {
            if (c == '"') quote = 0;
        } else if (c == '\'' || c == '"') {
            quote = c;
        }
    }
    return quote == 0;
}

bool IsChoice(const SettingDef& def, const std::string& value) {
    return std::any_of(def.choices.begin(), def.choices.end(),
                       [&](const std::string& choice) { return ToUpper(choice) == ToUpper(value); });
}

std::string ChoiceList(const SettingDef& def) {
    std::string list;
    for (const std::string& choice : def.choices) list += (list.empty() ? "" : ", ") + choice;
    return list;
}

bool AllClassLetters(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    });
}

// The program path as one argument of a desktop entry's Exec line: quoted when it holds a
// reserved character, with ", `, $ and \ escaped inside the quotes; then the escapes of the
// entry's value itself (a backslash doubled, a line break as \n) and % doubled, since a lone %
// would start a field code.
std::string QuoteExecArgument(const std::string& path) {
    std::string argument = path;
    if (path.find_first_of(" \t\n\"'\\><~|&;$*?#()`") != std::string::npos) {
        argument = "\"";
        for (char c : path) {
            if (c == '"' || c == '`' || c == '$' || c == '\\') argument += '\\';
            argument += c;
        }
        argument += '"';
    }
    std::string value;
    for (char c : argument) {
        if (c == '\\') value += "\\\\";
        else if (c == '\n') value += "\\n";
        else if (c == '%') value += "%%";
        else value += c;
    }
    return value;
}

}  // namespace

const std::vector<SettingDef>& SettingDefs() {
    using K = SettingKind;
    constexpr int64_t kNine = 999999999;  // the Options dialog's fields of nine digits
    static const std::vector<SettingDef> defs = [] {
        std::vector<SettingDef> table = {
            {kServer, "TVal", std::nullopt, K::Text, 0, 0, "write test at start-up"},
            {kServer, "ServPath", "", K::Text, 0, 0, "the queue folder"},
            {kServer, "JobNumber", "0", K::Number, 0, 999999, "last issued task number"},
            {kServer, "StartQ", "1", K::Number, 0, 1, "1: start the task queue with the server"},
            {kServer, "StartServ", "0", K::Number, 0, 1, "1: start Orvantis Server at logon"},
            {kServer, "LogonEn", "0", K::Number, 0, 1, "1: automatic logon is on"},
            {kServer, "DiagC", "5000", K::Number, 5000, 995000,
             "period of the diagnostic run in milliseconds"},
            {kServer, "TIQH", "1", K::Number, 0, 9999,
             "hours that a complete task stays in the queue"},
            {kServer, "TIQM", "0", K::Number, 0, 99, "minutes added to TIQH"},
            {kServer, "CLF", "10", K::Number, 0, 9999,
             "number of folders per task project, 0 no bound"},
            {kServer, "JQPL", "100", K::Number, 0, kNine, "queue priority number of Low"},
            {kServer, "JQPN", "200", K::Number, 0, kNine, "queue priority number of Normal"},
            {kServer, "JQPH", "300", K::Number, 0, kNine, "queue priority number of High"},
            {kServer, "JQPIE", "500", K::Number, 0, kNine,
             "queue priority number of Immediate Execution"},
            {kServer, "MJP", "P22", K::PriorityKey, 0, 0, "highest CPU priority of a task"},
            {kServer, "ConsMode", "7", K::Number, 0, 7,
             "window mode of a task: 0 hide, 7 show minimized"},
            {kServer, "BufH", "800", K::Number, 0, kNine,
             "maximum height of a step's screen buffer"},
            {kServer, "BufW", "600", K::Number, 0, kNine,
             "maximum width of a step's screen buffer"},
            {kServer, "SBS", "2048", K::Number, 1024, 65536, "search block size (bytes)"},
            // The Options dialog proposes 1000; a step started without a stored value uses 1024.
            {kServer, "MSFS", "1024", K::Number, 0, kNine,
             "max search segment in file (kilobytes)"},
            {kServer, "MLS", "256", K::Number, 0, kNine, "maximum line size"},
            {kServer, "CSEnabled", "1", K::Number, 0, 1, "enable capture screen"},
            {kServer, "CSTimeDelay", "200", K::Number, 0, 99999,
             "time delay before capturing screen (ms)"},
            {kServer, "Max Run Jobs", std::nullopt, K::Number, 1, 10,
             "the Max Running Tasks field as last applied"},
            {kServer, "ServAdm", std::nullopt, K::Text, 0, 0, "administrators, scrambled"},
            {kServer, "ServUsers", std::nullopt, K::Text, 0, 0, "users, scrambled"},
            {kServer, "ALOUser", std::nullopt, K::Text, 0, 0, "user name of automatic logon"},
            {kServer, "ALODomain", std::nullopt, K::Text, 0, 0, "domain of automatic logon"},
            {kServer, "ALOP", std::nullopt, K::Text, 0, 0,
             "password of automatic logon, scrambled"},
            {kClusterSection, kClusterBackend, "local", K::Choice, 0, 0,
             "where the steps of the cluster classes run: local or slurm", {"local", "slurm"}},
            {kClusterSection, kClusterClasses, "", K::ClassLetters, 0, 0,
             "the classes whose steps go to the cluster; none: every class"},
            {kClusterSection, kClusterPartition, "", K::Text, 0, 0,
             "the Slurm partition of the steps; none: the cluster's default"},
            {kClusterSection, kClusterAccount, "", K::Text, 0, 0, "the Slurm account of the steps"},
            {kClusterSection, kClusterExtraArgs, "", K::ShellWords, 0, 0,
             "more sbatch options, quoted as a shell would"},
            {kClusterSection, kClusterPollSeconds, "2", K::Number, 1, 3600,
             "seconds between two questions to Slurm about a step's job"},
            {kStart, "MainLeft", "1000", K::Number, -kNine, kNine, "window left (twips)"},
            {kStart, "MainTop", "1000", K::Number, -kNine, kNine, "window top (twips)"},
            {kStart, "MainWidth", "10000", K::Number, 0, kNine, "window width (twips)"},
            {kStart, "MainHeight", "8000", K::Number, 0, kNine, "window height (twips)"},
            {kStart, "WinState", "0", K::Number, 0, 2,
             "window state: 0 normal, 1 minimized, 2 maximized"},
        };
        for (const char* key : kSwitchedColumns)
            table.push_back({kViews, std::string("Show-") + key, "1", K::Number, 0, 1,
                             "1: the task view shows the column " + std::string(key)});
        return table;
    }();
    return defs;
}

std::vector<SettingDef> ColumnWidthDefs(const std::vector<ViewColumn>& columns) {
    std::vector<SettingDef> defs;
    for (const ViewColumn& column : columns) {
        const bool known = std::any_of(defs.begin(), defs.end(), [&](const SettingDef& def) {
            return def.name == column.key;
        });
        if (known) continue;
        defs.push_back({kViews, column.key,
                        std::to_string(DefaultColumnWidth(column.caption, column.taskView)),
                        SettingKind::Number, 0, 999999,
                        "width of the column \"" + column.caption + "\" (twips)"});
    }
    return defs;
}

const SettingDef* FindSettingDef(const std::string& section, const std::string& name) {
    for (const SettingDef& def : SettingDefs())
        if (def.section == section && def.name == name) return &def;
    return nullptr;
}

int DefaultColumnWidth(const std::string& caption, bool taskView) {
    if (taskView && caption.find("Time") != std::string::npos) return 1700;
    if (caption.find(" RC") != std::string::npos) return 850;
    return 1440;
}

std::string SettingDefault(const std::string& section, const std::string& name) {
    const SettingDef* def = FindSettingDef(section, name);
    return def ? def->defaultValue.value_or("") : "";
}

bool SettingValueFits(const SettingDef& def, const std::string& value, std::string* problem) {
    std::string needs;
    if (def.kind == SettingKind::Number) {
        const std::optional<int64_t> number = WholeNumber(value);
        if (!number || *number < def.min || *number > def.max)
            needs =
                "a whole number from " + std::to_string(def.min) + " to " + std::to_string(def.max);
    } else if (def.kind == SettingKind::Choice) {
        if (!IsChoice(def, value)) needs = "one of " + ChoiceList(def) + " (in any case)";
    } else if (def.kind == SettingKind::ClassLetters) {
        if (!AllClassLetters(value)) needs = "class letters A to Z, such as CD";
    } else if (def.kind == SettingKind::ShellWords) {
        if (!ShellQuotesClosed(value))
            needs = "options written as a shell would, each quote closed and no backslash at "
                    "the very end";
    } else if (def.kind == SettingKind::PriorityKey) {
        if (value.size() != 3 || value[0] != 'P' || value[1] < '0' || value[1] > '5' ||
            value[2] < '0' || value[2] > '6')
            needs = "a priority key: P, a class digit 0 to 5 and a level digit 0 to 6, such as P22";
    }
    if (problem) *problem = needs;
    return needs.empty();
}

std::string SectionKey(const std::string& section) { return kServerRoot + "\\" + section; }

RegValue GetRegSetting(Registry& reg, const std::string& section, const std::string& name,
                       const RegValue& def) {
    if (name.empty()) return def;
    auto value = reg.Read(Hive::CurrentUser, SectionKey(section), name);
    return value ? *value : def;
}

std::string GetSettingText(Registry& reg, const std::string& section, const std::string& name) {
    const std::string fallback = SettingDefault(section, name);
    const std::optional<RegValue> stored =
        name.empty() ? std::nullopt : reg.Read(Hive::CurrentUser, SectionKey(section), name);
    if (!stored) return fallback;
    const std::string value = stored->AsText();
    const SettingDef* def = FindSettingDef(section, name);
    std::string problem;
    if (!def || SettingValueFits(*def, value, &problem)) return value;
    reg.NoticeOnce("The setting " + name + " of " + section + " holds \"" + value +
                   "\", which is not " + problem + "; its default " + fallback + " is used.");
    return fallback;
}

int64_t GetSettingNumber(Registry& reg, const std::string& section, const std::string& name) {
    return Val(GetSettingText(reg, section, name));
}

int SaveRegValue(Registry& reg, Hive hive, const std::string& path, const std::string& name,
                 const std::string& value, int form) {
    if (form == kFormInteger)
        return reg.Write(hive, path, name, RegValue::Integer(static_cast<int32_t>(Val(value))));
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
    if (int code = SaveRegValue(reg, Hive::LocalMachine, kWinlogonKey, "AutoAdminLogon",
                                std::to_string(flag)))
        return code;
    const std::pair<const char*, const std::string*> values[] = {
        {"DefaultUserName", &user}, {"DefaultDomainName", &domain}, {"DefaultPassword", &password}};
    for (const auto& [name, value] : values) {
        if (value->empty()) continue;
        const std::string stored = *value == " " ? "" : *value;
        if (int code = SaveRegValue(reg, Hive::LocalMachine, kWinlogonKey, name, stored))
            return code;
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
