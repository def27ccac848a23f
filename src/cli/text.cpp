#include "cli/text.h"

#include "tarvo2/codepage.h"
#include "tarvo2/services.h"

namespace tarvo2::cli {

std::u16string StoreBytesToText(std::string_view bytes) { return FromCodePage(bytes, GetCodePage()); }

std::size_t TextToStoreBytes(std::u16string_view text, std::string* bytes) {
  const std::uint32_t cp = GetCodePage();
  *bytes = ToCodePage(text, cp);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (cp != kCodePageUtf8) {
      if (CharToAnsiByte(c) < 0) return i;
    } else if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
               text[i + 1] <= 0xDFFF) {
      ++i;  // a surrogate pair: one character
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      return i;  // a lone surrogate: written as U+FFFD
    }
  }
  return std::u16string::npos;
}

std::u16string Utf8ToText(std::string_view utf8) { return FromUtf8(utf8); }
std::string TextToUtf8(std::u16string_view text) { return ToUtf8(text); }

}  // namespace tarvo2::cli
