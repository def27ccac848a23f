// The profile store: reading, listing and writing on the in-memory file
// system, and on real files what only the POSIX file system can show.
#include "tarvo2/profile_store.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "platform/platform_test_util.h"
#include "support/platform_temp_dir.h"

namespace tarvo2 {
namespace {

using namespace std::string_literals;
constexpr char kFile[] = "/d/p.ini";

class ProfileStoreTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(fs_->CreateDir("/d").ok() && !tmp_.path().empty()); }

  void Put(const std::string& content, FileSystem* fs = nullptr, const std::string& file = kFile) {
    ASSERT_TRUE((fs ? fs : fs_.get())->WriteFile(file, content, false).ok());
  }
  std::optional<std::string> Content(const std::string& file = kFile, FileSystem* fs = nullptr) {
    std::string s;
    if (!(fs ? fs : fs_.get())->ReadFile(file, &s).ok()) return std::nullopt;
    return s;
  }
  // What a read leaves in a buffer of `size` bytes, untouched bytes at its
  // end cut off; *n is the count returned.
  std::string Buffer(const char* section, const char* key, const char* def, uint32_t size,
                     uint32_t* n, ProfileStore* store = nullptr, const std::string& file = kFile) {
    std::string buf(size + 1, '#');
    *n = (store ? store : store_.get())->GetPrivateProfileString(section, key, def, buf.data(), size, file);
    EXPECT_EQ(buf[size], '#');  // nothing beyond the buffer
    return buf.substr(0, buf.find_last_not_of('#', size - 1) + 1);
  }
  std::string Value(const char* section, const char* key, const char* def = "<def>",
                    ProfileStore* store = nullptr, const std::string& file = kFile) {
    uint32_t n = 0;
    std::string s = Buffer(section, key, def, 1024, &n, store, file);
    EXPECT_EQ(s.size(), n + 1u);
    return s.substr(0, n);
  }

  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  std::shared_ptr<ProfileStore> store_ = NewProfileStore(fs_);
  testing::PlatformTempDir tmp_;
  FileSystem* disk_ = FileSystem::Default();
  std::shared_ptr<ProfileStore> disk_store_ =
      NewProfileStore(std::shared_ptr<FileSystem>(disk_, [](FileSystem*) {}));
};

TEST_F(ProfileStoreTest, ReadsValuesAsWindowsDoes) {
  struct Row { const char* name; std::string content; const char* section; const char* key; std::string want; };
  const Row rows[] = {
      {"crlf", "[S]\r\nk=v\r\n", "S", "k", "v"}, {"lone cr", "[S]\rk=v\rj=w", "S", "j", "w"},
      {"unterminated", "[S]\nk=v", "S", "k", "v"}, {"blanks", " \t[ S ] \n\t k \t= \t v w \t\n", "S", "k", "v w"},
      {"no ]", "[A b\nk=1", "A b", "k", "1"}, {"first = splits", "[S]\na=b=c", "S", "a", "b=c"},
      {"no trailing comment", "[S]\nc=3 ;x", "S", "c", "3 ;x"}, {"comment", "[S]\n;k=1\n", "S", ";k", "<def>"},
      {"double quotes", "[S]\nk=\" x \"", "S", "k", " x "}, {"single quotes", "[S]\nk='x'", "S", "k", "x"},
      {"mismatched quotes", "[S]\nk=\"x'", "S", "k", "\"x'"}, {"empty quotes", "[S]\nk=\"\"", "S", "k", ""},
      {"inner quotes", "[S]\nk=a\"b\"", "S", "k", "a\"b\""}, {"first key wins", "[S]\nk=1\nK=2", "S", "k", "1"},
      {"first section wins", "[S]\nk=1\n[s]\nk=2\nj=3", "S", "j", "<def>"},
      {"ascii case", "[Sect]\nKey=v", "SECT", "kEY", "v"}, {"lookup spaces stripped", "[S]\nk=v", " S ", " k ", "v"},
      {"cp1252 case", "[\xC4\x8C]\n\xC9\x8A=1", "\xE4\x9C", "\xE9\x9A", "1"}, {"nul bytes", "[S]\nk=a\0b\n"s, "S", "k", "a\0b"s},
      {"utf8 value", "\xEF\xBB\xBF[S]\nk=\xC3\xA9\xE2\x82\xAC\xE4\xB8\xAD", "S", "k", "\xE9\x80?"},
      {"utf8 names", "\xEF\xBB\xBF[\xC3\x84]\n\xC3\xA9=1", "\xE4", "\xC9", "1"}, {"other bytes", "[S]\nk=\xFF\x81", "S", "k", "\xFF\x81"},
      {"megabyte line cut to the buffer", "[S]\nk=" + std::string(1 << 20, 'x'), "S", "k", std::string(1023, 'x')},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    Put(r.content);
    EXPECT_EQ(Value(r.section, r.key), r.want);
  }
}

