// TarvoLibrary: the global application object.
//
// Its members are callable without creating it: GetTarvoLibrary() returns
// the one global instance (CreateObject(u"Tarvo2.TarvoLibrary") makes
// independent instances with their own state). It carries the raise switch
// and the window placement helpers, which remember a form's position, size
// and window state in one of the three stores, used only through the common
// interface.
//
// Forms are client objects reached by property name ("WindowState", "Top",
// "Left", "Width", "Height", "Name"); the screen is the ScreenService and
// the host folder and host name those of the host module, both of the
// object's context.
#ifndef TARVO2_TARVO_LIBRARY_H_
#define TARVO2_TARVO_LIBRARY_H_

#include <cstdint>

#include "tarvo2/export.h"
#include "tarvo2/std_interface.h"

namespace tarvo2 {

enum StorageTypeEnum : std::int32_t {
  tarvo_INIFile = 0,
  tarvo_Registry = 1,
  tarvo_StorageString = 2,
};

// The section in which placements are stored.
inline constexpr char16_t kWindowParamsSection[] = u"WindowParams";

class TARVO2_EXPORT TarvoLibrary : public Object {
 public:
  // A library object in `services` (the default context when null). The
  // stores it makes work in the same context.
  explicit TarvoLibrary(std::shared_ptr<Services> services = Services::Default())
      : services_(Services::OrDefault(std::move(services))) {}
  static Ref<TarvoLibrary> Create(std::shared_ptr<Services> services = Services::Default()) {
    return MakeRef<TarvoLibrary>(std::move(services));
  }
  // The context the object works in.
  const std::shared_ptr<Services>& services() const { return services_; }
  static const TypeInfo& Info();
  const TypeInfo& GetTypeInfo() const override { return Info(); }

  // "2.0"; with bShow also shows the version report.
  Variant Version(bool bShow = false);

  // Centres the form (when its WindowState is 0) on the screen, or within
  // `oCentreWithinForm` when that holds an object: Top = height * 0.85 / 2
  // - form height / 2, Left = width / 2 - form width / 2, relative to the
  // other form's origin. Failures of the form's properties pass on with the
  // label "KivCenterForm".
  void KivCenterForm(Variant& oFormToCentred);
  void KivCenterForm(Variant& oFormToCentred, Variant& oCentreWithinForm);

  // Chooses where placements are stored and makes that store: an INI file
  // beside the host executable (<host folder>/<host name>.ini), the registry
  // key "Software\<vendor>\<host name>", or a storage string, each with the
  // section "WindowParams". A non-empty vendor is remembered; with no vendor
  // ever given, or a storage type outside the enumeration, no store is made
  // and the result is Nothing. Returns the store as TarvoStdInterface.
  Ref<TarvoStdInterface> KivSetFormSaveParams(StorageTypeEnum eStorageTypeEnum, const String& sSoftwareVendor);

  // Saves the form's normal bounds and window state under its Name (seven
  // Longs joined by tabs), and `vExtraParams` (when given and neither an
  // object nor Empty) under Name + ".XtrParams". The form is normalised to
  // read its bounds and, with bRestoreWindowAfterNormalize, put back in its
  // window state. Does nothing without a store.
  void KivSaveFormParams(Variant& oTheForm, const Variant& vExtraParams = Variant::Missing(),
                         bool bRestoreWindowAfterNormalize = true);

  // Applies a saved placement to the form (Top, Left, Width, Height, then
  // WindowState) and hands back the extra value when there is one. A
  // placement that was never saved leaves the form and `vExtraParams` as
  // they are. Does nothing without a store.
  void KivRestoreFormParams(const Ref<Object>& oTheForm);
  void KivRestoreFormParams(const Ref<Object>& oTheForm, Variant& vExtraParams);

  // Sets the raise switch of the object's context (write only); for the
  // global instance, the library-wide switch of the default context.
  void put_TarvoRaiseErrors(bool value);

  // The store made by the latest KivSetFormSaveParams (Nothing before).
  const Ref<TarvoStdInterface>& store() const { return store_; }

 private:
  const std::shared_ptr<Services> services_;
  String vendor_;
  String store_path_;
  Ref<TarvoStdInterface> store_;
};

// The global instance, in the default context.
TARVO2_EXPORT Ref<TarvoLibrary> GetTarvoLibrary();

}  // namespace tarvo2

#endif  // TARVO2_TARVO_LIBRARY_H_
