#include "cli/text.h"

#include "tarvo2/codepage.h"

namespace tarvo2::cli {

std::u16string StoreBytesToText(std::string_view bytes) { return FromAnsi(bytes); }

std::size_t TextToStoreBytes(std::u16string_view text, std::string* bytes) {
  std::size_t bad = std::u16string::npos;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (CharToAnsiByte(text[i]) < 0) {
      bad = i;
      break;
    }
  }
  *bytes = ToAnsi(text);
  return bad;
}

std::u16string Utf8ToText(std::string_view utf8) { return FromUtf8(utf8); }
std::string TextToUtf8(std::u16string_view text) { return ToUtf8(text); }

}  // namespace tarvo2::cli
