// The registry store's nine calls on in-memory registries; on disk its
// persistence, several processes, store failures and fault injection.
#include "tarvo2/registry_store.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include <gtest/gtest.h>

#include "platform/platform_test_util.h"
#include "support/platform_temp_dir.h"

namespace tarvo2 {
namespace {

using namespace std::string_literals;
using testing::Names;

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
Names ValueNames(RegistryStore* s, RegKey key) { return SubKeys(s, key, true); }
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
      {"too deep", kErrorInvalidParameter, [&] { return open(kHKeyCurrentUser, deep + "d", true); }},
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
      {"delete missing value", kErrorFileNotFound, [&] { return s_->DeleteValue(app, "none"); }},
      {"delete key with subkeys", kErrorAccessDenied, [&] { return s_->DeleteKey(kHKeyCurrentUser, "app"); }},
      {"enum value past end", kErrorNoMoreItems, [&] { return s_->EnumValue(app, 2, name, &len, 0, 0, 0); }},
      {"enum key into small buffer", kErrorMoreData, [&] { return s_->EnumKey(app, 1, name, 3); }},
      {"enum key past end", kErrorNoMoreItems, [&] { return s_->EnumKey(app, 2, name, 8); }},
      {"create under a closed handle", kErrorInvalidHandle, [&] { return open(closed, "c", true); }},
      {"set on handle 0", kErrorInvalidHandle, [&] { return Set(s_, 0, "v", "x"); }},
      {"query a handle never given", kErrorInvalidHandle, [&] { return s_->QueryValue(0x80000004, "v", 0, 0, &size); }},
      {"close a closed handle", kErrorInvalidHandle, [&] { return s_->CloseKey(closed); }},
      {"create under a deleted key", kErrorKeyDeleted, [&] { return open(doomed, "c", true); }},
      {"query a deleted key", kErrorKeyDeleted, [&] { return s_->QueryValue(doomed, "v", &type, nullptr, &size); }},
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
    Names names{row.first};  // keys and values keep the spelling they were created with
    if (!row.same) names.push_back(row.second);
    EXPECT_EQ(names, ValueNames(s_, parent));
    const Names keys = SubKeys(s_, parent);
    EXPECT_TRUE(std::is_permutation(keys.begin(), keys.end(), names.begin(), names.end())) << keys.size();
  }
}

TEST_F(RegistryStoreTest, ValuesKeepExactBytesAndType) {
  RegKey key = Create(s_, kHKeyCurrentUser, "types");
  std::string big(1 << 20, '\0');
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 31);
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
}

TEST_F(RegistryStoreTest, EnumerationOrderAndBuffers) {
  RegKey key = Create(s_, kHKeyCurrentUser, "e");
  for (const char* name : {"zeta", "alpha", "", "Mid", "gone"}) Set(s_, key, name, name);
  Set(s_, key, "ALPHA", "replaced");  // keeps its place and spelling
  s_->DeleteValue(key, "gone");
  EXPECT_EQ((Names{"zeta", "alpha", "", "Mid"}), ValueNames(s_, key));
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
  EXPECT_EQ("234|xxx|8|8|################", second(8, 2));
  for (const char* sub : {"b", "_x", "C", "A", "\xE4", "\xC1"}) Create(s_, key, sub);
  // Letter case is folded upwards: "_" sorts after the letters.
  EXPECT_EQ((Names{"A", "b", "C", "_x", "\xC1", "\xE4"}), SubKeys(s_, key));
  EXPECT_EQ("0 _x", std::to_string(s_->EnumKey(key, 3, name, 3)) + " " + name);  // a buffer that just fits
}

// On disk.

TEST_F(RegistryStoreTest, ConcurrentProcessesLoseNoWriteAndItLasts) {
  constexpr int kChildren = 4, kEach = 40;
  std::int32_t open = -1;
  OpenSqliteRegistryStore(path_, {}, &open);  // create the file, then close it
  ASSERT_EQ(0, open);
  EXPECT_EQ(std::filesystem::perms(0600), std::filesystem::status(path_).permissions());
  testing::InChildren(kChildren, [&](int c) {
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
  Names names = ValueNames(store.get(), key);
  ASSERT_EQ(std::size_t{kChildren * kEach}, names.size());
  for (const std::string& name : names) EXPECT_EQ(name, Get(store.get(), key, name.c_str()));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, SubKeys(store.get(), key));
}

TEST_F(RegistryStoreTest, WriteFailingHalfWayLeavesNothingHalfDone) {
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

TEST_F(RegistryStoreTest, ReadOnlyFileReadsButRefusesWrites) {
  auto disk = OpenSqliteRegistryStore(path_);
  ASSERT_EQ(0, Set(disk.get(), Create(disk.get(), kHKeyCurrentUser, "Kept"), "v", "stored"));
  disk.reset();
  ASSERT_EQ(0, ::chmod(path_.c_str(), 0400));
  // The superuser writes through any mode: check as an ordinary user then.
  // The child exits with 10 + the index of the first check that failed.
  testing::InChildren(1, [&](int) {
    if (::geteuid() == 0 && (::chown(tmp_.path().c_str(), 65534, 65534) != 0 ||
                             ::chown(path_.c_str(), 65534, 65534) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0))
      return 1;
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
}

TEST_F(RegistryStoreTest, UnusableFilesGiveStoreCodesNotCrashes) {
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
  ASSERT_EQ(SQLITE_OK, sqlite3_open((tmp_ / "o").c_str(), &db));
  EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, "PRAGMA user_version=7", nullptr, nullptr, nullptr) | sqlite3_close(db));
  struct Row { const char* what; std::string path; std::int32_t open_code, call_code; };
  const Row rows[] = {
      {"garbage", tmp_ / "g", kErrorBadDatabase, kErrorBadDatabase},
      {"damaged pages", damaged(tmp_ / "p"), kErrorSuccess, kErrorBadDatabase},
      {"another program's database", tmp_ / "o", kErrorBadDatabase, kErrorBadDatabase},
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
  auto env = [&](std::initializer_list<const char*> values) {  // null unsets
    for (int i = 0; const char* v : values) v ? ::setenv(names[i++], v, 1) : ::unsetenv(names[i++]);
  };
  env({"/r/reg.db", "/x", "/h"});
  EXPECT_EQ("/r/reg.db", DefaultRegistryLocation());
  env({nullptr, "", "/h"});
  EXPECT_EQ("/h/.config/tarvo2/registry.sqlite3", DefaultRegistryLocation());
  env({"", (tmp_ / "config").c_str(), "/nonexistent"});  // an empty override counts as none
  SetRegistryLocation("");
  ASSERT_EQ(0, Set(GetRegistryStore().get(), kHKeyCurrentUser, "v", "disk"));
  EXPECT_EQ(std::filesystem::perms(0700), std::filesystem::status(tmp_ / "config/tarvo2").permissions());
  SetRegistryLocation(":memory:");
  EXPECT_EQ("<2>", Get(GetRegistryStore().get(), kHKeyCurrentUser, "v"));
  SetRegistryLocation("");
  for (int i = 0; i < 3; ++i) saved[i] ? ::setenv(names[i], saved[i]->c_str(), 1) : ::unsetenv(names[i]);
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

}  // namespace
}  // namespace tarvo2
