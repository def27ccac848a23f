// The profile store on real files: what only the POSIX file system can show.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/platform_temp_dir.h"
#include "tarvo2/profile_store.h"

namespace tarvo2 {
namespace {

class ProfileStoreFileTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(tmp_.path().empty()); }
  std::string Read(const std::string& path) {
    std::string s = "<missing>";
    FileSystem::Default()->ReadFile(path, &s);
    return s;
  }
  std::string Value(ProfileStore& store, const std::string& file, const char* key) {
    char buf[64];
    uint32_t n = store.GetPrivateProfileString("S", key, "<def>", buf, sizeof buf, file);
    return std::string(buf, n);
  }

  testing::PlatformTempDir tmp_;
  std::shared_ptr<ProfileStore> store_ = NewProfileStore(
      std::shared_ptr<FileSystem>(FileSystem::Default(), [](FileSystem*) {}));
};

TEST_F(ProfileStoreFileTest, WriteKeepsModeAndFollowsSymbolicLinks) {
  std::string file = tmp_ / "real.ini";
  ASSERT_TRUE(FileSystem::Default()->WriteFile(file, "[S]\nk=1\n", false).ok());
  ASSERT_EQ(::chmod(file.c_str(), 0640), 0);
  ASSERT_EQ(::symlink("real.ini", (tmp_ / "link.ini").c_str()), 0);
  EXPECT_TRUE(store_->WritePrivateProfileString("S", "k", "2", tmp_ / "link.ini"));
  struct stat st;
  ASSERT_EQ(::lstat((tmp_ / "link.ini").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  ASSERT_EQ(::stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  EXPECT_EQ(Read(file), "[S]\nk=2\n");
}

TEST_F(ProfileStoreFileTest, RefusedWritesCreateNothing) {
  std::string file = tmp_ / "ro.ini";
  ASSERT_TRUE(FileSystem::Default()->WriteFile(file, "[S]\nk=1\n", false).ok());
  ASSERT_EQ(::chmod(file.c_str(), 0444), 0);
  EXPECT_FALSE(store_->WritePrivateProfileString("S", "k", "2", file));
  EXPECT_EQ(store_->LastError(), kProfileAccessDenied);
  EXPECT_FALSE(store_->WritePrivateProfileString("S", "k", "2", tmp_ / "no/x.ini"));
  EXPECT_EQ(store_->LastError(), kProfilePathNotFound);
  EXPECT_FALSE(store_->WritePrivateProfileString("S", "k", "2", tmp_.path()));
  EXPECT_EQ(store_->LastError(), kProfileAccessDenied);
  EXPECT_EQ(Read(file), "[S]\nk=1\n");
  std::vector<std::string> names;
  ASSERT_TRUE(FileSystem::Default()->GetChildren(tmp_.path(), &names).ok());
  EXPECT_EQ(names, std::vector<std::string>{"ro.ini"});
}

TEST_F(ProfileStoreFileTest, FailedRenameKeepsTheOldFile) {
  auto faulty = std::make_shared<FaultInjectingFileSystem>(
      std::shared_ptr<FileSystem>(FileSystem::Default(), [](FileSystem*) {}));
  auto store = NewProfileStore(faulty);
  std::string file = tmp_ / "f.ini";
  ASSERT_TRUE(store->WritePrivateProfileString("S", "k", "1", file));
  faulty->FailNth(FaultInjectingFileSystem::Op::kRename, 1, ENOSPC);
  EXPECT_FALSE(store->WritePrivateProfileString("S", "k", "2", file));
  EXPECT_EQ(store->LastError(), kProfileDiskFull);
  EXPECT_EQ(Read(file), "[S]\nk=1\n");
  EXPECT_EQ(Value(*store, file, "k"), "1");
  std::vector<std::string> names;
  ASSERT_TRUE(FileSystem::Default()->GetChildren(tmp_.path(), &names).ok());
  for (const std::string& n : names) EXPECT_EQ(n.find(".tmp"), std::string::npos) << n;
}

TEST_F(ProfileStoreFileTest, CacheNoticesSameSizeChangeWithRestoredTime) {
  std::string file = tmp_ / "c.ini";
  ASSERT_TRUE(store_->WritePrivateProfileString("S", "k", "1", file));
  EXPECT_EQ(Value(*store_, file, "k"), "1");
  struct stat before;
  ASSERT_EQ(::stat(file.c_str(), &before), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  // Another writer edits the file in place, keeping size, inode and mtime.
  ASSERT_TRUE(FileSystem::Default()->WriteFile(file, "[S]\nk=2\n", false).ok());
  struct timespec times[2] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  EXPECT_EQ(Value(*store_, file, "k"), "2");
}

TEST_F(ProfileStoreFileTest, ProcessesWritingTheSameFileLoseNoUpdate) {
  std::string file = tmp_ / "shared.ini";
  constexpr int kChildren = 4, kWrites = 25;
  std::vector<pid_t> pids;
  for (int c = 0; c < kChildren; ++c) {
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      auto store = NewProfileStore();
      bool ok = true;
      for (int i = 0; i < kWrites; ++i) {
        std::string key = "c" + std::to_string(c) + "k" + std::to_string(i);
        ok = store->WritePrivateProfileString("S", key.c_str(), "v", file) && ok;
      }
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
    for (int i = 0; i < kWrites; ++i) {
      std::string key = "c" + std::to_string(c) + "k" + std::to_string(i);
      EXPECT_EQ(Value(*store_, file, key.c_str()), "v") << key;
    }
}

}  // namespace
}  // namespace tarvo2
