#pragma once
// The folder tree under the queue root: its making, the task folders and the clearing of old
// task folders of a task project.
#include <sys/types.h>

#include <memory>
#include <string>

namespace vq {

struct Server;
class TaskFolderWalk;

inline const std::string kCreationTimeFile = "Orvantis.ctf";
inline const std::string kActiveMarker = "ACTIVE.ACT";

// Reads ServPath into ServerPath; true when it is set and the folder exists.
bool ReadServerPath(Server& server);
// True when the folder can be listed.
bool FolderExists(const std::string& path);
// The name of the file or folder at `path`, or the empty text when nothing is there.
std::string FileExists(const std::string& path);
// Makes the tree under `root` and writes $JobQ/QPath; false after a failure.
bool CheckQueueFolders(Server& server, const std::string& root);
// Makes one folder of the tree unless its Orvantis.ctf is there; its parent must exist.
// `user`, `domain` and `securityLevel` put no access rules on the folder.
// `reason`, when given, receives the system's reason of a failure.
bool MakeQueueFolder(Server& server, const std::string& user, const std::string& domain,
                     const std::string& path, const std::string& securityLevel, mode_t mode = 0777,
                     std::string* reason = nullptr);
bool WriteCreationTime(Server& server, const std::string& path);
// The folder that holds `path` (no closing "/"; "/" for a name at the top).
std::string ParentOf(const std::string& path);
// True when `path` lies in the folder `root` (with its closing "/") or is that folder: no ".."
// on the way, and what exists of it resolves below the root's own real place, so that a link
// can't lead out.
bool IsInsideFolder(const std::string& root, const std::string& path);
// Brings a task's folders, report and ACTIVE.ACT up to date; the result of the info file.
bool EnsureTaskFolders(Server& server, const std::string& taskKey);
// While one lives, EnsureTaskFolders of many tasks in a row (a load, a tick) shares the opened
// folders of the root, domains, users and projects and what it found made in them, instead of
// looking each up again. Only for a batch on one thread, in which no folder is deleted.
class TaskFolderBatch {
  public:
    explicit TaskFolderBatch(Server& server);
    ~TaskFolderBatch();
    TaskFolderBatch(const TaskFolderBatch&) = delete;
    TaskFolderBatch& operator=(const TaskFolderBatch&) = delete;

  private:
    std::unique_ptr<TaskFolderWalk> walk_;  // null for a batch inside another
};
// Writes a new RF for the task: root, domain, user, task name, number.
void SetTaskFolder(Server& server, const std::string& taskKey);
// Clears the oldest task folders of the task's project beyond CLF.
bool ClearProjectFolders(Server& server, const std::string& taskKey);

}  // namespace vq

namespace vq {
// The queue folder chooser's OK without a window: makes the folder (private, 0700) and those
// above it, then the tree under it, and only then stores it as ServPath. False with the
// system's reason when any of that fails; the stored setting is then untouched.
bool AcceptQueueFolder(Server& server, const std::string& path, std::string& reason);
// The root, the four folders below it, and a writable $Data: the first step of the check.
bool MakeQueueTree(Server& server, const std::string& root, std::string& reason);
// An absolute path without "." and ".." parts or doubled slashes, with a closing "/".
std::string NormalQueueRoot(const std::string& path);
// The system's reason why `path` is no folder that can be listed; empty when it is one.
std::string FolderProblem(const std::string& path);
// The folder proposed at a first start: $HOME/$JQ.
std::string ProposedQueueFolder();
}  // namespace vq
