// The storage string's side of the library's internal store view
// (frame/store.h): each call is one typed call of a KivStorageString member.
#ifndef TARVO2_SRC_STORAGE_STRING_STORE_ADAPTER_H_
#define TARVO2_SRC_STORAGE_STRING_STORE_ADAPTER_H_

#include "frame/store.h"
#include "tarvo2/storage_string.h"

namespace tarvo2::internal {

class StorageStringStore : public StoreAdapter<PageStore, KivStorageString> {
 public:
  using StoreAdapter::StoreAdapter;

  SafeArray FieldNames() override { return object_->GetFieldNames(); }
  void Delete(const String& name) override { object_->DeleteField(name); }

  bool MultiPage() override { return object_->get_MultiPage(); }
  Variant Page() override { return object_->get_Page(); }
  void SelectPage(const Variant& page) override { object_->put_Page(page); }
  std::int32_t PageCount() override { return object_->get_PageCount(); }
  String PageName() override { return object_->get_PageName(); }
  void SetPageName(const String& name) override { object_->put_PageName(name); }
  void AddPage(const String& name, bool make_current) override { object_->AddPage(name, make_current); }
  void DeletePages() override { object_->DeletePage(true); }
  void ClearPages() override { object_->Clear(true); }
};

}  // namespace tarvo2::internal

#endif  // TARVO2_SRC_STORAGE_STRING_STORE_ADAPTER_H_
