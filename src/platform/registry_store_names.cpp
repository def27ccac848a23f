#include "platform/registry_store_names.h"

#include <array>

#include "tarvo2/codepage.h"
#include "tarvo2/registry_store.h"

namespace tarvo2::registry_internal {
namespace {

// Simple upper case of the characters that the code page can hold: Latin-1
// and the few Latin Extended letters of bytes 0x80..0x9F. Characters whose
// upper case the code page lacks (ß, µ) are their own upper case.
char16_t SimpleUpper(char16_t c) {
  if (c >= u'a' && c <= u'z') return c - 0x20;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 0x20;  // à..þ, not ÷
  switch (c) {
    case 0xFF: return 0x178;  // ÿ -> Ÿ
    case 0x161: return 0x160;  // š -> Š
    case 0x153: return 0x152;  // œ -> Œ
    case 0x17E: return 0x17D;  // ž -> Ž
    default: return c;
  }
}

std::array<char, 256> BuildFoldTable() {
  std::array<char, 256> table{};
  for (int b = 0; b < 256; ++b) {
    int upper = CharToAnsiByte(SimpleUpper(AnsiByteToChar(
        static_cast<unsigned char>(b))));
    table[b] = static_cast<char>(upper < 0 ? b : upper);
  }
  return table;
}

}  // namespace

std::int32_t SplitKeyPath(std::string_view path,
                          std::vector<std::string_view>* parts) {
  parts->clear();
  if (!path.empty() && path.front() == '\\') return kErrorBadPathname;
  std::size_t pos = 0;
  while (pos < path.size()) {
    std::size_t end = path.find('\\', pos);
    if (end == std::string_view::npos) end = path.size();
    if (end > pos) {
      if (end - pos > kMaxKeyNameLength) return kErrorInvalidParameter;
      if (parts->size() == kMaxKeyDepth) return kErrorInvalidParameter;
      parts->push_back(path.substr(pos, end - pos));
    }
    pos = end + 1;
  }
  return kErrorSuccess;
}

std::string FoldName(std::string_view name) {
  static const std::array<char, 256> kFold = BuildFoldTable();
  std::string out(name);
  for (char& c : out) c = kFold[static_cast<unsigned char>(c)];
  return out;
}

}  // namespace tarvo2::registry_internal
