// Key objects on database files that cannot be written, are damaged or are
// locked by another process: codes in ErrorState, no crash, nothing lost.
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "registry_test_util.h"

namespace tarvo2 {
namespace {

namespace fs = std::filesystem;

class StoreFilesTest : public RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    char tmpl[] = "/tmp/tarvo2_regkey_XXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    path_ = dir_ + "/registry.sqlite3";
    SetRegistryLocation(path_);
    auto key = Key(u"Software\\Kept");
    key->SetValue(u"v", Variant(u"stored"));
  }
  void TearDown() override {
    RegistryTest::TearDown();
    fs::remove_all(dir_);
  }
  std::string dir_, path_;
};

TEST_F(StoreFilesTest, ValuesPersistInTheFile) {
  SetRegistryLocation(path_);  // opened again
  EXPECT_EQ(Key(u"software\\kept")->GetValue(u"V"), Variant(u"stored"));
}

TEST_F(StoreFilesTest, DamagedFileRecordsBadDatabase) {
  SetRegistryLocation("");
  std::ofstream(path_, std::ios::binary | std::ios::trunc) << std::string(4096, 'x');
  SetRegistryLocation(path_);
  auto key = Key(u"Software\\Kept");
  EXPECT_EQ(key->get_ErrorState(), 1009);
  EXPECT_TRUE(key->SetValue(u"v", Variant(u"new")));
  EXPECT_EQ(key->get_ErrorState(), 1009);
  EXPECT_EQ(key->GetValue(u"v", u"\t", true, true, Variant(u"d")), Variant(u"d"));
  EXPECT_EQ(key->GetValueNames().Count(), 0u);
  EXPECT_EQ(key->get_SubKeys()->get_Count(), 0);
}

TEST_F(StoreFilesTest, LockHeldByAnotherProcessFailsWritesButKeepsTheValue) {
  int ready[2], release[2];
  ASSERT_EQ(::pipe(ready), 0);
  ASSERT_EQ(::pipe(release), 0);
  pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    sqlite3* db = nullptr;
    char c = 0;
    bool ok = sqlite3_open(path_.c_str(), &db) == SQLITE_OK &&
              sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK;
    c = ok ? 'y' : 'n';
    if (::write(ready[1], &c, 1) != 1 || ::read(release[0], &c, 1) != 1) ::_exit(2);
    sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    ::_exit(ok ? 0 : 1);
  }
  char c = 0;
  ASSERT_EQ(::read(ready[0], &c, 1), 1);
  ASSERT_EQ(c, 'y');
  SqliteRegistryOptions quick;
  quick.busy_timeout_ms = 50;
  SetRegistryStore(OpenSqliteRegistryStore(path_, quick));
  auto key = Key(u"Software\\Kept");
  EXPECT_TRUE(key->SetValue(u"v", Variant(u"during")));
  EXPECT_EQ(key->get_ErrorState(), 1013);
  EXPECT_EQ(key->GetValue(u"v"), Variant(u"stored"));
  ASSERT_EQ(::write(release[1], "x", 1), 1);
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_FALSE(key->SetValue(u"v", Variant(u"after")));
  EXPECT_EQ(key->GetValue(u"v"), Variant(u"after"));
  for (int fd : {ready[0], ready[1], release[0], release[1]}) ::close(fd);
}

TEST_F(StoreFilesTest, ReadOnlyFileReadsAndRecordsRefusedWrites) {
  SetRegistryLocation("");
  ASSERT_EQ(::chmod(path_.c_str(), 0400), 0);
  // The superuser writes through any mode, so the check runs as another
  // user; the child exits with 10 + the index of the first failed check.
  pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    if (::geteuid() == 0 && (::chown(dir_.c_str(), 65534, 65534) != 0 ||
                             ::chown(path_.c_str(), 65534, 65534) != 0 || ::setgid(65534) != 0 ||
                             ::setuid(65534) != 0))
      ::_exit(1);
    SetRaiseErrors(false);
    SetRegistryLocation(path_);
    auto key = Key(u"Software\\Kept");
    bool ok[] = {
        key->GetValue(u"v") == Variant(u"stored"),
        key->SetValue(u"v", Variant(u"changed")),
        key->get_ErrorState() == 1013,
        key->GetValue(u"v") == Variant(u"stored"),
        key->get_SubKeys()->Add(u"child") && key->get_SubKeys()->Add(u"child")->get_ErrorState() == 1013,
    };
    for (int i = 0; i < static_cast<int>(std::size(ok)); ++i)
      if (!ok[i]) ::_exit(10 + i);
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "(10 + index of the failed check)";
}

}  // namespace
}  // namespace tarvo2
