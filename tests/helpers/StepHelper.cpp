// vqstephelper: a step that uses a known amount of CPU time, for the tests of the step runner.
// The tests make their other misbehaving steps (children left behind, memory, reads) from
// plain shell commands.
//
//   burn MS              use MS milliseconds of CPU time, then print them
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

long long CpuMs() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1000LL + t.tv_nsec / 1000000;
}

int Burn(long long ms) {
    volatile unsigned long long x = 0;
    while (CpuMs() < ms)
        for (int i = 0; i < 100000; ++i) x = x + static_cast<unsigned long long>(i);
    std::printf("burned %lld ms\n", CpuMs());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "burn") == 0) return Burn(std::atoll(argv[2]));
    std::fprintf(stderr, "vqstephelper: unknown request\n");
    return 64;
}
