#pragma once
// The step runner link: the slots of running tasks, the launch of one runner process per step
// over two pipes, and every exchange of records with it.
//
// The server never blocks for ever on a runner: each wait for a reply is bounded by
// `RunnerLink::replyTimeoutMs`. An end of file on the reply pipe, a timeout, a failed write or
// a runner that could not be launched marks the slot lost; the runner is ended, and every
// later exchange of the slot answers at once as a step that has ended with return code 98 and
// the text "Step runner ended unexpectedly.", so that the monitor ends the step by its rules.
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "runner/RunnerLinkState.h"

namespace vq {

struct Server;

// Slots of the queue. TakeSlot is false, changing nothing, when the slot is taken already.
// Both fail with VqError for a slot outside the slot tables.
bool TakeSlot(Server& server, uint8_t slot);
void FreeSlot(Server& server, uint8_t slot);

// The slot that a JobIndex cell names; VqError when it is no number or no slot.
uint8_t SlotFromJobIndex(const std::string& jobIndex);

// Creates the pipes of the current slot, launches the runner and performs the start exchange
// with the filled StartRecord and text blocks. Reports nothing: a failure leaves the slot lost.
void OpenRunner(Server& server);
// Launches the runner of the current slot on the child's pipe ends; true when it started.
bool LaunchRunner(Server& server);
// One conversation with the runner of the current slot. Mode 0 sends the CommandRecord and
// reads the reply into the shared reply buffer and ReplyText; mode 1 is the start exchange.
void RunnerExchange(Server& server, int mode);
// Sets the current slot and command (the argument keeps what it held) and runs mode 0.
void SendRunnerCommand(Server& server, uint8_t slot, const std::string& command);
void SendRunnerCommand(Server& server, uint8_t slot, const std::string& command, int32_t argument);
// "STOP" and "STRT": the exchange, then 200 milliseconds of sleep, again and again while the
// runner answers with text length -1 and wait status 258 (the step hasn't reached the state
// yet). A lost runner answers with its text at once, which ends the loop.
void SendRunnerCommandRepeating(Server& server, uint8_t slot, const std::string& command);
// Closes the pipes of the current slot and ends its runner: the runner ends by itself at the
// end of its input; one that hasn't within a short grace is killed. The process is reaped.
void CloseRunner(Server& server);

// Writes `length` characters of `text` in slices of at most 4096, one write each. Returns the
// bytes written, or minus the error number of the first failing call.
int32_t WriteRunnerText(int pipe, int32_t length, const std::string& text,
                        int timeoutMs = kRunnerReplyTimeoutMs);
// Reads `length` bytes in blocks of at most 4096, appending to `text`. Returns the bytes read,
// fewer at an end of file, or minus the error number (ETIMEDOUT when nothing came in time).
int32_t ReadRunnerText(int pipe, int32_t length, std::string& text,
                       int timeoutMs = kRunnerReplyTimeoutMs);
// The slicing of WriteRunnerText over any writer, which returns bytes written or -errno.
int32_t WriteInSlices(const std::string& text, int32_t length,
                      const std::function<int32_t(const char*, size_t)>& writeSlice);
inline constexpr size_t kRunnerTextSlice = 4096;

// The child's side of the launch worked out as plain data before any process is made.
struct ChildFdAction {
    enum Kind { Dup2, OpenNull };
    Kind kind;
    int from;  // the descriptor to copy (Dup2), unused for OpenNull
    int to;    // the descriptor that the runner finds
};
struct RunnerLaunchPlan {
    std::string program;
    std::vector<std::string> argv;
    std::vector<ChildFdAction> fdActions;
    // "UserName/TaskName.TaskId.StepNumber": shown as the runner's window title where there is
    // a console; kept for the record here.
    std::string title;
};
// Standard input from the command pipe, standard output to the reply pipe, standard error to
// nothing. Both descriptors must lie above 2, so that no copy overwrites the other. The runner
// gets `runnerArgs` after its name: none for a step run here.
RunnerLaunchPlan MakeRunnerLaunchPlan(const std::string& runnerPath, int commandReadFd,
                                      int replyWriteFd, const StartRecord& start,
                                      const std::vector<std::string>& runnerArgs);
// The descriptor moved above the standard ones (0, 1, 2), close-on-exec kept.
UniqueFd LiftAboveStdio(UniqueFd fd);

// The reply that stands in for a lost runner of `entry`.
ReplyRecord LostRunnerReply(const RunnerSlotEntry& entry);

}  // namespace vq
