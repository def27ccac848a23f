#include "tarvo2/codepage.h"

#include <array>
#include <cstdlib>
#include <string>

namespace tarvo2 {
namespace {

// Characters of bytes 0x80..0x9F; the rest of the code page is Latin-1.
constexpr std::array<char16_t, 32> kHigh = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

}  // namespace

std::uint32_t EnvironmentCodePage() noexcept {
  const char* env = std::getenv("TARVO2_CODEPAGE");
  if (env == nullptr) return kCodePage1252;
  std::string_view v(env);
  const size_t b = v.find_first_not_of(" \t");
  if (b == std::string_view::npos) return kCodePage1252;
  v = v.substr(b, v.find_last_not_of(" \t") - b + 1);
  return v == "65001" ? kCodePageUtf8 : kCodePage1252;
}

bool IsSupportedCodePage(std::uint32_t code_page) noexcept {
  return code_page == kCodePage1252 || code_page == kCodePageUtf8;
}

std::string ToCodePage(std::u16string_view text, std::uint32_t code_page) {
  return code_page == kCodePageUtf8 ? ToUtf8(text) : ToAnsi(text);
}

std::u16string FromCodePage(std::string_view bytes, std::uint32_t code_page) {
  return code_page == kCodePageUtf8 ? FromUtf8(bytes) : FromAnsi(bytes);
}

bool IsRepresentable(std::u16string_view text, std::uint32_t code_page) noexcept {
  if (code_page != kCodePageUtf8) return IsAnsiRepresentable(text);
  for (size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (c < 0xD800 || c > 0xDFFF) continue;
    if (c > 0xDBFF || i + 1 == text.size() || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF)
      return false;
    ++i;
  }
  return true;
}

std::size_t CutPoint(std::string_view bytes, std::size_t limit,
                     std::uint32_t code_page) noexcept {
  if (limit >= bytes.size()) return bytes.size();
  if (code_page != kCodePageUtf8 || limit == 0) return limit;
  // Back over continuation bytes to the byte that may start the character
  // running across the limit; it is split only when it starts a valid
  // sequence that reaches past the limit.
  const size_t lowest = limit >= 3 ? limit - 3 : 0;
  for (size_t p = limit; p-- > lowest;) {
    if ((static_cast<unsigned char>(bytes[p]) & 0xC0) == 0x80) continue;
    const size_t n = Utf8SequenceLength(bytes, p);
    return n > 1 && p + n > limit ? p : limit;
  }
  return limit;
}

std::size_t LastCharStart(std::string_view bytes, std::uint32_t code_page) noexcept {
  if (bytes.empty()) return 0;
  const size_t last = bytes.size() - 1;
  if (code_page != kCodePageUtf8) return last;
  const size_t lowest = last >= 3 ? last - 3 : 0;
  for (size_t p = last + 1; p-- > lowest;) {
    if ((static_cast<unsigned char>(bytes[p]) & 0xC0) == 0x80) continue;
    return p + Utf8SequenceLength(bytes, p) == bytes.size() ? p : last;
  }
  return last;
}

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
