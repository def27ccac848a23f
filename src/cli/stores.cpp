#include "cli/stores.h"

#include <sys/stat.h>

#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <iterator>
#include <sstream>

#include "cli/progress.h"
#include "cli/reg_file.h"
#include "cli/reg_transfer.h"
#include "cli/text.h"
#include "tarvo2/codec.h"
#include "tarvo2/convert.h"
#include "tarvo2/ini_file.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/profile_store.h"
#include "tarvo2/registry_key.h"
#include "tarvo2/registry_store.h"
#include "tarvo2/storage_string.h"

namespace tarvo2::cli {
namespace {

std::string registry_location;  // as given with --registry; "" for the default

// A default value no store holds: tells a missing field from an empty one.
const Variant kAbsent = Variant(ErrorValue{0x7EDC0001});
bool IsAbsent(const Variant& v) { return v.IsError() && v.AsError().code == kAbsent.AsError().code; }

std::string U8(const std::u16string& s) { return TextToUtf8(s); }

bool FileExists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

[[noreturn]] void FieldNotFound(const std::u16string& name) {
  Fail(kExitNotFound, LibraryErrorNumber(ErrFieldNotFound), "Field Not Found: " + U8(name));
}

// ---------------------------------------------------------------------------
// INI files.

std::string IniFile(const Address& a) { return ResolveProfilePath(U8(a.path)); }

void RequireIniFile(const Address& a) {
  if (!FileExists(IniFile(a))) Fail(kExitNotFound, err::kFileNotFound, "File not found: " + IniFile(a));
}

bool HasSection(KivINIFileHandler& ini, const std::u16string& section) {
  SafeArray names = ini.GetSectionNames();
  for (const Variant& n : names.Items())
    if (EqualsNoCase(Trim(n.AsString()), Trim(section))) return true;
  return false;
}

// An INI object on the address's file and section. With `must_exist` the
// file, and the section when one is given, must exist.
Ref<KivINIFileHandler> OpenIni(const Address& a, bool must_exist) {
  if (must_exist) RequireIniFile(a);
  auto ini = KivINIFileHandler::Create();
  ini->put_Path(a.path);
  if (a.has_section) {
    ini->put_Section(a.section);
    if (must_exist && !HasSection(*ini, a.section))
      Fail(kExitNotFound, LibraryErrorNumber(ErrPageNotFound),
           "Section Not Found: [" + U8(a.section) + "] in " + IniFile(a));
  }
  return ini;
}

// Turns what the profile store said about the latest write into an error.
void CheckIniWrite(KivINIFileHandler& ini, const Address& a) {
  std::uint32_t code = ini.LastProfileError();
  if (code == kProfileOk) return;
  if (code == kProfileInvalidParameter)
    Fail(kExitUsage, static_cast<std::int32_t>(code),
         "The INI file cannot hold this name or value (a line break, a NUL, or a key with '=' or a leading ';' or "
         "'['): " + IniFile(a));
  const char* what = code == kProfilePathNotFound  ? "the folder does not exist"
                     : code == kProfileAccessDenied ? "access denied"
                     : code == kProfileDiskFull     ? "the disk is full"
                                                    : "the file could not be written";
  Fail(kExitStoreFailure, static_cast<std::int32_t>(code), std::string("INI write failed, ") + what + ": " + IniFile(a));
}

// ---------------------------------------------------------------------------
// Registry keys.

std::string RegistryFile() {
  return registry_location.empty() ? DefaultRegistryLocation() : registry_location;
}

// True when the key exists; store failures throw.
bool KeyExists(const Address& a) {
  auto store = GetRegistryStore();
  RegKey h = 0;
  std::int32_t rc = store->OpenKey(static_cast<RegKey>(a.root), StoreName(a.path, "key path").c_str(),
                                   kKeyQueryValue, &h);
  if (rc == kErrorSuccess) {
    store->CloseKey(h);
    return true;
  }
  if (rc == kErrorFileNotFound) return false;
  CheckRegistryCode(rc, u"RegistryStore.OpenKey");
  return false;
}

// A key object on the address. With `must_exist` the key must exist; else
// it is created (as KeyName Let does).
Ref<KivRegistryKey> OpenKey(const Address& a, bool must_exist) {
  if (must_exist) {
    RequireRegistryDatabase();
    if (!KeyExists(a))
      Fail(kExitNotFound, LibraryErrorNumber(ErrBadKey), "Bad Key: " + U8(FullKeyPath(a)) + " does not exist");
  } else {
    StoreName(a.path, "key path");
  }
  auto key = KivRegistryKey::Create();
  key->put_RootKey(a.root);
  if (!a.path.empty()) {
    key->put_KeyName(a.path);
    CheckRegistryCode(key->get_ErrorState(), u"KivRegistryKey.KeyName (Let)");
  }
  return key;
}

std::u16string LastComponent(const std::u16string& path) {
  std::size_t p = path.rfind(u'\\');
  return p == std::u16string::npos ? path : path.substr(p + 1);
}

// ---------------------------------------------------------------------------
// Page files.

std::string PageFile(const Address& a) { return U8(a.path); }

Ref<KivStorageString> OpenPage(const Address& a, bool must_exist) {
  auto ss = KivStorageString::Create();
  if (FileExists(PageFile(a)))
    ss->Load(a.path);
  else if (must_exist)
    Fail(kExitNotFound, err::kFileNotFound, "File not found: " + PageFile(a));
  if (a.has_section) ss->put_PageName(a.section);
  return ss;
}

}  // namespace

void UseRegistryLocation(const std::string& location) {
  registry_location = location;
  if (!location.empty()) SetRegistryLocation(location);
}

void RequireRegistryDatabase() {
  std::string file = RegistryFile();
  if (file != ":memory:" && !FileExists(file))
    Fail(kExitNotFound, err::kFileNotFound, "File not found: registry database " + file);
}

std::string StoreName(const std::u16string& text, const char* what) {
  std::string bytes;
  std::size_t bad = TextToStoreBytes(text, &bytes);
  if (bad != std::u16string::npos) {
    char code[16];
    std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(text[bad]));
    UsageError(std::string("the ") + what + " '" + U8(text) + "' holds " + code +
               ", which the registry's code page cannot store");
  }
  return bytes;
}

