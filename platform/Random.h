#pragma once
// The random seam: scrambling draws its bytes through it, so that tests can replay the draws
// and the program uses the system's random source.
#include <cstddef>
#include <cstdint>

namespace vq {

class RandomSource {
  public:
    virtual ~RandomSource() = default;
    // Fills `size` bytes with random values.
    virtual void Fill(uint8_t* data, size_t size) = 0;

    uint8_t NextByte();
    // A uniform number from 0 to `bound` - 1; 0 when `bound` is 0.
    uint32_t Below(uint32_t bound);
};

// The kernel's random source (getrandom), buffered per thread.
RandomSource& SystemRandom();

// A repeatable source for tests and benchmarks: the same seed gives the same bytes.
class SeededRandom final : public RandomSource {
  public:
    explicit SeededRandom(uint64_t seed) : state_(seed) {}
    void Fill(uint8_t* data, size_t size) override;

  private:
    uint64_t state_;
};

}  // namespace vq
