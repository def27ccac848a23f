#include "cli/progress.h"

#include <unistd.h>

#include <cstdio>

namespace tarvo2::cli {

Progress::Progress(std::string verb)
    : verb_(std::move(verb)), terminal_(::isatty(STDERR_FILENO) == 1), start_(std::chrono::steady_clock::now()) {}

Progress::~Progress() { Finish(); }

void Progress::Update(std::size_t done, std::size_t total) {
  if (!terminal_) return;
  auto now = std::chrono::steady_clock::now();
  if (now - start_ < std::chrono::seconds(1)) return;
  if (shown_ && now - last_ < std::chrono::milliseconds(100)) return;
  last_ = now;
  shown_ = true;
  if (total)
    std::fprintf(stderr, "\rtarvo2: %s: %zu of %zu keys", verb_.c_str(), done, total);
  else
    std::fprintf(stderr, "\rtarvo2: %s: %zu keys", verb_.c_str(), done);
  std::fflush(stderr);
}

void Progress::Finish() {
  if (!shown_) return;
  std::fprintf(stderr, "\r\033[K");
  std::fflush(stderr);
  shown_ = false;
}

}  // namespace tarvo2::cli