namespace {

const char* RegistryCodeText(std::int32_t code, ExitCode* exit) {
  const char* text;
  *exit = kExitStoreFailure;
  switch (code) {
    case kErrorBadDatabase: text = "The registry database is corrupt or of a newer kind"; break;
    case kErrorCantOpen: text = "The registry database cannot be opened"; break;
    case kErrorCantRead: text = "The registry database cannot be read"; break;
    case kErrorCantWrite: text = "The registry database cannot be written (read-only, full or locked)"; break;
    case kErrorFileNotFound: text = "The registry key or value does not exist"; *exit = kExitNotFound; break;
    case kErrorInvalidParameter: text = "Invalid registry key path or name"; *exit = kExitUsage; break;
    case kErrorBadPathname: text = "A registry key path must not begin with '\\'"; *exit = kExitUsage; break;
    case kErrorMoreData: text = "A value is too large for the library's buffer"; break;
    case -1: text = "The value is of a registry type that applications cannot read (use export)"; break;
    default: text = "Registry store failure"; break;
  }
  return text;
}

}  // namespace

void CheckRegistryCode(std::int32_t code, const char16_t* label) {
  if (code == kErrorSuccess) return;
  ExitCode exit;
  const char* text = RegistryCodeText(code, &exit);
  std::string location = RegistryFile();
  ToolError e(exit, code, Utf8ToText(std::string(text) + ": " + location));
  e.AppendSource(label);
  throw e;
}

