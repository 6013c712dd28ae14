#include "core/StepSequencing.h"

#include <fcntl.h>

#include <exception>

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/QueueCycle.h"
#include "core/Server.h"
#include "core/TaskControl.h"
#include "core/TaskStatus.h"
#include "core/tables/Status.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"
#include "reports/TaskReport.h"
#include "runner/RunnerLink.h"
#include "runner/StartFill.h"

namespace vq {
namespace {

std::string TaskCell(Server& server, const std::string& taskKey, const char* column) {
    return GetCell(server.tables, kTaskTable, taskKey, column);
}

int64_t TaskNumber(Server& server, const std::string& taskKey, const char* column) {
    return CellNumber(TaskCell(server, taskKey, column));
}

// What a start has taken so far, so that a failure gives it back: a slot taken before a
// failure is never lost, and no runner outlives a start that failed. Once JobIndex holds the
// slot, the task runs, and the cancel that follows ends it by the rules of a running task.
struct StartTaken {
    bool slot = false;
    bool runner = false;
    bool stepRunning = false;
    bool jobIndex = false;
};

void GiveBack(Server& server, const std::string& stepKey, uint8_t slot, const StartTaken& taken) {
    try {
        if (taken.runner) {
            server.link.currentSlot = slot;
            CloseRunner(server);
        }
        if (taken.stepRunning)
            SetCell(server.tables, kStepTable, stepKey, "StepStatus", kStepCancelled);
        if (taken.slot) FreeSlot(server, slot);
    } catch (const std::exception&) {
        // The rows are gone or the slot is out of range: there is nothing left to give back.
    }
}

// The active report starts as a copy of the report and stays open until the task ends. A
// report that could not be written before (its failures never stop a task) gives an empty one.
void OpenActiveReport(Server& server, uint8_t slot, const std::string& report,
                      const std::string& active) {
    std::string content;
    ReadWholeFile(report, content);
    std::string error;
    if (!WriteFileAtomic(active, content, &error)) throw VqError(error);
    UniqueFd fd(::open(active.c_str(), O_RDWR | O_CLOEXEC));
    if (!fd.Valid()) throw VqError(active + ": " + ErrnoText(errno));
    server.SlotReportFile.at(slot) = std::move(fd);
}

// The first word of a runner that handed its step to the cluster. While the step runs, its
// text (the job and the partition) goes into the report; a cluster that can't be used is
// logged once for each reason, until a step has started on it again. The step itself ends at
// the monitor's next poll. The shared reply is left as the callers had it.
void NoteClusterStart(Server& server, const std::string& taskKey, uint8_t slot, char classLetter) {
    RunnerLink& link = server.link;
    const ReplyRecord callersReply = link.reply;
    std::string callersText = link.ReplyText;
    SendRunnerCommand(server, slot, "STAT");
    const std::string text = link.reply.ReplyTextLength > 0 ? link.ReplyText : "";
    const bool running = link.reply.RunnerState < 4;
    link.reply = callersReply;
    link.ReplyText = std::move(callersText);
    if (running) {
        link.clusterTroubleLogged.clear();
        if (!text.empty()) WriteReport(server, taskKey, "Data", false, text, slot, -1);
        return;
    }
    if (!text.starts_with(kClusterUnusablePrefix)) return;
    const std::string reason = text.substr(kClusterUnusablePrefix.size());
    if (reason == link.clusterTroubleLogged) return;
    link.clusterTroubleLogged = reason;
    WriteServerLog(server, std::string("Steps of class ") + classLetter +
                               " can't run on the Slurm cluster: " + reason);
}

}  // namespace

int NextExecutableStep(Server& server, const std::string& taskKey, int fromStep) {
    const int64_t allSteps = TaskNumber(server, taskKey, "AllSteps");
    for (int64_t i = fromStep; i <= allSteps; ++i)
        if (GetCell(server.tables, kStepTable, MakeStepKey(taskKey, static_cast<int>(i)),
                    "Execute") == "Yes")
            return static_cast<int>(i);
    return 0;
}

namespace {

// The choice of RunNextStep; `stepKey` follows the step looked at, for the message of a
// failure.
bool ChooseAndStartStep(Server& server, bool firstStep, const std::string& taskKey, uint8_t slot,
                        std::string& stepKey) {
    const int next = static_cast<int>(TaskNumber(server, taskKey, "CurStep")) + 1;
    if (firstStep && next == 1) WriteReport(server, taskKey, kRunning, false, "", -1, -1);
    const int allSteps = static_cast<int>(TaskNumber(server, taskKey, "AllSteps"));
    const int reportSlot = firstStep ? -1 : slot;
    for (int i = next; i <= allSteps; ++i) {
        stepKey = MakeStepKey(taskKey, i);
        const int executable = NextExecutableStep(server, taskKey, i);
        const int64_t minRc = CellNumber(GetCell(server.tables, kStepTable, stepKey, "MinRC"));
        const int64_t maxRc = CellNumber(GetCell(server.tables, kStepTable, stepKey, "MaxRC"));
        const int64_t jobRc = TaskNumber(server, taskKey, "JobRC");
        if (minRc <= jobRc && jobRc <= maxRc && executable == i) {
            const bool started = StartStep(server, taskKey, slot, i, firstStep);
            if (firstStep && !started) RequestCancel(server, taskKey);
            return started;
        }
        WriteReport(server, taskKey, kStepSkipped, true, std::to_string(i), reportSlot, -1);
        SetCell(server.tables, kTaskTable, taskKey, "CurStep", ZeroPad(i, 4));
        SetCell(server.tables, kStepTable, stepKey, "StepStatus", kStepSkipped);
    }
    if (next == 1) {
        // Nothing ran: the task ends in this tick, without a slot or an active report.
        WriteReport(server, taskKey, "Data", false, kNoStepsText, reportSlot, -1);
        WriteReport(server, taskKey, kComplete, false, "", reportSlot, -1);
        SetCell(server.tables, kTaskTable, taskKey, "CurStep", ZeroPad(allSteps, 4));
        ChangeStatus(server, taskKey, kReady, kComplete);
    }
    return false;
}

}  // namespace

bool RunNextStep(Server& server, bool firstStep, const std::string& taskKey, uint8_t slot) {
    std::string stepKey = taskKey;
    try {
        return ChooseAndStartStep(server, firstStep, taskKey, slot, stepKey);
    } catch (const std::exception& e) {
        // A damaged row stops this task only: the tick goes on with the others.
        WriteServerLog(server,
                       "Error occurred while executing the step (" + stepKey + ")!\n" + e.what());
        // A first step's task ends as a start that failed; a later step's caller ends it.
        if (firstStep) RequestCancel(server, taskKey);
        return false;
    }
}

bool StartStep(Server& server, const std::string& taskKey, uint8_t slot, int step, bool firstStep) {
    const std::string stepKey = MakeStepKey(taskKey, step);
    StartTaken taken;
    try {
        // 1. A first step asks for a free slot again.
        uint8_t offered = 0;
        if (firstStep && !FindFreeSlot(server, offered))
            throw VqError(kNoTaskIndexText, kNoTaskIndexError);
        // 2. The start record and texts, from the settings of this moment.
        StartFill fill = FillStartRecord(server, taskKey, step);
        RunnerLink& link = server.link;
        link.start = fill.record;
        link.commandText = std::move(fill.commandText);
        link.fileRcText = std::move(fill.fileRcText);
        link.environText = std::move(fill.environText);
        const bool onCluster = !fill.runnerArgs.empty();
        link.runnerArgs = std::move(fill.runnerArgs);
        // 3. The slot.
        if (firstStep) {
            if (!TakeSlot(server, slot)) throw VqError(kTaskIndexTakenText, kTaskIndexTakenError);
            taken.slot = true;
        }
        // 4. The report paths.
        const std::string report = ReportPath(server, taskKey);
        const std::string active = ActiveReportPath(server, taskKey);
        // 5. The folders, before the runner opens the step's output file in them: a task
        // whose folder was deleted while it waited runs all the same.
        EnsureTaskFolders(server, taskKey);
        // 6. One runner for this step.
        link.currentSlot = slot;
        taken.runner = true;
        OpenRunner(server);
        // 7. The step runs.
        SetCell(server.tables, kTaskTable, taskKey, "CurStep", ZeroPad(step, 4));
        SetCell(server.tables, kStepTable, stepKey, "StepStatus", kStepRunning);
        taken.stepRunning = true;
        // 8. The task runs, in this slot, not cancelled.
        if (firstStep) {
            SetCell(server.tables, kTaskTable, taskKey, "JobIndex", std::to_string(slot));
            taken.jobIndex = true;
            ChangeStatus(server, taskKey, TaskCell(server, taskKey, "Status"), kRunning);
            server.SlotState.at(slot) = SlotStateRecord{false, server.clock.Now(), 0};
        }
        // 9. The active report of the run.
        if (firstStep) OpenActiveReport(server, slot, report, active);
        // 10. The step's entry, the warnings of the filling, the report.
        WriteReport(server, taskKey, kStepRunning, true, std::to_string(step), slot, -1);
        if (!fill.warnings.empty())
            WriteReport(server, taskKey, "Data", false, fill.warnings, slot, -1);
        if (onCluster) NoteClusterStart(server, taskKey, slot, fill.classLetter);
        RefreshReport(server, slot, taskKey);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server,
                       "Error occurred while executing the step (" + stepKey + ")!\n" + e.what());
        // Once the task runs in its slot, the cancel that follows a first step's failure ends
        // the step and looks for cleanup steps; before, what was taken is given back here.
        if (!taken.jobIndex) GiveBack(server, stepKey, slot, taken);
        return false;
    }
}

void UpdateTaskRc(Server& server, const std::string& taskKey, int32_t rc) {
    const int64_t jobRc = TaskNumber(server, taskKey, "JobRC");
    // 0 ended the task and 99 is a cancellation: a later step changes neither.
    if (jobRc > 0 && jobRc != 99)
        SetCell(server.tables, kTaskTable, taskKey, "JobRC", ZeroPad(rc, 2));
}

}  // namespace vq