TEST_F(ProfileStoreTest, ValuesDefaultsAndListsAreCutToTheBuffer) {
  Put("k=0\n[S]\nv=abcdef\n;c=1\nx\nk=1\nK=2\n=3\n[BB]\n[s]\nj=1\n[]\n");
  struct Row { const char* section; const char* key; const char* def; uint32_t size; std::string want; uint32_t n; };
  const Row rows[] = {
      {"S", "v", "", 1024, "abcdef\0"s, 6}, {"S", "v", "", 7, "abcdef\0"s, 6}, {"S", "v", "", 6, "abcde\0"s, 5},
      {"S", "v", "", 0, "", 0},              {"S", "x", "abc  ", 1024, "abc\0"s, 3}, {"S", "x", "  abc", 1024, "  abc\0"s, 5},
      {"S", "x", nullptr, 1024, "\0"s, 0},     {"S", "x", "abcdef", 3, "ab\0"s, 2},
      // Lists: the section names, then the keys of a section.
      {nullptr, "k", "d", 1024, "S\0BB\0s\0\0"s, 7}, {nullptr, "k", "d", 8, "S\0BB\0s\0\0"s, 6},  // fitting exactly is cut too
      {nullptr, "k", "d", 6, "S\0BB\0\0"s, 4}, {nullptr, "k", "d", 5, "S\0B\0\0"s, 3},
      {nullptr, "k", "d", 2, "\0\0"s, 0},      {"BB", nullptr, "d", 1024, "\0"s, 0},
      {"s", nullptr, "d", 1024, "v\0k\0K\0\0"s, 6},  // first [S] only, duplicates kept
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.section ? r.section : "<sections>") + "/" + (r.key ? r.key : "<keys>") +
                 " size " + std::to_string(r.size));
    uint32_t n = 99;
    EXPECT_EQ(Buffer(r.section, r.key, r.def, r.size, &n), r.want);
    EXPECT_EQ(n, r.n);
  }
}

TEST_F(ProfileStoreTest, MissingFilesAndBadBuffers) {
  const std::pair<const char*, uint32_t> rows[] = {
      {kFile, kProfileFileNotFound}, {"/nodir/x.ini", kProfilePathNotFound}, {"/d", kProfileAccessDenied}};
  for (auto [file, code] : rows) {
    EXPECT_EQ(Value("S", "k", "dflt ", nullptr, file), "dflt");
    EXPECT_EQ(store_->LastError(), code) << file;
  }
  EXPECT_EQ(store_->GetPrivateProfileString("S", "k", "d", nullptr, 5, kFile), 0u);
  EXPECT_EQ(store_->LastError(), kProfileInvalidParameter);
}

