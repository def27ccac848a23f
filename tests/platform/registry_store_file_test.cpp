// The registry store on disk: persistence, several processes, store
// failures, fault injection and the process-wide store.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tarvo2/registry_store.h"

namespace tarvo2 {
namespace {

namespace fs = std::filesystem;

class RegistryFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/tarvo2-regstore-XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(tmpl));
    dir_ = tmpl;
    path_ = dir_ + "/registry.sqlite3";
  }
  void TearDown() override { fs::remove_all(dir_); }

  static std::int32_t SetText(RegistryStore* s, RegKey key, const char* name,
                              const std::string& text) {
    return s->SetValue(key, name, kRegSz,
                       reinterpret_cast<const std::uint8_t*>(text.c_str()),
                       static_cast<std::uint32_t>(text.size() + 1));
  }
  // The text value, or "<code>" when it cannot be read.
  static std::string GetText(RegistryStore* s, RegKey key, const char* name) {
    char buf[256];
    std::uint32_t size = sizeof buf, type = 0;
    std::int32_t code = s->QueryValue(key, name, &type,
                                      reinterpret_cast<std::uint8_t*>(buf), &size);
    return code == kErrorSuccess ? std::string(buf) : "<" + std::to_string(code) + ">";
  }

  std::string dir_, path_;
};

TEST_F(RegistryFileTest, PersistsAcrossReopenInAPrivateFile) {
  {
    std::int32_t open = -1;
    auto store = OpenSqliteRegistryStore(path_, {}, &open);
    ASSERT_EQ(kErrorSuccess, open);
    RegKey key = 0;
    ASSERT_EQ(kErrorSuccess, store->CreateKey(kHKeyCurrentUser, "App\\Settings",
                                              kKeyAllAccess, &key, nullptr));
    ASSERT_EQ(kErrorSuccess, SetText(store.get(), key, "Colour", "Red"));
  }
  EXPECT_EQ(fs::perms(0600), fs::status(path_).permissions());
  auto store = OpenSqliteRegistryStore(path_);
  RegKey key = 0;
  ASSERT_EQ(kErrorSuccess,
            store->OpenKey(kHKeyCurrentUser, "app\\settings", kKeyRead, &key));
  EXPECT_EQ("Red", GetText(store.get(), key, "colour"));
}

TEST_F(RegistryFileTest, ConcurrentProcessesLoseNoWrite) {
  constexpr int kChildren = 4, kValuesEach = 40;
  OpenSqliteRegistryStore(path_);  // create the file and schema, then close
  std::vector<pid_t> pids;
  for (int c = 0; c < kChildren; ++c) {
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      int failures = 0;
      {
        auto store = OpenSqliteRegistryStore(path_);
        for (int i = 0; i < kValuesEach; ++i) {
          RegKey key = 0;
          // Every child creates the same key and its own subkeys.
          failures += store->CreateKey(kHKeyCurrentUser, "Shared", kKeyAllAccess,
                                       &key, nullptr) != 0;
          std::string name = std::to_string(c) + "_" + std::to_string(i);
          failures += SetText(store.get(), key, name.c_str(), name) != 0;
          failures += store->CreateKey(key, ("k" + name).c_str(), kKeyAllAccess,
                                       &key, nullptr) != 0;
          store->CloseKey(key);
        }
      }
      ::_exit(failures == 0 ? 0 : 1);
    }
    pids.push_back(pid);
  }
  for (pid_t pid : pids) {
    int status = 0;
    ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  auto store = OpenSqliteRegistryStore(path_);
  RegKey key = 0;
  ASSERT_EQ(kErrorSuccess, store->OpenKey(kHKeyCurrentUser, "Shared", kKeyRead, &key));
  for (int c = 0; c < kChildren; ++c)
    for (int i = 0; i < kValuesEach; ++i) {
      std::string name = std::to_string(c) + "_" + std::to_string(i);
      ASSERT_EQ(name, GetText(store.get(), key, name.c_str()));
    }
  char buf[64];
  std::uint32_t len = sizeof buf;
  EXPECT_EQ(kErrorNoMoreItems, store->EnumValue(key, kChildren * kValuesEach, buf,
                                                &len, nullptr, nullptr, nullptr));
  EXPECT_EQ(kErrorSuccess, store->EnumKey(key, kChildren * kValuesEach - 1, buf, 64));
  EXPECT_EQ(kErrorNoMoreItems, store->EnumKey(key, kChildren * kValuesEach, buf, 64));
}

TEST_F(RegistryFileTest, LockHeldTooLongFailsWritesButNotReads) {
  {
    auto store = OpenSqliteRegistryStore(path_);
    SetText(store.get(), kHKeyLocalMachine, "v", "before");
  }
  sqlite3* other = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(path_.c_str(), &other));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr));
  SqliteRegistryOptions options;
  options.busy_timeout_ms = 50;
  auto store = OpenSqliteRegistryStore(path_, options);
  RegKey key = 99;
  EXPECT_EQ(kErrorCantWrite, SetText(store.get(), kHKeyLocalMachine, "v", "during"));
  EXPECT_EQ(kErrorCantWrite, store->CreateKey(kHKeyLocalMachine, "new",
                                              kKeyAllAccess, &key, nullptr));
  EXPECT_EQ(0u, key);
  EXPECT_EQ("before", GetText(store.get(), kHKeyLocalMachine, "v"));
  sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_close(other);
  EXPECT_EQ(kErrorSuccess, SetText(store.get(), kHKeyLocalMachine, "v", "after"));
  EXPECT_EQ("after", GetText(store.get(), kHKeyLocalMachine, "v"));
}

