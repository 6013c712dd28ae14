#pragma once
// Everything about how a step's command is started, worked out as plain data from what the
// server sent, before any process is made: the shell's arguments, the environment, the
// folders, the output file, the nice value, and whether the step may start at all.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "runner/records/Records.h"

namespace vq {

// What the server sends for one step: the start record and its three text blocks.
struct StepInput {
    StartRecord start;
    std::string command;
    std::string fileRc;
    std::string environ;
};

struct StepPlan {
    std::string refusal;  // why the step does not start; empty when it may
    std::string shell = "/bin/sh";
    std::vector<std::string> arguments;    // argv of the shell
    std::vector<std::string> environment;  // NAME=VALUE
    std::string workDir;
    std::string outputFile;  // empty: the output goes nowhere
    std::string taskFolder;  // the folder of the output file, without a closing "/"
    std::string fileRcPath;  // empty when the step gives its code by its exit status only
    std::optional<int> nice;
    std::vector<std::string> notes;  // things the server's report should know about

    bool Refused() const { return !refusal.empty(); }
};

StepPlan MakeStepPlan(const StepInput& input, const std::vector<std::string>& baseEnvironment,
                      std::string_view login);

// A fixed-width text field without its padding.
std::string TrimRight(std::string_view text);
// The folder part of a path, without the closing "/"; empty when the path has no folder.
std::string FolderOf(std::string_view path);
// `%VQS%` (any case) replaced by the task folder; an empty folder means the task folder.
std::string ExpandWorkDir(std::string_view workDir, std::string_view taskFolder);
// The runner runs steps as its own user only: `$LOCALUSER$` in any case, or that login.
bool UserAllowed(std::string_view userName, std::string_view login);
// The login name of `uid` in the text of /etc/passwd; empty when it isn't there.
std::string LoginOfUser(std::string_view passwdText, unsigned uid);
// The nice value of a two-digit priority code, chosen by its first digit; nothing for an
// unknown class.
std::optional<int> NiceForPriority(int code);
// "Normal 2" for 22, for messages; the code itself when its class is unknown.
std::string PriorityText(int code);
// Appends the NAME=VALUE lines of an Environ block (CR LF or LF between them); a line that
// isn't of that form is left out with a note.
void AddEnvironBlock(std::vector<std::string>& environment, std::string_view block,
                     std::vector<std::string>& notes);
// A NAME=VALUE list in which each name stands once, with the last value that it was given.
// One pass from the end with a set of seen names, so that a block of 100,000 lines costs
// no more than reading it.
std::vector<std::string> MergeEnvironment(const std::vector<std::string>& entries);

}  // namespace vq
