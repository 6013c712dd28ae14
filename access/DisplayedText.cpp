#include "access/DisplayedText.h"

#include <utility>

#include "calendar/Common.h"
#include "calendar/DateTime.h"
#include "core/tables/CpuTime.h"
#include "core/tables/WorkingTables.h"
#include "platform/Error.h"
#include "runner/Accounting.h"
#include "storage/Classes.h"

namespace vq {

CellForm CellFormOf(int16_t table, const std::string& key) {
    static const std::pair<const char*, CellForm> kForms[] = {
        {"CPU", CellForm::Priority},       {"Queue Priority", CellForm::Number},
        {"PeakMem", CellForm::Kilobytes},  {"SPeakMem", CellForm::Kilobytes},
        {"Units", CellForm::Thousands},    {"SUnits", CellForm::Thousands},
        {"IO", CellForm::IoCount},         {"SIO", CellForm::IoCount},
        {"MaxRunTime", CellForm::RunTime}, {"SchTime", CellForm::Date},
        {"SubTime", CellForm::Date}};
    if (table == kTaskTable && key == "CurRepeat") return CellForm::NextRun;
    for (const auto& [column, form] : kForms)
        if (key == column) return form;
    return CellForm::Raw;
}

std::string FormatCell(CellForm form, const std::string& cell) {
    switch (form) {
        case CellForm::Priority: {
            const int64_t code = CellNumber(cell);
            if (code < 0 || code > 255) throw VqError("Overflow", 6);
            return PriorityName(static_cast<uint8_t>(code));
        }
        case CellForm::Number:
            return std::to_string(CellNumber(cell));
        case CellForm::Kilobytes:
            return FormatThousands(CellNumber(cell)) + " KB";
        case CellForm::Thousands:
            return FormatThousands(CellNumber(cell));
        case CellForm::IoCount:
            return FormatThousandsIo(static_cast<int64_t>(Val(cell) * kIoScale));
        case CellForm::RunTime: {
            // No limit is kept as "000000000", so the test is on the number.
            const int64_t seconds = CellNumber(cell);
            return seconds == 0 ? "Unlimited" : FormatTimeSpan(SecondsToTimeSpan(seconds));
        }
        case CellForm::Date:
            return FormatLocaleDateTime(ReadDate(cell));
        case CellForm::Raw:
        case CellForm::NextRun:
            break;
    }
    return cell;
}

std::string DisplayedCellText(int16_t table, const std::string& columnKey,
                              const std::string& cell) {
    try {
        return FormatCell(CellFormOf(table, columnKey), cell);
    } catch (const std::exception&) {
        return cell;
    }
}

}  // namespace vq
