#include "tarvo2/profile_store.h"

#include <cstdlib>
#include <cstring>
#include <optional>

#include <gtest/gtest.h>

namespace tarvo2 {
namespace {

constexpr char kFile[] = "/d/p.ini";

class ProfileStoreTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(fs_->CreateDir("/d").ok()); }

  void Put(const std::string& content) {
    ASSERT_TRUE(fs_->WriteFile(kFile, content, false).ok());
  }
  std::optional<std::string> Content(const std::string& path = kFile) {
    std::string s;
    if (!fs_->ReadFile(path, &s).ok()) return std::nullopt;
    return s;
  }
  // The bytes placed in the buffer, final NUL included (up to `size`).
  std::string Get(const char* section, const char* key, const char* def,
                  uint32_t size = 1024, uint32_t* n = nullptr) {
    std::string buf(size + 1, '#');
    uint32_t r = store_->GetPrivateProfileString(section, key, def, buf.data(),
                                                 size, kFile);
    if (n) *n = r;
    buf.resize(size);
    size_t used = std::min<size_t>(size, r + 1);
    return buf.substr(0, used);
  }
  std::string Value(const char* section, const char* key, const char* def = "<def>") {
    std::string s = Get(section, key, def);
    return s.substr(0, s.size() - 1);
  }

  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  std::shared_ptr<ProfileStore> store_ = NewProfileStore(fs_);
};

TEST_F(ProfileStoreTest, ReadsValuesAsWindowsDoes) {
  struct Row { const char* name; std::string content; const char* section; const char* key; std::string want; };
  const Row rows[] = {
      {"crlf", "[S]\r\nk=v\r\n", "S", "k", "v"},
      {"lone cr", "[S]\rk=v\rj=w", "S", "j", "w"},
      {"unterminated", "[S]\nk=v", "S", "k", "v"},
      {"blanks", " \t[ S ] \n\t k \t= \t v w \t\n", "S", "k", "v w"},
      {"inner blanks count", "[S]\nmy  key=1\n", "S", "my key", "<def>"},
      {"after bracket ignored", "[A] tail\nk=1", "A", "k", "1"},
      {"no closing bracket", "[A b\nk=1", "A b", "k", "1"},
      {"first equals splits", "[S]\na=b=c", "S", "a", "b=c"},
      {"no trailing comment", "[S]\nc=3 ;x", "S", "c", "3 ;x"},
      {"hash is ordinary", "[S]\n#k=1", "S", "#k", "1"},
      {"line without equals", "[S]\nk\n", "S", "k", "<def>"},
      {"comment", "[S]\n;k=1\n", "S", ";k", "<def>"},
      {"double quotes", "[S]\nk=\" x \"", "S", "k", " x "},
      {"single quotes", "[S]\nk='x'", "S", "k", "x"},
      {"mismatched quotes", "[S]\nk=\"x'", "S", "k", "\"x'"},
      {"empty quotes", "[S]\nk=\"\"", "S", "k", ""},
      {"lone quote", "[S]\nk=\"", "S", "k", "\""},
      {"inner quotes", "[S]\nk=a\"b\"", "S", "k", "a\"b\""},
      {"empty value", "[S]\nk=", "S", "k", ""},
      {"key before sections", "k=1\n[S]\n", "S", "k", "<def>"},
      {"empty section name", "[]\nk=1", "", "k", "1"},
      {"first section wins", "[S]\nk=1\n[s]\nk=2\nj=3", "S", "j", "<def>"},
      {"first key wins", "[S]\nk=1\nK=2", "S", "k", "1"},
      {"ascii case", "[Sect]\nKey=v", "SECT", "kEY", "v"},
      {"latin case", "[\xC4\xD6]\n\xC9=1", "\xE4\xF6", "\xE9", "1"},
      {"cp1252 case", "[\x8C\x9F]\n\x8A\x8E=1", "\x9C\xFF", "\x9A\x9E", "1"},
      {"lookup spaces stripped", "[S]\nk=v", " S ", " k ", "v"},
      {"lookup tabs kept", "[S]\nk=v", "S", "\tk", "<def>"},
      {"nul bytes", std::string("[S]\nk=a\0b\n", 10), "S", "k", std::string("a\0b", 3)},
      {"invalid text bytes", "[S]\nk=\xFF\xFE\x81", "S", "k", "\xFF\xFE\x81"},
      {"utf8 value", "\xEF\xBB\xBF[S]\nk=\xC3\xA9\xE2\x82\xAC\xE4\xB8\xAD", "S", "k", "\xE9\x80?"},
      {"utf8 names", "\xEF\xBB\xBF[\xC3\x84]\n\xC3\xA9=1", "\xE4", "\xC9", "1"},
      {"missing section", "[S]\nk=v", "T", "k", "<def>"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    Put(r.content);
    EXPECT_EQ(Value(r.section, r.key), r.want);
  }
}

TEST_F(ProfileStoreTest, ValueAndDefaultTruncation) {
  Put("[S]\nk=abcdef\n");
  struct Row { const char* key; const char* def; uint32_t size; std::string want; uint32_t n; };
  const Row rows[] = {
      {"k", "", 1024, std::string("abcdef\0", 7), 6}, {"k", "", 7, std::string("abcdef\0", 7), 6},
      {"k", "", 6, std::string("abcde\0", 6), 5},     {"k", "", 1, std::string("\0", 1), 0},
      {"k", "", 0, "", 0},
      {"x", "abc  ", 1024, std::string("abc\0", 4), 3},
      {"x", "  abc", 1024, std::string("  abc\0", 6), 5},
      {"x", "abc\t", 1024, std::string("abc\t\0", 5), 4},
      {"x", "   ", 1024, std::string("\0", 1), 0},
      {"x", nullptr, 1024, std::string("\0", 1), 0},
      {"x", "abcdef", 3, std::string("ab\0", 3), 2},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.key) + " size " + std::to_string(r.size));
    uint32_t n = 99;
    EXPECT_EQ(Get("S", r.key, r.def, r.size, &n), r.want);
    EXPECT_EQ(n, r.n);
  }
}

