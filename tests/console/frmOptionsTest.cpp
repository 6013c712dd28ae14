// The Options dialog driven by its controls' names: what it opens with, the field checks, the
// working copy of the classes, the calendar and what OK and Apply write.
#include <gtest/gtest.h>

#include <QAction>
#include <QCalendarWidget>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTabBar>
#include <QTabWidget>
#include <QTest>
#include <QTimeEdit>
#include <QTimer>
#include <QTreeView>
#include <QTreeWidget>

#include "console/Form1.h"
#include "console/VqSupport.h"
#include "console/frmAbout.h"
#include "console/frmOptions.h"
#include "platform/Files.h"
#include "storage/Settings.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

class frmOptionsTest : public ::testing::Test {
  protected:
    void Open() {
        dialog = std::make_unique<frmOptions>(*t, [this] { ++columnRebuilds; });
        dialog->show();
        dialog->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(dialog.get()));
    }
    template <typename T = QLineEdit>
    T* Find(const char* name) {
        T* child = dialog->findChild<T*>(QString::fromUtf8(name));
        EXPECT_NE(child, nullptr) << name;
        return child;
    }
    std::string Text(const char* name) { return Find(name)->text().toStdString(); }
    // Types into a field as the operator would, the focus in it.
    void Type(const char* name, const char* text) {
        QLineEdit* field = Find(name);
        field->setFocus();
        field->selectAll();
        QTest::keyClicks(field, QString::fromUtf8(text));
    }
    void ShowTab(const char* key) {
        auto* tabs = Find<QTabWidget>("tbsOptions");
        tabs->setCurrentWidget(Find<QWidget>(key));
    }
    void Click(const char* name) { Find<QPushButton>(name)->click(); }
    std::string Setting(const char* name) {
        return GetSettingText(*t.registry, "ServerSettings", name);
    }
    QWidget* Focus() { return QApplication::focusWidget(); }

    test::TestServer t;
    std::unique_ptr<frmOptions> dialog;
    int columnRebuilds = 0;
};

TEST_F(frmOptionsTest, OpensWithTheSixTabsTheStoredSettingsAndTheLogonFieldsEmptyAndOff) {
    t.SetSetting("DiagC", "15000");
    t.SetSetting("MJP", "P31");
    t.SetSetting("ConsMode", "0");
    Open();
    // Each tab's caption, key and tool tip.
    auto* tabWidget = Find<QTabWidget>("tbsOptions");
    QStringList tabs;
    for (int i = 0; i < tabWidget->count(); ++i)
        tabs << QStringList{tabWidget->tabText(i), tabWidget->tabBar()->tabData(i).toString(),
                            tabWidget->tabToolTip(i)}
                    .join(QLatin1Char('|'));
    EXPECT_EQ(tabs.join(QLatin1String(", ")).toStdString(),
              "General|General|General Options, Columns|Columns|Columns, "
              "Non-working days|Holidays|Non-working days, Auto Logon|Logon|Auto Logon, "
              "Misc|Timers|Misc, Classes|Classes|Classes");
    EXPECT_EQ(Text("Text1"), "1");
    EXPECT_FALSE(Find("Text1")->isEnabled());
    EXPECT_EQ(Text("Text2"), "15");
    EXPECT_EQ(Text("FS(1)"), "1000");  // the dialog's own proposal while none is stored
    EXPECT_EQ(Find<QComboBox>("ImageCombo1")->currentData().toString(), QStringLiteral("P31"));
    EXPECT_EQ(Find<QComboBox>("ImageCombo1")->count(), 35);
    EXPECT_EQ(Find<QComboBox>("ImageCombo3")->currentText(), QStringLiteral("Hide"));
    EXPECT_EQ(Find<QComboBox>("ImageCombo2")->currentText(), QStringLiteral("2048"));
    EXPECT_FALSE(Find<QCheckBox>("LogOnC")->isChecked());
    EXPECT_FALSE(Find<QCheckBox>("LogOnC")->isEnabled());
    EXPECT_FALSE(Find("txtU")->isEnabled());
    EXPECT_EQ(Find("txtP")->echoMode(), QLineEdit::Password);
    EXPECT_EQ(
        dialog->findChildren<QCheckBox*>(QRegularExpression(QStringLiteral("^Check1\\("))).size(),
        20);
    EXPECT_EQ(Find<QComboBox>("ImageCombo5")->currentText(), QStringLiteral("Class A"));
    EXPECT_EQ(Find<QComboBox>("ImageCombo5")->count(), 26);
    Click("cmdHelp");
    ASSERT_EQ(t.op.messages.size(), 1u);
    EXPECT_EQ(t.op.messages[0].text,
              "Unable to display Help Contents. There is no Help associated with this project.");
}