TEST_F(RegistryFileTest, FailureInsideAWriteUndoesAllOfIt) {
  OpenSqliteRegistryStore(path_);
  sqlite3* db = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(path_.c_str(), &db));
  // Make the third key of the path fail after the first two were inserted.
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(db,
      "CREATE TRIGGER no_c BEFORE INSERT ON reg_keys "
      "WHEN NEW.name = CAST('c' AS BLOB) BEGIN SELECT RAISE(ABORT, 'no'); END",
      nullptr, nullptr, nullptr));
  sqlite3_close(db);
  auto store = OpenSqliteRegistryStore(path_);
  RegKey key = 3;
  EXPECT_EQ(kErrorCantWrite, store->CreateKey(kHKeyCurrentUser, "a\\b\\c",
                                              kKeyAllAccess, &key, nullptr));
  EXPECT_EQ(0u, key);
  EXPECT_EQ(kErrorFileNotFound, store->OpenKey(kHKeyCurrentUser, "a", kKeyRead, &key));
  EXPECT_EQ(kErrorSuccess, store->CreateKey(kHKeyCurrentUser, "a\\b\\d",
                                            kKeyAllAccess, &key, nullptr));
}

TEST_F(RegistryFileTest, ReadOnlyFileReadsButRefusesWrites) {
  {
    auto store = OpenSqliteRegistryStore(path_);
    RegKey key = 0;
    store->CreateKey(kHKeyCurrentUser, "Kept", kKeyAllAccess, &key, nullptr);
    SetText(store.get(), key, "v", "stored");
  }
  ASSERT_EQ(0, ::chmod(path_.c_str(), 0400));
  // The superuser writes through any mode: check as an ordinary user then.
  pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    if (::geteuid() == 0 &&
        (::chown(dir_.c_str(), 65534, 65534) != 0 ||
         ::chown(path_.c_str(), 65534, 65534) != 0 || ::setgid(65534) != 0 ||
         ::setuid(65534) != 0))
      ::_exit(10);
    std::int32_t open = -1;
    auto store = OpenSqliteRegistryStore(path_, {}, &open);
    RegKey key = 0, created = 0;
    int step = 20;
    if (open != kErrorSuccess) ::_exit(step);
    if (store->OpenKey(kHKeyCurrentUser, "kept", kKeyAllAccess, &key) != 0) ::_exit(step + 1);
    if (GetText(store.get(), key, "v") != "stored") ::_exit(step + 2);
    if (SetText(store.get(), key, "v", "changed") != kErrorCantWrite) ::_exit(step + 3);
    if (store->DeleteValue(key, "v") != kErrorCantWrite) ::_exit(step + 4);
    if (store->CreateKey(key, "new", kKeyAllAccess, &created, nullptr) != kErrorCantWrite)
      ::_exit(step + 5);
    // An existing key can still be "created", which only opens it.
    if (store->CreateKey(kHKeyCurrentUser, "Kept", kKeyAllAccess, &created, nullptr) != 0)
      ::_exit(step + 6);
    if (GetText(store.get(), key, "v") != "stored") ::_exit(step + 7);
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << "failed check number";
}

TEST_F(RegistryFileTest, UnusableFilesGiveStoreCodesNotCrashes) {
  auto write_file = [](const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  };
  struct Row {
    const char* what;
    std::function<std::string(const std::string& dir)> make;  // gives path
    std::int32_t code;
  } rows[] = {
      {"garbage", [&](const std::string& d) {
         write_file(d + "/g", std::string(8192, '\x5A')); return d + "/g"; },
       kErrorBadDatabase},
      {"another program's database", [&](const std::string& d) {
         sqlite3* db = nullptr;
         sqlite3_open((d + "/o").c_str(), &db);
         sqlite3_exec(db, "PRAGMA user_version=7", nullptr, nullptr, nullptr);
         sqlite3_close(db);
         return d + "/o"; },
       kErrorBadDatabase},
      {"a folder", [](const std::string& d) { return d; }, kErrorCantOpen},
      {"no such folder", [](const std::string& d) { return d + "/no/r"; },
       kErrorCantOpen},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::int32_t open = -1;
    auto store = OpenSqliteRegistryStore(row.make(dir_), {}, &open);
    EXPECT_EQ(row.code, open);
    RegKey key = 5;
    EXPECT_EQ(row.code, store->CreateKey(kHKeyCurrentUser, "a", kKeyAllAccess, &key, nullptr));
    EXPECT_EQ(0u, key);
    EXPECT_EQ(row.code, SetText(store.get(), kHKeyCurrentUser, "v", "x"));
    EXPECT_EQ(kErrorSuccess, store->CloseKey(kHKeyCurrentUser));
  }
}

