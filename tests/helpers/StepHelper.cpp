// vqstephelper: a step that misbehaves on request, for the tests of the step runner.
//
//   burn MS              use MS milliseconds of CPU time, then print them
//   hold MB MS           hold MB megabytes of touched memory for MS milliseconds
//   reads N              make N read system calls of one byte each
//   chain N MS FILE      a chain of N processes (child, grandchild, ...), each appending
//                        "pid pgid" to FILE, all sleeping MS milliseconds in small slices
//   escape FILE MS       a child that leaves the process group (setsid), writes its pid to
//                        FILE and sleeps MS milliseconds; the helper itself exits at once
//   linger FILE MS       a child that stays in the group, writes its pid to FILE and sleeps
//                        MS milliseconds; the helper itself exits at once
//   detach FILE MS       a double fork: a grandchild in a process group of its own, whose
//                        parent has exited at once, writes its pid to FILE and sleeps MS ms
#include <fcntl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

long long CpuMs() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1000LL + t.tv_nsec / 1000000;
}

void SleepMs(long long ms) {
    while (ms > 0) {
        const long long slice = ms < 10 ? ms : 10;
        timespec t{0, static_cast<long>(slice * 1000000)};
        nanosleep(&t, nullptr);
        ms -= slice;
    }
}

void AppendLine(const char* file, const std::string& line) {
    const int fd = open(file, O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd < 0) return;
    const std::string text = line + "\n";
    if (write(fd, text.data(), text.size()) < 0) perror("write");
    close(fd);
}

std::string PidLine() { return std::to_string(getpid()) + " " + std::to_string(getpgrp()); }

int Burn(long long ms) {
    volatile unsigned long long x = 0;
    while (CpuMs() < ms)
        for (int i = 0; i < 100000; ++i) x = x + static_cast<unsigned long long>(i);
    std::printf("burned %lld ms\n", CpuMs());
    return 0;
}

int Hold(long long mb, long long ms) {
    const size_t size = static_cast<size_t>(mb) * 1024 * 1024;
    char* block = static_cast<char*>(std::malloc(size));
    if (!block) return 2;
    for (size_t at = 0; at < size; at += 4096) block[at] = 1;
    SleepMs(ms);
    std::free(block);
    return 0;
}

int Reads(long n) {
    const int fd = open("/dev/zero", O_RDONLY);
    char c = 0;
    for (long i = 0; i < n; ++i)
        if (read(fd, &c, 1) != 1) return 2;
    close(fd);
    return 0;
}

int Chain(int n, long long ms, const char* file) {
    for (int level = 1; level < n; ++level) {
        const pid_t child = fork();
        if (child < 0) return 2;
        if (child > 0) {
            AppendLine(file, PidLine());
            SleepMs(ms);
            int status = 0;
            waitpid(child, &status, 0);
            return 0;
        }
    }
    AppendLine(file, PidLine());
    SleepMs(ms);
    return 0;
}

int LeaveChild(const char* file, long long ms, bool newSession) {
    const pid_t child = fork();
    if (child < 0) return 2;
    if (child == 0) {
        if (newSession) setsid();
        AppendLine(file, PidLine());
        SleepMs(ms);
        _exit(0);
    }
    // Wait until the child has written, so that the test finds its pid.
    for (int i = 0; i < 500 && access(file, F_OK) != 0; ++i) SleepMs(2);
    return 0;
}

int Detach(const char* file, long long ms) {
    const pid_t child = fork();
    if (child < 0) return 2;
    if (child == 0) {
        if (fork() == 0) {
            setpgid(0, 0);
            AppendLine(file, PidLine());
            SleepMs(ms);
        }
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    auto number = [&](size_t i) { return i < args.size() ? std::atoll(args[i].c_str()) : 0LL; };
    const std::string mode = args.empty() ? "" : args[0];
    if (mode == "burn") return Burn(number(1));
    if (mode == "hold") return Hold(number(1), number(2));
    if (mode == "reads") return Reads(static_cast<long>(number(1)));
    if (mode == "chain" && args.size() == 4) return Chain(static_cast<int>(number(1)), number(2), args[3].c_str());
    if (mode == "escape" && args.size() == 3) return LeaveChild(args[1].c_str(), number(2), true);
    if (mode == "linger" && args.size() == 3) return LeaveChild(args[1].c_str(), number(2), false);
    if (mode == "detach" && args.size() == 3) return Detach(args[1].c_str(), number(2));
    std::fprintf(stderr, "vqstephelper: unknown request\n");
    return 64;
}
