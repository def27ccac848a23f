#include "tarvo2/file_system.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "support/platform_temp_dir.h"

namespace tarvo2 {
namespace {

using Names = std::vector<std::string>;

TEST(PosixErrorTest, TranslatesErrnoToAutomationNumbers) {
  struct Row { int err; ErrnoContext ctx; int number; };
  const Row rows[] = {
      {ENOENT, ErrnoContext::kAccess, 53}, {ENOENT, ErrnoContext::kCreate, 76}, {ENOTDIR, ErrnoContext::kAccess, 76},
      {EACCES, ErrnoContext::kAccess, 70}, {EROFS, ErrnoContext::kCreate, 70},  {EISDIR, ErrnoContext::kAccess, 75},
      {ENOSPC, ErrnoContext::kAccess, 61}, {EDQUOT, ErrnoContext::kAccess, 61}, {EIO, ErrnoContext::kAccess, 57},
      {EEXIST, ErrnoContext::kCreate, 58}, {EMFILE, ErrnoContext::kAccess, 67}, {ENAMETOOLONG, ErrnoContext::kAccess, 52},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.err);
    FileStatus s = PosixError("/x", r.err, r.ctx);
    EXPECT_EQ(s.error_number(), r.number);
    EXPECT_NE(s.message().find("/x"), std::string::npos);
  }
}

// The same behaviour is required of the POSIX and the in-memory file system.
class FileSystemTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (GetParam()) {
      fs_ = std::shared_ptr<FileSystem>(FileSystem::Default(), [](FileSystem*) {});
      root_ = tmp_.path();
      ASSERT_FALSE(root_.empty());
    } else {
      fs_ = NewMemFileSystem();
      root_ = "/t";
      ASSERT_TRUE(fs_->CreateDir(root_).ok());
    }
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
  Names Children() {
    Names names;
    EXPECT_TRUE(fs_->GetChildren(root_, &names).ok());
    std::sort(names.begin(), names.end());
    return names;
  }
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

TEST_P(FileSystemTest, ReadWriteAppendDeleteAndTheirFailures) {
  Write("f", std::string("a\0b", 3));
  ASSERT_TRUE(fs_->AppendFile(P("f"), "cd").ok());
  EXPECT_EQ(Read("f"), std::string("a\0bcd", 5));
  ASSERT_TRUE(fs_->WriteFile(P("f"), "x", true).ok());  // truncates
  ASSERT_TRUE(fs_->AppendFile(P("new"), "y").ok());
  EXPECT_EQ(Read("new"), "y");
  ASSERT_TRUE(fs_->DeleteFile(P("new")).ok());
  EXPECT_FALSE(fs_->Exists(P("new")));
  std::string out;
  const std::pair<FileStatus, int> failures[] = {
      {fs_->ReadFile(P("missing"), &out), 53},         {fs_->ReadFile(root_, &out), 75},
      {fs_->WriteFile(P("nodir/f"), "1", false), 76},  {fs_->WriteFile(P("f/f"), "1", false), 76},
      {fs_->WriteFile(root_, "1", false), 75},         {fs_->DeleteFile(P("missing")), 53},
      {fs_->CreateDir(P("f")), 58},
  };
  for (const auto& [status, number] : failures) EXPECT_EQ(status.error_number(), number) << status.ToString();
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(Read("f"), "x");
}

TEST_P(FileSystemTest, PathExists) {
  ASSERT_TRUE(fs_->CreateDir(P("empty")).ok());
  ASSERT_TRUE(fs_->CreateDir(P("blank")).ok());
  Write("blank/  ", "");
  Write("a.ini", "");
  struct Row { std::string path; bool exists; };
  const Row rows[] = {
      {"", false},         {P("a.ini"), true},   {P("A.INI"), false},   {P("empty"), true},    {P("empty/"), true},
      {P("missing"), false}, {P("*.ini"), true},   {P("?.ini"), true},    {P("a*"), true},       {P("*"), true},
      {P("x*"), false},      {P("??.ini"), false}, {P("empty/*"), false}, {P("blank/*"), false}, {P("blank/  "), false},
      {P("nodir/*"), false}, {P("a.ini/x"), false},
  };
  for (const Row& r : rows) EXPECT_EQ(fs_->PathExists(r.path), r.exists) << r.path;
}

TEST_P(FileSystemTest, FileInfoAndFileVersionTrackChanges) {
  EXPECT_FALSE(Info("f").exists);
  EXPECT_FALSE(Info("f", true).exists);
  Write("f", "one");
  FileInfo a = Info("f");
  EXPECT_TRUE(a.exists && !a.is_directory && a.size == 3);
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("f"), "two").ok());
  FileInfo b = Info("f"), b_version = Info("f", true);
  EXPECT_NE(a.inode, b.inode);  // a new file took the old one's place
  EXPECT_FALSE(a.SameVersion(b));
  EXPECT_TRUE(b_version.SameVersion(b));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  Write("f", "six");
  FileInfo c = Info("f"), c_version = Info("f", true);
  EXPECT_EQ(b.inode, c.inode);
  EXPECT_FALSE(b.SameVersion(c));  // same size and inode, newer time
  EXPECT_TRUE(c_version.SameVersion(c));
  EXPECT_FALSE(c_version.SameVersion(b_version));
}