TEST_F(ProfileStoreTest, ListsAndTheirTruncation) {
  Put("k=0\n[A]\n;c=1\nx\nk=1\nK=2\n=3\n[BB]\n[a]\nj=1\n[]\n");
  struct Row { const char* section; uint32_t size; std::string want; uint32_t n; };
  const Row rows[] = {
      {nullptr, 1024, std::string("A\0BB\0a\0\0", 8), 7},
      {nullptr, 8, std::string("A\0BB\0a\0\0", 8), 6},  // exactly fitting is cut too
      {nullptr, 6, std::string("A\0BB\0\0", 6), 4},
      {nullptr, 5, std::string("A\0B\0\0", 5), 3},
      {nullptr, 2, std::string("\0\0", 2), 0},
      {nullptr, 1, std::string("\0", 1), 0},
      {nullptr, 0, "", 0},
      {"a", 1024, std::string("k\0K\0\0", 5), 4},  // first [A] only, duplicates kept
      {"BB", 1024, std::string("\0", 1), 0},
      {"missing", 1024, std::string("\0", 1), 0},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.section ? r.section : "<sections>") + " size " + std::to_string(r.size));
    std::string buf(r.size + 1, '#');
    uint32_t n = store_->GetPrivateProfileString(r.section, r.section ? nullptr : "k",
                                                 "d", buf.data(), r.size, kFile);
    EXPECT_EQ(n, r.n);
    EXPECT_EQ(buf.substr(0, r.want.size()), r.want);
    EXPECT_EQ(buf[r.size], '#');  // nothing beyond the buffer
  }
}

TEST_F(ProfileStoreTest, MissingFileGivesDefaultsAndEmptyLists) {
  EXPECT_EQ(Value("S", "k", "dflt "), "dflt");
  EXPECT_EQ(store_->LastError(), kProfileFileNotFound);
  EXPECT_EQ(Get(nullptr, nullptr, ""), std::string("\0", 1));
  char c = '#';
  EXPECT_EQ(store_->GetPrivateProfileString("S", "k", "d", &c, 1, "/nodir/x.ini"), 0u);
  EXPECT_EQ(store_->LastError(), kProfilePathNotFound);
  EXPECT_EQ(store_->GetPrivateProfileString("S", "k", "d", nullptr, 5, kFile), 0u);
  EXPECT_EQ(store_->LastError(), kProfileInvalidParameter);
  EXPECT_EQ(store_->GetPrivateProfileString("S", "k", "dd", &c, 1, "/d"), 0u);
  EXPECT_EQ(store_->LastError(), kProfileAccessDenied);
}

struct WriteRow {
  const char* name;
  std::optional<std::string> before;  // nullopt: no file
  const char* section;
  const char* key;
  const char* value;
  std::optional<std::string> after;
  uint32_t code;
};

