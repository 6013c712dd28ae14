// The log viewer over a server's SrvLog.txt.
#include "console/frmLog.h"

#include <gtest/gtest.h>

#include <QPlainTextEdit>
#include <QPushButton>

#include "platform/Files.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

class frmLogTest : public ::testing::Test {
protected:
    std::string LogPath() { return ts->DataPath + "SrvLog.txt"; }
    QString Shown(frmLog& form) {
        return form.findChild<QPlainTextEdit*>(QStringLiteral("RichTextBox1"))->toPlainText();
    }
    void Click(frmLog& form, const char* name) {
        form.findChild<QPushButton*>(QString::fromLatin1(name))->click();
    }

    test::TestServer ts;
};

TEST_F(frmLogTest, AMissingOrEmptyLogShowsTheNoErrorsTextAndALogShowsItsLines) {
    struct Case {
        const char* name;
        const char* file;  // nullptr: no file
        const char* shown;
    };
    const Case cases[] = {
        {"missing", nullptr, "There Are No Errors In Log"},
        {"empty", "", "There Are No Errors In Log"},
        {"entry", "\r\nLOG ENTRY - TIME: X\r\n---\r\nNo queue\r\n---\r\n",
         "\nLOG ENTRY - TIME: X\n---\nNo queue\n---\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ::unlink(LogPath().c_str());
        if (c.file) {
            ASSERT_TRUE(WriteFileAtomic(LogPath(), c.file));
        }
        frmLog form(*ts);
        EXPECT_EQ(Shown(form), QString::fromLatin1(c.shown));
        EXPECT_EQ(PathExists(LogPath()), c.file != nullptr);
        const QFontInfo font(form.findChild<QPlainTextEdit*>(QStringLiteral("RichTextBox1"))->font());
        EXPECT_TRUE(font.fixedPitch()) << font.family().toStdString();
    }
}

// The clearing leaves one line in the file; new entries follow it, and Reload shows them.
TEST_F(frmLogTest, ClearLeavesTheOneLineThatReloadShowsWithWhatCameAfter) {
    test::LocaleScope locale("C");
    ASSERT_TRUE(locale.Active());
    ASSERT_TRUE(WriteFileAtomic(LogPath(), "\r\nOLD ENTRY\r\n"));
    frmLog form(*ts);
    Click(form, "Command1");
    EXPECT_EQ(test::ReadFileText(LogPath()), "LOG CLEARED AT: 11/22/26 12:00:00\r\n");
    EXPECT_EQ(Shown(form), QStringLiteral("LOG CLEARED AT: 11/22/26 12:00:00\n"));
    ASSERT_TRUE(AppendToFile(LogPath(), "NEW ENTRY\r\n"));
    Click(form, "Command2");
    EXPECT_EQ(Shown(form), QStringLiteral("LOG CLEARED AT: 11/22/26 12:00:00\nNEW ENTRY\n"));
    EXPECT_TRUE(ts.op.messages.empty());
}

TEST_F(frmLogTest, AClearThatCantWriteSaysWhy) {
    ts->DataPath = ts.dir.Path() + "no such folder/";
    frmLog form(*ts);
    Click(form, "Command1");
    ASSERT_EQ(ts.op.messages.size(), 1u);
    EXPECT_EQ(ts.op.messages[0].text.rfind("The server log could not be cleared.\n\n", 0), 0u);
    EXPECT_NE(ts.op.messages[0].text.find("No such file or directory"), std::string::npos)
        << ts.op.messages[0].text;
}

}  // namespace
}  // namespace vq
