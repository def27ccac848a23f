// The registry key's side of the library's internal store view
// (frame/store.h): each call is one typed call of a KivRegistryKey member.
#ifndef TARVO2_SRC_REGISTRY_STORE_ADAPTER_H_
#define TARVO2_SRC_REGISTRY_STORE_ADAPTER_H_

#include "frame/store.h"
#include "tarvo2/registry_key.h"

namespace tarvo2::internal {

class RegistryKeyStore : public StoreAdapter<KeyStore, KivRegistryKey> {
 public:
  using StoreAdapter::StoreAdapter;

  SafeArray FieldNames() override { return object_->GetValueNames(); }
  void Delete(const String& name) override { object_->DeleteValue(name); }

  String KeyName() override { return object_->get_KeyName(); }
  std::vector<std::shared_ptr<KeyStore>> SubKeys() override {
    std::vector<std::shared_ptr<KeyStore>> out;
    Ref<SubKeysCollection> subkeys = object_->get_SubKeys();
    for (const Ref<KivRegistryKey>& sub : *subkeys) out.push_back(std::make_shared<RegistryKeyStore>(sub));
    return out;
  }
};

}  // namespace tarvo2::internal

#endif  // TARVO2_SRC_REGISTRY_STORE_ADAPTER_H_
