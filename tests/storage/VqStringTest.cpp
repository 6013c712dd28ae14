// Collecting lines and joining them once; walking a text line by line.
#include <gtest/gtest.h>

#include "storage/VqString.h"

namespace vq {
namespace {

TEST(VqStringBuilder, JoinsOnceAndRefusesWhatIsOutOfRange) {
    VqStringBuilder b;
    EXPECT_FALSE(b.removeLastElement());
    EXPECT_FALSE(b.UpdateElement(0, "x"));
    b.AppendElement("one");
    b.AppendElement("two");
    b.AppendElement("");
    EXPECT_EQ(b.toString(), "onetwo");
    EXPECT_EQ(b.toDelimitedString("\r\n"), "one\r\ntwo\r\n");
    EXPECT_FALSE(b.UpdateElement(-1, "x"));
    EXPECT_FALSE(b.UpdateElement(3, "x"));
    EXPECT_TRUE(b.UpdateElement(1, "TWO"));
    EXPECT_EQ(b.GetElement(3), "");
    EXPECT_EQ(b.GetElement(-1), "");
    EXPECT_TRUE(b.removeLastElement());
    EXPECT_EQ(b.Items(), (std::vector<std::string>{"one", "TWO"}));
    // The default delimiter is doubled inside an element.
    b.Reset();
    b.AppendElementWithDefDelim("a;b");
    b.DefaultDelimiter = ";";
    b.AppendElementWithDefDelim(";a;;b;");
    EXPECT_EQ(b.Items(), (std::vector<std::string>{"a;b", ";;a;;;;b;;"}));
}

TEST(VqStringReader, AnEmptyLineIsALineAndALastLineNeedsNoDelimiter) {
    VqStringReader open("one\r\n\r\nthree");
    open.ReadNextLine();
    EXPECT_EQ(open.ReadNextLine(), "");
    EXPECT_FALSE(open.IsEOF());
    EXPECT_EQ(open.ReadNextLine(), "three");
    EXPECT_TRUE(open.IsEOF());
    EXPECT_EQ(open.ReadNextLine(), "");
}

// Stepping back from the middle of a text is what the optional tag read does; its ends are
// pinned here.
TEST(VqStringReader, SkipOneBackAtTheEndsOfTheText) {
    VqStringReader r("L1\r\nL2\r\nL3");
    r.ReadNextLine();
    r.SkipOneBack();  // on the first line: back to 1
    EXPECT_EQ(r.Position(), 1u);
    r.ReadNextLine();
    r.ReadNextLine();
    EXPECT_EQ(r.ReadNextLine(), "L3");
    r.SkipOneBack();  // a last line without delimiter, two characters long
    EXPECT_EQ(r.ReadNextLine(), "L3");
    // The search starts delimiter length + 1 before the position: behind a last line of one
    // character without delimiter, no delimiter lies wholly before the start, and the reader
    // goes back to the start of the text.
    VqStringReader shortLast("L1\r\nX");
    shortLast.ReadNextLine();
    shortLast.ReadNextLine();
    shortLast.SkipOneBack();
    EXPECT_EQ(shortLast.Position(), 1u);
}

}  // namespace
}  // namespace vq
