// Key paths and name folding of the registry store.
#ifndef TARVO2_PLATFORM_REGISTRY_STORE_NAMES_H_
#define TARVO2_PLATFORM_REGISTRY_STORE_NAMES_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo2::registry_internal {

// Splits the key path `path` into its components (empty components dropped,
// so that "a\\\\b\\" gives "a", "b"). Returns kErrorSuccess, or
// kErrorBadPathname for a leading '\', or kErrorInvalidParameter for a
// component longer than kMaxKeyNameLength or more than kMaxKeyDepth
// components, and `parts` is then to be ignored. The views point into `path`.
std::int32_t SplitKeyPath(std::string_view path,
                          std::vector<std::string_view>* parts);

// The lookup form of a key or value name as the database holds it (UTF-8):
// unicode_case::UpperKey. Two names are the same name exactly when their
// folds are equal (Unicode simple case folding), and the byte order of
// folds is the order in which subkeys are listed (by upper case).
std::string FoldName(std::string_view stored_name);

}  // namespace tarvo2::registry_internal

#endif  // TARVO2_PLATFORM_REGISTRY_STORE_NAMES_H_