TEST_F(ProfileStoreTest, WritesEditInPlace) {
  // The file before and after (nullopt: no file), and LastError().
  struct Row { const char *name; std::optional<std::string> before; const char *section, *key, *value;
               std::optional<std::string> after; uint32_t code; };
  const Row rows[] = {
      {"replace keeps spelling and blanks", "[Sec]\r\n  Key = old  \r\nz=1", "SEC", "key", "new",
       "[Sec]\r\n  Key = new\r\nz=1", 0},
      {"replace quoted", "[S]\nk=\"a b\" \n", "S", "k", "c", "[S]\nk=c\n", 0},
      {"other bytes kept", "; h\0\n[S]\n\tk\t=\t1 ;c\n\n"s, "S", "k", "2", "; h\0\n[S]\n\tk\t=\t2\n\n"s, 0},
      {"new key after last key", "[S]\na=1\n\n;c\n[T]\n", "S", "b", "2", "[S]\na=1\nb=2\n\n;c\n[T]\n", 0},
      {"new section crlf", "[S]\r\na=1\r\n", "T", "b", "2", "[S]\r\na=1\r\n[T]\r\nb=2\r\n", 0},
      {"new file uses lf", std::nullopt, " S ", " k ", " v ", "[S]\nk= v \n", 0},
      {"empty section name", "", "", "k", "v", "[]\nk=v\n", 0},
      {"delete key", "[S]\na=1\nb=2\n", "S", "A", nullptr, "[S]\nb=2\n", 0}, {"delete last key keeps header", "[S]\nb=2", "S", "b", nullptr, "[S]\n", 0},
      {"delete section keeps comments", "[S]\na=1\n;c\nb=2\n[T]\nx=1\n", "s", nullptr, nullptr, ";c\n[T]\nx=1\n", 0},
      {"delete in missing file", std::nullopt, "S", "k", nullptr, std::nullopt, 0},
      {"utf8 kept", "\xEF\xBB\xBF[S]\nk=\xE4\xB8\xAD\n", "S", "k", "\xE9", "\xEF\xBB\xBF[S]\nk=\xC3\xA9\n", 0},
      {"null section", "[S]\n", nullptr, "k", "v", "[S]\n", 2}, {"null section and key", "[S]\n", nullptr, nullptr, "v", "[S]\n", 0},
      {"key with ;", "[S]\n", "S", " ;k", "v", "[S]\n", 87}, {"blank key", std::nullopt, "S", "  ", "v", std::nullopt, 87},
      {"lf in value", "[S]\n", "S", "k", "a\nb", "[S]\n", 87},
      {"lf in key of delete", "[S]\nk=1", "S", "k\n", nullptr, "[S]\nk=1", kProfileInvalidParameter},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    fs_->DeleteFile(kFile);
    if (r.before) Put(*r.before);
    EXPECT_EQ(store_->WritePrivateProfileString(r.section, r.key, r.value, kFile), r.code == 0);
    EXPECT_EQ(store_->LastError(), r.code);
    EXPECT_EQ(Content(), r.after);
  }
}

TEST_F(ProfileStoreTest, BareNamesAndTheProcessWideStore) {
  const char* old = std::getenv("XDG_CONFIG_HOME");
  const std::string saved = old ? old : "";
  setenv("XDG_CONFIG_HOME", "relative", 1);
  EXPECT_EQ(ResolveProfilePath("app.ini"), std::string(std::getenv("HOME")) + "/.config/app.ini");
  setenv("XDG_CONFIG_HOME", "/cfg/home", 1);
  const std::pair<const char*, const char*> paths[] = {
      {"app.ini", "/cfg/home/app.ini"}, {"./app.ini", "./app.ini"}, {"/etc/a.ini", "/etc/a.ini"}};
  for (auto [path, resolved] : paths) EXPECT_EQ(ResolveProfilePath(path), resolved);
  SetFileSystem(fs_);  // the process-wide store uses the process-wide file system
  EXPECT_TRUE(GetProfileStore()->WritePrivateProfileString("S", "k", "v", "app.ini"));
  SetFileSystem(nullptr);
  EXPECT_EQ(Content("/cfg/home/app.ini"), "[S]\nk=v\n");
  old ? setenv("XDG_CONFIG_HOME", saved.c_str(), 1) : unsetenv("XDG_CONFIG_HOME");
}

