// The file system, the profile store on it, the registry store and the small
// platform services.
#include "tarvo2/file_system.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/unicode_case.h"
#include "tarvo2/codepage.h"
#include "tarvo2/convert.h"
#include "tarvo2/error.h"
#include "tarvo2/host_module.h"
#include "tarvo2/profile_store.h"
#include "tarvo2/random.h"
#include "tarvo2/registry_store.h"
#include "tarvo2/testing/file_system.h"
#include "tarvo2/testing/registry_store.h"
#include "platform_temp_dir.h"

namespace tarvo2 {
namespace {

using namespace std::string_literals;
using Names = std::vector<std::string>;

// The names in the folder `dir`, sorted.
Names ChildrenOf(FileSystem* fs, const std::string& dir) {
  Names names;
  EXPECT_TRUE(fs->GetChildren(dir, &names).ok()) << dir;
  std::sort(names.begin(), names.end());
  return names;
}

// Runs `child` (given its number, giving its exit code) in `count` forked
// processes, and expects each to exit with 0.
void InChildren(int count, const std::function<int(int)>& child) {
  std::vector<pid_t> pids;
  for (int c = 0; c < count; ++c) {
    pids.push_back(::fork());
    ASSERT_GE(pids.back(), 0);
    if (pids.back() == 0) ::_exit(child(c));
  }
  for (pid_t pid : pids) {
    int status = 0;
    EXPECT_TRUE(::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
}


// The same behaviour is required of the POSIX and the in-memory file system.
class FileSystemTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    fs_ = GetParam() ? std::shared_ptr<FileSystem>(FileSystem::Default(), [](FileSystem*) {}) : NewMemFileSystem();
    root_ = GetParam() ? tmp_.path() : "/t";
    ASSERT_TRUE(GetParam() ? !root_.empty() : fs_->CreateDir(root_).ok());
  }
  std::string P(const std::string& name) { return root_ + "/" + name; }
  void Write(const std::string& name, const std::string& data) {
    ASSERT_TRUE(fs_->WriteFile(P(name), data, false).ok()) << name;
  }
  std::string Read(const std::string& name) {
    std::string s = "<missing>";
    fs_->ReadFile(P(name), &s);
    return s;
  }
  Names Children() { return ChildrenOf(fs_.get(), root_); }
  FileInfo Info(const std::string& name, bool version_only = false) {
    FileInfo info;
    FileStatus s = version_only ? fs_->GetFileVersion(P(name), &info) : fs_->GetFileInfo(P(name), &info);
    EXPECT_TRUE(s.ok()) << s.ToString();
    return info;
  }

  testing::PlatformTempDir tmp_;
  std::shared_ptr<FileSystem> fs_;
  std::string root_;
};

TEST_P(FileSystemTest, ReadWriteAppendDeleteExistsAndTheirFailures) {
  Write("f", std::string("a\0b", 3));
  ASSERT_TRUE(fs_->AppendFile(P("f"), "cd").ok());
  EXPECT_EQ(Read("f"), std::string("a\0bcd", 5));
  ASSERT_TRUE(fs_->WriteFile(P("f"), "x", true).ok());  // truncates
  ASSERT_TRUE(fs_->AppendFile(P("new"), "y").ok());
  EXPECT_EQ(Read("new"), "y");
  ASSERT_TRUE(fs_->DeleteFile(P("new")).ok());
  EXPECT_FALSE(fs_->Exists(P("new")));
  std::string out;
  std::unique_ptr<FileLock> lock;
  const std::pair<FileStatus, int> failures[] = {
      {fs_->ReadFile(P("missing"), &out), 53},         {fs_->ReadFile(root_, &out), 75},
      {fs_->WriteFile(P("nodir/f"), "1", false), 76},  {fs_->WriteFile(P("f/f"), "1", false), 76},
      {fs_->WriteFile(root_, "1", false), 75},         {fs_->DeleteFile(P("missing")), 53},
      {fs_->CreateDir(P("f")), 58},                    {fs_->LockFile(P("nodir/f"), &lock), 76},
      {PosixError(P("f"), ENAMETOOLONG, ErrnoContext::kAccess), 52},
  };
  for (const auto& [status, number] : failures) {  // each names the number and the path
    EXPECT_EQ(status.error_number(), number) << status.ToString();
    EXPECT_NE(status.message().find(root_), std::string::npos) << status.ToString();
  }
  ASSERT_TRUE(fs_->LockFile(P("f"), &lock).ok());
  EXPECT_EQ(Read("f"), "x");
  EXPECT_EQ(Children(), Names{"f"});  // the lock leaves no file behind
  ASSERT_TRUE(fs_->CreateDir(P("empty")).ok());
  ASSERT_TRUE(fs_->CreateDir(P("blank")).ok());
  Write("blank/  ", "");
  Write("a.ini", "");
  struct Row { std::string path; bool exists; };
  const Row rows[] = {{"", false}, {P("a.ini"), true}, {P("A.INI"), false}, {P("empty/"), true}, {P("*.ini"), true},
                      {P("x*"), false}, {P("?.in?"), true}, {P("??.ini"), false}, {P("empty/*"), false}, {P("blank/*"), false},
                      {P("blank/  "), false}, {P("a.ini/x"), false}};
  for (const Row& r : rows) EXPECT_EQ(fs_->PathExists(r.path), r.exists) << r.path;
}

TEST_P(FileSystemTest, FileInfoFileVersionAndAtomicReplace) {
  EXPECT_FALSE(Info("f").exists || Info("f", true).exists);
  Write("f", "one");
  FileInfo a = Info("f");
  EXPECT_TRUE(a.exists && !a.is_directory && a.size == 3);
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("f"), "two").ok());
  FileInfo b = Info("f"), b_version = Info("f", true);
  EXPECT_NE(a.inode, b.inode);  // a new file took the old one's place
  EXPECT_TRUE(!a.SameVersion(b) && b_version.SameVersion(b));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  Write("f", "six");
  FileInfo c = Info("f"), c_version = Info("f", true);
  EXPECT_EQ(b.inode, c.inode);
  EXPECT_FALSE(b.SameVersion(c) || c_version.SameVersion(b_version));  // same size and inode, newer time
  EXPECT_TRUE(c_version.SameVersion(c));
  // An atomic replace keeps the mode, and refuses what it cannot replace.
  ASSERT_TRUE(fs_->ChangeMode(P("f"), 0640).ok());
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("f"), "new").ok());
  EXPECT_EQ(Info("f").mode, 0640u);
  EXPECT_EQ(Read("f"), "new");
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("created"), "c").ok());
  Write("ro", "old");
  ASSERT_TRUE(fs_->ChangeMode(P("ro"), 0444).ok());
  const std::pair<std::string, int> refused[] = {{P("ro"), 70}, {root_, 75}, {P("nodir/f"), 76}};
  for (const auto& [path, number] : refused) EXPECT_EQ(fs_->ReplaceFileAtomically(path, "x").error_number(), number);
  EXPECT_EQ(Read("ro"), "old");
  EXPECT_EQ(Children(), (Names{"created", "f", "ro"}));  // no temporary file left
}

TEST_P(FileSystemTest, InjectedFaultsLeaveTheOldFile) {
  auto faulty = std::make_shared<FaultInjectingFileSystem>(fs_);
  using Op = FaultInjectingFileSystem::Op;
  Write("f", "old");
  for (auto [op, err, number] : {std::tuple{Op::kRename, EIO, 57}, std::tuple{Op::kWrite, ENOSPC, 61}}) {
    SCOPED_TRACE(number);
    faulty->FailNth(op, 1, err);
    EXPECT_EQ(faulty->ReplaceFileAtomically(P("f"), "new").error_number(), number);
    EXPECT_EQ(Read("f"), "old");
    EXPECT_EQ(Children(), Names{"f"});
  }
  faulty->FailNth(Op::kWrite, 2, EIO);  // only the second write fails
  std::string results;
  for (const char* data : {"1", "2", "3"}) results += faulty->WriteFile(P("g"), data, false).ok() ? "ok " : "failed ";
  EXPECT_EQ(results, "ok failed ok ");
  EXPECT_EQ(Read("g"), "3");
}

