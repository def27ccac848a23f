// The profile store: reading, listing and writing on the in-memory file
// system, and on real files what only the POSIX file system can show.
#include "tarvo2/profile_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

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
      {"inner blanks count", "[S]\nmy  key=1\n", "S", "my key", "<def>"}, {"no ]", "[A b\nk=1", "A b", "k", "1"},
      {"after ] ignored", "[A] tail\nk=1", "A", "k", "1"}, {"first = splits", "[S]\na=b=c", "S", "a", "b=c"},
      {"no trailing comment", "[S]\nc=3 ;x", "S", "c", "3 ;x"}, {"# is ordinary", "[S]\n#k=1", "S", "#k", "1"},
      {"line without =", "[S]\nk\n", "S", "k", "<def>"}, {"comment", "[S]\n;k=1\n", "S", ";k", "<def>"},
      {"double quotes", "[S]\nk=\" x \"", "S", "k", " x "}, {"single quotes", "[S]\nk='x'", "S", "k", "x"},
      {"mismatched quotes", "[S]\nk=\"x'", "S", "k", "\"x'"}, {"empty quotes", "[S]\nk=\"\"", "S", "k", ""},
      {"lone quote", "[S]\nk=\"", "S", "k", "\""}, {"inner quotes", "[S]\nk=a\"b\"", "S", "k", "a\"b\""},
      {"empty value", "[S]\nk=", "S", "k", ""}, {"key before sections", "k=1\n[S]\n", "S", "k", "<def>"},
      {"empty section name", "[]\nk=1", "", "k", "1"}, {"first key wins", "[S]\nk=1\nK=2", "S", "k", "1"},
      {"first section wins", "[S]\nk=1\n[s]\nk=2\nj=3", "S", "j", "<def>"},
      {"ascii case", "[Sect]\nKey=v", "SECT", "kEY", "v"}, {"latin case", "[\xC4\xD6]\n\xC9=1", "\xE4\xF6", "\xE9", "1"},
      {"cp1252 case", "[\x8C\x9F]\n\x8A\x8E=1", "\x9C\xFF", "\x9A\x9E", "1"},
      {"lookup spaces stripped", "[S]\nk=v", " S ", " k ", "v"}, {"lookup tabs kept", "[S]\nk=v", "S", "\tk", "<def>"},
      {"nul bytes", "[S]\nk=a\0b\n"s, "S", "k", "a\0b"s}, {"other bytes", "[S]\nk=\xFF\xFE\x81", "S", "k", "\xFF\xFE\x81"},
      {"utf8 value", "\xEF\xBB\xBF[S]\nk=\xC3\xA9\xE2\x82\xAC\xE4\xB8\xAD", "S", "k", "\xE9\x80?"},
      {"utf8 names", "\xEF\xBB\xBF[\xC3\x84]\n\xC3\xA9=1", "\xE4", "\xC9", "1"}, {"no section", "[S]\nk=v", "T", "k", "<def>"},
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
      {"S", "v", "", 1, "\0"s, 0},          {"S", "v", "", 0, "", 0},
      {"S", "x", "abc  ", 1024, "abc\0"s, 3}, {"S", "x", "  abc", 1024, "  abc\0"s, 5},
      {"S", "x", "abc\t", 1024, "abc\t\0"s, 4}, {"S", "x", "   ", 1024, "\0"s, 0},
      {"S", "x", nullptr, 1024, "\0"s, 0},     {"S", "x", "abcdef", 3, "ab\0"s, 2},
      // Lists: the section names, then the keys of a section.
      {nullptr, "k", "d", 1024, "S\0BB\0s\0\0"s, 7}, {nullptr, "k", "d", 8, "S\0BB\0s\0\0"s, 6},  // fitting exactly is cut too
      {nullptr, "k", "d", 6, "S\0BB\0\0"s, 4}, {nullptr, "k", "d", 5, "S\0B\0\0"s, 3},
      {nullptr, "k", "d", 2, "\0\0"s, 0},      {nullptr, "k", "d", 1, "\0"s, 0},   {nullptr, "k", "d", 0, "", 0},
      {"s", nullptr, "d", 1024, "v\0k\0K\0\0"s, 6},  // first [S] only, duplicates kept
      {"BB", nullptr, "d", 1024, "\0"s, 0},    {"missing", nullptr, "d", 1024, "\0"s, 0},
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
  uint32_t n = 99;
  EXPECT_EQ(Value("S", "k", "dflt "), "dflt");
  EXPECT_EQ(store_->LastError(), kProfileFileNotFound);
  EXPECT_EQ(Buffer(nullptr, nullptr, "", 1024, &n), "\0"s);
  EXPECT_EQ(Value("S", "k", "d", nullptr, "/nodir/x.ini"), "d");
  EXPECT_EQ(store_->LastError(), kProfilePathNotFound);
  EXPECT_EQ(store_->GetPrivateProfileString("S", "k", "d", nullptr, 5, kFile), 0u);
  EXPECT_EQ(store_->LastError(), kProfileInvalidParameter);
  EXPECT_EQ(Value("S", "k", "d", nullptr, "/d"), "d");
  EXPECT_EQ(store_->LastError(), kProfileAccessDenied);
}

