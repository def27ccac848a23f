#include "tarvo2/file_system.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "platform/platform_test_util.h"
#include "support/platform_temp_dir.h"

namespace tarvo2 {
namespace {

using testing::Names;

TEST(PosixErrorTest, TranslatesErrnoByContext) {
  using Row = std::tuple<int, ErrnoContext, int>;  // errno, context, number
  for (auto [err, ctx, number] : {Row{ENOENT, ErrnoContext::kAccess, 53}, Row{ENOENT, ErrnoContext::kCreate, 76},
                                  Row{ENAMETOOLONG, ErrnoContext::kAccess, 52}}) {
    FileStatus s = PosixError("/x", err, ctx);
    EXPECT_TRUE(s.error_number() == number && s.message().find("/x") != std::string::npos) << s.ToString();
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
  Names Children() { return testing::Children(fs_.get(), root_); }
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
  std::unique_ptr<FileLock> lock;
  const std::pair<FileStatus, int> failures[] = {
      {fs_->ReadFile(P("missing"), &out), 53},         {fs_->ReadFile(root_, &out), 75},
      {fs_->WriteFile(P("nodir/f"), "1", false), 76},  {fs_->WriteFile(P("f/f"), "1", false), 76},
      {fs_->WriteFile(root_, "1", false), 75},         {fs_->DeleteFile(P("missing")), 53},
      {fs_->CreateDir(P("f")), 58},                    {fs_->LockFile(P("nodir/f"), &lock), 76},
  };
  for (const auto& [status, number] : failures) EXPECT_EQ(status.error_number(), number) << status.ToString();
  ASSERT_TRUE(fs_->LockFile(P("f"), &lock).ok());
  EXPECT_EQ(Read("f"), "x");
  EXPECT_EQ(Children(), Names{"f"});  // the lock leaves no file behind
}

TEST_P(FileSystemTest, PathExists) {
  ASSERT_TRUE(fs_->CreateDir(P("empty")).ok());
  ASSERT_TRUE(fs_->CreateDir(P("blank")).ok());
  Write("blank/  ", "");
  Write("a.ini", "");
  struct Row { std::string path; bool exists; };
  const Row rows[] = {
      {"", false},           {P("a.ini"), true},   {P("A.INI"), false},   {P("empty/"), true},   {P("missing"), false},
      {P("*.ini"), true},    {P("?.ini"), true},   {P("*"), true},        {P("x*"), false},      {P("??.ini"), false},
      {P("empty/*"), false}, {P("blank/*"), false}, {P("blank/  "), false}, {P("a.ini/x"), false},
  };
  for (const Row& r : rows) EXPECT_EQ(fs_->PathExists(r.path), r.exists) << r.path;
}

TEST_P(FileSystemTest, FileInfoAndFileVersionTrackChanges) {
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

INSTANTIATE_TEST_SUITE_P(PosixAndMemory, FileSystemTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Posix" : "Memory"; });

}  // namespace
}  // namespace tarvo2
