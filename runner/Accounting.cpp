#include "runner/Accounting.h"

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "calendar/Common.h"
#include "core/Server.h"
#include "core/tables/CpuTime.h"
#include "platform/Error.h"
#include "reports/TaskReport.h"
#include "runner/RunnerLink.h"
#include "storage/Classes.h"

namespace vq {
namespace {

// The separator of the pattern's "," in the user's locale; none where the locale has none.
std::string ThousandsSeparator() {
    const std::lconv* conv = std::localeconv();
    return conv && conv->thousands_sep ? conv->thousands_sep : "";
}

std::string GroupDigits(uint64_t magnitude, bool negative) {
    const std::string digits = std::to_string(magnitude);
    const std::string separator = ThousandsSeparator();
    std::string text = negative ? "-" : "";
    for (size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) text += separator;
        text += digits[i];
    }
    return text;
}

// The day of the month of the date `days` after 1601-01-01, in the Gregorian calendar.
int64_t DayOfMonthFrom1601(int64_t days) {
    // Days from 0000-03-01, so that the leap day ends a year; 1601-01-01 is day 584694.
    const int64_t z = days + 584694;
    const int64_t dayOfEra = z % 146097;
    const int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
    return dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
}

// Whole seconds of a CPU time; the milliseconds never count.
int32_t CpuSeconds(const CpuTime& t) {
    return static_cast<int32_t>(t.day * 86400 + t.hour * 3600 + t.minute * 60 + t.second);
}

// A sum kept in a 32-bit cell.
int64_t CheckedLong(int64_t value) {
    if (value > std::numeric_limits<int32_t>::max() || value < std::numeric_limits<int32_t>::min())
        throw VqError("Overflow", 6);
    return value;
}

// The cell form of an I/O count: whole, a half away from zero, fourteen digits.
std::string IoCell(int64_t ioCount) {
    const int64_t whole = ioCount / kIoScale + (ioCount % kIoScale >= kIoScale / 2 ? 1 : 0) -
                          (ioCount % kIoScale <= -kIoScale / 2 ? 1 : 0);
    return ZeroPad(whole, 14);
}

std::string SpanText(int64_t seconds) { return FormatTimeSpan(SecondsToTimeSpan(seconds)); }

// The cells of one row, numbers read as the sums keep them: an empty cell is 0, any other
// text that is no number fails.
struct Cells {
    WorkingTables& tables;
    int16_t table;
    const std::string& key;
    std::string Get(const char* column) const { return GetCell(tables, table, key, column); }
    int64_t Number(const char* column) const {
        const std::string text = Get(column);
        return Trim(text).empty() ? 0 : CellNumber(text);
    }
    void Set(const char* column, std::string value) const {
        SetCell(tables, table, key, column, std::move(value));
    }
};

// A sum that fails is left as it was, and the next one goes on.
template <typename Statement>
void SkipOnFailure(Statement statement) {
    try {
        statement();
    } catch (const std::exception&) {
    }
}

}  // namespace

int32_t RoundHalfEven(double value) {
    if (!std::isfinite(value)) return 0;
    const double rounded = std::nearbyint(value);  // the default mode: a tie to the even one
    if (rounded < std::numeric_limits<int32_t>::min() ||
        rounded > std::numeric_limits<int32_t>::max())
        return 0;
    return static_cast<int32_t>(rounded);
}

int32_t SystemUnits(const std::array<double, 7>& ponders, int32_t cpuSeconds, int64_t ioCount,
                    int32_t memory) {
    const double io = static_cast<double>(ioCount) / 10000.0;
    return RoundHalfEven(cpuSeconds * ponders[0] + memory * ponders[1] + io * ponders[2]);
}

std::string FormatThousands(int64_t n) {
    const uint64_t magnitude = n < 0 ? 0 - static_cast<uint64_t>(n) : static_cast<uint64_t>(n);
    return GroupDigits(magnitude, n < 0);
}

std::string FormatThousandsIo(int64_t ioCount) {
    // Rounded as a number format rounds: a half away from zero.
    const uint64_t magnitude =
        ioCount < 0 ? 0 - static_cast<uint64_t>(ioCount) : static_cast<uint64_t>(ioCount);
    const uint64_t whole = magnitude / 10000 + (magnitude % 10000 >= 5000 ? 1 : 0);
    return GroupDigits(whole, ioCount < 0 && whole != 0);
}

std::string PriorityName(uint8_t code) {
    const std::string digits = ZeroPad(code, 2);
    const std::string name = PriorityClassName(digits[0] - '0');
    return name.empty() ? "" : name + " " + digits.substr(1, 1);
}

bool CpuTimeFromTicks(int64_t ticks, CpuTime& time) {
    if (ticks < 0) return false;
    const int64_t milliseconds = ticks / 10000;
    const int64_t days = milliseconds / 86400000;
    const int64_t ofDay = milliseconds % 86400000;
    time.day = DayOfMonthFrom1601(days) - 1;
    time.hour = ofDay / 3600000;
    time.minute = ofDay / 60000 % 60;
    time.second = ofDay / 1000 % 60;
    time.millisecond = ofDay % 1000;
    return true;
}