TEST_F(ProfileStoreTest, WritesEditInPlace) {
  // The file before and after (nullopt: no file), and LastError().
  struct Row { const char *name; std::optional<std::string> before; const char *section, *key, *value;
               std::optional<std::string> after; uint32_t code; };
  const Row rows[] = {
      {"replace keeps spelling and blanks", "[Sec]\r\n  Key = old  \r\nz=1", "SEC", "key", "new",
       "[Sec]\r\n  Key = new\r\nz=1", 0},
      {"replace quoted", "[S]\nk=\"a b\" \n", "S", "k", "c", "[S]\nk=c\n", 0}, {"replace empty", "[S]\nk=\n", "S", "k", "v", "[S]\nk=v\n", 0},
      {"other bytes kept", "; h\0\n[S]\n\tk\t=\t1 ;c\n\n"s, "S", "k", "2", "; h\0\n[S]\n\tk\t=\t2\n\n"s, 0},
      {"new key after last key", "[S]\na=1\n\n;c\n[T]\n", "S", "b", "2", "[S]\na=1\nb=2\n\n;c\n[T]\n", 0},
      {"new key after header", "[S]\n\n[T]\n", "S", "b", "2", "[S]\nb=2\n\n[T]\n", 0},
      {"new key in first duplicate", "[S]\nk=1\n[s]\nj=1", "s", "j", "9", "[S]\nk=1\nj=9\n[s]\nj=1", 0},
      {"new key unterminated", "[S]\na=1", "S", "b", "2", "[S]\na=1\nb=2\n", 0},
      {"new section crlf", "[S]\r\na=1\r\n", "T", "b", "2", "[S]\r\na=1\r\n[T]\r\nb=2\r\n", 0},
      {"new section lone cr", "x\r[S]\ra=1", "T", "b", "2", "x\r[S]\ra=1\r[T]\rb=2\r", 0},
      {"new section unterminated", "[S]\na=1", "T", "b", "2", "[S]\na=1\n[T]\nb=2\n", 0},
      {"new file uses lf", std::nullopt, " S ", " k ", " v ", "[S]\nk= v \n", 0},
      {"empty file", "", "S", "k", "v", "[S]\nk=v\n", 0}, {"empty section name", "", "", "k", "v", "[]\nk=v\n", 0},
      {"delete key", "[S]\na=1\nb=2\n", "S", "A", nullptr, "[S]\nb=2\n", 0},
      {"delete last key keeps header", "[S]\nb=2", "S", "b", nullptr, "[S]\n", 0},
      {"delete section keeps comments", "[S]\na=1\n;c\nb=2\n[T]\nx=1\n", "s", nullptr, nullptr, ";c\n[T]\nx=1\n", 0},
      {"delete missing key", "[S]\na=1", "S", "x", nullptr, "[S]\na=1", 0}, {"delete missing section", "[S]\na=1", "T", nullptr, "v", "[S]\na=1", 0},
      {"delete in missing file", std::nullopt, "S", "k", nullptr, std::nullopt, 0},
      {"utf8 kept", "\xEF\xBB\xBF[S]\nk=\xE4\xB8\xAD\n", "S", "k", "\xE9", "\xEF\xBB\xBF[S]\nk=\xC3\xA9\n", 0},
      {"utf8 new section", "\xEF\xBB\xBF", "\xC4", "k", "\x80", "\xEF\xBB\xBF[\xC3\x84]\nk=\xE2\x82\xAC\n", 0},
      {"null section", "[S]\n", nullptr, "k", "v", "[S]\n", 2}, {"null section and key", "[S]\n", nullptr, nullptr, "v", "[S]\n", 0},
      {"key with =", "[S]\n", "S", "a=b", "v", "[S]\n", 87}, {"key with ;", "[S]\n", "S", " ;k", "v", "[S]\n", 87},
      {"key with [", "[S]\n", "S", "[k", "v", "[S]\n", 87}, {"blank key", std::nullopt, "S", "  ", "v", std::nullopt, 87},
      {"lf in value", "[S]\n", "S", "k", "a\nb", "[S]\n", 87}, {"cr in section", "[S]\n", "S\r", "k", "v", "[S]\n", 87},
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

TEST_F(ProfileStoreTest, CacheSeesChangesOfOtherWritersAndUnchangedValuesAreNotWritten) {
  Put("[S]\nk=1\n");
  EXPECT_EQ(Value("S", "k"), "1");
  Put("[S]\nk=2\n");  // same size, at once
  EXPECT_EQ(Value("S", "k"), "2");
  EXPECT_TRUE(NewProfileStore(fs_)->WritePrivateProfileString("S", "j", "3", kFile));
  EXPECT_EQ(Value("S", "j"), "3");
  ASSERT_TRUE(fs_->DeleteFile(kFile).ok());
  EXPECT_EQ(Value("S", "k"), "<def>");
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "k", "4", kFile));
  EXPECT_EQ(Content(), "[S]\nk=4\n");  // not built on the deleted file
  FileInfo before, after;
  ASSERT_TRUE(fs_->GetFileInfo(kFile, &before).ok());
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "K", "4", kFile));  // the value stored: no rewrite
  ASSERT_TRUE(fs_->GetFileInfo(kFile, &after).ok());
  EXPECT_TRUE(before.SameVersion(after));
}

