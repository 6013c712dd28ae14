#pragma once
// The clock seam: the engine asks the time of day and sleeps only through it, so that
// tests can drive every tick with a fake clock.
#include "calendar/DateTime.h"

namespace vq {

class Clock {
public:
    virtual ~Clock() = default;
    // The present local date and time as an automation date.
    virtual VqDate Now() = 0;
    virtual void Sleep(int milliseconds) = 0;
};

// Local wall-clock time and a real sleep.
class SystemClock final : public Clock {
public:
    VqDate Now() override;
    void Sleep(int milliseconds) override;
};

}  // namespace vq