TEST_F(ProfileStoreTest, WritesEditInPlace) {
  const WriteRow rows[] = {
      {"replace keeps spelling and blanks", "[Sec]\r\n  Key = old  \r\nz=1", "SEC", "key", "new",
       "[Sec]\r\n  Key = new\r\nz=1", 0},
      {"replace quoted", "[S]\nk=\"a b\" \n", "S", "k", "c", "[S]\nk=c\n", 0},
      {"replace empty", "[S]\nk=\n", "S", "k", "v", "[S]\nk=v\n", 0},
      {"other bytes kept", std::string("; h\0\n[S]\n\tk\t=\t1 ;c\n\n", 20), "S", "k", "2",
       std::string("; h\0\n[S]\n\tk\t=\t2\n\n", 17), 0},
      {"new key after last key", "[S]\na=1\n\n;c\n[T]\n", "S", "b", "2",
       "[S]\na=1\nb=2\n\n;c\n[T]\n", 0},
      {"new key after header", "[S]\n\n[T]\n", "S", "b", "2", "[S]\nb=2\n\n[T]\n", 0},
      {"new key in first duplicate", "[S]\nk=1\n[s]\nj=1", "s", "j", "9",
       "[S]\nk=1\nj=9\n[s]\nj=1", 0},
      {"new key unterminated", "[S]\na=1", "S", "b", "2", "[S]\na=1\nb=2\n", 0},
      {"new section crlf", "[S]\r\na=1\r\n", "T", "b", "2", "[S]\r\na=1\r\n[T]\r\nb=2\r\n", 0},
      {"new section lone cr", "x\r[S]\ra=1", "T", "b", "2", "x\r[S]\ra=1\r[T]\rb=2\r", 0},
      {"new section unterminated", "[S]\na=1", "T", "b", "2", "[S]\na=1\n[T]\nb=2\n", 0},
      {"new file uses lf", std::nullopt, " S ", " k ", " v ", "[S]\nk= v \n", 0},
      {"empty file", "", "S", "k", "v", "[S]\nk=v\n", 0},
      {"empty section name", "", "", "k", "v", "[]\nk=v\n", 0},
      {"delete key", "[S]\na=1\nb=2\n", "S", "A", nullptr, "[S]\nb=2\n", 0},
      {"delete last key keeps header", "[S]\nb=2", "S", "b", nullptr, "[S]\n", 0},
      {"delete section keeps comments", "[S]\na=1\n;c\nb=2\n[T]\nx=1\n", "s", nullptr, nullptr,
       ";c\n[T]\nx=1\n", 0},
      {"delete missing key", "[S]\na=1", "S", "x", nullptr, "[S]\na=1", 0},
      {"delete missing section", "[S]\na=1", "T", nullptr, "v", "[S]\na=1", 0},
      {"delete in missing file", std::nullopt, "S", "k", nullptr, std::nullopt, 0},
      {"utf8 kept", "\xEF\xBB\xBF[S]\nk=\xE4\xB8\xAD\n", "S", "k", "\xE9",
       "\xEF\xBB\xBF[S]\nk=\xC3\xA9\n", 0},
      {"utf8 new section", "\xEF\xBB\xBF", "\xC4", "k", "\x80", "\xEF\xBB\xBF[\xC3\x84]\nk=\xE2\x82\xAC\n", 0},
      {"null section", "[S]\n", nullptr, "k", "v", "[S]\n", kProfileFileNotFound},
      {"null section and key", "[S]\n", nullptr, nullptr, "v", "[S]\n", 0},
      {"key with equals", "[S]\n", "S", "a=b", "v", "[S]\n", kProfileInvalidParameter},
      {"key with semicolon", "[S]\n", "S", " ;k", "v", "[S]\n", kProfileInvalidParameter},
      {"key with bracket", "[S]\n", "S", "[k", "v", "[S]\n", kProfileInvalidParameter},
      {"blank key", std::nullopt, "S", "  ", "v", std::nullopt, kProfileInvalidParameter},
      {"lf in value", "[S]\n", "S", "k", "a\nb", "[S]\n", kProfileInvalidParameter},
      {"cr in section", "[S]\n", "S\r", "k", "v", "[S]\n", kProfileInvalidParameter},
      {"lf in key of delete", "[S]\nk=1", "S", "k\n", nullptr, "[S]\nk=1", kProfileInvalidParameter},
  };
  for (const WriteRow& r : rows) {
    SCOPED_TRACE(r.name);
    fs_->DeleteFile(kFile);
    if (r.before) Put(*r.before);
    EXPECT_EQ(store_->WritePrivateProfileString(r.section, r.key, r.value, kFile), r.code == 0);
    EXPECT_EQ(store_->LastError(), r.code);
    EXPECT_EQ(Content(), r.after);
  }
}

