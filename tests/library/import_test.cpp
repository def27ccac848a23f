// Import between stores: all nine pairs of source and target, single-page
// mode, refused versions, and failures that never reach the client.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "storage_string/store_adapter.h"
#include "tarvo2/tarvo2.h"
#include "tarvo2/testing/file_system.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

using Fields = std::map<String, Variant>;
// A store's content: unit name (page, section, subkey; "" for the key
// itself) to its fields, in unit order.
using Units = std::vector<std::pair<String, Fields>>;

constexpr char16_t kTab[] = u"\t";

enum class Kind { kStorageString, kRegistryKey, kIniFile };
const char* KindName(Kind k) {
  return k == Kind::kStorageString ? "storage string" : k == Kind::kRegistryKey ? "registry key" : "INI file";
}

Variant LongArray(std::vector<Variant> v) { return Variant(SafeArray::Of(VarType::kLong, std::move(v))); }

// Two units with texts, numbers, arrays, an empty value, odd letter case,
// and many fields.
Fields MakeAlpha() {
  Fields f = {{u"Colour", Variant(u"Red")}, {u"cOUNT", Variant(7)}, {u"Ratio", Variant(2.5)},
              {u"List", LongArray({1, 2, 3})}, {u"Words", Variant(SafeArray::OfStrings({u"a", u"b"}))},
              {u"Blank", Variant(u"")}};
  for (int i = 0; i < 40; ++i) {
    String name = u"fIeLd_" + String(1, static_cast<char16_t>(u'A' + i % 26)) + String(1, u'a' + i / 26);
    f[name] = i % 3 ? Variant(i) : Variant(u"v" + name);
  }
  return f;
}
const Fields kAlpha = MakeAlpha();
// A source's Alpha also holds a field whose read fails (its numbers overflow
// a Long). The importer goes on past it, and its write step still runs,
// with the value read before it: Colour's.
Fields WithHuge(Fields f, const char16_t* value) {
  f[u"Huge"] = Variant(value);
  return f;
}
const Fields kAlphaSource = WithHuge(kAlpha, u"1\t99999999999"), kAlphaImported = WithHuge(kAlpha, u"Red");
const Fields kBeta = {{u"Size", Variant(12)}, {u"MiXeD", Variant(u"Text With Spaces")}};

class ImportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    services_->set_registry_location(":memory:");
    services_->set_file_system(fs_);
    ASSERT_TRUE(fs_->CreateDir("/cfg").ok());
  }

  // A store of `kind` named `name` holding `units`.
  Variant Make(Kind kind, const String& name, const Units& units) {
    Variant s;
    switch (kind) {
      case Kind::kStorageString: {
        s = Variant(CreateObject(u"Tarvo2.KivStorageString", services_));
        for (std::size_t i = 0; i < units.size(); ++i) {
          if (i == 0)
            LetProperty(s, u"PageName", units[i].first);
          else
            Call(s, u"AddPage", {units[i].first, true});
          for (const auto& [f, v] : units[i].second) Call(s, u"SetValue", {f, v, kTab});
        }
        break;
      }
      case Kind::kRegistryKey:
      case Kind::kIniFile: {
        const bool key = kind == Kind::kRegistryKey;
        s = Variant(CreateObject(key ? u"Tarvo2.KivRegistryKey" : u"Tarvo2.KivINIFileHandler", services_));
        LetProperty(s, key ? u"KeyName" : u"Path", key ? u"Software\\Test\\" + name : u"/cfg/" + name + u".ini");
        // A unit is a section, reached typed through the common interface.
        auto view = RefCast<TarvoStdInterface>(s.AsObject()->QueryInterface(u"TarvoStdInterface"));
        for (const auto& [unit, fields] : units) {
          view->put_Section(unit);
          for (const auto& [f, v] : fields) Call(s, u"SetValue", {f, v, kTab});
        }
        if (key) view->put_Section(u"");
        break;
      }
    }
    return s;
  }

  static Fields Read(const Variant& s, StringView names_member, const Variant* default_value = nullptr) {
    Fields out;
    Variant names = Call(s, names_member);
    for (const Variant& n : names.AsArray().Items())
      out[n.AsString()] = default_value ? Call(s, u"GetValue", {n, kTab, true, true, *default_value})
                                        : Call(s, u"GetValue", {n, kTab, true, true});
    return out;
  }

  // Everything a store holds, unit by unit.
  static Units Dump(Kind kind, const Variant& s) {
    Units out;
    switch (kind) {
      case Kind::kStorageString: {
        std::int32_t n = ToLong(GetProperty(s, u"PageCount"));
        Variant current = GetProperty(s, u"Page");
        for (std::int32_t i = 1; i <= n; ++i) {
          if (n > 1) LetProperty(s, u"Page", i);  // selecting refuses in single-page mode
          out.emplace_back(ToString(GetProperty(s, u"PageName")), Read(s, u"GetFieldNames"));
        }
        if (n > 1) LetProperty(s, u"Page", current);
        break;
      }
      case Kind::kRegistryKey: {
        out.emplace_back(u"", Read(s, u"GetValueNames"));
        ForEach(GetProperty(s, u"SubKeys"), [&](const Variant& sub) {
          String key = ToString(GetProperty(sub, u"KeyName"));
          out.emplace_back(key.substr(key.rfind(u'\\') + 1), Read(sub, u"GetValueNames"));
        });
        break;
      }
      case Kind::kIniFile: {
        Variant empty(u"");
        Variant sections = Call(s, u"GetSectionNames");
        for (const Variant& sec : sections.AsArray().Items()) {
          LetProperty(s, u"Section", sec);
          out.emplace_back(sec.AsString(), Read(s, u"GetFieldNames", &empty));
        }
        break;
      }
    }
    return out;
  }

  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  std::shared_ptr<Services> services_ = Services::New();
};

std::string Describe(const Units& units) {
  std::ostringstream out;
  std::ostream* os = &out;
  for (const auto& [name, fields] : units) {
    *os << "\n  [" << ToUtf8(name) << "]";
    for (const auto& [f, v] : fields) {
      *os << " " << ToUtf8(f) << "=";
      tarvo2::PrintTo(v, os);
    }
  }
  return out.str();
}

// What each target holds after importing a source with units Alpha and
// Beta: the table of where each unit lands.
Units Expected(Kind source, Kind target) {
  if (target == Kind::kRegistryKey) {
    if (source == Kind::kStorageString) return {{u"", kAlphaImported}, {u"Beta", kBeta}};
    if (source == Kind::kRegistryKey) return {{u"", kAlphaImported}};
    return {{u"", {}}, {u"Alpha", kAlphaImported}, {u"Beta", kBeta}};
  }
  return {{u"Alpha", kAlphaImported}, {u"Beta", kBeta}};
}

TEST_F(ImportTest, EveryPairCopiesWhatTheTableSays) {
  const Kind kinds[] = {Kind::kStorageString, Kind::kRegistryKey, Kind::kIniFile};
  for (bool raise : {true, false}) {
    services_->set_raise_errors(raise);
    int n = 0;
    for (Kind from : kinds)
      for (Kind to : kinds) {
        SCOPED_TRACE(std::string(KindName(from)) + " -> " + KindName(to) + (raise ? ", raising" : ", silent"));
        String tag = String(u"p") + static_cast<char16_t>(u'a' + n++) + (raise ? u"r" : u"s");
        // A registry source keeps its own values in the key (unit "") and
        // further units in subkeys; the others name every unit.
        Units content = from == Kind::kRegistryKey ? Units{{u"", kAlphaSource}, {u"Beta", kBeta}}
                                                   : Units{{u"Alpha", kAlphaSource}, {u"Beta", kBeta}};
        Variant src = Make(from, from == Kind::kRegistryKey ? u"Alpha" + tag : u"src" + tag, content);
        Variant dst = Make(to, u"dst" + tag, {});
        LetProperty(dst, u"Value", src);
        Units expected = Expected(from, to);
        if (from == Kind::kRegistryKey && to != Kind::kRegistryKey) expected[0].first = u"Alpha" + tag;
        Units got = Dump(to, dst);
        EXPECT_TRUE(got == expected) << "got:" << Describe(got) << "\nwant:" << Describe(expected);
      }
  }
}

