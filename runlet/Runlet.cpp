#include "runlet/Runlet.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "runlet/LocalStep.h"
#include "runlet/ReturnCode.h"
#include "runlet/SlurmStep.h"
#include "runlet/StepProcess.h"

namespace vq {
namespace {

volatile sig_atomic_t g_endRequested = 0;

constexpr int32_t kLongestBlock = 16 * 1024 * 1024;

bool ReadExact(int fd, char* buffer, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::read(fd, buffer + done, size - done);
        if (n < 0 && errno == EINTR && !g_endRequested) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

const char* AckStageOf(StartOutcome outcome) {
    switch (outcome) {
        case StartOutcome::Started: return "STARTED";
        case StartOutcome::Refused: return "REFUSED";
        default: return "FAILED";
    }
}

}  // namespace

void RequestRunletEnd() { g_endRequested = 1; }

Runlet::Runlet(int input, int output, RunletOptions options)
    : input_(input), output_(output), options_(std::move(options)) {}

int Runlet::Run() {
    StepInput input;
    if (!ReadStart(input)) return 1;
    if (startError_.empty()) startError_ = options_.error;
    StartOutcome outcome = StartOutcome::Failed;
    if (startError_.empty()) {
        if (options_.slurm)
            step_ = std::make_unique<SlurmStep>(options_, g_endRequested);
        else
            step_ = std::make_unique<LocalStep>(g_endRequested);
        outcome = step_->Start(input);
    }
    if (!SendAck(AckStageOf(outcome), outcome == StartOutcome::Started ? 0 : 1)) {
        Abandon();
        return 1;
    }
    for (;;) {
        std::string bytes(CommandRecord::kSize, '\0');
        if (!WatchUntilCommand() || !ReadExact(input_, bytes.data(), bytes.size())) {
            // The server has gone: nothing of the step may outlive it.
            Abandon();
            return 1;
        }
        if (!Answer(CommandRecord::Decode(bytes))) break;
    }
    if (step_) step_->ReleaseGuard();
    return 0;
}

void Runlet::Abandon() {
    if (!step_) return;
    step_->Abandon();
    step_->ReleaseGuard();
}

bool Runlet::ReadBlock(int32_t length, const char* name, std::string& block) {
    if (length <= 0) return true;
    if (length <= kLongestBlock) {
        block.assign(static_cast<size_t>(length), '\0');
        return ReadExact(input_, block.data(), block.size());
    }
    // Read past a block too long to keep, so that the records after it are read right.
    startError_ = std::string("The ") + name + " block of " + std::to_string(length) +
                  " bytes is longer than the runner takes (" + std::to_string(kLongestBlock) + ").";
    std::string chunk(65536, '\0');
    for (int64_t left = length; left > 0;) {
        const size_t part = static_cast<size_t>(std::min<int64_t>(left, static_cast<int64_t>(chunk.size())));
        if (!ReadExact(input_, chunk.data(), part)) return false;
        left -= static_cast<int64_t>(part);
    }
    return true;
}

bool Runlet::ReadStart(StepInput& input) {
    std::string bytes(StartRecord::kSize, '\0');
    if (!ReadExact(input_, bytes.data(), bytes.size())) return false;
    input.start = StartRecord::Decode(bytes);
    return ReadBlock(input.start.CommandLength, "Command", input.command) &&
           ReadBlock(input.start.FileRcLength, "FileRC", input.fileRc) &&
           ReadBlock(input.start.EnvironLength, "Environ", input.environ);
}

bool Runlet::Answer(const CommandRecord& command) {
    const std::string& name = command.Command;
    std::string text;
    if (name == "END ") {
        const int stepRc = step_ ? step_->Finish() : kStepRcFailed;
        ReplyRecord reply = MakeReply("END");
        reply.StepRc = stepRc;
        reply.RunnerState = kRunnerEnding;
        Send(reply, step_ ? step_->EndText() : startError_);
        return false;
    }
    if (step_) step_->Refresh();
    ReplyRecord reply;
    if (name == "STAT") {
        reply = MakeReply("STAT");
        if (step_) text = step_->StatusText();
    } else if (name == "STOP" || name == "STRT") {
        const bool reached = !step_ || (name == "STOP" ? step_->Stop() : step_->Continue());
        reply = MakeReply(name.c_str());
        if (!reached) {
            reply.WaitStatus = ReplyRecord::kWaitPending;
            reply.ReplyTextLength = -1;
        }
    } else if (name == "PRTY") {
        if (step_) text = step_->ChangePriority(command.Argument);
        reply = MakeReply("PRTY");
    } else if (name == "DIAG") {
        if (step_) text = step_->WriteDiagnostic();
        reply = MakeReply("DIAG");
    } else if (name == "KILL") {
        if (step_) step_->Kill();
        reply = MakeReply("KILL");
    } else {
        text = "Unknown command \"" + name + "\".";
        reply = MakeReply("UNKNOWN");
    }
    if (!Send(reply, text)) {
        Abandon();
        return false;
    }
    return true;
}

// Between commands the backend keeps looking at the step, so that its answers stay fresh
// (and the local guard knows each process, also an orphan that came after the last command).
// False when the runner is asked to end; the timeout also catches a signal that came just
// before the wait.
bool Runlet::WatchUntilCommand() {
    pollfd input{input_, POLLIN, 0};
    for (;;) {
        if (g_endRequested) return false;
        const int ready = ::poll(&input, 1, step_ ? step_->WatchIntervalMs() : -1);
        if (ready > 0) return true;
        if (ready == 0 && step_) step_->Watch();
    }
}

ReplyRecord Runlet::MakeReply(const char* stage) const {
    ReplyRecord reply;
    reply.ReplyStage = stage;
    if (!step_) {
        reply.RunnerState = kRunnerEnded;
        reply.StepRc = kStepRcFailed;
        return reply;
    }
    const StepSnapshot step = step_->Snapshot();
    reply.CpuTimeA = step.counters.userTime;
    reply.CpuTimeB = step.counters.systemTime;
    reply.PeakMemory = static_cast<int32_t>(std::min<int64_t>(step.counters.peakKb, INT32_MAX));
    reply.IoCount = step.counters.ioCalls * 10'000;
    reply.CountersValid = step.countersValid ? 1 : 0;
    reply.RunnerState = step.ended ? kRunnerEnded : step.held ? kRunnerHeld : kRunnerRunning;
    reply.StepRc = step.ended ? step.stepRc : 0;
    return reply;
}

bool Runlet::Send(ReplyRecord reply, const std::string& text) {
    if (reply.ReplyTextLength != -1) reply.ReplyTextLength = static_cast<int32_t>(text.size());
    std::string bytes = reply.Encode();
    if (reply.ReplyTextLength > 0) bytes += text;
    return WriteAll(output_, bytes);
}

bool Runlet::SendAck(const char* stage, int32_t code) {
    StartAck ack;
    ack.AckStage = stage;
    ack.AckCode = code;
    return WriteAll(output_, ack.Encode());
}

}  // namespace vq