TEST_P(FileSystemTest, AtomicReplaceWritesThroughSymbolicLinks) {
  if (!GetParam()) GTEST_SKIP() << "the in-memory file system has no links";
  Write("t.ini", "old");
  ASSERT_EQ(::symlink("t.ini", P("link").c_str()) | ::symlink("link", P("link2").c_str()), 0);
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("link2"), "new").ok());
  struct stat st;
  EXPECT_TRUE(::lstat(P("link2").c_str(), &st) == 0 && S_ISLNK(st.st_mode));
  EXPECT_EQ(Read("t.ini"), "new");
}

TEST_P(FileSystemTest, LocksArePerFileAndFollowTheFileThatReplacedTheLockedOne) {
  using namespace std::chrono_literals;
  auto lock_in_thread = [&](const std::string& name) {
    return std::async(std::launch::async, [this, name] {
      auto lock = std::make_unique<std::unique_ptr<FileLock>>();
      EXPECT_TRUE(fs_->LockFile(P(name), lock.get()).ok()) << name;
      return lock;
    });
  };
  auto held = std::make_unique<std::unique_ptr<FileLock>>();
  ASSERT_TRUE(fs_->LockFile(P("a.ini"), held.get()).ok());
  EXPECT_EQ(Read("a.ini"), "");  // a missing file is created to be locked
  auto other = lock_in_thread("b.ini"), same = lock_in_thread("a.ini");
  EXPECT_EQ(other.wait_for(10s), std::future_status::ready);  // another file of the folder: no wait
  EXPECT_EQ(same.wait_for(100ms), std::future_status::timeout);
  // The holder renames a new file over the locked one and lets go: the
  // waiter must end up holding the new file, so a third writer waits.
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("a.ini"), "new").ok());
  held.reset();
  ASSERT_EQ(same.wait_for(10s), std::future_status::ready);
  held = same.get();
  auto third = lock_in_thread("a.ini");
  EXPECT_EQ(third.wait_for(100ms), std::future_status::timeout);
  held.reset();
  EXPECT_EQ(third.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(Read("a.ini"), "new");
  EXPECT_EQ(Children(), (Names{"a.ini", "b.ini"}));  // no lock files
}

// What only real files and processes show: a killed writer's temporary file
// goes at the next write of its target while a live writer's stays, a
// failed append is cut back, and what is not a regular file is refused at
// once, without blocking.
TEST_P(FileSystemTest, KilledWritersFailedAppendsAndNonRegularFiles) {
  if (!GetParam()) GTEST_SKIP() << "needs processes and real files";
  // A writer stopped just before its rename, as kill -9 can leave it: it
  // dies there, or first waits until `wait` is closed.
  struct StopBeforeRename : FileSystemWrapper {
    StopBeforeRename(std::shared_ptr<FileSystem> fs, int ready, int wait)
        : FileSystemWrapper(std::move(fs)), ready_(ready), wait_(wait) {}
    FileStatus RenameFile(const std::string&, const std::string&) override {
      char c = 0;
      if (ready_ >= 0 && ::write(ready_, &c, 1) == 1) while (::read(wait_, &c, 1) > 0) {}
      ::_exit(0);
    }
    int ready_, wait_;
  };
  Write("f", "old");
  int ready[2], wait[2];
  ASSERT_EQ(::pipe(ready) | ::pipe(wait), 0);
  auto writer = [&](const std::string& name, bool stays) {
    pid_t pid = ::fork();
    if (pid == 0) {
      ::close(wait[1]);
      StopBeforeRename stop(fs_, stays ? ready[1] : -1, wait[0]);
      stop.ReplaceFileAtomically(P(name), "temp");
      ::_exit(1);
    }
    char c;
    siginfo_t info;
    if (stays) EXPECT_EQ(::read(ready[0], &c, 1), 1);
    else ::waitid(P_PID, pid, &info, WEXITED | WNOWAIT);  // dead, but not reaped yet
    return pid;
  };
  pid_t live = writer("f", true);
  pid_t dead = writer("f", false);
  ::waitpid(writer("g", false), nullptr, 0);
  EXPECT_EQ(Children().size(), 4u);  // f and three temporary files
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("f"), "new").ok());
  EXPECT_EQ(Children().size(), 3u);  // the dead writer's of f went; the live one's and g's stay
  ::waitpid(dead, nullptr, 0);
  ::close(wait[1]);
  ::waitpid(live, nullptr, 0);
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("f"), "newer").ok() && fs_->ReplaceFileAtomically(P("g"), "g").ok());
  EXPECT_EQ(Children(), (Names{"f", "g"}));
  EXPECT_EQ(Read("f"), "newer");
  for (int fd : {ready[0], ready[1], wait[0]}) ::close(fd);

  // An append that fills the disk (here: the file size limit) is cut back.
  InChildren(1, [&](int) {
    ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {8192, 8192};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
    FileStatus s = fs_->AppendFile(P("f"), std::string(100000, 'x'));
    return s.error_number() == kDiskFull && Read("f") == "newer" ? 0 : 1;
  });

  ASSERT_EQ(::mkfifo(P("fifo").c_str(), 0666), 0);
  std::string out;
  std::unique_ptr<FileLock> lock;
  const std::pair<const char*, FileStatus> refused[] = {
      {"read fifo", fs_->ReadFile(P("fifo"), &out)}, {"write fifo", fs_->WriteFile(P("fifo"), "x", true)},
      {"append fifo", fs_->AppendFile(P("fifo"), "x")}, {"replace fifo", fs_->ReplaceFileAtomically(P("fifo"), "x")},
      {"lock fifo", fs_->LockFile(P("fifo"), &lock)}, {"read /dev/zero", fs_->ReadFile("/dev/zero", &out)},
  };
  for (const auto& [what, status] : refused) EXPECT_EQ(status.error_number(), kPathFileAccessError) << what;
  struct stat st;
  EXPECT_TRUE(::lstat(P("fifo").c_str(), &st) == 0 && S_ISFIFO(st.st_mode) && out.empty());
}

INSTANTIATE_TEST_SUITE_P(PosixAndMemory, FileSystemTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Posix" : "Memory"; });

// The profile store: reading, listing and writing on the in-memory file
// system, and on real files what only the POSIX file system can show.
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
  std::shared_ptr<ProfileStore> disk_store_ = NewProfileStore(std::shared_ptr<FileSystem>(disk_, [](FileSystem*) {}));
};

TEST_F(ProfileStoreTest, ReadsValuesAsWindowsDoes) {
  struct Row { const char* name; std::string content; const char* section; const char* key; std::string want; };
  const Row rows[] = {
      {"crlf", "[S]\r\nk=v\r\n", "S", "k", "v"}, {"lone cr, unterminated", "[S]\rk=v\rj=w", "S", "j", "w"},
      {"blanks", " \t[ S ] \n\t k \t= \t v w \t\n", "S", "k", "v w"}, {"no ]", "[A b\nk=1", "A b", "k", "1"},
      {"first = splits", "[S]\na=b=c", "S", "a", "b=c"}, {"no trailing comment", "[S]\nc=3 ;x", "S", "c", "3 ;x"},
      {"comment", "[S]\n;k=1\n", "S", ";k", "<def>"}, {"double quotes", "[S]\nk=\" x \"", "S", "k", " x "},
      {"mismatched quotes", "[S]\nk=\"x'", "S", "k", "\"x'"}, {"inner quotes", "[S]\nk=a\"b\"", "S", "k", "a\"b\""},
      {"first key wins", "[S]\nk=1\nK=2", "S", "k", "1"}, {"nul bytes", "[S]\nk=a\0b\n"s, "S", "k", "a\0b"s},
      {"first section wins", "[S]\nk=1\n[s]\nk=2\nj=3", "S", "j", "<def>"}, {"ascii case", "[Sect]\nKey=v", "SECT", "kEY", "v"},
      {"cp1252 case", "[\xC4\x8C]\n\xC9\x8A=1", "\xE4\x9C", "\xE9\x9A", "1"},
      {"utf8", "\xEF\xBB\xBF[\xC3\x84]\nk=\xC3\xA9\xE2\x82\xAC\xE4\xB8\xAD", "\xE4", "K", "\xE9\x80?"},
      {"megabyte line cut to the buffer", "[S]\nk=" + std::string(1 << 20, 'x'), "S", "k", std::string(1023, 'x')},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    Put(r.content);
    EXPECT_EQ(Value(r.section, r.key), r.want);
  }
}

