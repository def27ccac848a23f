// The INI access layer: what reaches the profile store, reading without
// cutting, name lists, refused requests and the source chain.
#include "ini/ini_access.h"

#include <optional>

#include "tarvo2/codepage.h"
#include "tarvo2/file_system.h"
#include "tarvo2/profile_store.h"
#include "test_util.h"

namespace tarvo2::ini {
namespace {

// Records the arguments of every call; reads answer "v" or fail.
struct RecordingStore : ProfileStore {
  struct Call {
    std::optional<std::string> section, key, def_or_value;
    uint32_t size;
    std::string file;
  };
  static std::optional<std::string> Opt(const char* s) {
    return s ? std::optional<std::string>(s) : std::nullopt;
  }
  uint32_t GetPrivateProfileString(const char* s, const char* k, const char* d, char* buf,
                                   uint32_t size, const std::string& file) override {
    if (fail) throw Error(7, u"Store", u"Out of memory");
    calls.push_back({Opt(s), Opt(k), Opt(d), size, file});
    return static_cast<uint32_t>(std::snprintf(buf, size, "v"));
  }
  bool WritePrivateProfileString(const char* s, const char* k, const char* v,
                                 const std::string& file) override {
    calls.push_back({Opt(s), Opt(k), Opt(v), 0, file});
    return true;
  }
  std::vector<Call> calls;
  bool fail = false;
};

TEST(IniAccessTest, MakesOneStoreCallPerProcedure) {
  auto store = std::make_shared<RecordingStore>();
  SetProfileStore(store);
  const String path = u"/d/\u00e9t\u00e9.ini", s = u" S\u00e9c ", k = u"k\u20ac";
  const auto no = std::nullopt;
  struct Row { const char* name; std::function<void()> call; RecordingStore::Call want; };
  const Row rows[] = {
      {"sections", [&] { INIGetSections(path); }, {no, no, "", 1024, ""}},
      {"fields", [&] { INIGetFields(path, s); }, {" S\xe9" "c ", no, "", 1024, ""}},
      {"value", [&] { INIGetValue(path, s, k, u"d "); }, {" S\xe9" "c ", "k\x80", "d ", 1024, ""}},
      {"set", [&] { INISetValue(path, s, k, u"\u00fc"); }, {" S\xe9" "c ", "k\x80", "\xfc", 0, ""}},
      {"delete value", [&] { INIDeleteValue(path, s, k); }, {" S\xe9" "c ", "k\x80", no, 0, ""}},
      {"delete section", [&] { INIDeleteSection(path, s); }, {" S\xe9" "c ", no, no, 0, ""}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    store->calls.clear();
    row.call();
    ASSERT_EQ(store->calls.size(), 1u);
    const RecordingStore::Call& c = store->calls[0];
    EXPECT_EQ(c.section, row.want.section);
    EXPECT_EQ(c.key, row.want.key);
    EXPECT_EQ(c.def_or_value, row.want.def_or_value);
    EXPECT_EQ(c.size, row.want.size);
    EXPECT_EQ(c.file, "/d/\xc3\xa9t\xc3\xa9.ini");  // UTF-8
  }
  store->fail = true;
  EXPECT_ERROR(INIGetValue(path, s, k, u""), 7, u"Out of memory",
               u"Store\r\nKivINIFileHandler.INIGetValue");
  EXPECT_ERROR(INIGetFields(path, s), 7, u"Out of memory",
               u"Store\r\nKivINIFileHandler.INIGetFields");
  SetProfileStore(nullptr);
}

class IniAccessFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetFileSystem(fs_);
    SetProfileStore(nullptr);
    ASSERT_TRUE(fs_->CreateDir("/d").ok());
  }
  void TearDown() override { SetFileSystem(nullptr); }
  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  const String path_ = u"/d/a.ini";
};

TEST_F(IniAccessFileTest, ReadsValuesAndListsOfAnyLengthWhole) {
  for (size_t len : {0, 1, 1022, 1023, 1024, 1025, 2047, 5000, 1 << 20}) {
    SCOPED_TRACE(len);
    String value(len, u'x');
    if (len > 0) value.back() = u'\u00ff';
    String name = u"k" + String(len, u'n');  // names of that length too
    INISetValue(path_, u"S", name, value);
    EXPECT_EQ(INIGetValue(path_, u"S", name, u"def"), value);
    EXPECT_EQ(INIGetFields(path_, u"S"), name + String(1, u'\0'));
    INIDeleteSection(path_, u"S");
  }
  // A list of exactly 1,022 bytes: what the store also reports for a cut one.
  String list = String(21, u'L') + String(1, u'\0');
  INISetValue(path_, list.substr(0, 21), u"k", u"v");
  for (int i = 0; i < 200; ++i) {
    String section = FromAnsi("s" + std::to_string(1000 + i).substr(1));
    INISetValue(path_, section, u"k", u"v");
    list += section + String(1, u'\0');
  }
  ASSERT_EQ(list.size(), 1022u);
  EXPECT_EQ(INIGetSections(path_), list);
}

TEST_F(IniAccessFileTest, RefusesNulInsideNamesAndValues) {
  INISetValue(path_, u"S", u"a", u"kept");
  const String nul(1, u'\0');
  uint32_t error = 0;
  INISetValue(path_, u"S", u"a" + nul + u"b", u"x", &error);
  EXPECT_EQ(error, kProfileInvalidParameter);
  INISetValue(path_, u"S", u"a", u"x" + nul + u"y", &error);
  INIDeleteValue(path_, u"S", u"a" + nul, &error);
  INIDeleteSection(path_, u"S" + nul + u"T", &error);
  EXPECT_EQ(INIGetValue(path_, u"S", u"a" + nul, u"d  ", &error), u"d");
  EXPECT_EQ(error, kProfileInvalidParameter);
  EXPECT_EQ(INIGetFields(path_, u"S" + nul), u"");
  EXPECT_EQ(INIGetValue(path_, u"S", u"a", u"d" + nul + u"x"), u"kept");
  std::string content;
  ASSERT_TRUE(fs_->ReadFile("/d/a.ini", &content).ok());
  EXPECT_EQ(content, "[S]\na=kept\n");
}

TEST(IniAccessTest, DecodesNameLists) {
  const String nul(1, u'\0');
  struct Row { String list; std::vector<String> want; };
  const Row rows[] = {
      {u"", {}},
      {u"   ", {}},
      {u"A" + nul, {u"A"}},
      {u"A" + nul + u"BC" + nul, {u"A", u"BC"}},
      {u"A" + nul + u"BC", {u"A", u"B"}},  // a cut list loses one more character
      {u" " + nul, {u" "}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(ToUtf8(row.list));
    EXPECT_EQ(DecodeNameList(row.list), row.want);
  }
}

}  // namespace
}  // namespace tarvo2::ini
