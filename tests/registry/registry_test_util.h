// Fixtures and helpers shared by the registry tests.
#ifndef TARVO2_TESTS_REGISTRY_REGISTRY_TEST_UTIL_H_
#define TARVO2_TESTS_REGISTRY_REGISTRY_TEST_UTIL_H_

#include <gtest/gtest.h>

#include "tarvo2/library_errors.h"
#include "tarvo2/registry_key.h"
#include "tarvo2/registry_store.h"
#include "tarvo2/services.h"
#include "tarvo2/testing/registry_store.h"
#include "test_util.h"

namespace tarvo2 {

// A source chain: "Tarvo2" and then the given labels.
inline String Chain(std::initializer_list<const char16_t*> labels) {
  String s = u"Tarvo2";
  for (const char16_t* l : labels) (s += u"\r\n") += l;
  return s;
}

// `stmt` raises ErrObjectInvalidated with CheckState under the given labels.
#define EXPECT_INVALIDATED(stmt, ...)                                                                        \
  EXPECT_ERROR(stmt, LibraryErrorNumber(ErrObjectInvalidated), u"Object has been invalidated",            \
               Chain({u"KivRegistryKey.CheckState", __VA_ARGS__}))

// A context of its own for every test, with a fresh in-memory store and the
// raise switch on; no object of it (key, collection, view) may be left
// alive at the end.
class RegistryTest : public ::testing::Test {
 protected:
  void SetUp() override { services_->set_registry_location(":memory:"); }
  void TearDown() override { ExpectAllReleased(); }

  // Every object of the context is gone: only the fixture holds it.
  void ExpectAllReleased() { EXPECT_EQ(services_.use_count(), 1) << "objects of the context leaked"; }

  // A key object on HKEY_CURRENT_USER\<path>.
  Ref<KivRegistryKey> Key(const String& path) {
    auto k = KivRegistryKey::Create(services_);
    k->put_KeyName(path);
    return k;
  }
  // Creates keys straight in the store, past any key object.
  void MakeKeys(std::initializer_list<const char*> paths) {
    for (const char* p : paths) {
      RegKey h = 0;
      ASSERT_EQ(services_->registry_store()->CreateKey(kHKeyCurrentUser, p, 0x3F, &h, nullptr), 0);
      services_->registry_store()->CloseKey(h);
    }
  }
  // Puts a fault-injecting wrapper in front of the current store.
  std::shared_ptr<FaultInjectingRegistryStore> InstallFaults() {
    auto faults = std::make_shared<FaultInjectingRegistryStore>(services_->registry_store());
    services_->set_registry_store(faults);
    return faults;
  }
  // The raw value as the store (by default the context's) holds it, or
  // {0xFFFF, ""} when missing.
  std::pair<std::uint32_t, std::string> Raw(const std::string& path, const std::string& name,
                                            RegistryStore* store = nullptr) {
    std::string data(1 << 21, '\0');
    std::uint32_t type = 0, size = static_cast<std::uint32_t>(data.size());
    if ((store ? store : services_->registry_store().get())
            ->QueryValueAt(kHKeyCurrentUser, path.c_str(), name.c_str(), &type,
                           reinterpret_cast<std::uint8_t*>(data.data()), &size) != 0)
      return {0xFFFF, ""};
    return {type, data.substr(0, size)};
  }
  bool KeyExists(const std::string& path, RegKey root = kHKeyCurrentUser) {
    std::int32_t opened = -1;
    services_->registry_store()->QueryValueAt(root, path.c_str(), "", nullptr, nullptr, nullptr, &opened);
    return opened == 0;
  }
  static std::int32_t Lib(LibraryErrorCode c) { return LibraryErrorNumber(c); }
  const std::shared_ptr<Services> services_ = Services::New();
};

}  // namespace tarvo2

#endif  // TARVO2_TESTS_REGISTRY_REGISTRY_TEST_UTIL_H_
