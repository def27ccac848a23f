// The contract of the three stores behind the common interface, run over
// every store kind as one table: path and section rules, texts, numbers and
// arrays read back alike, delimiters, missing fields, calls by name, the
// interfaces a store answers to, and the raise switch. What is particular to
// one kind (how it stores a value, its own path forms) is tested with it.
#include <gtest/gtest.h>

#include "tarvo2/tarvo2.h"
#include "tarvo2/testing/file_system.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

// What differs between the kinds; everything else is the same contract.
struct Kind {
  const char* name;
  const char16_t* class_name;
  const char16_t* path;        // written to Path through the interface
  const char16_t* path_read;   // what Path then reads
  const char16_t* no_section;  // Section after writing "" on section "B"
  bool exact_sections;         // "b" is another section than "B"
  bool shared_by_path;         // a second object on the same path sees the values
  const char16_t* own_member;  // a property of the store's own, read by name
  const char16_t* lacks;       // a member of the interface the store lacks by name, or null
};

void PrintTo(const Kind& kind, std::ostream* os) { *os << kind.name; }

const Kind kKinds[] = {
    {"StorageString", u"KivStorageString", u"/cfg/ignored", u"", u"B", true, false, u"PageCount", u"Section"},
    {"RegistryKey", u"KivRegistryKey", u"HKEY_CURRENT_USER\\Software\\Contract",
     u"HKEY_CURRENT_USER\\Software\\Contract", u"", false, true, u"KeyName", u"Section"},
    {"IniFile", u"KivINIFileHandler", u"/cfg/contract", u"/cfg/contract.INI", u"DEFAULT", false, true, u"Path",
     nullptr},
};

// Every test works in a context of its own: an in-memory registry and file
// system, the raise switch on.
class StoreContract : public ::testing::TestWithParam<Kind> {
 protected:
  void SetUp() override {
    services_->set_registry_location(":memory:");
    services_->set_file_system(fs_);
    ASSERT_TRUE(fs_->CreateDir("/cfg").ok());
    object_ = Open();
    store_ = RefCast<TarvoStdInterface>(object_->QueryInterface(u"TarvoStdInterface"));
    ASSERT_TRUE(store_);
  }

  // A new store object of the kind, on the kind's path.
  Ref<Object> Open() {
    Ref<Object> o = CreateObject(u"Tarvo2." + String(GetParam().class_name), services_);
    RefCast<TarvoStdInterface>(o->QueryInterface(u"TarvoStdInterface"))->put_Path(GetParam().path);
    return o;
  }
  String Label(const char16_t* member) const { return String(GetParam().class_name) + u"." + member; }

  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  std::shared_ptr<Services> services_ = Services::New();
  Ref<Object> object_;
  Ref<TarvoStdInterface> store_;
};

TEST_P(StoreContract, PathIsGivenOnceAndSectionsKeepTheirOwnFields) {
  EXPECT_EQ(store_->get_Path(), GetParam().path_read);
  store_->put_Path(u"/cfg/other");  // the identity is written once (or ignored)
  EXPECT_EQ(store_->get_Path(), GetParam().path_read);

  store_->put_Section(u"A");
  store_->SetValue(u"f", 1);
  store_->put_Section(u"B");
  store_->SetValue(u"f", 2);
  EXPECT_EQ(store_->get_Section(), u"B");
  store_->put_Section(u"A");
  EXPECT_EQ(store_->get_Section(), u"A");
  EXPECT_EQ(store_->GetValue(u"f"), Variant(1));
  store_->put_Section(u"b");  // letter case
  EXPECT_EQ(store_->GetValue(u"f"), GetParam().exact_sections ? Variant(u"") : Variant(2));
  store_->put_Section(u"B");
  EXPECT_EQ(store_->GetValue(u"f"), Variant(2));
  store_->put_Section(u"");
  EXPECT_EQ(store_->get_Section(), GetParam().no_section);

  Ref<TarvoStdInterface> second = RefCast<TarvoStdInterface>(Open()->QueryInterface(u"TarvoStdInterface"));
  second->put_Section(u"A");
  EXPECT_EQ(second->GetValue(u"f"), GetParam().shared_by_path ? Variant(1) : Variant(u""));
}

