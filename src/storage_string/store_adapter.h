// The storage string's side of the library's internal store view
// (frame/store.h): each call is one typed call of a KivStorageString member.
#ifndef TARVO2_SRC_STORAGE_STRING_STORE_ADAPTER_H_
#define TARVO2_SRC_STORAGE_STRING_STORE_ADAPTER_H_

#include "frame/store.h"
#include "tarvo2/storage_string.h"

namespace tarvo2::internal {

class StorageStringStore : public PageStore {
 public:
  explicit StorageStringStore(Ref<KivStorageString> store) : s_(std::move(store)) {}

  Object& Self() override { return *s_; }
  const std::shared_ptr<Services>& services() const override { return s_->services(); }
  void PutPath(const String& path) override { s_->TarvoStdInterface_put_Path(path); }
  String GetPath() override { return s_->TarvoStdInterface_get_Path(); }
  void SelectSection(const String& section) override { s_->TarvoStdInterface_put_Section(section); }
  String GetSection() override { return s_->TarvoStdInterface_get_Section(); }
  bool SetStdValue(const String& name, const Variant& value, const String& delimiter) override {
    return s_->TarvoStdInterface_SetValue(name, value, delimiter);
  }
  Variant GetStdValue(const String& name, const String& delimiter) override {
    return s_->TarvoStdInterface_GetValue(name, delimiter);
  }
  Variant StdVersion(bool show) override { return s_->TarvoStdInterface_Version(show); }

  String Version() override { return s_->Version(false); }
  SafeArray FieldNames() override { return s_->GetFieldNames(); }
  Variant Get(const String& name, const String& delimiter, bool detect_array, bool detect_num,
              const Variant& default_value) override {
    return s_->GetValue(name, delimiter, detect_array, detect_num, default_value);
  }
  bool Set(const String& name, const Variant& value, const String& delimiter) override {
    return s_->SetValue(name, value, delimiter);
  }
  void Delete(const String& name) override { s_->DeleteField(name); }

  bool MultiPage() override { return s_->get_MultiPage(); }
  Variant Page() override { return s_->get_Page(); }
  void SelectPage(const Variant& page) override { s_->put_Page(page); }
  std::int32_t PageCount() override { return s_->get_PageCount(); }
  String PageName() override { return s_->get_PageName(); }
  void SetPageName(const String& name) override { s_->put_PageName(name); }
  void AddPage(const String& name, bool make_current) override { s_->AddPage(name, make_current); }
  void DeletePages() override { s_->DeletePage(true); }
  void ClearPages() override { s_->Clear(true); }

 private:
  Ref<KivStorageString> s_;
};

}  // namespace tarvo2::internal

#endif  // TARVO2_SRC_STORAGE_STRING_STORE_ADAPTER_H_
