// Walking a text line by line; the builder is walked by the writers of the pinned file forms.
#include <gtest/gtest.h>

#include "storage/VqString.h"

namespace vq {
namespace {

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
