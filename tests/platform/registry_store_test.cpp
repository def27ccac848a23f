// The registry store's nine calls on in-memory registries; on disk its
// persistence, several processes, store failures and fault injection.
#include "tarvo2/registry_store.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/platform_temp_dir.h"

namespace tarvo2 {
namespace {

using namespace std::string_literals;
using Names = std::vector<std::string>;

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
Names SubKeys(RegistryStore* s, RegKey key) {
  Names names;
  char buf[300];
  for (std::uint32_t i = 0; s->EnumKey(key, i, buf, sizeof buf) == 0; ++i) names.push_back(buf);
  return names;
}
Names ValueNames(RegistryStore* s, RegKey key) {
  Names names;
  char buf[300];
  for (std::uint32_t i = 0, n = sizeof buf; s->EnumValue(key, i, buf, &n, nullptr, nullptr, nullptr) == 0;
       ++i, n = sizeof buf)
    names.push_back(buf);
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
    ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "exit code " << WEXITSTATUS(status);
  }
}

class RegistryStoreTest : public ::testing::Test {
 protected:
  std::shared_ptr<RegistryStore> store_ = OpenSqliteRegistryStore(":memory:");
  RegistryStore* s_ = store_.get();
  testing::PlatformTempDir tmp_;
  const std::string path_ = tmp_ / "registry.sqlite3";
};

TEST_F(RegistryStoreTest, RootsAreSeparateWritableTreesThatSurviveClose) {
  for (RegKey root : {kHKeyClassesRoot, kHKeyCurrentUser, kHKeyLocalMachine, kHKeyUsers}) {
    EXPECT_EQ(0, Set(s_, root, "v", std::to_string(root))) << root;
    EXPECT_EQ(0, s_->CloseKey(root)) << root;
  }
  for (RegKey root : {kHKeyClassesRoot, kHKeyCurrentUser, kHKeyLocalMachine, kHKeyUsers})
    EXPECT_EQ(std::to_string(root), Get(s_, root, "v"));
  Create(s_, kHKeyUsers, "OnlyHere");
  EXPECT_EQ(Names{}, SubKeys(s_, kHKeyLocalMachine));
}

// Every refusal leaves a 0 handle and the store as it was.
TEST_F(RegistryStoreTest, ResultCodesOfRefusedCalls) {
  std::string deep, too_long(kMaxKeyNameLength + 1, 'n'), long_value(kMaxValueNameLength + 1, 'v');
  for (std::size_t i = 0; i < kMaxKeyDepth; ++i) deep += "d\\";
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
      {"too deep", kErrorInvalidParameter, [&] { return open(kHKeyCurrentUser, deep + "d", true); }},
      {"depth counts from the root", kErrorInvalidParameter, [&] { return open(bottom, "e", true); }},
      {"open missing", kErrorFileNotFound, [&] { return open(kHKeyCurrentUser, "app\\nothing", false); }},
      {"open into null", kErrorInvalidParameter, [&] { return s_->OpenKey(app, "", kKeyRead, nullptr); }},
      {"set read-only", kErrorAccessDenied, [&] { return Set(s_, ro, "new", "2"); }},
      {"delete value read-only", kErrorAccessDenied, [&] { return s_->DeleteValue(ro, "v"); }},
      {"create through read-only", kErrorSuccess, [&] { return open(ro, "child", true); }},
      {"set null data", kErrorInvalidParameter, [&] { return s_->SetValue(app, "v", kRegBinary, nullptr, 3); }},
      {"long value name", kErrorInvalidParameter, [&] { return Set(s_, app, long_value.c_str(), "x"); }},
      {"longest value name", kErrorSuccess, [&] { return Set(s_, app, long_value.c_str() + 1, "x"); }},
      {"query missing sets type 0", kErrorFileNotFound,
       [&] { std::int32_t c = s_->QueryValue(app, "none", &type, nullptr, &size); return type == 0 ? c : -1; }},
      {"query without size", kErrorInvalidParameter, [&] { return s_->QueryValue(app, "v", &type, U(buf), nullptr); }},
      {"query into small buffer", kErrorMoreData, [&] {  // gives the size needed, leaves the buffer
         size = 4;
         std::int32_t c = s_->QueryValue(app, "V", &type, U(buf), &size);
         return size == 5 && buf == "########" ? c : -1; }},
      {"delete missing value", kErrorFileNotFound, [&] { return s_->DeleteValue(app, "none"); }},
      {"delete key with subkeys", kErrorAccessDenied, [&] { return s_->DeleteKey(kHKeyCurrentUser, "app"); }},
      {"delete own key with subkeys", kErrorAccessDenied, [&] { return s_->DeleteKey(app, ""); }},
      {"delete null subkey", kErrorInvalidParameter, [&] { return s_->DeleteKey(app, nullptr); }},
      {"delete missing key", kErrorFileNotFound, [&] { return s_->DeleteKey(app, "nothing"); }},
      {"delete leading \\", kErrorBadPathname, [&] { return s_->DeleteKey(app, "\\sub"); }},
      {"delete a root", kErrorAccessDenied, [&] { return s_->DeleteKey(kHKeyLocalMachine, ""); }},
      {"enum value past end", kErrorNoMoreItems, [&] { return s_->EnumValue(app, 2, name, &len, 0, 0, 0); }},
      {"enum value without length", kErrorInvalidParameter, [&] { return s_->EnumValue(app, 0, name, 0, 0, 0, 0); }},
      {"enum key into small buffer", kErrorMoreData, [&] { return s_->EnumKey(app, 1, name, 3); }},
      {"enum key past end", kErrorNoMoreItems, [&] { return s_->EnumKey(app, 2, name, 8); }},
  };
  for (const Row& row : rows) EXPECT_EQ(row.code, row.call()) << row.what;
  EXPECT_EQ((Names{"app", "d"}), SubKeys(s_, kHKeyCurrentUser));
  EXPECT_EQ((Names{"child", "sub"}), SubKeys(s_, app));
  EXPECT_EQ("12345", Get(s_, app, "v"));
  EXPECT_EQ("x", Get(s_, app, long_value.c_str() + 1));
  EXPECT_STREQ("zz", name);
}