bool AccountStepUsage(Server& server, const std::string& taskKey, int stepNumber, bool isFinal) {
    const ReplyRecord& reply = server.link.reply;
    const auto& ponders = server.classes.Ponders;
    // 1. The step.
    const std::string stepKey = MakeStepKey(taskKey, stepNumber);
    Cells step{server.tables, kStepTable, stepKey};
    Cells task{server.tables, kTaskTable, taskKey};
    // 2. The two spans, system time first.
    CpuTime system, user;
    if (!CpuTimeFromTicks(reply.CpuTimeB, system) || !CpuTimeFromTicks(reply.CpuTimeA, user))
        return false;
    // 3.-5. The step's CPU time, I/O count and peak as reported.
    const CpuTime stepCpu = AddCpuTime(system, user);
    SkipOnFailure([&] { step.Set("STCPU", FormatCpuTime(stepCpu)); });
    SkipOnFailure([&] { step.Set("SIO", IoCell(reply.IoCount)); });
    SkipOnFailure([&] {
        if (reply.PeakMemory > step.Number("SPeakMem"))
            step.Set("SPeakMem", ZeroPad(reply.PeakMemory, 9));
    });
    // 6. CPU and I/O units of this reading.
    const int32_t runUnits = SystemUnits(ponders, CpuSeconds(stepCpu), reply.IoCount, 0);
    // 7. Memory units integrate over the polls: this reply's memory, at every reading.
    SkipOnFailure([&] {
        step.Set("SSMem",
                 std::to_string(CheckedLong(step.Number("SSMem") +
                                            SystemUnits(ponders, 0, 0, reply.PeakMemory))));
    });
    // 8.-9. The step's units; the task's peak grows at once.
    SkipOnFailure(
        [&] { step.Set("SUnits", ZeroPad(CheckedLong(runUnits + step.Number("SSMem")), 9)); });
    SkipOnFailure([&] {
        const int64_t peak = step.Number("SPeakMem");
        if (peak > task.Number("PeakMem")) task.Set("PeakMem", ZeroPad(peak, 9));
    });
    // 10. The task's sums grow only when the step ends.
    if (!isFinal) return true;
    SkipOnFailure([&] {
        task.Set("TCPU", FormatCpuTime(AddCpuTime(ParseCpuTime(task.Get("TCPU")), stepCpu)));
    });
    SkipOnFailure([&] { task.Set("IO", IoCell(task.Number("IO") * kIoScale + reply.IoCount)); });
    SkipOnFailure([&] {
        task.Set("Units", ZeroPad(CheckedLong(task.Number("Units") + step.Number("SUnits")), 9));
    });
    return true;
}

std::string CheckLimits(Server& server, const std::string& taskKey) {
    try {
        Cells task{server.tables, kTaskTable, taskKey};
        const std::string stepKey = MakeStepKey(taskKey, static_cast<int>(task.Number("CurStep")));
        if (!server.tables.StepTable.FindRow(stepKey)) return {};
        Cells step{server.tables, kStepTable, stepKey};
        const SlotStateRecord& state = server.SlotState.at(SlotFromJobIndex(task.Get("JobIndex")));
        const VqDate now = server.clock.Now();
        const auto& ponders = server.classes.Ponders;
        const int64_t units = task.Number("Units") + step.Number("SUnits");
        std::string message;
        auto exceeded = [&](const std::string& text) { message += "\r\n" + text + "\r\n"; };
        // A task in cleanup answers only to the allowance of its cleanup.
        if (state.cancelled) {
            if (units > state.cleanupUnitLimit)
                exceeded("Cleanup step has exceeded maximum system units! (" +
                         FormatThousands(RoundHalfEven(ponders[3])) + ")");
            if (now > state.cleanupDeadline)
                exceeded("Cleanup step has exceeded maximum running time! (" +
                         std::to_string(RoundHalfEven(ponders[4])) + " seconds)");
            return message;
        }
        const std::string start = task.Get("Start");
        const int64_t elapsed = start.empty() ? 0 : SecondsBetween(ReadDate(start), now);
        const ClassEntry& limits = server.classes.ClassTable.at(
            static_cast<size_t>(ClassIndex(server, task.Get("Class"))));
        // Every test is strict, and all of them are made, so that one message holds them all.
        const int64_t maxRunTime = task.Number("MaxRunTime");
        if (maxRunTime != 0 && elapsed > maxRunTime)
            exceeded("Task has exceeded maximum running time! (" + SpanText(maxRunTime) + ")");
        if (limits.MaxTime != 0 && elapsed > limits.MaxTime)
            exceeded("Task has exceeded maximum class running time! (" + SpanText(limits.MaxTime) +
                     ")");
        const CpuTime cpu =
            AddCpuTime(ParseCpuTime(task.Get("TCPU")), ParseCpuTime(step.Get("STCPU")));
        if (limits.MaxCpu != 0 && CpuSeconds(cpu) > limits.MaxCpu)
            exceeded("Task has exceeded maximum CPU time! (" + SpanText(limits.MaxCpu) + ")");
        const int64_t peak = std::max(task.Number("PeakMem"), step.Number("SPeakMem"));
        if (limits.MaxMemory != 0 && peak > limits.MaxMemory)
            exceeded("Task has exceeded maximum memory usage! (" +
                     FormatThousands(limits.MaxMemory) + " KB)");
        if (limits.MaxUnits != 0 && units > limits.MaxUnits) {
            exceeded("Task has exceeded maximum system units of class " + limits.ClassName + "!");
            exceeded(ReportLabel("Max System Units:") + FormatThousands(limits.MaxUnits));
        }
        return message;
    } catch (const std::exception&) {
        // A limit that can't be checked isn't acted on in this tick.
        return {};
    }
}

}  // namespace vq
