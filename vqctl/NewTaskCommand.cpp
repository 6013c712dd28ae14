// vqctl new-task: writes a task file that the server accepts, from options.
#include <pwd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "calendar/Common.h"
#include "calendar/DateTime.h"
#include "calendar/MUrnik.h"
#include "platform/Error.h"
#include "platform/Clock.h"
#include "storage/Enkripcija.h"
#include "storage/TaskFile.h"
#include "vqctl/Commands.h"

namespace vqctl {
namespace {

int Fail(const std::string& message) {
    std::fprintf(stderr, "vqctl new-task: %s\n(see vqctl new-task --help)\n", message.c_str());
    return 2;
}

bool IsDigits(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

std::string LoginName() {
    if (const passwd* entry = ::getpwuid(::geteuid()); entry && entry->pw_name)
        return entry->pw_name;
    const char* user = std::getenv("USER");
    return user ? user : "";
}

std::string FileBaseName(const std::string& path) {
    std::string name = path.substr(path.find_last_of('/') + 1);
    if (name.size() > 4 && vq::ToUpper(name.substr(name.size() - 4)) == ".VQF")
        name.resize(name.size() - 4);
    return name;
}

// "2h", "10m", "1h30m" or "1:30": hours and minutes, each 0 to 99.
bool ParseInterval(const std::string& text, int& hours, int& minutes) {
    hours = minutes = 0;
    const size_t colon = text.find(':');
    std::string h, m;
    if (colon != std::string::npos) {
        h = text.substr(0, colon);
        m = text.substr(colon + 1);
    } else {
        const size_t hAt = text.find('h');
        if (hAt != std::string::npos) h = text.substr(0, hAt);
        const std::string rest = hAt == std::string::npos ? text : text.substr(hAt + 1);
        if (!rest.empty()) {
            if (rest.back() != 'm') return false;
            m = rest.substr(0, rest.size() - 1);
        }
        if (h.empty() && m.empty()) return false;
    }
    for (const std::string* part : {&h, &m})
        if (!part->empty() && (!IsDigits(*part) || part->size() > 2)) return false;
    hours = h.empty() ? 0 : std::stoi(h);
    minutes = m.empty() ? 0 : std::stoi(m);
    return hours + minutes > 0;
}

// A list such as "1,15,20-25" of numbers `low` to `high` (or of names, through `number`)
// marked with "X" in `mask`, whose position 0 stands for `low`.
bool MarkList(const std::string& text, int low, int high,
              const std::function<int(const std::string&)>& number, std::string& mask) {
    size_t from = 0;
    while (from <= text.size()) {
        size_t end = text.find(',', from);
        if (end == std::string::npos) end = text.size();
        const std::string item = text.substr(from, end - from);
        from = end + 1;
        const size_t dash = item.find('-');
        const int first = number(item.substr(0, dash));
        const int last = dash == std::string::npos ? first : number(item.substr(dash + 1));
        if (first < low || last > high || first > last) return false;
        for (int i = first; i <= last; ++i) mask[static_cast<size_t>(i - low)] = 'X';
    }
    return true;
}

int DayNumber(const std::string& text) {
    return IsDigits(text) && text.size() <= 2 ? std::stoi(text) : -1;
}

int WeekdayNumber(const std::string& text) {
    static const char* const kNames[] = {"SUN", "MON", "TUE", "WED", "THU", "FRI", "SAT"};
    for (int i = 0; i < 7; ++i)
        if (vq::ToUpper(text) == kNames[i]) return i;
    return -1;
}

// The defaults of a new task on this computer, scheduled now; names come from the options.
vq::TaskFileData DefaultTask() {
    vq::SystemClock clock;
    return vq::NewTaskFile("", vq::ToUpper(vq::GetComputerNameText()), LoginName(),
                           vq::FormatDateTime(clock.Now()));
}

// MIN or MIN-MAX, each 0 to 99.
bool ParseRange(const std::string& text, std::string& low, std::string& high) {
    const size_t dash = text.find('-');
    low = text.substr(0, dash);
    high = dash == std::string::npos ? low : text.substr(dash + 1);
    if (!IsDigits(low) || !IsDigits(high) || low.size() > 2 || high.size() > 2) return false;
    return std::stoi(low) <= std::stoi(high);
}

// What the options have given so far.
struct NewTask {
    vq::TaskFileData task = DefaultTask();
    std::optional<std::string> name, report, file;
    std::string password;
    bool encrypted = false;
    // The schedule options build the repeat string in place of --repeat.
    vq::RepeatRule schedule;
    bool scheduleGiven = false, repeatGiven = false;

    vq::TaskGeneral& General() { return task.general; }
    vq::TaskStep& Step() { return task.steps.back(); }
};

// Applies one option's value; the empty text, or what is wrong with the value.
using Apply = std::function<std::string(NewTask&, const std::string&)>;

enum class Kind { Task, Step, Flag, StepFlag };

struct OptionDef {
    const char* name;
    const char* value;  // the name of its value in the help
    const char* help;
    Kind kind;
    Apply apply;
};

std::string Keep(std::string& target, const std::string& value) {
    target = value;
    return "";
}

// The options in the order of the help; step options act on the --step given last before them.
const std::vector<OptionDef>& OptionDefs() {
    static const std::vector<OptionDef> defs = {
        {"--name", "NAME", "task name (default: FILE's name without .vqf)", Kind::Task,
         [](NewTask& t, const std::string& v) {
             t.name = v;
             return std::string();
         }},
        {"--class", "LETTER", "task class, A to Z (default A)", Kind::Task,
         [](NewTask& t, const std::string& v) {
             const std::string letter = vq::ToUpper(v);
             if (letter.size() != 1 || letter[0] < 'A' || letter[0] > 'Z')
                 return std::string("--class takes a letter A to Z");
             return Keep(t.General().TaskClass, letter);
         }},
        {"--priority", "CODE",
         "queue priority: 0 or 1 as they stand, 2 low, 3 normal, 4 high, 5 highest (default 3)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             if (v.size() != 1 || v[0] < '0' || v[0] > '5')
                 return std::string("--priority takes a code 0 to 5");
             return Keep(t.General().QueuePriority, v);
         }},
        {"--cpu-priority", "NN",
         "CPU priority as class digit and level digit: class 0 Low, 1 BelowNormal, 2 Normal, "
         "3 AboveNormal, 4 High; level 0 to 6 (default 22, Normal 2)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             if (v.size() != 2 || v[0] < '0' || v[0] > '4' || v[1] < '0' || v[1] > '6')
                 return std::string(
                     "--cpu-priority takes a class digit 0 to 4 and a level digit 0 to 6, such as "
                     "22");
             return Keep(t.General().CpuPriority, v);
         }},
        {"--at", "DATETIME",
         "scheduled time, \"yyyy-mm-dd hh:mm:ss\", \"yyyy-mm-dd hh:mm\" or \"yyyy-mm-dd\" "
         "(default: now)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             vq::VqDate date = 0;
             if (!vq::TryReadDate(v, date))
                 return "--at takes \"yyyy-mm-dd hh:mm:ss\": '" + v + "'";
             return Keep(t.General().ScheduledTime, vq::FormatDateTime(date));
         }},
        {"--repeat", "TEXT",
         "repeat string: 4 digits of times, 31 month-day and 7 week-day marks, 2 digits of hours, "
         "2 of minutes, then ED, WD, WDH, SS or SSH (default: a single run)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             try {
                 vq::ParseRepeat(v);
             } catch (const vq::VqError& e) {
                 return std::string("--repeat: ") + e.what();
             }
             t.repeatGiven = true;
             return Keep(t.General().TaskRepeat, v);
         }},
        {"--every", "INTERVAL",
         "repeat within the day every INTERVAL: 2h, 10m, 1h30m or 1:30 (hours and minutes up to "
         "99 each)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             t.scheduleGiven = true;
             if (!ParseInterval(v, t.schedule.EveryHours, t.schedule.EveryMinutes))
                 return "--every takes 2h, 10m, 1h30m or 1:30: '" + v + "'";
             return std::string();
         }},
        {"--times", "N",
         "with --every: runs a day, 0 for no limit; without: runs on that many qualifying days "
         "(default 0: a single run)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             t.scheduleGiven = true;
             if (!IsDigits(v) || v.size() > 4) return std::string("--times takes a number 0 to 9999");
             t.schedule.Times = std::stoi(v);
             return std::string();
         }},
        {"--days", "LIST", "days of the month the task may run on, such as 1,15,28-31",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             t.scheduleGiven = true;
             if (!MarkList(v, 1, 31, DayNumber, t.schedule.MonthDays))
                 return "--days takes days 1 to 31 such as 1,15,28-31: '" + v + "'";
             return std::string();
         }},
        {"--weekdays", "LIST", "days of the week the task may run on, such as mon-fri or sat,sun",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             t.scheduleGiven = true;
             if (!MarkList(v, 0, 6, WeekdayNumber, t.schedule.WeekDays))
                 return "--weekdays takes sun, mon, tue, wed, thu, fri, sat such as mon-fri: '" +
                        v + "'";
             return std::string();
         }},
        {"--mode", "MODE",
         "kind of day: ED every day, WD working day, WDH working day but holidays, SS Saturday "
         "and Sunday, SSH Saturday, Sunday and holidays (default ED)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             t.scheduleGiven = true;
             const std::string mode = vq::ToUpper(v);
             if (mode != "ED" && vq::ModeNumber(mode) == 0)
                 return "--mode takes ED, WD, WDH, SS or SSH: '" + v + "'";
             return Keep(t.schedule.Mode, mode);
         }},
        {"--max-rc", "N",
         "highest task return code that counts as success (default 1: the last step exited 0)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             if (!IsDigits(v) || v.size() > 2)
                 return std::string("--max-rc takes a number 0 to 99");
             return Keep(t.General().MaxRC, v);
         }},
        {"--max-time", "SECONDS", "longest running time in seconds, 0 for no limit (default 0)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             if (!IsDigits(v) || v.size() > 9)
                 return std::string("--max-time takes a number of seconds");
             return Keep(t.General().MaxTime, v);
         }},
        {"--after,--depends", "TASK",
         "start only after the task named TASK has ended successfully", Kind::Task,
         [](NewTask& t, const std::string& v) { return Keep(t.General().Dependent, v); }},
        {"--report", "NAME", "name of the task report file, without .txt (default: the task name)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             t.report = v;
             return std::string();
         }},
        {"--user", "NAME", "user the steps run as (default $LOCALUSER$, the user logged on)",
         Kind::Task, [](NewTask& t, const std::string& v) { return Keep(t.General().User, v); }},
        {"--domain", "NAME", "that user's domain (default $LOCALS$, no domain)", Kind::Task,
         [](NewTask& t, const std::string& v) { return Keep(t.General().Domain, v); }},
        {"--password", "TEXT", "that user's password, stored scrambled (default: empty)",
         Kind::Task, [](NewTask& t, const std::string& v) { return Keep(t.password, v); }},
        {"--server", "NAME", "computer that runs the task (default: this computer)", Kind::Task,
         [](NewTask& t, const std::string& v) { return Keep(t.General().Server, vq::ToUpper(v)); }},
        {"--encrypted", "", "write the encrypted form of the file", Kind::Flag,
         [](NewTask& t, const std::string&) {
             t.encrypted = true;
             return std::string();
         }},
        {"--step", "COMMAND", "adds a step that runs COMMAND with /bin/sh -c (at least one step)",
         Kind::Task,
         [](NewTask& t, const std::string& v) {
             t.task.steps.push_back(vq::NewTaskStep(v, t.task.steps.size() + 1));
             return std::string();
         }},
        {"--step-name", "NAME", "name of the step (default \"Step N\")", Kind::Step,
         [](NewTask& t, const std::string& v) { return Keep(t.Step().StepName, v); }},
        {"--dir", "FOLDER", "working folder (default: the task's own folder)", Kind::Step,
         [](NewTask& t, const std::string& v) { return Keep(t.Step().WorkingDirectory, v); }},
        {"--rc", "MIN[-MAX]",
         "the step runs when the task's return code lies in MIN to MAX; a step's return "
         "code is its exit status plus 1, and the task starts at 1 (default 1-1: run when the step "
         "before exited 0)",
         Kind::Step,
         [](NewTask& t, const std::string& v) {
             if (!ParseRange(v, t.Step().MinRC, t.Step().MaxRC))
                 return "--rc takes MIN or MIN-MAX, numbers 0 to 99 with MIN not above MAX: '" + v +
                        "'";
             return std::string();
         }},
        {"--env", "NAME=VALUE", "adds an environment variable for the step (may be repeated)",
         Kind::Step,
         [](NewTask& t, const std::string& v) {
             const size_t equals = v.find('=');
             if (equals == std::string::npos || equals == 0)
                 return "--env takes NAME=VALUE: '" + v + "'";
             std::string& environment = t.Step().Environment;
             environment += (environment.empty() ? "" : "\r\n") + v;
             return std::string();
         }},
        {"--file-rc", "FILE", "take the step's return code from FILE when the command has ended",
         Kind::Step, [](NewTask& t, const std::string& v) { return Keep(t.Step().FileRC, v); }},
        {"--skip", "", "write the step but don't run it", Kind::StepFlag,
         [](NewTask& t, const std::string&) { return Keep(t.Step().Execute, "0"); }},
    };
    return defs;
}