TEST_F(RegistryStoreTest, PathsAndLetterCaseNameTheSameKey) {
  const std::string long_name(kMaxKeyNameLength, 'n');
  std::string deep;
  for (std::size_t i = 0; i < kMaxKeyDepth; ++i) deep += "d\\";
  // Each pair names one key; "/" is part of a name; null and "" are the key itself.
  const std::pair<std::string, std::string> paths[] = {
      {"a\\b", "A\\B"}, {"a\\b\\", "a\\b"}, {"a\\\\\\b", "a\\b"}, {"a/b", "a/b\\"},
      {long_name, long_name + "\\"}, {deep, deep.substr(0, deep.size() - 1)}, {"a", ""}};
  for (const auto& [path, same] : paths) {
    RegKey key = Create(s_, kHKeyCurrentUser, path), other = 0, self = 0;
    ASSERT_EQ(0, Set(s_, key, "marker", path));
    ASSERT_EQ(0, s_->OpenKey(kHKeyCurrentUser, same.c_str(), kKeyRead, &other));
    ASSERT_EQ(0, s_->OpenKey(key, same.empty() ? nullptr : "", kKeyRead, &self));
    EXPECT_EQ(path + path, Get(s_, same.empty() ? key : other, "marker") + Get(s_, self, "marker"));
  }
  EXPECT_EQ((Names{"a", "a/b", "d", long_name}), SubKeys(s_, kHKeyCurrentUser));
  struct Row { const char *first, *second; bool same; };
  const Row rows[] = {
      {"Software", "SOFTWARE", true}, {"\xC4pfel", "\xE4PFEL", true}, {"\x8A", "\x9A", true}, {"\x8C", "\x9C", true},
      {"\x8E", "\x9E", true}, {"\x9F", "\xFF", true}, {"\xDE", "\xFE", true}, {"\xDF", "SS", false},
      {"\xD7", "\xF7", false}, {"a", "\xE0", false}, {"\xB5", "\x9C", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.first) + " / " + row.second);
    RegKey parent = Create(s_, kHKeyUsers, std::string("t\\") + row.first), key = Create(s_, parent, row.first);
    std::uint32_t disposition = 0;
    ASSERT_EQ(0, s_->CreateKey(parent, row.second, kKeyAllAccess, &key, &disposition));
    EXPECT_EQ(row.same ? kRegOpenedExistingKey : kRegCreatedNewKey, disposition);
    ASSERT_EQ(0, Set(s_, parent, row.first, "1"));
    ASSERT_EQ(0, Set(s_, parent, row.second, "2"));  // replaces a value of the same name
    Names names{row.first};  // keys and values keep the spelling they were created with
    if (!row.same) names.push_back(row.second);
    EXPECT_EQ(names, ValueNames(s_, parent));
    EXPECT_EQ(row.same ? "2" : "1", Get(s_, parent, row.first));
    const Names keys = SubKeys(s_, parent);
    EXPECT_TRUE(std::is_permutation(keys.begin(), keys.end(), names.begin(), names.end())) << keys.size();
  }
}

