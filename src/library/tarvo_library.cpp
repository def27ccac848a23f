#include "tarvo2/tarvo_library.h"

#include "tarvo2/library_errors.h"
#include "tarvo2/tarvo2.h"

namespace tarvo2 {
namespace {

constexpr char16_t kTab[] = u"\t";

double Prop(const Variant& obj, StringView name) { return ToDouble(GetProperty(obj, name)); }

}  // namespace

const TypeInfo& TarvoLibrary::Info() {
  static const TypeInfo info =
      ClassBuilder<TarvoLibrary>(u"TarvoLibrary")
          .Method(u"Version", &TarvoLibrary::Version,
                  u"Returns the internal version number given to the object", {P(u"bShow", false)})
          .Method(u"KivCenterForm",
                  [](TarvoLibrary& self, Variant& form, Variant& within) { self.KivCenterForm(form, within); },
                  u"Centres a form",
                  {P(u"oFormToCentred").Typed(VarType::kObject), Opt(u"oCentreWithinForm")})
          .Method(u"KivSetFormSaveParams", &TarvoLibrary::KivSetFormSaveParams,
                  u"Setup the paramaters for the KivSaveFormParams/KivRestoreFormParams",
                  {P(u"eStorageTypeEnum"), P(u"sSoftwareVendor")})
          .Method(u"KivSaveFormParams", &TarvoLibrary::KivSaveFormParams,
                  u"Save the location, size and other paramaters of a form",
                  {P(u"oTheForm").Typed(VarType::kObject), Opt(u"vExtraParams"),
                   P(u"bRestoreWindowAfterNormalize", true)})
          .Method(u"KivRestoreFormParams",
                  [](TarvoLibrary& self, const Ref<Object>& form, Variant& extra) {
                    self.KivRestoreFormParams(form, extra);
                  },
                  u"Restore the location, size and other paramaters of a form",
                  {P(u"oTheForm"), Opt(u"vExtraParams")})
          .Let(u"TarvoRaiseErrors", &TarvoLibrary::put_TarvoRaiseErrors,
               u"Sets whether the library raises its own errors", {P(u"bRaise")})
          .Build();
  return info;
}

Variant TarvoLibrary::Version(bool bShow) {
  return Guard(u"TarvoLibrary.Version", [&] { return Variant(VersionReport(*services_, u"TarvoLibrary", bShow)); });
}

void TarvoLibrary::KivCenterForm(Variant& oFormToCentred) {
  Variant none = Variant::Missing();
  KivCenterForm(oFormToCentred, none);
}

void TarvoLibrary::KivCenterForm(Variant& oFormToCentred, Variant& oCentreWithinForm) {
  Guard(u"KivCenterForm", [&] {
    const Variant& f = oFormToCentred;
    if (ToLong(GetProperty(f, u"WindowState")) != 0) return;
    bool within = oCentreWithinForm.IsObject() && oCentreWithinForm.AsObject();
    double width, height;
    if (within) {
      height = Prop(oCentreWithinForm, u"Height");
      width = Prop(oCentreWithinForm, u"Width");
    } else {
      auto screen = services_->screen();
      height = screen->Height();
      width = screen->Width();
    }
    LetProperty(f, u"Top", Variant(height * 0.85 / 2 - Prop(f, u"Height") / 2));
    LetProperty(f, u"Left", Variant(width / 2 - Prop(f, u"Width") / 2));
  });
}

Ref<TarvoStdInterface> TarvoLibrary::KivSetFormSaveParams(StorageTypeEnum eStorageTypeEnum,
                                                           const String& sSoftwareVendor) {
  return Guard(u"KivSetFormSaveParams", [&]() -> Ref<TarvoStdInterface> {
    std::shared_ptr<const HostModule> host = services_->host_module();
    if (!sSoftwareVendor.empty()) vendor_ = sSoftwareVendor;
    store_.reset();
    if (vendor_.empty()) return nullptr;
    String class_name;
    switch (eStorageTypeEnum) {
      case tarvo_INIFile:
        store_path_ = host->folder + host->name + u".ini";
        class_name = u"KivINIFileHandler";
        break;
      case tarvo_Registry:
        store_path_ = u"Software\\" + vendor_ + u"\\" + host->name;
        class_name = u"KivRegistryKey";
        break;
      case tarvo_StorageString:
        store_path_ = host->name;
        class_name = u"KivStorageString";
        break;
      default:
        return nullptr;
    }
    Ref<Object> obj = CreateObject(u"Tarvo2." + class_name, services_);
    Ref<TarvoStdInterface> store = RefCast<TarvoStdInterface>(obj->QueryInterface(u"TarvoStdInterface"));
    if (!store) RaiseRuntimeError(err::kNotSupported);
    store_ = store;
    store_->put_Path(store_path_);
    store_->put_Section(kWindowParamsSection);
    return store_;
  });
}

void TarvoLibrary::KivSaveFormParams(Variant& oTheForm, const Variant& vExtraParams,
                                     bool bRestoreWindowAfterNormalize) {
  Guard(u"KivSaveFormParams", [&] {
    if (!store_) return;
    const Variant& f = oTheForm;
    std::int32_t state = ToLong(GetProperty(f, u"WindowState"));
    LetProperty(f, u"WindowState", Variant(std::int32_t{0}));
    std::vector<Variant> record;
    for (const char16_t* p : {u"Top", u"Left", u"Width", u"Height"})
      record.emplace_back(ToLong(GetProperty(f, p)));
    record.emplace_back(state);
    record.emplace_back(std::int32_t{0});
    record.emplace_back(std::int32_t{0});
    if (bRestoreWindowAfterNormalize) LetProperty(f, u"WindowState", Variant(state));
    String name = ToString(GetProperty(f, u"Name"));
    store_->SetValue(name, Variant(SafeArray::Of(VarType::kLong, std::move(record))), kTab);
    if (!vExtraParams.IsMissing() && !vExtraParams.IsObject() && !vExtraParams.IsEmpty())
      store_->SetValue(name + u".XtrParams", vExtraParams, kTab);
  });
}

void TarvoLibrary::KivRestoreFormParams(const Ref<Object>& oTheForm) {
  Variant none = Variant::Missing();
  KivRestoreFormParams(oTheForm, none);
}

void TarvoLibrary::KivRestoreFormParams(const Ref<Object>& oTheForm, Variant& vExtraParams) {
  Guard(u"KivRestoreFormParams", [&] {
    if (!store_) return;
    Variant f(oTheForm);
    String name = ToString(GetProperty(f, u"Name"));
    Variant v = store_->GetValue(name, kTab);
    if (v.IsArray()) {
      const SafeArray& a = v.AsArray();
      const char16_t* props[] = {u"Top", u"Left", u"Width", u"Height", u"WindowState"};
      for (std::int32_t i = 0; i < 5; ++i) LetProperty(f, props[i], a.At(i));
    }
    Variant x = store_->GetValue(name + u".XtrParams", kTab);
    if (x.IsArray() || !ToString(x).empty()) vExtraParams = x;
  });
}

void TarvoLibrary::put_TarvoRaiseErrors(bool value) {
  Guard(u"TarvoLibrary.RaiseKivErrors (Let)", [&] { SetRaiseErrors(*services_, value); });
}

Ref<TarvoLibrary> GetTarvoLibrary() {
  static const Ref<TarvoLibrary> global = TarvoLibrary::Create();
  return global;
}

}  // namespace tarvo2
