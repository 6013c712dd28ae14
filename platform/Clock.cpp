#include "platform/Clock.h"

#include <ctime>
#include <thread>

namespace vq {

VqDate SystemClock::Now() {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return DateFromTimeT(ts.tv_sec, static_cast<int>(ts.tv_nsec / 1000000));
}

void SystemClock::Sleep(int milliseconds) {
    if (milliseconds > 0) std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace vq