TEST_F(ProfileStoreTest, ValuesDefaultsListsMissingFilesAndBadBuffers) {
  const std::pair<const char*, uint32_t> missing[] = {
      {kFile, kProfileFileNotFound}, {"/nodir/x.ini", kProfilePathNotFound}, {"/d", kProfileAccessDenied}};
  for (auto [file, code] : missing) {
    EXPECT_EQ(Value("S", "k", "dflt ", nullptr, file), "dflt");
    EXPECT_EQ(store_->LastError(), code) << file;
  }
  EXPECT_EQ(store_->GetPrivateProfileString("S", "k", "d", nullptr, 5, kFile), 0u);
  EXPECT_EQ(store_->LastError(), kProfileInvalidParameter);
  Put("k=0\n[S]\nv=abcdef\n;c=1\nx\nk=1\nK=2\n=3\n[BB]\n[s]\nj=1\n[]\n");
  struct Row { const char* section; const char* key; const char* def; uint32_t size; std::string want; uint32_t n; };
  const Row rows[] = {
      {"S", "v", "", 7, "abcdef\0"s, 6}, {"S", "v", "", 6, "abcde\0"s, 5}, {"S", "v", "", 0, "", 0},
      {"S", "x", "abc  ", 1024, "abc\0"s, 3}, {"S", "x", "  abc", 1024, "  abc\0"s, 5}, {"S", "x", nullptr, 1024, "\0"s, 0},
      {"S", "x", "abcdef", 3, "ab\0"s, 2},
      // Lists: the section names, then the keys of a section.
      {nullptr, "k", "d", 1024, "S\0BB\0s\0\0"s, 7}, {nullptr, "k", "d", 8, "S\0BB\0s\0\0"s, 6},  // fitting exactly is cut too
      {nullptr, "k", "d", 5, "S\0B\0\0"s, 3}, {nullptr, "k", "d", 2, "\0\0"s, 0}, {"BB", nullptr, "d", 1024, "\0"s, 0},
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

TEST_F(ProfileStoreTest, WritesEditInPlace) {
  // The file before and after (nullopt: no file), and LastError().
  struct Row { const char *name; std::optional<std::string> before; const char *section, *key, *value;
               std::optional<std::string> after; uint32_t code; };
  const Row rows[] = {
      {"replace keeps spelling and blanks", "[Sec]\r\n  Key = old  \r\nz=1", "SEC", "key", "new", "[Sec]\r\n  Key = new\r\nz=1", 0},
      {"replace quoted", "[S]\nk=\"a b\" \n", "S", "k", "c", "[S]\nk=c\n", 0},
      {"other bytes kept", "; h\0\n[S]\n\tk\t=\t1 ;c\n\n"s, "S", "k", "2", "; h\0\n[S]\n\tk\t=\t2\n\n"s, 0},
      {"new key after last key", "[S]\na=1\n\n;c\n[T]\n", "S", "b", "2", "[S]\na=1\nb=2\n\n;c\n[T]\n", 0},
      {"new section crlf", "[S]\r\na=1\r\n", "T", "b", "2", "[S]\r\na=1\r\n[T]\r\nb=2\r\n", 0},
      {"new file uses lf", std::nullopt, " S ", " k ", " v ", "[S]\nk= v \n", 0}, {"empty section", "", "", "k", "v", "[]\nk=v\n", 0},
      {"delete key", "[S]\na=1\nb=2\n", "S", "A", nullptr, "[S]\nb=2\n", 0}, {"delete last key keeps header", "[S]\nb=2", "S", "b", nullptr, "[S]\n", 0},
      {"delete section keeps comments", "[S]\na=1\n;c\nb=2\n[T]\nx=1\n", "s", nullptr, nullptr, ";c\n[T]\nx=1\n", 0},
      {"delete in missing file", std::nullopt, "S", "k", nullptr, std::nullopt, 0},
      {"utf8 kept", "\xEF\xBB\xBF[S]\nk=\xE4\xB8\xAD\n", "S", "k", "\xE9", "\xEF\xBB\xBF[S]\nk=\xC3\xA9\n", 0},
      {"null section", "[S]\n", nullptr, "k", "v", "[S]\n", 2}, {"null section and key", "[S]\n", nullptr, nullptr, "v", "[S]\n", 0},
      {"key with ;", "[S]\n", "S", " ;k", "v", "[S]\n", 87}, {"lf in key of delete", "[S]\nk=1", "S", "k\n", nullptr, "[S]\nk=1", 87},
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

TEST_F(ProfileStoreTest, BareNamesGoToTheConfigurationFolder) {
  testing::ScopedEnv config("XDG_CONFIG_HOME", "relative");
  EXPECT_EQ(ResolveProfilePath("app.ini"), std::string(std::getenv("HOME")) + "/.config/app.ini");
  config.Set("/cfg/home");
  const Names resolved = {ResolveProfilePath("app.ini"), ResolveProfilePath("./app.ini"), ResolveProfilePath("/etc/a.ini")};
  EXPECT_EQ(resolved, (Names{"/cfg/home/app.ini", "./app.ini", "/etc/a.ini"}));
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "k", "v", "app.ini"));
  EXPECT_EQ(Content("/cfg/home/app.ini"), "[S]\nk=v\n");
}

TEST_F(ProfileStoreTest, RefusedWritesKeepTheOldFileAndLeaveNoOther) {
  auto faulty = std::make_shared<FaultInjectingFileSystem>(fs_);
  auto store = NewProfileStore(faulty);
  Put("[S]\nk=1\n");
  for (const char* file : {kFile, "/d/new.ini"}) {  // a new file made for the lock goes again
    faulty->FailNth(FaultInjectingFileSystem::Op::kRename, 1, ENOSPC);
    EXPECT_FALSE(store->WritePrivateProfileString("S", "k", "2", file));
    EXPECT_EQ(store->LastError(), kProfileDiskFull);
  }
  ASSERT_TRUE(fs_->ChangeMode(kFile, 0444).ok());
  const std::pair<const char*, uint32_t> rows[] = {
      {kFile, kProfileAccessDenied}, {"/d/no/x.ini", kProfilePathNotFound}, {"/d", kProfileAccessDenied}};
  for (auto [file, code] : rows) {
    EXPECT_FALSE(store->WritePrivateProfileString("S", "k", "2", file)) << file;
    EXPECT_EQ(store->LastError(), code) << file;
  }
  EXPECT_EQ(Content(), "[S]\nk=1\n");
  EXPECT_EQ(ChildrenOf(fs_.get(), "/d"), Names{"p.ini"});
}

// Time stamps that stand still, as coarse ones do within one tick: another
// writer's change of the same size, in place, right after a read is seen.
TEST_F(ProfileStoreTest, ChangesWithinOneTimeStampTickAreSeen) {
  struct StillClock : FileSystemWrapper {
    using FileSystemWrapper::FileSystemWrapper;
    FileStatus GetFileInfo(const std::string& path, FileInfo* info) override {
      FileStatus s = FileSystemWrapper::GetFileInfo(path, info);
      info->mtime_ns = info->ctime_ns = tick;
      return s;
    }
    FileStatus GetFileVersion(const std::string& path, FileInfo* info) override { return GetFileInfo(path, info); }
    int64_t tick = std::chrono::duration_cast<std::chrono::nanoseconds>(
                       std::chrono::system_clock::now().time_since_epoch()).count();
  };
  auto store = NewProfileStore(std::make_shared<StillClock>(fs_));
  for (const char* value : {"1", "2", "3"}) {
    Put(std::string("[S]\nk=") + value + "\n");
    EXPECT_EQ(Value("S", "k", "<def>", store.get()), value);
  }
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
  // A FIFO is neither read nor written, and nothing waits on it.
  const std::string fifo = tmp_ / "fifo.ini";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0666), 0);
  EXPECT_EQ(Value("S", "k", "<def>", disk_store_.get(), fifo), "<def>");
  EXPECT_EQ(disk_store_->LastError(), kProfileAccessDenied);
  EXPECT_FALSE(disk_store_->WritePrivateProfileString("S", "k", "1", fifo));
  EXPECT_EQ(disk_store_->LastError(), kProfileAccessDenied);
}

