#include "tarvo2/import.h"

#include "tarvo2/codec.h"
#include "tarvo2/convert.h"
#include "tarvo2/dispatch.h"
#include "tarvo2/error.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/std_interface.h"

namespace tarvo2 {
namespace {

constexpr char16_t kStorageString[] = u"KivStorageString";
constexpr char16_t kRegistryKey[] = u"KivRegistryKey";
constexpr char16_t kIniFile[] = u"KivINIFileHandler";
constexpr char16_t kTab[] = u"\t";

// One step of an importer: a failure is discarded and the importer goes on.
template <class F>
void Step(F&& f) {
  ResumeNext(std::forward<F>(f));
}

Variant Get(const Variant& o, StringView name) { return GetProperty(o, name); }
void Let(const Variant& o, StringView name, Variant v) { LetProperty(o, name, std::move(v)); }

// Sets a target's section. A registry key keeps its section accessors
// private and offers them only through the common interface, which is
// called typed: by name its view answers as the key itself.
void LetSection(const Variant& target, Variant section) {
  const Ref<Object>& obj = target.AsObject();
  if (obj->GetIdOfName(u"Section") != kDispIdUnknown) {
    LetProperty(target, u"Section", std::move(section));
    return;
  }
  Ref<TarvoStdInterface> view = RefCast<TarvoStdInterface>(obj->QueryInterface(u"TarvoStdInterface"));
  if (!view) RaiseRuntimeError(err::kNotSupported);
  view->put_Section(section.IsString() ? section.AsString() : ToString(section));
}

// The text after the last backslash of a key name, or the whole name.
String LastComponent(const Variant& key_name) {
  String s = ToString(key_name);
  std::size_t p = s.rfind(u'\\');
  return p == String::npos ? s : s.substr(p + 1);
}

// The source's version must be a text with exactly one full stop, and at
// least 2.0. On failure the importer ends; with the raise switch on, the
// library error it raises is discarded like any other.
bool VersionAccepted(const Services& services, const Variant& source) {
  bool accepted = false;
  Step([&] {
    Variant v = Call(source, u"Version", {false});
    if (!IsDouble(v)) {
      RaiseLibraryError(services, ErrIncompatibleVersion);
      return;
    }
    v = Call(source, u"Version", {false});
    if (ToDouble(v) < ToDouble(Variant(u"2.0"))) {
      RaiseLibraryError(services, ErrIncompatibleVersion);
      return;
    }
    accepted = true;
  });
  return accepted;
}

// Runs `fn` for each element of an array value; nothing for anything else.
template <class F>
void EachElement(const Variant& list, F&& fn) {
  if (!list.IsArray() || !list.AsArray().IsSized()) return;
  for (const Variant& e : list.AsArray().Items()) fn(e);
}

// Copies every field that `names_member` of `from` lists into `to`: read
// with GetValue(name, tab, true, true[, default]), written with
// SetValue(name, value, tab). A failed read leaves `value` as it was, as
// the next step of the same pass still runs.
void CopyFields(const Variant& from, StringView names_member, const Variant& to, Variant& value,
                const Variant* default_value) {
  Variant names;
  Step([&] { names = Call(from, names_member); });
  EachElement(names, [&](const Variant& name) {
    Step([&] {
      if (default_value)
        value = Call(from, u"GetValue", {name, kTab, true, true, *default_value});
      else
        value = Call(from, u"GetValue", {name, kTab, true, true});
    });
    Step([&] { Call(to, u"SetValue", {name, value, kTab}); });
  });
}

// Runs `fn` for each entry of a collection property, in order.
template <class F>
void EachSubKey(const Variant& key, F&& fn) {
  Variant subkeys;
  Step([&] { subkeys = Get(key, u"SubKeys"); });
  std::vector<Variant> entries;
  Step([&] { ForEach(subkeys, [&](const Variant& e) { entries.push_back(e); }); });
  for (const Variant& e : entries) fn(e);
}

// Visits the pages of a storage string source in order (page numbers from
// 1), then puts the source back on the page that was current. Selecting a
// page moves the source's cursor to 1; the cursor is not restored.
template <class F>
void EachSourcePage(const Variant& src, F&& on_page) {
  Variant remembered, count;
  Step([&] { remembered = Get(src, u"Page"); });
  Step([&] { Let(src, u"Page", 1); });
  Step([&] { count = Get(src, u"PageCount"); });
  std::int32_t n = 0;
  Step([&] { n = ToLong(count); });
  for (std::int32_t i = 1; i <= n; ++i) {
    Step([&] { Let(src, u"Page", i); });
    on_page(i);
  }
  Step([&] { Let(src, u"Page", remembered); });
}

void CheckMultiPage(const Services& services, const Variant& self) {
  Step([&] {
    if (!ToBool(Get(self, u"MultiPage"))) RaiseLibraryError(services, ErrSinglePageMode);
  });
}

// ----- into a storage string -----------------------------------------------

void StorageStringFromStorageString(const Services& services, const Variant& self, const Variant& src) {
  CheckMultiPage(services, self);
  if (!VersionAccepted(services, src)) return;
  Step([&] { Call(self, u"DeletePage", {true}); });
  Step([&] { Call(self, u"Clear", {true}); });
  Variant value;
  EachSourcePage(src, [&](std::int32_t i) {
    if (i == 1) Step([&] { Let(self, u"PageName", Get(src, u"PageName")); });
    if (i > 1) Step([&] { Call(self, u"AddPage", {Get(src, u"PageName"), true}); });
    CopyFields(src, u"GetFieldNames", self, value, nullptr);
  });
}

void StorageStringFromRegistryKey(const Services& services, const Variant& self, const Variant& src) {
  CheckMultiPage(services, self);
  if (!VersionAccepted(services, src)) return;
  Step([&] { Call(self, u"DeletePage", {true}); });
  Step([&] { Call(self, u"Clear", {true}); });
  Variant value;
  Step([&] { Let(self, u"PageName", LastComponent(Get(src, u"KeyName"))); });
  CopyFields(src, u"GetValueNames", self, value, nullptr);
  EachSubKey(src, [&](const Variant& sub) {
    Step([&] { Call(self, u"AddPage", {LastComponent(Get(sub, u"KeyName")), true}); });
    CopyFields(sub, u"GetValueNames", self, value, nullptr);
  });
  Step([&] { Let(self, u"Page", 1); });
}

void StorageStringFromIniFile(const Services& services, const Variant& self, const Variant& src) {
  CheckMultiPage(services, self);
  if (!VersionAccepted(services, src)) return;
  Step([&] { Call(self, u"Clear", {true}); });
  Step([&] { Call(self, u"DeletePage", {true}); });
  Variant sections, value;
  Step([&] { sections = Call(src, u"GetSectionNames"); });
  if (SafeUBound(sections).IsNull()) return;
  const Variant empty(u"");
  Step([&] { Let(self, u"PageName", sections.AsArray().At(0)); });
  const SafeArray& s = sections.AsArray();
  for (std::int32_t i = 0; i <= s.UBound(); ++i) {
    Step([&] { Let(src, u"Section", s.At(i)); });
    if (i > 0) Step([&] { Call(self, u"AddPage", {s.At(i), true}); });
    Step([&] { Let(self, u"Page", i + 1); });
    CopyFields(src, u"GetFieldNames", self, value, &empty);
  }
}

// ----- into a registry key ---------------------------------------------------

void RegistryKeyFromStorageString(const Services& services, const Variant& self, const Variant& src) {
  if (VersionAccepted(services, src)) {
    Variant value;
    EachSourcePage(src, [&](std::int32_t i) {
      if (i > 1) Step([&] { LetSection(self, Get(src, u"PageName")); });
      CopyFields(src, u"GetFieldNames", self, value, nullptr);
    });
  }
  Step([&] { LetSection(self, u""); });
}

void RegistryKeyFromRegistryKey(const Services& services, const Variant& self, const Variant& src) {
  if (!VersionAccepted(services, src)) return;
  Variant value;
  CopyFields(src, u"GetValueNames", self, value, nullptr);
}

void RegistryKeyFromIniFile(const Services& services, const Variant& self, const Variant& src) {
  if (VersionAccepted(services, src)) {
    Variant sections, value;
    const Variant empty(u"");
    Step([&] { sections = Call(src, u"GetSectionNames"); });
    EachElement(sections, [&](const Variant& name) {
      Step([&] {
        bool is_default = name.IsString() && name.AsString() == u"DEFAULT";
        LetSection(self, is_default ? Variant(u"") : name);
      });
      Step([&] { Let(src, u"Section", name); });
      CopyFields(src, u"GetFieldNames", self, value, &empty);
    });
  }
  Step([&] { LetSection(self, u""); });
}

// ----- into an INI file --------------------------------------------------------

void IniFileFromStorageString(const Services& services, const Variant& self, const Variant& src) {
  if (!VersionAccepted(services, src)) return;
  Variant value;
  EachSourcePage(src, [&](std::int32_t) {
    Step([&] { LetSection(self, Get(src, u"PageName")); });
    CopyFields(src, u"GetFieldNames", self, value, nullptr);
  });
}

void IniFileFromRegistryKey(const Services& services, const Variant& self, const Variant& src) {
  if (!VersionAccepted(services, src)) return;
  Variant value;
  Step([&] { LetSection(self, LastComponent(Get(src, u"KeyName"))); });
  CopyFields(src, u"GetValueNames", self, value, nullptr);
  EachSubKey(src, [&](const Variant& sub) {
    Step([&] { LetSection(self, LastComponent(Get(sub, u"KeyName"))); });
    CopyFields(sub, u"GetValueNames", self, value, nullptr);
  });
}

void IniFileFromIniFile(const Services& services, const Variant& self, const Variant& src) {
  if (!VersionAccepted(services, src)) return;
  Variant sections, value;
  const Variant empty(u"");
  Step([&] { sections = Call(src, u"GetSectionNames"); });
  if (!sections.IsArray() || !sections.AsArray().IsSized() || sections.AsArray().Count() == 0) return;
  EachElement(sections, [&](const Variant& name) {
    Step([&] { Let(src, u"Section", name); });
    Step([&] { LetSection(self, name); });
    CopyFields(src, u"GetFieldNames", self, value, &empty);
  });
}

using Importer = void (*)(const Services& services, const Variant& self, const Variant& src);

struct Route {
  const char16_t* target;
  const char16_t* source;
  Importer import;
};

constexpr Route kRoutes[] = {
    {kStorageString, kStorageString, StorageStringFromStorageString},
    {kStorageString, kRegistryKey, StorageStringFromRegistryKey},
    {kStorageString, kIniFile, StorageStringFromIniFile},
    {kRegistryKey, kStorageString, RegistryKeyFromStorageString},
    {kRegistryKey, kRegistryKey, RegistryKeyFromRegistryKey},
    {kRegistryKey, kIniFile, RegistryKeyFromIniFile},
    {kIniFile, kStorageString, IniFileFromStorageString},
    {kIniFile, kRegistryKey, IniFileFromRegistryKey},
    {kIniFile, kIniFile, IniFileFromIniFile},
};

}  // namespace

bool ImportIfStore(const Services& services, Object& target, const Variant& value) {
  if (!IsImportSource(value)) return false;
  Ref<Object> keep(&target);  // the import may drop the caller's other references
  // A view of a store under another interface goes to the hook as the store.
  const Ref<Object>& object = value.AsObject();
  Ref<Object> source = object->QueryInterface(object->ClassName());
  if (ImportHook hook = services.import_hook()) hook(services, target, source ? source : object);
  return true;
}

bool IsImportSource(const Variant& v) {
  if (!v.IsObject() || !v.AsObject()) return false;
  String name = TypeName(v);
  return name == kStorageString || name == kRegistryKey || name == kIniFile;
}

void ImportStore(const Services& services, Object& target, const Ref<Object>& source) noexcept {
  ResumeNext([&] {
    Variant self{Ref<Object>(&target)};
    String target_class = target.ClassName();
    String source_class = source->ClassName();
    // A client may pass a store's common-interface view: work on the store.
    Ref<Object> real = source->QueryInterface(source_class);
    Variant src(real ? real : source);
    for (const Route& r : kRoutes)
      if (target_class == r.target && source_class == r.source) {
        r.import(services, self, src);
        return;
      }
  });
}

}  // namespace tarvo2
