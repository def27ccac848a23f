// Shared by the benchmarks that run in rounds under both code pages.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace tarvo2_bench {

// Takes "--rounds=N" (at least 1) out of the command line and returns N, or
// `fallback` when it is not given; the other arguments keep their order for
// benchmark::Initialize.
inline int TakeRounds(int& argc, char** argv, int fallback = 3) {
  int rounds = fallback;
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], "--rounds=", 9) == 0) rounds = std::max(1, std::atoi(argv[i] + 9));
    else argv[kept++] = argv[i];
  }
  argc = kept;
  return rounds;
}

}  // namespace tarvo2_bench
