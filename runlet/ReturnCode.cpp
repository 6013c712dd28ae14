#include "runlet/ReturnCode.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "platform/UniqueFd.h"

namespace vq {

int StepRcFromEnd(int how, int status) {
    if (how == CLD_EXITED) return std::min(status + 1, kStepRcFailed);
    return kStepRcFailed;
}

std::optional<int> ParseFileRc(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return std::nullopt;
    const size_t last = text.find_last_not_of(" \t\r\n");
    const std::string_view digits = text.substr(first, last - first + 1);
    if (digits.empty() || digits.size() > 9 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    int value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (value > 99) return std::nullopt;
    return value;
}

namespace {

FileRcReading Problem(std::string text) { return {std::nullopt, std::move(text)}; }

FileRcReading CantRead(int error) {
    if (error == ENOENT) return Problem("was not found");
    return Problem(std::string("can't be read: ") + std::strerror(error));
}

}  // namespace

FileRcReading ReadFileRc(const std::string& path) {
    // Looked at before it is opened, so that no device is ever opened; looked at again
    // through the descriptor, in case the file was swapped in between.
    struct stat info{};
    if (::stat(path.c_str(), &info) != 0) return CantRead(errno);
    if (!S_ISREG(info.st_mode)) return Problem("is not a regular file");
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd.Valid()) return CantRead(errno);
    if (::fstat(fd.Get(), &info) != 0) return CantRead(errno);
    if (!S_ISREG(info.st_mode)) return Problem("is not a regular file");

    // One byte more than the limit tells a file that is too long.
    std::string text(kFileRcReadLimit + 1, '\0');
    size_t size = 0;
    while (size < text.size()) {
        const ssize_t n = ::read(fd.Get(), text.data() + size, text.size() - size);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return CantRead(errno);
        if (n == 0) break;
        size += static_cast<size_t>(n);
    }
    const std::optional<int> rc = size <= kFileRcReadLimit ? ParseFileRc(std::string_view(text).substr(0, size))
                                                           : std::nullopt;
    if (!rc) return Problem("holds no number from 0 to 99");
    return {rc, {}};
}

std::optional<int> StepRcFromFileRc(const std::string& path, std::vector<std::string>& notes) {
    if (path.empty()) return std::nullopt;
    const FileRcReading reading = ReadFileRc(path);
    if (!reading.rc)
        notes.push_back("FileRC file \"" + path + "\" " + reading.problem + "; the exit status gives the return code.");
    return reading.rc;
}

}  // namespace vq