TEST_F(ProfileStoreTest, DiskProcessesWritingTheSameFileLoseNoUpdate) {
  const std::string file = tmp_ / "shared.ini";
  constexpr int kChildren = 4, kWrites = 25;
  auto key = [](int c, int i) { return "c" + std::to_string(c) + "k" + std::to_string(i); };
  InChildren(kChildren, [&](int c) {  // each exits with its count of failed writes
    auto store = NewProfileStore();
    int failed = 0;
    for (int i = 0; i < kWrites; ++i) failed += !store->WritePrivateProfileString("S", key(c, i).c_str(), "v", file);
    return failed;
  });
  for (int c = 0; c < kChildren; ++c)
    for (int i = 0; i < kWrites; ++i) EXPECT_EQ(Value("S", key(c, i).c_str(), "", disk_store_.get(), file), "v");
}

// The registry store's nine calls on in-memory registries; on disk its
// persistence, several processes, store failures and fault injection.
std::uint8_t* U(std::string& s) { return reinterpret_cast<std::uint8_t*>(s.data()); }
RegKey Create(RegistryStore* s, RegKey parent, const std::string& path) {
  RegKey key = 0;
  EXPECT_EQ(0, s->CreateKey(parent, path.c_str(), kKeyAllAccess, &key, nullptr)) << path;
  return key;
}
std::int32_t Set(RegistryStore* s, RegKey key, const char* name, std::string data, std::uint32_t type = kRegBinary) {
  return s->SetValue(key, name, type, U(data), static_cast<std::uint32_t>(data.size()));
}
// The value's bytes, or "<code>" when it cannot be read.
std::string Get(RegistryStore* s, RegKey key, const char* name, std::uint32_t* type = nullptr) {
  std::uint32_t size = 0;
  std::int32_t c = s->QueryValue(key, name, type, nullptr, &size);
  std::string out(c == 0 ? size : 0, '\0');
  if (c == 0) c = s->QueryValue(key, name, type, U(out), &size);
  return c == 0 ? out : "<" + std::to_string(c) + ">";
}
// The names of the subkeys, or of the values, of `key` in their order.
Names SubKeys(RegistryStore* s, RegKey key, bool values = false) {
  Names names;
  char buf[300];
  for (std::uint32_t n = sizeof buf; (values ? s->EnumValue(key, names.size(), buf, &n, 0, 0, 0)
                                             : s->EnumKey(key, names.size(), buf, n)) == 0; n = sizeof buf)
    names.push_back(buf);
  return names;
}
class RegistryStoreTest : public ::testing::Test {
 protected:
  // A path to the deepest level allowed.
  static std::string Deep() { std::string d; for (std::size_t i = 0; i < kMaxKeyDepth; ++i) d += "d\\"; return d; }
  std::shared_ptr<RegistryStore> store_ = OpenSqliteRegistryStore(":memory:");
  RegistryStore* s_ = store_.get();
  testing::PlatformTempDir tmp_;
  const std::string path_ = tmp_ / "registry.sqlite3";
};

// Every refusal leaves a 0 handle and the store as it was.
TEST_F(RegistryStoreTest, ResultCodesOfRefusedCalls) {
  RegKey closed = Create(s_, kHKeyCurrentUser, "closed"), doomed = Create(s_, kHKeyCurrentUser, "doomed");
  ASSERT_EQ(0, s_->CloseKey(closed) | s_->DeleteKey(kHKeyCurrentUser, "doomed"));
  Create(s_, kHKeyCurrentUser, "doomed");  // a new key in the deleted one's place: the old handle stays dead
  std::string deep = Deep(), too_long(kMaxKeyNameLength + 1, 'n'), long_value(kMaxValueNameLength + 1, 'v');
  RegKey app = Create(s_, kHKeyCurrentUser, "app"), bottom = Create(s_, kHKeyCurrentUser, deep), ro = 0;
  Create(s_, app, "sub");
  ASSERT_EQ(0, Set(s_, app, "v", "12345"));
  ASSERT_EQ(0, s_->OpenKey(kHKeyCurrentUser, "app", kKeyQueryValue, &ro));
  auto open = [&](RegKey parent, const std::string& path, bool create) {
    RegKey key = 77;
    std::int32_t c = create ? s_->CreateKey(parent, path.c_str(), kKeyAllAccess, &key, nullptr)
                            : s_->OpenKey(parent, path.c_str(), kKeyRead, &key);
    return (c == 0) == (key != 0) ? c : -1;
  };
  std::uint32_t type = 99, size = 0, len = 8;
  std::string buf(8, '#');
  char name[8] = "zz";
  struct Row { const char* what; std::int32_t code; std::function<std::int32_t()> call; };
  const Row rows[] = {
      {"leading \\", kErrorBadPathname, [&] { return open(kHKeyCurrentUser, "\\app", true); }},
      {"long component", kErrorInvalidParameter, [&] { return open(kHKeyCurrentUser, "x\\" + too_long + "\\y", true); }},
      {"depth counts from the root", kErrorInvalidParameter, [&] { return open(bottom, "e", true); }},
      {"open missing", kErrorFileNotFound, [&] { return open(kHKeyCurrentUser, "app\\nothing", false); }},
      {"set read-only", kErrorAccessDenied, [&] { return Set(s_, ro, "new", "2"); }},
      {"create through read-only", kErrorSuccess, [&] { return open(ro, "child", true); }},
      {"set null data", kErrorInvalidParameter, [&] { return s_->SetValue(app, "v", kRegBinary, nullptr, 3); }},
      {"long value name", kErrorInvalidParameter, [&] { return Set(s_, app, long_value.c_str(), "x"); }},
      {"longest value name", kErrorSuccess, [&] { return Set(s_, app, long_value.c_str() + 1, "x"); }},
      {"query missing sets type 0", kErrorFileNotFound,
       [&] { std::int32_t c = s_->QueryValue(app, "none", &type, nullptr, &size); return type == 0 ? c : -1; }},
      {"query without size", kErrorInvalidParameter, [&] { return s_->QueryValue(app, "v", &type, U(buf), nullptr); }},
      {"query into small buffer", kErrorMoreData, [&] {  // gives the size needed, leaves the buffer
         std::int32_t c = s_->QueryValue(app, "V", &type, U(buf), &(size = 4));
         return size == 5 && buf == "########" ? c : -1; }},
      {"delete key with subkeys", kErrorAccessDenied, [&] { return s_->DeleteKey(kHKeyCurrentUser, "app"); }},
      {"enum value past end", kErrorNoMoreItems, [&] { return s_->EnumValue(app, 2, name, &len, 0, 0, 0); }},
      {"enum key into small buffer", kErrorMoreData, [&] { return s_->EnumKey(app, 1, name, 3); }},
      {"create under a closed handle", kErrorInvalidHandle, [&] { return open(closed, "c", true); }},
      {"set on handle 0", kErrorInvalidHandle, [&] { return Set(s_, 0, "v", "x"); }},
      {"create under a deleted key", kErrorKeyDeleted, [&] { return open(doomed, "c", true); }},
      {"close a deleted key", kErrorSuccess, [&] { return s_->CloseKey(doomed); }},
  };
  for (const Row& row : rows) EXPECT_EQ(row.code, row.call()) << row.what;
  EXPECT_EQ((Names{"app", "closed", "d", "doomed"}), SubKeys(s_, kHKeyCurrentUser));
  EXPECT_EQ(Names{}, SubKeys(s_, kHKeyLocalMachine));  // the roots are separate trees
  EXPECT_EQ((Names{"child", "sub"}), SubKeys(s_, app));
  EXPECT_EQ("12345", Get(s_, app, "v"));
  EXPECT_EQ("x", Get(s_, app, long_value.c_str() + 1));
  EXPECT_STREQ("zz", name);
}

