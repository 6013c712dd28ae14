#include "storage/Classes.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "calendar/Common.h"
#include "core/Server.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"
#include "runner/Accounting.h"
#include "storage/TaggedStream.h"

namespace vq {
namespace {

constexpr int kCacheRow = 366;
constexpr char kNonWorkMark = 'H';
const std::string kClassesSection = "Orvantis Classes";
const std::string kPondersSection = "PONDERS";
constexpr std::array<double, kPonderCount> kDefaultPonders = {1, 1, 1, 0, 0, 0, 0};

std::string ClassSection(int index) { return "CLASS-" + std::to_string(index); }
std::string PonderTag(int index) { return "PONDER" + std::to_string(index); }

// A section tag that doesn't match ends the read.
void ExpectSectionTag(ZkInFile& file, const std::string& tag) {
    if (!InputZkTag(file, tag)) throw VqError("Invalid File Format.", 6, "LoadClasses");
}

// A fixed-point I/O count written as a number: the whole part and, if any, the fraction
// without trailing zeros, in the locale's decimal format.
std::string FormatIo(int64_t tenThousandths) {
    const bool negative = tenThousandths < 0;
    const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(tenThousandths)
                                        : static_cast<uint64_t>(tenThousandths);
    std::string text = (negative ? "-" : "") + std::to_string(magnitude / kIoScale);
    uint64_t fraction = magnitude % kIoScale;
    if (fraction != 0) {
        std::string digits = ZeroPad(static_cast<int64_t>(fraction), 4);
        digits.erase(digits.find_last_not_of('0') + 1);
        text += FormatDecimal(0.5).substr(1, 1) + digits;  // the locale's decimal point
    }
    return text;
}

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DayOfYear(const DateParts& p) {
    static constexpr int kDaysBefore[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    const int month = std::clamp(p.month, 1, 12);
    return kDaysBefore[month - 1] + p.day + (month > 2 && IsLeapYear(p.year) ? 1 : 0);
}

// The date of one line of NonWork.dat: the text between its double quotes.
std::string NonWorkLineDate(const std::string& line) {
    const std::string trimmed = Trim(line);
    if (trimmed[0] != '"') return trimmed;
    const size_t close = trimmed.find('"', 1);
    return trimmed.substr(1, close == std::string::npos ? std::string::npos : close - 1);
}

}  // namespace

ClassData::ClassData() : NonWorkCache(2 * kCacheRow, ' ') { SetClassDefaults(*this); }

void SetClassDefaults(ClassData& data) {
    for (int i = 0; i < kClassCount; ++i) {
        ClassEntry entry;
        entry.ClassName = std::string(1, static_cast<char>('A' + i));
        entry.MaxCpu = i == 0 ? 0 : 1;
        data.ClassTable[static_cast<size_t>(i)] = entry;
    }
    data.Ponders = kDefaultPonders;
    ComputeClassUnits(data);
}

void ComputeClassUnits(ClassData& data) {
    for (ClassEntry& entry : data.ClassTable)
        entry.MaxUnits = SystemUnits(data.Ponders, entry.MaxCpu, entry.MaxIo, entry.MaxMemory);
}

int ClassIndex(const ClassData& data, const std::string& name) {
    const std::string wanted = ToUpper(name);
    for (int i = 0; i < kClassCount; ++i)
        if (data.ClassTable[static_cast<size_t>(i)].ClassName == wanted) return i;
    return 0;
}

int ClassIndex(const Server& server, const std::string& name) {
    return ClassIndex(server.classes, name);
}

std::string ClassesFileText(const ClassData& data) {
    ZkOutFile file;
    OutputZkTag(file, kClassesSection);
    OutputZkTag(file, kPondersSection);
    for (int i = 0; i < kPonderCount; ++i)
        OutputZkC(file, PonderTag(i), FormatDecimal(data.Ponders[static_cast<size_t>(i)]));
    OutputZkTag(file, "/" + kPondersSection);
    for (int i = 0; i < kClassCount; ++i) {
        const ClassEntry& entry = data.ClassTable[static_cast<size_t>(i)];
        OutputZkTag(file, ClassSection(i));
        OutputZkC(file, "CLASSNAME", entry.ClassName);
        OutputZkC(file, "MAXTIME", std::to_string(entry.MaxTime));
        OutputZkC(file, "CPU", std::to_string(entry.MaxCpu));
        OutputZkC(file, "CPUP", std::to_string(entry.CpuPriority));
        OutputZkC(file, "MEM", std::to_string(entry.MaxMemory));
        OutputZkC(file, "IO", FormatIo(entry.MaxIo));
        OutputZkC(file, "QP", std::to_string(entry.QueuePriority));
        OutputZkTag(file, "/" + ClassSection(i));
    }
    return file.Text();
}

void ReadClassesText(const std::string& text, ClassData& data) {
    ZkInFile file(text);
    ExpectSectionTag(file, kClassesSection);
    ExpectSectionTag(file, kPondersSection);
    for (int i = 0; i < kPonderCount; ++i)
        data.Ponders[static_cast<size_t>(i)] = ConvertToDouble(InputZkC(file, PonderTag(i)));
    ExpectSectionTag(file, "/" + kPondersSection);
    // Each field takes its value as soon as it is read, so that a failure keeps what came before.
    for (int i = 0; i < kClassCount; ++i) {
        ClassEntry& entry = data.ClassTable[static_cast<size_t>(i)];
        ExpectSectionTag(file, ClassSection(i));
        const std::string name = InputZkC(file, "CLASSNAME");
        entry.ClassName = name.empty() ? std::string(" ") : name.substr(0, 1);
        entry.MaxTime = ConvertToLong(InputZkC(file, "MAXTIME"));
        entry.MaxCpu = ConvertToLong(InputZkC(file, "CPU"));
        entry.CpuPriority = ConvertToByte(InputZkC(file, "CPUP"));
        entry.MaxMemory = ConvertToLong(InputZkC(file, "MEM"));
        entry.MaxIo = static_cast<int64_t>(ConvertToLong(InputZkC(file, "IO"))) * kIoScale;
        entry.QueuePriority = ConvertToLong(InputZkC(file, "QP"));
        ExpectSectionTag(file, "/" + ClassSection(i));
    }
}

bool LoadClasses(Server& server) {
    ClassData& data = server.classes;
    SetClassDefaults(data);
    const std::string path = server.DataPath + kClassesFileName;
    if (!PathExists(path)) {
        ComputeClassUnits(data);
        return true;
    }
    try {
        std::string text;
        if (!ReadWholeFile(path, text)) throw VqError(ErrnoText(errno), errno, "LoadClasses");
        ReadClassesText(text, data);
        ComputeClassUnits(data);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(
            server,
            std::string(
                "Error occured while loading classes.\n\nDefault values will be used.\n\n") +
                e.what());
        return false;
    }
}

bool SaveClasses(Server& server) {
    std::string error;
    if (WriteFileAtomic(server.DataPath + kClassesFileName, ClassesFileText(server.classes),
                        &error))
        return true;
    WriteServerLog(server, "Error occured while saving classes.\n\n" + error);
    return false;
}

std::string NonWorkFilePath(const Server& server) {
    return server.ServerPath + "$JobQ/" + kNonWorkFileName;
}

std::vector<std::string> NonWorkDates(const std::string& text) {
    std::vector<std::string> dates;
    size_t from = 0;
    while (from < text.size()) {
        size_t end = text.find_first_of("\r\n", from);
        if (end == std::string::npos) end = text.size();
        const std::string line = text.substr(from, end - from);
        from = end + 1;
        if (!Trim(line).empty()) dates.push_back(NonWorkLineDate(line));  // a blank line holds no date
    }
    return dates;
}

void FillNonWorkCache(ClassData& data, const std::string& text) {
    for (const std::string& date : NonWorkDates(text)) {
        const DateParts day = SplitDate(ReadDate(date));
        const int row = day.year - data.NonWorkBaseYear;
        if (row < 0 || row > 1) continue;
        data.NonWorkCache[static_cast<size_t>(row * kCacheRow + DayOfYear(day) - 1)] = kNonWorkMark;
    }
}

bool IsNonWorkDay(Server& server, VqDate date) {
    ClassData& data = server.classes;
    const DateParts day = SplitDate(date);
    int row = day.year - data.NonWorkBaseYear;
    if (row >= 2) {
        // The cache moves on: by one year when the date is in the year after its two, else
        // to the date's own year.
        if (row == 2) {
            data.NonWorkBaseYear = day.year - 1;
            row = 1;
        } else {
            data.NonWorkBaseYear = day.year;
            row = 0;
        }
        data.NonWorkCache.assign(2 * kCacheRow, ' ');
        try {
            std::string text;
            if (!ReadWholeFile(NonWorkFilePath(server), text)) return false;
            FillNonWorkCache(data, text);
        } catch (const VqError&) {
            return false;
        }
    }
    // A date before the cached years has no place in it.
    if (row < 0) return false;
    return data.NonWorkCache[static_cast<size_t>(row * kCacheRow + DayOfYear(day) - 1)] ==
           kNonWorkMark;
}

uint8_t ClassCpuPriority(Server& server, const std::string& classLetter) {
    return server.classes.ClassTable[static_cast<size_t>(ClassIndex(server, classLetter))].CpuPriority;
}

int32_t ClassQueuePriority(Server& server, const std::string& classLetter) {
    return server.classes.ClassTable[static_cast<size_t>(ClassIndex(server, classLetter))].QueuePriority;
}

}  // namespace vq
