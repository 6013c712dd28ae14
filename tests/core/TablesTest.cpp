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

// The order of the columns is the queue database's test, which writes every one of them.
TEST(Columns, StandWithTheirCaptionsAndViewsShowFlaggedColumnsOnly) {
    TestServer ts;
    WorkingTables& t = ts->tables;
    EXPECT_EQ(t.StepTable.Columns()[5].caption, "Mem Usage In System Units ");
    EXPECT_EQ(t.StepTable.Columns()[16].caption, "Buffer Widht");
    EXPECT_TRUE(t.TaskTable.Columns()[26].rightAligned);
    EXPECT_THROW(ColumnIndex(t, kTaskTable, "Nope"), VqError);
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

TEST(Cells, AreReachedByTableNumberRowKeyAndColumnKeyInTheirTextFormsOrFailIntoTheCaller) {
    TestServer ts;
    WorkingTables& t = ts->tables;
    const std::string key = ts.AddTask(123, "Nightly build - part 2");
    EXPECT_EQ(key, "000123-Nightly build - part 2");
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
    // Other table numbers do nothing; a missing row or column fails into the caller.
    for (int16_t number : {0, 3, 6, -1}) {
        EXPECT_EQ(GetCell(t, number, key, "ID"), "");
        EXPECT_TRUE(SetCell(t, number, key, "ID", "x"));
        std::string kept = "unchanged";
        EXPECT_TRUE(GetRowText(t, number, key, kept));
        EXPECT_EQ(kept, "unchanged");
    }
    EXPECT_EQ(GetCell(t, kTaskTable, key, "ID"), "000123");
    EXPECT_THROW(GetCell(t, kTaskTable, "000002-A", "ID"), VqError);
    EXPECT_THROW(SetCell(t, kTaskTable, key, "Nope", "x"), VqError);
    EXPECT_FALSE(GetRowText(t, kTaskTable, "000002-A", text));
    EXPECT_THROW(t.TaskTable.AddRow(key, "A"), VqError);
}

// A table of a name and a value column, a row for each key with that value.
VqTable TableOf(const std::vector<std::pair<std::string, std::string>>& rows) {
    VqTable table;
    table.AddColumn({"Name", "Name", false, "1"});
    table.AddColumn({"Value", "Value", false, "1"});
    for (const auto& [key, value] : rows) table.AddRow(key, key).cells[1] = value;
    return table;
}

std::string KeysInOrder(const VqTable& table) {
    std::string keys;
    for (size_t i = 0; i < table.RowCount(); ++i) keys += table.RowAt(i).key;
    return keys;
}

// Removed rows leave gaps that positions skip: in a walk from the last row that removes where
// it stands, after removals anywhere, after an addition and a sort.
TEST(Rows, RemovalKeepsTheOrderOfTheOthersAndTheirLookups) {
    VqTable table = TableOf({{"a", "a"}, {"b", "b"}, {"c", "c"}, {"d", "d"}, {"e", "e"},
                             {"f", "f"}, {"g", "g"}, {"h", "h"}, {"i", "i"}, {"j", "j"}});
    for (size_t i = table.RowCount(); i-- > 0;)
        if (i % 2 == 0) table.RemoveRow(table.RowAt(i).key);
    EXPECT_EQ(KeysInOrder(table), "bdfhj");
    EXPECT_EQ(table.FindRow("a"), nullptr);
    EXPECT_FALSE(table.RemoveRow("a"));
    ASSERT_NE(table.FindRow("j"), nullptr);
    EXPECT_EQ(table.FindRow("j")->cells[1], "j");
    table.RemoveRow("d");
    table.RemoveRow("j");
    table.AddRow("a", "back").cells[1] = "a";
    table.RemoveRow("f");
    EXPECT_EQ(KeysInOrder(table), "bha");
    table.SortOn(1, false);
    EXPECT_EQ(KeysInOrder(table), "abh");
}

TEST(Rows, SortOnAColumnTextIsStableAndRemembered) {
    VqTable table = TableOf({{"a", "000200"}, {"b", "1000000"}, {"c", "999998"}, {"d", "000200"}});
    table.SortOn(1, true);
    EXPECT_EQ(table.SortKey(), 1);
    EXPECT_TRUE(table.SortDescending());
    // Text order: "999998" > "1000000" > "000200"; equal texts keep their order.
    EXPECT_EQ(KeysInOrder(table), "cbad");
    table.SortOn(0, false);
    EXPECT_EQ(KeysInOrder(table), "abcd");
}

// An equal status writes nothing, neither the status nor a date; Running sets Start, a Complete
// phase End, other phases no date; a missing task is logged and gives false.
TEST(ChangeStatus, WritesTheDateOfThePhaseItEnters) {
    TestServer ts;
    const std::string key = ts.AddTask(7, "Job", "Odd");
    const struct {
        const char *from, *to, *status, *start, *end;  // the clock goes on 65 s after each
    } changes[] = {{"Running", "Running", "Odd", "", ""},
                   {"Waiting", "Ready", "Ready", "", ""},
                   {"Ready", "Running", "Running", "2026-11-22 12:02:10", ""},
                   {"Running", "Complete - Cancelled", "Complete - Cancelled", "2026-11-22 12:02:10",
                    "2026-11-22 12:03:15"},
                   {"Complete", "Removed", "Removed", "2026-11-22 12:02:10", "2026-11-22 12:03:15"}};
    for (const auto& c : changes) {
        EXPECT_TRUE(ChangeStatus(*ts, key, c.from, c.to));
        EXPECT_EQ(test::TaskCellOf(ts, key, "Status"), c.status) << c.to;
        EXPECT_EQ(test::TaskCellOf(ts, key, "Start"), c.start) << c.to;
        EXPECT_EQ(test::TaskCellOf(ts, key, "End"), c.end) << c.to;
        ts.clock.Advance(65);
    }
    EXPECT_FALSE(ChangeStatus(*ts, "000008-Gone", "Ready", "Running"));
    EXPECT_NE(ts.LogText().find("Error occurred while changing task's status(000008-Gone)!\n"
                                "Element not found"),
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
