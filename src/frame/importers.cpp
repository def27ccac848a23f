// The nine importers: one generic copy, a walk over the units of each kind
// of source, and a placement policy for each kind of target.
//
// Every step runs under the skip-on-failure rule: a step that fails (a
// library error, a runtime error, a failure inside either store) is
// discarded and the import goes on with its next step. One value variable
// serves the whole import, so a field whose read fails is written with the
// value read before it.
#include <functional>
#include <utility>

#include "frame/store.h"
#include "tarvo2/codec.h"
#include "tarvo2/convert.h"
#include "tarvo2/error.h"
#include "tarvo2/library_errors.h"

namespace tarvo2::internal {
namespace {

constexpr char16_t kTab[] = u"\t";

template <class F>
void Step(F&& f) {
  ResumeNext(std::forward<F>(f));
}

// The text after the last backslash of a key name, or the whole name.
String LastComponent(const String& key_name) {
  std::size_t p = key_name.rfind(u'\\');
  return p == String::npos ? key_name : key_name.substr(p + 1);
}

// The source's version must be a text with exactly one full stop, and at
// least 2.0; it is read twice, once for each test. A refusal raises
// ErrIncompatibleVersion, which the step discards like any other failure.
bool VersionAccepted(const Services& services, Store* source) {
  bool accepted = false;
  Step([&] {
    if (!source) return;  // a stand-in without the store interface has no version
    Variant v(source->Version());
    if (!IsDouble(v)) {
      RaiseLibraryError(services, ErrIncompatibleVersion);
      return;
    }
    v = Variant(source->Version());
    if (ToDouble(v) < ToDouble(Variant(u"2.0"))) {
      RaiseLibraryError(services, ErrIncompatibleVersion);
      return;
    }
    accepted = true;
  });
  return accepted;
}

// One unit of a source: a page, the key or one of its subkeys, a section.
struct Unit {
  std::int32_t index;                 // 0 for the first unit
  std::function<String()> name;       // read when the target asks; may fail
  Store* fields;                      // the store that lists and reads its fields
  Variant default_value;              // GetValue's default (the missing marker: none)
};

// ----- where each unit lands ---------------------------------------------------

class Target {
 public:
  virtual ~Target() = default;
  // Before the version check.
  virtual void Start() {}
  // After the version check passed, before the first unit.
  virtual void Prepare() {}
  // Whether a registry key source's subkeys are visited.
  virtual bool TakesSubKeys() const { return true; }
  // Selects where the unit's fields go.
  virtual void Enter(const Unit& unit) = 0;
  // At the end, also after a refused version.
  virtual void Finish(bool accepted) {}
  virtual Store& store() = 0;
};

// A storage string is emptied and gets one page per unit, named after it.
class PageTarget : public Target {
 public:
  PageTarget(const Services& services, PageStore& t, StoreKind from) : services_(services), t_(t), from_(from) {}
  Store& store() override { return t_; }

  void Start() override {
    Step([&] {
      if (!t_.MultiPage()) RaiseLibraryError(services_, ErrSinglePageMode);
    });
  }
  void Prepare() override {
    if (from_ == StoreKind::kIniFile) {  // the INI importer clears first
      Step([&] { t_.ClearPages(); });
      Step([&] { t_.DeletePages(); });
    } else {
      Step([&] { t_.DeletePages(); });
      Step([&] { t_.ClearPages(); });
    }
  }
  void Enter(const Unit& unit) override {
    if (unit.index == 0)
      Step([&] { t_.SetPageName(unit.name()); });
    else
      Step([&] { t_.AddPage(unit.name(), true); });
    if (from_ == StoreKind::kIniFile) Step([&] { t_.SelectPage(Variant(unit.index + 1)); });
  }
  void Finish(bool accepted) override {
    if (accepted && from_ == StoreKind::kRegistryKey) Step([&] { t_.SelectPage(Variant(1)); });
  }

 private:
  const Services& services_;
  PageStore& t_;
  StoreKind from_;
};

// A registry key takes the first unit as it stands, further units into the
// subkeys named after them, and is left on its base key.
class KeyTarget : public Target {
 public:
  KeyTarget(KeyStore& t, StoreKind from) : t_(t), from_(from) {}
  Store& store() override { return t_; }

  bool TakesSubKeys() const override { return false; }
  void Enter(const Unit& unit) override {
    switch (from_) {
      case StoreKind::kStorageString:
        if (unit.index > 0) Step([&] { t_.SelectSection(unit.name()); });
        break;
      case StoreKind::kRegistryKey:  // the key's own values only
        break;
      case StoreKind::kIniFile:  // "DEFAULT" goes to the key itself
        Step([&] {
          String name = unit.name();
          t_.SelectSection(name == u"DEFAULT" ? String() : name);
        });
        break;
    }
  }
  void Finish(bool) override {
    if (from_ != StoreKind::kRegistryKey) Step([&] { t_.SelectSection(String()); });
  }