TEST_F(ProfileStoreTest, MegabyteLines) {
  std::string big(1 << 20, 'x');
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "k", big.c_str(), kFile));
  uint32_t n = 0;
  EXPECT_EQ(Buffer("S", "k", "", 1024, &n), std::string(1023, 'x') + '\0');
  EXPECT_EQ(Buffer("S", "k", "", big.size() + 1, &n), big + '\0');
  EXPECT_EQ(n, big.size());
}

TEST_F(ProfileStoreTest, BareNamesLiveInTheConfigurationFolder) {
  const char* old = std::getenv("XDG_CONFIG_HOME");
  const std::string saved = old ? old : "";
  setenv("XDG_CONFIG_HOME", "/cfg/home", 1);
  EXPECT_EQ(ResolveProfilePath("app.ini"), "/cfg/home/app.ini");
  EXPECT_EQ(ResolveProfilePath("./app.ini"), "./app.ini");
  EXPECT_EQ(ResolveProfilePath("/etc/app.ini"), "/etc/app.ini");
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "k", "v", "app.ini"));
  EXPECT_EQ(Content("/cfg/home/app.ini"), "[S]\nk=v\n");
  setenv("XDG_CONFIG_HOME", "relative", 1);
  EXPECT_EQ(ResolveProfilePath("app.ini"), std::string(std::getenv("HOME")) + "/.config/app.ini");
  old ? setenv("XDG_CONFIG_HOME", saved.c_str(), 1) : unsetenv("XDG_CONFIG_HOME");
}

