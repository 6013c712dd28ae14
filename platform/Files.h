#pragma once
// File helpers of the engine: whole-file reads and crash-safe whole-file writes.
#include <string>

namespace vq {

// Reads a whole file; false when it can't be opened or read.
bool ReadWholeFile(const std::string& path, std::string& content);
// Writes a whole file safely: a temporary file in the same folder, flushed and renamed over
// the old one. False with `error` set on failure; the old file is then untouched.
bool WriteFileAtomic(const std::string& path, const std::string& content, std::string* error = nullptr);
// Appends to a file, creating it; false with `error` set on failure.
bool AppendToFile(const std::string& path, const std::string& content, std::string* error = nullptr);
// Makes a folder and its missing parents; true when it exists afterwards.
bool MakeFolders(const std::string& path, unsigned mode = 0777);
bool IsFolder(const std::string& path);
bool PathExists(const std::string& path);
// The folder of the running program, with a closing "/".
std::string ProgramFolder();
// The description of an errno value.
std::string ErrnoText(int error);

}  // namespace vq
