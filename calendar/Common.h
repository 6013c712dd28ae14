#pragma once
// Small shared helpers: numbers kept as text, paths, the computer's name, the priority list
// and the character-set table of the common font.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vq {

// The number formatted with at least `width` digits ("000000" for width 6); wider values
// simply grow wider. Negative values keep their sign in front.
std::string ZeroPad(int64_t value, int width);
// The leading number of a text as the settings and cells hold it: blanks skipped, an optional
// sign, digits up to the first other character; no digits give 0. Saturates on overflow.
int64_t Val(std::string_view text);
// Strict whole-number reading of a cell: blanks around, an optional sign and digits only.
// Anything else fails with VqError "Type mismatch".
int64_t CellNumber(std::string_view text);

// Casing of keys, tags, names and class letters: ASCII letters only, whatever the locale
// (under tr_TR a locale's toupper leaves "i" as it is).
std::string ToUpper(std::string text);
bool EqualsNoCase(std::string_view a, std::string_view b);
std::string Trim(std::string_view text);

// The text up to the first character of code 0.
std::string CutAtNul(std::string_view text);
// The path with a folder separator behind it, unless it ends in one or is empty.
std::string WithBackslash(const std::string& path);
// The path without its closing separator.
std::string WithoutBackslash(const std::string& path);

// The host name, cut at the first "." and at 15 characters; the empty text on failure.
std::string GetComputerNameText();

struct PriorityEntry {
    std::string key;   // "P", class digit, level digit
    std::string name;  // class name, a blank, the level
};
// The priority list of the dialogs: 7 levels for each class in class order, 35 entries,
// 42 with RealTime. The entry "P22" is the one to select.
std::vector<PriorityEntry> FillPriorityList(bool withRealTime);
// The class name of a class digit, "" for another digit.
std::string PriorityClassName(int classDigit);
// The display text of a two-digit priority code such as "22" ("Normal 2").
std::string PriorityName(const std::string& code);

// The character set number of an ANSI code page, 0 for a code page not in the table.
int CharsetOfCodePage(int codePage);

}  // namespace vq
