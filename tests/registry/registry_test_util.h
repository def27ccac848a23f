// Fixtures and helpers shared by the registry tests.
#ifndef TARVO2_TESTS_REGISTRY_REGISTRY_TEST_UTIL_H_
#define TARVO2_TESTS_REGISTRY_REGISTRY_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>

#include "tarvo2/library_errors.h"
#include "tarvo2/registry_key.h"
#include "tarvo2/registry_store.h"
#include "test_util.h"

namespace tarvo2 {

// A source chain from its lines.
inline String Chain(std::initializer_list<const char16_t*> lines) {
  String s;
  for (const char16_t* l : lines) {
    if (!s.empty()) s += u"\r\n";
    s += l;
  }
  return s;
}

// Counts the handles that are open at any moment.
class CountingStore : public RegistryStoreWrapper {
 public:
  using RegistryStoreWrapper::RegistryStoreWrapper;
  int open = 0;
  std::int32_t CreateKey(RegKey p, const char* s, std::uint32_t a, RegKey* r, std::uint32_t* d) override {
    return Count(RegistryStoreWrapper::CreateKey(p, s, a, r, d));
  }
  std::int32_t OpenKey(RegKey p, const char* s, std::uint32_t a, RegKey* r) override {
    return Count(RegistryStoreWrapper::OpenKey(p, s, a, r));
  }
  std::int32_t CloseKey(RegKey k) override {
    open -= (k != 0 && k < kHKeyClassesRoot);
    return RegistryStoreWrapper::CloseKey(k);
  }

 private:
  std::int32_t Count(std::int32_t rc) { return open += rc == 0, rc; }
};

// A fresh in-memory store for every test, the raise switch on, and no
// object left alive at the end.
class RegistryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetRegistryStore(nullptr);
    SetRegistryLocation(":memory:");
    SetRaiseErrors(true);
    keys_before_ = KivRegistryKey::LiveInstances();
  }
  void TearDown() override {
    SetRaiseErrors(true);
    SetRegistryLocation("");
    EXPECT_EQ(KivRegistryKey::LiveInstances(), keys_before_) << "key objects leaked";
  }

  // A key object on HKEY_CURRENT_USER\<path>.
  static Ref<KivRegistryKey> Key(const String& path) {
    auto k = KivRegistryKey::Create();
    k->put_KeyName(path);
    return k;
  }

  // The raw value as the store holds it, or {0xFFFF, ""} when missing.
  static std::pair<std::uint32_t, std::string> Raw(const std::string& path, const std::string& name,
                                                   RegKey root = kHKeyCurrentUser) {
    std::string data(1 << 21, '\0');
    std::uint32_t type = 0, size = static_cast<std::uint32_t>(data.size());
    if (GetRegistryStore()->QueryValueAt(root, path.c_str(), name.c_str(), &type,
                                         reinterpret_cast<std::uint8_t*>(data.data()), &size) != 0)
      return {0xFFFF, ""};
    data.resize(size);
    return {type, data};
  }

  static bool KeyExists(const std::string& path, RegKey root = kHKeyCurrentUser) {
    std::int32_t opened = -1;
    GetRegistryStore()->QueryValueAt(root, path.c_str(), "", nullptr, nullptr, nullptr, &opened);
    return opened == 0;
  }

  static std::int32_t LibNumber(LibraryErrorCode c) { return LibraryErrorNumber(c); }

 private:
  std::int64_t keys_before_ = 0;
};

}  // namespace tarvo2

#endif  // TARVO2_TESTS_REGISTRY_REGISTRY_TEST_UTIL_H_
