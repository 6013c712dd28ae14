// The main window driven by its controls' names over a server with a few tasks.
#include "console/Form1.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QAction>
#include <QHeaderView>
#include <QLabel>
#include <QScrollBar>
#include <QTest>
#include <QTreeView>

#include "console/DialogOperator.h"
#include "core/tables/WorkingTables.h"
#include "storage/Settings.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

// Qt's model checks watch both lists through every test here.
class Form1Test : public ::testing::Test {
protected:
    ~Form1Test() override { relay.SetTarget(nullptr); }

    void Open(int tasks, const std::string& status = "Waiting") {
        for (int i = 1; i <= tasks; ++i) keys.push_back(t.AddTask(i, "Task" + std::to_string(i), status));
        window = std::make_unique<Form1>(*t);
        for (const char* list : {"TaskView", "StepView"})
            modelChecks.push_back(std::make_unique<QAbstractItemModelTester>(
                List(list)->model(), QAbstractItemModelTester::FailureReportingMode::Fatal));
        relay.SetTarget(window.get());
        window->resize(900, 600);
        window->LoadAtStart();
        window->show();
    }
    QAction* Action(const char* name) { return window->findChild<QAction*>(QString::fromUtf8(name)); }
    QTreeView* List(const char* name) {
        return window->findChild<QTreeView*>(QString::fromLatin1(name));
    }
    QTreeView* TaskList() { return List("TaskView"); }
    // The displayed text of a task's column, as the list's model gives it.
    std::string Shown(int row, const char* columnKey) {
        const int column = t->tables.TaskView.ColumnIndex(columnKey);
        return TaskList()->model()->index(row, column).data().toString().toStdString();
    }
    int SelectedRow() {
        const QModelIndexList rows = TaskList()->selectionModel()->selectedRows();
        return rows.size() == 1 ? rows.front().row() : -1;
    }
    void ClickRow(int row) {
        QTreeView* list = TaskList();
        const QRect rect = list->visualRect(list->model()->index(row, 0));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rect.center());
    }
    std::string Setting(const char* section, const char* name) {
        return GetSettingText(*t.registry, section, name);
    }

    ScreenRelay relay;
    test::TestServer t{&relay};  // the engine's calls of the screen reach the window, as in vqserv
    std::vector<std::string> keys;
    std::unique_ptr<Form1> window;
    std::vector<std::unique_ptr<QAbstractItemModelTester>> modelChecks;
};

TEST_F(Form1Test, ARefreshKeepsTheSelectedRowAndTheScrollPositionAndShowsTheNewCell) {
    Open(60);
    ClickRow(0);
    TaskList()->scrollToBottom();
    ClickRow(55);
    ASSERT_EQ(SelectedRow(), 55);
    const int scrolled = TaskList()->verticalScrollBar()->value();
    ASSERT_GT(scrolled, 0);

    SetCell(t->tables, kTaskTable, keys[55], "Queue Priority", "000777");
    SetCell(t->tables, kTaskTable, keys[2], "Status", "Ready");
    t->screen.LoadTree();
    EXPECT_EQ(Shown(55, "Queue Priority"), "777");
    EXPECT_EQ(Shown(2, "Status"), "Ready");
    EXPECT_EQ(SelectedRow(), 55);
    EXPECT_EQ(TaskList()->verticalScrollBar()->value(), scrolled);
}

TEST_F(Form1Test, HoldAndResumeThroughTheMenuChangeTheRowAndTheCommands) {
    Open(2);
    ClickRow(1);
    Action("mnuControlsHold")->trigger();
    EXPECT_EQ(Shown(1, "Status"), "Waiting - Hold");
    EXPECT_TRUE(Action("Run")->isEnabled());
    EXPECT_FALSE(Action("mnuControlsCancel")->isEnabled());
    Action("mnuControlsReady")->trigger();
    EXPECT_EQ(Shown(1, "Status"), "Waiting");
    EXPECT_TRUE(Action("Stop")->isEnabled());
}