// What the options left unsaid follows from the file's name; the names must suit folders.
std::string Complete(NewTask& t, const std::vector<std::string>& files) {
    if (files.empty()) return "no FILE given";
    if (files.size() > 1) return "more than one FILE: '" + files[0] + "' and '" + files[1] + "'";
    t.file = files[0];
    if (t.task.steps.empty()) return "a task needs at least one --step";
    if (t.password.size() > vq::kBlockSize - 1) return "--password takes at most 39 characters";
    vq::TaskGeneral& g = t.General();
    if (t.scheduleGiven && t.repeatGiven)
        return "--repeat can't be given with --every, --times, --days, --weekdays or --mode";
    if (t.scheduleGiven) g.TaskRepeat = vq::FormatRepeat(t.schedule);
    g.TaskName = t.name.value_or(FileBaseName(*t.file));
    g.TaskReportFile = t.report.value_or(g.TaskName);
    g.Password = vq::HexEncode(vq::ScrambleBlock("E", t.password));
    return vq::FileSystemNameProblem(g);
}

int Write(NewTask& t) {
    std::string error;
    if (!vq::SaveTaskFile(*t.file, t.task, t.encrypted, &error)) {
        std::fprintf(stderr, "vqctl new-task: cannot write the task file: %s\n", error.c_str());
        return 1;
    }
    const size_t steps = t.task.steps.size();
    std::printf("%s: task \"%s\", %zu step%s%s\n", t.file->c_str(), t.General().TaskName.c_str(),
                steps, steps == 1 ? "" : "s", t.encrypted ? ", encrypted" : "");
    return 0;
}