TEST_F(ImportTest, StorageStringTargetIsReplacedAndSourceKeepsItsPage) {
  Variant src = Make(Kind::kStorageString, u"s", {{u"P1", {{u"a", Variant(1)}}}, {u"P2", {{u"b", Variant(2)}}}});
  LetProperty(src, u"Page", 1);
  Variant dst = Make(Kind::kStorageString, u"d", {{u"Old", {{u"x", Variant(9)}}}, {u"Older", {}}});
  LetProperty(dst, u"Value", src);
  EXPECT_EQ(Dump(Kind::kStorageString, dst), (Units{{u"P1", {{u"a", Variant(1)}}}, {u"P2", {{u"b", Variant(2)}}}}));
  EXPECT_EQ(GetProperty(dst, u"Page"), Variant(2));
  EXPECT_EQ(GetProperty(src, u"Page"), Variant(1));

  LetProperty(dst, u"Value", dst);  // into itself: one empty, unnamed page
  EXPECT_EQ(Dump(Kind::kStorageString, dst), (Units{{u"", {}}}));
}

TEST_F(ImportTest, SinglePageModePutsEverythingOnTheCurrentPage) {
  Variant src = Make(Kind::kIniFile, u"single", {{u"A", {{u"a", Variant(1)}, {u"same", Variant(u"first")}}},
                                                   {u"B", {{u"b", Variant(2)}, {u"same", Variant(u"second")}}}});
  Variant dst = Make(Kind::kStorageString, u"d", {{u"Keep", {{u"x", Variant(9)}}}});
  LetProperty(dst, u"MultiPage", false);
  LetProperty(dst, u"Value", src);
  EXPECT_EQ(Dump(Kind::kStorageString, dst),
            (Units{{u"A", {{u"a", Variant(1)}, {u"b", Variant(2)}, {u"same", Variant(u"second")}}}}));

  services_->set_raise_errors(false);  // the single-page refusals are not raised at all
  Variant quiet = Make(Kind::kStorageString, u"q", {});
  LetProperty(quiet, u"MultiPage", false);
  LetProperty(quiet, u"Value", src);
  EXPECT_EQ(Dump(Kind::kStorageString, quiet).size(), 2u);
}

TEST_F(ImportTest, IniDefaultSectionGoesToTheKeyItself) {
  Variant src = Make(Kind::kIniFile, u"def", {{u"DEFAULT", {{u"d", Variant(1)}}}, {u"Win", {{u"w", Variant(2)}}}});
  Variant key = Make(Kind::kRegistryKey, u"Target", {});
  LetProperty(key, u"Value", src);
  EXPECT_EQ(Dump(Kind::kRegistryKey, key), (Units{{u"", {{u"d", Variant(1)}}}, {u"Win", {{u"w", Variant(2)}}}}));
  EXPECT_EQ(GetProperty(key, u"KeyName"), Variant(u"Software\\Test\\Target"));
}

