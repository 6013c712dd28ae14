// vqctl's console of the queue: status, show, report, follow, log, queue, remove, add and
// wait, over the server's Extras interface. Exit code 0 done, 1 refused or (wait) failed,
// 2 for a usage error, an unknown key or when no server answers.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <QThread>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "access/ConsoleQueries.h"
#include "access/servertask/BusRows.h"
#include "calendar/Common.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "platform/UniqueFd.h"
#include "storage/Registry.h"
#include "storage/Settings.h"
#include "vqctl/Commands.h"
#include "vqctl/ServerConnection.h"

namespace vqctl {
namespace {

using Json = nlohmann::ordered_json;

// How often follow, log --follow and wait look again.
constexpr int kPollMs = 200;

vq::BusRows CallRows(ServerConnection& server, const char* member, const std::string& argument) {
    server.Call(kExtrasInterface, member, {ToQString(argument)});
    return qdbus_cast<vq::BusRows>(server.Answer().front());
}

vq::BusRow CallRow(ServerConnection& server, const char* member, const std::string& argument) {
    server.Call(kExtrasInterface, member, {ToQString(argument)});
    return qdbus_cast<vq::BusRow>(server.Answer().front());
}

std::string CellOf(const vq::BusRow& row, const std::string& name) {
    return row.Cell(ToQString(name)).toStdString();
}

Json ToJson(const vq::BusRow& row) {
    Json object = Json::object();
    for (const auto& [name, text] : row.cells) object[name.toStdString()] = text.toStdString();
    return object;
}

Json ToJson(const vq::BusRows& rows) {
    Json array = Json::array();
    for (const vq::BusRow& row : rows) array.push_back(ToJson(row));
    return array;
}

void PrintJson(const Json& document) { std::printf("%s\n", document.dump(2).c_str()); }

// The terminal colour of a status family; none for a finished task.
const char* FamilyColour(const std::string& status) {
    const std::string phase = vq::BaseStatus(status);
    if (phase == vq::kRunning) return "\033[32m";
    if (phase == vq::kReady) return "\033[36m";
    if (phase == vq::kWaiting) return "\033[33m";
    return nullptr;
}

bool ColoursWanted() { return ::isatty(STDOUT_FILENO) == 1 && !std::getenv("NO_COLOR"); }

// Columns padded to their widest cell, two blanks apart; the cells of `statusColumn` (when
// not -1) coloured by their status family.
void PrintTable(const std::vector<std::string>& headers,
                const std::vector<std::vector<std::string>>& rows, int statusColumn) {
    std::vector<size_t> widths(headers.size());
    for (size_t c = 0; c < headers.size(); ++c) {
        widths[c] = headers[c].size();
        for (const auto& row : rows) widths[c] = std::max(widths[c], row[c].size());
    }
    const bool colours = ColoursWanted();
    auto printRow = [&](const std::vector<std::string>& cells, bool isHeader) {
        std::string line;
        for (size_t c = 0; c < cells.size(); ++c) {
            const char* colour = !isHeader && colours && static_cast<int>(c) == statusColumn
                                     ? FamilyColour(cells[c])
                                     : nullptr;
            line += colour ? colour + cells[c] + "\033[0m" : cells[c];
            if (c + 1 < cells.size()) line += std::string(widths[c] - cells[c].size() + 2, ' ');
        }
        std::printf("%s\n", line.c_str());
    };
    printRow(headers, true);
    for (const auto& row : rows) printRow(row, false);
}

std::vector<std::vector<std::string>> CellsOf(const vq::BusRows& rows,
                                              const std::vector<std::string>& names) {
    std::vector<std::vector<std::string>> table;
    for (const vq::BusRow& row : rows) {
        std::vector<std::string> cells;
        for (const std::string& name : names) cells.push_back(CellOf(row, name));
        table.push_back(std::move(cells));
    }
    return table;
}

// "running" or "RUNNING" as the server spells the phase: "Running".
std::string PhaseWord(std::string text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        text[i] = static_cast<char>(i == 0 ? std::toupper(c) : std::tolower(c));
    }
    return text;
}

struct StatusOptions {
    std::string phase;
    bool json = false, keys = false;
};

int Status(const StatusOptions& options) {
    ServerConnection server("status");
    const std::string phase = PhaseWord(options.phase);
    if (options.json) {
        const std::string json = server.Call(kExtrasInterface, "TaskRowsJson", {ToQString(phase)})
                                     .toString()
                                     .toStdString();
        std::printf("%s\n", json.c_str());
        return 0;
    }
    // The table and the keys ask for their cells only.
    const std::vector<std::string> cells =
        options.keys ? std::vector<std::string>{vq::kRowKeyCell}
                     : std::vector<std::string>{vq::kRowKeyCell,  "JobName", "Status",
                                                "Queue Priority", "JobRC",   "SchTime",
                                                vq::kElapsedCell};
    QStringList names;
    for (const std::string& cell : cells) names.append(ToQString(cell));
    server.Call(kExtrasInterface, "TaskRowCells", {ToQString(phase), names});
    const vq::BusRows rows = qdbus_cast<vq::BusRows>(server.Answer().front());
    if (options.keys) {
        for (const vq::BusRow& row : rows)
            std::printf("%s\n", CellOf(row, vq::kRowKeyCell).c_str());
        return 0;
    }
    PrintTable({"Key", "Task Name", "Task Status", "Queue Priority", "Task RC", "Scheduled Time",
                "Elapsed"},
               CellsOf(rows, cells), 2);
    return 0;
}

int Show(const std::string& key, bool json) {
    ServerConnection server("show");
    const vq::BusRow task = CallRow(server, "TaskRow", key);
    const vq::BusRows steps = CallRows(server, "StepRows", key);
    if (json) {
        PrintJson(Json{{"task", ToJson(task)}, {"steps", ToJson(steps)}});
        return 0;
    }
    size_t width = 0;
    for (const auto& cell : task.cells)
        width = std::max(width, static_cast<size_t>(cell.first.size()));
    for (const auto& [name, text] : task.cells)
        std::printf("%-*s  %s\n", static_cast<int>(width), name.toStdString().c_str(),
                    text.toStdString().c_str());
    std::printf("\n");
    if (steps.isEmpty()) {
        std::printf("(no steps)\n");
        return 0;
    }
    // The steps as the step list shows them, with their command; the output files are in --json.
    std::vector<std::string> names;
    for (const auto& cell : steps.front().cells) {
        const std::string name = cell.first.toStdString();
        if (name != vq::kRowKeyCell && name != vq::kOutputFileCell) names.push_back(name);
    }
    PrintTable(names, CellsOf(steps, names), 1);
    return 0;
}

int Report(const std::string& key) {
    ServerConnection server("report");
    const std::string text =
        server.Call(kExtrasInterface, "TaskReport", {ToQString(key)}).toString().toStdString();
    std::fwrite(text.data(), 1, text.size(), stdout);
    return 0;
}

// Writes what the file holds behind `offset` to standard output and moves `offset` on; a
// file that has shrunk (a cleared log) is read from its start again.
void CopyNewBytes(const std::string& path, off_t& offset) {
    vq::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat st {};
    if (!fd.Valid() || ::fstat(fd.Get(), &st) != 0) return;
    if (st.st_size < offset) offset = 0;
    char buffer[65536];
    ssize_t got;
    while ((got = ::pread(fd.Get(), buffer, sizeof buffer, offset)) > 0) {
        std::fwrite(buffer, 1, static_cast<size_t>(got), stdout);
        offset += got;
    }
    std::fflush(stdout);
}

bool HasEnded(const vq::BusRow& task) {
    return vq::BaseStatus(CellOf(task, "Status")) == vq::kComplete;
}

// The output of each step in turn, a running one as it grows, until the task has ended.
int Follow(const std::string& key) {
    ServerConnection server("follow");
    size_t step = 0;
    off_t offset = 0;
    for (;;) {
        // The status first: steps read after it are at least as far on.
        const bool ended = HasEnded(CallRow(server, "TaskRow", key));
        const vq::BusRows steps = CallRows(server, "StepRows", key);
        while (step < static_cast<size_t>(steps.size())) {
            const std::string status = CellOf(steps[step], "StepStatus");
            const bool neverRuns =
                status == vq::kStepSkipped || (status == vq::kStepPending && ended);
            if (status == vq::kStepPending && !ended) break;
            if (!neverRuns) CopyNewBytes(CellOf(steps[step], vq::kOutputFileCell), offset);
            if (status == vq::kStepRunning) break;
            ++step;
            offset = 0;
        }
        if (ended) return 0;
        QThread::msleep(kPollMs);
    }
}

// The queue folder that the settings name, so that the log of a server that has stopped can be
// read too; empty when none is stored or the settings can't be read.
std::string StoredQueueRoot() {
    try {
        vq::Registry registry(vq::Registry::DefaultDatabasePath(),
                              vq::Registry::DefaultAutostartDir());
        return vq::GetSettingText(registry, "ServerSettings", "ServPath");
    } catch (const std::exception&) {
        return {};
    }
}

int Log(bool follow) {
    std::string root = StoredQueueRoot();
    if (root.empty()) root = ServerConnection("log").QueueRoot();
    const std::string path = vq::WithBackslash(root) + "$Data/SrvLog.txt";
    off_t offset = 0;
    CopyNewBytes(path, offset);
    if (!follow) {
        if (offset == 0) std::printf("There Are No Errors In Log\n");
        return 0;
    }
    for (;;) {
        QThread::msleep(kPollMs);
        CopyNewBytes(path, offset);
    }
}

int Queue(const std::string& action) {
    ServerConnection server("queue");
    if (action == "start") server.Call(kExtrasInterface, "StartQueue", {});
    if (action == "stop") server.Call(kExtrasInterface, "StopQueue", {});
    const bool runs = server.Property(kExtrasInterface, "QueueRuns").toBool();
    std::printf("%s\n", runs ? "The queue runs." : "The queue is stopped.");
    return 0;
}

int Remove(const std::string& key) {
    ServerConnection server("remove");
    server.Call(kExtrasInterface, "RemoveTask", {ToQString(key)});
    return 0;
}

int Wait(const std::string& key) {
    ServerConnection server("wait");
    for (;;) {
        const vq::BusRow task = CallRow(server, "TaskRow", key);
        if (HasEnded(task)) {
            const std::string status = CellOf(task, "Status"), rc = CellOf(task, "JobRC"),
                              maxRc = CellOf(task, "MaxRC");
            if (status == vq::kComplete && vq::Val(rc) <= vq::Val(maxRc)) return 0;
            std::fprintf(stderr, "vqctl wait: %s ended \"%s\" with Task RC %s (Max RC %s)\n",
                         key.c_str(), status.c_str(), rc.c_str(), maxRc.c_str());
            return 1;
        }
        QThread::msleep(kPollMs);
    }
}

struct AddOptions {
    std::vector<std::pair<std::string, std::string>> taskOptions;
    std::vector<std::string> words;
};

// The task's name when none is given: the file name of the command's first word.
std::string NameOfCommand(const std::string& command) {
    const std::string word = command.substr(0, command.find_first_of(" \t"));
    const std::string name = word.substr(word.find_last_of('/') + 1);
    return name.empty() || name == "." || name == ".." ? "task" : name;
}

// The task file is written and checked first, so that a bad option is told without a server.
int Add(AddOptions options) {
    std::string command;
    for (const std::string& word : options.words) command += (command.empty() ? "" : " ") + word;
    const bool named = std::any_of(options.taskOptions.begin(), options.taskOptions.end(),
                                   [](const auto& option) { return option.first == "--name"; });
    if (!named) options.taskOptions.emplace_back("--name", NameOfCommand(command));

    char folder[] = "/tmp/vqctl-add-XXXXXX";
    if (!::mkdtemp(folder))
        Fail("add", 1, std::string("cannot make a temporary folder: ") + vq::ErrnoText(errno));
    // The file's name becomes part of the name in $InQ; the task's name is in the file.
    const std::string path = std::string(folder) + "/add.vqf";
    const std::string problem = WriteOneStepTask(options.taskOptions, command, path);
    const int exitCode = problem.empty() ? Guarded([&] {
        ServerConnection server("add");
        return SubmitFile(server, path);
    })
                                         : 2;
    ::unlink(path.c_str());
    ::rmdir(folder);
    if (!problem.empty()) Fail("add", 2, problem + "\n(see vqctl add --help)");
    return exitCode;
}

CLI::App* KeyCommand(CLI::App& app, const char* name, const char* description, std::string& key) {
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("KEY", key, "the task's key, such as 000042-Nightly")->required();
    return command;
}

}  // namespace

