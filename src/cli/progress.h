// Progress of long imports and exports, on stderr.
#ifndef TARVO2_CLI_PROGRESS_H_
#define TARVO2_CLI_PROGRESS_H_

#include <chrono>
#include <cstddef>
#include <string>

namespace tarvo2::cli {

// Shows "tarvo2: <verb>: N keys" (or "N of M keys") on one line of stderr,
// rewritten in place, once the operation has run for a second, and only
// when stderr is a terminal. Updates at most ten times a second. The line
// is cleared by Finish() or the destructor.
class Progress {
 public:
  explicit Progress(std::string verb);
  ~Progress();
  void Update(std::size_t done, std::size_t total);
  void Finish();

 private:
  std::string verb_;
  bool terminal_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point start_, last_;
};

}  // namespace tarvo2::cli

#endif  // TARVO2_CLI_PROGRESS_H_
