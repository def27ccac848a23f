#include "ini/ini_access.h"

#include <string>

#include "tarvo2/codepage.h"
#include "tarvo2/error.h"
#include "tarvo2/profile_store.h"

namespace tarvo2::ini {
namespace {

// The size of the one buffer of every read, passed to the store as is.
constexpr uint32_t kBufferSize = 1024;

// One request with a fresh buffer of kBufferSize bytes; what the store cut
// to fit stays cut. `section`, `key` and `def` may be null (absent).
String Read(const Services& services, const char* section, const char* key, const char* def,
            const String& path, uint32_t* store_error) {
  std::shared_ptr<ProfileStore> store = services.profile_store();
  char buffer[kBufferSize] = {};
  uint32_t n = store->GetPrivateProfileString(section, key, def, buffer, kBufferSize, ToUtf8(path));
  if (store_error) *store_error = store->LastError();
  // The count never exceeds the buffer; a store that claims more is
  // believed only up to the buffer's end.
  return FromCodePage(std::string_view(buffer, n < kBufferSize ? n : kBufferSize), services.code_page());
}

void Write(const Services& services, const char* section, const char* key, const char* value,
           const String& path, uint32_t* store_error) {
  std::shared_ptr<ProfileStore> store = services.profile_store();
  store->WritePrivateProfileString(section, key, value, ToUtf8(path));
  if (store_error) *store_error = store->LastError();
}

// The store takes C strings: a NUL inside a name or value would cut it and
// address another key. Such requests are refused here, as the store refuses
// line breaks: reads find nothing, writes change nothing.

bool HasNul(const std::string& s) { return s.find('\0') != std::string::npos; }

String Refused(const Services& services, const std::string& def, uint32_t* store_error) {
  if (store_error) *store_error = kProfileInvalidParameter;
  std::string_view d(def);
  size_t e = d.find_last_not_of(' ');
  return FromCodePage(d.substr(0, e == std::string_view::npos ? 0 : e + 1), services.code_page());
}

void RefusedWrite(uint32_t* store_error) {
  if (store_error) *store_error = kProfileInvalidParameter;
}

}  // namespace

String INIGetSections(const Services& services, const String& path, uint32_t* store_error) {
  return Guard(u"KivINIFileHandler.INIGetSections",
               [&] { return Read(services, nullptr, nullptr, "", path, store_error); });
}

String INIGetFields(const Services& services, const String& path, const String& section, uint32_t* store_error) {
  return Guard(u"KivINIFileHandler.INIGetFields", [&] {
    const uint32_t cp = services.code_page();
    std::string s = ToCodePage(section, cp);
    if (HasNul(s)) return Refused(services, "", store_error);
    return Read(services, s.c_str(), nullptr, "", path, store_error);
  });
}

String INIGetValue(const Services& services, const String& path, const String& section, const String& key,
                   const String& def, uint32_t* store_error) {
  return Guard(u"KivINIFileHandler.INIGetValue", [&] {
    const uint32_t cp = services.code_page();
    std::string s = ToCodePage(section, cp), k = ToCodePage(key, cp), d = ToCodePage(def, cp);
    if (HasNul(d)) d.resize(d.find('\0'));  // only a default: cut it as C would
    if (HasNul(s) || HasNul(k)) return Refused(services, d, store_error);
    return Read(services, s.c_str(), k.c_str(), d.c_str(), path, store_error);
  });
}

void INISetValue(const Services& services, const String& path, const String& section, const String& key,
                 const String& value, uint32_t* store_error) {
  Guard(u"KivINIFileHandler.INISetValue", [&] {
    const uint32_t cp = services.code_page();
    std::string s = ToCodePage(section, cp), k = ToCodePage(key, cp), v = ToCodePage(value, cp);
    if (HasNul(s) || HasNul(k) || HasNul(v)) return RefusedWrite(store_error);
    Write(services, s.c_str(), k.c_str(), v.c_str(), path, store_error);
  });
}

void INIDeleteValue(const Services& services, const String& path, const String& section, const String& key,
                    uint32_t* store_error) {
  Guard(u"KivINIFileHandler.INIDeleteValue", [&] {
    const uint32_t cp = services.code_page();
    std::string s = ToCodePage(section, cp), k = ToCodePage(key, cp);
    if (HasNul(s) || HasNul(k)) return RefusedWrite(store_error);
    Write(services, s.c_str(), k.c_str(), nullptr, path, store_error);
  });
}

void INIDeleteSection(const Services& services, const String& path, const String& section, uint32_t* store_error) {
  Guard(u"KivINIFileHandler.INIDeleteSection", [&] {
    const uint32_t cp = services.code_page();
    std::string s = ToCodePage(section, cp);
    if (HasNul(s)) return RefusedWrite(store_error);
    Write(services, s.c_str(), nullptr, nullptr, path, store_error);
  });
}

std::vector<String> DecodeNameList(const String& list) {
  std::vector<String> names;
  if (list.find_first_not_of(u' ') == String::npos) return names;
  // The last character goes whole: both halves of a surrogate pair.
  size_t last = list.size() - 1;
  if (last > 0 && list[last] >= 0xDC00 && list[last] <= 0xDFFF && list[last - 1] >= 0xD800 &&
      list[last - 1] <= 0xDBFF)
    --last;
  StringView rest(list.data(), last);
  for (;;) {
    size_t nul = rest.find(u'\0');
    names.emplace_back(rest.substr(0, nul));
    if (nul == StringView::npos) break;
    rest.remove_prefix(nul + 1);
  }
  return names;
}

}  // namespace tarvo2::ini
