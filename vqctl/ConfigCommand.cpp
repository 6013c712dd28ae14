// vqctl config: reads and changes the server's settings in the settings store.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <memory>

#include "calendar/Common.h"
#include "storage/Settings.h"
#include "vqctl/Commands.h"

namespace vqctl {
namespace {

struct ConfigArgs {
    std::string section, name, value;
    bool integer = false;
};

vq::Registry UserRegistry() {
    return vq::Registry(vq::Registry::DefaultDatabasePath(), vq::Registry::DefaultAutostartDir());
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
            values[std::string(def.section) + "\t" + def.name] =
                vq::GetSettingText(reg, def.section, def.name);
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

void AddConfigCommands(CLI::App& app, int& exitCode) {
    CLI::App* config = app.add_subcommand("config", "Read and change the server's settings");
    config->footer("SECTION is ServerSettings, StartSet or Settings.");
    config->require_subcommand(1);
    auto args = std::make_shared<ConfigArgs>();

    CLI::App* get = config->add_subcommand("get", "Print the value of one setting");
    get->add_option("SECTION", args->section, "the section")->required();
    get->add_option("NAME", args->name, "the setting's name")->required();
    get->callback([args, &exitCode] {
        vq::Registry reg = UserRegistry();
        exitCode = Get(reg, CanonicalSection(args->section), args->name);
    });

    CLI::App* set = config->add_subcommand("set", "Store the value of one setting");
    set->add_option("SECTION", args->section, "the section")->required();
    set->add_option("NAME", args->name, "the setting's name")->required();
    set->add_option("VALUE", args->value, "the new value")->required();
    set->add_flag("--integer", args->integer, "store it in integer form rather than as text");
    set->callback([args, &exitCode] {
        vq::Registry reg = UserRegistry();
        exitCode =
            Set(reg, CanonicalSection(args->section), args->name, args->value, args->integer);
    });

    CLI::App* list = config->add_subcommand("list", "Print NAME=VALUE lines, the values in force");
    list->add_option("SECTION", args->section, "only this section");
    list->callback([args, &exitCode] {
        vq::Registry reg = UserRegistry();
        exitCode = List(reg, args->section.empty() ? "" : CanonicalSection(args->section));
    });
}

}  // namespace vqctl
