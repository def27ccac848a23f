// KivINIFileHandler and its access layer: conversions and reads through one buffer,
// values and arrays, sections and listings, deletes, bad input, the common
// interface's paths, the import hook and calls by name.
#include "tarvo2/ini_file.h"

#include <sys/stat.h>

#include "ini/ini_access.h"
#include "platform_temp_dir.h"
#include "tarvo2/services.h"
#include "tarvo2/testing/file_system.h"
#include "tarvo2/import.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/profile_store.h"
#include "tarvo2/random.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

constexpr char kFile[] = "/d/t.ini";
constexpr int32_t kZeroLength = LibraryErrorNumber(ErrZeroLengthFieldName);
constexpr int32_t kIllegal = LibraryErrorNumber(ErrIllegalCharacters);
SafeArray Strings(std::vector<String> items) { return SafeArray::OfStrings(std::move(items)); }
SafeArray Longs(std::vector<Variant> items) { return SafeArray::Of(VarType::kLong, std::move(items)); }

struct FailingStore : ProfileStore {
  uint32_t GetPrivateProfileString(const char*, const char*, const char*, char*, uint32_t,
                                   const std::string&) override {
    throw Error(7, u"Store", u"Out of memory");
  }
  bool WritePrivateProfileString(const char*, const char*, const char*, const std::string&) override {
    return GetPrivateProfileString(nullptr, nullptr, nullptr, nullptr, 0, "");
  }
};

class IniFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    services_->set_random(NewFixedRandomService(7));
    for (const char* dir : {"/d", "/d/x.d", "/app", "/app/bin", "/app/bin/sub"})
      ASSERT_TRUE(fs_->CreateDir(dir).ok());
    ini_->put_Path(u"/d/t.ini");
  }
  void Put(const std::string& content) { ASSERT_TRUE(fs_->WriteFile(kFile, content, false).ok()); }
  std::string Content(const char* file = kFile) {
    std::string s = "<none>";
    fs_->ReadFile(file, &s);
    return s;
  }
  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  // A context of the test's own, on the in-memory file system.
  std::shared_ptr<Services> services_ = [&] {
    auto s = Services::New();
    s->set_file_system(fs_);
    return s;
  }();
  Ref<KivINIFileHandler> ini_ = KivINIFileHandler::Create(services_);
};

TEST_F(IniFileTest, AccessLayerWritesCodePageTextToUtf8PathsAndLabelsStoreErrors) {
  const String path = u"/d/\u00e9t\u00e9.ini", s = u"S\u00e9c", k = u"k\u20ac";
  ini::INISetValue(*services_, path, s, k, u"\u00fc\u65e5");
  EXPECT_EQ(Content("/d/\xc3\xa9t\xc3\xa9.ini"), Utf8Run() ? "[S\xc3\xa9" "c]\nk\xe2\x82\xac=\xc3\xbc\xe6\x97\xa5\n"
                                                    : "[S\xe9" "c]\nk\x80=\xfc?\n");
  EXPECT_EQ(ini::INIGetValue(*services_, path, s, k, u""), Utf8Run() ? u"\u00fc\u65e5" : u"\u00fc?");
  EXPECT_EQ(ini::INIGetSections(*services_, path), s + String(1, u'\0'));
  EXPECT_EQ(ini::INIGetValue(*services_, path, s, u"none", u"d\u00e9  "), u"d\u00e9");
  // Name lists: only spaces is none; otherwise the last character goes
  // (the list's own NUL, or a cut name's last) and NULs split.
  using namespace std::string_literals;
  const std::pair<String, std::vector<String>> lists[] = {
      {u"", {}}, {u"   ", {}}, {u"\0"s, {u""}}, {u"A\0BC\0"s, {u"A", u"BC"}}, {u" A\0Bc"s, {u" A", u"B"}}};
  for (const auto& [list, names] : lists) EXPECT_EQ(ini::DecodeNameList(list), names) << ToUtf8(list);
  services_->set_profile_store(std::make_shared<FailingStore>());
  EXPECT_ERROR(ini_->GetFieldNames(), 7, u"Out of memory",
               u"Store\r\nKivINIFileHandler.INIGetFields\r\nKivINIFileHandler.GetFieldNames");
}

