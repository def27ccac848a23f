// The internal C++ view of a settings store: what the common-interface view
// and the importers need from a store, as typed calls.
//
// Each store kind implements it with an adapter in its own layer
// (storage_string/store_adapter.h, registry/store_adapter.h,
// ini/store_adapter.h). An adapter calls the store's own public members,
// so every check, rule and error of those members applies: an error leaves
// an adapter call exactly as it leaves the member, with the member's source
// lines. Adapters keep their store alive and hold no other state.
//
// Internal to the library: not installed, not part of the public API.
#ifndef TARVO2_SRC_FRAME_STORE_H_
#define TARVO2_SRC_FRAME_STORE_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "tarvo2/std_interface.h"
#include "tarvo2/variant.h"

namespace tarvo2::internal {

enum class StoreKind { kStorageString, kRegistryKey, kIniFile };

// The store kind whose class name is `class_name` (compared exactly, letter
// case included), or false when it names none.
bool StoreKindOfClass(StringView class_name, StoreKind* kind);

class Store {
 public:
  virtual ~Store() = default;

  virtual StoreKind Kind() const = 0;
  // The store object itself.
  virtual Object& Self() = 0;
  // The context the store works in.
  virtual const std::shared_ptr<Services>& services() const = 0;

  // The common interface, each through the store's TarvoStdInterface_*
  // member (so an error carries its "<Class>.TarvoStdInterface_<member>"
  // line): the path, the section (selecting one as the store's interface
  // does: a page, an appended subkey, an INI section), SetValue with a
  // delimiter, GetValue with detection on and "" for a missing field, and
  // the version report.
  virtual void PutPath(const String& path) = 0;
  virtual String GetPath() = 0;
  virtual void SelectSection(const String& section) = 0;
  virtual String GetSection() = 0;
  virtual bool SetStdValue(const String& name, const Variant& value, const String& delimiter) = 0;
  virtual Variant GetStdValue(const String& name, const String& delimiter) = 0;
  virtual Variant StdVersion(bool show) = 0;

  // The store's own members. Version: its Version(false). FieldNames: the
  // names of the fields of the current page, key or section (GetFieldNames
  // or GetValueNames). Get: GetValue with all five arguments (a missing
  // marker as `default_value` stands for an omitted one). Set: SetValue.
  // Delete: DeleteField or DeleteValue.
  virtual String Version() = 0;
  virtual SafeArray FieldNames() = 0;
  virtual Variant Get(const String& name, const String& delimiter, bool detect_array, bool detect_num,
                      const Variant& default_value) = 0;
  virtual bool Set(const String& name, const Variant& value, const String& delimiter) = 0;
  virtual void Delete(const String& name) = 0;
};

// A KivStorageString: pages instead of sections.
class PageStore : public Store {
 public:
  StoreKind Kind() const override { return StoreKind::kStorageString; }
  virtual bool MultiPage() = 0;
  virtual Variant Page() = 0;                 // get_Page
  virtual void SelectPage(const Variant& page) = 0;  // put_Page
  virtual std::int32_t PageCount() = 0;
  virtual String PageName() = 0;
  virtual void SetPageName(const String& name) = 0;
  virtual void AddPage(const String& name, bool make_current) = 0;
  virtual void DeletePages() = 0;  // DeletePage(true)
  virtual void ClearPages() = 0;   // Clear(true)
};

// A KivRegistryKey: its name and its immediate subkeys.
class KeyStore : public Store {
 public:
  StoreKind Kind() const override { return StoreKind::kRegistryKey; }
  virtual String KeyName() = 0;
  // The entries of its SubKeys collection, in the collection's order.
  virtual std::vector<std::shared_ptr<KeyStore>> SubKeys() = 0;
};

// A KivINIFileHandler: the sections of its file.
class SectionStore : public Store {
 public:
  StoreKind Kind() const override { return StoreKind::kIniFile; }
  virtual SafeArray SectionNames() = 0;
};

// The part of a store adapter that is the same for every store kind: the
// common-interface members and the field calls whose names every store
// class shares. `Base` is the kind's interface, `T` the store class; an
// adapter adds the members its class names in a way of its own.
template <class Base, class T>
class StoreAdapter : public Base {
 public:
  explicit StoreAdapter(Ref<T> object) : object_(std::move(object)) {}

  Object& Self() override { return *object_; }
  const std::shared_ptr<Services>& services() const override { return object_->services(); }
  void PutPath(const String& path) override { object_->TarvoStdInterface_put_Path(path); }
  String GetPath() override { return object_->TarvoStdInterface_get_Path(); }
  void SelectSection(const String& section) override { object_->TarvoStdInterface_put_Section(section); }
  String GetSection() override { return object_->TarvoStdInterface_get_Section(); }
  bool SetStdValue(const String& name, const Variant& value, const String& delimiter) override {
    return object_->TarvoStdInterface_SetValue(name, value, delimiter);
  }
  Variant GetStdValue(const String& name, const String& delimiter) override {
    return object_->TarvoStdInterface_GetValue(name, delimiter);
  }
  Variant StdVersion(bool show) override { return object_->TarvoStdInterface_Version(show); }
  String Version() override { return object_->Version(false); }
  Variant Get(const String& name, const String& delimiter, bool detect_array, bool detect_num,
              const Variant& default_value) override {
    return object_->GetValue(name, delimiter, detect_array, detect_num, default_value);
  }
  bool Set(const String& name, const Variant& value, const String& delimiter) override {
    return object_->SetValue(name, value, delimiter);
  }

 protected:
  Ref<T> object_;
};

// The store behind `object` (a store or its common-interface view), or null
// when it is neither.
std::shared_ptr<Store> StoreOf(Object& object);

// The common part of a store's QueryInterface: the store itself for its
// class name, a new common-interface view over `make()` for
// "TarvoStdInterface" (both without regard to letter case), else nothing.
template <class Make>
Ref<Object> StoreQueryInterface(Object& self, StringView name, Make&& make) {
  if (EqualsNoCase(name, u"TarvoStdInterface"))
    return Ref<Object>(MakeRef<StdInterfaceView>(Ref<Object>(&self), std::shared_ptr<Store>(make())));
  if (EqualsNoCase(name, self.ClassName())) return Ref<Object>(&self);
  return Ref<Object>();
}

// Copies `source` into `target` by the rules of the importer table; the
// source's kind is the one its class name names. `services` is the target's
// context: its raise switch governs the library errors the copy raises (and
// discards). Never raises.
void ImportInto(const Services& services, Store& target, Store* source, StoreKind source_kind) noexcept;

}  // namespace tarvo2::internal

#endif  // TARVO2_SRC_FRAME_STORE_H_