// An INI source is read through the INI file's one buffer of 1,024
// characters: a long value arrives cut to 1,023, and a key list that does
// not fit arrives with its last name cut (1,022 characters with the NULs,
// less one in decoding); that name is then not found and copies as empty.
TEST_F(ImportTest, IniSourcesArriveCutByTheReadBuffer) {
  const String long_name(1100, u'b');
  Variant src = Make(Kind::kIniFile, u"cut", {{u"L", {{u"Long", Variant(String(1500, u'x'))}, {long_name, Variant(2)}}}});
  const Fields arrived = {{u"Long", Variant(String(1023, u'x'))}, {String(1016, u'b'), Variant(u"")}};
  for (Kind to : {Kind::kStorageString, Kind::kRegistryKey, Kind::kIniFile}) {
    SCOPED_TRACE(KindName(to));
    Variant dst = Make(to, u"dst" + String(1, u'0' + static_cast<int>(to)), {});
    LetProperty(dst, u"Value", src);
    Units expected = {{u"L", arrived}};
    if (to == Kind::kRegistryKey) expected.insert(expected.begin(), {u"", {}});
    Units got = Dump(to, dst);
    EXPECT_TRUE(got == expected) << "got:" << Describe(got).substr(0, 200);
  }
}

// A stand-in whose class name is a store's and whose version is chosen: an
// empty storage string behind the store interface that counts the reads of
// its page count.
class FakeStore : public Object {
 public:
  explicit FakeStore(String version) : version_(std::move(version)) {}
  static const TypeInfo& Info() {
    static const TypeInfo info = ClassBuilder<FakeStore>(u"KivStorageString").Build();
    return info;
  }
  const TypeInfo& GetTypeInfo() const override { return Info(); }
  Ref<Object> QueryInterface(StringView name) override {
    return internal::StoreQueryInterface(*this, name, [this] { return std::make_shared<Access>(this); });
  }
  int reads = 0;

 private:
  struct Access : internal::StorageStringStore {
    explicit Access(FakeStore* fake) : StorageStringStore(KivStorageString::Create()), fake(fake) {}
    String Version() override { return fake->version_; }
    std::int32_t PageCount() override {
      ++fake->reads;
      return 0;
    }
    FakeStore* fake;
  };
  String version_;
};

TEST_F(ImportTest, IncompatibleVersionsCopyNothingAndRaiseNothing) {
  for (const char16_t* version : {u"2", u"1.9", u"x.y", u"2.0.1"}) {
    SCOPED_TRACE(ToUtf8(version));
    Ref<FakeStore> fake = MakeRef<FakeStore>(version);
    Variant dst = Make(Kind::kStorageString, u"d", {{u"Keep", {{u"x", Variant(9)}}}});
    EXPECT_NO_THROW(LetProperty(dst, u"Value", Variant(fake)));
    EXPECT_EQ(Dump(Kind::kStorageString, dst), (Units{{u"Keep", {{u"x", Variant(9)}}}}));
    EXPECT_EQ(fake->reads, 0);
  }
  Ref<FakeStore> good = MakeRef<FakeStore>(u"2.0");
  Variant dst = Make(Kind::kStorageString, u"d", {{u"Gone", {{u"x", Variant(9)}}}});
  LetProperty(dst, u"Value", Variant(good));
  EXPECT_EQ(good->reads, 1);
  EXPECT_EQ(Dump(Kind::kStorageString, dst), (Units{{u"", {}}}));
}

TEST_F(ImportTest, AFailedReadWritesTheValueReadBefore) {
  // The last page begins with a field that has no end: listing it works,
  // reading it raises 5, and its write still runs with the value read
  // before: P1's field, or Empty (written as "") when it is the first.
  struct Row { const char* what; Units pages, imported; } rows[] = {
      {"after another page", {{u"P1", {{u"a", Variant(1)}}}, {u"P2", {}}},
       {{u"P1", {{u"a", Variant(1)}}}, {u"P2", {{u"b", Variant(1)}}}}},
      {"first of all", {{u"P1", {}}}, {{u"P1", {{u"b", Variant(u"")}}}}},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    Variant src = Make(Kind::kStorageString, u"s", r.pages);
    LetProperty(src, u"Value", u"<\\b={2");
    Variant dst = Make(Kind::kIniFile, u"broken" + String(1, static_cast<char16_t>(u'0' + r.pages.size())), {});
    LetProperty(dst, u"Value", src);
    EXPECT_EQ(Dump(Kind::kIniFile, dst), r.imported);
  }
}

}  // namespace
}  // namespace tarvo2
