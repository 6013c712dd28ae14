#include "core/Startup.h"

#include "access/QueueFolders.h"
#include "calendar/Common.h"
#include "core/QueueCycle.h"
#include "core/Server.h"
#include "core/TaskControl.h"
#include "core/TaskStatus.h"
#include "core/tables/Status.h"
#include "platform/Files.h"
#include "reports/ServerLog.h"
#include "storage/Classes.h"
#include "storage/QueueDatabase.h"
#include "storage/Settings.h"

namespace vq {
namespace {

constexpr const char* kSection = "ServerSettings";

int64_t ServerSetting(Server& server, const char* name) {
    return GetSettingNumber(server.registry, kSection, name);
}

// Auto logon and the start at logon follow their settings at every start.
void ApplyLogonSettings(Server& server) {
    if (ServerSetting(server, "LogonEn") == 1)
        SetAutoLogon(server.registry, 1, "", "", "");
    else
        SetAutoLogon(server.registry, 0, " ", " ", " ");
    SetRunAtLogon(server.registry, static_cast<int>(ServerSetting(server, "StartServ")),
                  server.ProgramFolder);
}

// A start-up failure: one line for the operator (and the log, where there is one yet).
bool EndWith(Server& server, const std::string& text) {
    server.op.Message(text, MessageIcon::Critical, kAppTitle);
    return false;
}

// A status word on the splash, left long enough to be read.
void ShowStatus(Server& server, const StartRequest& request, const std::string& word) {
    if (!request.showStatus) return;
    request.showStatus(word);
    server.clock.Sleep(200);
}

// The queue root: the command line's, else a stored one that counts, else the chooser's when
// there is a window, else at a first start (nothing stored) the proposal. A root is stored only after its tree was made; a stored root that
// fails leaves the setting as it is, since nobody can be asked for another one.
bool SettleQueueRoot(Server& server, const StartRequest& request) {
    // Nothing chosen (Cancel, or a folder that can't be found): the process ends.
    if (request.queueRoot.empty() && request.chooseQueueFolder && !ReadServerPath(server)) {
        request.chooseQueueFolder();
        return ReadServerPath(server);
    }
    std::string reason;
    const std::string stored = GetSettingText(server.registry, kSection, "ServPath");
    if (request.queueRoot.empty() && !stored.empty()) {
        if (ReadServerPath(server) && MakeQueueTree(server, server.ServerPath, reason)) return true;
        if (reason.empty()) reason = FolderProblem(stored);
        return EndWith(
            server, "The stored queue folder \"" + stored + "\" can't be used: " + reason +
                        ". Start with --queue-root DIR to choose another; the stored one is kept.");
    }
    std::string root = request.queueRoot;
    if (root.empty())
        root = request.proposedRoot.empty() ? ProposedQueueFolder() : request.proposedRoot;
    if (AcceptQueueFolder(server, root, reason)) return ReadServerPath(server);
    return EndWith(server, "The queue folder \"" + NormalQueueRoot(root) + "\" can't be used: " +
                               reason + ". Choose another with --queue-root DIR.");
}

void SetDerivedPaths(Server& server) {
    server.RunnerPath = server.ProgramFolder + "runlet";
    server.InQueuePath = server.ServerPath + "$InQ/";
    server.DataPath = server.ServerPath + "$Data/";
}

std::string KeyList(const std::vector<std::string>& keys) {
    std::string list;
    for (const std::string& key : keys) list += key + "\n\n";
    return list;
}

}  // namespace

uint8_t OsKindOf(int platform, int major, int minor, std::string* message) {
    if (platform == 1 && major == 4 && minor == 0) return 1;
    if (platform == 1 && major == 4 && minor == 10) return 2;
    if (platform == 2 && major == 3 && minor == 51) return 3;
    if (platform == 2 && major >= 4 && major <= 6) return static_cast<uint8_t>(major);
    if (message)
        *message = "Not supported OS Platform " + std::to_string(platform) + " / Major " +
                   std::to_string(major) + " / Minor " + std::to_string(minor);
    return 0;
}

std::string MainWindowTitle() {
    return kAppTitle + " " + std::to_string(kVersionMajor) + "." + std::to_string(kVersionMinor);
}

bool RegistryWriteTest(Server& server) {
    SaveRegSetting(server.registry, kSection, "TVal", "1");
    SaveRegSetting(server.registry, kSection, "TVal", "2");
    return GetRegSetting(server.registry, kSection, "TVal", RegValue::Text("")).AsText() == "2";
}

StartResult ProcessStart(Server& server, const StartRequest& request, InstanceGuard& guard) {
    const std::string words = ToUpper(request.commandLine);
    if (words.find("/REGISTERCOM") != std::string::npos) return StartResult::EndQuietly;

    std::string osMessage;
    server.OsKind = OsKindOf(request.osPlatform, request.osMajor, request.osMinor, &osMessage);
    if (!osMessage.empty()) server.op.Message(osMessage, MessageIcon::Exclamation, kAppTitle);

    if (guard.AnotherServerRuns()) return StartResult::EndQuietly;
    if (!RegistryWriteTest(server)) {
        // The store's own reason follows the message, so that one line tells what to mend.
        const std::string& why = server.registry.LastError();
        server.op.Message(kRegistryWriteFailed + (why.empty() ? "" : " (" + why + ")"),
                          MessageIcon::Critical, kAppTitle);
        return StartResult::EndFailed;
    }
    // A stored setting that a reader can't use is said once in the log.
    server.registry.SetNoticeSink(
        [&server](const std::string& text) { return WriteServerLog(server, text); });
    server.ComputerName = ToUpper(GetComputerNameText());
    if (server.ProgramFolder.empty()) server.ProgramFolder = ProgramFolder();
    ApplyLogonSettings(server);
    if (words == "LOGON" && ServerSetting(server, "StartServ") != 1) return StartResult::EndQuietly;

    server.SizeSlots(1);
    return MainWindowLoad(server, request) ? StartResult::Serve : StartResult::EndFailed;
}

bool MainWindowLoad(Server& server, const StartRequest& request) {
    ShowStatus(server, request, kStatusCreatingObjects);
    BuildColumns(server.tables, server.registry);
    if (!SettleQueueRoot(server, request)) return false;
    ShowStatus(server, request, kStatusLoadingSettings);
    // The log lives in $Data: set the paths first, so that the folder check can report.
    SetDerivedPaths(server);
    if (!CheckQueueFolders(server, server.ServerPath)) return false;
    server.MaxRunningTasks = 1;
    server.NextTaskNumber = JobNumberStore(server, false);

    ShowStatus(server, request, kStatusLoadingDatabase);
    LoadClasses(server);
    const bool queueMayStart = RecoverQueueDatabase(server);
    FinishTasksFoundRunning(server);
    ShowStatus(server, request, kStatusLoadingTree);
    server.screen.LoadTree();

    std::fill(server.SlotUsed.begin(), server.SlotUsed.end(), false);
    server.RunningTaskCount = 0;
    ShowStatus(server, request, kStatusLoadingInfo);
    QSS(server, ServerSetting(server, "StartQ") == 1 && queueMayStart);
    return true;
}

void FinishTasksFoundRunning(Server& server) {
    VqTable& tasks = server.tables.TaskTable;
    const int statusColumn = tasks.ColumnIndex("Status");
    for (size_t i = 0; i < tasks.RowCount(); ++i) {
        const std::string status = tasks.RowAt(i).cells[statusColumn];
        if (BaseStatus(status) == kRunning)
            ChangeStatus(server, tasks.RowAt(i).key, status, kCompleteUnfinished);
    }
}

std::vector<std::string> RunningTaskKeys(Server& server) {
    std::vector<std::string> keys;
    VqTable& tasks = server.tables.TaskTable;
    const int statusColumn = tasks.ColumnIndex("Status");
    for (size_t i = 0; i < tasks.RowCount(); ++i)
        if (tasks.RowAt(i).cells[statusColumn].find(kRunning) != std::string::npos)
            keys.push_back(tasks.RowAt(i).key);
    return keys;
}

bool CloseServer(Server& server, bool bySystem) {
    SaveQueueDatabase(server);
    server.screen.SaveColumnWidths();
    const std::vector<std::string> shown = RunningTaskKeys(server);
    if (shown.empty()) return true;
    const std::string question =
        "The following tasks are currently running:\n\n" + KeyList(shown) +
        "If you close Orvantis Server all running tasks will be Cancelled.\n\n"
        "Do you still wish to close Orvantis Server?";
    if (!server.op.AskYesNo(question, kTasksStillRunningTitle, bySystem ? 3000 : 0)) return false;
    // The tasks as they stand now: one may have ended while the question was open.
    const std::vector<std::string> running = RunningTaskKeys(server);
    for (const std::string& key : running) KillTask(server, key);
    WriteServerLog(server,
                   "Some running tasks were Cancelled because Orvantis Server was shut down:\n\n" +
                       KeyList(running));
    SaveQueueDatabase(server);
    return true;
}

}  // namespace vq