TEST(LimitPonder, AboveOneIsOneAndATextThatIsNoNumberIsZero) {
    const std::pair<const char*, double> cases[] = {{"1.5", 1}, {"0.25", 0.25}, {"0,5", 0.5},
                                                    {"", 0},    {".", 0},       {"1.2.3", 0},
                                                    {"7", 1},   {"0", 0}};
    for (const auto& [text, value] : cases) EXPECT_DOUBLE_EQ(LimitPonder(text), value) << text;
    EXPECT_EQ(PonderText(0.25), "0.25");
    EXPECT_EQ(PonderText(1), "1");
}

TEST_F(frmOptionsTest, APonderOfOnePointFiveShowsOneWhenLeftAndTheSumFollowsEveryChange) {
    Open();
    ShowTab("Classes");
    Find<QComboBox>("ImageCombo5")->setCurrentIndex(1);  // class B: 1 CPU second
    Type("TxTC(4)", "1000");
    Type("TxTPon(1)", "0.5");
    EXPECT_EQ(Text("TxTPon(3)"), "501");
    Type("TxTPon(0)", "1.5");
    EXPECT_EQ(Text("TxTPon(0)"), "1.5");  // while it is typed
    Find("TxTC(0)")->setFocus();
    EXPECT_EQ(Text("TxTPon(0)"), "1");
    Find<QTimeEdit>("DTPicker2")->setTime(QTime(0, 1, 0));
    EXPECT_EQ(Text("TxTPon(3)"), "560");
    EXPECT_DOUBLE_EQ(dialog->WorkingCopy().Ponders[0], 1);
    EXPECT_DOUBLE_EQ(dialog->WorkingCopy().Ponders[1], 0.5);
}

TEST_F(frmOptionsTest, TwentyFourDaysAreRefusedWithABeepAndTheFocusKept) {
    Open();
    ShowTab("Classes");
    Type("TxTC(1)", "24");
    Find("TxTC(3)")->setFocus();
    EXPECT_EQ(Focus(), Find("TxTC(1)"));
    EXPECT_EQ(t.op.beeps, 1);
    Click("cmdOK");  // the refused field holds the dialog
    EXPECT_TRUE(dialog->isVisible());
    Type("TxTC(1)", "12");
    Find("TxTC(3)")->setFocus();
    EXPECT_EQ(Focus(), Find("TxTC(3)"));
    EXPECT_EQ(dialog->WorkingCopy().ClassTable[0].MaxTime, 12 * 86400);
    // An empty cancel field is no number either.
    Type("CancelTime", "");
    QTest::keyClick(Find("CancelTime"), Qt::Key_Backspace);
    Find("TxTC(3)")->setFocus();
    EXPECT_EQ(Focus(), Find("CancelTime"));
    EXPECT_EQ(t.op.beeps, 2);
}

TEST_F(frmOptionsTest, FieldsTakeOnlyTheirKeysAndLengthsAndEmptyFieldsTheirDefaultsWhenLeft) {
    Open();
    Type("Buffer(0)", "12a3-");
    EXPECT_EQ(Text("Buffer(0)"), "123");
    Type("txtTimeDelay", "1234567");
    EXPECT_EQ(Text("txtTimeDelay"), "12345");
    struct Case {
        const char* tab;
        const char* field;
        const char* left;
    };
    const Case cases[] = {{"General", "Buffer(0)", "800"},    {"General", "Buffer(1)", "600"},
                          {"General", "FS(1)", "1000"},       {"General", "FS(2)", "256"},
                          {"General", "txtTimeDelay", "200"}, {"Timers", "JQP(2)", "0"},
                          {"Timers", "Misc(0)", "1"},         {"Timers", "Misc(2)", "0"}};
    for (const Case& c : cases) {
        ShowTab(c.tab);
        Find(c.field)->setFocus();
        Find(c.field)->clear();
        Find<QComboBox>("ImageCombo5")->setFocus();
        EXPECT_EQ(Text(c.field), c.left) << c.field;
    }
    Type("TxTPon(2)", "0,5");
    EXPECT_EQ(Text("TxTPon(2)"), "0,5");
}

