// vqctl: the command-line client of the Orvantis Personal Server.
#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdio>
#include <string>

#include "access/ServerTaskCalls.h"
#include "vqctl/Commands.h"

namespace {

// "vqctl" and the names of the commands chosen so far, such as "vqctl config set".
std::string CommandPath(const CLI::App& app) {
    std::string path = "vqctl";
    const CLI::App* at = &app;
    while (!at->get_subcommands().empty()) {
        at = at->get_subcommands().front();
        path += " " + at->get_name();
    }
    return path;
}

int UsageError(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv) {
    const std::string path = CommandPath(app);
    if (path == "vqctl" && argc > 1 && argv[1][0] != '-')
        std::fprintf(stderr, "vqctl: unknown command '%s'\n", argv[1]);
    else
        std::fprintf(stderr, "%s: %s\n", path.c_str(), error.what());
    if (path == "vqctl")
        std::fputs(app.help().c_str(), stderr);
    else
        std::fprintf(stderr, "(see %s --help)\n", path.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    CLI::App app{"The command-line client of the Orvantis Personal Server.", "vqctl"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "vqctl " + vq::ServerTaskCalls::ServerVersion());
    int exitCode = 0;
    vqctl::AddConfigCommands(app, exitCode);
    vqctl::AddNewTaskCommand(app, exitCode);
    vqctl::AddScheduleCommands(app, exitCode);
    vqctl::AddServerCommands(app, exitCode);
    vqctl::AddConsoleCommands(app, exitCode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // --help comes as a "parse error" of exit code 0.
        return error.get_exit_code() == 0 ? app.exit(error) : UsageError(app, error, argc, argv);
    }
    return exitCode;
}
