#include "storage/TaggedStream.h"

#include <charconv>
#include <clocale>
#include <cmath>

#include "platform/Error.h"

namespace vq {
namespace {

constexpr char kLineBreakMark = '\x01';
constexpr char kEndOfFileChar = '\x1A';
const std::string kValueIndent = "\t";
const std::string kFileSectionIndent(4, ' ');
const std::string kFileValueIndent(8, ' ');

[[noreturn]] void ThrowInvalidData(const char* source, const std::string& tag) {
    throw VqError("Invalid Data: " + tag, 5, source);
}

// The value between "<tag>" and "</tag>" on `line`. With `lastClosing` the closing tag is
// searched from the end of the line, else the first one behind the opening tag counts.
bool CutTaggedValue(const std::string& line, const std::string& tag, bool lastClosing,
                    std::string& value) {
    const std::string opening = "<" + tag + ">";
    const std::string closing = "</" + tag + ">";
    const size_t open = line.find(opening);
    if (open == std::string::npos) return false;
    const size_t valueStart = open + opening.size();
    const size_t close = lastClosing ? line.rfind(closing) : line.find(closing, valueStart);
    if (close == std::string::npos || close < valueStart) return false;
    value = line.substr(valueStart, close - valueStart);
    return true;
}

std::string TaggedValueLine(const std::string& indent, const std::string& tag,
                            std::string_view value) {
    return indent + "<" + tag + ">" + ConvertTagValue(value, TagValueDirection::ForWriting) + "</" +
           tag + ">";
}

char LocaleDecimalPoint() {
    const std::lconv* conv = std::localeconv();
    return conv && conv->decimal_point && conv->decimal_point[0] ? conv->decimal_point[0] : '.';
}

[[noreturn]] void ThrowTypeMismatch() { throw VqError("Type mismatch", 13); }
[[noreturn]] void ThrowOverflow() { throw VqError("Overflow", 6); }

bool IsBlank(char c) { return c == ' ' || c == '\t'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Checks the number's syntax and gives it back in the "C" form that from_chars reads.
std::string CNumberText(std::string_view text) {
    size_t i = 0, end = text.size();
    while (i < end && IsBlank(text[i])) ++i;
    while (end > i && IsBlank(text[end - 1])) --end;
    std::string out;
    if (i < end && (text[i] == '+' || text[i] == '-')) {
        if (text[i] == '-') out += '-';
        ++i;
    }
    const char point = LocaleDecimalPoint();
    size_t digits = 0;
    while (i < end && IsDigit(text[i])) out += text[i++], ++digits;
    if (i < end && text[i] == point) {
        out += '.';
        ++i;
        while (i < end && IsDigit(text[i])) out += text[i++], ++digits;
    }
    if (digits == 0) ThrowTypeMismatch();
    if (i < end && (text[i] == 'e' || text[i] == 'E')) {
        out += 'e';
        ++i;
        if (i < end && (text[i] == '+' || text[i] == '-')) out += text[i++];
        size_t exponentDigits = 0;
        while (i < end && IsDigit(text[i])) out += text[i++], ++exponentDigits;
        if (exponentDigits == 0) ThrowTypeMismatch();
    }
    if (i != end) ThrowTypeMismatch();
    return out;
}

// Roughly the power of ten of a number in "C" form: positive for large, negative for tiny.
long long DecimalMagnitude(const std::string& c) {
    long long magnitude = 0;
    bool seenDigit = false, afterPoint = false;
    size_t i = 0;
    for (; i < c.size() && c[i] != 'e'; ++i) {
        if (c[i] == '.') {
            afterPoint = true;
        } else if (IsDigit(c[i])) {
            if (c[i] != '0') seenDigit = true;
            if (!afterPoint && seenDigit) ++magnitude;
            if (afterPoint && !seenDigit) --magnitude;
        }
    }
    if (i < c.size()) {
        long long exponent = 0;
        const auto result =
            std::from_chars(c.data() + i + 1 + (c[i + 1] == '+'), c.data() + c.size(), exponent);
        if (result.ec == std::errc::result_out_of_range) return c[i + 1] == '-' ? -1 : 1;
        if (exponent > (1LL << 40) || exponent < -(1LL << 40)) return exponent < 0 ? -1 : 1;
        magnitude += exponent;
    }
    return magnitude;
}

double RoundHalfEven(double value) {
    const double floor = std::floor(value);
    const double diff = value - floor;
    if (diff < 0.5) return floor;
    if (diff > 0.5) return floor + 1;
    return std::fmod(floor, 2.0) == 0 ? floor : floor + 1;
}

int64_t RoundedWhole(std::string_view text, int64_t low, int64_t high) {
    const double value = RoundHalfEven(ConvertToDouble(text));
    if (!(value >= static_cast<double>(low) && value <= static_cast<double>(high))) ThrowOverflow();
    return static_cast<int64_t>(value);
}

}  // namespace

std::string ConvertTagValue(std::string_view value, TagValueDirection direction) {
    std::string out;
    out.reserve(value.size());
    if (direction == TagValueDirection::ForReading) {
        for (char c : value) {
            if (c == kLineBreakMark)
                out += kCrLf;
            else
                out += c;
        }
        return out;
    }
    // One pass does what the four replacements in order do: a CR LF pair first, then any
    // lone LF or CR, and code 26.
    for (size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        if (c == '\r' && i + 1 < value.size() && value[i + 1] == '\n') {
            out += kLineBreakMark;
            ++i;
        } else if (c == '\r' || c == '\n' || c == kEndOfFileChar) {
            out += kLineBreakMark;
        } else {
            out += c;
        }
    }
    return out;
}

std::string TrimLine(std::string_view text) {
    size_t begin = 0, end = text.size();
    while (begin < end && static_cast<unsigned char>(text[begin]) <= 32) ++begin;
    while (end > begin && static_cast<unsigned char>(text[end - 1]) <= 32) --end;
    return std::string(text.substr(begin, end - begin));
}

void OutputZkStreamC(VqStringBuilder& builder, const std::string& tag, std::string_view value) {
    builder.AppendElement(TaggedValueLine(kValueIndent, tag, value));
}

void OutputZkStreamTag(VqStringBuilder& builder, const std::string& tag) {
    builder.AppendElement("<" + tag + ">");
}

std::string InputZkStreamC(VqStringReader& reader, const std::string& tag, bool optional) {
    const std::string line = ConvertTagValue(reader.ReadNextLine(), TagValueDirection::ForReading);
    std::string value;
    if (CutTaggedValue(line, tag, true, value)) return value;
    if (!optional) ThrowInvalidData("InputZkStreamC", tag);
    // The line stays to be read by the next field.
    reader.SkipOneBack();
    return {};
}

bool InputZkStreamTag(VqStringReader& reader, const std::string& tag) {
    return TrimLine(reader.ReadNextLine()) == "<" + tag + ">";
}

std::string InputZkStreamLine(VqStringReader& reader) { return TrimLine(reader.ReadNextLine()); }

void ZkOutFile::Print(std::string_view line) {
    text_ += line;
    text_ += kCrLf;
}

std::string ZkInFile::ReadLine(const char* source) {
    if (AtEnd()) throw VqError("Input past end of file", 62, source);
    const size_t end = content_.find_first_of("\r\n", position_);
    if (end == std::string::npos) {
        std::string line = content_.substr(position_);
        position_ = content_.size();
        return line;
    }
    std::string line = content_.substr(position_, end - position_);
    position_ = end + 1;
    if (content_[end] == '\r' && position_ < content_.size() && content_[position_] == '\n')
        ++position_;
    return line;
}

void OutputZkC(ZkOutFile& file, const std::string& tag, std::string_view value) {
    file.Print(TaggedValueLine(kFileValueIndent, tag, value));
}

void OutputZkTag(ZkOutFile& file, const std::string& tag) {
    file.Print(kFileSectionIndent + "<" + tag + ">");
}

std::string InputZkC(ZkInFile& file, const std::string& tag) {
    const std::string line =
        ConvertTagValue(file.ReadLine("InputZkC"), TagValueDirection::ForReading);
    std::string value;
    if (!CutTaggedValue(line, tag, false, value)) ThrowInvalidData("InputZkC", tag);
    return value;
}

bool InputZkTag(ZkInFile& file, const std::string& tag) {
    return TrimLine(file.ReadLine("InputZkTag")) == "<" + tag + ">";
}

double ConvertToDouble(std::string_view text) {
    const std::string c = CNumberText(text);
    double value = 0;
    const auto [end, error] = std::from_chars(c.data(), c.data() + c.size(), value);
    if (error == std::errc::result_out_of_range) {
        // Too small to hold reads as 0; only a number too large overflows.
        if (DecimalMagnitude(c) < 0) return 0;
        ThrowOverflow();
    }
    if (error != std::errc() || end != c.data() + c.size()) ThrowTypeMismatch();
    return value;
}

int32_t ConvertToLong(std::string_view text) {
    return static_cast<int32_t>(RoundedWhole(text, INT32_MIN, INT32_MAX));
}

uint8_t ConvertToByte(std::string_view text) {
    return static_cast<uint8_t>(RoundedWhole(text, 0, 255));
}

std::string FormatDecimal(double value) {
    char buffer[64];
    const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    std::string text(buffer, error == std::errc() ? end : buffer);
    const char point = LocaleDecimalPoint();
    for (char& c : text)
        if (c == '.') c = point;
    return text;
}

}  // namespace vq
