#pragma once
// The state of one server: the values that start-up settles, the slot data, the working
// tables and the seams to the clock, the operator, the settings store and the screen. A test
// makes a fresh one and throws it away.
#include <cstdint>
#include <string>
#include <vector>

#include "calendar/DateTime.h"
#include "core/Screen.h"
#include "core/tables/WorkingTables.h"
#include "platform/Clock.h"
#include "platform/Operator.h"
#include "platform/UniqueFd.h"
#include "runner/RunnerLinkState.h"
#include "storage/Classes.h"
#include "storage/Registry.h"

namespace vq {

inline constexpr int kVersionMajor = 2;
inline constexpr int kVersionMinor = 1;
inline constexpr int kVersionRevision = 487;
inline const std::string kAppTitle = "Orvantis Personal Server";
// "2.1.487": the version as every program and window shows it.
inline std::string VersionNumberText() {
    return std::to_string(kVersionMajor) + "." + std::to_string(kVersionMinor) + "." +
           std::to_string(kVersionRevision);
}

// What a slot knows about a cancellation in progress.
struct SlotStateRecord {
    bool cancelled = false;
    VqDate cleanupDeadline = 0;
    int32_t cleanupUnitLimit = 0;
};

struct Server {
    Server(Clock& clock, Operator& op, Registry& registry, Screen& screen)
        : clock(clock), op(op), registry(registry), screen(screen) {
        SizeSlots(1);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Sizes the slot arrays to `count` slots, numbered from 1 (index 0 is unused).
    void SizeSlots(uint8_t count) {
        SlotCount = count;
        SlotUsed.assign(count + 1u, false);
        SlotState.assign(count + 1u, SlotStateRecord{});
        SlotReportFile.clear();
        SlotReportFile.resize(count + 1u);
    }

    Clock& clock;
    Operator& op;
    Registry& registry;
    Screen& screen;

    WorkingTables tables;
    ClassData classes;  // ClassTable, Ponders and the non-working day cache

    std::string ServerPath;   // the queue root, always with a closing "/"
    std::string RunnerPath;   // the program folder and "runlet"
    std::string InQueuePath;  // ServerPath + "$InQ/"
    std::string DataPath;     // ServerPath + "$Data/"
    std::string ProgramFolder;
    uint8_t OsKind = 0;
    std::string ComputerName;

    int32_t MaxRunningTasks = 1;
    uint8_t SlotCount = 1;
    std::vector<bool> SlotUsed;
    std::vector<SlotStateRecord> SlotState;
    std::vector<UniqueFd> SlotReportFile;  // the open active report of each slot
    uint8_t RunningTaskCount = 0;
    int32_t NextTaskNumber = 0;
    // Which backup pair of the queue database the next save writes, settled at the first save.
    bool BackupSlotKnown = false;
    bool BackupSlotTwo = false;

    // Timer1 runs: the queue is started.
    bool QueueStarted = false;
    // The end of a step asks for a save of the queue database at the end of the tick.
    bool SaveNeeded = false;
    // The text of the last server log entry, so that a headless message is logged once.
    std::string LastLogText;

    // The step runner link: per-slot pipes and processes, current values, the shared reply.
    RunnerLink link;
    // Monitor ticks since the last diagnostic period ended.
    uint16_t PollCount = 0;
};

}  // namespace vq
