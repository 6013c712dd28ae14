#include "access/QueueFolders.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "calendar/Common.h"
#include "core/Server.h"
#include "platform/Error.h"
#include "platform/Files.h"
#include "platform/SafeDelete.h"
#include "reports/ServerLog.h"
#include "reports/TaskInfo.h"
#include "reports/TaskReport.h"
#include "storage/Settings.h"

namespace vq {
namespace {

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

std::string TaskCell(Server& server, const std::string& taskKey, const char* column) {
    return GetCell(server.tables, kTaskTable, taskKey, column);
}

std::string TaskName(Server& server, const std::string& taskKey) {
    std::string name;
    if (!GetRowText(server.tables, kTaskTable, taskKey, name))
        throw VqError("Element not found: " + taskKey, 35601);
    return name;
}

// The project folder of a task below the root: domain, user and task name.
std::string ProjectBelowRoot(Server& server, const std::string& taskKey) {
    return TaskCell(server, taskKey, "Domain") + "/" + TaskCell(server, taskKey, "UserName") +
           "/" + TaskName(server, taskKey) + "/";
}

bool IsTaskFolderName(const std::string& name) {
    if (name.size() != 6) return false;
    for (char c : name)
        if (c < '0' || c > '9') return false;
    return true;
}

bool NameExists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

std::string RealPath(const std::string& path) {
    char resolved[PATH_MAX];
    return ::realpath(path.c_str(), resolved) ? std::string(resolved) : std::string();
}

}  // namespace

bool ReadServerPath(Server& server) {
    try {
        const std::string stored = GetSettingText(server.registry, "ServerSettings", "ServPath");
        server.ServerPath = stored.empty() ? "" : NormalQueueRoot(stored);
        return !server.ServerPath.empty() && FolderExists(server.ServerPath);
    } catch (const std::exception& e) {
        const std::string text =
            std::string("Error occurred while trying to get server path!\n") + e.what();
        WriteServerLog(server, text);
        server.op.Message(text, MessageIcon::Critical, kAppTitle);
        return false;
    }
}

bool FolderExists(const std::string& path) {
    return DirHandle{opendir(WithBackslash(path).c_str())} != nullptr;
}

std::string FileExists(const std::string& path) {
    if (path.empty() || !PathExists(path)) return {};
    const std::string bare = WithoutBackslash(path);
    return bare.substr(bare.find_last_of('/') + 1);
}

bool CheckQueueFolders(Server& server, const std::string& root) {
    const std::string base = WithBackslash(root);
    try {
        std::string reason;
        if (!MakeQueueTree(server, base, reason)) throw VqError(reason);
        const std::string servPath = GetSettingText(server.registry, "ServerSettings", "ServPath");
        if (servPath.empty() || !FolderExists(servPath))
            throw VqError("The queue folder is not set or can't be found.");
        std::string error;
        if (!WriteFileAtomic(base + "$JobQ/QPath", servPath + "\r\n", &error)) throw VqError(error);
        return true;
    } catch (const std::exception& e) {
        const std::string text = "Error occurred while doing directory check!\nPath: \"" +
                                 GetSettingText(server.registry, "ServerSettings", "ServPath") +
                                 "\"\n" + e.what();
        WriteServerLog(server, text);
        server.op.Message(text, MessageIcon::Critical, kAppTitle);
        return false;
    }
}

bool MakeQueueFolder(Server& server, const std::string& user, const std::string& domain,
                     const std::string& path, const std::string& securityLevel, mode_t mode,
                     std::string* reason) {
    const std::string folder = WithoutBackslash(path);
    if (PathExists(folder + "/" + kCreationTimeFile)) return true;
    if (!PathExists(folder) && ::mkdir(folder.c_str(), mode) != 0) {
        const std::string why = ErrnoText(errno);
        WriteServerLog(server,
                       "Error occurred while creating folder!\n\nPath: " + folder + "\n\n" + why);
        if (reason) *reason = folder + ": " + why;
        return false;
    }
    WriteCreationTime(server, folder);
    return true;
}

bool WriteCreationTime(Server& server, const std::string& path) {
    const std::string line =
        "Orvantis Folder Created On: " + FormatLocaleDateTime(server.clock.Now()) + "\r\n";
    if (WriteFileAtomic(WithBackslash(path) + kCreationTimeFile, line)) return true;
    WriteServerLog(server, "Error occurred while writing creation time file.\n\nPath: " + path);
    return false;
}

std::string ParentOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

namespace {

// `path` is the folder `root` (with its closing "/") or lies below it, with no ".." on the way.
bool LiesLexicallyUnder(const std::string& root, const std::string& path) {
    if (root.empty() || path.find('\0') != std::string::npos) return false;
    if (path != WithoutBackslash(root) && path.compare(0, root.size(), root) != 0) return false;
    const std::string rest = path.size() > root.size() ? path.substr(root.size()) : std::string();
    for (size_t begin = 0; begin <= rest.size();) {
        const size_t end = std::min(rest.find('/', begin), rest.size());
        if (rest.compare(begin, end - begin, "..") == 0 && end - begin == 2) return false;
        begin = end + 1;
    }
    return true;
}

// The longest part of `path` that exists resolves into `realRoot`, so no link leads out.
bool ResolvesInto(const std::string& realRoot, const std::string& root, const std::string& path) {
    if (realRoot.empty()) return false;
    const std::string bareRoot = WithoutBackslash(root);
    std::string probe = WithoutBackslash(path);
    while (probe.size() > bareRoot.size() && !NameExists(probe)) probe = ParentOf(probe);
    const std::string real = RealPath(probe);
    return real == realRoot || real.compare(0, realRoot.size() + 1, realRoot + "/") == 0;
}

}  // namespace

bool IsInsideFolder(const std::string& root, const std::string& path) {
    return LiesLexicallyUnder(root, path) && ResolvesInto(RealPath(WithoutBackslash(root)), root, path);
}

namespace {

// The names of the folders from the root down to `path`, which lies lexically under `root`;
// empty and "." parts are passed over.
std::vector<std::string> NamesBelow(const std::string& root, const std::string& path) {
    std::vector<std::string> names;
    const std::string rest = path.size() > root.size() ? path.substr(root.size()) : std::string();
    for (size_t begin = 0; begin < rest.size();) {
        const size_t end = std::min(rest.find('/', begin), rest.size());
        if (end > begin && rest.compare(begin, end - begin, ".") != 0)
            names.push_back(rest.substr(begin, end - begin));
        begin = end + 1;
    }
    return names;
}

// The names in an opened folder, read from its descriptor, which must stand at its start: a
// task's folder holds a few files, so one read of the folder mostly finds them all.
std::vector<std::string> EntryNames(int folderFd) {
    std::vector<std::string> names;
    alignas(8) char buffer[16384];
    for (;;) {
        const long n = ::syscall(SYS_getdents64, folderFd, buffer, sizeof buffer);
        if (n <= 0) return names;
        for (long at = 0; at < n;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
            names.emplace_back(entry->d_name);
            at += entry->d_reclen;
        }
        // Room left for the longest entry: the folder has no more.
        if (sizeof buffer - static_cast<size_t>(n) >= sizeof(dirent64)) return names;
    }
}

bool Holds(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// The text of a file of an opened folder, the file not being a link; false when there is none.
bool ReadFileBelow(int folderFd, const std::string& name, std::string& content) {
    UniqueFd fd(::openat(folderFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd.Valid()) return false;
    content.clear();
    char buffer[16384];
    for (;;) {
        const ssize_t n = ::read(fd.Get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        content.append(buffer, static_cast<size_t>(n));
        // A short read of a regular file is its end.
        if (static_cast<size_t>(n) < sizeof buffer) return true;
    }
}

// Rewrites the info file unless it already says what the task says; a load of the queue asks
// this of every task.
void RefreshTaskInfo(Server& server, const std::string& taskKey, int folderFd,
                     const std::vector<std::string>& names) {
    std::string current;
    try {
        if (Holds(names, kTaskInfoFile) && ReadFileBelow(folderFd, kTaskInfoFile, current) &&
            current == TaskInfoText(server, taskKey))
            return;
    } catch (const std::exception&) {
        // WriteTaskInfo logs what is wrong with the row.
    }
    WriteTaskInfo(server, taskKey);
}

std::string Joined(const std::vector<std::string>& names, size_t depth) {
    std::string key;
    for (size_t i = 0; i < depth; ++i) key += names[i] + "/";
    return key;
}

}  // namespace

// The folders below the queue root, reached from the opened root one name at a time and never
// through a link: what is made or written in them is inside the root. Folders opened and found
// made stay known for the life of the walk, which a batch of tasks shares.
class TaskFolderWalk {
  public:
    explicit TaskFolderWalk(const std::string& root)
        : root_(root), rootFd_(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}

    const std::string& Root() const { return root_; }

    // The opened folder of the first `depth` names; -1 with errno set when one of them is
    // missing, no folder or a link.
    int Open(const std::vector<std::string>& names, size_t depth) {
        if (depth == 0) return rootFd_.Valid() ? rootFd_.Get() : -1;
        const std::string key = Joined(names, depth);
        if (const auto found = open_.find(key); found != open_.end()) return found->second.Get();
        const int parent = Open(names, depth - 1);
        if (parent < 0) return -1;
        UniqueFd folder = OpenSubfolder(parent, names[depth - 1]);
        if (!folder.Valid()) return -1;
        return open_.emplace(key, std::move(folder)).first->second.Get();
    }

    // A folder found made, with its Orvantis.ctf, kept open for the folders below it.
    bool KnownMade(const std::vector<std::string>& names) const {
        return made_.count(Joined(names, names.size())) != 0;
    }
    void Keep(const std::vector<std::string>& names, UniqueFd folder) {
        const std::string key = Joined(names, names.size());
        made_.insert(key);
        if (!names.empty()) open_.insert_or_assign(key, std::move(folder));
    }

    // Gives back the descriptors of the folders met so far when they are many; called between
    // two tasks, when no descriptor is in use.
    void Trim() {
        if (open_.size() < kKeptOpen) return;
        open_.clear();
        made_.clear();
    }

  private:
    static constexpr size_t kKeptOpen = 64;
    std::string root_;
    UniqueFd rootFd_;
    std::unordered_map<std::string, UniqueFd> open_;
    std::unordered_set<std::string> made_;
};

namespace {

TaskFolderWalk* sharedWalk = nullptr;

// Opens a folder of a task through the walk, making it in its parent when it is missing (the
// parent must exist); a link is refused.
UniqueFd OpenTaskFolder(Server& server, TaskFolderWalk& walk, const std::string& folder,
                        const std::vector<std::string>& names) {
    // The root itself, opened afresh: a descriptor of its own reads its listing from the start.
    if (names.empty()) return UniqueFd(::open(walk.Root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const int parent = walk.Open(names, names.size() - 1);
    UniqueFd fd = parent < 0 ? UniqueFd() : OpenSubfolder(parent, names.back());
    if (fd.Valid()) return fd;
    struct stat st {};
    const bool missing = parent >= 0 &&
                         ::fstatat(parent, names.back().c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 &&
                         errno == ENOENT;
    if (parent >= 0 && !missing && S_ISLNK(st.st_mode))
        throw VqError("The folder " + folder + " is not under the queue root.");
    if (parent < 0 || !missing) throw VqError("The folder " + folder + ": " + ErrnoText(errno));
    if (::mkdirat(parent, names.back().c_str(), 0777) != 0) {
        WriteServerLog(server, "Error occurred while creating folder!\n\nPath: " +
                                   WithoutBackslash(folder) + "\n\n" + ErrnoText(errno));
        throw VqError("The folder " + folder + " could not be made.");
    }
    fd = OpenSubfolder(parent, names.back());
    if (!fd.Valid()) throw VqError("The folder " + folder + ": " + ErrnoText(errno));
    return fd;
}

// MakeQueueFolder for the domain, user or project folder of a task, through the walk.
void MakeSharedTaskFolder(Server& server, TaskFolderWalk& walk, const std::string& folder) {
    const std::vector<std::string> names = NamesBelow(walk.Root(), folder);
    if (walk.KnownMade(names)) return;
    UniqueFd fd = OpenTaskFolder(server, walk, folder, names);
    if (!HasEntry(fd.Get(), kCreationTimeFile)) WriteCreationTime(server, folder);
    walk.Keep(names, std::move(fd));
}

}  // namespace

TaskFolderBatch::TaskFolderBatch(Server& server)
    : walk_(sharedWalk ? nullptr : std::make_unique<TaskFolderWalk>(server.ServerPath)) {
    if (walk_) sharedWalk = walk_.get();
}

TaskFolderBatch::~TaskFolderBatch() {
    if (walk_) sharedWalk = nullptr;
}

bool EnsureTaskFolders(Server& server, const std::string& taskKey) {
    try {
        const std::string domain = TaskCell(server, taskKey, "Domain");
        const std::string user = TaskCell(server, taskKey, "UserName");
        const std::string domainFolder = server.ServerPath + domain;
        const std::string userFolder = domainFolder + "/" + user;
        const std::string projectFolder = userFolder + "/" + TaskName(server, taskKey);
        const std::string rf = TaskCell(server, taskKey, "RF");
        // The levels 1 to 4; they put no access rules on the folders.
        const std::string folders[] = {domainFolder, userFolder, projectFolder, rf};
        // The cells may come from a damaged or hostile queue database: nothing is made
        // outside the queue root.
        for (const std::string& folder : folders)
            if (!LiesLexicallyUnder(server.ServerPath, folder))
                throw VqError("The folder " + folder + " is not under the queue root.");
        std::optional<TaskFolderWalk> own;
        if (!sharedWalk || sharedWalk->Root() != server.ServerPath) own.emplace(server.ServerPath);
        TaskFolderWalk& walk = own ? *own : *sharedWalk;
        walk.Trim();
        for (size_t level = 0; level < 3; ++level) MakeSharedTaskFolder(server, walk, folders[level]);
        // The task's own folder: one listing tells which of its files are there.
        const UniqueFd rfFd = OpenTaskFolder(server, walk, rf, NamesBelow(server.ServerPath, rf));
        const std::vector<std::string> present = EntryNames(rfFd.Get());
        if (!Holds(present, kCreationTimeFile)) WriteCreationTime(server, rf);
        const std::string base = WithBackslash(rf);
        if (!Holds(present, TaskCell(server, taskKey, "JobReport") + ".txt"))
            WriteReport(server, taskKey, "Waiting", false, "", -1, 1);
        std::string error;
        if (!Holds(present, kActiveMarker) &&
            !WriteFileAtomic(base + kActiveMarker, "Active Task\r\n", &error))
            throw VqError(error);
        // The info file logs its own failure; the folders are there all the same.
        RefreshTaskInfo(server, taskKey, rfFd.Get(), present);
        return true;
    } catch (const std::exception& e) {
        WriteServerLog(server, std::string("Error occurred while checking the task's folders!\n") + e.what());
        return false;
    }
}

void SetTaskFolder(Server& server, const std::string& taskKey) {
    const std::string rf = server.ServerPath + TaskCell(server, taskKey, "Domain") + "/" +
                           TaskCell(server, taskKey, "UserName") + "/" + TaskName(server, taskKey) +
                           "/" + TaskCell(server, taskKey, "ID");
    SetCell(server.tables, kTaskTable, taskKey, "RF", rf);
}

bool ClearProjectFolders(Server& server, const std::string& taskKey) {
    std::string lastMarker;
    VqTable& list = server.tables.FolList;
    try {
        // 0 means no bound; a negative count bounds nothing either.
        const int64_t limit = GetSettingNumber(server.registry, "ServerSettings", "CLF");
        if (limit <= 0) return true;
        list.ClearRows();
        const std::string below = ProjectBelowRoot(server, taskKey);
        const std::string project = server.ServerPath + below;
        const std::string name = TaskName(server, taskKey);
        // Everything below the root is reached through opened folders that are never links,
        // so that nothing outside the queue root can be listed or deleted.
        const UniqueFd projectFd = OpenFolderBelow(server.ServerPath, below);
        if (projectFd.Valid()) {
            for (const FolderEntry& folder : ListFolders(projectFd.Get()))
                if (IsTaskFolderName(folder.name))
                    list.AddRow("S" + folder.name, "").cells[list.ColumnIndex("Time")] =
                        FormatDateTime(DateFromTimeT(folder.modified));
        }
        const size_t keep = static_cast<size_t>(limit);
        if (list.RowCount() > keep) {
            list.SortOn(list.ColumnIndex("Time"), false);
            const size_t surplus = list.RowCount() - keep;
            for (size_t i = 0; i < surplus; ++i) {
                const std::string folder = list.RowAt(i).key.substr(1);
                if (server.tables.TaskTable.FindRow(folder + "-" + name)) continue;
                lastMarker = project + folder + "/" + kActiveMarker;
                // The folder is emptied through its opened descriptor, so that a swap of its
                // name for a link after this check leads nowhere else.
                const UniqueFd folderFd = OpenSubfolder(projectFd.Get(), folder);
                if (!folderFd.Valid() || HasEntry(folderFd.Get(), kActiveMarker)) continue;
                DeleteFiles(folderFd.Get());
                RemoveEmptyFolder(projectFd.Get(), folder);
            }
        }
        list.ClearRows();
        return true;
    } catch (const std::exception& e) {
        list.ClearRows();
        WriteServerLog(server, "Error occurred clearing project folder! (" + taskKey + ")\n" + lastMarker +
                                   "\n" + e.what());
        return false;
    }
}

}  // namespace vq

namespace vq {

std::string NormalQueueRoot(const std::string& path) {
    std::filesystem::path absolute(path);
    std::error_code error;
    if (absolute.is_relative()) absolute = std::filesystem::current_path(error) / absolute;
    return WithBackslash(absolute.lexically_normal().string());
}

std::string FolderProblem(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return ErrnoText(errno);
    if (!S_ISDIR(st.st_mode)) return ErrnoText(ENOTDIR);
    return FolderExists(path) ? "" : ErrnoText(errno);
}

bool MakeQueueTree(Server& server, const std::string& root, std::string& reason) {
    const std::string base = WithBackslash(root);
    struct Level {
        std::string path;
        const char* level;
        mode_t mode;
    };
    const Level levels[] = {{base, "1", 0700},
                            {base + "$InQ", "6", 0777},
                            {base + "$JobQ", "7", 0777},
                            {base + "$JobR", "8", 0777},
                            {base + "$Data", "0", 0777}};
    for (const Level& l : levels) {
        if (!MakeQueueFolder(server, "Everyone", "", l.path, l.level, l.mode, &reason)) return false;
        // A file of the folder's name passes MakeQueueFolder but holds nothing.
        if (const std::string problem = FolderProblem(l.path); !problem.empty()) {
            reason = l.path + ": " + problem;
            return false;
        }
    }
    // The database and the log live in $Data: a tree made earlier may have become read-only.
    if (::access((base + "$Data").c_str(), W_OK | X_OK) == 0) return true;
    reason = base + "$Data: " + ErrnoText(errno);
    return false;
}

bool AcceptQueueFolder(Server& server, const std::string& path, std::string& reason) {
    const std::string root = NormalQueueRoot(path);
    const std::string folder = WithoutBackslash(root);
    if (!IsFolder(folder)) {
        // The folders above take the user's umask; the root itself is private.
        MakeFolders(folder.substr(0, folder.find_last_of('/')));
        if (::mkdir(folder.c_str(), 0700) != 0) {
            reason = ErrnoText(errno == EEXIST ? ENOTDIR : errno);
            return false;
        }
    }
    if (const std::string problem = FolderProblem(root); !problem.empty()) {
        reason = problem;
        return false;
    }
    if (!MakeQueueTree(server, root, reason)) return false;
    server.ServerPath = root;
    if (SaveRegSetting(server.registry, "ServerSettings", "ServPath", root) == 0) return true;
    reason = server.registry.LastError();
    return false;
}

std::string ProposedQueueFolder() {
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : ".") + "/$JQ/";
}

}  // namespace vq