TEST_F(ProfileStoreTest, UnwritablePlacesChangeNothing) {
  EXPECT_FALSE(store_->WritePrivateProfileString("S", "k", "v", "/nodir/p.ini"));
  EXPECT_EQ(store_->LastError(), kProfilePathNotFound);
  EXPECT_FALSE(fs_->Exists("/nodir"));
  Put("[S]\nk=1\n");
  ASSERT_TRUE(fs_->ChangeMode(kFile, 0444).ok());
  EXPECT_FALSE(store_->WritePrivateProfileString("S", "k", "2", kFile));
  EXPECT_EQ(store_->LastError(), kProfileAccessDenied);
  EXPECT_EQ(Content(), "[S]\nk=1\n");
  EXPECT_FALSE(store_->WritePrivateProfileString("S", "k", "2", "/d"));
  EXPECT_EQ(store_->LastError(), kProfileAccessDenied);
}

TEST_F(ProfileStoreTest, UnchangedValueDoesNotRewrite) {
  Put("[S]\nk = \"v\"\n");
  FileInfo before, after;
  ASSERT_TRUE(fs_->GetFileInfo(kFile, &before).ok());
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "K", "v", kFile));
  ASSERT_TRUE(fs_->GetFileInfo(kFile, &after).ok());
  EXPECT_TRUE(before.SameVersion(after));
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "K", "V", kFile));  // case counts
  EXPECT_EQ(Content(), "[S]\nk = V\n");
}

TEST_F(ProfileStoreTest, CacheSeesChangesOfOtherWriters) {
  Put("[S]\nk=1\n");
  EXPECT_EQ(Value("S", "k"), "1");
  Put("[S]\nk=2\n");  // same size, at once
  EXPECT_EQ(Value("S", "k"), "2");
  auto other = NewProfileStore(fs_);
  EXPECT_TRUE(other->WritePrivateProfileString("S", "j", "3", kFile));
  EXPECT_EQ(Value("S", "j"), "3");
  ASSERT_TRUE(fs_->DeleteFile(kFile).ok());
  EXPECT_EQ(Value("S", "k"), "<def>");
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "k", "4", kFile));
  EXPECT_EQ(Content(), "[S]\nk=4\n");  // not built on the deleted file
}

TEST_F(ProfileStoreTest, MegabyteLines) {
  std::string big(1 << 20, 'x');
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "k", big.c_str(), kFile));
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "j", "1", kFile));
  uint32_t n = 0;
  EXPECT_EQ(Get("S", "k", "", 1024, &n), std::string(1023, 'x') + '\0');
  EXPECT_EQ(n, 1023u);
  std::string buf(big.size() + 1, '\0');
  EXPECT_EQ(store_->GetPrivateProfileString("S", "k", "", buf.data(), buf.size(), kFile), big.size());
  EXPECT_EQ(Value("S", "j"), "1");
}

TEST_F(ProfileStoreTest, BareNamesLiveInTheConfigurationFolder) {
  const char* old = std::getenv("XDG_CONFIG_HOME");
  std::string saved = old ? old : "";
  setenv("XDG_CONFIG_HOME", "/cfg/home", 1);
  EXPECT_EQ(ResolveProfilePath("app.ini"), "/cfg/home/app.ini");
  EXPECT_EQ(ResolveProfilePath("./app.ini"), "./app.ini");
  EXPECT_EQ(ResolveProfilePath("/etc/app.ini"), "/etc/app.ini");
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "k", "v", "app.ini"));
  EXPECT_EQ(Content("/cfg/home/app.ini"), "[S]\nk=v\n");
  setenv("XDG_CONFIG_HOME", "relative", 1);
  EXPECT_EQ(ResolveProfilePath("app.ini"), std::string(std::getenv("HOME")) + "/.config/app.ini");
  if (old) setenv("XDG_CONFIG_HOME", saved.c_str(), 1); else unsetenv("XDG_CONFIG_HOME");
}

TEST(CurrentProfileStoreTest, ReplaceAndRestore) {
  auto mine = NewProfileStore(NewMemFileSystem());
  SetProfileStore(mine);
  EXPECT_EQ(GetProfileStore(), mine);
  SetProfileStore(nullptr);
  EXPECT_NE(GetProfileStore(), mine);
  EXPECT_NE(GetProfileStore(), nullptr);
}

}  // namespace
}  // namespace tarvo2
