// The Properties window driven by its controls' names over one task of a test server.
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QTimeEdit>
#include <QTreeView>
#include <QTreeWidget>
#include <array>
#include <tuple>

#include "console/Form1.h"
#include "console/StepsToolWin.h"
#include "core/TaskControl.h"
#include "core/tables/WorkingTables.h"
#include "platform/Files.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

// "0012" and marks on the 4th and on Monday, 1 hour 5 minutes, "SSH".
const std::string kEdited = "0012   X" + std::string(27, ' ') + " X     " + "0105SSH";

class StepsToolWinTest : public ::testing::Test {
  protected:
    StepsToolWinTest() : key(t.AddTask(7, "Nightly")) {}

    void Open() {
        window = std::make_unique<StepsToolWin>(*t, [this] { ++refreshes; });
        window->PropKey(key);
    }
    template <typename Widget = QLineEdit>
    Widget* Get(const char* name) {
        return window->findChild<Widget*>(QString::fromLatin1(name));
    }
    // Types into a field as the operator would, after emptying it.
    void Type(const char* name, const char* keys) {
        Get(name)->clear();
        QTest::keyClicks(Get(name), QString::fromLatin1(keys));
    }
    QString Text(const char* name) { return Get(name)->text(); }
    QTreeWidgetItem* Day(const char* list, int row) {
        return Get<QTreeWidget>(list)->topLevelItem(row);
    }
    // The schedule as the window shows it: times|hours|minutes|day code, then the rows checked
    // in the month days (ListView2) and the week days (ListView3).
    std::string Schedule() {
        std::string shown = QStringList{Text("Text12"), Text("Text13"), Text("Text14"),
                                        Get<QComboBox>("ImageCombo3")->currentData().toString()}
                                .join(QLatin1Char('|'))
                                .toStdString();
        for (const char* list : {"ListView2", "ListView3"})
            for (int row = 0; row < Get<QTreeWidget>(list)->topLevelItemCount(); ++row)
                if (Day(list, row)->checkState(0) == Qt::Checked)
                    shown += std::string(" ") + list[8] + ":" + std::to_string(row);
        return shown;
    }
    void Trigger(const char* action) {
        window->findChild<QAction*>(QString::fromLatin1(action))->trigger();
    }
    void Choose(const char* combo, const char* entryKey) {
        Get<QComboBox>(combo)->setCurrentIndex(
            Get<QComboBox>(combo)->findData(QString::fromLatin1(entryKey)));
    }
    void Click(const char* name) { Get<QPushButton>(name)->click(); }
    std::string Cell(const char* column) { return test::TaskCellOf(t, key, column); }
    std::string Row() {
        std::string text;
        GetRowText(t->tables, kTaskTable, key, text);
        return text;
    }

    test::TestServer t;
    std::string key;
    std::unique_ptr<StepsToolWin> window;
    int refreshes = 0;
};

TEST_F(StepsToolWinTest, OkWithNothingEditedAndCancelAfterEditsWriteNothing) {
    for (bool edit : {false, true}) {
        SCOPED_TRACE(edit);
        Open();
        // The queue check ages the priority behind the open window.
        test::SetTaskCell(t, key, "Queue Priority", "000250");
        const std::string before = Row();
        if (edit) {
            Type("ZkDep", "Other");
            Type("ZkQPrio", "9");
            Click("Command3");
            Choose("ImageCombo1", "P03");
        }
        EXPECT_EQ(window->Edits().changed, edit);
        Click(edit ? "Command1" : "Command2");
        EXPECT_EQ(Row(), before);
        EXPECT_EQ(refreshes, 0);
    }
}

TEST_F(StepsToolWinTest, EditingOnlyTheDependencyLeavesTheScheduleAndTheAgedPriority) {
    const std::string repeat = "0002" + std::string(38, ' ') + "0030WD";
    test::SetTaskCell(t, key, "Repeat", repeat);
    test::SetTaskCell(t, key, "CurRepeat", "2026-11-22 12:30:00");
    Open();
    test::SetTaskCell(t, key, "Queue Priority", "000250");
    Type("ZkDep", "Build");
    Click("Command2");
    EXPECT_EQ(Cell("Dependency"), "Build");
    EXPECT_EQ(Cell("Queue Priority"), "000250");
    EXPECT_EQ(Cell("Repeat"), repeat);
    EXPECT_EQ(Cell("CurRepeat"), "2026-11-22 12:30:00");
    EXPECT_EQ(Cell("SchTime"), "2026-11-22 12:00:00");
    EXPECT_EQ(refreshes, 1);
}

