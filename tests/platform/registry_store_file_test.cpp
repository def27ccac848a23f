// The registry store on disk: persistence, several processes, store
// failures, fault injection and the process-wide store.
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "tarvo2/registry_store.h"

namespace tarvo2 {
namespace {

namespace fs = std::filesystem;

std::int32_t SetText(RegistryStore* s, RegKey key, const char* name,
                     const std::string& text) {
  return s->SetValue(key, name, kRegSz,
                     reinterpret_cast<const std::uint8_t*>(text.c_str()),
                     static_cast<std::uint32_t>(text.size() + 1));
}

// The text value, or "<code>" when it cannot be read.
std::string GetText(RegistryStore* s, RegKey key, const char* name) {
  char buf[256];
  std::uint32_t size = sizeof buf;
  std::int32_t code = s->QueryValue(key, name, nullptr,
                                    reinterpret_cast<std::uint8_t*>(buf), &size);
  return code == 0 ? std::string(buf) : "<" + std::to_string(code) + ">";
}

RegKey Create(RegistryStore* s, RegKey parent, const char* path) {
  RegKey key = 0;
  EXPECT_EQ(0, s->CreateKey(parent, path, kKeyAllAccess, &key, nullptr)) << path;
  return key;
}

void Sql(const std::string& path, const char* sql) {
  sqlite3* db = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &db));
  EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, sql, nullptr, nullptr, nullptr)) << sql;
  sqlite3_close(db);
}

class RegistryFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/tarvo2-regstore-XXXXXX";
    ASSERT_NE(nullptr, ::mkdtemp(tmpl));
    dir_ = tmpl;
    path_ = dir_ + "/registry.sqlite3";
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string dir_, path_;
};

TEST_F(RegistryFileTest, PersistsAcrossReopenInAPrivateFile) {
  std::int32_t open = -1;
  auto store = OpenSqliteRegistryStore(path_, {}, &open);
  ASSERT_EQ(kErrorSuccess, open);
  SetText(store.get(), Create(store.get(), kHKeyCurrentUser, "App\\Settings"),
          "Colour", "Red");
  store = OpenSqliteRegistryStore(path_);
  EXPECT_EQ(fs::perms(0600), fs::status(path_).permissions());
  RegKey key = 0;
  ASSERT_EQ(0, store->OpenKey(kHKeyCurrentUser, "app\\settings", kKeyRead, &key));
  EXPECT_EQ("Red", GetText(store.get(), key, "colour"));
}