Variant GetField(const Address& a, const std::u16string& name, const ReadOptions& o) {
  bool detect = !o.raw;
  switch (a.kind) {
    case StoreKind::kIni: {
      auto ini = OpenIni(a, true);
      Variant v = ini->GetValue(name, o.delimiter, detect, detect, kAbsent);
      if (IsAbsent(v)) FieldNotFound(name);
      return v;
    }
    case StoreKind::kRegistry: {
      auto key = OpenKey(a, true);
      Variant v = key->GetValue(name, o.delimiter, detect, detect);
      CheckRegistryCode(key->get_ErrorState(), u"KivRegistryKey.GetValue");
      return v;
    }
    case StoreKind::kPage: {
      auto ss = OpenPage(a, true);
      Variant v = ss->GetValue(name, o.delimiter, detect, detect, kAbsent);
      if (IsAbsent(v)) FieldNotFound(name);
      return v;
    }
  }
  return Variant();
}

void SetField(const Address& a, const std::u16string& name, const Variant& value, const std::u16string& delimiter) {
  switch (a.kind) {
    case StoreKind::kIni: {
      auto ini = OpenIni(a, false);
      ini->SetValue(name, value, delimiter);
      CheckIniWrite(*ini, a);
      return;
    }
    case StoreKind::kRegistry: {
      if (a.path.empty()) UsageError("name a key below the root: reg:" + U8(FullKeyPath(a)) + "\\KEY");
      StoreName(name, "value name");
      auto key = OpenKey(a, false);
      key->SetValue(name, value, delimiter);
      CheckRegistryCode(key->get_ErrorState(), u"KivRegistryKey.SetValue");
      return;
    }
    case StoreKind::kPage: {
      auto ss = OpenPage(a, false);
      ss->SetValue(name, value, delimiter);
      ss->Save(a.path);
      return;
    }
  }
}

void Delete(const Address& a, const std::optional<std::u16string>& name, bool recursive) {
  switch (a.kind) {
    case StoreKind::kIni: {
      auto ini = OpenIni(a, true);
      if (name) {
        if (IsAbsent(ini->GetValue(*name, u"\t", false, false, kAbsent))) FieldNotFound(*name);
        ini->DeleteField(*name);
        CheckIniWrite(*ini, a);
      } else if (a.has_section) {
        ini->DeleteSection();
        CheckIniWrite(*ini, a);
      } else {
        ini->DeleteFile();
        if (FileExists(IniFile(a)))
          Fail(kExitStoreFailure, err::kPermissionDenied, "Permission denied: cannot delete " + IniFile(a));
      }
      return;
    }
    case StoreKind::kRegistry: {
      if (!name && a.path.empty()) UsageError("a registry root cannot be deleted");
      auto key = OpenKey(a, true);
      if (name) {
        key->DeleteValue(*name);
        CheckRegistryCode(key->get_ErrorState(), u"KivRegistryKey.DeleteValue");
      } else {
        key->DeleteKey(recursive);
        // A deleted key's object is invalidated; one that stays valid
        // recorded the store's failure.
        if (!key->get_Invalidated()) CheckRegistryCode(key->get_ErrorState(), u"KivRegistryKey.DeleteKey");
      }
      return;
    }
    case StoreKind::kPage: {
      auto ss = OpenPage(a, true);
      if (name) {
        ss->DeleteField(*name);
        ss->Save(a.path);
      } else if (std::remove(PageFile(a).c_str()) != 0) {
        Fail(kExitStoreFailure, err::kPermissionDenied, "Permission denied: cannot delete " + PageFile(a));
      }
      return;
    }
  }
}

// Adds each named field of `store` to `out`, with its value read as `get`
// would read it when `with_values` is set.
template <class Store>
void AddFields(Listing& out, Store& store, const SafeArray& names, bool with_values, const ReadOptions& o,
               const Variant& absent) {
  const bool detect = !o.raw;
  for (const Variant& n : names.Items()) {
    Variant v;
    if (with_values) v = store.GetValue(n.AsString(), o.delimiter, detect, detect, absent);
    out.fields.emplace_back(n.AsString(), v);
  }
}

