#include "platform/unicode_case.h"

#include <unicode/uchar.h>

#include "tarvo2/codepage.h"

namespace tarvo2::unicode_case {
namespace {

void AppendUtf8(char32_t cp, std::string* out) {
  if (cp < 0x80) {
    *out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    *out += static_cast<char>(0xC0 | (cp >> 6));
    *out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    *out += static_cast<char>(0xE0 | (cp >> 12));
    *out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    *out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    *out += static_cast<char>(0xF0 | (cp >> 18));
    *out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    *out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    *out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

}  // namespace

std::u16string Fold(std::u16string_view text) {
  std::u16string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c < 0x80) {
      out += static_cast<char16_t>(c >= 'A' && c <= 'Z' ? c + 32 : c);
      continue;
    }
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      out += static_cast<char16_t>(c);
      continue;
    }
    const char32_t f = static_cast<char32_t>(u_foldCase(static_cast<UChar32>(c), U_FOLD_CASE_DEFAULT));
    if (f >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((f - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((f - 0x10000) & 0x3FF));
    } else {
      out += static_cast<char16_t>(f);
    }
  }
  return out;
}

std::string UpperKey(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  size_t i = 0;
  while (i < utf8.size()) {
    const unsigned char b = static_cast<unsigned char>(utf8[i]);
    if (b < 0x80) {
      out += static_cast<char>(b >= 'a' && b <= 'z' ? b - 32 : b);
      ++i;
      continue;
    }
    const size_t n = Utf8SequenceLength(utf8, i);
    if (n == 0) {
      out += static_cast<char>(b);
      ++i;
      continue;
    }
    UChar32 c = n == 2 ? (b & 0x1F) : n == 3 ? (b & 0x0F) : (b & 0x07);
    for (size_t k = 1; k < n; ++k) c = (c << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
    i += n;
    const UChar32 f = u_foldCase(c, U_FOLD_CASE_DEFAULT);
    const UChar32 u = u_toupper(f);
    AppendUtf8(static_cast<char32_t>(u_foldCase(u, U_FOLD_CASE_DEFAULT) == f ? u : f), &out);
  }
  return out;
}

}  // namespace tarvo2::unicode_case
