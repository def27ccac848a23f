#include "tarvo2/ini_file.h"


#include "ini/ini_access.h"
#include "ini/store_adapter.h"
#include "tarvo2/codec.h"
#include "tarvo2/codepage.h"
#include "tarvo2/convert.h"
#include "tarvo2/file_system.h"
#include "tarvo2/import.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/profile_store.h"
#include "tarvo2/random.h"

namespace tarvo2 {
namespace {

constexpr char16_t kClassName[] = u"KivINIFileHandler";
constexpr char16_t kDefaultSection[] = u"DEFAULT";
constexpr char16_t kMarkerPrefix[] = u"KivDefaultReturn_";
constexpr char16_t kTab[] = u"\t";


// The text of `path` up to and including its last '/', and the rest.
void SplitFolder(const String& path, String* folder, String* file) {
  size_t slash = path.rfind(u'/');
  if (slash == String::npos) {
    folder->clear();
    *file = path;
  } else {
    *folder = path.substr(0, slash + 1);
    *file = path.substr(slash + 1);
  }
}

}  // namespace


KivINIFileHandler::KivINIFileHandler(std::shared_ptr<Services> services)
    : services_(Services::OrDefault(std::move(services))) {
  Guard(u"KivINIFileHandler.Class_Initialize", [&] {
    section_ = kDefaultSection;
    host_folder_ = services_->host_module()->folder;
  });
}

const TypeInfo& KivINIFileHandler::Info() {
  using C = KivINIFileHandler;
  static const TypeInfo info =
      ClassBuilder<C>(kClassName)
          .Let(u"Path", &C::put_Path, u"", {P(u"sPath")})
          .Get(u"Path", &C::get_Path, u"")
          .Let(u"Section", &C::put_Section, u"", {P(u"sSection")})
          .Get(u"Section", &C::get_Section, u"")
          .Get(u"Value", &C::get_Value, u"")
          .Let(u"Value", &C::put_Value, u"", {P(u"vValue")})
          .Method(u"Version", &C::Version, u"", {P(u"bShow", false)})
          .Method(u"SetValue",
                  // sArrayDelim is a String passed by reference; it is read,
                  // never written back.
                  [](C& self, const String& name, const Variant& value, Variant& delimiter) {
                    return self.SetValue(name, value,
                                         delimiter.IsMissing() ? String(kTab) : ToString(delimiter));
                  },
                  u"",
                  {P(u"sFieldName"), P(u"vValue"), P(u"sArrayDelim", kTab).Typed(VarType::kString)})
          .Method(u"GetValue", &C::GetValue, u"",
                  {P(u"sFieldName"), P(u"sArrayDelim", kTab), P(u"bDetectArray", true),
                   P(u"bDetectNum", true), P(u"vDefaultReturn", String())})
          .Method(u"GetSectionNames", &C::GetSectionNames, u"")
          .Method(u"GetFieldNames", &C::GetFieldNames, u"")
          .Method(u"DeleteFile", &C::DeleteFile, u"")
          .Method(u"DeleteSection", &C::DeleteSection, u"")
          .Method(u"DeleteField", &C::DeleteField, u"", {P(u"sFieldName")})
          .Build();
  return info;
}

Ref<Object> KivINIFileHandler::QueryInterface(StringView interface_name) {
  return internal::StoreQueryInterface(*this, interface_name, [this] {
    return std::make_shared<internal::IniFileStore>(Ref<KivINIFileHandler>(this));
  });
}

Ref<TarvoStdInterface> KivINIFileHandler::StdInterface() {
  return RefCast<TarvoStdInterface>(QueryInterface(u"TarvoStdInterface"));
}

// ---------------------------------------------------------------------------
// The file and the section.

void KivINIFileHandler::put_Path(const String& sPath) {
  Guard(u"KivINIFileHandler.Path (Let)", [&] {
    if (path_is_set_) return;
    path_ = sPath;
    path_is_set_ = true;
  });
}

String KivINIFileHandler::get_Path() {
  return Guard(u"KivINIFileHandler.Path (Get)", [&] { return path_; });
}

void KivINIFileHandler::put_Section(const String& sSection) {
  Guard(u"KivINIFileHandler.Section (Let)", [&] {
    String section = Trim(sSection);
    if (section.find_first_of(u"[]") != String::npos) RaiseLibraryError(*services_, ErrIllegalCharacters);
    section_ = section.empty() ? String(kDefaultSection) : std::move(section);
  });
}

String KivINIFileHandler::get_Section() {
  return Guard(u"KivINIFileHandler.Section (Get)", [&] { return section_; });
}

// ---------------------------------------------------------------------------
// Values.

Variant KivINIFileHandler::get_Value() {
  return Guard(u"KivINIFileHandler.Value (Get)", [&] { return last_value_; });
}

void KivINIFileHandler::put_Value(const Variant& vValue) {
  Guard(u"KivINIFileHandler.Import (Let)", [&] {
    if (ImportIfStore(*services_, *this, vValue)) return;
    SetValue(last_field_name_, vValue, last_delimiter_);
  });
}

bool KivINIFileHandler::SetValue(const String& sFieldName, const Variant& vValue,
                                 const String& sArrayDelim) {
  return Guard(u"KivINIFileHandler.SetValue", [&] {
    String name = Trim(sFieldName);
    if (name.empty()) RaiseLibraryError(*services_, ErrZeroLengthFieldName);
    String delimiter = sArrayDelim;
    String text = ToString(PrepForSet(vValue, delimiter));
    ini::INISetValue(*services_, path_, section_, name, text, &last_profile_error_);
    last_field_name_ = std::move(name);
    last_delimiter_ = sArrayDelim;
    return false;
  });
}

Variant KivINIFileHandler::GetValue(const String& sFieldName, const String& sArrayDelim,
                                    bool bDetectArray, bool bDetectNum,
                                    const Variant& vDefaultReturn) {
  return Guard(u"KivINIFileHandler.GetValue", [&] {
    // A fresh marker for every call: the value that a missing key yields.
    std::shared_ptr<RandomService> random = services_->random();
    random->Randomize();
    String marker = kMarkerPrefix + ToString(Variant(random->NextSingle()));
    String raw = ini::INIGetValue(*services_, path_, section_, sFieldName, marker, &last_profile_error_);
    Variant result;
    if (raw == marker) {
      result = vDefaultReturn.IsMissing() ? Variant(String()) : vDefaultReturn;
    } else {
      result = PrepForGet(Variant(std::move(raw)), sArrayDelim, bDetectArray, bDetectNum);
    }
    last_value_ = result;
    last_field_name_ = sFieldName;
    last_delimiter_ = sArrayDelim;
    return result;
  });
}

// ---------------------------------------------------------------------------
// Listings.

SafeArray KivINIFileHandler::GetSectionNames() {
  return Guard(u"KivINIFileHandler.GetSectionNames", [&] {
    return SafeArray::OfStrings(
        ini::DecodeNameList(ini::INIGetSections(*services_, path_, &last_profile_error_)));
  });
}

SafeArray KivINIFileHandler::GetFieldNames() {
  return Guard(u"KivINIFileHandler.GetFieldNames", [&] {
    return SafeArray::OfStrings(
        ini::DecodeNameList(ini::INIGetFields(*services_, path_, section_, &last_profile_error_)));
  });
}

// ---------------------------------------------------------------------------
// Deleting.

void KivINIFileHandler::DeleteFile() {
  // Every step discards its failure and the next one runs.
  std::string file;
  bool exists = false;
  ResumeNext([&] { file = ResolveProfilePath(ToUtf8(path_)); });
  // The codec's PathExists on the native path, without a round trip
  // through 16-bit text.
  ResumeNext([&] { exists = !file.empty() && services_->file_system()->PathExists(file); });
  if (!exists) return;
  // A read-only file is kept, as the profile store refuses to write it.
  FileInfo info;
  ResumeNext([&] { (void)services_->file_system()->GetFileInfo(file, &info); });
  if (info.exists && !info.is_directory && info.writable)
    ResumeNext([&] { (void)services_->file_system()->DeleteFile(file); });
}

void KivINIFileHandler::DeleteSection() {
  Guard(u"KivINIFileHandler.DeleteSection", [&] {
    ini::INIDeleteSection(*services_, path_, section_, &last_profile_error_);
    put_Section(String());
    last_field_name_.clear();
    last_delimiter_ = kTab;
  });
}

void KivINIFileHandler::DeleteField(const String& sFieldName) {
  Guard(u"KivINIFileHandler.DeleteField", [&] {
    ini::INIDeleteValue(*services_, path_, section_, sFieldName, &last_profile_error_);
    if (ToUpper(last_field_name_) == ToUpper(sFieldName)) {
      last_field_name_.clear();
      last_delimiter_ = kTab;
    }
  });
}

String KivINIFileHandler::Version(bool bShow) {
  return Guard(u"KivINIFileHandler.Version", [&] { return VersionReport(*services_, kClassName, bShow); });
}

// ---------------------------------------------------------------------------
// TarvoStdInterface.

void KivINIFileHandler::TarvoStdInterface_put_Path(const String& sPath) {
  Guard(u"KivINIFileHandler.TarvoStdInterface_Path (Let)", [&] {
    if (sPath.empty()) return;
    String p = sPath;
    if (p.substr(p.size() > 4 ? p.size() - 4 : 0).find(u'.') == String::npos) p += u".INI";
    String folder, file;
    SplitFolder(p, &folder, &file);
    if (p.front() == u'/') {
      if (!PathExists(*services_, folder)) p = host_folder_ + file;
    } else {
      p = PathExists(*services_, host_folder_ + folder) ? host_folder_ + p : host_folder_ + file;
    }
    put_Path(p);
  });
}

String KivINIFileHandler::TarvoStdInterface_get_Path() {
  return Guard(u"KivINIFileHandler.TarvoStdInterface_Path (Get)", [&] { return get_Path(); });
}

void KivINIFileHandler::TarvoStdInterface_put_Section(const String& sSection) {
  Guard(u"KivINIFileHandler.TarvoStdInterface_Section (Let)", [&] { put_Section(sSection); });
}

String KivINIFileHandler::TarvoStdInterface_get_Section() {
  return Guard(u"KivINIFileHandler.TarvoStdInterface_Section (Get)",
               [&] { return get_Section(); });
}

bool KivINIFileHandler::TarvoStdInterface_SetValue(const String& sFieldName,
                                                   const Variant& vValue,
                                                   const String& sDelimiter) {
  return Guard(u"KivINIFileHandler.TarvoStdInterface_SetValue",
               [&] { return SetValue(sFieldName, vValue, sDelimiter); });
}

Variant KivINIFileHandler::TarvoStdInterface_GetValue(const String& sFieldName,
                                                      const String& sDelimiter) {
  return Guard(u"KivINIFileHandler.TarvoStdInterface_GetValue",
               [&] { return GetValue(sFieldName, sDelimiter, true, true, Variant(String())); });
}

Variant KivINIFileHandler::TarvoStdInterface_Version(bool bShow) {
  return Guard(u"KivINIFileHandler.TarvoStdInterface_Version",
               [&] { return Variant(Version(bShow)); });
}

}  // namespace tarvo2
