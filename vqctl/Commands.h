#pragma once
// The commands of vqctl. Each takes the words after its own name and returns the exit code.
#include <string>
#include <vector>

namespace vqctl {

using Args = std::vector<std::string>;

// config get|set|list SECTION [NAME [VALUE]]
int ConfigCommand(const Args& args);
// new-task [OPTIONS] --step COMMAND ... FILE: writes a task file
int NewTaskCommand(const Args& args);

}  // namespace vqctl