TEST_F(RegistryStoreTest, PathsAndLetterCaseNameTheSameKey) {
  const std::string long_name(kMaxKeyNameLength, 'n'), deep = Deep();
  // Each pair names one key; "/" is part of a name; null and "" are the key itself.
  const std::pair<std::string, std::string> paths[] = {
      {"a\\b", "A\\B"}, {"a\\b\\", "a\\b"}, {"a\\\\\\b", "a\\b"}, {"a/b", "a/b\\"},
      {long_name, long_name + "\\"}, {deep, deep.substr(0, deep.size() - 1)}, {"a", ""}};
  for (const auto& [path, same] : paths) {
    RegKey key = Create(s_, kHKeyCurrentUser, path), other = 0, self = 0;
    ASSERT_EQ(0, Set(s_, key, "marker", path) | s_->OpenKey(kHKeyCurrentUser, same.c_str(), kKeyRead, &other) |
                     s_->OpenKey(key, same.empty() ? nullptr : "", kKeyRead, &self));
    EXPECT_EQ(path + path, Get(s_, same.empty() ? key : other, "marker") + Get(s_, self, "marker"));
  }
  EXPECT_EQ((Names{"a", "a/b", "d", long_name}), SubKeys(s_, kHKeyCurrentUser));
  struct Row { const char *first, *second; bool same; };
  const Row rows[] = {
      {"Software", "SOFTWARE", true}, {"\xC4pfel", "\xE4PFEL", true}, {"\x8A", "\x9A", true}, {"\x9F", "\xFF", true},
      {"\xDF", "SS", false}, {"\xD7", "\xF7", false}, {"\xB5", "\x9C", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.first) + " / " + row.second);
    RegKey parent = Create(s_, kHKeyUsers, std::string("t\\") + row.first), key = Create(s_, parent, row.first);
    std::uint32_t disposition = 0;
    ASSERT_EQ(0, s_->CreateKey(parent, row.second, kKeyAllAccess, &key, &disposition));
    EXPECT_EQ(row.same ? kRegOpenedExistingKey : kRegCreatedNewKey, disposition);
    ASSERT_EQ(0, Set(s_, parent, row.first, "1") | Set(s_, parent, row.second, "2"));  // the same name: replaced
    // Keys and values keep the spelling they were created with.
    const Names names = row.same ? Names{row.first} : Names{row.first, row.second};
    EXPECT_EQ(names, SubKeys(s_, parent, true));
    const Names keys = SubKeys(s_, parent);
    EXPECT_TRUE(std::is_permutation(keys.begin(), keys.end(), names.begin(), names.end())) << keys.size();
  }
}

TEST_F(RegistryStoreTest, ValuesKeepExactBytesAndTypeAndTheirOrder) {
  RegKey key = Create(s_, kHKeyCurrentUser, "types");
  const std::string big = std::string(1 << 19, '\0') + std::string(1 << 19, '\xA5');
  struct Row { std::uint32_t type; std::string stored, read; };
  const Row rows[] = {
      {kRegNone, "", ""}, {kRegBinary, "\0\1\0\xFF"s, "\0\1\0\xFF"s}, {kRegSz, "abc\0"s, "abc\0"s},
      {kRegSz, "abc", "abc\0"s}, {kRegSz, "", "\0"s}, {kRegExpandSz, "%x%", "%x%\0"s},  // a missing NUL added
      {kRegMultiSz, "a\0b\0"s, "a\0b\0"s}, {0xDEADBEEF, "any", "any"}, {kRegBinary, big, big},
  };
  for (const Row& row : rows) {
    std::uint32_t type = 0;
    ASSERT_EQ(0, Set(s_, key, "v", row.stored, row.type)) << row.type;
    EXPECT_EQ(row.read, Get(s_, key, "V", &type));
    EXPECT_EQ(row.type, type);
  }
  ASSERT_EQ(0, Set(s_, key, nullptr, "default"));  // null and empty names are the same default value
  EXPECT_EQ("default", Get(s_, key, ""));
  key = Create(s_, kHKeyCurrentUser, "e");
  for (const char* name : {"zeta", "alpha", "", "Mid", "gone"}) Set(s_, key, name, name);
  Set(s_, key, "ALPHA", "replaced");  // keeps its place and spelling
  s_->DeleteValue(key, "gone");
  EXPECT_EQ((Names{"zeta", "alpha", "", "Mid"}), SubKeys(s_, key, true));
  // Value 1 is "alpha" = "replaced". A short name buffer: the name cut, the data written;
  // a short data buffer: the size needed, nothing written.
  char name[8];
  auto second = [&](std::uint32_t len, std::uint32_t size) {  // code|name|name length|data size|data
    std::string data(16, '#');
    std::strcpy(name, "xxx");
    std::int32_t c = s_->EnumValue(key, 1, name, &len, nullptr, U(data), &size);
    return std::to_string(c) + "|" + name + "|" + std::to_string(len) + "|" + std::to_string(size) + "|" + data;
  };
  EXPECT_EQ("234|al|3|8|replaced########", second(3, 16));
  EXPECT_EQ("234|alph|5|8|replaced########", second(5, 16));  // no room for the NUL
  EXPECT_EQ("0|alpha|5|8|replaced########", second(6, 16));
  EXPECT_EQ("234|xxx|8|8|################", second(8, 2));
  for (const char* sub : {"b", "_x", "C", "A", "\xE4", "\xC1"}) Create(s_, key, sub);
  // Letter case is folded upwards: "_" sorts after the letters.
  EXPECT_EQ((Names{"A", "b", "C", "_x", "\xC1", "\xE4"}), SubKeys(s_, key));
  EXPECT_EQ("0 _x", std::to_string(s_->EnumKey(key, 3, name, 3)) + " " + name);  // a buffer that just fits
}

// On disk.

TEST_F(RegistryStoreTest, ConcurrentProcessesLoseNoWriteAndItLasts) {
  constexpr int kChildren = 4, kEach = 40;
  OpenSqliteRegistryStore(path_);  // create the file, then close it
  EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(path_).permissions());
  InChildren(kChildren, [&](int c) {
    int failures = 0;
    auto store = OpenSqliteRegistryStore(path_);
    for (int i = 0; i < kEach; ++i) {  // all create "Shared", each its own subkeys and values
      RegKey key = 0, sub = 0;
      std::string name = std::to_string(c * kEach + i);
      failures += (store->CreateKey(kHKeyCurrentUser, "Shared", kKeyAllAccess, &key, nullptr) |
                   Set(store.get(), key, name.c_str(), name) | store->CreateKey(key, name.c_str(), kKeyAllAccess, &sub, 0) |
                   store->CloseKey(sub) | store->CloseKey(key)) != 0;
    }
    return failures;
  });
  auto store = OpenSqliteRegistryStore(path_);
  RegKey key = 0;
  ASSERT_EQ(0, store->OpenKey(kHKeyCurrentUser, "sHARED", kKeyRead, &key));
  Names names = SubKeys(store.get(), key, true);
  ASSERT_EQ(std::size_t{kChildren * kEach}, names.size());
  for (const std::string& name : names) EXPECT_EQ(name, Get(store.get(), key, name.c_str()));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, SubKeys(store.get(), key));
}