struct Registered {
    std::vector<std::pair<const CLI::Option*, const OptionDef*>> options;
    std::vector<std::string> files;
};

// The options in the order given, each with its value: a step option acts on the step before.
int Run(const CLI::App& command, const Registered& registered) {
    NewTask t;
    std::map<const CLI::Option*, size_t> used;
    for (const CLI::Option* option : command.parse_order()) {
        const OptionDef* def = nullptr;
        for (const auto& [registeredOption, registeredDef] : registered.options)
            if (registeredOption == option) def = registeredDef;
        if (!def) continue;
        const bool stepOption = def->kind == Kind::Step || def->kind == Kind::StepFlag;
        if (stepOption && t.task.steps.empty())
            return Fail(std::string(def->name) + " must follow a --step");
        const std::string problem = def->apply(t, option->results().at(used[option]++));
        if (!problem.empty()) return Fail(problem);
    }
    if (const std::string problem = Complete(t, registered.files); !problem.empty())
        return Fail(problem);
    return Write(t);
}

}  // namespace

std::string WriteOneStepTask(const std::vector<std::pair<std::string, std::string>>& options,
                             const std::string& command, const std::string& path) {
    NewTask t;
    t.task.steps.push_back(vq::NewTaskStep(command, 1));
    for (const auto& [name, value] : options) {
        const auto& defs = OptionDefs();
        const auto def = std::find_if(defs.begin(), defs.end(), [&](const OptionDef& d) {
            return d.kind == Kind::Task && (std::string(d.name) + ",").find(name + ",") == 0;
        });
        if (def == defs.end()) return "no task option " + name;
        if (std::string problem = def->apply(t, value); !problem.empty()) return problem;
    }
    if (std::string problem = Complete(t, {path}); !problem.empty()) return problem;
    std::string error;
    if (!vq::SaveTaskFile(path, t.task, false, &error)) return "cannot write the task file: " + error;
    return {};
}

void AddNewTaskCommand(CLI::App& app, int& exitCode) {
    CLI::App* command = app.add_subcommand("new-task", "Write a task file");
    command->footer(
        "Writes the task file FILE (.vqf) for the Orvantis Personal Server. Hand it in by putting\n"
        "it into the queue's $InQ folder and submitting its name. Step options act on the --step\n"
        "given last before them.\n\nExample:\n"
        "  vqctl new-task --name nightly --step 'make -C ~/src' --step 'make -C ~/src check' "
        "nightly.vqf");
    auto registered = std::make_shared<Registered>();
    for (const OptionDef& def : OptionDefs()) {
        const bool flag = def.kind == Kind::Flag || def.kind == Kind::StepFlag;
        CLI::Option* option = flag ? command->add_flag(def.name) : command->add_option(def.name);
        option->description(def.help)->type_name(def.value);
        option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        if (def.kind == Kind::Step || def.kind == Kind::StepFlag) option->group("Step options");
        registered->options.push_back({option, &def});
    }
    command->add_option("FILE", registered->files, "the task file to write (.vqf)");
    command->callback([command, registered, &exitCode] { exitCode = Run(*command, *registered); });
}

}  // namespace vqctl
