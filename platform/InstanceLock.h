#pragma once
// One server per user: an exclusive lock on server.lock beside the settings store.
#include <string>

#include "platform/UniqueFd.h"

namespace vq {

class InstanceLock {
public:
    explicit InstanceLock(std::string path) : path_(std::move(path)) {}
    enum class Result { Acquired, HeldByAnother, Unavailable };
    // Takes the lock and keeps it for the life of this object. Unavailable when the file can't
    // be made (then nothing can be proved about another server).
    Result TryAcquire();
    const std::string& Path() const { return path_; }

private:
    std::string path_;
    UniqueFd fd_;
};

}  // namespace vq
