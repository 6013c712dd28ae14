#pragma once
// Tagged lines: "<NAME>" section tags and "<NAME>value</NAME>" value lines, in the stream form
// (built in a VqStringBuilder, read from a VqStringReader) and the file form (4 and 8 blanks of
// indentation, one line at a time). Failures are VqError number 5 with the reader's name as
// source and "Invalid Data: " and the tag as description.
#include <cstdint>
#include <string>
#include <string_view>

#include "storage/VqString.h"

namespace vq {

enum class TagValueDirection { ForWriting, ForReading };

// Writing: CR LF, then LF, then CR, then code 26 become code 1. Reading: code 1 becomes CR LF.
std::string ConvertTagValue(std::string_view value, TagValueDirection direction);
// Removes every character of code 32 or less from both ends.
std::string TrimLine(std::string_view text);

// Stream form.
void OutputZkStreamC(VqStringBuilder& builder, const std::string& tag, std::string_view value);
// A closing tag is written with a leading slash in `tag`, such as "/TASK".
void OutputZkStreamTag(VqStringBuilder& builder, const std::string& tag);
// The value of `tag` on the next line. When the line doesn't hold it: with `optional` the
// reader steps back and the empty text comes back, else VqError 5.
std::string InputZkStreamC(VqStringReader& reader, const std::string& tag, bool optional = false);
// True when the next line, trimmed, is "<tag>"; the line is consumed either way.
bool InputZkStreamTag(VqStringReader& reader, const std::string& tag);
// The next line, trimmed.
std::string InputZkStreamLine(VqStringReader& reader);

// The text of a file written in file form: each print is one line closed by CR LF. The caller
// writes the text whole (WriteFileAtomic).
class ZkOutFile {
  public:
    void Print(std::string_view line);
    const std::string& Text() const { return text_; }

  private:
    std::string text_;
};

// The text of a file, read line by line. A line ends at CR LF, LF or CR. Reading past the
// end is VqError 62 "Input past end of file".
class ZkInFile {
  public:
    explicit ZkInFile(std::string content) : content_(std::move(content)) {}
    bool AtEnd() const { return position_ >= content_.size(); }
    std::string ReadLine(const char* source);

  private:
    std::string content_;
    size_t position_ = 0;
};

void OutputZkC(ZkOutFile& file, const std::string& tag, std::string_view value);
void OutputZkTag(ZkOutFile& file, const std::string& tag);
// The value of `tag` on the next line, cut at the first closing tag; VqError 5 when missing.
std::string InputZkC(ZkInFile& file, const std::string& tag);
// True when the next line, trimmed, is "<tag>".
bool InputZkTag(ZkInFile& file, const std::string& tag);

// Number conversions of tagged values, as the platform converts text to numbers: blanks
// around, an optional sign, digits with an optional fraction in the locale's decimal point.
// Whole-number conversions round a fraction half to even. Text that is no number is VqError 13
// "Type mismatch"; a number out of range is VqError 6 "Overflow".
int32_t ConvertToLong(std::string_view text);
uint8_t ConvertToByte(std::string_view text);
double ConvertToDouble(std::string_view text);
// A double as plain decimal text in the locale's decimal format, shortest exact form.
std::string FormatDecimal(double value);

}  // namespace vq
