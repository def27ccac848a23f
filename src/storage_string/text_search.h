// Literal text search on 16-bit text at memory speed.
//
// The scanners compare the first and the last unit of the needle against
// sixteen candidate positions at a time (SSE2 where available) and confirm a
// candidate with one memory comparison, so a search reads the text about
// once, whatever the needle. They are the only search primitives of the
// storage string: fields, lines, Find, LookFor and Replace all use them.
#ifndef TARVO2_SRC_STORAGE_STRING_TEXT_SEARCH_H_
#define TARVO2_SRC_STORAGE_STRING_TEXT_SEARCH_H_

#include <cstddef>
#include <string_view>

namespace tarvo2::storage_string {

inline constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

// The 0-based start of the first occurrence of `needle` in `hay` at or after
// `from`, or kNotFound. An empty needle occurs at `from` when from <= size.
std::size_t FindForward(std::u16string_view hay, std::u16string_view needle, std::size_t from);

// Finds up to `capacity` (>= 1) non-overlapping occurrences of the
// non-empty `needle` in `hay`, the first at or after `from`, each next one
// after the end of the one before. Stores their starts in `out` and returns
// how many it found; *resume is where the search goes on (kNotFound once the
// text is exhausted). One call scans many matches without leaving the
// vector loop, which matters when matches are dense.
std::size_t FindManyForward(std::u16string_view hay, std::u16string_view needle, std::size_t from,
                            std::size_t* out, std::size_t capacity, std::size_t* resume);

// The 0-based start of the last occurrence of `needle` in `hay` that starts
// at or before `max_start` (clamped to the last possible start), or
// kNotFound. An empty needle is never found.
std::size_t FindBackward(std::u16string_view hay, std::u16string_view needle, std::size_t max_start);

// The 1-based position of the first occurrence of `needle` that begins at
// or after the 1-based position `start` (>= 1), or 0 when there is none or
// `start` lies beyond the end of `hay`. An empty needle occurs at `start`.
std::size_t PositionOf(std::u16string_view hay, std::u16string_view needle, std::size_t start);

// The number of CR LF pairs lying wholly within hay[0, end).
std::size_t CountLineBreaks(std::u16string_view hay, std::size_t end);

// The 0-based index of the CR of the `k`th CR LF pair (k >= 1) of `hay`,
// or kNotFound when it has fewer pairs.
std::size_t NthLineBreak(std::u16string_view hay, std::size_t k);

}  // namespace tarvo2::storage_string

#endif  // TARVO2_SRC_STORAGE_STRING_TEXT_SEARCH_H_