// The click reaches the sort; its course over further clicks is the task views' test.
TEST_F(Form1Test, AHeaderClickSortsOnThatColumn) {
    Open(3);
    SetCell(t->tables, kTaskTable, keys[0], "Queue Priority", "000300");
    SetCell(t->tables, kTaskTable, keys[2], "Queue Priority", "000100");
    QHeaderView* header = TaskList()->header();
    const int column = t->tables.TaskView.ColumnIndex("Queue Priority");
    const QPoint at(header->sectionViewportPosition(column) + 5, header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, at);
    EXPECT_EQ(Shown(0, "Queue Priority"), "100");
    EXPECT_EQ(Shown(2, "Queue Priority"), "300");
}

TEST_F(Form1Test, WithAnEmptyListOnlyRefreshAndTheQueueButtonsAct) {
    Open(0);
    for (const char* name : {"Run", "Pause", "Stop", "Previous", "Next", "Prop", "mnuViewStepWin"})
        EXPECT_FALSE(Action(name)->isEnabled()) << name;
    EXPECT_TRUE(Action("Refresh")->isEnabled());
    for (const char* key : {"Run", "Pause", "Stop", "Previous", "Next", "Prop"})
        window->Toolbar1_ButtonClick(QString::fromUtf8(key));
    EXPECT_TRUE(t.op.messages.empty());
    EXPECT_TRUE(t.op.questions.empty());

    window->Toolbar1_ButtonClick(QStringLiteral("StartQ"));
    EXPECT_TRUE(t->QueueStarted);
    EXPECT_FALSE(Action("mnuFileStartQ")->isEnabled());
    EXPECT_TRUE(Action("StopQ")->isEnabled());
    window->Toolbar1_ButtonClick(QStringLiteral("StopQ"));
    EXPECT_FALSE(t->QueueStarted);
    EXPECT_EQ(window->findChild<QLabel*>(QStringLiteral("Panel4"))->text(),
              QStringLiteral("Queue: Stopped"));

    // The menu's own handler, called without a row, says so.
    window->mnuViewStepWin_Click();
    ASSERT_EQ(t.op.messages.size(), 1u);
    EXPECT_EQ(t.op.messages[0].text, "No Task Selected!");
}

TEST_F(Form1Test, NextAtTheLastRowDoesNothingButTheRefresh) {
    Open(3);
    EXPECT_FALSE(Action("Previous")->isEnabled());
    window->Toolbar1_ButtonClick(QStringLiteral("Next"));
    window->Toolbar1_ButtonClick(QStringLiteral("Next"));
    EXPECT_EQ(SelectedRow(), 2);
    EXPECT_FALSE(Action("Next")->isEnabled());
    SetCell(t->tables, kTaskTable, keys[2], "Status", "Waiting - Hold");
    window->Toolbar1_ButtonClick(QStringLiteral("Next"));
    EXPECT_EQ(SelectedRow(), 2);
    EXPECT_EQ(Shown(2, "Status"), "Waiting - Hold");
    window->Toolbar1_ButtonClick(QStringLiteral("Previous"));
    EXPECT_EQ(SelectedRow(), 1);
    EXPECT_TRUE(Action("Previous")->isEnabled());
    EXPECT_TRUE(Action("Next")->isEnabled());
}

TEST_F(Form1Test, CancelAsksAndOnlyYesCancelsTheTask) {
    Open(1);
    SetCell(t->tables, kTaskTable, keys[0], "RepCancel", "1");
    t.op.answers = {false, true};
    Action("mnuControlsCancel")->trigger();
    ASSERT_EQ(t.op.questions.size(), 1u);
    EXPECT_EQ(t.op.questions[0].text, "Are you sure you want to cancel \"" + keys[0] + "\" task?");
    EXPECT_EQ(Shown(0, "Status"), "Waiting");
    EXPECT_EQ(GetCell(t->tables, kTaskTable, keys[0], "RepCancel"), "1");

    Action("mnuControlsCancel")->trigger();
    EXPECT_EQ(GetCell(t->tables, kTaskTable, keys[0], "RepCancel"), "0");
    EXPECT_EQ(Shown(0, "Status"), "Complete - Cancelled");
    EXPECT_FALSE(Action("mnuControlsCancel")->isEnabled());
}