// A name of `len` characters: 'a's ending in `last`, so that a cut shows.
String Name(size_t len, char16_t last) {
  String n(len, u'a');
  if (len > 0) n.back() = last;
  return n;
}

// Every read takes one buffer of 1,024 characters: values come back cut to
// 1,023 and lists to 1,022, whose last name then loses one more character
// in decoding. Checked by name through GetValue, Value, GetSectionNames and
// GetFieldNames; the file keeps every whole value.
TEST_F(IniFileTest, ReadsTakeOneBufferOf1024Characters) {
  Variant ini(ini_);
  for (size_t len : {1022, 1023, 1024, 5000}) {
    SCOPED_TRACE(len);
    const String value = Name(len, u'\u00ff');  // the last character is cut first
    Call(ini, u"SetValue", {u"k", value});
    // Under 65001 the last character takes two bytes, and a cut that would
    // split it ends before it.
    const size_t kept = !Utf8Run() ? 1023 : len + 1 <= 1023 ? len : std::min<size_t>(len - 1, 1023);
    const Variant expected(value.substr(0, kept));
    EXPECT_EQ(Call(ini, u"GetValue", {u"k"}), expected);
    EXPECT_EQ(GetProperty(ini, u"Value"), expected);
    EXPECT_EQ(Content(), "[DEFAULT]\nk=" + (Utf8Run() ? ToUtf8(value) : ToAnsi(value)) + "\n");
  }
  // Name lengths written, and the lengths read back; a read name shorter
  // than the written one is its start.
  struct Row { std::vector<size_t> written, read; } rows[] = {
      {{1021}, {1021}},         // 1,022 characters with its NUL: fits
      {{1022}, {1021}},         // 1,023: cut to 1,022 without a NUL, then one more
      {{500, 520}, {500, 520}},  // two names that just fit
      {{500, 521}, {500, 520}},  // one character more: the last name is cut twice
      {{500, 2000}, {500, 520}},
      {{1500, 3}, {1021}},      // the first name alone overflows: the second is lost
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::PrintToString(r.written));
    // One file whose sections have these names, one whose section "K" has
    // keys of these names.
    Variant by_section(KivINIFileHandler::Create(services_)), by_key(KivINIFileHandler::Create(services_));
    LetProperty(by_section, u"Path", u"/d/sections.ini");
    LetProperty(by_key, u"Path", u"/d/keys.ini");
    Call(by_section, u"DeleteFile");
    Call(by_key, u"DeleteFile");
    LetProperty(by_key, u"Section", u"K");
    std::vector<String> sections, keys;
    for (size_t i = 0; i < r.written.size(); ++i) {
      sections.push_back(Name(r.written[i], u'0' + i));
      keys.push_back(Name(r.written[i], u'A' + i));
      LetProperty(by_section, u"Section", sections.back());
      Call(by_section, u"SetValue", {u"v", 1});
      Call(by_key, u"SetValue", {keys.back(), 1});
    }
    sections.resize(r.read.size());
    keys.resize(r.read.size());
    for (size_t i = 0; i < r.read.size(); ++i) {
      sections[i].resize(r.read[i]);
      keys[i].resize(r.read[i]);
    }
    EXPECT_EQ(Call(by_section, u"GetSectionNames"), Variant(Strings(sections)));
    EXPECT_EQ(Call(by_key, u"GetFieldNames"), Variant(Strings(keys)));
  }
}