// A complete task's schedule is edited too, and its status stays; "<< Now >>" sets the pickers.
TEST_F(StepsToolWinTest, AnIntervalOfOneHourFiveMinutesGives0105AtPositions43To46) {
    test::SetTaskCell(t, key, "Status", "Complete");
    Open();
    t.clock.Advance(3600 + 61);
    Click("Command3");
    EXPECT_EQ(Get<QTimeEdit>("DTPicker1")->time(), QTime(13, 1, 1));
    Type("Text12", "12");
    Type("Text13", "1");
    Type("Text14", "5");
    Day("ListView2", 3)->setCheckState(0, Qt::Checked);
    Day("ListView3", 1)->setCheckState(0, Qt::Checked);
    Choose("ImageCombo3", "SSH");
    Type("ZkQPrio", "0042");
    Click("Command2");
    EXPECT_EQ(Cell("Repeat"), kEdited);
    EXPECT_EQ(Cell("CurRepeat"), "0");
    EXPECT_EQ(Cell("SchTime"), "2026-11-22 13:01:01");
    EXPECT_EQ(Cell("Queue Priority"), "000042");
    EXPECT_EQ(Cell("Status"), "Complete");
}

TEST_F(StepsToolWinTest, OpeningShowsTheRepeatTextPartByPartAndPassesOverWhatDoesntRead) {
    const std::pair<std::string, const char*> cases[] = {
        {"", "|||ED"},
        {"0003", "3|||ED"},
        {"12", "12|||ED"},
        {kEdited, "12|01|05|SSH 2:3 3:1"},
        {"0002X" + std::string(29, ' ') + "X      X2359WDH", "2|23|59|WDH 2:0 2:30 3:6"},
        {"ab12" + std::string(38, 'x') + "0000XYZ", "|00|00|ED"},
    };
    for (const auto& [repeat, shown] : cases) {
        SCOPED_TRACE(repeat);
        test::SetTaskCell(t, key, "Repeat", repeat);
        Open();
        EXPECT_EQ(Schedule(), shown);
        EXPECT_EQ(Text("ZkQPrio"), QStringLiteral("000200"));
        EXPECT_FALSE(window->Edits().changed);
    }
}

// The week days in the locale's words from Sunday on; the priorities with the class RealTime.
TEST_F(StepsToolWinTest, TheListsStandInTheirOrder) {
    const QLocale before;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    Open();
    QLocale::setDefault(before);
    EXPECT_EQ(Day("ListView3", 0)->text(0), QStringLiteral("Sonntag"));
    EXPECT_EQ(Day("ListView3", 6)->text(0), QStringLiteral("Samstag"));
    EXPECT_EQ(Day("ListView2", 30)->data(0, Qt::UserRole), QStringLiteral("D31"));
    auto* priorities = Get<QComboBox>("ImageCombo1");
    ASSERT_EQ(priorities->count(), 42);
    EXPECT_EQ(priorities->itemData(41), QStringLiteral("P56"));
    EXPECT_EQ(priorities->itemText(41), QStringLiteral("RealTime 6"));
}

TEST_F(StepsToolWinTest, ANewCpuPriorityReachesARunnerSlotOnlyWhenTheTaskHasOne) {
    // JobIndex, the entry chosen, and whether the runner of slot 0 hears "PRTY" 51.
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"", "P51", false}, {"00", "P51", true}, {"00", "P22", false}};
    for (const auto& [jobIndex, chosen, sent] : cases) {
        SCOPED_TRACE(std::string(jobIndex) + chosen);
        test::SetTaskCell(t, key, "JobIndex", jobIndex);
        test::SetTaskCell(t, key, "CPU", "22");
        t->link.command = {"NONE", 0};
        Open();
        Choose("ImageCombo1", chosen);
        Type("ZkDep", "x");
        Click("Command2");
        EXPECT_EQ(Cell("CPU"), std::string(chosen).substr(1));
        EXPECT_EQ(t->link.command.Command, sent ? "PRTY" : "NONE");
        EXPECT_EQ(t->link.command.Argument, sent ? 51 : 0);
    }
}