void AddConsoleCommands(CLI::App& app, int& exitCode) {
    auto key = std::make_shared<std::string>();

    auto status = std::make_shared<StatusOptions>();
    CLI::App* statusCommand =
        app.add_subcommand("status", "Show the queue as the main window's task list does");
    statusCommand->add_option(
        "--status", status->phase,
        "only the tasks of one status phase: running, ready, waiting or complete");
    CLI::Option* asJson = statusCommand->add_flag(
        "--json", status->json, "one JSON array of the task rows, cell names as keys");
    statusCommand->add_flag("--keys", status->keys, "only the task keys, one a line")
        ->excludes(asJson);
    statusCommand->footer(
        "The whole queue is listed in the task list's order; a phase lists its tasks from the\n"
        "last to the first, as the window shows a freshly chosen group. Colours by status\n"
        "family only when standard output is a terminal (and NO_COLOR is not set).");
    statusCommand->callback(
        [status, &exitCode] { exitCode = Guarded([&] { return Status(*status); }); });

    auto json = std::make_shared<bool>(false);
    CLI::App* show = KeyCommand(app, "show", "Show a task's cells and its steps", *key);
    show->add_flag("--json", *json, "one JSON object: {\"task\": {...}, \"steps\": [...]}");
    show->callback(
        [key, json, &exitCode] { exitCode = Guarded([&] { return Show(*key, *json); }); });

    KeyCommand(app, "report", "Print a task's report", *key)->callback([key, &exitCode] {
        exitCode = Guarded([&] { return Report(*key); });
    });
    KeyCommand(app, "follow",
               "Print what the task's steps print, as they print it, until the task ends", *key)
        ->callback([key, &exitCode] { exitCode = Guarded([&] { return Follow(*key); }); });

    auto follow = std::make_shared<bool>(false);
    CLI::App* log = app.add_subcommand(
        "log", "Print the server log (of the queue folder in the settings; a server need not run)");
    log->add_flag("-f,--follow", *follow, "go on printing what is added, until interrupted");
    log->callback([follow, &exitCode] { exitCode = Guarded([&] { return Log(*follow); }); });

    auto action = std::make_shared<std::string>();
    CLI::App* queue = app.add_subcommand(
        "queue",
        "Start or stop the queue (as Start Queue and Stop Queue), or tell whether it runs");
    queue->add_option("ACTION", *action, "start or stop; none to tell whether the queue runs")
        ->check(CLI::IsMember({"start", "stop"}));
    queue->callback([action, &exitCode] { exitCode = Guarded([&] { return Queue(*action); }); });

    KeyCommand(app, "remove", "Take a finished task out of the queue (its folder stays)", *key)
        ->callback([key, &exitCode] { exitCode = Guarded([&] { return Remove(*key); }); });

    auto add = std::make_shared<AddOptions>();
    CLI::App* addCommand =
        app.add_subcommand("add", "Hand in a task of one step that runs COMMAND; prints its key");
    struct TaskOption {
        const char *name, *value, *description;
    };
    const TaskOption taskOptions[] = {
        {"--name", "NAME", "task name (default: the command's first word)"},
        {"--class", "LETTER", "task class, A to Z (default A)"},
        {"--at", "DATETIME", "scheduled time, \"yyyy-mm-dd hh:mm:ss\" (default: now)"},
        {"--after", "NAME", "start only after the task of that name has ended successfully"}};
    for (const TaskOption& option : taskOptions) {
        const std::string name = option.name;
        addCommand
            ->add_option_function<std::string>(
                name,
                [add, name](const std::string& value) {
                    add->taskOptions.emplace_back(name, value);
                },
                option.description)
            ->type_name(option.value);
    }
    addCommand
        ->add_option("COMMAND", add->words,
                     "the command line, run with /bin/sh -c; its words are joined by blanks")
        ->required();
    addCommand->footer(
        "The task has the defaults of new-task: class A, queue priority 3, scheduled now, a "
        "single\n"
        "run. Example:\n  vqctl add --name backup -- rsync -a ~/docs /mnt/backup");
    addCommand->callback([add, &exitCode] { exitCode = Guarded([&] { return Add(*add); }); });

    KeyCommand(app, "wait", "Wait until the task ends", *key)
        ->footer(
            "Exit status 0 when the task ended \"Complete\" with its Task RC within its Max RC, 1 "
            "when\n"
            "it ended otherwise, 2 for an unknown key or when no server answers.")
        ->callback([key, &exitCode] { exitCode = Guarded([&] { return Wait(*key); }); });
}

}  // namespace vqctl
