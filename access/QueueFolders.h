#pragma once
// The folder tree under the queue root: its making, the task folders and the clearing of old
// task folders of a task project.
#include <string>
#include <sys/types.h>

namespace vq {

struct Server;

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
bool MakeQueueFolder(Server& server, const std::string& user, const std::string& domain,
                     const std::string& path, const std::string& securityLevel, mode_t mode = 0777);
bool WriteCreationTime(Server& server, const std::string& path);
// Brings a task's folders, report and ACTIVE.ACT up to date; the result of the info file.
bool EnsureTaskFolders(Server& server, const std::string& taskKey);
// Writes a new RF for the task: root, domain, user, task name, number.
void SetTaskFolder(Server& server, const std::string& taskKey);
// Clears the oldest task folders of the task's project beyond CLF.
bool ClearProjectFolders(Server& server, const std::string& taskKey);

}  // namespace vq

namespace vq {
// The queue folder chooser's OK without a window: makes the folder and those above it, and
// stores it as ServPath when it can be listed. False with the message when it can't.
bool AcceptQueueFolder(Server& server, const std::string& path);
// The folder proposed at a first start: $HOME/$JQ.
std::string ProposedQueueFolder();
}  // namespace vq
