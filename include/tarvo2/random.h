// The pseudo-random number service: the stand-in for the runtime's
// Randomize statement and Rnd function.
//
// The library draws pseudo-random numbers only to make unlikely marker
// texts (KivINIFileHandler.GetValue); nothing depends on their quality.
// The service of a context (see services.h) can be replaced, so that tests
// get numbers they can predict.
#ifndef TARVO2_RANDOM_H_
#define TARVO2_RANDOM_H_

#include <cstdint>
#include <memory>

#include "tarvo2/export.h"

namespace tarvo2 {

class TARVO2_EXPORT RandomService {
 public:
  virtual ~RandomService();

  // Reseeds the generator (Randomize without an argument).
  virtual void Randomize() = 0;

  // The next number of the sequence, in [0, 1) (Rnd).
  virtual float NextSingle() = 0;
};

// A generator of the runtime's kind (a 24-bit linear congruential sequence,
// so every number is exact in single precision) whose Randomize() reseeds
// it from the system clock. This is the default service.
TARVO2_EXPORT std::shared_ptr<RandomService> NewClockRandomService();

// The same generator started from `seed`, whose Randomize() restarts it
// from `seed`: after every Randomize() it yields the same sequence. For
// tests that need to know the numbers in advance.
TARVO2_EXPORT std::shared_ptr<RandomService> NewFixedRandomService(uint32_t seed);

// The services made above are safe for concurrent use.

}  // namespace tarvo2

#endif  // TARVO2_RANDOM_H_
