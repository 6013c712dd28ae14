// The task views without widgets: the tree, which rows each node shows and in what order, the
// displayed texts, the command states, the sort and the failure texts.
#include "console/TaskViews.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/tables/WorkingTables.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using test::TestServer;

// Hears the views as a widget would: the cells written after the last Clear.
class RecordingListener : public ViewListener {
public:
    void CellChanged(ViewList list, size_t position, int column) override { ++cellWrites; }
    int cellWrites = 0;
};

// A queue of tasks of two domains and users in every phase, and the views over it.
class TaskViewsTest : public ::testing::Test {
protected:
    std::string Add(int number, const std::string& status, const std::string& domain = "LOCAL",
                    const std::string& user = "tester", int steps = 0) {
        const std::string key = t.AddTask(number, "T" + std::to_string(number), status);
        test::SetTaskCell(t, key, "Domain", domain);
        test::SetTaskCell(t, key, "UserName", user);
        if (steps > 0) AddSteps(key, steps);
        return key;
    }
    // Steps with the start values of their sums, as submission gives them.
    void AddSteps(const std::string& key, int steps) {
        t.AddSteps(key, steps);
        for (int i = 1; i <= steps; ++i)
            for (const char* column : {"SPeakMem", "SIO", "SUnits"})
                test::SetStepCell(t, key, i, column, "0");
    }
    std::vector<std::string> ListKeys() {
        std::vector<std::string> keys;
        for (size_t i = 0; i < views.Tasks().RowCount(); ++i)
            keys.push_back(views.Tasks().RowAt(i).key);
        return keys;
    }
    std::string Shown(const std::string& key, const char* column) {
        return views.Tasks().Cell(key, column);
    }
    void Start() {
        views.BuildTaskColumns();
        views.BuildStepColumns();
        views.LoadTree();
        views.SelectNode("Jobs");
    }

    TestServer t;
    RecordingListener listener;
    TaskViews views{*t, listener};
};

TEST_F(TaskViewsTest, TheTreeHasTheGroupsAndADomainAndUserNodeForEachTaskNotRemoved) {
    Add(1, "Running - Hold", "LOCAL", "ann");
    Add(2, "Complete - Cancelled", "LOCAL", "bob");
    Add(3, "Waiting", "OFFICE", "ann");
    Add(4, "Removed", "GONE", "zed");
    Start();
    std::vector<std::string> keys;
    for (const TreeNode& node : views.Nodes()) keys.push_back(node.key);
    EXPECT_THAT(keys, ElementsAre("Jobs", "Running", "Ready", "Waiting", "Complete",
                                  "Running\\LOCAL", "Running\\LOCAL\\ann", "Complete\\LOCAL",
                                  "Complete\\LOCAL\\bob", "Waiting\\OFFICE",
                                  "Waiting\\OFFICE\\ann"));
    const TreeNode* user = views.FindNode("Waiting\\OFFICE\\ann");
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(user->text, "ann");
    EXPECT_EQ(user->tag, "User");
    EXPECT_FALSE(user->expanded);
    EXPECT_EQ(views.FindNode("Jobs")->text, "Tasks");
    EXPECT_TRUE(views.FindNode("Ready")->expanded);
}

TEST_F(TaskViewsTest, EachNodeShowsItsTasksJobsInTableOrderTheFilteredOnesReversed) {
    const std::string a = Add(1, "Ready", "LOCAL", "ann");
    const std::string b = Add(2, "Ready - Hold", "LOCAL", "bob");
    const std::string c = Add(3, "Ready", "OFFICE", "ann");
    const std::string d = Add(4, "Waiting", "LOCAL", "ann");
    const std::string e = Add(5, "Ready", "LOCAL", "ann");
    Start();
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"Jobs", {a, b, c, d, e}},
        {"Ready", {e, c, b, a}},
        {"Ready\\LOCAL", {e, b, a}},
        {"Ready\\LOCAL\\ann", {e, a}},
        {"Waiting\\LOCAL\\ann", {d}},
        {"Running", {}},
    };
    for (const auto& [node, expected] : cases) {
        // A fresh list for each node, as the sort's rebuild gives it.
        views.SelectNode(node);
        views.LoadListFromTree(node, true);
        EXPECT_THAT(ListKeys(), ElementsAreArray(expected)) << node;
    }
}