TEST_F(ProfileStoreTest, ProcessWideStoreUsesTheProcessWideFileSystem) {
  SetFileSystem(fs_);
  EXPECT_EQ(GetFileSystem(), fs_);
  EXPECT_TRUE(GetProfileStore()->WritePrivateProfileString("S", "k", "v", kFile));
  SetFileSystem(nullptr);
  EXPECT_EQ(GetFileSystem().get(), FileSystem::Default());
  EXPECT_EQ(Content(), "[S]\nk=v\n");
  SetProfileStore(store_);
  EXPECT_EQ(GetProfileStore(), store_);
  SetProfileStore(nullptr);
  EXPECT_TRUE(GetProfileStore() != store_ && GetProfileStore() != nullptr);
}

// On real files.

TEST_F(ProfileStoreTest, DiskRefusedWritesChangeAndCreateNothing) {
  const std::string file = tmp_ / "ro.ini";
  Put("[S]\nk=1\n", disk_, file);
  ASSERT_EQ(::chmod(file.c_str(), 0444), 0);
  const std::pair<std::string, uint32_t> rows[] = {
      {file, kProfileAccessDenied}, {tmp_ / "no/x.ini", kProfilePathNotFound}, {tmp_.path(), kProfileAccessDenied}};
  for (const auto& [path, code] : rows) {
    EXPECT_FALSE(disk_store_->WritePrivateProfileString("S", "k", "2", path)) << path;
    EXPECT_EQ(disk_store_->LastError(), code) << path;
  }
  EXPECT_EQ(Content(file, disk_), "[S]\nk=1\n");
  std::vector<std::string> names;
  ASSERT_TRUE(disk_->GetChildren(tmp_.path(), &names).ok());
  EXPECT_EQ(names, std::vector<std::string>{"ro.ini"});
}

TEST_F(ProfileStoreTest, FailedRenameKeepsTheOldFile) {
  auto faulty = std::make_shared<FaultInjectingFileSystem>(fs_);
  auto store = NewProfileStore(faulty);
  Put("[S]\nk=1\n");
  faulty->FailNth(FaultInjectingFileSystem::Op::kRename, 1, ENOSPC);
  EXPECT_FALSE(store->WritePrivateProfileString("S", "k", "2", kFile));
  EXPECT_EQ(store->LastError(), kProfileDiskFull);
  EXPECT_EQ(Content(), "[S]\nk=1\n");
  EXPECT_EQ(Value("S", "k", "", store.get()), "1");
  std::vector<std::string> names;
  ASSERT_TRUE(fs_->GetChildren("/d", &names).ok());
  EXPECT_EQ(names, std::vector<std::string>{"p.ini"});
}

TEST_F(ProfileStoreTest, DiskCacheNoticesSameSizeChangeWithRestoredTime) {
  const std::string file = tmp_ / "c.ini";
  ASSERT_TRUE(disk_store_->WritePrivateProfileString("S", "k", "1", file));
  EXPECT_EQ(Value("S", "k", "", disk_store_.get(), file), "1");
  struct stat before;
  ASSERT_EQ(::stat(file.c_str(), &before), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  // Another writer edits the file in place, keeping size, inode and mtime.
  Put("[S]\nk=2\n", disk_, file);
  struct timespec times[2] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  EXPECT_EQ(Value("S", "k", "", disk_store_.get(), file), "2");
}

TEST_F(ProfileStoreTest, DiskProcessesWritingTheSameFileLoseNoUpdate) {
  const std::string file = tmp_ / "shared.ini";
  constexpr int kChildren = 4, kWrites = 25;
  auto key = [](int c, int i) { return "c" + std::to_string(c) + "k" + std::to_string(i); };
  std::vector<pid_t> pids;
  for (int c = 0; c < kChildren; ++c) {
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      auto store = NewProfileStore();
      bool ok = true;
      for (int i = 0; i < kWrites; ++i) ok = store->WritePrivateProfileString("S", key(c, i).c_str(), "v", file) && ok;
      ::_exit(ok ? 0 : 1);
    }
    pids.push_back(pid);
  }
  for (pid_t pid : pids) {
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  for (int c = 0; c < kChildren; ++c)
    for (int i = 0; i < kWrites; ++i) EXPECT_EQ(Value("S", key(c, i).c_str(), "", disk_store_.get(), file), "v");
}

}  // namespace
}  // namespace tarvo2
