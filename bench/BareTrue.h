#pragma once
// The yardstick of the step benchmarks: /bin/true launched the way the server launches its
// runner (posix_spawn, standard error on /dev/null), and waited for.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace vq::bench {

// True when /bin/true ran and exited 0.
inline bool BareTrue() {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    char program[] = "/bin/true";
    char* argv[] = {program, nullptr};
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, program, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return false;
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace vq::bench
