#include "storage_string/text_search.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define TARVO2_HAVE_AVX2_PATH 1
#endif

namespace tarvo2::storage_string {
namespace {

// True when the units between the first and the last of the needle match
// at `p` (the first and last are already known to match).
inline bool MiddleMatches(const char16_t* p, std::u16string_view needle) {
  const std::size_t m = needle.size();
  return m <= 2 || std::memcmp(p + 1, needle.data() + 1, (m - 2) * sizeof(char16_t)) == 0;
}

inline bool MatchesAt(const char16_t* p, std::u16string_view needle) {
  return p[0] == needle.front() && p[needle.size() - 1] == needle.back() && MiddleMatches(p, needle);
}

#if defined(__SSE2__)
// A mask with two bits per candidate start i..i+15: set where both the first
// and the last unit of the needle match.
inline unsigned CandidateMask(const char16_t* h, std::size_t i, std::size_t m, __m128i vf, __m128i vl) {
  const __m128i a0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i));
  const __m128i a1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i + 8));
  const __m128i b0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i + m - 1));
  const __m128i b1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(h + i + m - 1 + 8));
  const __m128i e0 = _mm_and_si128(_mm_cmpeq_epi16(a0, vf), _mm_cmpeq_epi16(b0, vl));
  const __m128i e1 = _mm_and_si128(_mm_cmpeq_epi16(a1, vf), _mm_cmpeq_epi16(b1, vl));
  return static_cast<unsigned>(_mm_movemask_epi8(e0)) | (static_cast<unsigned>(_mm_movemask_epi8(e1)) << 16);
}
#endif

#if defined(TARVO2_HAVE_AVX2_PATH)
// A mask with two bits per candidate start i..i+31: set where the first unit
// of the needle matches and, for needles longer than one unit, the last too.
__attribute__((target("avx2"), always_inline)) inline std::uint64_t CandidateMaskAvx2(const char16_t* h, std::size_t i,
                                                                                     std::size_t m, __m256i vf,
                                                                                     __m256i vl) {
  const __m256i a0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h + i));
  const __m256i a1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h + i + 16));
  __m256i e0 = _mm256_cmpeq_epi16(a0, vf);
  __m256i e1 = _mm256_cmpeq_epi16(a1, vf);
  if (m > 1) {
    const __m256i b0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h + i + m - 1));
    const __m256i b1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(h + i + m - 1 + 16));
    e0 = _mm256_and_si256(e0, _mm256_cmpeq_epi16(b0, vl));
    e1 = _mm256_and_si256(e1, _mm256_cmpeq_epi16(b1, vl));
  }
  return static_cast<std::uint32_t>(_mm256_movemask_epi8(e0)) |
         (static_cast<std::uint64_t>(static_cast<std::uint32_t>(_mm256_movemask_epi8(e1))) << 32);
}

// The forward scan with 256-bit compares, 32 candidate starts at a time,
// for processors that have AVX2 (chosen at run time). Scans candidates
// from `i` to `last_start`, the tail included.
__attribute__((target("avx2"))) std::size_t ForwardAvx2(const char16_t* h, std::size_t i, std::size_t last_start,
                                                       std::u16string_view needle) {
  const std::size_t m = needle.size();
  const __m256i vf = _mm256_set1_epi16(static_cast<short>(needle.front()));
  const __m256i vl = _mm256_set1_epi16(static_cast<short>(needle.back()));
  while (i <= last_start && last_start - i >= 31) {
    std::uint64_t mask = CandidateMaskAvx2(h, i, m, vf, vl);
    while (mask != 0) {
      const std::size_t j = i + static_cast<std::size_t>(__builtin_ctzll(mask)) / 2;
      if (MiddleMatches(h + j, needle)) return j;
      mask &= mask - 1;
      mask &= mask - 1;
    }
    i += 32;
  }
  for (; i <= last_start; ++i)
    if (MatchesAt(h + i, needle)) return i;
  return kNotFound;
}

// The batch scan of FindManyForward with 256-bit compares.
__attribute__((target("avx2"))) std::size_t ManyAvx2(const char16_t* h, std::size_t i, std::size_t last_start,
                                                    std::u16string_view needle, std::size_t* out,
                                                    std::size_t capacity, std::size_t* resume) {
  const std::size_t m = needle.size();
  const __m256i vf = _mm256_set1_epi16(static_cast<short>(needle.front()));
  const __m256i vl = _mm256_set1_epi16(static_cast<short>(needle.back()));
  std::size_t count = 0;
  while (i <= last_start && last_start - i >= 31) {
    std::uint64_t mask = CandidateMaskAvx2(h, i, m, vf, vl);
    std::size_t next_block = i + 32;
    while (mask != 0) {
      const std::size_t j = i + static_cast<std::size_t>(__builtin_ctzll(mask)) / 2;
      if (!MiddleMatches(h + j, needle)) {
        mask &= mask - 1;
        mask &= mask - 1;
        continue;
      }
      out[count++] = j;
      const std::size_t next = j + m;  // matches do not overlap
      if (count == capacity) {
        *resume = next;
        return count;
      }
      if (next >= i + 32) {
        next_block = next;
        break;
      }
      mask &= ~std::uint64_t{0} << ((next - i) * 2);
    }
    i = next_block;
  }
  while (i <= last_start) {
    if (!MatchesAt(h + i, needle)) {
      ++i;
      continue;
    }
    out[count++] = i;
    i += m;
    if (count == capacity) {
      *resume = i;
      return count;
    }
  }
  *resume = kNotFound;
  return count;
}