TEST_F(ProfileStoreTest, RefusedWritesKeepTheOldFileAndLeaveNoOther) {
  auto faulty = std::make_shared<FaultInjectingFileSystem>(fs_);
  auto store = NewProfileStore(faulty);
  Put("[S]\nk=1\n");
  faulty->FailNth(FaultInjectingFileSystem::Op::kRename, 1, ENOSPC);
  EXPECT_FALSE(store->WritePrivateProfileString("S", "k", "2", kFile));
  EXPECT_EQ(store->LastError(), kProfileDiskFull);
  EXPECT_EQ(Value("S", "k", "", store.get()), "1");
  ASSERT_TRUE(fs_->ChangeMode(kFile, 0444).ok());
  const std::pair<const char*, uint32_t> rows[] = {
      {kFile, kProfileAccessDenied}, {"/d/no/x.ini", kProfilePathNotFound}, {"/d", kProfileAccessDenied}};
  for (auto [file, code] : rows) {
    EXPECT_FALSE(store->WritePrivateProfileString("S", "k", "2", file)) << file;
    EXPECT_EQ(store->LastError(), code) << file;
  }
  EXPECT_EQ(Content(), "[S]\nk=1\n");
  EXPECT_EQ(testing::Children(fs_.get(), "/d"), testing::Names{"p.ini"});
}

// On real files.

TEST_F(ProfileStoreTest, DiskCacheSeesOtherWritersAndUnchangedValuesAreNotWritten) {
  const std::string file = tmp_ / "c.ini";
  auto value = [&] { return Value("S", "k", "<def>", disk_store_.get(), file); };
  ASSERT_TRUE(disk_store_->WritePrivateProfileString("S", "k", "1", file));
  EXPECT_EQ(value(), "1");
  struct stat before;
  ASSERT_EQ(::stat(file.c_str(), &before), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  // Another writer edits the file in place, keeping size, inode and mtime.
  Put("[S]\nk=2\n", disk_, file);
  struct timespec times[2] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  EXPECT_EQ(value(), "2");
  ASSERT_TRUE(disk_->DeleteFile(file).ok());
  EXPECT_EQ(value(), "<def>");
  EXPECT_TRUE(disk_store_->WritePrivateProfileString("S", "k", "4", file));
  EXPECT_EQ(Content(file, disk_), "[S]\nk=4\n");  // not built on the deleted file
  FileInfo info, again;
  ASSERT_TRUE(disk_->GetFileInfo(file, &info).ok());
  EXPECT_TRUE(disk_store_->WritePrivateProfileString("S", "K", "4", file));  // the value stored: no rewrite
  EXPECT_TRUE(disk_->GetFileInfo(file, &again).ok() && info.SameVersion(again));
}

TEST_F(ProfileStoreTest, DiskProcessesWritingTheSameFileLoseNoUpdate) {
  const std::string file = tmp_ / "shared.ini";
  constexpr int kChildren = 4, kWrites = 25;
  auto key = [](int c, int i) { return "c" + std::to_string(c) + "k" + std::to_string(i); };
  testing::InChildren(kChildren, [&](int c) {  // each exits with its count of failed writes
    auto store = NewProfileStore();
    int failed = 0;
    for (int i = 0; i < kWrites; ++i) failed += !store->WritePrivateProfileString("S", key(c, i).c_str(), "v", file);
    return failed;
  });
  for (int c = 0; c < kChildren; ++c)
    for (int i = 0; i < kWrites; ++i) EXPECT_EQ(Value("S", key(c, i).c_str(), "", disk_store_.get(), file), "v");
}

}  // namespace
}  // namespace tarvo2
