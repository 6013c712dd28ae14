// vqserv: the Orvantis Personal Server.
#include <QCoreApplication>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>

#include "app/ServerProcess.h"

namespace {

void PrintUsage() {
    std::fputs("usage: vqserv [--headless] [--queue-root DIR] [LOGON | /REGISTERCOM]\n", stdout);
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    vq::StartRequest request;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--headless") continue;
        if (arg == "--queue-root" && i + 1 < argc) {
            request.queueRoot = argv[++i];
        } else if (arg.rfind("--queue-root=", 0) == 0) {
            request.queueRoot = arg.substr(std::strlen("--queue-root="));
        } else if (arg == "--help" || arg == "-h") {
            PrintUsage();
            return 0;
        } else {
            request.commandLine += (request.commandLine.empty() ? "" : " ") + arg;
        }
    }
    // The window comes with the operator interface; until then every start is headless.
    QCoreApplication app(argc, argv);
    std::setlocale(LC_ALL, "");
    vq::ServerProcess process;
    const int code = process.Start(request);
    if (code >= 0) return code;
    return app.exec();
}