TEST_F(RegistryStoreTest, BadAndDeletedHandles) {
  char name[64];
  std::uint8_t data[64];
  std::uint32_t n, t, d;
  RegKey out;
  const std::pair<const char*, std::function<std::int32_t(RegKey)>> calls[] = {
      {"CreateKey", [&](RegKey k) { return s_->CreateKey(k, "c", kKeyAllAccess, &out, nullptr); }},
      {"OpenKey", [&](RegKey k) { return s_->OpenKey(k, "", kKeyRead, &out); }},
      {"QueryValue", [&](RegKey k) { return s_->QueryValue(k, "v", &t, nullptr, &d); }},
      {"SetValue", [&](RegKey k) { return s_->SetValue(k, "v", kRegBinary, data, 1); }},
      {"DeleteValue", [&](RegKey k) { return s_->DeleteValue(k, "v"); }},
      {"DeleteKey", [&](RegKey k) { return s_->DeleteKey(k, ""); }},
      {"EnumValue", [&](RegKey k) { n = 64, d = 64; return s_->EnumValue(k, 0, name, &n, &t, data, &d); }},
      {"EnumKey", [&](RegKey k) { return s_->EnumKey(k, 0, name, 64); }},
      {"CloseKey", [&](RegKey k) { return s_->CloseKey(k); }},
  };
  RegKey closed = Create(s_, kHKeyCurrentUser, "closed");
  ASSERT_EQ(0, s_->CloseKey(closed));
  for (const auto& [call, run] : calls) {
    SCOPED_TRACE(call);
    for (RegKey bad : {RegKey{0}, closed, closed + 1000, RegKey{0x80000004}}) EXPECT_EQ(kErrorInvalidHandle, run(bad)) << bad;
    // A key deleted through another handle: every call but close says so,
    // even when a new key of the same name took its place.
    RegKey doomed = Create(s_, kHKeyCurrentUser, "doomed");
    Set(s_, doomed, "v", "x");
    ASSERT_EQ(0, s_->DeleteKey(kHKeyCurrentUser, "doomed"));
    Create(s_, kHKeyCurrentUser, "doomed");
    EXPECT_EQ(std::string(call) == "CloseKey" ? kErrorSuccess : kErrorKeyDeleted, run(doomed));
    s_->DeleteKey(kHKeyCurrentUser, "doomed");
  }
}

