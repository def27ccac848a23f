// The INI file object's side of the library's internal store view
// (frame/store.h): each call is one typed call of a KivINIFileHandler
// member.
#ifndef TARVO2_SRC_INI_STORE_ADAPTER_H_
#define TARVO2_SRC_INI_STORE_ADAPTER_H_

#include "frame/store.h"
#include "tarvo2/ini_file.h"

namespace tarvo2::internal {

class IniFileStore : public SectionStore {
 public:
  explicit IniFileStore(Ref<KivINIFileHandler> ini) : f_(std::move(ini)) {}

  Object& Self() override { return *f_; }
  const std::shared_ptr<Services>& services() const override { return f_->services(); }
  void PutPath(const String& path) override { f_->TarvoStdInterface_put_Path(path); }
  String GetPath() override { return f_->TarvoStdInterface_get_Path(); }
  void SelectSection(const String& section) override { f_->TarvoStdInterface_put_Section(section); }
  String GetSection() override { return f_->TarvoStdInterface_get_Section(); }
  bool SetStdValue(const String& name, const Variant& value, const String& delimiter) override {
    return f_->TarvoStdInterface_SetValue(name, value, delimiter);
  }
  Variant GetStdValue(const String& name, const String& delimiter) override {
    return f_->TarvoStdInterface_GetValue(name, delimiter);
  }
  Variant StdVersion(bool show) override { return f_->TarvoStdInterface_Version(show); }

  String Version() override { return f_->Version(false); }
  SafeArray FieldNames() override { return f_->GetFieldNames(); }
  Variant Get(const String& name, const String& delimiter, bool detect_array, bool detect_num,
              const Variant& default_value) override {
    return f_->GetValue(name, delimiter, detect_array, detect_num, default_value);
  }
  bool Set(const String& name, const Variant& value, const String& delimiter) override {
    return f_->SetValue(name, value, delimiter);
  }
  void Delete(const String& name) override { f_->DeleteField(name); }

  SafeArray SectionNames() override { return f_->GetSectionNames(); }

 private:
  Ref<KivINIFileHandler> f_;
};

}  // namespace tarvo2::internal

#endif  // TARVO2_SRC_INI_STORE_ADAPTER_H_
