// vqserv: the Orvantis Personal Server.
#include <CLI/CLI.hpp>
#include <QApplication>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QSessionManager>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "app/ServerProcess.h"
#include "console/DialogOperator.h"
#include "console/Form1.h"
#include "console/ShrForm.h"
#include "console/StepsToolWin.h"
#include "console/VqSupport.h"
#include "console/frmAbout.h"
#include "console/frmLog.h"
#include "console/frmOptions.h"
#include "console/frmSplash.h"
#include "core/Server.h"
#include "platform/DisplayProbe.h"

namespace {

std::string VersionText() {
    return vq::kAppTitle + " " + vq::VersionNumberText();
}

// The options; the other words, joined by blanks, are the command line that start-up compares.
struct Options {
    vq::StartRequest request;
    std::vector<std::string> words;
    bool headless = false;
};

// A window needs a display that answers; a stale one (a closed SSH forwarding, an ended
// session) would end the process in the toolkit, so the server serves without a window.
bool DisplayAvailable() {
    const vq::DisplayEnvironment env = vq::DisplayEnvironment::FromProcess();
    if (env.display.empty() && env.waylandDisplay.empty() && env.qtPlatform.empty()) return false;
    if (vq::DisplayReachable(env)) return true;
    std::fprintf(stderr,
                 "vqserv: no display answers (DISPLAY=%s, WAYLAND_DISPLAY=%s); serving without a "
                 "window\n",
                 env.display.c_str(), env.waylandDisplay.c_str());
    return false;
}

int RunHeadless(int argc, char** argv, const vq::StartRequest& request) {
    QCoreApplication qtApp(argc, argv);
    std::setlocale(LC_ALL, "");
    vq::ServerProcess process;
    const int code = process.Start(request);
    if (code >= 0) return code;
    return qtApp.exec();
}

// The operator's window over the same engine: messages in boxes over it, its closing path
// for the close box, Exit, the session's end and the close signals.
int RunWithWindow(int argc, char** argv, vq::StartRequest request) {
    QApplication qtApp(argc, argv);
    std::setlocale(LC_ALL, "");
    QApplication::setQuitOnLastWindowClosed(true);
    vq::DialogOperator dialogs;
    vq::ServerProcess process(&dialogs);
    vq::Server& server = process.GetServer();
    // The splash comes with the first status word and stands under the first start's question.
    vq::frmSplash splash;
    request.showStatus = vq::SplashStatus(splash);
    request.chooseQueueFolder = vq::QueueFolderChooser(server, &splash);
    const int code = process.Start(request);
    if (code >= 0) return code;

    vq::Form1 window(server);
    window.ShowQueueFolderDialog = [&window, &server] { vq::ShowQueueFolderDialog(&window, server); };
    window.ShowServerLog = [&window, &server] { vq::ShowServerLog(&window, server); };
    window.OpenPropertiesWindow = [&window, &server](const std::string& key) {
        vq::ShowPropertiesWindow(&window, server, key, [&window] { window.mnuViewRefresh_Click(); });
    };
    window.ShowOptionsDialog = [&window, &server] { vq::ShowOptionsDialog(window, server); };
    window.ShowSupportPage = [&window, &server] { vq::ShowSupportPage(&window, server); };
    window.ShowAboutBox = [&window, &server] { vq::ShowAboutBox(&window, server); };
    dialogs.SetParent(&window);
    process.SetWindow(
        &window, [&window] { window.CloseBySystem(); },
        [&window] {
            window.showNormal();
            window.raise();
            window.activateWindow();
        });
    // The session ending asks the window to close as the system would.
    QObject::connect(&qtApp, &QGuiApplication::commitDataRequest, &window,
                     [&window](QSessionManager&) { window.CloseBySystem(); });
    window.LoadAtStart();
    splash.close();
    window.ShowAtStart();
    const int result = qtApp.exec();
    process.SetWindow(nullptr, {}, {});
    return result;
}

void AddOptions(CLI::App& app, Options& options) {
    app.add_flag("--headless", options.headless,
                 "run without a window; a start without a display that answers (DISPLAY, "
                 "WAYLAND_DISPLAY or QT_QPA_PLATFORM) runs so too");
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

    if (options.headless || !DisplayAvailable()) return RunHeadless(argc, argv, options.request);
    return RunWithWindow(argc, argv, options.request);
}
