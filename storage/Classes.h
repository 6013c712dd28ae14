#pragma once
// The 26 task classes A to Z with their limits and starting priorities, the seven ponders,
// Classes.dat that holds them, and the non-working days of NonWork.dat.
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "calendar/DateTime.h"

namespace vq {

struct Server;

inline constexpr int kClassCount = 26;
inline constexpr int kPonderCount = 7;
// I/O counts are fixed-point numbers with four decimal places, kept as ten-thousandths.
inline constexpr int64_t kIoScale = 10000;
inline const std::string kClassesFileName = "Classes.dat";
inline const std::string kNonWorkFileName = "NonWork.dat";

struct ClassEntry {
    std::string ClassName;      // CLASSNAME: the letter
    int32_t MaxTime = 0;        // MAXTIME: maximum running time, seconds; 0 no limit
    int32_t MaxCpu = 1;         // CPU: maximum CPU time, seconds; 0 no limit
    uint8_t CpuPriority = 22;   // CPUP: class digit and level digit of a priority key
    int32_t MaxMemory = 0;      // MEM: maximum memory, kilobytes; 0 no limit
    int64_t MaxIo = 0;          // IO: maximum I/O count in ten-thousandths; 0 no limit
    int32_t QueuePriority = 0;  // QP: highest starting queue priority number
    int32_t MaxUnits = 0;       // maximum system units, computed, not stored
};

// The class data of one server.
struct ClassData {
    ClassData();
    std::array<ClassEntry, kClassCount> ClassTable;
    // 0 to 2: weights of CPU, memory and I/O in system units; 3: "Max Cancel System Units:";
    // 4: "Max Cancel Time:" in seconds; 5, 6: kept only.
    std::array<double, kPonderCount> Ponders{};
    // Two rows of 366 characters for the years NonWorkBaseYear and the one after: "H" on the
    // place of a non-working day (day of the year from 1), a blank elsewhere.
    std::string NonWorkCache;
    int NonWorkBaseYear = 0;
};

// Every field of the class table and the ponders to its default; the units recomputed.
void SetClassDefaults(ClassData& data);
// The maximum system units of each class from its limits and ponders 0 to 2.
void ComputeClassUnits(ClassData& data);
// The place of the class whose letter is the upper-cased `name`; 0 (class A) when unknown.
int ClassIndex(const ClassData& data, const std::string& name);
int ClassIndex(const Server& server, const std::string& name);

// The text of Classes.dat for the data.
std::string ClassesFileText(const ClassData& data);
// Reads the text of Classes.dat into `data` field by field, in file order; throws VqError at
// the first failure, leaving what was read before it.
void ReadClassesText(const std::string& text, ClassData& data);

// Defaults, then $Data/Classes.dat when it exists. A failure is logged; the fields read before
// it keep their values and the units stay those of the defaults.
bool LoadClasses(Server& server);
// Writes the class table and the ponders to $Data/Classes.dat; a failure is logged.
bool SaveClasses(Server& server);

// True when the day of `date` is in $JobQ/NonWork.dat, through the cache of two years.
bool IsNonWorkDay(Server& server, VqDate date);
// Fills the cache for the two years from `data.NonWorkBaseYear` from the text of NonWork.dat;
// throws VqError at a line that is no date, leaving the days read before it.
void FillNonWorkCache(ClassData& data, const std::string& text);
// The date text of each line of NonWork.dat that isn't blank, without its quotes.
std::vector<std::string> NonWorkDates(const std::string& text);
// The path of NonWork.dat under the queue root.
std::string NonWorkFilePath(const Server& server);

// The CPU priority code (CPUP) of the class with this letter; it is the class's maximum
// when a step starts. A letter not found is the first class.
uint8_t ClassCpuPriority(Server& server, const std::string& classLetter);
// The starting queue priority (QP) of the class with this letter.
int32_t ClassQueuePriority(Server& server, const std::string& classLetter);

}  // namespace vq
