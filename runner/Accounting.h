#pragma once
// Resource accounting and limits: the sums of a step and its task from the runner's replies,
// the check of the task's and its class's limits, and the number and priority texts that
// reports and views show them in.
#include <array>
#include <cstdint>
#include <string>

namespace vq {
struct Server;

// CPU seconds, memory (KB) and I/O count (fixed point, ten-thousandths) weighted by ponders 0,
// 1 and 2 and rounded to the nearest integer, a tie to the even one; 0 when it doesn't fit.
int32_t SystemUnits(const std::array<double, 7>& ponders, int32_t cpuSeconds, int64_t ioCount,
                    int32_t memory);
// To the nearest integer, a tie to the even one; 0 when it doesn't fit in 32 bits.
int32_t RoundHalfEven(double value);

// The number with the locale's thousands separator between groups of three digits; "0" for 0.
std::string FormatThousands(int64_t n);
// The same for a fixed-point I/O count in ten-thousandths, rounded to a whole number.
std::string FormatThousandsIo(int64_t ioCount);
// "Normal 2" for the code 22: the class name of the first digit of the code formatted "00",
// a blank and the second digit; empty when the first digit names no class.
std::string PriorityName(uint8_t code);

// A span of 100-ns ticks as a CPU time, read as a date from the first day of 1601: the day of
// the month less one gives the days, so that a span of 31 days or more loses its months.
// False for a span that is no date (a negative one).
struct CpuTime;
bool CpuTimeFromTicks(int64_t ticks, CpuTime& time);

// Brings the step's and the task's sums up to date from the counters of the shared reply;
// `isFinal` for the reading that follows "END ". A cell that can't be read or written leaves
// its sum as it was; false only when a CPU span can't be converted.
bool AccountStepUsage(Server& server, const std::string& taskKey, int stepNumber, bool isFinal);
// An empty text, or the message of the limits that the task has exceeded.
std::string CheckLimits(Server& server, const std::string& taskKey);
}  // namespace vq
