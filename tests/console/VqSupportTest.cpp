// The support page driven by its controls' names: the checks of a ticket in their order, the
// ticket's lines, the clipboard and the file.
#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QFileDialog>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include "console/VqSupport.h"
#include "platform/Files.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

class VqSupportTest : public ::testing::Test {
  protected:
    VqSupportTest() {
        page.show();
        page.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&page));
    }
    template <typename T = QLineEdit>
    T* Find(const char* name) {
        T* child = page.findChild<T*>(QString::fromUtf8(name));
        EXPECT_NE(child, nullptr) << name;
        return child;
    }
    // A form that makes a ticket.
    void FillIn() {
        Find("Text1")->setText(QStringLiteral("op@example.org"));
        for (const char* count : {"Text2(1)", "Text2(2)", "Text2(3)"})
            Find(count)->setText(QStringLiteral("0"));
        Find("Text2(0)")->setText(QStringLiteral("1"));
        Find<QCheckBox>("Check1(0)")->setChecked(true);
        Find<QCheckBox>("Check1(3)")->setChecked(true);
        Find<QPlainTextEdit>("Text3")->setPlainText(QStringLiteral("Tasks stay Ready.\nWhy?"));
    }
    void Click(const char* name) { Find<QPushButton>(name)->click(); }

    test::TestServer t;
    VqSupport page{*t};
};

TEST_F(VqSupportTest, EachCheckRefusesTheTicketWithItsMessageAndTheFocusInItsField) {
    struct Case {
        const char* field;  // what the case changes in a filled form
        const char* value;
        const char* message;
        const char* focus;
    };
    const Case cases[] = {
        {"Text1", "op.example.org",
         "Please enter your e-mail where do you want to recive our reply.", "Text1"},
        {"Text2(0)", "0", "You have to enter at least one server or workstation.", "Text2(0)"},
        {"Check1(0)", "", "You have to enter at least one operating system.", "Check1(0)"},
        {"Text2(3)", "2", "You have to enter at least one operating system.", "Check2(0)"},
        {"Text3", "", "Please describe your problem.", "Text3"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.field);
        FillIn();
        if (std::string(c.field) == "Check1(0)") {
            Find<QCheckBox>("Check1(0)")->setChecked(false);
            Find<QCheckBox>("Check1(3)")->setChecked(false);
        } else if (std::string(c.field) == "Text3") {
            Find<QPlainTextEdit>("Text3")->clear();
        } else {
            Find(c.field)->setText(QString::fromUtf8(c.value));
        }
        if (std::string(c.field) == "Text2(3)") Find("Text2(0)")->setText(QStringLiteral("0"));
        QApplication::clipboard()->setText(QStringLiteral("before"));
        t.op.messages.clear();
        for (const char* button : {"Command1", "Command3"}) {
            Click(button);
            ASSERT_EQ(t.op.messages.size(), 1u) << button;
            EXPECT_EQ(t.op.messages[0].text, c.message);
            EXPECT_EQ(t.op.messages[0].icon, MessageIcon::Exclamation);
            EXPECT_EQ(QApplication::focusWidget()->objectName().toStdString(), c.focus);
            t.op.messages.clear();
        }
        EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("before"));
    }
}

TEST(TroubleTicketText, HasItsLinesInOrderWithTheCheckedSystemsJoined) {
    TicketForm form;
    form.email = "@";
    form.counts = {"0", "0", "3", "12"};
    form.workstationSystems = {true, false, false, true, false, true};
    form.problem = "First line\nsecond line";
    EXPECT_EQ(TroubleTicketText(form, {"Version: 2.1.487", "Computer: HOST"}),
              kSupportMailAddress +
                  "\r\n>> Orvantis Trouble Ticket <<\r\n@\r\nOrvantis Personal Server\r\n<ID>\r\n"
                  "Version: 2.1.487\r\nComputer: HOST\r\n</ID>\r\nHardware:\r\nServers: 0, 0, \r\n"
                  "Workstations: 3, 12, 2000-Me-Other\r\nFirst line\r\nsecond line\r\n"
                  "<< Orvantis Trouble Ticket >>\r\n");
}