TEST_F(RegistryStoreTest, ValuesKeepExactBytesAndType) {
  RegKey key = Create(s_, kHKeyCurrentUser, "types");
  std::string big(1 << 20, '\0');
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 31);
  struct Row { std::uint32_t type; std::string stored, read; };
  const Row rows[] = {
      {kRegNone, "", ""},  {kRegBinary, "\0\1\0\xFF"s, "\0\1\0\xFF"s},  {kRegDword, "\xFF\xFF\xFF\xFF", "\xFF\xFF\xFF\xFF"},
      {kRegSz, "abc\0"s, "abc\0"s}, {kRegSz, "abc", "abc\0"s}, {kRegSz, "", "\0"s},  // a missing NUL added
      {kRegExpandSz, "%x%", "%x%\0"s}, {kRegMultiSz, "a\0b\0"s, "a\0b\0"s}, {kRegQword, "\7\7\7\7\7\7\7\7", "\7\7\7\7\7\7\7\7"},
      {0xDEADBEEF, "any", "any"}, {kRegBinary, big, big},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.type);
    ASSERT_EQ(0, Set(s_, key, "v", row.stored, row.type));
    std::uint32_t type = 0;
    EXPECT_EQ(row.read, Get(s_, key, "V", &type));
    EXPECT_EQ(row.type, type);
  }
  // Null and empty names are the same default value.
  ASSERT_EQ(0, Set(s_, key, nullptr, "default"));
  EXPECT_EQ("default", Get(s_, key, ""));
  ASSERT_EQ(0, s_->DeleteValue(key, ""));
  EXPECT_EQ("<2>", Get(s_, key, nullptr));
}

TEST_F(RegistryStoreTest, EnumerationOrderAndBuffers) {
  RegKey key = Create(s_, kHKeyCurrentUser, "e");
  for (const char* name : {"zeta", "alpha", "", "Mid", "gone"}) Set(s_, key, name, name);
  Set(s_, key, "ALPHA", "replaced");  // keeps its place and spelling
  s_->DeleteValue(key, "gone");
  EXPECT_EQ((Names{"zeta", "alpha", "", "Mid"}), ValueNames(s_, key));
  // Value 1 is "alpha" = "replaced". A short name buffer: the name cut, the data written;
  // a short data buffer: the size needed, nothing written.
  char name[8] = "xxx";
  std::string data(16, '#');
  std::uint32_t len = 3, size = 16;
  EXPECT_EQ(kErrorMoreData, s_->EnumValue(key, 1, name, &len, nullptr, U(data), &size));
  EXPECT_EQ("al|3|8|replaced########"s, name + "|"s + std::to_string(len) + "|" + std::to_string(size) + "|" + data);
  strcpy(name, "xxx");
  data.assign(16, '#'), len = 8, size = 2;
  EXPECT_EQ(kErrorMoreData, s_->EnumValue(key, 1, name, &len, nullptr, U(data), &size));
  EXPECT_EQ("xxx|8|8|################"s, name + "|"s + std::to_string(len) + "|" + std::to_string(size) + "|" + data);
  for (const char* sub : {"b", "_x", "C", "A", "\xE4", "\xC1"}) Create(s_, key, sub);
  // Letter case is folded upwards: "_" sorts after the letters.
  EXPECT_EQ((Names{"A", "b", "C", "_x", "\xC1", "\xE4"}), SubKeys(s_, key));
  EXPECT_EQ(kErrorSuccess, s_->EnumKey(key, 3, name, 3));
  EXPECT_STREQ("_x", name);
}

// On disk.

TEST_F(RegistryStoreTest, ConcurrentProcessesLoseNoWriteAndItLasts) {
  constexpr int kChildren = 4, kEach = 40;
  std::int32_t open = -1;
  OpenSqliteRegistryStore(path_, {}, &open);  // create the file, then close it
  ASSERT_EQ(0, open);
  EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(path_).permissions());
  InChildren(kChildren, [&](int c) {
    int failures = 0;
    auto store = OpenSqliteRegistryStore(path_);
    for (int i = 0; i < kEach; ++i) {  // all create "Shared", each its own subkeys and values
      RegKey key = 0, sub = 0;
      std::string name = std::to_string(c * kEach + i);
      failures += store->CreateKey(kHKeyCurrentUser, "Shared", kKeyAllAccess, &key, nullptr) != 0;
      failures += Set(store.get(), key, name.c_str(), name) != 0;
      failures += store->CreateKey(key, name.c_str(), kKeyAllAccess, &sub, nullptr) != 0;
      store->CloseKey(sub);
      store->CloseKey(key);
    }
    return failures;
  });
  auto store = OpenSqliteRegistryStore(path_);
  RegKey key = 0;
  ASSERT_EQ(0, store->OpenKey(kHKeyCurrentUser, "sHARED", kKeyRead, &key));
  Names names = ValueNames(store.get(), key);
  ASSERT_EQ(std::size_t{kChildren * kEach}, names.size());
  for (const std::string& name : names) EXPECT_EQ(name, Get(store.get(), key, name.c_str()));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, SubKeys(store.get(), key));
  EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());
}