TEST_F(RegistryStoreTest, ReadOnlyFileReadsButRefusesWrites) {
  auto disk = OpenSqliteRegistryStore(path_);
  ASSERT_EQ(0, Set(disk.get(), Create(disk.get(), kHKeyCurrentUser, "Kept"), "v", "stored"));
  disk.reset();
  ASSERT_EQ(0, ::chmod(path_.c_str(), 0400));
  // The superuser writes through any mode: check as an ordinary user then.
  // The child exits with 10 + the index of the first check that failed.
  // First in a folder that can only be read, where no shared-memory file
  // can be made for the database, then in a writable one.
  for (bool folder_read_only : {true, false}) InChildren(1, [&](int) {
    if (::geteuid() == 0 && (::chown(tmp_.path().c_str(), 65534, 65534) != 0 ||
                             ::chown(path_.c_str(), 65534, 65534) != 0))
      return 1;
    if (::chmod(tmp_.path().c_str(), folder_read_only ? 0500 : 0700) != 0 ||
        (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)))
      return 2;
    std::int32_t open = -1;
    auto store = OpenSqliteRegistryStore(path_, {}, &open);
    RegKey key = 0, created = 0;
    const bool ok[] = {
        open == 0, store->OpenKey(kHKeyCurrentUser, "kept", kKeyAllAccess, &key) == 0,
        Get(store.get(), key, "v") == "stored", Set(store.get(), key, "v", "changed") == kErrorCantWrite,
        store->DeleteValue(key, "v") == kErrorCantWrite, store->CreateKey(key, "new", kKeyAllAccess, &created, nullptr) == kErrorCantWrite,
        // An existing key can still be "created", which only opens it.
        store->CreateKey(kHKeyCurrentUser, "Kept", kKeyAllAccess, &created, nullptr) == 0,
        Get(store.get(), key, "v") == "stored",
    };
    const bool* failed = std::find(ok, std::end(ok), false);
    return failed == std::end(ok) ? 0 : 10 + int(failed - ok);
  });
  ::chmod(tmp_.path().c_str(), 0700);
}

TEST_F(RegistryStoreTest, ALockHeldAtFirstUseFailsOnlyTheCallsWhileItIsHeld) {
  OpenSqliteRegistryStore(path_);  // makes the tables
  sqlite3* other = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(path_.c_str(), &other));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; DELETE FROM reg_values",
                                    nullptr, nullptr, nullptr));
  std::int32_t open = -1;
  auto store = OpenSqliteRegistryStore(path_, {.busy_timeout_ms = 20}, &open);
  EXPECT_EQ(kErrorCantWrite, open);
  EXPECT_EQ(kErrorCantWrite, Set(store.get(), kHKeyCurrentUser, "v", "1"));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr) | sqlite3_close(other));
  EXPECT_EQ(kErrorSuccess, Set(store.get(), kHKeyCurrentUser, "v", "1"));
  EXPECT_EQ("1", Get(store.get(), kHKeyCurrentUser, "v"));
}

TEST_F(RegistryStoreTest, StoreFailuresGiveCodesAndLeaveNothingHalfDone) {
  auto damaged = [](const std::string& path) {
    auto store = OpenSqliteRegistryStore(path);
    RegKey key = Create(store.get(), kHKeyCurrentUser, "k");
    for (int i = 0; i < 200; ++i) Set(store.get(), key, std::to_string(i).c_str(), std::string(100, 'v'));
    store.reset();  // then noise over every page after the first, which holds only the header
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    for (f.seekp(4096); f.tellp() < std::streamoff(std::filesystem::file_size(path));) f.put(char(f.tellp() * 7 + 3));
    return path;
  };
  std::ofstream(tmp_ / "g") << std::string(8192, 'Z');
  sqlite3* db = nullptr;
  // Other programs' databases: one of a newer version, one with its own
  // data, one whose table has the name of ours. They stay as they are.
  const std::pair<std::string, const char*> foreign[] = {
      {tmp_ / "o", "PRAGMA user_version=7"}, {tmp_ / "t", "CREATE TABLE notes(x); INSERT INTO notes VALUES('mine')"},
      {tmp_ / "c", "CREATE TABLE reg_keys(other)"}};
  using testing::ReadBytes;
  std::vector<std::string> before;
  for (const auto& [path, sql] : foreign) {
    ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &db));
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, sql, nullptr, nullptr, nullptr) | sqlite3_close(db));
    before.push_back(ReadBytes(path));
  }
  struct Row { const char* what; std::string path; std::int32_t open_code, call_code; };
  const Row rows[] = {
      {"garbage", tmp_ / "g", kErrorBadDatabase, kErrorBadDatabase},
      {"damaged pages", damaged(tmp_ / "p"), kErrorSuccess, kErrorBadDatabase},
      {"another program's newer database", tmp_ / "o", kErrorBadDatabase, kErrorBadDatabase},
      {"another program's data", tmp_ / "t", kErrorBadDatabase, kErrorBadDatabase},
      {"another program's table of our name", tmp_ / "c", kErrorBadDatabase, kErrorBadDatabase},
      {"no such folder", tmp_ / "no/r", kErrorCantOpen, kErrorCantOpen},
  };
  for (const Row& row : rows) {  // open, create (leaving a 0 handle), set, close a root
    std::int32_t open = -1;
    RegKey key = 5;
    auto store = OpenSqliteRegistryStore(row.path, {}, &open);
    const std::int32_t create = store->CreateKey(kHKeyCurrentUser, "k\\new", kKeyAllAccess, &key, nullptr);
    EXPECT_EQ(std::tuple(row.open_code, row.call_code, 0u, row.call_code, 0),
              std::tuple(open, create, key, Set(store.get(), kHKeyCurrentUser, "v", "x"), store->CloseKey(kHKeyCurrentUser)))
        << row.what;
  }
  for (std::size_t i = 0; i < std::size(foreign); ++i) EXPECT_EQ(before[i], ReadBytes(foreign[i].first)) << foreign[i].first;
  // A write failing half way leaves nothing half done.
  OpenSqliteRegistryStore(path_);  // makes the tables
  sqlite3* other = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(path_.c_str(), &other));
  // The third key of a path fails after the first two were inserted.
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "CREATE TRIGGER no_c BEFORE INSERT ON reg_keys WHEN NEW.name = "
                                           "CAST('c' AS BLOB) BEGIN SELECT RAISE(ABORT, 'no'); END", 0, 0, 0) |
                           sqlite3_close(other));
  auto store = OpenSqliteRegistryStore(path_);
  RegKey key = 3;
  EXPECT_EQ(kErrorCantWrite, store->CreateKey(kHKeyCurrentUser, "a\\b\\c", kKeyAllAccess, &key, nullptr));
  EXPECT_EQ(0u, key);
  EXPECT_EQ(kErrorFileNotFound, store->OpenKey(kHKeyCurrentUser, "a", kKeyRead, &key));
  Create(store.get(), kHKeyCurrentUser, "a\\b\\d");
}

TEST(FaultInjectingRegistryStoreTest, FailsChosenCallsAndStoresNothing) {
  auto faults = std::make_shared<FaultInjectingRegistryStore>(OpenSqliteRegistryStore(":memory:"));
  RegistryStore* s = faults.get();
  auto set = [&](const char* name) { return Set(s, kHKeyCurrentUser, name, "1"); };
  auto exists = [&](const char* name) { return Get(s, kHKeyCurrentUser, name) == "1"; };
  faults->FailNthWrite(2, kErrorCantWrite);
  EXPECT_EQ((std::vector<std::int32_t>{0, kErrorCantWrite, 0}), (std::vector<std::int32_t>{set("one"), set("two"), set("three")}));
  EXPECT_TRUE(exists("one") && !exists("two") && exists("three"));
  faults->FailAllWrites(kErrorBadDatabase);
  RegKey key = 7;
  EXPECT_EQ(kErrorBadDatabase, s->CreateKey(kHKeyCurrentUser, "k", kKeyAllAccess, &key, nullptr));
  EXPECT_EQ(0u, key);
  EXPECT_EQ(kErrorBadDatabase, s->DeleteValue(kHKeyCurrentUser, "one"));
  EXPECT_TRUE(exists("one"));  // reads still pass
  faults->FailAllReads(kErrorCantRead);
  EXPECT_EQ(kErrorCantRead, s->OpenKey(kHKeyCurrentUser, "", kKeyRead, &key));
  EXPECT_EQ(kErrorSuccess, s->CloseKey(kHKeyCurrentUser));
  EXPECT_EQ(4u, faults->injected_failures());
  faults->ClearFaults();
  EXPECT_EQ(kErrorSuccess, s->DeleteValue(kHKeyCurrentUser, "one"));
  EXPECT_FALSE(exists("one"));
}

