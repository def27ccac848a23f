#include "tarvo2/file_system.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "support/platform_temp_dir.h"

namespace tarvo2 {
namespace {

TEST(PosixErrorTest, TranslatesErrnoToAutomationNumbers) {
  struct Row { int err; ErrnoContext ctx; int number; };
  const Row rows[] = {
      {ENOENT, ErrnoContext::kAccess, 53}, {ENOENT, ErrnoContext::kCreate, 76},
      {ENOTDIR, ErrnoContext::kAccess, 76}, {EACCES, ErrnoContext::kAccess, 70},
      {EROFS, ErrnoContext::kCreate, 70},   {EISDIR, ErrnoContext::kAccess, 75},
      {ENOSPC, ErrnoContext::kAccess, 61},  {EDQUOT, ErrnoContext::kAccess, 61},
      {EIO, ErrnoContext::kAccess, 57},     {EEXIST, ErrnoContext::kCreate, 58},
      {EMFILE, ErrnoContext::kAccess, 67},  {ENAMETOOLONG, ErrnoContext::kAccess, 52},
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
  std::string Read(const std::string& path) {
    std::string s = "<missing>";
    fs_->ReadFile(path, &s);
    return s;
  }

  testing::PlatformTempDir tmp_;
  std::shared_ptr<FileSystem> fs_;
  std::string root_;
};

TEST_P(FileSystemTest, ReadWriteAppendDelete) {
  ASSERT_TRUE(fs_->WriteFile(P("f"), std::string("a\0b", 3), false).ok());
  ASSERT_TRUE(fs_->AppendFile(P("f"), "cd").ok());
  EXPECT_EQ(Read(P("f")), std::string("a\0bcd", 5));
  ASSERT_TRUE(fs_->WriteFile(P("f"), "x", true).ok());
  EXPECT_EQ(Read(P("f")), "x");
  ASSERT_TRUE(fs_->AppendFile(P("new"), "y").ok());
  EXPECT_EQ(Read(P("new")), "y");
  ASSERT_TRUE(fs_->DeleteFile(P("f")).ok());
  EXPECT_FALSE(fs_->Exists(P("f")));
}

TEST_P(FileSystemTest, FailuresCarryAutomationNumbers) {
  ASSERT_TRUE(fs_->WriteFile(P("file"), "1", false).ok());
  std::string out;
  EXPECT_EQ(fs_->ReadFile(P("missing"), &out).error_number(), 53);
  EXPECT_EQ(fs_->ReadFile(root_, &out).error_number(), 75);
  EXPECT_EQ(fs_->WriteFile(P("nodir/f"), "1", false).error_number(), 76);
  EXPECT_EQ(fs_->WriteFile(P("file/f"), "1", false).error_number(), 76);
  EXPECT_EQ(fs_->WriteFile(root_, "1", false).error_number(), 75);
  EXPECT_EQ(fs_->DeleteFile(P("missing")).error_number(), 53);
  EXPECT_EQ(fs_->CreateDir(P("file")).error_number(), 58);
  EXPECT_TRUE(out.empty());
}

TEST_P(FileSystemTest, PathExists) {
  ASSERT_TRUE(fs_->CreateDir(P("empty")).ok());
  ASSERT_TRUE(fs_->CreateDir(P("blank")).ok());
  ASSERT_TRUE(fs_->WriteFile(P("blank/  "), "", false).ok());
  ASSERT_TRUE(fs_->WriteFile(P("a.ini"), "", false).ok());
  struct Row { std::string path; bool exists; };
  const Row rows[] = {
      {"", false},          {P("a.ini"), true},      {P("A.INI"), false},
      {P("empty"), true},   {P("empty/"), true},     {P("missing"), false},
      {P("*.ini"), true},   {P("?.ini"), true},      {P("a*"), true},
      {P("*"), true},       {P("x*"), false},        {P("??.ini"), false},
      {P("empty/*"), false}, {P("blank/*"), false},  {P("blank/  "), false},
      {P("nodir/*"), false}, {P("a.ini/x"), false},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.path);
    EXPECT_EQ(fs_->PathExists(r.path), r.exists);
  }
}

TEST_P(FileSystemTest, FileInfoTracksVersions) {
  FileInfo missing, a, b, c;
  ASSERT_TRUE(fs_->GetFileInfo(P("f"), &missing).ok());
  EXPECT_FALSE(missing.exists);
  ASSERT_TRUE(fs_->WriteFile(P("f"), "one", false).ok());
  ASSERT_TRUE(fs_->GetFileInfo(P("f"), &a).ok());
  EXPECT_TRUE(a.exists && !a.is_directory && a.size == 3);
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("f"), "two").ok());
  ASSERT_TRUE(fs_->GetFileInfo(P("f"), &b).ok());
  EXPECT_NE(a.inode, b.inode);  // a new file took the old one's place
  EXPECT_FALSE(a.SameVersion(b));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ASSERT_TRUE(fs_->WriteFile(P("f"), "six", false).ok());
  ASSERT_TRUE(fs_->GetFileInfo(P("f"), &c).ok());
  EXPECT_EQ(b.inode, c.inode);
  EXPECT_FALSE(b.SameVersion(c));  // same size and inode, newer time
}

