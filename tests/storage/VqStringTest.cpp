#include <gtest/gtest.h>

#include "storage/VqString.h"

namespace vq {
namespace {

TEST(VqStringBuilder, JoinsElementsOnceWithOrWithoutDelimiter) {
    VqStringBuilder b;
    EXPECT_EQ(b.toString(), "");
    EXPECT_EQ(b.toDelimitedString("\r\n"), "");
    b.AppendElement("one");
    EXPECT_EQ(b.toDelimitedString("\r\n"), "one");
    b.AppendElement("two");
    b.AppendElement("");
    EXPECT_EQ(b.Elements(), 3u);
    EXPECT_EQ(b.toString(), "onetwo");
    EXPECT_EQ(b.toDelimitedString("\r\n"), "one\r\ntwo\r\n");
    EXPECT_EQ(b.Items(), (std::vector<std::string>{"one", "two", ""}));
    b.Reset();
    EXPECT_EQ(b.Elements(), 0u);
    EXPECT_EQ(b.toString(), "");
}

TEST(VqStringBuilder, IndexedAccessRefusesWhatIsOutOfRange) {
    VqStringBuilder b;
    EXPECT_FALSE(b.removeLastElement());
    EXPECT_FALSE(b.UpdateElement(0, "x"));
    b.AppendElement("a");
    b.AppendElement("b");
    EXPECT_FALSE(b.UpdateElement(-1, "x"));
    EXPECT_FALSE(b.UpdateElement(2, "x"));
    EXPECT_EQ(b.toString(), "ab");
    EXPECT_TRUE(b.UpdateElement(1, "B"));
    EXPECT_EQ(b.GetElement(1), "B");
    EXPECT_EQ(b.GetElement(2), "");
    EXPECT_EQ(b.GetElement(-1), "");
    EXPECT_TRUE(b.removeLastElement());
    EXPECT_EQ(b.toString(), "a");
}

TEST(VqStringBuilder, AppendWithDefaultDelimiterDoublesIt) {
    VqStringBuilder b;
    b.AppendElementWithDefDelim("a;b");
    b.DefaultDelimiter = ";";
    b.AppendElementWithDefDelim(";a;;b;");
    EXPECT_EQ(b.GetElement(0), "a;b");
    EXPECT_EQ(b.GetElement(1), ";;a;;;;b;;");
}

TEST(VqStringReader, ReadsLinesAndReportsNoEmptyLastLine) {
    VqStringReader r("one\r\ntwo\r\n");
    EXPECT_FALSE(r.IsEOF());
    EXPECT_EQ(r.ReadNextLine(), "one");
    EXPECT_EQ(r.ReadNextLine(), "two");
    EXPECT_TRUE(r.IsEOF());
    EXPECT_EQ(r.ReadNextLine(), "");
    EXPECT_TRUE(r.IsEOF());

    VqStringReader open("one\r\n\r\nthree");
    EXPECT_EQ(open.ReadNextLine(), "one");
    EXPECT_EQ(open.ReadNextLine(), "");
    EXPECT_FALSE(open.IsEOF());
    EXPECT_EQ(open.ReadNextLine(), "three");
    EXPECT_TRUE(open.IsEOF());

    VqStringReader empty;
    EXPECT_TRUE(empty.IsEOF());
    EXPECT_EQ(empty.ReadNextLine(), "");
    empty.SkipOneForward();
    empty.SkipOneBack();
    EXPECT_EQ(empty.Position(), 1u);
}

TEST(VqStringReader, SkipOneBackReturnsToTheLineJustRead) {
    VqStringReader r("L1\r\nL2\r\nL3");
    r.ReadNextLine();
    r.SkipOneBack();  // on the first line: back to 1
    EXPECT_EQ(r.Position(), 1u);
    r.ReadNextLine();
    EXPECT_EQ(r.ReadNextLine(), "L2");
    r.SkipOneBack();
    EXPECT_EQ(r.ReadNextLine(), "L2");
    EXPECT_EQ(r.ReadNextLine(), "L3");
    r.SkipOneBack();  // a last line without delimiter, two characters long
    EXPECT_EQ(r.ReadNextLine(), "L3");
    // The search starts delimiter length + 1 before the position: behind a last line of one
    // character without delimiter, no delimiter lies wholly before the start, and the reader
    // goes back to the start of the text.
    VqStringReader shortLast("L1\r\nX");
    shortLast.ReadNextLine();
    EXPECT_EQ(shortLast.ReadNextLine(), "X");
    shortLast.SkipOneBack();
    EXPECT_EQ(shortLast.Position(), 1u);
}

TEST(VqStringReader, SkipForwardDelimiterAndReassignment) {
    VqStringReader r("a|b|c");
    r.Delimiter("");  // ignored
    EXPECT_EQ(r.Delimiter(), "\r\n");
    r.Delimiter("|");
    r.SkipOneForward();
    EXPECT_EQ(r.ReadNextLine(), "b");
    r.ResetPosition();
    EXPECT_EQ(r.ReadNextLine(), "a");
    r.toString(std::string("x|y"));
    EXPECT_EQ(r.Position(), 1u);
    EXPECT_EQ(r.toString(), "x|y");
    EXPECT_EQ(r.ReadNextLine(), "x");
    r.SkipOneForward();
    EXPECT_TRUE(r.IsEOF());
}

}  // namespace
}  // namespace vq