TEST_F(RegistryStoreTest, Locations) {
  testing::ScopedEnv vars[] = {{"TARVO2_REGISTRY", nullptr}, {"XDG_CONFIG_HOME", nullptr}, {"HOME", nullptr}};
  auto env = [&](std::initializer_list<const char*> values) {  // null unsets
    for (int i = 0; const char* v : values) vars[i++].Set(v);
  };
  env({"/r/reg.db", "/x", "/h"});
  EXPECT_EQ("/r/reg.db", DefaultRegistryLocation());
  env({nullptr, "", "/h"});
  EXPECT_EQ("/h/.config/tarvo2/registry.sqlite3", DefaultRegistryLocation());
  env({"", (tmp_ / "config").c_str(), "/nonexistent"});  // an empty override counts as none
  std::int32_t opened = -1;
  ASSERT_EQ(0, Set(OpenRegistryStore("", &opened).get(), kHKeyCurrentUser, "v", "disk"));
  EXPECT_EQ(kErrorSuccess, opened);
  EXPECT_EQ(std::filesystem::perms(0700), std::filesystem::status(tmp_ / "config/tarvo2").permissions());
  EXPECT_EQ("disk", Get(OpenRegistryStore("").get(), kHKeyCurrentUser, "v"));
  EXPECT_EQ("<2>", Get(OpenRegistryStore(":memory:").get(), kHKeyCurrentUser, "v"));
  OpenRegistryStore(tmp_ / "none/reg.db", &opened);
  EXPECT_EQ(kErrorCantOpen, opened);
}

// The SQLite store's one-step read and write give what the open-call-close
// defaults give, which a wrapper without overrides falls back on.
TEST(RegistryStoreOneStepTest, GivesWhatOpenCallCloseGives) {
  using Row = std::tuple<const char*, const char*, const char*, std::uint32_t>;  // path, name, data, buffer size
  auto run = [](RegistryStore* s) {
    std::string log = std::to_string(s->CloseKey(Create(s, kHKeyCurrentUser, "W")));
    for (auto [path, name, data, capacity] : {Row{"W", "v", "abc", 64}, Row{"w", "V", "xyz", 1}, Row{"No", "v", "a", 64},
                                              Row{"\\W", "v", "a", 64}, Row{"W", "v", nullptr, 64}, Row{"W", "none", 0, 0}}) {
      std::int32_t set_open = 77, get_open = 77;
      std::uint32_t type = 77, size = capacity;
      std::string read(64, '#');
      auto set = s->SetValueAt(kHKeyCurrentUser, path, name, kRegSz, reinterpret_cast<const std::uint8_t*>(data), 2, &set_open);
      auto got = s->QueryValueAt(kHKeyCurrentUser, path, name, &type, capacity ? U(read) : nullptr, &size, &get_open);
      log += ::testing::PrintToString(std::tuple{set, got, set_open, get_open, type, size, read});
    }
    return log;
  };
  RegistryStoreWrapper composed(OpenSqliteRegistryStore(":memory:"));
  EXPECT_EQ(run(OpenSqliteRegistryStore(":memory:").get()), run(&composed));
}

// The small platform services: the code page, the host module's path and the
// pseudo-random numbers.

TEST(CodepageTest, RoundTripsAndReplacements) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  EXPECT_TRUE(ToAnsi(FromAnsi(all)) == all && IsAnsiRepresentable(FromAnsi(all)));
  // The five unassigned bytes are the C1 controls of the same number.
  for (unsigned char b : {0x81, 0x8D, 0x8F, 0x90, 0x9D}) EXPECT_EQ(AnsiByteToChar(b), char16_t{b}) << b;
  EXPECT_EQ(std::u16string(u"\u20AC\u0178"), FromAnsi("\x80\x9F"));
  EXPECT_EQ(CharToAnsiByte(u'\u0080'), -1);  // a C1 control without a byte
  EXPECT_EQ(ToAnsi(u"a\u4E2D\u20AC\xD800z"), "a?\x80?z");  // CJK, euro, lone surrogate
  EXPECT_FALSE(IsAnsiRepresentable(u"a\u4E2Dz"));
  // Four bytes; an overlong "/", an encoded surrogate and a stray continuation: one U+FFFD a byte; NUL kept.
  EXPECT_EQ(FromUtf8("\xF0\x9F\x98\x80\xC0\xAF\xED\xA0\x80" "a\x80\0b"s),
            u"\U0001F600\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDa\uFFFD\0b"s);
  EXPECT_EQ(ToUtf8(u"\U0001F600\u00E9"), "\xF0\x9F\x98\x80\xC3\xA9");
  EXPECT_EQ(ToUtf8(std::u16string(1, char16_t{0xDC00})), "\xEF\xBF\xBD");
}

// Code page 65001: conversions, the setting, cuts that keep characters whole
// and the case folding of names.
TEST(CodepageTest, Utf8CodePageCutsAndSetting) {
  struct Conv { const char* what; std::u16string text; std::string bytes; std::u16string back; };
  const Conv convs[] = {
      {"Latin, CJK, emoji", u"Caf\u00e9\u65e5\U0001F600", "Caf\xC3\xA9\xE6\x97\xA5\xF0\x9F\x98\x80", u"Caf\u00e9\u65e5\U0001F600"},
      {"lone surrogates", u"a\xDBFF!\xDC00"s, "a\xEF\xBF\xBD!\xEF\xBF\xBD", u"a\uFFFD!\uFFFD"},
      {"C1 and NUL", u"\u0081\0"s, "\xC2\x81\0"s, u"\u0081\0"s},
  };
  for (const Conv& c : convs) {
    EXPECT_EQ(ToCodePage(c.text, kCodePageUtf8), c.bytes) << c.what;
    EXPECT_EQ(FromCodePage(c.bytes, kCodePageUtf8), c.back) << c.what;
    EXPECT_EQ(IsRepresentable(c.text, kCodePageUtf8), c.text == c.back) << c.what;
  }
  EXPECT_EQ(FromCodePage("\xC3\xA9", kCodePage1252), u"\u00c3\u00a9");
  // Cuts: the limit, and where each code page ends.
  struct Cut { std::string bytes; size_t limit, ansi, utf8, last_utf8; };
  const Cut cuts[] = {
      {"ab\xC3\xA9", 3, 3, 2, 2},        {"ab\xC3\xA9", 4, 4, 4, 2},   {"\xE6\x97\xA5x", 2, 2, 0, 3},
      {"a\xF0\x9F\x98\x80", 4, 4, 1, 1}, {"a\xF0\x9F\x98\x80", 5, 5, 5, 1},
      {"a\xE6\x97", 2, 2, 2, 2},           // an unfinished sequence is invalid bytes, cut anywhere
      {"\x80\x80\x80\x80", 2, 2, 2, 3},   // stray continuation bytes too
      {"", 0, 0, 0, 0},                    {"abc", 9, 3, 3, 2},
  };
  for (const Cut& c : cuts) {
    SCOPED_TRACE(::testing::PrintToString(c.bytes) + " at " + std::to_string(c.limit));
    EXPECT_EQ(CutPoint(c.bytes, c.limit, kCodePage1252), c.ansi);
    EXPECT_EQ(CutPoint(c.bytes, c.limit, kCodePageUtf8), c.utf8);
    EXPECT_EQ(LastCharStart(c.bytes, kCodePageUtf8), c.last_utf8);
  }
  // The environment's code page, the start of every context and store.
  testing::ScopedEnv code_page("TARVO2_CODEPAGE", nullptr);
  struct Env { const char* value; std::uint32_t code_page; };
  for (const Env& e : {Env{"65001", kCodePageUtf8}, Env{" 65001\t", kCodePageUtf8}, Env{"1252", kCodePage1252},
                       Env{"", kCodePage1252}, Env{"437", kCodePage1252}, Env{"650010", kCodePage1252},
                       Env{nullptr, kCodePage1252}}) {
    SCOPED_TRACE(e.value ? e.value : "(unset)");
    code_page.Set(e.value);
    EXPECT_EQ(EnvironmentCodePage(), e.code_page);
    EXPECT_EQ(NewProfileStore(NewMemFileSystem())->code_page(), e.code_page);
    EXPECT_EQ(NewProfileStore(NewMemFileSystem(), kCodePage1252)->code_page(), kCodePage1252);
  }
}