TEST_P(FileSystemTest, AtomicReplaceKeepsModeAndLeavesNoTemporaryFile) {
  ASSERT_TRUE(fs_->WriteFile(P("f"), "old", false).ok());
  ASSERT_TRUE(fs_->ChangeMode(P("f"), 0640).ok());
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("f"), "new").ok());
  FileInfo info;
  ASSERT_TRUE(fs_->GetFileInfo(P("f"), &info).ok());
  EXPECT_EQ(info.mode, 0640u);
  EXPECT_EQ(Read(P("f")), "new");
  ASSERT_TRUE(fs_->ReplaceFileAtomically(P("created"), "c").ok());
  std::vector<std::string> names;
  ASSERT_TRUE(fs_->GetChildren(root_, &names).ok());
  EXPECT_EQ(names.size(), 2u);
}

TEST_P(FileSystemTest, AtomicReplaceRefusesReadOnlyFilesAndFolders) {
  ASSERT_TRUE(fs_->WriteFile(P("ro"), "old", false).ok());
  ASSERT_TRUE(fs_->ChangeMode(P("ro"), 0444).ok());
  EXPECT_EQ(fs_->ReplaceFileAtomically(P("ro"), "new").error_number(), 70);
  EXPECT_EQ(Read(P("ro")), "old");
  EXPECT_EQ(fs_->ReplaceFileAtomically(root_, "x").error_number(), 75);
  EXPECT_EQ(fs_->ReplaceFileAtomically(P("nodir/f"), "x").error_number(), 76);
}

TEST_P(FileSystemTest, FailedStepsOfAReplaceLeaveTheOldFile) {
  auto faulty = std::make_shared<FaultInjectingFileSystem>(fs_);
  ASSERT_TRUE(fs_->WriteFile(P("f"), "old", false).ok());
  struct Row { FaultInjectingFileSystem::Op op; int err; int number; };
  const Row rows[] = {{FaultInjectingFileSystem::Op::kRename, EIO, 57},
                      {FaultInjectingFileSystem::Op::kWrite, ENOSPC, 61}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.number);
    faulty->FailNth(r.op, 1, r.err);
    EXPECT_EQ(faulty->ReplaceFileAtomically(P("f"), "new").error_number(), r.number);
    EXPECT_EQ(Read(P("f")), "old");
    std::vector<std::string> names;
    ASSERT_TRUE(fs_->GetChildren(root_, &names).ok());
    EXPECT_EQ(names, std::vector<std::string>{"f"});
  }
  faulty->FailNth(FaultInjectingFileSystem::Op::kWrite, 2, EIO);
  EXPECT_TRUE(faulty->WriteFile(P("g"), "1", false).ok());
  EXPECT_FALSE(faulty->WriteFile(P("g"), "2", false).ok());
  EXPECT_TRUE(faulty->WriteFile(P("g"), "3", false).ok());
  EXPECT_EQ(Read(P("g")), "3");
}

TEST_P(FileSystemTest, LockIsExclusiveAndLeavesTheFileAlone) {
  ASSERT_TRUE(fs_->WriteFile(P("f"), "data", false).ok());
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
  EXPECT_EQ(Read(P("f")), "data");
  std::unique_ptr<FileLock> lock;
  EXPECT_EQ(fs_->LockFile(P("nodir/f"), &lock).error_number(), 76);
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

TEST(CurrentFileSystemTest, ReplaceAndRestore) {
  auto mem = NewMemFileSystem();
  SetFileSystem(mem);
  EXPECT_EQ(GetFileSystem(), mem);
  SetFileSystem(nullptr);
  EXPECT_EQ(GetFileSystem().get(), FileSystem::Default());
}

}  // namespace
}  // namespace tarvo2
