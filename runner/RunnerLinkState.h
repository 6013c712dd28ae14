#pragma once
// What the step runner link keeps between calls: the per-slot tables, the shared current values
// that a caller sets before an exchange, and the one reply buffer with its text. The server is
// single-threaded, so nothing can change them between the setting and the exchange.
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/UniqueFd.h"
#include "runner/records/Records.h"

namespace vq {

// The link's tables have room for 31 running tasks, slots 0 to 30.
inline constexpr int kRunnerSlots = 31;
// A runner that gives no reply within this time is taken for dead.
inline constexpr int kRunnerReplyTimeoutMs = 30000;
// What the report gets when a runner dies, falls silent or can't be launched.
inline const std::string kRunnerEndedText = "Step runner ended unexpectedly.";
// The return code of a step whose runner was lost.
inline constexpr int32_t kRunnerLostRc = 98;

// One entry of the per-slot tables.
struct RunnerSlotEntry {
    UniqueFd commandPipe;  // the server's write end of the pipe to the runner
    UniqueFd replyPipe;    // the server's read end of the pipe from the runner
    UniqueFd processFd;    // a pidfd of the runner: the process handle, waitable with poll()
    pid_t pid = -1;        // the runner's process id; -1 when none lives
    // The runner can no longer be talked to (never launched, dead or silent): every exchange
    // of the slot answers as an ended step with return code 98, until the next launch.
    bool lost = false;
    // The counters of the slot's last real reply, so that the stand-in reply of a lost runner
    // doesn't wipe what the step had already used.
    int64_t lastCpuTimeA = 0, lastCpuTimeB = 0, lastIoCount = 0;
    int32_t lastPeakMemory = 0;
};

struct RunnerLink {
    RunnerLink() = default;
    RunnerLink(const RunnerLink&) = delete;
    RunnerLink& operator=(const RunnerLink&) = delete;
    // Ends every runner still alive, so that a server (or a test) that goes leaves no process.
    ~RunnerLink();

    std::array<RunnerSlotEntry, kRunnerSlots> slots;

    // The shared current values of the next exchange.
    int currentSlot = 0;
    CommandRecord command{"STAT", 0};
    StartRecord start;
    std::string commandText, fileRcText, environText;
    // The arguments of the next runner launched: empty for a step run here.
    std::vector<std::string> runnerArgs;
    // The child's ends of the two pipes between creation and launch.
    UniqueFd childCommandEnd, childReplyEnd;

    // The last reply of any runner and its text.
    ReplyRecord reply;
    std::string ReplyText;

    // The reason the cluster couldn't be used that the server log has last been told, so that
    // each reason is logged once; cleared when a step has started on the cluster.
    std::string clusterTroubleLogged;

    // The limit of one wait for a reply; tests shorten it.
    int replyTimeoutMs = kRunnerReplyTimeoutMs;
};

}  // namespace vq