SafeArray Longs(std::vector<Variant> v) { return SafeArray::Of(VarType::kLong, std::move(v)); }
SafeArray Doubles(std::vector<Variant> v) { return SafeArray::Of(VarType::kDouble, std::move(v)); }

TEST_P(StoreContract, ValuesReadBackAlikeWithTheirDelimiters) {
  struct Row {
    Variant value;
    const char16_t* write_delimiter;
    const char16_t* read_delimiter;
    Variant expected;
  } rows[] = {
      {Variant(u"Red"), u"\t", u"\t", Variant(u"Red")}, {Variant(u""), u"\t", u"\t", Variant(u"")},
      {Variant(u"Text With Spaces"), u"\t", u"\t", Variant(u"Text With Spaces")},
      {Variant(u"1.2.3"), u"\t", u"\t", Variant(u"1.2.3")}, {Variant(12), u"\t", u"\t", Variant(12)},
      {Variant(-5), u"\t", u"\t", Variant(-5)}, {Variant(2.5), u"\t", u"\t", Variant(2.5)},
      {Variant(u"007"), u"\t", u"\t", Variant(7)},  // numeric text becomes a number
      {Longs({1, 2, 3}), u"\t", u"\t", Longs({1, 2, 3})},
      {SafeArray::OfVariants({1, 1.5, 3}), u"\t", u"\t", Doubles({1.0, 1.5, 3.0})},
      {SafeArray::OfVariants({1, u"x"}), u";", u";", SafeArray::OfStrings({u"1", u"x"})},
      {SafeArray::OfStrings({u"a", u"b"}), u"\t", u"\t", SafeArray::OfStrings({u"a", u"b"})},
      {SafeArray::OfStrings({u"a", u"b"}), u",", u",", SafeArray::OfStrings({u"a", u"b"})},
      {SafeArray::OfStrings({u"a", u"b"}), u"|", u"\t", Variant(u"a|b")},  // read with another delimiter
      {Variant(u"a,b"), u"\t", u",", SafeArray::OfStrings({u"a", u"b"})},
      {Longs({4, 5}), u"::", u"::", Longs({4, 5})},
  };
  int i = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::PrintToString(row.value) + " written with '" + ToUtf8(row.write_delimiter) +
                 "', read with '" + ToUtf8(row.read_delimiter) + "'");
    const String name = u"v" + String(1, static_cast<char16_t>(u'a' + i++));
    store_->SetValue(name, row.value, row.write_delimiter);
    EXPECT_EQ(store_->GetValue(name, row.read_delimiter), row.expected);
  }
}

// GetValue's two switches: arrays split at the delimiter, numeric texts
// (and numeric elements) become numbers.
TEST_P(StoreContract, DetectionSwitchesDecideArraysAndNumbers) {
  struct Row { Variant stored; bool array, number; Variant expected; } rows[] = {
      {Longs({1, 2, 3}), true, true, Longs({1, 2, 3})}, {Longs({1, 2, 3}), false, true, Variant(u"1\t2\t3")},
      {Longs({1, 2, 3}), true, false, SafeArray::OfStrings({u"1", u"2", u"3"})},
      {Variant(u"007"), true, true, Variant(7)}, {Variant(u"007"), false, false, Variant(u"007")},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::PrintToString(r.stored) + (r.array ? " array" : "") + (r.number ? " number" : ""));
    store_->SetValue(u"f", r.stored);
    EXPECT_EQ(Call(Variant(object_), u"GetValue", {u"f", u"\t", r.array, r.number}), r.expected);
  }
}