TEST_F(RegistryFileTest, DamagedPagesGiveBadDatabase) {
  {
    auto store = OpenSqliteRegistryStore(path_);
    RegKey key = 0;
    store->CreateKey(kHKeyCurrentUser, "k", kKeyAllAccess, &key, nullptr);
    for (int i = 0; i < 200; ++i)
      SetText(store.get(), key, ("value" + std::to_string(i)).c_str(),
              std::string(100, 'v'));
  }
  // Overwrite everything after the header page with noise.
  auto size = fs::file_size(path_);
  ASSERT_GT(size, 8192u);
  {
    std::fstream f(path_, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(4096);
    for (std::uintmax_t i = 4096; i < size; ++i) f.put(static_cast<char>(i * 7 + 3));
  }
  std::int32_t open = -1;
  auto store = OpenSqliteRegistryStore(path_, {}, &open);
  std::int32_t code = open;
  if (code == kErrorSuccess) {
    RegKey key = 0;
    code = store->OpenKey(kHKeyCurrentUser, "k", kKeyRead, &key);
    if (code == kErrorSuccess) code = SetText(store.get(), key, "value1", "new");
  }
  EXPECT_EQ(kErrorBadDatabase, code);
}

TEST(FaultInjectingRegistryStoreTest, FailsChosenCallsAndStoresNothing) {
  auto faults = std::make_shared<FaultInjectingRegistryStore>(
      OpenSqliteRegistryStore(":memory:"));
  RegistryStore* s = faults.get();
  auto set = [&](const char* name) {
    std::uint8_t byte = 1;
    return s->SetValue(kHKeyCurrentUser, name, kRegBinary, &byte, 1);
  };
  auto exists = [&](const char* name) {
    return s->QueryValue(kHKeyCurrentUser, name, nullptr, nullptr, nullptr) == 0;
  };
  faults->FailNthWrite(2, kErrorCantWrite);
  EXPECT_EQ(kErrorSuccess, set("one"));
  EXPECT_EQ(kErrorCantWrite, set("two"));
  EXPECT_EQ(kErrorSuccess, set("three"));
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

// Sets or clears environment variables for one test and restores them.
class ScopedEnv {
 public:
  void Set(const char* name, const char* value) {
    const char* old = std::getenv(name);
    saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
    value ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ~ScopedEnv() {
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it)
      it->second ? ::setenv(it->first.c_str(), it->second->c_str(), 1)
                 : ::unsetenv(it->first.c_str());
  }

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST_F(RegistryFileTest, DefaultLocation) {
  struct Row {
    const char *registry, *xdg, *home, *expected;
  } rows[] = {
      {"/r/reg.db", "/x", "/h", "/r/reg.db"},
      {":memory:", nullptr, "/h", ":memory:"},
      {"", "/x", "/h", "/x/tarvo2/registry.sqlite3"},
      {nullptr, "", "/h", "/h/.config/tarvo2/registry.sqlite3"},
      {nullptr, nullptr, "/h", "/h/.config/tarvo2/registry.sqlite3"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.expected);
    ScopedEnv env;
    env.Set("TARVO2_REGISTRY", row.registry);
    env.Set("XDG_CONFIG_HOME", row.xdg);
    env.Set("HOME", row.home);
    EXPECT_EQ(row.expected, DefaultRegistryLocation());
  }
}

TEST_F(RegistryFileTest, ProcessWideStore) {
  ScopedEnv env;
  env.Set("TARVO2_REGISTRY", nullptr);
  env.Set("XDG_CONFIG_HOME", (dir_ + "/config").c_str());
  SetRegistryLocation("");
  auto store = GetRegistryStore();
  EXPECT_EQ(store, GetRegistryStore());
  ASSERT_EQ(kErrorSuccess, SetText(store.get(), kHKeyCurrentUser, "v", "disk"));
  const std::string file = dir_ + "/config/tarvo2/registry.sqlite3";
  EXPECT_EQ(fs::perms(0700), fs::status(dir_ + "/config/tarvo2").permissions());
  EXPECT_EQ(fs::perms(0600), fs::status(file).permissions());

  SetRegistryLocation(":memory:");
  EXPECT_NE(store, GetRegistryStore());
  EXPECT_EQ("<2>", GetText(GetRegistryStore().get(), kHKeyCurrentUser, "v"));
  auto mine = OpenSqliteRegistryStore(file);
  SetRegistryStore(mine);
  EXPECT_EQ(mine, GetRegistryStore());
  EXPECT_EQ("disk", GetText(GetRegistryStore().get(), kHKeyCurrentUser, "v"));
  SetRegistryStore(nullptr);  // back to the location set last
  EXPECT_EQ("<2>", GetText(GetRegistryStore().get(), kHKeyCurrentUser, "v"));
  SetRegistryLocation("");
}

}  // namespace
}  // namespace tarvo2