TEST(CodepageTest, NamesFoldUnderUnicodeSimpleCaseFolding) {
  // Pairs of names, and whether they are one name.
  struct Row { const char* a; const char* b; bool same; };
  const Row rows[] = {
      {"\xC3\x84pfel", "\xC3\xA4PFEL", true},                  // Ä ä
      {"\xCE\xA3", "\xCF\x83", true}, {"\xCF\x82", "\xCE\xA3", true},  // Σ σ ς
      {"\xC3\x9F", "\xE1\xBA\x9E", true},                      // ß ẞ
      {"\xC3\x9F", "SS", false}, {"\xC3\x9F", "ss", false},     // not full folding
      {"\xC4\xB1", "I", false},                                // dotless i stays apart
      {"\xD0\x96", "\xD0\xB6", true},                           // Cyrillic Ж ж
      {"\xF0\x90\x90\x80", "\xF0\x90\x90\xA8", true},          // Deseret, outside the BMP
      {"\xC5\xA0", "\xC5\xA1", true}, {"\xC5\xB8", "\xC3\xBF", true},  // Š š, Ÿ ÿ
      {"\xC2\xB5", "\xC5\x93", false},                          // µ œ
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.a) + " / " + r.b);
    EXPECT_EQ(unicode_case::Fold(FromUtf8(r.a)) == unicode_case::Fold(FromUtf8(r.b)), r.same);
    EXPECT_EQ(unicode_case::UpperKey(r.a) == unicode_case::UpperKey(r.b), r.same);
  }
  // Within Windows-1252 the pairs are those of upper-casing, as before.
  for (int a = 0; a < 256; ++a)
    for (int b = a + 1; b < 256; ++b) {
      const std::u16string ca(1, AnsiByteToChar(a)), cb(1, AnsiByteToChar(b));
      ASSERT_EQ(unicode_case::Fold(ca) == unicode_case::Fold(cb), ToUpper(ca) == ToUpper(cb)) << a << " " << b;
    }
  // Keys sort by upper case in code point order: "_" after the letters.
  EXPECT_LT(unicode_case::UpperKey("b"), unicode_case::UpperKey("_"));
  EXPECT_LT(unicode_case::UpperKey("\xC3\xA4"), unicode_case::UpperKey("\xC5\xA1"));  // ä before š
}

// A database of schema version 1 held Windows-1252 names and texts: it is
// converted on open, and reads the same under either code page.
TEST_F(RegistryStoreTest, Version1DatabaseIsConvertedOnOpen) {
  {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
    const char* sql = R"sql(
      CREATE TABLE reg_keys(id INTEGER PRIMARY KEY AUTOINCREMENT, parent INTEGER, name BLOB NOT NULL,
                            fold BLOB NOT NULL, depth INTEGER NOT NULL);
      CREATE UNIQUE INDEX reg_keys_by_fold ON reg_keys(parent, fold);
      CREATE TABLE reg_values(key_id INTEGER NOT NULL, name BLOB NOT NULL, fold BLOB NOT NULL,
                              type INTEGER NOT NULL, data BLOB NOT NULL, seq INTEGER NOT NULL,
                              PRIMARY KEY(key_id, fold));
      CREATE INDEX reg_values_by_seq ON reg_values(key_id, seq);
      INSERT INTO reg_keys(id, parent, name, fold, depth) VALUES
        (1, NULL, 'HKEY_CLASSES_ROOT', 'HKEY_CLASSES_ROOT', 0), (2, NULL, 'HKEY_CURRENT_USER', 'HKEY_CURRENT_USER', 0),
        (3, NULL, 'HKEY_LOCAL_MACHINE', 'HKEY_LOCAL_MACHINE', 0), (4, NULL, 'HKEY_USERS', 'HKEY_USERS', 0),
        (5, 2, X'436166E9', X'434146C9', 1), (6, 2, X'E4', X'C4', 1);
      INSERT INTO reg_values VALUES (5, X'5A6FEB', X'5A4FCB', 1, X'5A6FEB2080', 1), (5, X'62', X'42', 3, X'E9', 2);
      PRAGMA application_id = 1414682162;
      PRAGMA user_version = 1;)sql";
    ASSERT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    sqlite3_close(db);
  }
  for (std::uint32_t cp : {kCodePageUtf8, kCodePage1252}) {
    SCOPED_TRACE(cp);
    SqliteRegistryOptions options;
    options.code_page = cp;
    std::int32_t opened = -1;
    auto store = OpenSqliteRegistryStore(path_, options, &opened);
    ASSERT_EQ(opened, 0);
    const bool utf8 = cp == kCodePageUtf8;
    RegKey key = Create(store.get(), kHKeyCurrentUser, utf8 ? "CAF\xC3\x89" : "CAF\xC9");
    EXPECT_EQ(Get(store.get(), key, utf8 ? "zO\xC3\x8B" : "zO\xCB"), utf8 ? "Zo\xC3\xAB \xE2\x82\xAC"s + '\0' : "Zo\xEB \x80\0"s);
    EXPECT_EQ(Get(store.get(), key, "B"), "\xE9");  // binary data keeps its bytes
    EXPECT_EQ(SubKeys(store.get(), kHKeyCurrentUser), utf8 ? (Names{"Caf\xC3\xA9", "\xC3\xA4"}) : (Names{"Caf\xE9", "\xE4"}));
    store.reset();
  }
}

TEST(ServicesTest, HostModuleIsThisProgramAndAFixedSeedRepeats) {
  const std::string real = ReadHostModulePath();
  EXPECT_TRUE(real[0] == '/' && std::filesystem::is_regular_file(real) && real.ends_with("/platform_tests")) << real;
  struct Row { std::string path; const char16_t* folder; const char16_t* name; } rows[] = {
      {"/opt/app/Ledger.bin", u"/opt/app/", u"Ledger"}, {"/opt/a.b/ledger", u"/opt/a.b/", u"ledger"},
      {"ledger.x.exe", u"", u"ledger.x"}, {"/d/\xC3\xA9t\xC3\xA9", u"/d/", u"\u00E9t\u00E9"},
      {"/opt/app\0/x"s, u"/opt/", u"app"},  // cut at the NUL
      {"/" + std::string(255, 'd') + "/ab/cd", nullptr, u"ab"},  // cut to 259 units
  };
  for (const Row& r : rows) {
    HostModule h = ParseHostModulePath(r.path);
    EXPECT_EQ(h.path, r.path);
    EXPECT_EQ(h.folder, r.folder ? std::u16string(r.folder) : u"/" + std::u16string(255, u'd') + u"/") << r.path;
    EXPECT_EQ(h.name, r.name) << r.path;
  }
  auto draw = [](RandomService& r) {
    std::vector<float> v(8);
    for (float& f : v) f = r.NextSingle();
    return v;
  };
  auto a = NewFixedRandomService(7);
  const std::vector<float> first = draw(*a);
  EXPECT_EQ(first, draw(*NewFixedRandomService(7)));
  a->Randomize();  // restarts from the seed
  EXPECT_EQ(first, draw(*a));
  EXPECT_NE(first, draw(*NewFixedRandomService(8)));
  for (float f : first) EXPECT_TRUE(f >= 0.0f && f < 1.0f) << f;
}

}  // namespace
}  // namespace tarvo2