TEST_F(TaskViewsTest, ATaskThatStartsLeavesTheReadyViewAndTheFirstRowTakesTheSelection) {
    const std::string first = Add(1, "Ready", "LOCAL", "tester", 2);
    const std::string second = Add(2, "Ready", "LOCAL", "tester", 3);
    Start();
    views.SelectNode("Ready");
    views.TaskRowClicked(first);
    ASSERT_EQ(views.Steps().RowCount(), 2u);

    test::SetTaskCell(t, first, "Status", "Running");
    views.LoadTree();
    EXPECT_THAT(ListKeys(), ElementsAre(second));
    EXPECT_EQ(views.SelectedTask(), second);
    EXPECT_EQ(views.Steps().RowCount(), 3u);
    EXPECT_EQ(views.SelectedStep(), MakeStepKey(second, 1));
}

TEST_F(TaskViewsTest, ATaskWithoutStepsShowsNoStepsAndTheNextRefreshLooksAgain) {
    const std::string key = Add(1, "Waiting");
    Start();
    EXPECT_EQ(views.SelectedTask(), key);
    EXPECT_EQ(views.Steps().RowCount(), 0u);
    AddSteps(key, 2);
    views.mnuViewRefresh_Click();
    EXPECT_EQ(views.Steps().RowCount(), 2u);
    // A step row that is gone empties the step list.
    t->tables.StepTable.RemoveRow(MakeStepKey(key, 2));
    views.RefreshScreenData(true);
    EXPECT_EQ(views.Steps().RowCount(), 0u);
}

TEST_F(TaskViewsTest, AnEmptyViewEmptiesBothListsAndDisablesTheTaskCommands) {
    Add(1, "Waiting", "LOCAL", "tester", 1);
    Start();
    ASSERT_TRUE(views.Commands().hold);
    views.SelectNode("Complete");
    EXPECT_EQ(views.Tasks().RowCount(), 0u);
    EXPECT_EQ(views.Steps().RowCount(), 0u);
    EXPECT_EQ(views.SelectedTask(), "");
    const CommandStates& c = views.Commands();
    EXPECT_FALSE(c.ready || c.hold || c.cancel || c.stepWin || c.previous || c.next);
    EXPECT_TRUE(c.refresh);
    EXPECT_THAT(views.StatusPanels(), ElementsAre("All Tasks: 1", "Visible Tasks: 0",
                                                  "Task's Steps: 0", "Queue: Stopped"));
    views.SortOnColumn(2);
    EXPECT_EQ(views.Tasks().RowCount(), 0u);
}

TEST(CommandsForStatus, HeldTasksResumeCompleteOnesNothingTheRestHoldAndCancel) {
    // Status, then Resume, Hold, Cancel.
    const std::tuple<std::string, bool, bool, bool> cases[] = {
        {"Waiting", false, true, true},          {"Ready", false, true, true},
        {"Running", false, true, true},          {"Running - Cancelling", false, true, true},
        {"Waiting - Hold", true, false, false},  {"Running - Hold", true, false, false},
        {"Complete", false, false, false},       {"Complete - Unfinished", false, false, false},
        {"Complete - Cancelled", false, false, false},
    };
    for (const auto& [status, ready, hold, cancel] : cases) {
        const TaskCommandStates states = CommandsForStatus(status);
        EXPECT_EQ(states.ready, ready) << status;
        EXPECT_EQ(states.hold, hold) << status;
        EXPECT_EQ(states.cancel, cancel) << status;
    }
}

// The next run text itself is the info file's; the list shows it and the dates in the locale.
TEST_F(TaskViewsTest, TheListShowsNeverForACompleteTaskAndDatesInTheLocalesForm) {
    test::LocaleScope locale("en_US.UTF-8");
    ASSERT_TRUE(locale.Active());
    const std::string done = Add(1, "Complete - Cancelled");
    const std::string later = Add(2, "Waiting");
    test::SetTaskCell(t, later, "SchTime", "2026-12-24 18:30:00");
    Start();
    EXPECT_EQ(Shown(done, "CurRepeat"), "Never");
    EXPECT_EQ(Shown(later, "CurRepeat"), "12/24/2026 06:30:00 PM");
}

