// The texts that the window's lists and the console show for the raw cells.
#include <gtest/gtest.h>

#include <tuple>

#include "access/DisplayedText.h"
#include "core/tables/WorkingTables.h"
#include "tests/support/TestSupport.h"

namespace vq {
namespace {

TEST(DisplayedText, EachColumnShowsItsCellInItsOwnForm) {
    test::LocaleScope locale("en_US.UTF-8");
    ASSERT_TRUE(locale.Active());
    // Table, column key, cell, displayed text.
    const std::tuple<int16_t, std::string, std::string, std::string> cases[] = {
        {kTaskTable, "CPU", "22", "Normal 2"},
        {kTaskTable, "CPU", "61", ""},
        {kTaskTable, "Queue Priority", "000123", "123"},
        {kTaskTable, "PeakMem", "000000000", "0 KB"},
        {kStepTable, "SPeakMem", "001234567", "1,234,567 KB"},
        {kTaskTable, "Units", "000001000", "1,000"},
        {kTaskTable, "IO", "00000001234567", "1,234,567"},
        {kStepTable, "SIO", "0", "0"},
        {kTaskTable, "MaxRunTime", "000000000", "Unlimited"},
        {kTaskTable, "MaxRunTime", "000090061", "1 Day 01:01:01"},
        {kTaskTable, "MaxRunTime", "000086399", "0 Days 23:59:59"},
        {kTaskTable, "SchTime", "2026-11-22 13:04:05", "11/22/2026 01:04:05 PM"},
        {kTaskTable, "Status", "Waiting - Hold", "Waiting - Hold"},
        {kStepTable, "StepRC", "01", "01"},
    };
    for (const auto& [table, column, cell, expected] : cases)
        EXPECT_EQ(DisplayedCellText(table, column, cell), expected) << column << " " << cell;
    EXPECT_EQ(CellFormOf(kTaskTable, "CurRepeat"), CellForm::NextRun);
    // The window takes a cell it can't read to its error path; the console shows it as it is.
    EXPECT_THROW(FormatCell(CellForm::Priority, "256"), std::exception);
    EXPECT_THROW(FormatCell(CellForm::Date, "soon"), std::exception);
    EXPECT_EQ(DisplayedCellText(kTaskTable, "SubTime", "soon"), "soon");
}

}  // namespace
}  // namespace vq
