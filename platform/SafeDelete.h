#pragma once
// Folder work relative to opened folders that never follows a symbolic link, so that nothing
// outside a tree is listed or deleted, even when a folder is swapped for a link meanwhile.
#include <ctime>
#include <string>
#include <vector>

#include "platform/UniqueFd.h"

namespace vq {

// Opens `root` (which may itself be a link: it was chosen by the operator), then each
// component of `below` from it without following links. Empty components are passed over;
// "." or ".." or a component that is no real folder gives an invalid descriptor.
UniqueFd OpenFolderBelow(const std::string& root, const std::string& below);

struct FolderEntry {
    std::string name;
    std::time_t modified = 0;  // last write time
};
// The real folders (not links to folders) in an opened folder, "." and ".." left out.
std::vector<FolderEntry> ListFolders(int folderFd);

// True when the opened folder holds an entry of that name, a dangling link included.
bool HasEntry(int folderFd, const std::string& name);

// Opens the folder `name` of an opened folder; invalid when it is no real folder (a link, say).
UniqueFd OpenSubfolder(int parentFd, const std::string& name);
// Deletes the files and links in an opened folder; a link is removed as a link, a subfolder
// is not entered. Failures are passed over.
void DeleteFiles(int folderFd);
// Removes the folder `name` of an opened folder when it is empty and still a real folder.
bool RemoveEmptyFolder(int parentFd, const std::string& name);

}  // namespace vq