// A lock held too long by another connection, and a write that fails
// half-way, change nothing; reads still work.
TEST_F(RegistryStoreTest, FailedWritesLeaveNothingHalfDone) {
  Set(OpenSqliteRegistryStore(path_).get(), kHKeyLocalMachine, "v", "before");
  sqlite3* other = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(path_.c_str(), &other));
  // The third key of a path fails after the first two were inserted.
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "CREATE TRIGGER no_c BEFORE INSERT ON reg_keys WHEN NEW.name = "
                                           "CAST('c' AS BLOB) BEGIN SELECT RAISE(ABORT, 'no'); END", 0, 0, 0));
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr));
  auto store = OpenSqliteRegistryStore(path_, SqliteRegistryOptions{50});
  RegKey key = 99;
  EXPECT_EQ(kErrorCantWrite, Set(store.get(), kHKeyLocalMachine, "v", "during"));
  EXPECT_EQ(kErrorCantWrite, store->CreateKey(kHKeyLocalMachine, "new", kKeyAllAccess, &key, nullptr));
  EXPECT_EQ(0u, key);
  EXPECT_EQ("before", Get(store.get(), kHKeyLocalMachine, "v"));
  sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_close(other);
  EXPECT_EQ(0, Set(store.get(), kHKeyLocalMachine, "v", "after"));
  EXPECT_EQ("after", Get(store.get(), kHKeyLocalMachine, "v"));
  key = 3;
  EXPECT_EQ(kErrorCantWrite, store->CreateKey(kHKeyCurrentUser, "a\\b\\c", kKeyAllAccess, &key, nullptr));
  EXPECT_EQ(0u, key);
  EXPECT_EQ(kErrorFileNotFound, store->OpenKey(kHKeyCurrentUser, "a", kKeyRead, &key));
  Create(store.get(), kHKeyCurrentUser, "a\\b\\d");
}

TEST_F(RegistryStoreTest, ReadOnlyFileReadsButRefusesWrites) {
  {
    auto store = OpenSqliteRegistryStore(path_);
    Set(store.get(), Create(store.get(), kHKeyCurrentUser, "Kept"), "v", "stored");
  }
  ASSERT_EQ(0, ::chmod(path_.c_str(), 0400));
  // The superuser writes through any mode: check as an ordinary user then.
  // The child exits with 10 + the index of the first check that failed.
  InChildren(1, [&](int) {
    if (::geteuid() == 0 && (::chown(tmp_.path().c_str(), 65534, 65534) != 0 ||
                             ::chown(path_.c_str(), 65534, 65534) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0))
      return 1;
    std::int32_t open = -1;
    auto store = OpenSqliteRegistryStore(path_, {}, &open);
    RegKey key = 0, created = 0;
    const bool ok[] = {
        open == 0, store->OpenKey(kHKeyCurrentUser, "kept", kKeyAllAccess, &key) == 0,
        Get(store.get(), key, "v") == "stored", Set(store.get(), key, "v", "changed") == kErrorCantWrite,
        store->DeleteValue(key, "v") == kErrorCantWrite,
        store->CreateKey(key, "new", kKeyAllAccess, &created, nullptr) == kErrorCantWrite,
        // An existing key can still be "created", which only opens it.
        store->CreateKey(kHKeyCurrentUser, "Kept", kKeyAllAccess, &created, nullptr) == 0,
        Get(store.get(), key, "v") == "stored",
    };
    for (int i = 0; i < static_cast<int>(std::size(ok)); ++i)
      if (!ok[i]) return 10 + i;
    return 0;
  });
}

