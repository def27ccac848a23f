// TarvoStdInterface: the common interface of the three stores, and the
// version report that every class of the library has.
//
// A store is addressed by a path and a section, and values are set and read
// by field name, with arrays joined and split at a delimiter. Each store
// offers this interface beside its own through QueryInterface(
// u"TarvoStdInterface") (or its StdInterface() accessor), implemented by a
// view object whose typed members forward to the store's
// TarvoStdInterface_* members; calls by name on the view reach the store's
// own members (see StdInterfaceView).
// TarvoStdInterface is also a creatable class of its own, whose members do
// nothing except Version.
#ifndef TARVO2_STD_INTERFACE_H_
#define TARVO2_STD_INTERFACE_H_

#include <cstdint>
#include <memory>

#include "tarvo2/dispatch.h"
#include "tarvo2/services.h"
#include "tarvo2/version.h"

namespace tarvo2 {

// The internal version every class reports and every importer requires.
inline constexpr char16_t kInternalVersion[] = u"2.0";
// The library's file name, as the version report names it; the build
// version is that of tarvo2/version.h.
inline constexpr char16_t kLibraryFileName[] = u"Tarvo2";

// The text of the version report for a class: "Tarvo2 - 2.0.4", CR,
// "Module: <class name> - 2.0".
TARVO2_EXPORT String VersionReportText(StringView class_name);

// The version report: composes the text, shows it in the message box of
// `services` (style 64, title "Tarvo2 - Version Information") when `show`
// is true and returns once the user has closed it, and returns "2.0".
// Failures of the message box pass to the caller, which adds its own label.
TARVO2_EXPORT String VersionReport(const Services& services, StringView class_name, bool show);

class TARVO2_EXPORT TarvoStdInterface : public Object {
 public:
  // A bare object in `services` (the default context when null).
  explicit TarvoStdInterface(std::shared_ptr<Services> services = Services::Default())
      : services_(Services::OrDefault(std::move(services))) {}
  static Ref<TarvoStdInterface> Create(std::shared_ptr<Services> services = Services::Default()) {
    return MakeRef<TarvoStdInterface>(std::move(services));
  }
  // The context the object works in.
  const std::shared_ptr<Services>& services() const { return services_; }
  static const TypeInfo& Info();
  const TypeInfo& GetTypeInfo() const override { return Info(); }

  // On the bare class: writing the path or section has no effect, reading
  // them gives "", SetValue stores nothing and returns false, GetValue
  // returns Empty. Stores' views forward to the store.
  virtual void put_Path(const String& path);
  virtual String get_Path();
  virtual void put_Section(const String& section);
  virtual String get_Section();
  virtual bool SetValue(const String& sFieldName, const Variant& vValue, const String& sDelimiter = u"\t");
  virtual Variant GetValue(const String& sFieldName, const String& sDelimiter = u"\t");
  // "2.0"; with bShow also shows the version report.
  virtual Variant Version(bool bShow = false);

 private:
  const std::shared_ptr<Services> services_;
};

namespace internal {
class Store;  // the library's internal view of a store
}  // namespace internal

// The view of a store under TarvoStdInterface, made by the store's
// QueryInterface(u"TarvoStdInterface") and StdInterface(); it keeps the
// store alive.
//
// Typed C++ callers of the view use its five members, which forward to the
// store's TarvoStdInterface_* members through the library's internal view
// of the store (an error carries the line "<Class>.TarvoStdInterface_
// <member>"). Calls by name (Invoke, Call, GetProperty, LetProperty, ...)
// reach the store's own default interface instead, whatever interface the
// store was handed out as, just as an automation client that holds an
// object in a Variant always reaches the object's own members: the view
// answers GetTypeInfo, GetIdOfName and Invoke as the store does, so
// `st.KeyName`, `st.PageCount` or `st.ErrorState` work on a view held in a
// Variant, with the store's own labels and errors, and a member the store
// lacks raises 438 even when it is one of the five (a registry key has no
// Section of its own). TypeName gives the store's class name,
// QueryInterface answers like the store, and SameObject (dispatch.h) holds
// between the view and the store.
class TARVO2_EXPORT StdInterfaceView : public TarvoStdInterface {
 public:
  // REQUIRES: `access` is the library's internal view of `store`.
  StdInterfaceView(Ref<Object> store, std::shared_ptr<internal::Store> access);
  ~StdInterfaceView() override;

  String ClassName() const override;
  const TypeInfo& GetTypeInfo() const override { return store_->GetTypeInfo(); }
  DispId GetIdOfName(StringView name) const override { return store_->GetIdOfName(name); }
  Variant Invoke(DispId id, InvokeKind kind, CallArgs& args) override { return store_->Invoke(id, kind, args); }
  Ref<Object> QueryInterface(StringView name) override;
  void put_Path(const String& p) override;
  String get_Path() override;
  void put_Section(const String& s) override;
  String get_Section() override;
  bool SetValue(const String& f, const Variant& v, const String& d = u"\t") override;
  Variant GetValue(const String& f, const String& d = u"\t") override;
  Variant Version(bool show = false) override;

  // The store this view belongs to.
  const Ref<Object>& store() const { return store_; }
  // The library's internal view of the store.
  const std::shared_ptr<internal::Store>& access() const { return access_; }

 private:
  Ref<Object> store_;
  std::shared_ptr<internal::Store> access_;
};

}  // namespace tarvo2

#endif  // TARVO2_STD_INTERFACE_H_
