#include "platform/registry_store_names.h"

#include "platform/unicode_case.h"
#include "tarvo2/registry_store.h"

namespace tarvo2::registry_internal {

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

std::string FoldName(std::string_view stored_name) {
  return unicode_case::UpperKey(stored_name);
}

}  // namespace tarvo2::registry_internal