TEST_P(StoreContract, MissingFieldsReadAsEmptyTextOrTheGivenDefault) {
  store_->SetValue(u"there", u"007");
  EXPECT_EQ(store_->GetValue(u"missing"), Variant(u""));
  EXPECT_EQ(store_->GetValue(u"there"), Variant(7));
  // By name on the store (or on its view, which answers as the store):
  // optional parameters take their defaults, named ones their place.
  for (const Variant& o : {Variant(object_), Variant(store_)}) {
    EXPECT_EQ(Call(o, u"GetValue", {u"missing", u"\t", true, true, 42}), Variant(42));
    EXPECT_EQ(Call(o, u"GetValue", {u"there", Named(u"bDetectNum", false)}), Variant(u"007"));
    EXPECT_EQ(Call(o, u"GetValue", {u"there"}), Variant(7));
  }
}

// Typed, the view offers the interface's members; by name, a view held in a
// Variant answers as the store: its own members, labels and errors, also
// where they differ from the interface's.
TEST_P(StoreContract, TheStoreAndItsViewAnswerForEachOther) {
  const String class_name = GetParam().class_name;
  Ref<Object> view = object_->QueryInterface(u"tarvostdinterface");  // any letter case
  EXPECT_EQ(view->QueryInterface(class_name), object_);
  EXPECT_EQ(view->QueryInterface(u"TarvoStdInterface"), view);
  EXPECT_EQ(object_->QueryInterface(class_name), object_);
  for (const char16_t* other : {u"KivStorageString", u"KivRegistryKey", u"KivINIFileHandler", u"Nothing"})
    EXPECT_EQ(!object_->QueryInterface(other), other != class_name) << ToUtf8(other);
  EXPECT_EQ(TypeName(Variant(view)), class_name);
  EXPECT_TRUE(SameObject(Variant(view), Variant(object_)));
  EXPECT_EQ(object_->GetIdOfName(u"value"), kDispIdValue);  // the default member
  EXPECT_EQ(store_->Version(), Variant(u"2.0"));
  EXPECT_EQ(Call(Variant(view), u"Version"), Variant(u"2.0"));

  const Variant by_name(view);
  EXPECT_EQ(GetProperty(by_name, GetParam().own_member), GetProperty(Variant(object_), GetParam().own_member));
  EXPECT_ERROR(Call(by_name, u"SetValue", {u" ", 1}), LibraryErrorNumber(ErrZeroLengthFieldName),
               u"Zero Length Feild Names Are Not Allowed", u"Tarvo2\r\n" + Label(u"SetValue"));
  if (const char16_t* lacks = GetParam().lacks) {
    store_->put_Section(u"S");
    EXPECT_ERROR(LetProperty(by_name, lacks, u"Other"), 438, StandardDescription(438), u"Tarvo2");
    EXPECT_EQ(store_->get_Section(), u"S");
  }
}

TEST_P(StoreContract, TheRaiseSwitchGovernsTheStoresOwnErrors) {
  const String chain = u"Tarvo2\r\n" + Label(u"SetValue") + u"\r\n" + Label(u"TarvoStdInterface_SetValue");
  store_->SetValue(u"kept", u"v");
  for (const char16_t* blank : {u"", u"   "}) {
    SCOPED_TRACE(ToUtf8(blank).size());
    EXPECT_ERROR(store_->SetValue(blank, u"v"), LibraryErrorNumber(ErrZeroLengthFieldName),
                 u"Zero Length Feild Names Are Not Allowed", chain);
  }
  EXPECT_EQ(store_->GetValue(u"kept"), Variant(u"v"));
  services_->set_raise_errors(false);
  EXPECT_NO_THROW(store_->SetValue(u"   ", u"v"));
  EXPECT_EQ(store_->GetValue(u"kept"), Variant(u"v"));
  // Another context's switch is its own.
  EXPECT_TRUE(Services::Default()->raise_errors());
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreContract, ::testing::ValuesIn(kKinds),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tarvo2
