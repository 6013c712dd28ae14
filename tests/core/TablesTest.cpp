// The working tables: columns, cells by key, status phases, re-sort and removal.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>

#include "core/TaskStatus.h"
#include "core/tables/Status.h"
#include "platform/Error.h"
#include "storage/Settings.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

using test::TestServer;

TEST(BaseStatus, TakesThePhaseFromTheFirstFiveCharacters) {
    const std::pair<const char*, const char*> phases[] = {
        {"Complete - Unfinished", "Complete"}, {"Waiting - Hold", "Waiting"}, {"Ready - Hold", "Ready"},
        {"Running - Cancelling", "Running"},   {"", "Removed"},              {"Runn", "Removed"},
        {"running", "Removed"}};
    for (const auto& [status, phase] : phases) EXPECT_EQ(BaseStatus(status), phase) << status;
}

TEST(Columns, StandInTheirOrderWithKeysAndCaptions) {
    TestServer ts;
    WorkingTables& t = ts->tables;
    EXPECT_EQ(t.TaskTable.Columns().size(), 33u);
    EXPECT_EQ(t.StepTable.Columns().size(), 18u);
    EXPECT_EQ(ColumnIndex(t, kTaskTable, "JobName"), 0);
    EXPECT_EQ(ColumnIndex(t, kTaskTable, "ID"), 1);
    EXPECT_EQ(ColumnIndex(t, kTaskTable, "Queue Priority"), 10);
    EXPECT_EQ(ColumnIndex(t, kTaskTable, "End"), 32);
    EXPECT_EQ(ColumnIndex(t, kStepTable, "Parent"), 17);
    EXPECT_EQ(t.StepTable.Columns()[5].caption, "Mem Usage In System Units ");
    EXPECT_EQ(t.StepTable.Columns()[16].caption, "Buffer Widht");
    EXPECT_EQ(t.TaskTable.Columns()[7].caption, "Computer");
    EXPECT_TRUE(t.TaskTable.Columns()[26].rightAligned);
    EXPECT_THROW(ColumnIndex(t, kTaskTable, "Nope"), VqError);
}

TEST(Columns, ViewsShowFlaggedColumnsOnly) {
    TestServer ts;
    WorkingTables& t = ts->tables;
    // 33 columns less the 10 that never show.
    EXPECT_EQ(t.TaskView.Columns().size(), 23u);
    EXPECT_FALSE(t.TaskView.HasColumn("Password"));
    EXPECT_TRUE(t.TaskView.HasColumn("Class"));
    EXPECT_EQ(t.StepView.Columns().size(), 10u);

    SaveRegSetting(*ts.registry, "Settings", "Show-Class", "0");
    BuildColumns(t, *ts.registry);
    EXPECT_FALSE(t.TaskView.HasColumn("Class"));
    EXPECT_EQ(t.TaskTable.Columns()[3].viewFlag, "0");
    EXPECT_EQ(t.TaskTable.Columns()[5].viewFlag, "");

    SaveRegSetting(*ts.registry, "Settings", "Show-Class", "1");
    ReadViewFlags(t, *ts.registry);
    BuildViewColumns(t);
    EXPECT_TRUE(t.TaskView.HasColumn("Class"));
}

TEST(Cells, AreReachedByTableNumberRowKeyAndColumnKeyInTheirTextForms) {
    TestServer ts;
    WorkingTables& t = ts->tables;
    const std::string key = ts.AddTask(123, "Nightly build - part 2");
    EXPECT_EQ(key, "000123-Nightly build - part 2");
    EXPECT_EQ(GetCell(t, kTaskTable, key, "ID"), "000123");
    SetCell(t, kTaskTable, key, "JobRC", int64_t{5});
    SetCell(t, kTaskTable, key, "NIzv", true);
    SetCell(t, kTaskTable, key, "RepCnt", false);
    SetCell(t, kTaskTable, key, "Status", "Ready");  // a literal is text, not a flag
    const std::pair<const char*, const char*> cells[] = {
        {"JobRC", "5"}, {"NIzv", "-1"}, {"RepCnt", "0"}, {"Status", "Ready"}};
    for (const auto& [column, text] : cells) EXPECT_EQ(GetCell(t, kTaskTable, key, column), text);
    std::string text;
    EXPECT_TRUE(GetRowText(t, kTaskTable, key, text));
    EXPECT_EQ(text, "Nightly build - part 2");
}

