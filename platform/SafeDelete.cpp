#include "platform/SafeDelete.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

namespace vq {
namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};
using DirHandle = std::unique_ptr<DIR, DirCloser>;

// A listing of an opened folder on a descriptor of its own, so that closing the listing
// leaves `folderFd` open.
DirHandle ListingOf(int folderFd) {
    const int copy = ::openat(folderFd, ".", kFolderFlags);
    if (copy < 0) return nullptr;
    DirHandle dir{::fdopendir(copy)};
    if (!dir) ::close(copy);
    return dir;
}

bool IsDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

UniqueFd OpenFolderBelow(const std::string& root, const std::string& below) {
    UniqueFd folder(::open(root.c_str(), kFolderFlags));
    size_t from = 0;
    while (folder.Valid() && from <= below.size()) {
        size_t end = below.find('/', from);
        if (end == std::string::npos) end = below.size();
        const std::string part = below.substr(from, end - from);
        from = end + 1;
        if (part.empty()) continue;
        if (part == "." || part == "..") return UniqueFd();
        folder = OpenSubfolder(folder.Get(), part);
    }
    return folder;
}

std::vector<FolderEntry> ListFolders(int folderFd) {
    std::vector<FolderEntry> folders;
    DirHandle dir = ListingOf(folderFd);
    if (!dir) return folders;
    while (const dirent* entry = ::readdir(dir.get())) {
        if (IsDotOrDotDot(entry->d_name)) continue;
        struct stat st {};
        if (::fstatat(folderFd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISDIR(st.st_mode))
            folders.push_back({entry->d_name, st.st_mtime});
    }
    return folders;
}

bool HasEntry(int folderFd, const std::string& name) {
    struct stat st {};
    return ::fstatat(folderFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

UniqueFd OpenSubfolder(int parentFd, const std::string& name) {
    return UniqueFd(::openat(parentFd, name.c_str(), kFolderFlags | O_NOFOLLOW));
}

void DeleteFiles(int folderFd) {
    DirHandle dir = ListingOf(folderFd);
    if (!dir) return;
    // unlinkat without AT_REMOVEDIR removes a file or a link and refuses a folder.
    while (const dirent* entry = ::readdir(dir.get()))
        if (!IsDotOrDotDot(entry->d_name)) ::unlinkat(folderFd, entry->d_name, 0);
}

bool RemoveEmptyFolder(int parentFd, const std::string& name) {
    // Refused with ENOTDIR when the name has meanwhile become a link.
    return ::unlinkat(parentFd, name.c_str(), AT_REMOVEDIR) == 0;
}

}  // namespace vq
