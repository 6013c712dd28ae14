#pragma once
// Splits a text into words as a POSIX shell does, without running or expanding anything:
// blanks part words; '...' keeps everything; "..." keeps everything but \" \\ \$ \` and a
// backslash before a line end; a backslash outside quotes keeps the next character.
#include <string>
#include <string_view>
#include <vector>

namespace vq {

struct ShellSplit {
    std::vector<std::string> words;
    std::string error;  // an unclosed quote or a closing backslash; no words then
};

ShellSplit SplitShellWords(std::string_view text);

// `text` as one word of a POSIX shell: in single quotes, each ' as '\''.
std::string QuoteForShell(std::string_view text);

}  // namespace vq