TEST_F(StepsToolWinTest, FieldsTakeTheirCharactersUpToTheirLengthsAndAnEmptyNumberLeftIsZero) {
    // Field, typed, kept, and what leaving it empty leaves.
    const std::array<const char*, 4> cases[] = {{"ZkQPrio", "12ab34567890", "123456789", "0"},
                                                {"Text12", "1a2b345", "1234", "0"},
                                                {"Text13", "9x99", "99", "0"},
                                                {"Text14", "7-59", "75", "0"},
                                                {"ZkDep", "Deploy-All", "Deploy-A", ""}};
    Open();
    for (const auto& [name, typed, kept, left] : cases) {
        Type(name, typed);
        EXPECT_EQ(Text(name), QString::fromLatin1(kept));
        Get(name)->clear();
        QFocusEvent leave(QEvent::FocusOut);
        QApplication::sendEvent(Get(name), &leave);
        EXPECT_EQ(Text(name), QString::fromLatin1(left)) << name;
    }
    // A longer dependency than the field takes stays whole and can be shortened only.
    test::SetTaskCell(t, key, "Dependency", "$NightlyBuild");
    Open();
    QTest::keyClicks(Get("ZkDep"), QStringLiteral("s"));
    EXPECT_EQ(Text("ZkDep"), QStringLiteral("$NightlyBuild"));
    QTest::keyClick(Get("ZkDep"), Qt::Key_Backspace);
    Type("Text13", "99");
    Click("Command2");
    EXPECT_EQ(Cell("Dependency"), "$NightlyBuil");
    EXPECT_EQ(Cell("Repeat").substr(42, 2), "99");
}

TEST_F(StepsToolWinTest, ReportAndDiagShowTheFileAtEachClickOrSayItIsNotAvailable) {
    const std::string folder = Cell("RF") + "/";
    ASSERT_TRUE(MakeFolders(folder));
    Open();
    for (const char* page : {"Report", "Diag"}) {
        SCOPED_TRACE(page);
        const std::string path =
            folder + (page == std::string("Report") ? "Nightly.txt" : "Diag1.txt");
        auto* box = Get<QPlainTextEdit>("RichTextBox1");
        Trigger(page);
        EXPECT_EQ(box->toPlainText().toStdString(), "File \"" + path + "\" Is Not Available.");
        EXPECT_TRUE(box->isVisibleTo(window.get()));
        EXPECT_FALSE(Get<QWidget>("Picture2")->isVisibleTo(window.get()));
        ASSERT_TRUE(WriteFileAtomic(path, "Line 1\r\nLine 2\r\n"));
        Trigger(page);
        EXPECT_EQ(box->toPlainText(), QStringLiteral("Line 1\nLine 2\n"));
        Trigger("General");
        EXPECT_TRUE(Get<QWidget>("Picture2")->isVisibleTo(window.get()));
    }
}

TEST_F(StepsToolWinTest, ATaskThatLeftTheQueueWhileTheWindowStoodDoesntComeBack) {
    Open();
    ASSERT_TRUE(RemoveTask(*t, key, false));
    Type("ZkDep", "Build");
    Choose("ImageCombo1", "P03");
    Click("Command3");
    Click("Command2");
    EXPECT_FALSE(test::HasTask(t, key));
    EXPECT_EQ(refreshes, 1);
}

// Properties of the main window: the menu, the toolbar button and a double click open the
// window for the selected task; the menu's state doesn't wait for the window to be set.
TEST(Form1Properties, TheMenuTheButtonAndADoubleClickOpenTheSelectedTask) {
    test::TestServer t;
    const std::string key = t.AddTask(1, "Only");
    Form1 window(*t);
    window.LoadAtStart();
    window.show();
    auto* list = window.findChild<QTreeView*>(QStringLiteral("TaskView"));
    const QPoint row = list->visualRect(list->model()->index(0, 0)).center();
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, row);
    auto* menu = window.findChild<QAction*>(QStringLiteral("mnuViewStepWin"));
    EXPECT_TRUE(menu->isEnabled());
    menu->trigger();  // no window set: nothing opens and nothing is said
    EXPECT_TRUE(t.op.messages.empty());

    std::vector<std::string> opened;
    window.OpenPropertiesWindow = [&opened](const std::string& task) { opened.push_back(task); };
    menu->trigger();
    window.findChild<QAction*>(QStringLiteral("Prop"))->trigger();
    QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, row);
    EXPECT_EQ(opened, std::vector<std::string>(3, key));
}

}  // namespace
}  // namespace vq
