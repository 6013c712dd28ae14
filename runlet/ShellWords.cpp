#include "runlet/ShellWords.h"

namespace vq {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n'; }

// Inside double quotes a backslash escapes these only, and a line end, which it removes.
bool EscapedInDoubleQuotes(char c) { return c == '"' || c == '\\' || c == '$' || c == '`' || c == '\n'; }

}  // namespace

ShellSplit SplitShellWords(std::string_view text) {
    ShellSplit split;
    std::string word;
    bool inWord = false;
    auto fail = [&split](std::string why) {
        split.words.clear();
        split.error = std::move(why);
        return split;
    };
    for (size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (IsBlank(c)) {
            if (inWord) split.words.push_back(std::move(word));
            word.clear();
            inWord = false;
        } else if (c == '\'') {
            const size_t close = text.find('\'', at + 1);
            if (close == std::string_view::npos) return fail("the quote ' at " + std::to_string(at + 1) + " is not closed.");
            word.append(text.substr(at + 1, close - at - 1));
            at = close;
            inWord = true;
        } else if (c == '"') {
            size_t close = at + 1;
            for (; close < text.size() && text[close] != '"'; ++close) {
                if (text[close] == '\\' && close + 1 < text.size() && EscapedInDoubleQuotes(text[close + 1])) {
                    if (text[++close] != '\n') word += text[close];
                } else {
                    word += text[close];
                }
            }
            if (close >= text.size()) return fail("the quote \" at " + std::to_string(at + 1) + " is not closed.");
            at = close;
            inWord = true;
        } else if (c == '\\') {
            if (at + 1 == text.size()) return fail("it ends with a backslash.");
            if (text[++at] != '\n') {
                word += text[at];
                inWord = true;
            }
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) split.words.push_back(std::move(word));
    return split;
}

std::string QuoteForShell(std::string_view text) {
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'')
            quoted += "'\\''";
        else
            quoted += c;
    }
    return quoted + "'";
}

}  // namespace vq
