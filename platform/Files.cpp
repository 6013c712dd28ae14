#include "platform/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/UniqueFd.h"

namespace vq {
namespace {

bool WriteAll(int fd, const std::string& content) {
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = ::write(fd, content.data() + done, content.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

// Read once: umask can only be read by setting it.
mode_t ProcessUmask() {
    static const mode_t mask = [] {
        const mode_t m = ::umask(0);
        ::umask(m);
        return m;
    }();
    return mask;
}

bool Fail(std::string* error, const std::string& what) {
    if (error) *error = what + ": " + ErrnoText(errno);
    return false;
}

}  // namespace

std::string ErrnoText(int error) { return std::strerror(error); }

bool ReadWholeFile(const std::string& path, std::string& content) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.Valid()) return false;
    content.clear();
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd.Get(), buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) return true;
        content.append(buffer, static_cast<size_t>(n));
    }
}

bool WriteFileAtomic(const std::string& path, const std::string& content, std::string* error) {
    // 1. Write the whole text to a temporary file beside the target.
    std::string temp = path + ".tmpXXXXXX";
    std::vector<char> name(temp.begin(), temp.end());
    name.push_back('\0');
    UniqueFd fd(::mkostemp(name.data(), O_CLOEXEC));
    if (!fd.Valid()) return Fail(error, path);
    temp.assign(name.data());
    ::fchmod(fd.Get(), 0666 & ~ProcessUmask());
    // 2. Flush it to disk, so that the rename never exposes a cut file.
    if (!WriteAll(fd.Get(), content) || ::fsync(fd.Get()) != 0) {
        Fail(error, path);
        ::unlink(temp.c_str());
        return false;
    }
    fd.Reset();
    // 3. Rename it over the old file: readers see the old file or the new one.
    if (::rename(temp.c_str(), path.c_str()) != 0) {
        Fail(error, path);
        ::unlink(temp.c_str());
        return false;
    }
    return true;
}

bool AppendToFile(const std::string& path, const std::string& content, std::string* error) {
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    if (!fd.Valid()) return Fail(error, path);
    if (!WriteAll(fd.Get(), content)) return Fail(error, path);
    return true;
}

bool MakeFolders(const std::string& path, unsigned mode) {
    if (path.empty()) return false;
    if (IsFolder(path)) return true;
    const size_t slash = path.find_last_of('/', path.size() > 1 ? path.size() - 2 : 0);
    if (slash != std::string::npos && slash > 0) MakeFolders(path.substr(0, slash), mode);
    return ::mkdir(path.c_str(), mode) == 0 || IsFolder(path);
}

bool IsFolder(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool PathExists(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

std::string ProgramFolder() {
    char buffer[4096];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return "./";
    std::string path(buffer, static_cast<size_t>(n));
    return path.substr(0, path.find_last_of('/') + 1);
}

}  // namespace vq
