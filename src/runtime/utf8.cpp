// UTF-8 conversions for the edges of the library (file names, the console)
// and for code page 65001. They live with the runtime because error texts
// and diagnostics need them below the platform layer.
#include "tarvo2/codepage.h"

namespace tarvo2 {

std::string ToUtf8(std::u16string_view text) {
  // Mostly ASCII: copy the ASCII run at the start in one go.
  size_t ascii = 0;
  while (ascii < text.size() && text[ascii] < 0x80) ++ascii;
  std::string out(text.begin(), text.begin() + ascii);
  if (ascii == text.size()) return out;
  out.reserve(text.size() + 8);
  for (size_t i = ascii; i < text.size(); ++i) {
    char32_t cp = text[i];
    if (cp < 0x80) {
      out += static_cast<char>(cp);
      continue;
    }
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size() &&
        text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  return out;
}

std::size_t Utf8SequenceLength(std::string_view s, std::size_t i) noexcept {
  const auto at = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
  const unsigned char b = at(i);
  if (b < 0x80) return 1;
  std::size_t n;
  char32_t cp;
  if (b >= 0xC2 && b <= 0xDF) { n = 2; cp = b & 0x1F; }
  else if ((b & 0xF0) == 0xE0) { n = 3; cp = b & 0x0F; }
  else if (b >= 0xF0 && b <= 0xF4) { n = 4; cp = b & 0x07; }
  else return 0;  // a continuation byte, C0, C1 or F5..FF
  if (i + n > s.size()) return 0;
  for (std::size_t k = 1; k < n; ++k) {
    if ((at(i + k) & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (at(i + k) & 0x3F);
  }
  static constexpr char32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
  if (cp < kMin[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return n;
}

std::u16string FromUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size() && static_cast<unsigned char>(s[i]) < 0x80) ++i;
  std::u16string out(s.begin(), s.begin() + i);  // the ASCII run at the start
  if (i == s.size()) return out;
  out.reserve(s.size());
  while (i < s.size()) {
    const unsigned char b = static_cast<unsigned char>(s[i]);
    if (b < 0x80) {
      out += static_cast<char16_t>(b);
      ++i;
      continue;
    }
    const std::size_t n = Utf8SequenceLength(s, i);
    if (n == 0) {
      out += u'\uFFFD';
      ++i;
      continue;
    }
    char32_t cp = n == 2 ? (b & 0x1F) : n == 3 ? (b & 0x0F) : (b & 0x07);
    for (std::size_t k = 1; k < n; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    i += n;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out += static_cast<char16_t>(0xD800 + (cp >> 10));
      out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
    } else {
      out += static_cast<char16_t>(cp);
    }
  }
  return out;
}

}  // namespace tarvo2
