// The INI file object's side of the library's internal store view
// (frame/store.h): each call is one typed call of a KivINIFileHandler
// member.
#ifndef TARVO2_SRC_INI_STORE_ADAPTER_H_
#define TARVO2_SRC_INI_STORE_ADAPTER_H_

#include "frame/store.h"
#include "tarvo2/ini_file.h"

namespace tarvo2::internal {

class IniFileStore : public StoreAdapter<SectionStore, KivINIFileHandler> {
 public:
  using StoreAdapter::StoreAdapter;

  SafeArray FieldNames() override { return object_->GetFieldNames(); }
  void Delete(const String& name) override { object_->DeleteField(name); }

  SafeArray SectionNames() override { return object_->GetSectionNames(); }
};

}  // namespace tarvo2::internal

#endif  // TARVO2_SRC_INI_STORE_ADAPTER_H_