TEST_F(Form1Test, AMaximisedWindowClosedKeepsTheLastNormalPlacementAndItsState) {
    for (const auto& [name, value] : {std::pair{"MainLeft", "1500"}, {"MainTop", "1200"},
                                      {"MainWidth", "12000"}, {"MainHeight", "9000"}})
        SaveRegSetting(*t.registry, "StartSet", name, value);
    Open(1);
    window->ShowAtStart();
    EXPECT_EQ(window->width(), 800);
    window->showMaximized();
    ASSERT_TRUE(window->close());
    EXPECT_EQ(Setting("StartSet", "MainWidth"), "12000");
    EXPECT_EQ(Setting("StartSet", "MainLeft"), "1500");
    EXPECT_EQ(Setting("StartSet", "WinState"), "2");
    // The next start comes up maximised.
    Form1 next(*t);
    next.ShowAtStart();
    EXPECT_TRUE(next.isMaximized());
}

TEST_F(Form1Test, ANormalWindowClosedKeepsItsSizeNoSmallerThanTheMinimum) {
    Open(0);
    window->ShowAtStart();
    window->resize(100, 100);
    ASSERT_TRUE(window->close());
    EXPECT_EQ(Setting("StartSet", "MainWidth"), "9495");
    EXPECT_EQ(Setting("StartSet", "WinState"), "0");
}

TEST_F(Form1Test, ClosingWithRunningTasksAnsweredNoKeepsThemAndTheSystemsCloseAsksWithATimer) {
    Open(2, "Running");
    t.op.answers = {false, true};
    EXPECT_FALSE(window->close());
    EXPECT_EQ(t.op.lastAutoYesMs, 0);
    EXPECT_EQ(Shown(0, "Status"), "Running");
    EXPECT_FALSE(test::ReadFileText(t->DataPath + "Jobs.dat").empty());
    EXPECT_EQ(Setting("Settings", "JobName"), std::to_string(PixelsToTwips(
                                                  TaskList()->header()->sectionSize(0), 96)));

    window->CloseBySystem();
    EXPECT_EQ(t.op.lastAutoYesMs, 3000);
    EXPECT_FALSE(window->isVisible());
    EXPECT_EQ(GetCell(t->tables, kTaskTable, keys[1], "Status"), "Complete - Cancelled");
}

// Rows move every way here: a filter, a sort, a task leaving its view, a task removed.
TEST_F(Form1Test, TheListModelsFollowEveryKindOfChange) {
    Open(2, "Ready");
    t.AddSteps(keys[0], 2);
    for (int step = 1; step <= 2; ++step)
        for (const char* column : {"SPeakMem", "SIO", "SUnits"})
            test::SetStepCell(t, keys[0], step, column, "0");
    window->mnuViewRefresh_Click();
    EXPECT_EQ(List("StepView")->model()->rowCount(), 2);
    window->Views().SelectNode("Ready");
    window->Views().SortOnColumn(1);
    SetCell(t->tables, kTaskTable, keys[0], "Status", "Running");
    t->screen.LoadTree();
    EXPECT_EQ(TaskList()->model()->rowCount(), 1);
    window->Views().SelectNode("Jobs");
    t->tables.TaskTable.RemoveRow(keys[1]);
    window->mnuViewRefresh_Click();
    EXPECT_EQ(TaskList()->model()->rowCount(), 1);
    EXPECT_EQ(Shown(0, "JobName"), "Task1");
    EXPECT_EQ(TaskList()->model()->headerData(0, Qt::Horizontal).toString(),
              QStringLiteral("Task Name"));
}

TEST(DialogOperator, AnUnansweredQuestionTakesYesByItselfAfterItsTime) {
    DialogOperator dialogs;
    EXPECT_TRUE(dialogs.AskYesNo("Close?", "Orvantis Server - Tasks Still Running", 50));
}

}  // namespace
}  // namespace vq
