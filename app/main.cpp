// vqserv: the Orvantis Personal Server.
#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <clocale>
#include <cstdio>
#include <string>
#include <vector>

#include "app/ServerProcess.h"
#include "core/Server.h"

namespace {

std::string VersionText() {
    return vq::kAppTitle + " " + std::to_string(vq::kVersionMajor) + "." +
           std::to_string(vq::kVersionMinor) + "." + std::to_string(vq::kVersionRevision);
}

// The options; the other words, joined by blanks, are the command line that start-up compares.
struct Options {
    vq::StartRequest request;
    std::vector<std::string> words;
};

void AddOptions(CLI::App& app, Options& options) {
    app.add_flag("--headless")->description("run without a window (every start does, for now)");
    app.add_option("--queue-root", options.request.queueRoot,
                   "serve the queue in DIR, made if missing, and remember it")
        ->type_name("DIR")
        ->check([](const std::string& value) {
            return value.empty() ? std::string("--queue-root needs a folder") : std::string();
        });
    app.set_version_flag("--version", VersionText());
    app.add_option("words", options.words, "LOGON (the start at logon) or /REGISTERCOM");
    app.footer(
        "SIGTERM, SIGINT (Ctrl-C) and SIGHUP close the server: the queue is saved and running "
        "tasks are cancelled.");
}

}  // namespace

int main(int argc, char** argv) {
    // Before anything else: a stop that arrives during start-up waits for the closing path.
    vq::ServerProcess::HoldCloseSignals();
    std::setlocale(LC_ALL, "");
    CLI::App app{vq::kAppTitle + ": a personal batch server.", "vqserv"};
    Options options;
    AddOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        std::fprintf(stderr, "vqserv: %s\n%s", error.what(), app.help().c_str());
        return 2;
    }
    for (const std::string& word : options.words)
        options.request.commandLine += (options.request.commandLine.empty() ? "" : " ") + word;

    // The window comes with the operator interface; until then every start is headless.
    QCoreApplication qtApp(argc, argv);
    std::setlocale(LC_ALL, "");
    vq::ServerProcess process;
    const int code = process.Start(options.request);
    if (code >= 0) return code;
    return qtApp.exec();
}
