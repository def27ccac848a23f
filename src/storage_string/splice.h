// The text side of KivStorageString::Replace: finding the matches and
// splicing the replacement in, with no cursor, protection or binding.
#ifndef TARVO2_SRC_STORAGE_STRING_SPLICE_H_
#define TARVO2_SRC_STORAGE_STRING_SPLICE_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace tarvo2::storage_string {

struct Splice {
  // The text as compared: `text` itself, or an upper-cased copy of it (of
  // the same length) for a search without regard to case. It may view
  // `text` itself.
  std::u16string_view hay;
  // The search text in the compared form; not empty.
  std::u16string_view needle;
  // Must not view `text`.
  std::u16string_view replacement;
  // Downwards: the 1-based position where the search begins (>= 1).
  // Upwards: the 1-based position at or before which a match must end
  // (above the length counts as the length).
  std::size_t start = 1;
  bool up = false;
  // Every non-overlapping match from `start` to the end of the text in the
  // search direction, or only the first one.
  bool all = false;
};

// Replaces the matches that `s` describes in `text` and returns how many it
// replaced; with none, `text` is unchanged. The new text is built in
// `text`'s own buffer, grown once to its final length when the replacement
// is longer than the needle; nothing can fail once that buffer has its
// size, so `text` is never left half replaced. `*after` gets the 1-based
// position just after the replacement made last in the search direction
// (the rightmost downwards, the leftmost upwards), in the new text.
std::size_t SpliceMatches(std::u16string& text, const Splice& s, std::size_t* after);

}  // namespace tarvo2::storage_string

#endif  // TARVO2_SRC_STORAGE_STRING_SPLICE_H_