Listing List(const Address& a, bool with_values, const ReadOptions& o) {
  Listing out;
  switch (a.kind) {
    case StoreKind::kIni: {
      auto ini = OpenIni(a, true);
      if (!a.has_section) {
        out.container_kind = "sections";
        SafeArray names = ini->GetSectionNames();
        for (const Variant& n : names.Items()) out.containers.push_back(n.AsString());
        return out;
      }
      SafeArray names = ini->GetFieldNames();
      AddFields(out, *ini, names, with_values, o, String());
      return out;
    }
    case StoreKind::kRegistry: {
      auto key = OpenKey(a, true);
      out.container_kind = "subkeys";
      Ref<SubKeysCollection> subkeys = key->get_SubKeys();
      for (const auto& sub : *subkeys) out.containers.push_back(LastComponent(sub->get_KeyName()));
      SafeArray names = key->GetValueNames();
      if (key->get_ErrorState() == kErrorMoreData)
        std::fprintf(stderr,
                     "tarvo2: warning: the value list of %s ends at a value larger than 1,024 bytes, as "
                     "applications see it; use export to see all values\n",
                     U8(FullKeyPath(a)).c_str());
      AddFields(out, *key, names, with_values, o, Variant());
      return out;
    }
    case StoreKind::kPage: {
      auto ss = OpenPage(a, true);
      SafeArray names = ss->GetFieldNames();
      AddFields(out, *ss, names, with_values, o, String());
      return out;
    }
  }
  return out;
}

void Copy(const Address& source, const Address& target) {
  if (source.kind == StoreKind::kIni && source.has_section)
    UsageError("copy takes a whole INI file as its source: drop '#" + U8(source.section) + "'");
  if (target.kind == StoreKind::kIni && target.has_section)
    UsageError("copy writes whole INI files; the sections come from the source: drop '#" + U8(target.section) + "'");
  Ref<Object> src;
  switch (source.kind) {
    case StoreKind::kIni: src = Ref<Object>(OpenIni(source, true)); break;
    case StoreKind::kRegistry: src = Ref<Object>(OpenKey(source, true)); break;
    case StoreKind::kPage: src = Ref<Object>(OpenPage(source, true)); break;
  }
  switch (target.kind) {
    case StoreKind::kIni: {
      auto ini = OpenIni(target, false);
      ini->put_Value(Variant(src));
      CheckIniWrite(*ini, target);
      return;
    }
    case StoreKind::kRegistry: {
      if (target.path.empty()) UsageError("name a key below the root as the target: reg:" + U8(FullKeyPath(target)) + "\\KEY");
      auto key = OpenKey(target, false);
      key->put_Value(Variant(src));
      CheckRegistryCode(key->get_ErrorState(), u"KivRegistryKey.Import (Let)");
      return;
    }
    case StoreKind::kPage: {
      auto ss = KivStorageString::Create();
      ss->put_Value(Variant(src));
      if (target.has_section) {
        bool found = false;
        SafeArray names = ss->GetPageNames();
        for (std::int32_t i = names.LBound(); i <= names.UBound(); ++i) {
          if (names.At(i).AsString() == target.section) {
            ss->put_Page(Variant(i));
            found = true;
            break;
          }
        }
        if (!found) {
          if (ss->get_PageCount() > 1)
            Fail(kExitNotFound, LibraryErrorNumber(ErrPageNotFound),
                 "Page Not Found: the copy holds no page named " + U8(target.section));
          ss->put_PageName(target.section);
        }
      } else if (ss->get_PageCount() > 1) {
        std::string list;
        SafeArray names = ss->GetPageNames();
        for (const Variant& n : names.Items()) {
          if (&n != &names.Items().front()) list += ", ";
          list += n.AsString().empty() ? "\"\"" : U8(n.AsString());  // an unnamed page shows as ""
        }
        UsageError("the copy gives " + std::to_string(ss->get_PageCount()) + " pages (" + list +
                   "); a page file holds one: name it with page:FILE#PAGE");
      }
      ss->Save(target.path);
      return;
    }
  }
}

