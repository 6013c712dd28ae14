#pragma once
// The text that the task and step lists show for a raw cell of the working tables: one set of
// forms for the window and for the console, so that both show the same.
#include <cstdint>
#include <string>

namespace vq {

// How a column shows its cell: as it stands, a priority name, a plain number, KB, thousands,
// an I/O count (a fixed-point value with four decimals), a running time, a date, or the task's
// next run text (which needs more than the cell).
enum class CellForm { Raw, Priority, Number, Kilobytes, Thousands, IoCount, RunTime, Date, NextRun };
CellForm CellFormOf(int16_t table, const std::string& columnKey);
// The displayed text of a cell in a form that the cell alone decides. A cell that can't be
// read in its form fails with its error into the caller.
std::string FormatCell(CellForm form, const std::string& cell);
// As FormatCell in the column's form; a cell that can't be read in it shows as it stands.
std::string DisplayedCellText(int16_t table, const std::string& columnKey, const std::string& cell);

}  // namespace vq