TEST_F(IniFileTest, ValuesAndArraysRoundTripWithDetectionFlagsAndDefaults) {
  auto doubles = SafeArray::Of(VarType::kDouble, {1.5, 2.0});
  struct Row { Variant value; String delimiter; std::string line; Variant back; };
  const Row rows[] = {
      {u"Red", u"\t", "Red", u"Red"}, {12, u"\t", "12", 12}, {12.5, u"\t", "12.5", 12.5},
      {true, u"\t", "True", u"True"}, {Variant(), u"\t", "", u""}, {u"1.2.3", u"\t", "1.2.3", u"1.2.3"},
      {Strings({u"a", u"b"}), u",", "a,b", Strings({u"a", u"b"})},
      {Longs({1, 2, 3}), u"\t", "1\t2\t3", Longs({1, 2, 3})}, {doubles, u"\t", "1.5\t2", doubles},
      {SafeArray::OfVariants({1, u"x"}), u";", "1;x", Strings({u"1", u"x"})},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line);
    EXPECT_FALSE(ini_->SetValue(u"  k ", row.value, row.delimiter));
    EXPECT_EQ(Content(), "[DEFAULT]\nk=" + row.line + "\n");
    EXPECT_EQ(ini_->GetValue(u"k", row.delimiter), row.back);
  }
  Put("[DEFAULT]\nblank=\nbig=99999999999\n");
  ini_->GetValue(u"missing", u"\t", true, true, 42);
  EXPECT_ERROR_NUMBER(ini_->GetValue(u"big"), 6);  // overflows a Long; nothing remembered
  EXPECT_EQ(ini_->get_Value(), Variant(42));
  EXPECT_EQ(ini_->GetValue(u"blank", u"\t", true, true, 42), Variant(u""));
  // The marker default for a missing key is the one stored text that reads as absent.
  auto random = NewFixedRandomService(7);
  random->Randomize();
  Variant marker = u"KivDefaultReturn_" + ToString(Variant(random->NextSingle()));
  ini_->SetValue(u"m", marker);
  EXPECT_EQ(ini_->GetValue(u"m", u"\t", true, true, u"absent"), Variant(u"absent"));
  services_->set_random(NewClockRandomService());
  EXPECT_EQ(ini_->GetValue(u"m"), marker);
}

TEST_F(IniFileTest, SectionsListingsAndDeletes) {
  ini_->put_Section(u"  \tColours ");
  EXPECT_ERROR(ini_->put_Section(u" a[b"), kIllegal, u"Illegal Character(s) Passed",
               u"Tarvo2\r\nKivINIFileHandler.Section (Let)");
  EXPECT_EQ(ini_->get_Section(), u"\tColours");
  ini_->put_Section(u"   ");
  EXPECT_EQ(ini_->get_Section(), u"DEFAULT");
  Put("[S]\n;note\nk=1\nno equals\nj=2\n[T]\nx=1\n[s]\ny=1\n");
  EXPECT_EQ(ini_->GetSectionNames(), Strings({u"S", u"T", u"s"}));
  ini_->put_Section(u"s");  // the first section of a name, any case
  EXPECT_EQ(ini_->GetFieldNames(), Strings({u"k", u"j"}));
  ini_->GetValue(u"k");
  ini_->DeleteField(u"j");
  ini_->put_Value(6);  // "k" is still remembered; deleting it forgets it
  ini_->DeleteField(u"K");
  EXPECT_ERROR_NUMBER(ini_->put_Value(5), kZeroLength);
  EXPECT_EQ(Content(), "[S]\n;note\nno equals\n[T]\nx=1\n[s]\ny=1\n");
  ini_->GetValue(u"x");
  ini_->put_Section(u"T");
  ini_->DeleteSection();  // selects DEFAULT
  EXPECT_ERROR_NUMBER(ini_->put_Value(7), kZeroLength);
  auto wildcard = KivINIFileHandler::Create(services_);  // not expanded: nothing is removed
  wildcard->put_Path(u"/d/*.ini");
  wildcard->DeleteFile();
  EXPECT_EQ(Content(), "[S]\n;note\nno equals\n[s]\ny=1\n");
  ini_->DeleteFile();
  EXPECT_EQ(Content(), "<none>");
  ini_->DeleteFile();  // no file: discarded
  ini_->put_Path(u"/d/other.ini");  // ignored: the path stays fixed
  ini_->SetValue(u"k", 1);
  EXPECT_EQ(Content(), "[DEFAULT]\nk=1\n");
  services_->set_raise_errors(false);  // the bracket is taken; the empty name goes to the store, refused
  ini_->put_Section(u" ]x ");
  EXPECT_EQ(ini_->get_Section(), u"]x");
  EXPECT_FALSE(ini_->SetValue(u" ", 5));
  EXPECT_EQ(ini_->LastProfileError(), kProfileInvalidParameter);
}