TEST(Cells, OtherTableNumbersDoNothingAMissingRowOrColumnFailsIntoTheCaller) {
    TestServer ts;
    WorkingTables& t = ts->tables;
    const std::string key = ts.AddTask(1, "A");
    for (int16_t number : {0, 3, 6, -1}) {
        EXPECT_EQ(GetCell(t, number, key, "ID"), "");
        EXPECT_TRUE(SetCell(t, number, key, "ID", "x"));
        std::string text = "unchanged";
        EXPECT_TRUE(GetRowText(t, number, key, text));
        EXPECT_EQ(text, "unchanged");
    }
    EXPECT_EQ(GetCell(t, kTaskTable, key, "ID"), "000001");
    EXPECT_THROW(GetCell(t, kTaskTable, "000002-A", "ID"), VqError);
    EXPECT_THROW(SetCell(t, kTaskTable, key, "Nope", "x"), VqError);
    std::string text;
    EXPECT_FALSE(GetRowText(t, kTaskTable, "000002-A", text));
    EXPECT_EQ(t.TaskTable.RowCount(), 1u);
    EXPECT_THROW(t.TaskTable.AddRow(key, "A"), VqError);
}

TEST(Rows, StepKeysAndTexts) {
    EXPECT_EQ(MakeStepKey("000123-Nightly", 2), "000123-Nightly-Step2");
    EXPECT_EQ(MakeStepKey("000123-Nightly", 12), "000123-Nightly-Step12");
    EXPECT_EQ(StepRowText(2), "Step 0002");
    EXPECT_EQ(MakeRowKey(999999, "x"), "999999-x");
}

std::string KeysInOrder(const VqTable& table) {
    std::string keys;
    for (size_t i = 0; i < table.RowCount(); ++i) keys += table.RowAt(i).key;
    return keys;
}

// Removed rows leave gaps that positions skip: in a walk from the last row that removes where
// it stands, after removals anywhere, after an addition and a sort.
TEST(Rows, RemovalKeepsTheOrderOfTheOthersAndTheirLookups) {
    VqTable table;
    table.AddColumn({"Name", "Name", false, "1"});
    table.AddColumn({"Value", "Value", false, "1"});
    for (char c = 'a'; c <= 'j'; ++c) table.AddRow(std::string(1, c), "row").cells[1] = c;
    for (size_t i = table.RowCount(); i-- > 0;)
        if (i % 2 == 0) table.RemoveRow(table.RowAt(i).key);
    EXPECT_EQ(KeysInOrder(table), "bdfhj");
    EXPECT_EQ(table.FindRow("a"), nullptr);
    EXPECT_FALSE(table.RemoveRow("a"));
    ASSERT_NE(table.FindRow("j"), nullptr);
    EXPECT_EQ(table.FindRow("j")->cells[1], "j");
    table.RemoveRow("d");
    table.RemoveRow("j");
    EXPECT_EQ(table.RowCount(), 3u);
    EXPECT_EQ(table.RowAt(2).key, "h");
    table.AddRow("a", "back").cells[1] = "a";
    table.RemoveRow("f");
    EXPECT_EQ(KeysInOrder(table), "bha");
    table.SortOn(1, false);
    EXPECT_EQ(KeysInOrder(table), "abh");
}

