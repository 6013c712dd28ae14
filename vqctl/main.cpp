// vqctl: the command-line client of the Orvantis Personal Server.
#include <clocale>
#include <cstdio>
#include <string>

#include "vqctl/Commands.h"

namespace {

int Usage() {
    std::fputs(
        "usage: vqctl COMMAND ...\n"
        "commands:\n"
        "  config get|set|list SECTION [NAME [VALUE]]   read and change the server's settings\n"
        "  new-task [OPTIONS] --step COMMAND ... FILE     write a task file (new-task --help)\n",
        stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    if (argc < 2) return Usage();
    const std::string command = argv[1];
    const vqctl::Args args(argv + 2, argv + argc);
    if (command == "config") return vqctl::ConfigCommand(args);
    if (command == "new-task") return vqctl::NewTaskCommand(args);
    if (command == "--help" || command == "-h" || command == "help") {
        Usage();
        return 0;
    }
    std::fprintf(stderr, "vqctl: unknown command '%s'\n", command.c_str());
    return Usage();
}