const bool kHasAvx2 = __builtin_cpu_supports("avx2");
#endif

}  // namespace

std::size_t FindForward(std::u16string_view hay, std::u16string_view needle, std::size_t from) {
  const std::size_t n = hay.size();
  const std::size_t m = needle.size();
  if (m == 0) return from <= n ? from : kNotFound;
  if (from >= n || m > n - from) return kNotFound;
  const char16_t* h = hay.data();
  const std::size_t last_start = n - m;
  std::size_t i = from;
#if defined(TARVO2_HAVE_AVX2_PATH)
  if (kHasAvx2) return ForwardAvx2(h, i, last_start, needle);
#endif
#if defined(__SSE2__)
  const __m128i vf = _mm_set1_epi16(static_cast<short>(needle.front()));
  const __m128i vl = _mm_set1_epi16(static_cast<short>(needle.back()));
  while (i <= last_start && last_start - i >= 15) {
    unsigned mask = CandidateMask(h, i, m, vf, vl);
    while (mask != 0) {
      const std::size_t j = i + static_cast<std::size_t>(__builtin_ctz(mask)) / 2;
      if (MiddleMatches(h + j, needle)) return j;
      mask &= mask - 1;
      mask &= mask - 1;
    }
    i += 16;
  }
#endif
  for (; i <= last_start; ++i)
    if (MatchesAt(h + i, needle)) return i;
  return kNotFound;
}

std::size_t FindManyForward(std::u16string_view hay, std::u16string_view needle, std::size_t from,
                            std::size_t* out, std::size_t capacity, std::size_t* resume) {
  const std::size_t n = hay.size();
  const std::size_t m = needle.size();
  *resume = kNotFound;
  if (m == 0 || capacity == 0 || from >= n || m > n - from) return 0;
#if defined(TARVO2_HAVE_AVX2_PATH)
  if (kHasAvx2) return ManyAvx2(hay.data(), from, n - m, needle, out, capacity, resume);
#endif
  std::size_t count = 0;
  for (std::size_t p = FindForward(hay, needle, from); p != kNotFound; p = FindForward(hay, needle, p + m)) {
    out[count++] = p;
    if (count == capacity) {
      *resume = p + m;
      break;
    }
  }
  return count;
}

std::size_t FindBackward(std::u16string_view hay, std::u16string_view needle, std::size_t max_start) {
  const std::size_t n = hay.size();
  const std::size_t m = needle.size();
  if (m == 0 || m > n) return kNotFound;
  const char16_t* h = hay.data();
  std::size_t end = std::min(max_start, n - m) + 1;  // candidates [0, end)
#if defined(__SSE2__)
  const __m128i vf = _mm_set1_epi16(static_cast<short>(needle.front()));
  const __m128i vl = _mm_set1_epi16(static_cast<short>(needle.back()));
  while (end >= 16) {
    const std::size_t i = end - 16;
    unsigned mask = CandidateMask(h, i, m, vf, vl);
    while (mask != 0) {
      const unsigned bit = 31u - static_cast<unsigned>(__builtin_clz(mask));
      const std::size_t j = i + bit / 2;
      if (MiddleMatches(h + j, needle)) return j;
      mask &= ~(3u << (bit & ~1u));
    }
    end = i;
  }
#endif
  while (end-- > 0)
    if (MatchesAt(h + end, needle)) return end;
  return kNotFound;
}

std::size_t PositionOf(std::u16string_view hay, std::u16string_view needle, std::size_t start) {
  if (start == 0) start = 1;
  if (start > hay.size()) return 0;
  std::size_t p = FindForward(hay, needle, start - 1);
  return p == kNotFound ? 0 : p + 1;
}

std::size_t CountLineBreaks(std::u16string_view hay, std::size_t end) {
  std::u16string_view prefix = hay.substr(0, std::min(end, hay.size()));
  std::size_t count = 0;
  for (std::size_t p = FindForward(prefix, u"\r\n", 0); p != kNotFound; p = FindForward(prefix, u"\r\n", p + 2))
    ++count;
  return count;
}

std::size_t NthLineBreak(std::u16string_view hay, std::size_t k) {
  std::size_t p = FindForward(hay, u"\r\n", 0);
  for (std::size_t i = 1; i < k && p != kNotFound; ++i) p = FindForward(hay, u"\r\n", p + 2);
  return p;
}

}  // namespace tarvo2::storage_string
