#include "platform/Random.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>

namespace vq {
namespace {

class KernelRandom final : public RandomSource {
  public:
    void Fill(uint8_t* data, size_t size) override {
        while (size > 0) {
            if (used_ == sizeof buffer_) Refill();
            const size_t take = std::min(size, sizeof buffer_ - used_);
            std::memcpy(data, buffer_ + used_, take);
            used_ += take;
            data += take;
            size -= take;
        }
    }

  private:
    void Refill() {
        size_t done = 0;
        while (done < sizeof buffer_) {
            const ssize_t n = ::getrandom(buffer_ + done, sizeof buffer_ - done, 0);
            if (n > 0) {
                done += static_cast<size_t>(n);
            } else if (n < 0 && errno != EINTR) {
                // No getrandom: the library's device source is the fall-back.
                std::random_device device;
                for (; done < sizeof buffer_; ++done)
                    buffer_[done] = static_cast<uint8_t>(device());
            }
        }
        used_ = 0;
    }

    uint8_t buffer_[256] = {};
    size_t used_ = sizeof buffer_;
};

}  // namespace

uint8_t RandomSource::NextByte() {
    uint8_t byte = 0;
    Fill(&byte, 1);
    return byte;
}

uint32_t RandomSource::Below(uint32_t bound) {
    if (bound <= 1) return 0;
    // Rejection keeps the draw uniform: values of the incomplete last round are drawn again.
    const uint32_t limit = UINT32_MAX - UINT32_MAX % bound;
    for (;;) {
        uint32_t value = 0;
        Fill(reinterpret_cast<uint8_t*>(&value), sizeof value);
        if (value < limit) return value % bound;
    }
}

RandomSource& SystemRandom() {
    thread_local KernelRandom source;
    return source;
}

void SeededRandom::Fill(uint8_t* data, size_t size) {
    // splitmix64: small, fast and good enough for repeatable test draws.
    for (size_t i = 0; i < size; ++i) {
        state_ += 0x9E3779B97F4A7C15ull;
        uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        data[i] = static_cast<uint8_t>(z ^ (z >> 31));
    }
}

}  // namespace vq
