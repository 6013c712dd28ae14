// Tagged lines: value lines, section tags, the file form, and the numbers of tag values.
#include <gtest/gtest.h>

#include <functional>

#include "platform/Error.h"
#include "storage/TaggedStream.h"

namespace vq {
namespace {

void ExpectVqError(const std::function<void()>& call, int number, const std::string& source,
                   const std::string& text) {
    try {
        call();
        ADD_FAILURE() << "no error raised";
    } catch (const VqError& e) {
        EXPECT_EQ(e.Number(), number);
        EXPECT_EQ(e.Source(), source);
        EXPECT_EQ(std::string(e.what()), text);
    }
}

// The way back to CR LF is read through the tagged file below.
TEST(ConvertTagValue, LineBreaksAndCode26BecomeCode1) {
    const auto forWriting = TagValueDirection::ForWriting;
    EXPECT_EQ(ConvertTagValue("a\r\nb\nc\rd\032e", forWriting), "a\001b\001c\001d\001e");
    EXPECT_EQ(ConvertTagValue("\n\r", forWriting), "\001\001");
    EXPECT_EQ(ConvertTagValue("\r\r\n", forWriting), "\001\001");
}

TEST(TaggedStream, AValueMayHoldItsClosingTagAndTextAroundTheTagsIsIgnored) {
    const std::pair<const char*, const char*> lines[] = {
        {"\t<V>x < y & z > w</V>", "x < y & z > w"},
        {"\t<V></V>", ""},
        {"\t<V>a</V>b</V>", "a</V>b"},
        {"junk <V>value</V> trailing", "value"}};
    for (const auto& [line, value] : lines) {
        VqStringReader r(std::string(line) + "\r\n");
        EXPECT_EQ(InputZkStreamC(r, "V"), value) << line;
    }
}

// A missing optional tag steps the reader back, so that the next field sees the line.
TEST(TaggedStream, AMissingTagIsEmptyWhenOptionalElseError5WithTheTagName) {
    VqStringReader r("\t<A>1</A>\r\n\t<C>3</C>\r\n\t<A>1</A>\r\n\t<B>2\r\n");
    EXPECT_EQ(InputZkStreamC(r, "A"), "1");
    EXPECT_EQ(InputZkStreamC(r, "B", true), "");
    EXPECT_EQ(InputZkStreamC(r, "C"), "3");
    // A wrong tag, a line without its closing tag, the end of the text, tags swapped.
    for (const char* tag : {"X", "B", "B"})
        ExpectVqError([&] { InputZkStreamC(r, tag); }, 5, "InputZkStreamC",
                      std::string("Invalid Data: ") + tag);
    VqStringReader swapped("</A>x<A>\r\n");
    ExpectVqError([&] { InputZkStreamC(swapped, "A"); }, 5, "InputZkStreamC", "Invalid Data: A");
}

TEST(TaggedStream, SectionTagsMatchWhateverTheirIndentationAndTrimmedCodes) {
    VqStringReader r("\t<GENERAL>\r\n    <STEP>  \r\n<step>\r\n");
    EXPECT_TRUE(InputZkStreamTag(r, "GENERAL"));
    EXPECT_TRUE(InputZkStreamTag(r, "STEP"));
    EXPECT_FALSE(InputZkStreamTag(r, "STEP"));  // case-sensitive; the line is consumed
    EXPECT_TRUE(r.IsEOF());
    EXPECT_FALSE(InputZkStreamTag(r, "STEP"));  // at the end: the empty line
    // Lines are trimmed of every code up to 32 at both ends.
    EXPECT_EQ(TrimLine("\x01\x1F a b \x7F"), "a b \x7F");
    EXPECT_EQ(TrimLine("\xE9x\xE9"), "\xE9x\xE9");  // high codes are characters, not blanks
}

// The file form's writer is pinned by the classes file.
TEST(TaggedFile, LinesEndInAnyBreakAndAValueEndsAtItsFirstClosingTag) {
    ZkInFile in("<A>1</A>b</A>\n<B>x\001y</B>\r<C>3\r\n");
    EXPECT_EQ(InputZkC(in, "A"), "1");
    EXPECT_EQ(InputZkC(in, "B"), "x\r\ny");
    ExpectVqError([&] { InputZkC(in, "C"); }, 5, "InputZkC", "Invalid Data: C");
    EXPECT_TRUE(in.AtEnd());
    ExpectVqError([&] { InputZkC(in, "V"); }, 62, "InputZkC", "Input past end of file");
}

TEST(TagNumbers, ConvertLikeThePlatformWithOverflowAndMismatch) {
    const std::pair<const char*, int32_t> longs[] = {
        {" 12 ", 12}, {"-2147483648", INT32_MIN}, {"2147483647", INT32_MAX}, {"2.5", 2}, {"3.5", 4},
        {"1e3", 1000}};  // half to even
    for (const auto& [text, value] : longs) EXPECT_EQ(ConvertToLong(text), value) << text;
    const std::pair<const char*, int> bad[] = {
        {"2147483648", 6}, {"1e400", 6}, {"", 13}, {"12abc", 13}, {".", 13}};
    for (const auto& [text, number] : bad)
        ExpectVqError([&] { ConvertToLong(text); }, number, "",
                      number == 6 ? "Overflow" : "Type mismatch");
    EXPECT_EQ(ConvertToByte("255"), 255);
    ExpectVqError([] { ConvertToByte("256"); }, 6, "", "Overflow");
    ExpectVqError([] { ConvertToByte("-1"); }, 6, "", "Overflow");
    EXPECT_DOUBLE_EQ(ConvertToDouble("1e-400"), 0.0);
    EXPECT_EQ(FormatDecimal(0.1 + 0.2), "0.30000000000000004");
}

}  // namespace
}  // namespace vq