TEST_F(RegistryFileTest, ConcurrentProcessesLoseNoWrite) {
  constexpr int kChildren = 4, kEach = 40;
  OpenSqliteRegistryStore(path_);  // create the file, then close it
  std::vector<pid_t> pids;
  for (int c = 0; c < kChildren; ++c) {
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      int failures = 0;
      auto store = OpenSqliteRegistryStore(path_);
      for (int i = 0; i < kEach; ++i) {
        RegKey key = 0, sub = 0;  // all create "Shared", each its own subkeys
        std::string name = std::to_string(c) + "_" + std::to_string(i);
        failures += store->CreateKey(kHKeyCurrentUser, "Shared", kKeyAllAccess, &key, nullptr) != 0;
        failures += SetText(store.get(), key, name.c_str(), name) != 0;
        failures += store->CreateKey(key, name.c_str(), kKeyAllAccess, &sub, nullptr) != 0;
        store->CloseKey(sub);
        store->CloseKey(key);
      }
      store.reset();
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
  ASSERT_EQ(0, store->OpenKey(kHKeyCurrentUser, "Shared", kKeyRead, &key));
  for (int c = 0; c < kChildren; ++c)
    for (int i = 0; i < kEach; ++i) {
      std::string name = std::to_string(c) + "_" + std::to_string(i);
      ASSERT_EQ(name, GetText(store.get(), key, name.c_str()));
    }
  char buf[64];
  std::uint32_t len = sizeof buf;
  EXPECT_EQ(kErrorNoMoreItems, store->EnumValue(key, kChildren * kEach, buf, &len,
                                                nullptr, nullptr, nullptr));
  EXPECT_EQ(0, store->EnumKey(key, kChildren * kEach - 1, buf, 64));
  EXPECT_EQ(kErrorNoMoreItems, store->EnumKey(key, kChildren * kEach, buf, 64));
}

TEST_F(RegistryFileTest, LockHeldTooLongFailsWritesButNotReads) {
  SetText(OpenSqliteRegistryStore(path_).get(), kHKeyLocalMachine, "v", "before");
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
  EXPECT_EQ(0, SetText(store.get(), kHKeyLocalMachine, "v", "after"));
  EXPECT_EQ("after", GetText(store.get(), kHKeyLocalMachine, "v"));
}

TEST_F(RegistryFileTest, FailureInsideAWriteUndoesAllOfIt) {
  OpenSqliteRegistryStore(path_);
  // The third key of the path fails after the first two were inserted.
  Sql(path_, "CREATE TRIGGER no_c BEFORE INSERT ON reg_keys WHEN NEW.name = "
             "CAST('c' AS BLOB) BEGIN SELECT RAISE(ABORT, 'no'); END");
  auto store = OpenSqliteRegistryStore(path_);
  RegKey key = 3;
  EXPECT_EQ(kErrorCantWrite, store->CreateKey(kHKeyCurrentUser, "a\\b\\c",
                                              kKeyAllAccess, &key, nullptr));
  EXPECT_EQ(0u, key);
  EXPECT_EQ(kErrorFileNotFound, store->OpenKey(kHKeyCurrentUser, "a", kKeyRead, &key));
  Create(store.get(), kHKeyCurrentUser, "a\\b\\d");
}

TEST_F(RegistryFileTest, ReadOnlyFileReadsButRefusesWrites) {
  {
    auto store = OpenSqliteRegistryStore(path_);
    SetText(store.get(), Create(store.get(), kHKeyCurrentUser, "Kept"), "v", "stored");
  }
  ASSERT_EQ(0, ::chmod(path_.c_str(), 0400));
  // The superuser writes through any mode: check as an ordinary user then.
  // The child exits with the number of the first check that failed.
  pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    if (::geteuid() == 0 &&
        (::chown(dir_.c_str(), 65534, 65534) != 0 ||
         ::chown(path_.c_str(), 65534, 65534) != 0 || ::setgid(65534) != 0 ||
         ::setuid(65534) != 0))
      ::_exit(1);
    std::int32_t open = -1;
    auto store = OpenSqliteRegistryStore(path_, {}, &open);
    RegKey key = 0, created = 0;
    bool ok[] = {
        open == 0,
        store->OpenKey(kHKeyCurrentUser, "kept", kKeyAllAccess, &key) == 0,
        GetText(store.get(), key, "v") == "stored",
        SetText(store.get(), key, "v", "changed") == kErrorCantWrite,
        store->DeleteValue(key, "v") == kErrorCantWrite,
        store->CreateKey(key, "new", kKeyAllAccess, &created, nullptr) == kErrorCantWrite,
        // An existing key can still be "created", which only opens it.
        store->CreateKey(kHKeyCurrentUser, "Kept", kKeyAllAccess, &created, nullptr) == 0,
        GetText(store.get(), key, "v") == "stored",
    };
    for (int i = 0; i < static_cast<int>(std::size(ok)); ++i)
      if (!ok[i]) ::_exit(10 + i);
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << "(10 + index of the failed check)";
}

TEST_F(RegistryFileTest, UnusableFilesGiveStoreCodesNotCrashes) {
  auto damaged = [](const std::string& path) {
    auto store = OpenSqliteRegistryStore(path);
    RegKey key = Create(store.get(), kHKeyCurrentUser, "k");
    for (int i = 0; i < 200; ++i)
      SetText(store.get(), key, std::to_string(i).c_str(), std::string(100, 'v'));
    store.reset();
    // Noise over every page after the first, which holds only the header.
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(4096);
    for (std::uintmax_t i = 4096; i < fs::file_size(path); ++i) f.put(char(i * 7 + 3));
  };
  struct Row {
    const char* what;
    std::function<std::string(const std::string& dir)> make;  // gives the path
    std::int32_t open_code, call_code;
  } rows[] = {
      {"garbage", [](const std::string& d) {
         std::ofstream(d + "/g") << std::string(8192, 'Z'); return d + "/g"; },
       kErrorBadDatabase, kErrorBadDatabase},
      {"damaged pages", [&](const std::string& d) { damaged(d + "/p"); return d + "/p"; },
       kErrorSuccess, kErrorBadDatabase},
      {"another program's database", [](const std::string& d) {
         Sql(d + "/o", "PRAGMA user_version=7"); return d + "/o"; },
       kErrorBadDatabase, kErrorBadDatabase},
      {"a folder", [](const std::string& d) { return d; }, kErrorCantOpen, kErrorCantOpen},
      {"no such folder", [](const std::string& d) { return d + "/no/r"; },
       kErrorCantOpen, kErrorCantOpen},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::int32_t open = -1;
    auto store = OpenSqliteRegistryStore(row.make(dir_), {}, &open);
    EXPECT_EQ(row.open_code, open);
    RegKey key = 5;
    EXPECT_EQ(row.call_code, store->CreateKey(kHKeyCurrentUser, "k\\new",
                                              kKeyAllAccess, &key, nullptr));
    EXPECT_EQ(0u, key);
    EXPECT_EQ(row.call_code, SetText(store.get(), kHKeyCurrentUser, "v", "x"));
    EXPECT_EQ(kErrorSuccess, store->CloseKey(kHKeyCurrentUser));
  }
}

TEST(FaultInjectingRegistryStoreTest, FailsChosenCallsAndStoresNothing) {
  auto faults = std::make_shared<FaultInjectingRegistryStore>(
      OpenSqliteRegistryStore(":memory:"));
  RegistryStore* s = faults.get();
  auto set = [&](const char* name) { return SetText(s, kHKeyCurrentUser, name, "1"); };
  auto exists = [&](const char* name) { return GetText(s, kHKeyCurrentUser, name) == "1"; };
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

// Sets environment variables (null: unset) and restores them on exit.
class ScopedEnv {
 public:
  ScopedEnv(const char* registry, const char* xdg, const char* home) {
    const char* values[] = {registry, xdg, home};
    for (int i = 0; i < 3; ++i) {
      const char* old = std::getenv(kNames[i]);
      saved_[i] = old ? std::make_unique<std::string>(old) : nullptr;
      values[i] ? ::setenv(kNames[i], values[i], 1) : ::unsetenv(kNames[i]);
    }
  }
  ~ScopedEnv() {
    for (int i = 0; i < 3; ++i)
      saved_[i] ? ::setenv(kNames[i], saved_[i]->c_str(), 1) : ::unsetenv(kNames[i]);
  }

 private:
  static constexpr const char* kNames[] = {"TARVO2_REGISTRY", "XDG_CONFIG_HOME", "HOME"};
  std::unique_ptr<std::string> saved_[3];
};

TEST(RegistryLocationTest, DefaultLocation) {
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
    ScopedEnv env(row.registry, row.xdg, row.home);
    EXPECT_EQ(row.expected, DefaultRegistryLocation());
  }
}

TEST_F(RegistryFileTest, ProcessWideStore) {
  ScopedEnv env(nullptr, (dir_ + "/config").c_str(), "/nonexistent");
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