TEST_F(IniFileTest, OddFilesAreEditedInPlaceAndRefusedWritesChangeNothing) {
  const std::string mb(1 << 20, 'm');
  struct Row { std::string before; Variant k; String added; std::string after; };
  const Row rows[] = {
      Utf8Run() ? Row{"[S]\nk=\xff\x81\x90\n", u"\uFFFD\uFFFD\uFFFD", u"\u00e9", "[S]\nk=\xff\x81\x90\nj=\xc3\xa9\n"}
                : Row{"[S]\nk=\xff\x81\x90\n", u"\u00ff\u0081\u0090", u"\u00e9", "[S]\nk=\xff\x81\x90\nj=\xe9\n"},
      {"\xEF\xBB\xBF[S]\nk=\xc3\xa9\n", u"\u00e9", u"\u00fc", "\xEF\xBB\xBF[S]\nk=\xc3\xa9\nj=\xc3\xbc\n"},
      {"[S]\nk=" + mb + "\n", FromAnsi(mb.substr(0, 1023)), u"2", "[S]\nk=" + mb + "\nj=2\n"},  // read cut, kept whole
  };
  ini_->put_Section(u"S");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.before.substr(0, 10));
    Put(row.before);
    EXPECT_EQ(ini_->GetValue(u"k"), row.k);
    ini_->SetValue(u"j", row.added);
    EXPECT_EQ(Content(), row.after);
  }
  // Refused writes leave the file alone; a file deleted between calls reads as missing.
  const String nul(1, u'\0');
  Put("[S]\nk=1\n");
  ini_->SetValue(u"k", u"a\nb");
  EXPECT_EQ(ini_->LastProfileError(), kProfileInvalidParameter);
  ini_->SetValue(u"k", u"2" + nul);
  for (const String& name : {String(u"a=b"), u"k" + nul + u"x"}) ini_->SetValue(name, 2);
  ini_->DeleteField(u"k" + nul);
  EXPECT_EQ(Content(), "[S]\nk=1\n");
  ASSERT_TRUE(fs_->DeleteFile(kFile).ok());
  EXPECT_EQ(ini_->GetValue(u"k", u"\t", true, true, u"none"), Variant(u"none"));
  EXPECT_EQ(ini_->GetFieldNames(), Strings({}));
  ini_->SetValue(u"j", 2);
  EXPECT_EQ(Content(), "[S]\nj=2\n");
}