TEST_F(frmOptionsTest, ASwitchedClassKeepsItsEditsInTheWorkingCopyAndCancelLosesThemAll) {
    Open();
    ShowTab("Classes");
    auto* classes = Find<QComboBox>("ImageCombo5");
    classes->setCurrentIndex(2);
    Type("TxTC(3)", "777");
    Find<QComboBox>("ImageCombo4")->setCurrentIndex(0);  // Low 0
    classes->setCurrentIndex(5);
    EXPECT_EQ(Text("TxTC(3)"), "0");
    classes->setCurrentIndex(2);
    EXPECT_EQ(Text("TxTC(3)"), "777");
    EXPECT_EQ(dialog->WorkingCopy().ClassTable[2].QueuePriority, 777);
    EXPECT_EQ(dialog->WorkingCopy().ClassTable[2].CpuPriority, 0);
    Click("cmdCancel");
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_EQ(t->classes.ClassTable[2].QueuePriority, 0);
    EXPECT_FALSE(PathExists(t->DataPath + "Classes.dat"));
}

TEST_F(frmOptionsTest, OkWritesTheSettingsTheClassesAndTheDaysAndApplyAfterCancelStays) {
    Open();
    Type("Buffer(1)", "640");
    Find<QComboBox>("ImageCombo2")->setCurrentIndex(6);
    ShowTab("Timers");
    Type("Misc(1)", "3");
    ShowTab("Classes");
    Find<QComboBox>("ImageCombo5")->setCurrentIndex(1);
    Type("TxTC(2)", "1");
    Find<QTimeEdit>("DTPicker2")->setTime(QTime(1, 0, 0));
    Type("TxTC(4)", "2048");
    Click("cmdOK");
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_EQ(Setting("BufW"), "640");
    EXPECT_EQ(Setting("SBS"), "65536");
    EXPECT_EQ(Setting("TIQH"), "3");
    EXPECT_EQ(Setting("DiagC"), "5000");
    EXPECT_EQ(Setting("LogonEn"), "0");
    EXPECT_EQ(t->classes.ClassTable[1].MaxCpu, 86400 + 3600);
    EXPECT_EQ(t->classes.ClassTable[1].MaxUnits, 86400 + 3600 + 2048);
    // The file's form is the classes file's own test; here it holds the edit.
    EXPECT_NE(test::ReadFileText(t->DataPath + "Classes.dat").find("<CPU>90000</CPU>"), std::string::npos);
    EXPECT_EQ(columnRebuilds, 1);
    // Both password fields empty write ALOP from the empty text and turn auto logon off.
    EXPECT_FALSE(Setting("ALOP").empty());
    EXPECT_EQ(t.registry->Read(Hive::LocalMachine, kWinlogonKey, "AutoAdminLogon")->AsText(), "0");
}

TEST_F(frmOptionsTest, DifferingPasswordsKeepTheDialogOpenAfterTheOtherSettingsAreWritten) {
    Open();
    ShowTab("Logon");
    Find("txtP")->setText(QStringLiteral("secret"));
    Find("txtCP")->setText(QStringLiteral("secreT"));
    Find<QCheckBox>("Check2")->setChecked(true);
    Click("cmdOK");
    EXPECT_TRUE(dialog->isVisible());
    ASSERT_EQ(t.op.messages.size(), 1u);
    EXPECT_EQ(t.op.messages[0].text, "Invalid Logon Passsword. Please retry.");
    EXPECT_EQ(t.op.messages[0].icon, MessageIcon::Exclamation);
    EXPECT_FALSE(t.registry->Read(Hive::CurrentUser, SectionKey("ServerSettings"), "ALOP"));
    EXPECT_EQ(Setting("StartServ"), "1");
    EXPECT_TRUE(t.registry->Read(Hive::CurrentUser, kRunKey, kRunValueName));
    EXPECT_EQ(columnRebuilds, 1);
}

TEST_F(frmOptionsTest, AFailureStopsApplyWithItsMessageAndKeepsWhatWasWritten) {
    Open();
    Type("Buffer(0)", "900");
    t->ServerPath = t.dir.Path() + "gone/";  // NonWork.dat can't be written there
    Click("cmdApply");
    ASSERT_EQ(t.op.messages.size(), 1u);
    EXPECT_EQ(t.op.messages[0].text.rfind("Error: Cannot Save Settings!\n\n", 0), 0u);
    EXPECT_EQ(Setting("BufH"), "900");
    EXPECT_FALSE(PathExists(t->DataPath + "Classes.dat"));
    EXPECT_EQ(columnRebuilds, 0);
}