void ExportRegistry(const Address& a, const std::string& file, const std::string& encoding) {
  if (a.kind != StoreKind::kRegistry) UsageError("export takes a registry key: reg:ROOT\\KEY");
  regfile::RegFileEncoding enc;
  if (encoding == "utf8") enc = regfile::RegFileEncoding::kUtf8;
  else if (encoding == "utf16") enc = regfile::RegFileEncoding::kUtf16Le;
  else if (encoding == "regedit4") enc = regfile::RegFileEncoding::kRegedit4;
  else UsageError("unknown encoding '" + encoding + "' (utf8, utf16, regedit4)");
  OpenKey(a, true);  // exists, or exit code 1
  regfile::RegFile reg;
  {
    Progress progress("exporting");
    std::int32_t rc = regfile::ExportKey(*GetRegistryStore(), static_cast<RegKey>(a.root), StoreName(a.path, "key path"),
                                         &reg, [&](std::size_t done, std::size_t total) { progress.Update(done, total); });
    CheckRegistryCode(rc, u"RegistryStore.EnumValue");
  }
  std::string text, error;
  if (!regfile::WriteRegFile(reg, enc, &text, &error)) Fail(kExitStoreFailure, kErrorInvalidParameter, error);
  if (file == "-") {
    std::fwrite(text.data(), 1, text.size(), stdout);
    return;
  }
  // Write to a temporary file beside the target, then rename it over.
  std::string tmp = file + ".XXXXXX";
  int fd = ::mkstemp(tmp.data());
  if (fd < 0) Fail(kExitStoreFailure, err::kPathFileAccessError, "Path/File access error: " + file + ": " + std::strerror(errno));
  mode_t mask = ::umask(0);  // mkstemp makes 0600; give the file the usual mode
  ::umask(mask);
  ::fchmod(fd, 0666 & ~mask);
  std::size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  int saved = errno;
  bool ok = done == text.size() && ::fsync(fd) == 0;
  if (!ok && saved == 0) saved = errno;
  ::close(fd);
  if (!ok || ::rename(tmp.c_str(), file.c_str()) != 0) {
    if (ok) saved = errno;
    ::unlink(tmp.c_str());
    Fail(kExitStoreFailure, err::kPathFileAccessError, "Path/File access error: " + file + ": " + std::strerror(saved));
  }
}

void ImportRegistry(const std::string& file) {
  std::string bytes;
  if (file == "-") {
    bytes.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  } else {
    if (!FileExists(file)) Fail(kExitNotFound, err::kFileNotFound, "File not found: " + file);
    std::FILE* f = std::fopen(file.c_str(), "rb");
    if (!f) Fail(kExitStoreFailure, err::kPermissionDenied, "Permission denied: " + file + ": " + std::strerror(errno));
    char buf[65536];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) bytes.append(buf, n);
    bool failed = std::ferror(f);
    std::fclose(f);
    if (failed) Fail(kExitStoreFailure, err::kDeviceIOError, "Device I/O error: cannot read " + file);
  }
  regfile::RegFile reg;
  regfile::RegFileError error;
  if (!regfile::ParseRegFile(bytes, &reg, &error))
    Fail(kExitUsage, err::kInvalidProcedureCall,
         (file == "-" ? std::string("<stdin>") : file) + ":" + std::to_string(error.line) + ":" +
             std::to_string(error.column) + ": " + error.message + " (nothing was imported)");
  regfile::ImportResult result;
  {
    Progress progress("importing");
    result = regfile::ImportFile(*GetRegistryStore(), reg,
                                 [&](std::size_t done, std::size_t total) { progress.Update(done, total); });
  }
  if (result.code != kErrorSuccess) {
    ExitCode exit;
    const char* text = RegistryCodeText(result.code, &exit);
    ToolError e(kExitStoreFailure, result.code,
                Utf8ToText(std::string(text) + ": " + RegistryFile() + "; import of " + file + " failed at " +
                           result.what +
                           (result.rolled_back ? "; nothing was changed" : "; undoing the earlier changes failed too")));
    e.AppendSource(u"RegistryStore");
    throw e;
  }
}

}  // namespace tarvo2::cli
