// The registry key's side of the library's internal store view
// (frame/store.h): each call is one typed call of a KivRegistryKey member.
#ifndef TARVO2_SRC_REGISTRY_STORE_ADAPTER_H_
#define TARVO2_SRC_REGISTRY_STORE_ADAPTER_H_

#include "frame/store.h"
#include "tarvo2/registry_key.h"

namespace tarvo2::internal {

class RegistryKeyStore : public KeyStore {
 public:
  explicit RegistryKeyStore(Ref<KivRegistryKey> key) : k_(std::move(key)) {}

  Object& Self() override { return *k_; }
  const std::shared_ptr<Services>& services() const override { return k_->services(); }
  // The key's section and path accessors are private: the common interface
  // is their only way in.
  void PutPath(const String& path) override { k_->TarvoStdInterface_put_Path(path); }
  String GetPath() override { return k_->TarvoStdInterface_get_Path(); }
  void SelectSection(const String& section) override { k_->TarvoStdInterface_put_Section(section); }
  String GetSection() override { return k_->TarvoStdInterface_get_Section(); }
  bool SetStdValue(const String& name, const Variant& value, const String& delimiter) override {
    return k_->TarvoStdInterface_SetValue(name, value, delimiter);
  }
  Variant GetStdValue(const String& name, const String& delimiter) override {
    return k_->TarvoStdInterface_GetValue(name, delimiter);
  }
  Variant StdVersion(bool show) override { return k_->TarvoStdInterface_Version(show); }

  String Version() override { return k_->Version(false); }
  SafeArray FieldNames() override { return k_->GetValueNames(); }
  Variant Get(const String& name, const String& delimiter, bool detect_array, bool detect_num,
              const Variant& default_value) override {
    return k_->GetValue(name, delimiter, detect_array, detect_num, default_value);
  }
  bool Set(const String& name, const Variant& value, const String& delimiter) override {
    return k_->SetValue(name, value, delimiter);
  }
  void Delete(const String& name) override { k_->DeleteValue(name); }

  String KeyName() override { return k_->get_KeyName(); }
  std::vector<std::shared_ptr<KeyStore>> SubKeys() override {
    std::vector<std::shared_ptr<KeyStore>> out;
    Ref<SubKeysCollection> subkeys = k_->get_SubKeys();
    for (const Ref<KivRegistryKey>& sub : *subkeys) out.push_back(std::make_shared<RegistryKeyStore>(sub));
    return out;
  }

 private:
  Ref<KivRegistryKey> k_;
};

}  // namespace tarvo2::internal

#endif  // TARVO2_SRC_REGISTRY_STORE_ADAPTER_H_