TEST_P(FileSystemTest, AtomicReplaceKeepsModeAndRefusesWhatItCannotReplace) {
  Write("f", "old");
  ASSERT_TRUE(fs_->ChangeMode(P("f"), 0640).ok());
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("f"), "new").ok());
  EXPECT_EQ(Info("f").mode, 0640u);
  EXPECT_EQ(Read("f"), "new");
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("created"), "c").ok());
  Write("ro", "old");
  ASSERT_TRUE(fs_->ChangeMode(P("ro"), 0444).ok());
  EXPECT_EQ(fs_->ReplaceFileAtomically(P("ro"), "new").error_number(), 70);
  EXPECT_EQ(fs_->ReplaceFileAtomically(root_, "x").error_number(), 75);
  EXPECT_EQ(fs_->ReplaceFileAtomically(P("nodir/f"), "x").error_number(), 76);
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
  EXPECT_TRUE(faulty->WriteFile(P("g"), "1", false).ok());
  EXPECT_FALSE(faulty->WriteFile(P("g"), "2", false).ok());
  EXPECT_TRUE(faulty->WriteFile(P("g"), "3", false).ok());
  EXPECT_EQ(Read("g"), "3");
}

TEST_P(FileSystemTest, LockIsExclusiveAndLeavesTheFileAlone) {
  Write("f", "data");
  std::unique_ptr<FileLock> first;
  ASSERT_TRUE(fs_->LockFile(P("f"), &first).ok());
  std::atomic<bool> acquired{false};
  std::thread other([&] {
    std::unique_ptr<FileLock> second;
    EXPECT_TRUE(fs_->LockFile(P("f"), &second).ok());
    acquired = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(acquired);
  first.reset();
  other.join();
  EXPECT_TRUE(acquired);
  EXPECT_EQ(Read("f"), "data");
  EXPECT_EQ(fs_->LockFile(P("nodir/f"), &first).error_number(), 76);
}

INSTANTIATE_TEST_SUITE_P(PosixAndMemory, FileSystemTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Posix" : "Memory"; });

TEST(PosixFileSystemTest, ReplaceWritesThroughSymbolicLinks) {
  testing::PlatformTempDir tmp;
  FileSystem* fs = FileSystem::Default();
  ASSERT_TRUE(fs->CreateDir(tmp / "real").ok());
  ASSERT_TRUE(fs->WriteFile(tmp / "real/t.ini", "old", false).ok());
  ASSERT_EQ(::symlink("real/t.ini", (tmp / "link").c_str()), 0);
  ASSERT_EQ(::symlink("link", (tmp / "link2").c_str()), 0);
  ASSERT_TRUE(fs->ReplaceFileAtomically(tmp / "link2", "new").ok());
  struct stat st;
  ASSERT_EQ(::lstat((tmp / "link2").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  std::string out;
  ASSERT_TRUE(fs->ReadFile(tmp / "real/t.ini", &out).ok());
  EXPECT_EQ(out, "new");
}

}  // namespace
}  // namespace tarvo2
