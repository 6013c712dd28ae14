#include <cstdio>
#include <map>

#include "calendar/Common.h"
#include "storage/Settings.h"
#include "vqctl/Commands.h"

namespace vqctl {
namespace {

int Usage() {
    std::fputs(
        "usage: vqctl config get SECTION NAME\n"
        "       vqctl config set SECTION NAME VALUE [--integer]\n"
        "       vqctl config list [SECTION]    (NAME=VALUE lines, the values in force)\n"
        "SECTION is ServerSettings, StartSet or Settings.\n",
        stderr);
    return 2;
}

// The sections that the server reads, spelled as it spells them.
std::string CanonicalSection(const std::string& section) {
    for (const char* known : {"ServerSettings", "StartSet", "Settings"})
        if (vq::ToUpper(section) == vq::ToUpper(known)) return known;
    return section;
}

int Get(vq::Registry& reg, const std::string& section, const std::string& name) {
    std::printf("%s\n", vq::GetSettingText(reg, section, name).c_str());
    return 0;
}

int Set(vq::Registry& reg, const std::string& section, const std::string& name,
        const std::string& value, bool integer) {
    const int code = vq::SaveRegSetting(reg, section, name, value, integer ? vq::kFormInteger : 0);
    if (code != 0) {
        std::fprintf(stderr, "vqctl: cannot save %s\\%s: %s\n", section.c_str(), name.c_str(),
                     reg.LastError().c_str());
        return 1;
    }
    return 0;
}

// Every known setting of the section with the value in force, then any other stored value.
int List(vq::Registry& reg, const std::string& section) {
    std::map<std::string, std::string> values;
    for (const vq::SettingDef& def : vq::SettingDefs())
        if (section.empty() || def.section == section)
            values[std::string(def.section) + "\t" + def.name] = vq::GetSettingText(reg, def.section, def.name);
    for (const std::string& key : reg.Keys(vq::Hive::CurrentUser)) {
        const std::string prefix = vq::kServerRoot + "\\";
        if (key.rfind(prefix, 0) != 0) continue;
        const std::string keySection = key.substr(prefix.size());
        if (!section.empty() && vq::ToUpper(keySection) != vq::ToUpper(section)) continue;
        for (const vq::RegEntry& entry : reg.List(vq::Hive::CurrentUser, key))
            values[keySection + "\t" + entry.name] = entry.value.AsText();
    }
    // With a section given, lines are NAME=VALUE; else SECTION NAME=VALUE.
    for (const auto& [name, value] : values) {
        const size_t tab = name.find('\t');
        const std::string shown = section.empty() ? name.substr(0, tab) + " " + name.substr(tab + 1)
                                                  : name.substr(tab + 1);
        std::printf("%s=%s\n", shown.c_str(), value.c_str());
    }
    return 0;
}

}  // namespace

int ConfigCommand(const Args& args) {
    if (args.empty()) return Usage();
    vq::Registry reg(vq::Registry::DefaultDatabasePath(), vq::Registry::DefaultAutostartDir());
    const std::string& verb = args[0];
    if (verb == "get" && args.size() == 3) return Get(reg, CanonicalSection(args[1]), args[2]);
    if (verb == "set" && (args.size() == 4 || (args.size() == 5 && args[4] == "--integer")))
        return Set(reg, CanonicalSection(args[1]), args[2], args[3], args.size() == 5);
    if (verb == "list" && args.size() <= 2) return List(reg, args.size() == 2 ? CanonicalSection(args[1]) : "");
    return Usage();
}

}  // namespace vqctl
