#pragma once
// The yardstick of the step benchmarks: a bare fork, exec and wait of /bin/true.
#include <sys/wait.h>
#include <unistd.h>

namespace vq::bench {

// True when /bin/true ran and exited 0.
inline bool BareTrue() {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::execl("/bin/true", "true", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace vq::bench