TEST_F(frmOptionsTest, TheCalendarMarksDaysBoldOnceAndClearAllDatesThenOkLeavesAnEmptyFile) {
    ASSERT_TRUE(WriteFileAtomic(NonWorkFilePath(*t), "\"2026-12-25\"\r\n\"2027-01-01\"\r\n"));
    Open();
    ShowTab("Holidays");
    auto* calendar = Find<QCalendarWidget>("MonthView1");
    auto* list = Find<QTreeWidget>("DTs");
    EXPECT_EQ(calendar->monthShown(), 12);  // the first listed date
    EXPECT_EQ(calendar->dateTextFormat(QDate(2026, 12, 25)).fontWeight(), QFont::Bold);
    Q_EMIT calendar->clicked(QDate(2026, 12, 24));
    EXPECT_EQ(list->topLevelItemCount(), 3);
    EXPECT_EQ(calendar->dateTextFormat(QDate(2026, 12, 24)).fontWeight(), QFont::Bold);
    Q_EMIT calendar->clicked(QDate(2026, 12, 25));  // a second click takes the day away
    EXPECT_EQ(list->topLevelItemCount(), 2);
    EXPECT_NE(calendar->dateTextFormat(QDate(2026, 12, 25)).fontWeight(), QFont::Bold);
    Click("cmdApply");
    EXPECT_EQ(test::ReadFileText(NonWorkFilePath(*t)), "\"2027-01-01\"\r\n\"2026-12-24\"\r\n");

    Click("Command1");
    EXPECT_EQ(list->topLevelItemCount(), 0);
    EXPECT_TRUE(calendar->dateTextFormat().isEmpty());
    Click("cmdOK");
    EXPECT_TRUE(PathExists(NonWorkFilePath(*t)));
    EXPECT_EQ(test::ReadFileText(NonWorkFilePath(*t)), "");
}

TEST_F(frmOptionsTest, CtrlTabGoesToTheNextTabAndFromTheLastToTheFirst) {
    Open();
    auto* tabs = Find<QTabWidget>("tbsOptions");
    tabs->setCurrentIndex(4);
    Find("Misc(0)")->setFocus();
    QTest::keyClick(Focus(), Qt::Key_Tab, Qt::ControlModifier);
    EXPECT_EQ(tabs->currentIndex(), 5);
    QTest::keyClick(Focus(), Qt::Key_Tab, Qt::ControlModifier);
    EXPECT_EQ(tabs->currentIndex(), 0);
}

TEST(frmOptionsColumns, WithEveryColumnUncheckedOkLeavesTheTaskListItsThreeColumns) {
    ScreenRelay relay;
    test::TestServer t(&relay);
    Form1 window(*t);
    relay.SetTarget(&window);
    window.LoadAtStart();
    frmOptions options(*t, [&window] {
        window.SaveColumnWidths();
        window.Views().BuildTaskColumns();
        window.Views().mnuViewRefresh_Click();
    });
    for (QCheckBox* box :
         options.findChildren<QCheckBox*>(QRegularExpression(QStringLiteral("^Check1\\("))))
        box->setChecked(false);
    options.findChild<QPushButton*>(QStringLiteral("cmdOK"))->click();
    const auto* list = window.findChild<QTreeView*>(QStringLiteral("TaskView"));
    EXPECT_EQ(list->model()->columnCount(), 3);
    EXPECT_EQ(GetSettingText(*t.registry, "Settings", "Show-Units"), "0");
    relay.SetTarget(nullptr);
}

// The menu items open their windows modally over the main window, as vqserv sets them.
TEST_F(frmOptionsTest, TheMenuOpensTheOptionsTheSupportPageAndTheAboutBox) {
    Form1 window(*t);
    window.LoadAtStart();
    window.ShowOptionsDialog = [&] { ShowOptionsDialog(window, *t); };
    window.ShowSupportPage = [&] { ShowSupportPage(&window, *t); };
    window.ShowAboutBox = [&] { ShowAboutBox(&window, *t); };
    const std::pair<const char*, const char*> items[] = {{"mnuViewProp", "frmOptions"},
                                                         {"mnuHelpSupport", "VqSupport"},
                                                         {"mnuHelpAbout", "frmAbout"}};
    for (const auto& [item, dialogName] : items) {
        QString opened;
        QTimer::singleShot(0, [&opened, &window] {
            QWidget* modal = QApplication::activeModalWidget();
            if (!modal) return;
            opened = modal->objectName();
            EXPECT_EQ(modal->parentWidget(), &window);
            static_cast<QDialog*>(modal)->reject();
        });
        window.findChild<QAction*>(QString::fromUtf8(item))->trigger();
        EXPECT_EQ(opened.toStdString(), dialogName) << item;
    }
}

}  // namespace
}  // namespace vq