TEST_F(RegistryStoreTest, UnusableFilesGiveStoreCodesNotCrashes) {
  auto damaged = [](const std::string& path) {
    auto store = OpenSqliteRegistryStore(path);
    RegKey key = Create(store.get(), kHKeyCurrentUser, "k");
    for (int i = 0; i < 200; ++i) Set(store.get(), key, std::to_string(i).c_str(), std::string(100, 'v'));
    store.reset();  // then noise over every page after the first, which holds only the header
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(4096);
    for (std::uintmax_t i = 4096; i < std::filesystem::file_size(path); ++i) f.put(char(i * 7 + 3));
    return path;
  };
  const std::string garbage = tmp_ / "g";
  std::ofstream(garbage) << std::string(8192, 'Z');
  sqlite3* db = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open((tmp_ / "o").c_str(), &db));
  EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, "PRAGMA user_version=7", nullptr, nullptr, nullptr));
  sqlite3_close(db);
  struct Row { const char* what; std::string path; std::int32_t open_code, call_code; };
  const Row rows[] = {
      {"garbage", garbage, kErrorBadDatabase, kErrorBadDatabase},
      {"damaged pages", damaged(tmp_ / "p"), kErrorSuccess, kErrorBadDatabase},
      {"another program's database", tmp_ / "o", kErrorBadDatabase, kErrorBadDatabase},
      {"no such folder", tmp_ / "no/r", kErrorCantOpen, kErrorCantOpen},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    std::int32_t open = -1;
    auto store = OpenSqliteRegistryStore(row.path, {}, &open);
    EXPECT_EQ(row.open_code, open);
    RegKey key = 5;
    EXPECT_EQ(row.call_code, store->CreateKey(kHKeyCurrentUser, "k\\new", kKeyAllAccess, &key, nullptr));
    EXPECT_EQ(0u, key);
    EXPECT_EQ(row.call_code, Set(store.get(), kHKeyCurrentUser, "v", "x"));
    EXPECT_EQ(kErrorSuccess, store->CloseKey(kHKeyCurrentUser));
  }
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

TEST_F(RegistryStoreTest, LocationAndProcessWideStore) {
  const char* names[] = {"TARVO2_REGISTRY", "XDG_CONFIG_HOME", "HOME"};
  std::optional<std::string> saved[3];
  for (int i = 0; i < 3; ++i) if (const char* v = std::getenv(names[i])) saved[i] = v;
  auto env = [&](std::initializer_list<const char*> values) {
    int i = 0;
    for (const char* v : values) v ? ::setenv(names[i++], v, 1) : ::unsetenv(names[i++]);
  };
  const std::pair<std::initializer_list<const char*>, std::string> rows[] = {
      {{"/r/reg.db", "/x", "/h"}, "/r/reg.db"}, {{":memory:", nullptr, "/h"}, ":memory:"},
      {{"", "/x", "/h"}, "/x/tarvo2/registry.sqlite3"}, {{nullptr, "", "/h"}, "/h/.config/tarvo2/registry.sqlite3"}};
  for (const auto& [values, location] : rows) {
    env(values);
    EXPECT_EQ(location, DefaultRegistryLocation());
  }
  env({nullptr, (tmp_ / "config").c_str(), "/nonexistent"});
  SetRegistryLocation("");
  auto store = GetRegistryStore();
  ASSERT_EQ(0, Set(store.get(), kHKeyCurrentUser, "v", "disk"));
  EXPECT_EQ(std::filesystem::perms(0700), std::filesystem::status(tmp_ / "config/tarvo2").permissions());
  SetRegistryLocation(":memory:");
  EXPECT_EQ("<2>", Get(GetRegistryStore().get(), kHKeyCurrentUser, "v"));
  SetRegistryStore(store);
  EXPECT_EQ("disk", Get(GetRegistryStore().get(), kHKeyCurrentUser, "v"));
  SetRegistryStore(nullptr);  // back to the location set last
  EXPECT_EQ("<2>", Get(GetRegistryStore().get(), kHKeyCurrentUser, "v"));
  SetRegistryLocation("");
  for (int i = 0; i < 3; ++i) saved[i] ? ::setenv(names[i], saved[i]->c_str(), 1) : ::unsetenv(names[i]);
}

}  // namespace
}  // namespace tarvo2
