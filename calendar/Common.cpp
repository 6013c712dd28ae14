#include "calendar/Common.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <clocale>
#include <cstdio>

#include "platform/Error.h"

namespace vq {

std::string ZeroPad(int64_t value, int width) {
    char buffer[32];
    const bool negative = value < 0;
    const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(value) : value;
    std::snprintf(buffer, sizeof buffer, "%0*llu", width, static_cast<unsigned long long>(magnitude));
    return negative ? "-" + std::string(buffer) : std::string(buffer);
}

int64_t Val(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) negative = text[i++] == '-';
    int64_t value = 0;
    for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
        const int digit = text[i] - '0';
        if (value > (INT64_MAX - digit) / 10) return negative ? INT64_MIN : INT64_MAX;
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}

int64_t CellNumber(std::string_view text) {
    const std::string trimmed = Trim(text);
    size_t i = (!trimmed.empty() && (trimmed[0] == '-' || trimmed[0] == '+')) ? 1 : 0;
    if (i == trimmed.size()) throw VqError("Type mismatch", 13);
    for (size_t j = i; j < trimmed.size(); ++j)
        if (!std::isdigit(static_cast<unsigned char>(trimmed[j]))) throw VqError("Type mismatch", 13);
    return Val(trimmed);
}

namespace {
char AsciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
}  // namespace

std::string ToUpper(std::string text) {
    for (char& c : text) c = AsciiUpper(c);
    return text;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return AsciiUpper(x) == AsciiUpper(y);
           });
}

std::string Trim(std::string_view text) {
    size_t b = 0, e = text.size();
    while (b < e && (text[b] == ' ' || text[b] == '\t')) ++b;
    while (e > b && (text[e - 1] == ' ' || text[e - 1] == '\t')) --e;
    return std::string(text.substr(b, e - b));
}

std::string CutAtNul(std::string_view text) {
    return std::string(text.substr(0, text.find('\0')));
}

std::string WithBackslash(const std::string& path) {
    if (path.empty() || path.back() == '/') return path;
    return path + "/";
}

std::string WithoutBackslash(const std::string& path) {
    std::string result = path;
    while (result.size() > 1 && result.back() == '/') result.pop_back();
    return result;
}

std::string GetComputerNameText() {
    char buffer[256] = {};
    if (gethostname(buffer, sizeof buffer - 1) != 0) return {};
    std::string name = CutAtNul(std::string_view(buffer, sizeof buffer));
    name = name.substr(0, name.find('.'));
    return name.substr(0, 15);
}

std::string PriorityClassName(int classDigit) {
    static const char* const kNames[] = {"Low", "BelowNormal", "Normal",
                                         "AboveNormal", "High", "RealTime"};
    return classDigit >= 0 && classDigit <= 5 ? kNames[classDigit] : "";
}

std::vector<PriorityEntry> FillPriorityList(bool withRealTime) {
    std::vector<PriorityEntry> list;
    const int classes = withRealTime ? 6 : 5;
    for (int c = 0; c < classes; ++c)
        for (int level = 0; level <= 6; ++level)
            list.push_back({"P" + std::to_string(c) + std::to_string(level),
                            PriorityClassName(c) + " " + std::to_string(level)});
    return list;
}

std::string PriorityName(const std::string& code) {
    if (code.size() < 2 || !std::isdigit(static_cast<unsigned char>(code[0]))) return code;
    const std::string name = PriorityClassName(code[0] - '0');
    return name.empty() ? code : name + " " + code.substr(1, 1);
}

int CharsetOfCodePage(int codePage) {
    static const std::pair<int, int> kTable[] = {
        {932, 128},  {936, 134},  {949, 129},  {950, 136},  {1250, 238}, {1251, 204},
        {1252, 0},   {1253, 161}, {1254, 162}, {1255, 177}, {1256, 178}, {1257, 186}};
    for (const auto& [page, charset] : kTable)
        if (page == codePage) return charset;
    return 0;
}

}  // namespace vq
