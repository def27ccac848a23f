#include "tarvo2/codepage.h"

#include <array>

namespace tarvo2 {
namespace {

// Characters of bytes 0x80..0x9F; the rest of the code page is Latin-1.
constexpr std::array<char16_t, 32> kHigh = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

}  // namespace

char16_t AnsiByteToChar(unsigned char b) noexcept {
  return (b >= 0x80 && b <= 0x9F) ? kHigh[b - 0x80] : static_cast<char16_t>(b);
}

int CharToAnsiByte(char16_t c) noexcept {
  if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return c;
  for (int i = 0; i < 32; ++i)
    if (kHigh[i] == c) return 0x80 + i;
  return -1;
}

std::string ToAnsi(std::u16string_view text) {
  std::string out(text.size(), '\0');
  for (size_t i = 0; i < text.size(); ++i) {
    char16_t c = text[i];
    if (c < 0x80) {
      out[i] = static_cast<char>(c);
      continue;
    }
    int b = CharToAnsiByte(c);
    out[i] = b < 0 ? kAnsiReplacement : static_cast<char>(b);
  }
  return out;
}

std::u16string FromAnsi(std::string_view bytes) {
  std::u16string out(bytes.size(), u'\0');
  for (size_t i = 0; i < bytes.size(); ++i)
    out[i] = AnsiByteToChar(static_cast<unsigned char>(bytes[i]));
  return out;
}

bool IsAnsiRepresentable(std::u16string_view text) noexcept {
  for (char16_t c : text)
    if (c >= 0x80 && CharToAnsiByte(c) < 0) return false;
  return true;
}

}  // namespace tarvo2
