// A key object: result codes and the errors they raise, how each type is
// stored and read back, value names, defaults, Value, deletion and listing;
// identity (RootKey, KeyName, Path, Section, refused paths), the view of a
// deleted key, two databases side by side, and a damaged database file
// (codes in ErrorState, no crash). How the store itself meets locked and
// read-only files is tested with the store.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>

#include "platform_temp_dir.h"
#include "registry_test_util.h"

namespace tarvo2 {
namespace {

using KeyTest = RegistryTest;

const String kWriteChain =
    Chain({u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.SetKeyValue", u"KivRegistryKey.SetValue"});
const String kNoName = u"Zero Length Feild Names Are Not Allowed";

TEST_F(KeyTest, StoreResultCodesAreRecordedAndTheTenKnownOnesRaise) {
  // {code, library error or 0: only recorded}
  const std::pair<std::int32_t, int> rows[] = {{1, ErrBadDb}, {2, ErrBadKey}, {3, ErrCantOpenKey}, {4, ErrCantReadKey},
      {5, ErrCantWriteKey}, {6, ErrOutOfMemory}, {7, ErrArenaTrashed}, {8, ErrAccessDenied}, {87, ErrInvalidParameters},
      {259, ErrNoMoreItems}, {14, 0}, {kErrorBadDatabase, 0}, {kErrorCantWrite, 0}};
  auto faults = InstallFaults();
  auto key = Key(u"Software\\Codes");
  for (const auto& [code, lib_code] : rows) {
    SCOPED_TRACE(code);
    faults->FailAllWrites(code);
    const std::int32_t lib = Lib(static_cast<LibraryErrorCode>(lib_code));
    if (lib_code != 0) EXPECT_ERROR(key->SetValue(u"v", Variant(1)), lib, LibraryErrorMessage(lib), kWriteChain);
    else EXPECT_TRUE(key->SetValue(u"v", Variant(1)));  // only recorded: SetValue returns true
    EXPECT_EQ(key->get_ErrorState(), code);
    services_->set_raise_errors(false);
    key->ErrorStateClear();
    EXPECT_TRUE(key->SetValue(u"v", Variant(1)));  // true: the write failed
    EXPECT_EQ(key->get_ErrorState(), code);
    services_->set_raise_errors(true);
  }
  faults->ClearFaults();
  EXPECT_FALSE(key->SetValue(u"v", Variant(1)));  // false: ErrorState is 0 again
}

TEST_F(KeyTest, ValuesAreStoredAsTextOrNativeIntegersOrNotAtAll) {
  using B = std::string;
  const std::tuple<Variant, std::uint32_t, std::string> rows[] = {  // type 0: not written
      {Variant(u""), kRegSz, B("\0", 1)}, {Variant(u"\u00e9\u20ac\u03a9"), kRegSz,
       Utf8Run() ? B("\xc3\xa9\xe2\x82\xac\xce\xa9\0", 8) : B("\xe9\x80?\0", 4)},
      {Variant(true), kRegDword, B("\xff\xff\xff\xff", 4)}, {Variant(short{-2}), kRegDword, B("\xfe\xff\xff\xff", 4)},
      {Variant(258), kRegDword, B("\x02\x01\0\0", 4)}, {Variant(3.0), kRegSz, B("3.0\0", 4)},
      {Variant(1e20), kRegSz, B("1.0E+20\0", 8)}, {Variant(-2.5e-7), kRegSz, B("-2.5E-07\0", 9)},
      {SafeArray::OfVariants({Variant(1), Variant(2.5), Variant(u"x")}), kRegSz, B("1\t2.5\tx\0", 8)},
      {Variant::Null(), 0, ""}, {Variant(1.5f), 0, ""}, {SafeArray::Of(VarType::kSingle, {Variant(1.0f)}), 0, ""}};
  auto key = Key(u"Software\\Enc");
  int i = 0;
  for (const auto& [value, type, bytes] : rows) {
    SCOPED_TRACE(::testing::PrintToString(value));
    std::string name = "v" + std::to_string(i++);
    EXPECT_FALSE(key->SetValue(FromAnsi(name), value));
    EXPECT_EQ(Raw("Software\\Enc", name), std::make_pair(type ? type : 0xFFFFu, bytes));
    if (value.IsDouble()) { EXPECT_EQ(key->GetValue(FromAnsi(name)), value); }  // reads back as the same Double
  }
  EXPECT_ERROR(key->SetValue(u"inf", Variant(std::numeric_limits<double>::infinity())),
               Lib(ErrInvalidParameters), u"Invalid Parameters", kWriteChain);
  EXPECT_EQ(Raw("Software\\Enc", "inf").first, 0xFFFFu);
  // Other stored types read as Empty with -1; a number of more than four bytes is refused.
  for (auto [name, type, data] : {std::tuple("bin", kRegBinary, "ab"), std::tuple("long", kRegDword, "12345678")})
    services_->registry_store()->SetValueAt(kHKeyCurrentUser, "Software\\Enc", name, type,
                                   reinterpret_cast<const std::uint8_t*>(data), std::strlen(data));
  EXPECT_EQ(key->GetValue(u"bin", u"\t", true, true, Variant(u"d")), Variant(u"d"));
  EXPECT_EQ(key->get_ErrorState(), -1);
  EXPECT_TRUE(key->GetValue(u"long").IsMissing());
  EXPECT_EQ(key->get_ErrorState(), 234);
  String big(1 << 20, u'x');  // read whole; the listing stops at it with 234
  EXPECT_FALSE(key->SetValue(u"big", Variant(big)));
  EXPECT_EQ(key->GetValue(u"big"), Variant(big));
  EXPECT_EQ(key->GetValueNames().Count(), 11u);  // the nine written, "bin" and "long"
  EXPECT_EQ(key->get_ErrorState(), 234);
}

TEST_F(KeyTest, NamesAreTrimmedListedInCreationOrderAndRefusedWhenTheCodePageCannotCarryThem) {
  auto key = Key(u"Software\\Names");
  EXPECT_FALSE(key->SetValue(u" word ", Variant(u"x")));  // listed below as "word"
  // Names the code page cannot carry: a NUL under both, Greek and an emoji
  // under 1252, a lone surrogate under 65001.
  const std::vector<String> refused = Utf8Run() ? std::vector<String>{String(u"a\0b", 3), String(u"x\xD800y")}
      : std::vector<String>{String(u"a\0b", 3), String(u"\u03a9mega"), String(u"x\U0001F600")};
  for (const String& name : refused) {
    SCOPED_TRACE(ToUtf8(name));
    EXPECT_ERROR(key->SetValue(name, Variant(u"v")), Lib(ErrInvalidParameters), u"Invalid Parameters",
                 kWriteChain);
    EXPECT_ERROR_NUMBER(key->GetValue(name), Lib(ErrInvalidParameters));
    EXPECT_ERROR_NUMBER(KivRegistryKey::Create(services_)->put_KeyName(u"S\\" + name), Lib(ErrInvalidParameters));
  }
  EXPECT_FALSE(key->SetValue(u"tab\there\nline", Variant(u"ok")));  // control characters are ordinary
  services_->registry_store()->SetValueAt(kHKeyCurrentUser, "Software\\Names", "  ", kRegSz,
                                 reinterpret_cast<const std::uint8_t*>("b"), 2);
  services_->set_raise_errors(false);  // a blank name then writes the default value
  EXPECT_FALSE(key->SetValue(u"  ", Variant(u"y")));
  EXPECT_EQ(Raw("Software\\Names", "").second, std::string("y\0", 2));
  SafeArray names = key->GetValueNames();  // neither the default value nor a name of blanks
  EXPECT_EQ(names, SafeArray::OfStrings({u"word", u"tab\there\nline"}));
  EXPECT_EQ(names.LBound(), 0);
  services_->registry_store()->DeleteKey(kHKeyCurrentUser, "Software\\Names");  // cannot be opened: none, no code
  EXPECT_EQ(key->GetValueNames().Count(), 0u);
  EXPECT_EQ(key->get_ErrorState(), 0);
}

// Code page 65001: non-Latin names and values round-trip, names match under
// Unicode simple case folding, and the store keeps characters, so what one
// code page wrote the other reads as the same characters ('?' where 1252
// has no byte), as Windows does with its UTF-16 registry.
TEST_F(KeyTest, NonLatinNamesValuesAndCaseFoldingUnderCodePage65001) {
  ScopedCodePage utf8(*services_, kCodePageUtf8);
  auto key = Key(u"Software\\Caf\u00e9\\\u65e5\u672c\u8a9e");
  struct Row { String name, value, same_name; std::string bytes; };
  const Row rows[] = {
      {u"Caf\u00e9", u"Caf\u00e9", u"CAF\u00c9", "Caf\xC3\xA9"},
      {u"\u65e5\u672c\u8a9e", u"\u65e5\u672c\u8a9e", u"\u65e5\u672c\u8a9e", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"},
      {u"x\U0001F600", u"\U0001F600", u"X\U0001F600", "\xF0\x9F\x98\x80"},
      {u"\u00c4pfel", u"\u00e4", u"\u00e4PFEL", "\xC3\xA4"},
      {u"\u03a3\u0391\u03a3", u"lone \xD800", u"\u03c3\u03b1\u03c2", "lone \xEF\xBF\xBD"},  // final sigma folds to sigma
      {u"Stra\u00dfe", u"\u00df", u"STRA\u1e9eE", "\xC3\x9F"},                           // capital sharp s
      {u"STRASSE", u"ss", u"strasse", "ss"},                                              // but not "ss"
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.name));
    EXPECT_FALSE(key->SetValue(r.name, Variant(r.value)));
    EXPECT_EQ(key->GetValue(r.same_name), Variant(r.value.find(u'\xD800') == String::npos ? r.value : u"lone \uFFFD"));
    EXPECT_EQ(Raw("Software\\Caf\xC3\xA9\\\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", ToUtf8(r.name)),
              std::make_pair(kRegSz, r.bytes + std::string(1, '\0')));
  }
  const std::vector<String> names = {u"Caf\u00e9", u"\u65e5\u672c\u8a9e", u"x\U0001F600", u"\u00c4pfel",
                                     u"\u03a3\u0391\u03a3", u"Stra\u00dfe", u"STRASSE"};
  EXPECT_EQ(key->GetValueNames(), SafeArray::OfStrings(names));
  auto parent = Key(u"Software\\caf\u00c9");
  EXPECT_EQ(parent->get_SubKeys()->get_Count(), 1);
  EXPECT_EQ(parent->get_SubKeys()->get_Item(Variant(1))->get_KeyName(), u"Software\\caf\u00c9\\\u65e5\u672c\u8a9e");
  EXPECT_FALSE(parent->SetValue(u"Caf\u00e9", Variant(u"\u65e5 Caf\u00e9 \U0001F600")));
  {
    ScopedCodePage ansi(*services_, kCodePage1252);  // the same store read under 1252
    EXPECT_EQ(parent->GetValue(u"CAF\u00c9"), Variant(u"? Caf\u00e9 ??"));  // one '?' per UTF-16 unit
    RegKey h = 0;
    ASSERT_EQ(services_->registry_store()->OpenKey(kHKeyCurrentUser, "Software\\Caf\xE9", kKeyRead, &h), 0);
    char name[16] = {};
    EXPECT_EQ(services_->registry_store()->EnumKey(h, 0, name, sizeof name), 0);
    EXPECT_STREQ(name, "???");
    services_->registry_store()->CloseKey(h);
    auto zoe = Key(u"Software\\Zo\u00eb");
    EXPECT_FALSE(zoe->SetValue(u"Zo\u00eb", Variant(u"Zo\u00eb \u20ac")));
    EXPECT_EQ(Raw("Software\\Zo\xEB", "Zo\xEB").second, std::string("Zo\xEB \x80\0", 6));
  }
  auto zoe = Key(u"Software\\ZO\u00cb");
  EXPECT_EQ(zoe->GetValue(u"zo\u00cb"), Variant(u"Zo\u00eb \u20ac"));
  EXPECT_EQ(Raw("Software\\Zo\xC3\xAB", "Zo\xC3\xAB").second, "Zo\xC3\xAB \xE2\x82\xAC" + std::string(1, '\0'));
}

TEST_F(KeyTest, DefaultsStandForMissingValuesAndValueWritesUnderTheRememberedName) {
  auto key = Key(u"Software\\Value");
  key->SetValue(u"n", Variant(true));
  EXPECT_EQ(key->GetValue(u"n"), Variant(std::int32_t{-1}));  // a number reads as a Long
  Variant comma(u",");
  key->SetValue(u"List", SafeArray::OfStrings({u"a"}), comma);  // by-reference delimiter
  EXPECT_EQ(key->GetValue(u"nope", u"\t", true, true, Variant(42)), Variant(42));
  EXPECT_EQ(key->get_ErrorState(), 2);
  EXPECT_ERROR(key->GetValue(u"nope"), Lib(ErrBadKey), u"Bad Key",
               Chain({u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.QueryValueEx",
                      u"KivRegistryKey.QueryValue", u"KivRegistryKey.GetValue"}));
  key->put_Value(SafeArray::OfStrings({u"b", u"c"}));  // the missing reads left name and delimiter alone
  EXPECT_EQ(Raw("Software\\Value", "List").second, std::string("b,c\0", 4));
  EXPECT_EQ(key->get_Value(), Variant(SafeArray::OfStrings({u"b", u"c"})));
  EXPECT_TRUE(key->DeleteValue(u"LIST").IsEmpty());
  EXPECT_EQ(Raw("Software\\Value", "List").first, 0xFFFFu);
  EXPECT_ERROR(key->put_Value(Variant(u"x")), Lib(ErrZeroLengthFieldName), kNoName,
               Chain({u"KivRegistryKey.SetValue", u"KivRegistryKey.Import (Let)"}));
  EXPECT_ERROR(key->DeleteValue(u"List"), Lib(ErrBadKey), u"Bad Key",
               Chain({u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.DeleteValue"}));
  services_->set_raise_errors(false);
  EXPECT_TRUE(key->GetValue(u"nope").IsMissing());
}

TEST_F(KeyTest, IdentityIsAssignedOncePathNamesTheRootAndTheKeyAndSectionMovesBelowIt) {
  auto once = KivRegistryKey::Create(services_);
  for (const char16_t* name : {u"", u" Software\\First ", u"Software\\Second"}) once->put_KeyName(name);
  for (auto root : {tarvo_HKEY_LOCAL_MACHINE, tarvo_HKEY_USERS}) once->put_RootKey(root);  // does not move the key
  EXPECT_EQ(once->StdInterface()->get_Path(), u"HKEY_LOCAL_MACHINE\\ Software\\First ");
  EXPECT_TRUE(KeyExists(" Software\\First ") && !KeyExists("Software\\Second"));
  const std::tuple<const char16_t*, RegRootKeyEnum, const char16_t*> rows[] = {
      {u"HKEY_LOCAL_MACHINE/Software/App", HKEY_LOCAL_MACHINE, u"Software/App"},
      {u"hkey_local_machine\\Software", HKEY_CURRENT_USER, u"hkey_local_machine\\Software"},
      {u"HKEY_CLASSES_ROOT|.ext|Shell", HKEY_CLASSES_ROOT, u".ext|Shell"},
      {u"Software\\Ver1.5", HKEY_CURRENT_USER, u"Software\\Ver1"},
      {u"Software\\Ver1.50000", HKEY_CURRENT_USER, u"Software\\Ver1.50000"}};
  for (const auto& [path, root, key_name] : rows) {
    SCOPED_TRACE(ToUtf8(path));
    auto key = KivRegistryKey::Create(services_);
    key->StdInterface()->put_Path(path);
    EXPECT_EQ(key->StdInterface()->get_Path(), RootKeyName(root) + u"\\" + key_name);
    EXPECT_TRUE(KeyExists(ToAnsi(key_name), static_cast<RegKey>(root)));
    key->StdInterface()->put_Path(u"HKEY_USERS\\Other");  // a path is given once
    EXPECT_EQ(key->get_KeyName(), key_name);
  }
  auto key = Key(u"Software\\Base");
  auto si = key->StdInterface();
  for (const char16_t* section : {u"  ", u"A", u"Bee", u"", u"C"}) {  // blank, append, replace, base, append
    SCOPED_TRACE(ToUtf8(section));
    si->put_Section(section);
    String expected = *section == u' ' ? u"" : section;
    EXPECT_EQ(si->get_Section(), expected);
    EXPECT_EQ(key->get_KeyName(), expected.empty() ? String(u"Software\\Base") : u"Software\\Base\\" + expected);
  }
  key->put_KeyName(u"Elsewhere");  // the base stays write-once
  si->SetValue(u"v", Variant(u"in C"));
  EXPECT_EQ(Raw("Software\\Base\\C", "v").second, std::string("in C\0", 5));
}

TEST_F(KeyTest, KeyPathsTheStoreRefusesAreRecorded) {
  // A refused key name that raised is not taken, so a later write writes
  // nothing; one only recorded is taken, and the write fails on the null
  // handle of the failed open (6).
  const std::tuple<String, std::int32_t, bool, std::int32_t> rows[] = {
      {u"Software\\" + String(256, u'n'), 87, false, 0}, {u"\\Software", 161, true, 6}};
  for (const auto& [path, code, write_fails, write_code] : rows) {
    SCOPED_TRACE(code);
    auto key = KivRegistryKey::Create(services_);
    if (code != 87) key->put_KeyName(path);
    else EXPECT_ERROR(key->put_KeyName(path), Lib(ErrInvalidParameters), u"Invalid Parameters",
                      Chain({u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.CreateNewKey",
                             u"KivRegistryKey.KeyName (Let)"}));
    EXPECT_EQ(key->get_ErrorState(), code);
    EXPECT_FALSE(KeyExists("Software"));
    services_->set_raise_errors(false);
    EXPECT_EQ(key->SetValue(u"v", Variant(1)), write_fails);
    EXPECT_EQ(key->get_ErrorState(), write_code);
    services_->set_raise_errors(true);
  }
}

TEST_F(KeyTest, ValueImportsAViewAndTheViewOfADeletedKeyFails) {
  auto key = Key(u"Software\\Std");
  auto source = Key(u"Software\\Source");
  EXPECT_FALSE(source->StdInterface()->SetValue(u"list", SafeArray::OfStrings({u"1", u"2"})));
  key->put_Value(Variant(source->StdInterface()));  // a view is imported as the store itself
  EXPECT_EQ(key->StdInterface()->GetValue(u"list"), Variant(SafeArray::Of(VarType::kLong, {Variant(1), Variant(2)})));
  auto si = key->StdInterface();
  key->DeleteKey();
  EXPECT_INVALIDATED(si->get_Path(), u"KivRegistryKey.RootKey (Get)", u"KivRegistryKey.Path (Get)",
                     u"KivRegistryKey.TarvoStdInterface_Path (Get)");
  EXPECT_INVALIDATED(si->put_Section(u"S"), u"KivRegistryKey.KeyName (Get)", u"KivRegistryKey.Section (Let)",
                     u"KivRegistryKey.TarvoStdInterface_Section (Let)");
  EXPECT_EQ(si->Version(), Variant(u"2.0"));  // no state check
}

class StoreFilesTest : public RegistryTest {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.path().empty());
    services_->set_registry_location(path_);
    Key(u"Software\\Kept")->SetValue(u"v", Variant(u"stored"));
    services_->set_registry_location(":memory:");
  }
  testing::PlatformTempDir dir_;
  const std::string path_ = dir_ / "registry.sqlite3";
};

// Two contexts with a registry database each, side by side in one process:
// a key of one is imported into a key of the other through the importers.
TEST_F(StoreFilesTest, TwoContextsWithTwoDatabasesImportSideBySide) {
  services_->set_registry_location(path_);
  auto source = Key(u"Software\\Src");
  source->SetValue(u"text", Variant(u"x y"));
  source->SetValue(u"number", Variant(5));
  source->SetValue(u"list", SafeArray::OfStrings({u"1", u"2"}));
  source->get_SubKeys()->Add(u"Child")->SetValue(u"c", Variant(u"1"));
  auto other = Services::New();
  const std::string b = dir_ / "other.sqlite3";
  other->set_registry_location(b);
  auto target = KivRegistryKey::Create(other);
  target->put_KeyName(u"Software\\Dst");
  target->put_Value(Variant(source));
  EXPECT_EQ(target->get_ErrorState(), 0);

  // The values as each database holds them.
  auto raw = [&](const std::string& db, const char* key, const char* name) {
    return Raw(key, name, OpenSqliteRegistryStore(db).get());
  };
  using Held = std::pair<std::uint32_t, std::string>;
  EXPECT_EQ(raw(b, "Software\\Dst", "text"), (Held{kRegSz, std::string("x y\0", 4)}));
  EXPECT_EQ(raw(b, "Software\\Dst", "number"), (Held{kRegDword, std::string("\5\0\0\0", 4)}));
  EXPECT_EQ(raw(b, "Software\\Dst", "list"), (Held{kRegSz, std::string("1\t2\0", 4)}));
  EXPECT_EQ(raw(b, "Software\\Dst\\Child", "c").first, 0xFFFFu);  // a key's import copies its values only
  EXPECT_EQ(raw(b, "Software\\Src", "text").first, 0xFFFFu);
  // The source database is unchanged.
  EXPECT_EQ(raw(path_, "Software\\Dst", "text").first, 0xFFFFu);
  EXPECT_EQ(raw(path_, "Software\\Src", "text"), (Held{kRegSz, std::string("x y\0", 4)}));
  EXPECT_EQ(raw(path_, "Software\\Src\\Child", "c"), (Held{kRegSz, std::string("1\0", 2)}));
  EXPECT_EQ(raw(path_, "Software\\Kept", "v"), (Held{kRegSz, std::string("stored\0", 7)}));
  target.reset();
  EXPECT_EQ(other.use_count(), 1);
}

TEST_F(StoreFilesTest, DamagedFileRecordsBadDatabase) {
  std::ofstream(path_, std::ios::binary | std::ios::trunc) << std::string(4096, 'x');
  services_->set_registry_location(path_);
  auto key = Key(u"Software\\Kept");
  EXPECT_TRUE(key->SetValue(u"v", Variant(u"new")));
  EXPECT_EQ(key->get_ErrorState(), 1009);
  EXPECT_EQ(key->GetValue(u"v", u"\t", true, true, Variant(u"d")), Variant(u"d"));
  EXPECT_EQ(key->GetValueNames().Count(), 0u);
  EXPECT_EQ(key->get_SubKeys()->get_Count(), 0);
}

}  // namespace
}  // namespace tarvo2
