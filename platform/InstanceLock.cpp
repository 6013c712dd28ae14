#include "platform/InstanceLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "platform/Files.h"

namespace vq {

InstanceLock::Result InstanceLock::TryAcquire() {
    const size_t slash = path_.find_last_of('/');
    if (slash != std::string::npos && slash > 0) MakeFolders(path_.substr(0, slash), 0700);
    UniqueFd fd(::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!fd.Valid()) return Result::Unavailable;
    if (::flock(fd.Get(), LOCK_EX | LOCK_NB) != 0)
        return errno == EWOULDBLOCK ? Result::HeldByAnother : Result::Unavailable;
    fd_ = std::move(fd);
    return Result::Acquired;
}

}  // namespace vq
