#include "storage_string/splice.h"

#include <algorithm>
#include <vector>

#include "storage_string/text_search.h"

namespace tarvo2::storage_string {
namespace {

// Matches found per call of the batch scanner.
constexpr std::size_t kBatch = 512;
using Traits = std::char_traits<char16_t>;

}  // namespace

std::size_t SpliceMatches(std::u16string& text, const Splice& s, std::size_t* after) {
  const std::size_t len = text.size();
  const std::size_t m = s.needle.size();
  const std::size_t r = s.replacement.size();
  std::size_t k = 0;  // replacements made

  if (!s.up && r <= m) {
    // Downwards without growing: one pass. Each match is found before
    // anything at or after it changes, and text moves only towards the
    // beginning, behind the search.
    char16_t* d = text.data();
    std::size_t read = 0;
    std::size_t write = 0;
    std::size_t batch[kBatch];
    std::size_t from = s.start - 1;
    while (from != kNotFound) {
      const std::size_t found = FindManyForward(s.hay, s.needle, from, batch, s.all ? kBatch : 1, &from);
      for (std::size_t b = 0; b < found; ++b) {
        const std::size_t at = batch[b];
        if (r < m) {
          Traits::move(d + write, d + read, at - read);
          write += at - read;
        } else {
          write = at;
        }
        Traits::copy(d + write, s.replacement.data(), r);
        write += r;
        read = at + m;
        *after = write + 1;
        ++k;
      }
      if (!s.all) break;
    }
    if (k > 0 && r < m) {
      Traits::move(d + write, d + read, len - read);
      text.resize(write + (len - read));
    }
    return k;
  }

  // Upwards, or growing: collect the matches first, so that the new length
  // is known.
  std::vector<std::size_t> matches;
  if (s.up) {
    std::size_t p = std::min(s.start, len);
    while (p >= m) {
      const std::size_t at = FindBackward(s.hay, s.needle, p - m);
      if (at == kNotFound) break;
      matches.push_back(at);
      if (!s.all) break;
      p = at;  // the next match must end before this one begins
    }
    std::reverse(matches.begin(), matches.end());
  } else {
    std::size_t batch[kBatch];
    std::size_t from = s.start - 1;
    while (from != kNotFound) {
      const std::size_t found = FindManyForward(s.hay, s.needle, from, batch, s.all ? kBatch : 1, &from);
      matches.insert(matches.end(), batch, batch + found);
      if (!s.all) break;
    }
  }
  if (matches.empty()) return 0;
  k = matches.size();
  const std::size_t new_length = len - k * m + k * r;
  const std::size_t target = s.up ? 0 : k - 1;
  *after = matches[target] + target * r - target * m + r + 1;
  if (r == m) {
    char16_t* d = text.data();  // same length: only the matches change
    for (std::size_t at : matches) Traits::copy(d + at, s.replacement.data(), r);
  } else if (r < m) {
    char16_t* d = text.data();  // shrinking: left to right
    std::size_t write = matches[0];
    for (std::size_t i = 0; i < k; ++i) {
      Traits::copy(d + write, s.replacement.data(), r);
      write += r;
      const std::size_t from = matches[i] + m;
      const std::size_t to = i + 1 < k ? matches[i + 1] : len;
      Traits::move(d + write, d + from, to - from);
      write += to - from;
    }
    text.resize(new_length);
  } else {
    text.resize(new_length);  // growing: may reallocate, the text is still whole
    char16_t* d = text.data();
    std::size_t source_end = len;
    std::size_t write_end = new_length;
    for (std::size_t i = k; i-- > 0;) {  // right to left
      const std::size_t from = matches[i] + m;
      write_end -= source_end - from;
      Traits::move(d + write_end, d + from, source_end - from);
      write_end -= r;
      Traits::copy(d + write_end, s.replacement.data(), r);
      source_end = matches[i];
    }
  }
  return k;
}

}  // namespace tarvo2::storage_string
