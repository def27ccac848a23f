// Helpers of the registry access layer: result-code mapping, text at the
// store boundary, and a key handle that is closed when its scope ends.
#ifndef TARVO2_SRC_REGISTRY_REGISTRY_ACCESS_H_
#define TARVO2_SRC_REGISTRY_REGISTRY_ACCESS_H_

#include <cstdint>
#include <memory>
#include <string>

#include "tarvo2/object.h"
#include "tarvo2/registry_store.h"

namespace tarvo2::registry_internal {

// Access rights the key object asks for.
inline constexpr std::uint32_t kAccessRead = 1;     // query values
inline constexpr std::uint32_t kAccessWrite = 2;    // set and delete values
inline constexpr std::uint32_t kAccessAll = 0x3F;   // create keys, list subkeys

// Result code of a value read that found a type other than text or number.
inline constexpr std::int32_t kUnsupportedType = -1;

// The library error code that a store result code raises (1-8, 87, 259),
// or 0 when the code is only recorded.
std::int32_t LibraryErrorForResult(std::int32_t code);

// Converts a key path or value name to text in code page `cp`. False when
// the text holds U+0000 (the store would see a shorter name) or a character
// the code page cannot represent (under 1252 it would become '?', under
// 65001 a lone surrogate U+FFFD, naming another key or value).
bool ToStoreName(StringView text, std::uint32_t cp, std::string* out);

// The text stored for a Double: the shortest decimal text that reads back
// as the same Double, with exactly one full stop so that number detection
// takes it for a Double ("3.0", "0.1", "1.5E+20", "-2.0E-07"). False for an
// infinite or NaN value.
bool DoubleToStoredText(double d, String* out);

// A key handle opened inside one procedure, closed when the scope ends
// (also when an error leaves the procedure). Keeps the store alive.
class ScopedKey {
 public:
  explicit ScopedKey(std::shared_ptr<RegistryStore> store) : store_(std::move(store)) {}
  ~ScopedKey() { Close(); }
  ScopedKey(const ScopedKey&) = delete;
  ScopedKey& operator=(const ScopedKey&) = delete;

  RegistryStore& store() const { return *store_; }
  RegKey* out() { return &key_; }
  RegKey get() const { return key_; }
  void Close() {
    if (key_ != 0) store_->CloseKey(key_);
    key_ = 0;
  }

 private:
  std::shared_ptr<RegistryStore> store_;
  RegKey key_ = 0;
};

}  // namespace tarvo2::registry_internal

#endif  // TARVO2_SRC_REGISTRY_REGISTRY_ACCESS_H_