TEST(Rows, SortOnAColumnTextIsStableAndRemembered) {
    VqTable table;
    table.AddColumn({"Name", "Name", false, "1"});
    table.AddColumn({"P", "P", false, "1"});
    const char* data[][2] = {{"a", "000200"}, {"b", "1000000"}, {"c", "999998"}, {"d", "000200"}};
    for (auto& d : data) table.AddRow(d[0], d[0]).cells[1] = d[1];
    table.SortOn(1, true);
    EXPECT_EQ(table.SortKey(), 1);
    EXPECT_TRUE(table.SortDescending());
    // Text order: "999998" > "1000000" > "000200"; equal texts keep their order.
    EXPECT_EQ(KeysInOrder(table), "cbad");
    table.SortOn(0, false);
    EXPECT_EQ(KeysInOrder(table), "abcd");
}

class ChangeStatusTest : public ::testing::Test {
protected:
    TestServer ts;
    std::string key = ts.AddTask(7, "Job");
    std::string Cell(const char* column) { return GetCell(ts->tables, kTaskTable, key, column); }
};

TEST_F(ChangeStatusTest, EqualStatusWritesNothing) {
    SetCell(ts->tables, kTaskTable, key, "Status", "Odd");
    EXPECT_TRUE(ChangeStatus(*ts, key, "Running", "Running"));
    EXPECT_EQ(Cell("Status"), "Odd");
    EXPECT_EQ(Cell("Start"), "");
}

TEST_F(ChangeStatusTest, RunningSetsStartCompleteSetsEndOthersNoDate) {
    EXPECT_TRUE(ChangeStatus(*ts, key, "Waiting", "Ready"));
    EXPECT_EQ(Cell("Start"), "");
    EXPECT_TRUE(ChangeStatus(*ts, key, "Ready", "Running"));
    EXPECT_EQ(Cell("Status"), "Running");
    EXPECT_EQ(Cell("Start"), "2026-11-22 12:00:00");
    EXPECT_EQ(Cell("End"), "");
    ts.clock.Advance(65);
    EXPECT_TRUE(ChangeStatus(*ts, key, "Running", "Complete - Cancelled"));
    EXPECT_EQ(Cell("End"), "2026-11-22 12:01:05");
    EXPECT_EQ(Cell("Start"), "2026-11-22 12:00:00");
    ts.clock.Advance(65);
    EXPECT_TRUE(ChangeStatus(*ts, key, "Complete", "Removed"));
    EXPECT_EQ(Cell("Status"), "Removed");
    EXPECT_EQ(Cell("End"), "2026-11-22 12:01:05");
}

TEST_F(ChangeStatusTest, AMissingTaskIsLoggedAndReturnsFalse) {
    EXPECT_FALSE(ChangeStatus(*ts, "000008-Gone", "Ready", "Running"));
    EXPECT_NE(ts.LogText().find("Error occurred while changing task's status(000008-Gone)!\nElement not found"),
              std::string::npos);
}

// The row index against a plain set, through many inserts and removals that make long runs
// wrap around the end of the slot array.
TEST(RowIndexTest, AgreesWithASetThroughInsertsAndRemovals) {
    std::vector<std::unique_ptr<VqRow>> rows;
    for (int i = 0; i < 3000; ++i) {
        rows.push_back(std::make_unique<VqRow>());
        rows.back()->key = "000" + std::to_string(i) + "-Task " + std::to_string(i % 7);
    }
    RowIndex index;
    std::set<int> present;
    std::mt19937 random(5);
    for (int round = 0; round < 40000; ++round) {
        const int i = static_cast<int>(random() % rows.size());
        if (random() % 3 == 0) {
            EXPECT_EQ(index.Erase(rows[i]->key), present.erase(i) == 1);
        } else {
            EXPECT_EQ(index.Insert(rows[i].get()), present.insert(i).second);
        }
        if (round % 1000 == 0) {
            for (size_t j = 0; j < rows.size(); ++j)
                ASSERT_EQ(index.Find(rows[j]->key), present.count(static_cast<int>(j)) ? rows[j].get() : nullptr);
        }
    }
    EXPECT_EQ(index.Size(), present.size());
    index.Clear();
    EXPECT_EQ(index.Find(rows[0]->key), nullptr);
}

}  // namespace
}  // namespace vq