 private:
  KeyStore& t_;
  StoreKind from_;
};

// An INI file takes each unit into the section named after it (an unnamed
// page into "DEFAULT") and is left on the section written last.
class SectionTarget : public Target {
 public:
  explicit SectionTarget(SectionStore& t) : t_(t) {}
  Store& store() override { return t_; }
  void Enter(const Unit& unit) override {
    Step([&] { t_.SelectSection(unit.name()); });
  }

 private:
  SectionStore& t_;
};

// ----- the units of each kind of source ----------------------------------------

// Pages in order; the source is put back on the page that was current (its
// cursor, moved to 1 by selecting pages, is not restored).
template <class Visit>
void EachPage(PageStore& s, Visit&& visit) {
  Variant remembered;
  std::int32_t count = 0;
  Step([&] { remembered = s.Page(); });
  Step([&] { s.SelectPage(Variant(1)); });
  Step([&] { count = s.PageCount(); });
  for (std::int32_t i = 1; i <= count; ++i) {
    Step([&] { s.SelectPage(Variant(i)); });
    visit(Unit{i - 1, [&] { return s.PageName(); }, &s, Variant::Missing()});
  }
  Step([&] { s.SelectPage(remembered); });
}

// The key's own values, then (when the target takes them) each immediate
// subkey in the collection's order, named after the last component of
// their key names.
template <class Visit>
void EachKey(KeyStore& s, bool subkeys, Visit&& visit) {
  visit(Unit{0, [&] { return LastComponent(s.KeyName()); }, &s, Variant::Missing()});
  if (!subkeys) return;
  std::vector<std::shared_ptr<KeyStore>> entries;
  Step([&] { entries = s.SubKeys(); });
  for (std::size_t i = 0; i < entries.size(); ++i) {
    KeyStore& sub = *entries[i];
    visit(Unit{static_cast<std::int32_t>(i + 1), [&] { return LastComponent(sub.KeyName()); }, &sub,
               Variant::Missing()});
  }
}

// Sections in file order, each selected in the source before its fields
// are read; the source is left on the last one. Missing fields read as "".
template <class Visit>
void EachSection(SectionStore& s, Visit&& visit) {
  SafeArray sections;
  Step([&] { sections = s.SectionNames(); });
  if (!sections.IsSized()) return;
  for (std::size_t i = 0; i < sections.Count(); ++i) {
    const Variant& name = sections.Items()[i];
    Step([&] { s.SelectSection(ToString(name)); });
    visit(Unit{static_cast<std::int32_t>(i), [&] { return ToString(name); }, &s, Variant(u"")});
  }
}

// Reads every field the unit lists (tab delimiter, detection on) and writes
// it with the target's SetValue and the tab. A failed read leaves `value`
// as it was and the write still runs.
void CopyFields(const Unit& unit, Store& to, Variant& value) {
  SafeArray names;
  Step([&] { names = unit.fields->FieldNames(); });
  if (!names.IsSized()) return;
  for (const Variant& name : names.Items()) {
    Step([&] { value = unit.fields->Get(ToString(name), kTab, true, true, unit.default_value); });
    Step([&] { to.Set(ToString(name), value, kTab); });
  }
}

std::unique_ptr<Target> TargetFor(const Services& services, Store& target, StoreKind from) {
  if (auto* t = dynamic_cast<PageStore*>(&target)) return std::make_unique<PageTarget>(services, *t, from);
  if (auto* t = dynamic_cast<KeyStore*>(&target)) return std::make_unique<KeyTarget>(*t, from);
  if (auto* t = dynamic_cast<SectionStore*>(&target)) return std::make_unique<SectionTarget>(*t);
  return nullptr;
}

// The source as the interface of its kind, or null when it is not one.
Store* SourceAs(Store* source, StoreKind kind) {
  switch (kind) {
    case StoreKind::kStorageString: return dynamic_cast<PageStore*>(source);
    case StoreKind::kRegistryKey: return dynamic_cast<KeyStore*>(source);
    case StoreKind::kIniFile: return dynamic_cast<SectionStore*>(source);
  }
  return nullptr;
}

}  // namespace

void ImportInto(const Services& services, Store& target_store, Store* source, StoreKind from) noexcept {
  ResumeNext([&] {
    std::unique_ptr<Target> target = TargetFor(services, target_store, from);
    if (!target) return;
    source = SourceAs(source, from);
    target->Start();
    const bool accepted = VersionAccepted(services, source);
    if (accepted) {
      target->Prepare();
      Variant value;  // shared by every field of the import
      auto visit = [&](const Unit& unit) {
        target->Enter(unit);
        CopyFields(unit, target->store(), value);
      };
      switch (from) {
        case StoreKind::kStorageString: EachPage(static_cast<PageStore&>(*source), visit); break;
        case StoreKind::kRegistryKey:
          EachKey(static_cast<KeyStore&>(*source), target->TakesSubKeys(), visit);
          break;
        case StoreKind::kIniFile: EachSection(static_cast<SectionStore&>(*source), visit); break;
      }
    }
    target->Finish(accepted);
  });
}

}  // namespace tarvo2::internal