TEST_F(TaskViewsTest, ARefreshWritesOnlyTheCellsThatChanged) {
    const std::string key = Add(1, "Waiting");
    Add(2, "Waiting");
    Start();
    listener.cellWrites = 0;
    views.mnuViewRefresh_Click();
    EXPECT_EQ(listener.cellWrites, 0);
    test::SetTaskCell(t, key, "Queue Priority", "000201");
    test::SetTaskCell(t, key, "PeakMem", "000000512");
    views.mnuViewRefresh_Click();
    EXPECT_EQ(listener.cellWrites, 2);
    EXPECT_EQ(Shown(key, "PeakMem"), "512 KB");
}

TEST_F(TaskViewsTest, ABadCellIsLoggedWithItsColumnAndTaskAndStopsTheRefreshBeforeMC) {
    const std::string good = Add(1, "Waiting", "LOCAL", "tester", 1);
    const std::string bad = Add(2, "Waiting");
    Start();
    test::SetTaskCell(t, bad, "CPU", "x");
    test::SetTaskCell(t, good, "Status", "Waiting - Hold");
    views.mnuViewRefresh_Click();
    EXPECT_THAT(t.LogText(), HasSubstr("Error occurred while refreshing the screen data! (CPU from " +
                                       bad + ")"));
    // MC didn't run: the held task still offers Hold.
    EXPECT_EQ(views.SelectedTask(), good);
    EXPECT_TRUE(views.Commands().hold);
}

TEST_F(TaskViewsTest, AMissingNodeAndAMissingTaskAreLoggedWithTheirTexts) {
    Start();
    views.LoadListFromTree("Nowhere", false);
    views.AddToList1("000099-Ghost");
    const std::string log = t.LogText();
    EXPECT_THAT(log, HasSubstr("Some Information From Tree Were Not Loaded!"));
    EXPECT_THAT(log, HasSubstr("Error occurred while adding task to list (000099-Ghost)"));
    EXPECT_EQ(views.Tasks().RowCount(), 0u);
}

TEST_F(TaskViewsTest, AHeaderClickSortsTheTableTurnsTheDirectionAndLeavesNoRowSelected) {
    const std::string a = t.AddTask(1, "beta"), b = t.AddTask(2, "alpha"), c = t.AddTask(3, "gamma");
    AddSteps(a, 1);
    Start();
    ASSERT_EQ(views.SelectedTask(), a);
    views.SortOnColumn(0);
    EXPECT_THAT(ListKeys(), ElementsAre(b, a, c));
    EXPECT_EQ(views.SelectedTask(), "");
    EXPECT_EQ(views.Steps().RowCount(), 0u);
    EXPECT_FALSE(views.Commands().hold || views.Commands().stepWin);
    views.SortOnColumn(0);
    EXPECT_THAT(ListKeys(), ElementsAre(c, a, b));
    // The next refresh selects the first row again.
    views.mnuViewRefresh_Click();
    EXPECT_EQ(views.SelectedTask(), c);
}

// A width never saved is its caption's default: the settings' test.
TEST_F(TaskViewsTest, ColumnWidthsKeepWhatWasSavedWithinSixteenBits) {
    Start();
    std::vector<int> taskWidths(views.Tasks().Columns().size(), 1000);
    taskWidths[0] = 40000;  // beyond a 16-bit width
    views.SaveColumnWidths(taskWidths, {2000});
    EXPECT_EQ(views.ColumnWidthSetting("JobName"), 32767);
    EXPECT_EQ(views.ColumnWidthSetting("ID"), 1000);
    EXPECT_EQ(views.ColumnWidthSetting("Steps"), 2000);
    EXPECT_EQ(TwipsToPixels(1440, 96), 96);
    EXPECT_EQ(PixelsToTwips(100, 96), 1500);
}

}  // namespace
}  // namespace vq
