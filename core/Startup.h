#pragma once
// Start-up and shutdown of the server: whether this process should serve at all, the loading
// of the queue, and the closing path.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vq {

struct Server;

// Tells whether another server of this user is already running (and brings it forward).
class InstanceGuard {
public:
    virtual ~InstanceGuard() = default;
    virtual bool AnotherServerRuns() = 0;
};

struct StartRequest {
    // The words of the command line other than the options, joined by blanks.
    std::string commandLine;
    // --queue-root, taken as the queue folder chooser's OK would take it; empty when not given.
    std::string queueRoot;
    // The folder proposed when no root is given or stored; empty for $HOME/$JQ.
    std::string proposedRoot;
    // What the platform query answers: platform 2, major 6 on Linux.
    int osPlatform = 2, osMajor = 6, osMinor = 0;
    // With a window: shows a status word of the loading on the splash and repaints it; the
    // loading then sleeps 200 ms so that the word can be read. Empty when headless: no words
    // and no sleeps.
    std::function<void(const std::string& word)> showStatus;
    // With a window: shows the queue folder chooser and returns once it is closed; the chooser
    // stores the folder it takes as ServPath. Asked when no --queue-root was given and the
    // stored root doesn't count. Empty when headless: the proposal is taken at a first start.
    std::function<void()> chooseQueueFolder;
};

// The status words of the loading, in their order.
inline const std::string kStatusCreatingObjects = "Creating Objects...";
inline const std::string kStatusLoadingSettings = "Loading Settings...";
inline const std::string kStatusLoadingDatabase = "Loading Database...";
inline const std::string kStatusLoadingTree = "Loading Tree...";
inline const std::string kStatusLoadingInfo = "Loading Info...";

enum class StartResult {
    Serve,        // loaded: turn the timers on
    EndQuietly,   // the process ends with success (registration call, second server, LOGON start)
    EndFailed,    // the process ends with a failure (settings not writable, no queue folder)
};

inline const std::string kRegistryWriteFailed =
    "Orvantis Server cannot write to registry. It is possible you don't have sufficient "
    "security permissions.";
inline const std::string kTasksStillRunningTitle = "Orvantis Server - Tasks Still Running";

// The whole start: the process checks, then the loading of the main window.
StartResult ProcessStart(Server& server, const StartRequest& request, InstanceGuard& guard);
// The loading: columns, queue root and folders, paths, task number, classes, database, the
// tasks found Running, slots and the queue switch. False when the process must end.
bool MainWindowLoad(Server& server, const StartRequest& request);

// The code of the operating system; 0 (with a message text) for one not in the table.
uint8_t OsKindOf(int platform, int major, int minor, std::string* message = nullptr);
// TVal written as "1", then "2", and read back.
bool RegistryWriteTest(Server& server);
// Every task found Running (held or cancelling too) becomes "Complete - Unfinished".
void FinishTasksFoundRunning(Server& server);
// The keys of the tasks whose Status contains "Running".
std::vector<std::string> RunningTaskKeys(Server& server);
// The closing path; true when the server may close. `bySystem` when the session or a signal
// ends it rather than the operator.
bool CloseServer(Server& server, bool bySystem);
// The title of the main window: "Orvantis Personal Server 2.1".
std::string MainWindowTitle();

}  // namespace vq