TEST_F(VqSupportTest, TheTicketGoesToTheClipboardAndToAFileWithTheirMessages) {
    FillIn();
    Click("Command1");
    // The ticket's lines are TroubleTicketText's test; here the form's fields reach them.
    const std::string ticket = QApplication::clipboard()->text().toStdString();
    EXPECT_NE(ticket.find("\r\nServers: 1, 0, 2000-2003\r\nWorkstations: 0, 0, \r\nTasks stay "
                          "Ready.\r\nWhy?\r\n"),
              std::string::npos);
    ASSERT_EQ(t.op.messages.size(), 1u);
    EXPECT_EQ(t.op.messages[0].text,
              "Your Trouble Ticket has been sent to clipboard.\n\nPlease do not change it and "
              "leave it as "
              "it is.\n\nPaste it to your e-mail message and send it to " +
                  kSupportMailAddress +
                  ".\nThe destination e-mail address is also in the first line of Trouble Ticket.");

    const std::string file = t.dir.Path() + "ticket.txt";
    ASSERT_TRUE(WriteFileAtomic(
        file, "an older ticket, longer than the new one will be" + std::string(900, '.')));
    page.ChooseTicketFile = [&file] { return file; };
    t.op.messages.clear();
    Find("Text1")->setFocus();
    Click("Command3");
    EXPECT_EQ(test::ReadFileText(file), ticket);
    ASSERT_EQ(t.op.messages.size(), 1u);
    EXPECT_EQ(
        t.op.messages[0].text.rfind("Your Trouble Ticket has been copied to file: " + file +
                                        ".\n\nPlease do not change it and leave it as it is.\n\n"
                                        "Attach it to your e-mail message and send it to ",
                                    0),
        0u);
    EXPECT_EQ(QApplication::focusWidget(), Find<QPushButton>("Command2"));

    page.ChooseTicketFile = [this] { return t.dir.Path() + "gone/ticket.txt"; };
    t.op.messages.clear();
    Click("Command3");
    ASSERT_EQ(t.op.messages.size(), 1u);
    EXPECT_EQ(t.op.messages[0].text.rfind("Cannot write your Trouble Ticket to file: " +
                                              t.dir.Path() + "gone/ticket.txt!\n\n",
                                          0),
              0u);
}

TEST_F(VqSupportTest, ACountTakesFourDigitsSelectsItselfAndIsZeroWhenLeftEmpty) {
    QLineEdit* count = Find("Text2(1)");
    EXPECT_EQ(count->text(), QStringLiteral("0"));
    count->setFocus();
    QApplication::processEvents();
    EXPECT_EQ(count->selectedText(), QStringLiteral("0"));
    QTest::keyClicks(count, QStringLiteral("12x345"));
    EXPECT_EQ(count->text(), QStringLiteral("1234"));
    count->clear();
    Find("Text1")->setFocus();
    EXPECT_EQ(count->text(), QStringLiteral("0"));
}

// The file chooser asks for a ticket file under its title and filter; its choice is written.
TEST_F(VqSupportTest, TheFileChooserNamesTheTicketFile) {
    FillIn();
    const QString file = QString::fromStdString(t.dir.Path() + "chosen.txt");
    QTimer::singleShot(0, [&file] {
        auto* chooser = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        ASSERT_NE(chooser, nullptr);
        EXPECT_EQ(chooser->windowTitle(),
                  QStringLiteral("Please select file name for your Trouble Ticket file"));
        EXPECT_EQ(chooser->nameFilters(), QStringList{QStringLiteral("Trouble Ticket (*.txt)")});
        chooser->selectFile(file);
        static_cast<QDialog*>(chooser)->accept();
    });
    Click("Command3");
    EXPECT_NE(test::ReadFileText(file.toStdString()).find(">> Orvantis Trouble Ticket <<"),
              std::string::npos);
}

}  // namespace
}  // namespace vq