// Code page 65001: non-Latin names and values, names matched under Unicode
// simple case folding, invalid UTF-8 in files, cuts inside multi-byte
// characters, and files written under the other code page (what Windows
// gives for the same bytes).
TEST_F(IniFileTest, NonLatinTextCaseFoldingBadBytesAndCutsUnderCodePage65001) {
  ScopedCodePage utf8(*services_, kCodePageUtf8);
  struct Row { const char* what; std::string before; String section, key; Variant value; std::string after; };
  const Row rows[] = {
      {"round trip", "", u"Caf\u00e9", u"\u65e5\u672c\u8a9e", u"\U0001F600 Caf\u00e9",
       "[Caf\xC3\xA9]\n\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E=\xF0\x9F\x98\x80 Caf\xC3\xA9\n"},
      {"A umlaut", "[\xC3\x84]\nk=1\n", u"\u00e4", u"K", u"1", "[\xC3\x84]\nk=1\n"},
      {"sigmas", "[\xCE\xA3]\n\xCF\x82=1\n", u"\u03c3", u"\u03a3", u"1", "[\xCE\xA3]\n\xCF\x82=1\n"},
      {"sharp s", "[S]\n\xC3\x9F=1\n", u"S", u"\u1e9e", u"1", "[S]\n\xC3\x9F=1\n"},
      {"not ss", "[S]\nss=1\n", u"S", u"\u00df", u"d", "[S]\nss=1\n"},
      {"1252 bytes", "[S]\nk=Caf\xE9\n", u"S", u"k", u"Caf\uFFFD", "[S]\nk=Caf\xE9\n"},
      {"cut sequence", "[S]\nk=\xE6\x97 \xF0\x9F\x98\n", u"S", u"k", u"\uFFFD\uFFFD \uFFFD\uFFFD\uFFFD",
       "[S]\nk=\xE6\x97 \xF0\x9F\x98\n"},
      {"bom file", "\xEF\xBB\xBF[S]\nk=\xC3\xA9\n", u"s", u"K", u"\u00e9", "\xEF\xBB\xBF[S]\nk=\xC3\xA9\n"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    fs_->DeleteFile(kFile);
    if (!r.before.empty()) Put(r.before);
    ini_->put_Section(r.section);
    if (r.before.empty()) ini_->SetValue(r.key, r.value);
    EXPECT_EQ(ini_->GetValue(r.key, u"\t", false, false, u"d"), r.value);
    EXPECT_EQ(Content(), r.after);
  }
  ASSERT_TRUE(fs_->DeleteFile(kFile).ok());
  ini_->put_Section(u"S");
  ini_->SetValue(u"k", String(u"a\xDC00", 2));  // a lone surrogate
  EXPECT_EQ(Content(), "[S]\nk=a\xEF\xBF\xBD\n");
  EXPECT_EQ(ini_->GetValue(u"k"), Variant(u"a\uFFFD"));
  // Cuts at 1,023 bytes (1,022 for lists) never split a character: a value
  // ends before the character that would not fit; a list's last name too,
  // and decoding drops one more whole character.
  const std::pair<String, String> cuts[] = {
      {String(1021, u'a') + u"\u00e9\u00e9", String(1021, u'a') + u"\u00e9"},  // 1,025 bytes: the second cut whole
      {String(1022, u'a') + u"\u00e9", String(1022, u'a')},                     // 1,024: the last one cut whole
      {String(1020, u'a') + u"\U0001F600", String(1020, u'a')},                 // 1,024: the emoji cut whole
      {String(1019, u'a') + u"\U0001F600", String(1019, u'a') + u"\U0001F600"}, // 1,023: fits
  };
  ini_->put_Section(u"C");
  for (const auto& [value, read] : cuts) {
    SCOPED_TRACE(value.size());
    ini_->SetValue(u"k", value);
    EXPECT_EQ(ini_->GetValue(u"k"), Variant(read));
  }
  Variant keys(KivINIFileHandler::Create(services_));
  LetProperty(keys, u"Path", u"/d/keys.ini");
  LetProperty(keys, u"Section", u"K");
  Call(keys, u"SetValue", {String(1018, u'a') + u"\u65e5\u672c", 1});  // 1,024 bytes: cut before the second
  EXPECT_EQ(Call(keys, u"GetFieldNames"), Variant(Strings({String(1018, u'a')})));
  // A file written under 65001 and read under 1252, and back: a second
  // context on the same files, in the other code page, at the same time.
  Put("[S]\nk=Caf\xC3\xA9\n");
  ini_->put_Section(u"S");
  auto ansi_services = Services::New();
  ansi_services->set_file_system(fs_);
  ansi_services->set_code_page(kCodePage1252);
  auto ansi = KivINIFileHandler::Create(ansi_services);
  ansi->put_Path(u"/d/t.ini");
  ansi->put_Section(u"S");
  EXPECT_EQ(ansi->GetValue(u"k"), Variant(u"Caf\u00c3\u00a9"));
  ansi->SetValue(u"z", u"Zo\u00eb");
  EXPECT_EQ(Content(), "[S]\nk=Caf\xC3\xA9\nz=Zo\xEB\n");  // two encodings in one file, as on Windows
  EXPECT_EQ(ini_->GetValue(u"z"), Variant(u"Zo\uFFFD"));
  EXPECT_EQ(ansi->GetValue(u"z"), Variant(u"Zo\u00eb"));
}

TEST(IniRealFileTest, FoldersReadOnlyFilesAndMissingFoldersStayAsTheyWere) {
  testing::PlatformTempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const std::string file = dir / "ro.ini";
  ASSERT_TRUE(GetFileSystem()->WriteFile(file, "[S]\nk=1\n", false).ok());
  ASSERT_EQ(::chmod(file.c_str(), 0444), 0);
  for (auto [path, error] : {std::pair{dir.path(), kProfileAccessDenied},
                             {file, kProfileAccessDenied}, {dir / "none/x.ini", kProfilePathNotFound}}) {
    SCOPED_TRACE(path);
    auto ini = KivINIFileHandler::Create();  // the default context: the disk
    ini->put_Path(FromUtf8(path));
    ini->put_Section(u"S");
    EXPECT_FALSE(ini->SetValue(u"k", 2));
    EXPECT_EQ(ini->LastProfileError(), error);
    ini->DeleteSection();
    ini->DeleteFile();
  }
  std::string kept;
  ASSERT_TRUE(GetFileSystem()->ReadFile(file, &kept).ok());
  EXPECT_EQ(kept, "[S]\nk=1\n");
  EXPECT_FALSE(GetFileSystem()->Exists(dir / "none"));
}

TEST_F(IniFileTest, CommonInterfacePathsLandBelowTheHostFolder) {
  struct Row { String given, want; const char* host = "/app/bin/host"; };
  const Row rows[] = {
      {u"cfg", u"/app/bin/cfg.INI"}, {u"cfg.ini", u"/app/bin/cfg.ini"},
      {u"sub/cfg.ini", u"/app/bin/sub/cfg.ini"}, {u"missing/cfg", u"/app/bin/cfg.INI"},
      {u"/d/cfg.ini", u"/d/cfg.ini"}, {u"/nope/cfg.ini", u"/app/bin/cfg.ini"},
      {u"/d/x.d/c", u"/d/x.d/c"},  // '.' among the last four
      {u"../bin/c.ini", u"/app/bin/../bin/c.ini"}, {u"", u""},
      {u"cfg", u"cfg.INI", "host"},  // no host folder: the configuration folder
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(ToUtf8(row.given) + " from " + row.host);
    services_->set_host_module_path(row.host);
    auto ini = KivINIFileHandler::Create(services_);
    ini->StdInterface()->put_Path(row.given);
    ini->StdInterface()->put_Path(u"/d/second.ini");  // write-once, unless the first was empty
    EXPECT_EQ(ini->get_Path(), row.given.empty() ? u"/d/second.ini" : row.want);
  }
}

Object *g_target = nullptr, *g_source = nullptr;
void RaisingImport(const Services&, Object& target, const Ref<Object>& source) {
  g_target = &target;
  g_source = source.get();
  RaiseRuntimeError(err::kTypeMismatch);
}

TEST_F(IniFileTest, LateBoundCallsAndTheImportHook) {
  Variant ini(ini_), delimiter = u",";
  LetProperty(ini, u"Section", u"S");
  EXPECT_EQ(Call(ini, u"SetValue", {u"a", Strings({u"1", u"x"}), ByRef(delimiter)}), Variant(false));
  EXPECT_EQ(delimiter, Variant(u","));
  EXPECT_EQ(Call(ini, u"GetValue", {u"a", u",", Named(u"bDetectNum", false)}),
            Variant(Strings({u"1", u"x"})));
  EXPECT_EQ(Call(ini, u"GetValue", {u"n", Omitted(), Omitted(), Omitted(), Omitted()}), Variant(u""));
  LetProperty(ini, u"Value", 6);  // the default member, under the name read last
  EXPECT_EQ(Content(), "[S]\na=1,x\nn=6\n");
  auto other = KivINIFileHandler::Create(services_);  // a store object given to Value goes to the hook
  services_->set_import_hook(&RaisingImport);
  EXPECT_ERROR(ini_->put_Value(Variant(other->StdInterface())), 13, u"Type mismatch",
               u"Tarvo2\r\nKivINIFileHandler.Import (Let)");
  EXPECT_TRUE(g_target == ini_.get() && g_source == other.get());  // the object, not its view
}

}  // namespace
}  // namespace tarvo2
