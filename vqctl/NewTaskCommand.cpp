// vqctl new-task: writes a task file that the server accepts, from options.
#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <optional>

#include "calendar/Common.h"
#include "calendar/DateTime.h"
#include "platform/Clock.h"
#include "storage/Enkripcija.h"
#include "storage/TaskFile.h"
#include "vqctl/Commands.h"

namespace vqctl {
namespace {

const char* const kUsage =
    "usage: vqctl new-task [TASK OPTIONS] --step COMMAND [STEP OPTIONS] [--step COMMAND ...] FILE\n"
    "\n"
    "Writes the task file FILE (.vqf) for the Orvantis Personal Server. Hand it in by putting it\n"
    "into the queue's $InQ folder and submitting its name.\n"
    "\n"
    "Task options:\n"
    "  --name NAME          task name (default: FILE's name without .vqf)\n"
    "  --class LETTER       task class, A to Z (default A)\n"
    "  --priority CODE      queue priority: 0 or 1 as they stand, 2 low, 3 normal, 4 high,\n"
    "                       5 highest (default 3)\n"
    "  --cpu-priority NN    CPU priority as class digit and level digit: class 0 Low,\n"
    "                       1 BelowNormal, 2 Normal, 3 AboveNormal, 4 High; level 0 to 6\n"
    "                       (default 22, Normal 2)\n"
    "  --at DATETIME        scheduled time, \"yyyy-mm-dd hh:mm:ss\", \"yyyy-mm-dd hh:mm\" or\n"
    "                       \"yyyy-mm-dd\" (default: now)\n"
    "  --repeat TEXT        repeat string: 4 digits of times, 31 month-day and 7 week-day marks,\n"
    "                       2 digits of hours, 2 of minutes, then ED, WD, WDH, SS or SSH\n"
    "                       (default: a single run)\n"
    "  --max-rc N           highest task return code that counts as success (default 1: the\n"
    "                       last step exited 0)\n"
    "  --max-time SECONDS   longest running time, 0 for no limit (default 0)\n"
    "  --depends TASK       start only after the task named TASK has ended\n"
    "  --report NAME        name of the task report file, without .txt (default: the task name)\n"
    "  --user NAME          user the steps run as (default $LOCALUSER$, the user logged on)\n"
    "  --domain NAME        that user's domain (default $LOCALS$, no domain)\n"
    "  --password TEXT      that user's password, stored scrambled (default: empty)\n"
    "  --server NAME        computer that runs the task (default: this computer)\n"
    "  --encrypted          write the encrypted form of the file\n"
    "\n"
    "Step options, for the --step given last before them:\n"
    "  --step COMMAND       adds a step that runs COMMAND with /bin/sh -c (at least one step)\n"
    "  --step-name NAME     name of the step (default \"Step N\")\n"
    "  --dir FOLDER         working folder (default: the task's own folder)\n"
    "  --rc MIN[-MAX]       the step runs when the task's return code lies in MIN to MAX;\n"
    "                       a step's return code is its exit status plus 1, and the task starts\n"
    "                       at 1 (default 1-1: run when the step before exited 0)\n"
    "  --env NAME=VALUE     adds an environment variable for the step (may be repeated)\n"
    "  --file-rc FILE       take the step's return code from FILE when the command has ended\n"
    "  --skip               write the step but don't run it\n"
    "\n"
    "Example:\n"
    "  vqctl new-task --name nightly --step 'make -C ~/src' --step 'make -C ~/src check' "
    "nightly.vqf\n";

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

bool ValidRepeat(const std::string& repeat) {
    if (repeat.size() < 47) return false;
    return IsDigits(repeat.substr(0, 4)) && IsDigits(repeat.substr(42, 4));
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

}  // namespace

int NewTaskCommand(const Args& args) {
    vq::TaskFileData task = DefaultTask();
    vq::TaskGeneral& g = task.general;
    std::optional<std::string> name, report, file;
    std::string password;
    bool encrypted = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& option = args[i];
        if (option == "--help" || option == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (option == "--encrypted") {
            encrypted = true;
            continue;
        }
        if (option == "--skip") {
            if (task.steps.empty()) return Fail("--skip must follow a --step");
            task.steps.back().Execute = "0";
            continue;
        }
        if (option.rfind("--", 0) != 0) {
            if (file) return Fail("more than one FILE: '" + *file + "' and '" + option + "'");
            file = option;
            continue;
        }
        if (i + 1 >= args.size()) return Fail("option " + option + " needs a value");
        const std::string value = args[++i];
        vq::TaskStep* step = task.steps.empty() ? nullptr : &task.steps.back();
        const bool stepOption = option == "--step-name" || option == "--dir" || option == "--rc" ||
                                option == "--env" || option == "--file-rc";
        if (stepOption && !step) return Fail(option + " must follow a --step");
        if (option == "--step") {
            task.steps.push_back(vq::NewTaskStep(value, task.steps.size() + 1));
        } else if (option == "--step-name") {
            step->StepName = value;
        } else if (option == "--dir") {
            step->WorkingDirectory = value;
        } else if (option == "--rc") {
            if (!ParseRange(value, step->MinRC, step->MaxRC))
                return Fail("--rc takes MIN or MIN-MAX, numbers 0 to 99 with MIN not above MAX: '" +
                            value + "'");
        } else if (option == "--env") {
            const size_t equals = value.find('=');
            if (equals == std::string::npos || equals == 0)
                return Fail("--env takes NAME=VALUE: '" + value + "'");
            step->Environment += (step->Environment.empty() ? "" : "\r\n") + value;
        } else if (option == "--file-rc") {
            step->FileRC = value;
        } else if (option == "--name") {
            name = value;
        } else if (option == "--class") {
            const std::string letter = vq::ToUpper(value);
            if (letter.size() != 1 || letter[0] < 'A' || letter[0] > 'Z')
                return Fail("--class takes a letter A to Z");
            g.TaskClass = letter;
        } else if (option == "--priority") {
            if (value.size() != 1 || value[0] < '0' || value[0] > '5')
                return Fail("--priority takes a code 0 to 5");
            g.QueuePriority = value;
        } else if (option == "--cpu-priority") {
            if (value.size() != 2 || value[0] < '0' || value[0] > '4' || value[1] < '0' ||
                value[1] > '6')
                return Fail(
                    "--cpu-priority takes a class digit 0 to 4 and a level digit 0 to 6, such as "
                    "22");
            g.CpuPriority = value;
        } else if (option == "--at") {
            vq::VqDate date = 0;
            if (!vq::TryReadDate(value, date))
                return Fail("--at takes \"yyyy-mm-dd hh:mm:ss\": '" + value + "'");
            g.ScheduledTime = vq::FormatDateTime(date);
        } else if (option == "--repeat") {
            if (!ValidRepeat(value))
                return Fail("--repeat takes a repeat string of at least 47 characters");
            g.TaskRepeat = value;
        } else if (option == "--max-rc") {
            if (!IsDigits(value) || value.size() > 2)
                return Fail("--max-rc takes a number 0 to 99");
            g.MaxRC = value;
        } else if (option == "--max-time") {
            if (!IsDigits(value) || value.size() > 9)
                return Fail("--max-time takes a number of seconds");
            g.MaxTime = value;
        } else if (option == "--depends") {
            g.Dependent = value;
        } else if (option == "--report") {
            report = value;
        } else if (option == "--user") {
            g.User = value;
        } else if (option == "--domain") {
            g.Domain = value;
        } else if (option == "--password") {
            password = value;
        } else if (option == "--server") {
            g.Server = vq::ToUpper(value);
        } else {
            return Fail("unknown option " + option);
        }
    }
    if (!file) return Fail("no FILE given");
    if (task.steps.empty()) return Fail("a task needs at least one --step");
    if (password.size() > vq::kBlockSize - 1) return Fail("--password takes at most 39 characters");
    g.TaskName = name.value_or(FileBaseName(*file));
    g.TaskReportFile = report.value_or(g.TaskName);
    g.Password = vq::HexEncode(vq::ScrambleBlock("E", password));
    if (const std::string problem = vq::FileSystemNameProblem(g); !problem.empty())
        return Fail(problem);

    std::string error;
    if (!vq::SaveTaskFile(*file, task, encrypted, &error)) {
        std::fprintf(stderr, "vqctl new-task: cannot write the task file: %s\n", error.c_str());
        return 1;
    }
    std::printf("%s: task \"%s\", %zu step%s%s\n", file->c_str(), g.TaskName.c_str(),
                task.steps.size(), task.steps.size() == 1 ? "" : "s",
                encrypted ? ", encrypted" : "");
    return 0;
}

}  // namespace vqctl
