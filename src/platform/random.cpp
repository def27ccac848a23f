#include "tarvo2/random.h"

#include <chrono>
#include <mutex>

namespace tarvo2 {
namespace {

// The runtime's Rnd sequence: x' = (x * 0x43FD43FD + 0xC39EC3) mod 2^24,
// returned as x' / 2^24.
constexpr uint32_t kMask = 0xFFFFFF;

uint32_t Step(uint32_t x) { return (x * 0x43FD43FDu + 0xC39EC3u) & kMask; }

class LcgRandomService : public RandomService {
 public:
  LcgRandomService(bool from_clock, uint32_t seed)
      : from_clock_(from_clock), seed_(seed & kMask), state_(seed_) {
    if (from_clock_) Randomize();
  }


  void Randomize() override {
    std::lock_guard<std::mutex> l(mu_);
    if (!from_clock_) {
      state_ = seed_;
      return;
    }
    // Fold the clock's nanoseconds into the state, as Randomize folds the
    // timer into the seed; the previous state stays part of it so that two
    // calls within one clock tick still differ.
    uint64_t now = static_cast<uint64_t>(
        std::chrono::system_clock::now().time_since_epoch().count());
    uint32_t mixed = static_cast<uint32_t>(now ^ (now >> 24) ^ (now >> 48));
    state_ = (state_ ^ mixed ^ (++calls_ << 8)) & kMask;
  }

  float NextSingle() override {
    std::lock_guard<std::mutex> l(mu_);
    state_ = Step(state_);
    return static_cast<float>(state_) / 16777216.0f;
  }

 private:
  std::mutex mu_;  // guards state_ and calls_
  const bool from_clock_;
  const uint32_t seed_;
  uint32_t state_;
  uint32_t calls_ = 0;
};

}  // namespace

RandomService::~RandomService() = default;

std::shared_ptr<RandomService> NewClockRandomService() {
  return std::make_shared<LcgRandomService>(true, 0x50000);
}

std::shared_ptr<RandomService> NewFixedRandomService(uint32_t seed) {
  return std::make_shared<LcgRandomService>(false, seed);
}

}  // namespace tarvo2
