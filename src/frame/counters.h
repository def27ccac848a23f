// Counting with the runtime's overflow rule, for loops that count in Longs.
#ifndef TARVO2_SRC_FRAME_COUNTERS_H_
#define TARVO2_SRC_FRAME_COUNTERS_H_

#include <cstdint>

namespace tarvo2 {

// Returns n, then adds one to it / adds one and returns the new value.
// Both raise 6 when n is 2147483647 (n is then unchanged). Labels
// "PostInc" and "PreInc".
std::int32_t PostInc(std::int32_t& n);
std::int32_t PreInc(std::int32_t& n);

}  // namespace tarvo2

#endif  // TARVO2_SRC_FRAME_COUNTERS_H_
