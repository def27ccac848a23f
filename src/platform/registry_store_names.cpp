#include "platform/registry_store_names.h"

#include <array>

#include "tarvo2/codepage.h"
#include "tarvo2/convert.h"
#include "tarvo2/registry_store.h"

namespace tarvo2::registry_internal {
namespace {

std::array<char, 256> BuildFoldTable() {
  std::array<char, 256> table{};
  for (int b = 0; b < 256; ++b) {
    int upper = CharToAnsiByte(ToUpperChar(AnsiByteToChar(
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
