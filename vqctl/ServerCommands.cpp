// vqctl's calls of the running server over the session bus: submit, exists, hold, resume,
// cancel, info, validate, requests, mkdir, version, type, location. Exit code 0 when the server
// answered true, 1 when it answered false, 2 for a usage error or when no server answers.
#include <glob.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "platform/Files.h"
#include "vqctl/Commands.h"
#include "vqctl/ServerConnection.h"

namespace vqctl {
namespace {

// The exit code of a true/false answer; false is explained on standard error.
int Answered(bool answer, const std::string& command, const std::string& whyFalse) {
    if (!answer && !whyFalse.empty()) std::fprintf(stderr, "vqctl %s: the server answered false: %s\n", command.c_str(), whyFalse.c_str());
    return answer ? 0 : 1;
}

int Submit(const std::string& file) {
    ServerConnection server("submit");
    return SubmitFile(server, file);
}

// A glob pattern that matches `text` as it stands.
std::string GlobLiteral(const std::string& text) {
    std::string escaped;
    for (char c : text) {
        if (c == '*' || c == '?' || c == '[' || c == ']' || c == '\\') escaped += '\\';
        escaped += c;
    }
    return escaped;
}

// The info file of a task: its folder is root/domain/user/name/number, the domain maybe empty.
std::optional<std::string> FindInfoFile(const std::string& root, const std::string& key) {
    const size_t dash = key.find('-');
    if (dash == std::string::npos) return std::nullopt;
    const std::string tail = GlobLiteral(key.substr(dash + 1)) + "/" + GlobLiteral(key.substr(0, dash)) + "/Info.zki";
    std::optional<std::string> newest;
    time_t newestTime = 0;
    for (const std::string& pattern : {GlobLiteral(root) + "*/*/" + tail, GlobLiteral(root) + "*/" + tail}) {
        glob_t found{};
        if (::glob(pattern.c_str(), 0, nullptr, &found) == 0) {
            for (size_t i = 0; i < found.gl_pathc; ++i) {
                struct stat st {};
                if (::stat(found.gl_pathv[i], &st) == 0 && (!newest || st.st_mtime >= newestTime)) {
                    newest = found.gl_pathv[i];
                    newestTime = st.st_mtime;
                }
            }
        }
        ::globfree(&found);
    }
    return newest;
}

int Info(const std::string& key) {
    ServerConnection server("info");
    if (!server.Call("WriteTaskInfo", {ToQString(key)}).toBool())
        return Answered(false, "info", "no task " + key + ", or its info file could not be written");
    const std::string root = server.QueueRoot();
    const std::optional<std::string> path = FindInfoFile(root, key);
    std::string content;
    if (!path || !vq::ReadWholeFile(*path, content))
        Fail("info", 1, "no info file of " + key + " was found in its folder under " + root);
    std::fwrite(content.data(), 1, content.size(), stdout);
    return 0;
}

struct CallArgs {
    std::string key, file, user, password, domain, clientId, path, level;
};

void AddKeyCommand(CLI::App& app, int& exitCode, const std::shared_ptr<CallArgs>& args, const char* name,
                   const char* member, const char* description, const std::string& whyFalse) {
    CLI::App* command = app.add_subcommand(name, description);
    command->add_option("KEY", args->key, "the task's key, such as 000042-Nightly")->required();
    command->footer("Exit status 0 when the server answered true, 1 when false, 2 when no server answers.");
    command->callback([args, &exitCode, name, member, whyFalse] {
        exitCode = Guarded([&] {
            ServerConnection server(name);
            return Answered(server.Call(member, {ToQString(args->key)}).toBool(), name, whyFalse);
        });
    });
}

void AddPropertyCommand(CLI::App& app, int& exitCode, const char* name, const char* property,
                        const char* description) {
    app.add_subcommand(name, description)->callback([&exitCode, name, property] {
        exitCode = Guarded([&] {
            ServerConnection server(name);
            std::printf("%s\n", server.Property(property).toString().toStdString().c_str());
            return 0;
        });
    });
}

}  // namespace

void AddServerCommands(CLI::App& app, int& exitCode) {
    auto args = std::make_shared<CallArgs>();
    const std::string noTask = "no such task";

    CLI::App* submit = app.add_subcommand("submit", "Hand a task file to the server; prints the new task's key");
    submit->add_option("FILE", args->file, "the task file (.vqf), as vqctl new-task writes it")
        ->required()
        ->check(CLI::ExistingFile);
    submit->footer("The file is copied into the queue's $InQ folder under a name of its own and submitted\n"
                   "by that name; the server deletes the copy. Exit status 0 when a task was added.");
    submit->callback([args, &exitCode] { exitCode = Guarded([&] { return Submit(args->file); }); });

    AddKeyCommand(app, exitCode, args, "exists", "TaskExist", "Exit status 0 when the task is in the queue", "");
    AddKeyCommand(app, exitCode, args, "hold", "HoldTask", "Hold a task", noTask);
    AddKeyCommand(app, exitCode, args, "resume", "ResumeTask", "Release a held task", "no such task, or it is not held");
    AddKeyCommand(app, exitCode, args, "cancel", "CancelTask", "Cancel a task (its cleanup steps run)",
                  "no such task, or it has ended or is held");

    CLI::App* info = app.add_subcommand("info", "Have the server write a task's info file, and print it");
    info->add_option("KEY", args->key, "the task's key, such as 000042-Nightly")->required();
    info->callback([args, &exitCode] { exitCode = Guarded([&] { return Info(args->key); }); });

    CLI::App* validate = app.add_subcommand("validate", "Ask whether tasks may run as this account; prints the answer");
    validate->add_option("USER", args->user, "the user name, such as $LOCALUSER$ or name@domain")->required();
    validate->add_option("--password", args->password, "the password (it doesn't change the answer)");
    validate->add_option("--domain", args->domain, "the domain; $LOCALS$ or $ADS$ for none");
    validate->add_option("--client-id", args->clientId, "the client's own user id");
    validate->footer("Exit status 0 when the answer is Granted, else 1.");
    validate->callback([args, &exitCode] {
        exitCode = Guarded([&] {
            ServerConnection server("validate");
            const std::string answer = server.Call("ValidateCredentials", {ToQString(args->user), ToQString(args->password),
                                                                           ToQString(args->domain), ToQString(args->clientId)})
                                           .toString()
                                           .toStdString();
            std::printf("%s\n", answer.c_str());
            return answer == "Granted" ? 0 : 1;
        });
    });

    CLI::App* requests = app.add_subcommand("requests", "Have the server work off the request files (.urf) of $InQ");
    requests->add_option("FILE", args->file, "only this request file of $InQ (its name or full path)");
    requests->callback([args, &exitCode] {
        exitCode = Guarded([&] {
            ServerConnection server("requests");
            return Answered(server.Call("RaiseChkIfReq", {ToQString(args->file)}).toBool(), "requests",
                            "see the server log");
        });
    });

    CLI::App* mkdir = app.add_subcommand("mkdir", "Have the server make a folder of its tree (under the queue root)");
    mkdir->add_option("PATH", args->path, "the folder; a relative path is taken under the queue root")->required();
    mkdir->add_option("--user", args->user, "the user the folder is for (no access rules follow from it)");
    mkdir->add_option("--domain", args->domain, "that user's domain");
    mkdir->add_option("--level", args->level, "the security level, 0 to 8")->default_val("1");
    mkdir->callback([args, &exitCode] {
        exitCode = Guarded([&] {
            ServerConnection server("mkdir");
            const std::string path = args->path.rfind('/', 0) == 0 ? args->path : server.QueueRoot() + args->path;
            return Answered(server.Call("MkZkDir", {ToQString(args->user), ToQString(args->domain), ToQString(path), ToQString(args->level)})
                                .toBool(),
                            "mkdir", "the folder is not under the queue root, or its parent is missing");
        });
    });

    AddPropertyCommand(app, exitCode, "version", "ServerVersion", "Print the server's version");
    AddPropertyCommand(app, exitCode, "type", "ServerType", "Print the server's type (2)");
    AddPropertyCommand(app, exitCode, "location", "QueueLocation", "Print the queue folder");
}

}  // namespace vqctl
