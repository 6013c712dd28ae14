#pragma once
// The command groups of vqctl. Each adds its subcommands to the application; the callback of the
// command chosen sets the exit code: 0 done, 1 failed, 2 a usage error.
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace vqctl {

// config get|set|list: the server's settings.
void AddConfigCommands(CLI::App& app, int& exitCode);
// new-task: writes a task file.
void AddNewTaskCommand(CLI::App& app, int& exitCode);
// next-runs, next-run-time: the schedule calculation of the server, run here.
void AddScheduleCommands(CLI::App& app, int& exitCode);
// submit, exists, hold, resume, cancel, info, validate, requests, mkdir, version, type,
// location: calls of the running server over the session bus.
void AddServerCommands(CLI::App& app, int& exitCode);
// status, show, report, follow, log, queue, remove, add, wait: the queue as a console sees it.
void AddConsoleCommands(CLI::App& app, int& exitCode);

// Writes a task file of one step that runs `command`, with the defaults of new-task and the
// task options of new-task given in `options` (such as {"--name", "nightly"}). The empty text,
// or what is wrong.
std::string WriteOneStepTask(const std::vector<std::pair<std::string, std::string>>& options,
                             const std::string& command, const std::string& path);

}  // namespace vqctl
