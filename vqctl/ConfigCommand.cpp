// vqctl config: reads and changes the server's settings in the settings store, as the settings
// table knows them.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>

#include "calendar/Common.h"
#include "core/tables/WorkingTables.h"
#include "storage/Settings.h"
#include "vqctl/Commands.h"

namespace vqctl {
namespace {

const std::vector<std::string> kSections = {"ServerSettings", "StartSet", "Settings", "Cluster"};

struct ConfigArgs {
    std::string section, name, value;
    bool integer = false;
};

// A usage error of config: refused before anything is stored.
struct Refusal {
    std::string text;
};

vq::Registry UserRegistry() {
    return vq::Registry(vq::Registry::DefaultDatabasePath(), vq::Registry::DefaultAutostartDir());
}

// The settings table with the width settings of every column that the two views can show.
std::vector<vq::SettingDef> KnownSettings(vq::Registry& reg) {
    vq::WorkingTables tables;
    vq::BuildColumns(tables, reg);
    std::vector<vq::ViewColumn> columns;
    for (const vq::VqColumn& column : tables.TaskTable.Columns())
        if (!column.viewFlag.empty()) columns.push_back({column.key, column.caption, true});
    for (const vq::VqColumn& column : tables.StepView.Columns())
        columns.push_back({column.key, column.caption, false});
    std::vector<vq::SettingDef> known = vq::SettingDefs();
    for (vq::SettingDef& def : vq::ColumnWidthDefs(columns)) known.push_back(std::move(def));
    return known;
}

// Edits that turn one word into the other, letters compared without case.
size_t Distance(const std::string& a, const std::string& b) {
    const std::string x = vq::ToUpper(a), y = vq::ToUpper(b);
    std::vector<size_t> row(y.size() + 1);
    for (size_t j = 0; j <= y.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= x.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= y.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (x[i - 1] != y[j - 1])});
            diagonal = above;
        }
    }
    return row[y.size()];
}

// The three names nearest to `word`, nearest first, joined by commas.
std::string Nearest(const std::string& word, std::vector<std::string> names) {
    std::stable_sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
        return Distance(word, a) < Distance(word, b);
    });
    names.resize(std::min<size_t>(names.size(), 3));
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    return list;
}

const std::string& KnownSection(const std::string& section) {
    for (const std::string& known : kSections)
        if (known == section) return known;
    throw Refusal{"no section \"" + section + "\"; the nearest: " + Nearest(section, kSections)};
}

const vq::SettingDef& KnownSetting(const std::vector<vq::SettingDef>& known,
                                   const std::string& section, const std::string& name) {
    std::vector<std::string> names;
    for (const vq::SettingDef& def : known) {
        if (def.section != KnownSection(section)) continue;
        if (def.name == name) return def;
        names.push_back(def.name);
    }
    throw Refusal{"no setting \"" + name + "\" in " + section +
                  "; the nearest: " + Nearest(name, names)};
}

std::string ValueInForce(vq::Registry& reg, const vq::SettingDef& def) {
    // A width setting isn't in the engine's table: its default comes from its caption.
    if (vq::FindSettingDef(def.section, def.name))
        return vq::GetSettingText(reg, def.section, def.name);
    const auto stored = vq::GetRegSetting(reg, def.section, def.name, vq::RegValue::Text(""));
    const std::string value = stored.AsText();
    return !value.empty() && vq::SettingValueFits(def, value) ? value
                                                              : def.defaultValue.value_or("");
}

int Get(vq::Registry& reg, const vq::SettingDef& def) {
    std::printf("%s\n", ValueInForce(reg, def).c_str());
    return 0;
}

int Set(vq::Registry& reg, const vq::SettingDef& def, const std::string& value, bool integer) {
    std::string problem;
    if (!vq::SettingValueFits(def, value, &problem))
        throw Refusal{def.name + " takes " + problem + ", not \"" + value + "\""};
    if (integer && def.kind != vq::SettingKind::Number)
        throw Refusal{def.name + " is a text: --integer doesn't apply"};
    const int code =
        vq::SaveRegSetting(reg, def.section, def.name, value, integer ? vq::kFormInteger : 0);
    if (code == 0) return 0;
    std::fprintf(stderr, "vqctl config set: cannot save %s %s: %s\n", def.section.c_str(),
                 def.name.c_str(), reg.LastError().c_str());
    return 1;
}

// Every setting of the table with its value in force; with a section given, NAME=VALUE lines,
// else SECTION NAME=VALUE.
int List(vq::Registry& reg, const std::vector<vq::SettingDef>& known, const std::string& section) {
    for (const vq::SettingDef& def : known) {
        if (!section.empty() && def.section != section) continue;
        const std::string shown = section.empty() ? def.section + " " + def.name : def.name;
        std::printf("%s=%s\n", shown.c_str(), ValueInForce(reg, def).c_str());
    }
    return 0;
}

// Runs one config command; a refusal is a usage error.
template <typename Command>
void Guarded(const char* verb, int& exitCode, Command command) {
    try {
        vq::Registry reg = UserRegistry();
        exitCode = command(reg);
    } catch (const Refusal& refusal) {
        std::fprintf(stderr, "vqctl config %s: %s\n", verb, refusal.text.c_str());
        exitCode = 2;
    }
}

}  // namespace

void AddConfigCommands(CLI::App& app, int& exitCode) {
    CLI::App* config = app.add_subcommand("config", "Read and change the server's settings");
    config->footer(
        "SECTION is ServerSettings, StartSet, Settings or Cluster; NAME is spelled as\n"
        "`vqctl config list` spells it. A VALUE that begins with - follows --:\n"
        "  vqctl config set Cluster ExtraArgs -- '--qos=low --time=30'");
    config->require_subcommand(1);
    auto args = std::make_shared<ConfigArgs>();

    CLI::App* get = config->add_subcommand("get", "Print the value in force of one setting");
    get->add_option("SECTION", args->section, "the section")->required();
    get->add_option("NAME", args->name, "the setting's name")->required();
    get->callback([args, &exitCode] {
        Guarded("get", exitCode, [&](vq::Registry& reg) {
            return Get(reg, KnownSetting(KnownSettings(reg), args->section, args->name));
        });
    });

    CLI::App* set = config->add_subcommand("set", "Store the value of one setting");
    set->add_option("SECTION", args->section, "the section")->required();
    set->add_option("NAME", args->name, "the setting's name")->required();
    set->add_option("VALUE", args->value, "the new value, of the setting's type and range")
        ->required();
    set->add_flag("--integer", args->integer, "store a number in integer form rather than as text");
    set->callback([args, &exitCode] {
        Guarded("set", exitCode, [&](vq::Registry& reg) {
            const std::vector<vq::SettingDef> known = KnownSettings(reg);
            return Set(reg, KnownSetting(known, args->section, args->name), args->value,
                       args->integer);
        });
    });

    CLI::App* list = config->add_subcommand("list", "Print every setting with its value in force");
    list->add_option("SECTION", args->section, "only this section");
    list->callback([args, &exitCode] {
        Guarded("list", exitCode, [&](vq::Registry& reg) {
            const std::string section = args->section.empty() ? "" : KnownSection(args->section);
            return List(reg, KnownSettings(reg), section);
        });
    });
}

}  // namespace vqctl
