#include "tarvo2/std_interface.h"

#include <string>

#include "frame/store.h"

namespace tarvo2 {
namespace {

String Decimal(std::int32_t n) {
  std::string s = std::to_string(n);
  return String(s.begin(), s.end());
}

}  // namespace

String VersionReportText(StringView class_name) {
  String text = kLibraryFileName;
  text += u" - ";
  text += Decimal(kVersionMajor) + u"." + Decimal(kVersionMinor) + u"." + Decimal(kVersionRevision);
  text += u"\rModule: ";
  text += class_name;
  text += u" - ";
  text += kInternalVersion;
  return text;
}

String VersionReport(const Services& services, StringView class_name, bool show) {
  String text = VersionReportText(class_name);
  if (show) {
    String title = String(kLibraryFileName) + u" - Version Information";
    services.message_box()->Show(text, title, kMbOk | kMbIconInformation);
  }
  return kInternalVersion;
}

const TypeInfo& TarvoStdInterface::Info() {
  static const TypeInfo info =
      ClassBuilder<TarvoStdInterface>(u"TarvoStdInterface")
          .Let(u"Path", &TarvoStdInterface::put_Path, u"The path of the object", {P(u"sPath")})
          .Get(u"Path", &TarvoStdInterface::get_Path, u"The path of the object")
          .Let(u"Section", &TarvoStdInterface::put_Section, u"The section to store data in", {P(u"sSection")})
          .Get(u"Section", &TarvoStdInterface::get_Section, u"The section to store data in")
          .Method(u"SetValue", &TarvoStdInterface::SetValue, u"Sets a value in a field",
                  {P(u"sFieldName"), P(u"vValue"), P(u"sDelimiter", u"\t")})
          .Method(u"GetValue", &TarvoStdInterface::GetValue, u"Gets a value from a field",
                  {P(u"sFieldName"), P(u"sDelimiter", u"\t")})
          .Get(u"Version", &TarvoStdInterface::Version,
                  u"Returns the internal version number given to the object", {P(u"bShow", false)})
          .Build();
  return info;
}

void TarvoStdInterface::put_Path(const String&) {}
String TarvoStdInterface::get_Path() { return String(); }
void TarvoStdInterface::put_Section(const String&) {}
String TarvoStdInterface::get_Section() { return String(); }
bool TarvoStdInterface::SetValue(const String&, const Variant&, const String&) { return false; }
Variant TarvoStdInterface::GetValue(const String&, const String&) { return Variant(); }

Variant TarvoStdInterface::Version(bool bShow) {
  return Guard(u"TarvoStdInterface.Version (Get)",
               [&] { return Variant(VersionReport(*services_, u"TarvoStdInterface", bShow)); });
}

StdInterfaceView::StdInterfaceView(Ref<Object> store, std::shared_ptr<internal::Store> access)
    : TarvoStdInterface(access->services()), store_(std::move(store)), access_(std::move(access)) {}
StdInterfaceView::~StdInterfaceView() = default;

String StdInterfaceView::ClassName() const { return store_->ClassName(); }

Ref<Object> StdInterfaceView::QueryInterface(StringView name) {
  if (EqualsNoCase(name, u"TarvoStdInterface")) return Ref<Object>(this);
  return store_->QueryInterface(name);
}

void StdInterfaceView::put_Path(const String& p) { access_->PutPath(p); }
String StdInterfaceView::get_Path() { return access_->GetPath(); }
void StdInterfaceView::put_Section(const String& s) { access_->SelectSection(s); }
String StdInterfaceView::get_Section() { return access_->GetSection(); }
bool StdInterfaceView::SetValue(const String& f, const Variant& v, const String& d) {
  return access_->SetStdValue(f, v, d);
}
Variant StdInterfaceView::GetValue(const String& f, const String& d) { return access_->GetStdValue(f, d); }
Variant StdInterfaceView::Version(bool show) { return access_->StdVersion(show); }

namespace internal {

bool StoreKindOfClass(StringView class_name, StoreKind* kind) {
  if (class_name == u"KivStorageString") *kind = StoreKind::kStorageString;
  else if (class_name == u"KivRegistryKey") *kind = StoreKind::kRegistryKey;
  else if (class_name == u"KivINIFileHandler") *kind = StoreKind::kIniFile;
  else return false;
  return true;
}

std::shared_ptr<Store> StoreOf(Object& object) {
  Ref<Object> view = object.QueryInterface(u"TarvoStdInterface");
  if (auto* v = dynamic_cast<StdInterfaceView*>(view.get())) return v->access();
  return nullptr;
}

}  // namespace internal
}  // namespace tarvo2
