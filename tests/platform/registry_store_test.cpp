// Behaviour of the registry store's nine calls, on in-memory registries.
#include "tarvo2/registry_store.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace tarvo2 {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes B(std::string_view s) { return Bytes(s.begin(), s.end()); }

class RegistryStoreTest : public ::testing::Test {
 protected:
  RegKey Create(RegKey parent, const char* path,
                std::uint32_t access = kKeyAllAccess) {
    RegKey key = 0;
    EXPECT_EQ(kErrorSuccess, store_->CreateKey(parent, path, access, &key,
                                               nullptr)) << path;
    return key;
  }
  std::int32_t Set(RegKey key, const char* name, const Bytes& data,
                   std::uint32_t type = kRegBinary) {
    return store_->SetValue(key, name, type, data.data(),
                            static_cast<std::uint32_t>(data.size()));
  }
  // The value's bytes (empty on failure, with *code set).
  Bytes Get(RegKey key, const char* name, std::int32_t* code = nullptr,
            std::uint32_t* type = nullptr) {
    std::uint32_t size = 0;
    std::int32_t c = store_->QueryValue(key, name, type, nullptr, &size);
    Bytes out(c == 0 ? size : 0);
    if (c == 0) c = store_->QueryValue(key, name, type, out.data(), &size);
    if (code) *code = c;
    return out;
  }
  std::vector<std::string> SubKeys(RegKey key) {
    std::vector<std::string> names;
    char buf[300];
    for (std::uint32_t i = 0; store_->EnumKey(key, i, buf, sizeof buf) == 0; ++i)
      names.push_back(buf);
    return names;
  }
  std::vector<std::string> ValueNames(RegKey key) {
    std::vector<std::string> names;
    char buf[300];
    std::uint32_t len = sizeof buf;
    for (std::uint32_t i = 0; store_->EnumValue(key, i, buf, &len, nullptr,
                                                nullptr, nullptr) == 0;
         ++i, len = sizeof buf)
      names.push_back(buf);
    return names;
  }

  std::shared_ptr<RegistryStore> store_ = OpenSqliteRegistryStore(":memory:");
};

TEST_F(RegistryStoreTest, RootsAreWritableAndSurviveClose) {
  for (RegKey root :
       {kHKeyClassesRoot, kHKeyCurrentUser, kHKeyLocalMachine, kHKeyUsers}) {
    SCOPED_TRACE(root);
    EXPECT_EQ(kErrorSuccess, Set(root, "v", B("x")));
    EXPECT_EQ(kErrorSuccess, store_->CloseKey(root));
    EXPECT_EQ(B("x"), Get(root, "v"));
    EXPECT_EQ(kErrorAccessDenied, store_->DeleteKey(root, ""));
  }
  // The roots are separate trees.
  Create(kHKeyUsers, "OnlyHere");
  EXPECT_EQ(std::vector<std::string>{}, SubKeys(kHKeyLocalMachine));
}

TEST_F(RegistryStoreTest, PathRules) {
  const std::string long_name(kMaxKeyNameLength, 'n');
  std::string deep, too_deep;
  for (std::size_t i = 0; i < kMaxKeyDepth; ++i) deep += "d\\";
  too_deep = deep + "d";
  struct Row {
    std::string path;
    std::int32_t code;
    std::string same_as;  // a path naming the same key, checked on success
  } rows[] = {
      {"a\\b", kErrorSuccess, "A\\B"},
      {"a\\b\\", kErrorSuccess, "a\\b"},
      {"a\\\\\\b", kErrorSuccess, "a\\b"},
      {"\\a", kErrorBadPathname, ""},
      {"a/b", kErrorSuccess, "a/b\\"},
      {long_name, kErrorSuccess, long_name + "\\"},
      {long_name + "n", kErrorInvalidParameter, ""},
      {"x\\" + long_name + "n\\y", kErrorInvalidParameter, ""},
      {deep, kErrorSuccess, deep.substr(0, deep.size() - 1)},
      {too_deep, kErrorInvalidParameter, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path.substr(0, 40));
    RegKey key = 77, other = 0;
    ASSERT_EQ(row.code, store_->CreateKey(kHKeyCurrentUser, row.path.c_str(),
                                          kKeyAllAccess, &key, nullptr));
    if (row.code != kErrorSuccess) {
      EXPECT_EQ(0u, key);
      EXPECT_EQ(row.code, store_->OpenKey(kHKeyCurrentUser, row.path.c_str(),
                                          kKeyRead, &key));
      continue;
    }
    ASSERT_EQ(0, Set(key, "marker", B(row.path)));
    ASSERT_EQ(0, store_->OpenKey(kHKeyCurrentUser, row.same_as.c_str(), kKeyRead, &other));
    EXPECT_EQ(B(row.path), Get(other, "marker"));
  }
  // "/" is part of a name, not a separator; bad paths created nothing.
  EXPECT_EQ((std::vector<std::string>{"a", "a/b", "d", long_name}),
            SubKeys(kHKeyCurrentUser));
  // The depth limit counts from the root, not from the handle.
  RegKey bottom = Create(kHKeyCurrentUser, deep.c_str());
  RegKey key = 0;
  EXPECT_EQ(kErrorInvalidParameter,
            store_->CreateKey(bottom, "e", kKeyAllAccess, &key, nullptr));
}

TEST_F(RegistryStoreTest, NamesIgnoreLetterCaseOfTheCodePage) {
  struct Row {
    const char* first;
    const char* second;
    bool same;
  } rows[] = {
      {"Software", "SOFTWARE", true},   {"\xC4pfel", "\xE4PFEL", true},
      {"\x8A", "\x9A", true},           {"\x8C", "\x9C", true},
      {"\x8E", "\x9E", true},           {"\x9F", "\xFF", true},
      {"\xDE", "\xFE", true},           {"\xDF", "SS", false},
      {"\xD7", "\xF7", false},          {"a", "\xE0", false},
      {"\xB5", "\x9C", false},
  };
  int n = 0;
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.first) + " / " + row.second);
    RegKey parent = Create(kHKeyCurrentUser, ("t\\" + std::to_string(n++)).c_str());
    RegKey key = Create(parent, row.first);
    std::uint32_t disposition = 0;
    RegKey again = 0;
    ASSERT_EQ(0, store_->CreateKey(parent, row.second, kKeyAllAccess, &again, &disposition));
    EXPECT_EQ(row.same ? kRegOpenedExistingKey : kRegCreatedNewKey, disposition);
    // The key keeps the spelling it was created with.
    if (row.same) EXPECT_EQ(std::vector<std::string>{row.first}, SubKeys(parent));
    else EXPECT_EQ(2u, SubKeys(parent).size());
    // Values: the second spelling replaces, and the first one stays.
    ASSERT_EQ(kErrorSuccess, Set(key, row.first, B("1")));
    ASSERT_EQ(kErrorSuccess, Set(key, row.second, B("2")));
    EXPECT_EQ(B(row.same ? "2" : "1"), Get(key, row.first));
    std::vector<std::string> names{row.first};
    if (!row.same) names.push_back(row.second);
    EXPECT_EQ(names, ValueNames(key));
  }
}

TEST_F(RegistryStoreTest, CreateAndOpenReportWhatTheyDid) {
  RegKey key = 0, same = 0;
  std::uint32_t disposition = 0;
  ASSERT_EQ(0, store_->CreateKey(kHKeyCurrentUser, "p\\q\\r", kKeyAllAccess, &key, &disposition));
  EXPECT_EQ(kRegCreatedNewKey, disposition);
  ASSERT_EQ(0, store_->CreateKey(kHKeyCurrentUser, "P\\Q\\R", kKeyAllAccess, &same, &disposition));
  EXPECT_EQ(kRegOpenedExistingKey, disposition);
  EXPECT_NE(key, same);
  for (const char* self : {static_cast<const char*>(nullptr), ""}) {
    RegKey alias = 0, opened = 0;
    ASSERT_EQ(0, store_->CreateKey(key, self, kKeyAllAccess, &alias, &disposition));
    EXPECT_EQ(kRegOpenedExistingKey, disposition);
    ASSERT_EQ(0, store_->OpenKey(key, self, kKeyRead, &opened));
    ASSERT_EQ(0, Set(alias, "via", B("alias")));
    EXPECT_EQ(B("alias"), Get(opened, "via"));
  }
  RegKey missing = 1234;
  EXPECT_EQ(kErrorFileNotFound,
            store_->OpenKey(kHKeyCurrentUser, "p\\nothing", kKeyRead, &missing));
  EXPECT_EQ(0u, missing);
  EXPECT_EQ(kErrorInvalidParameter,
            store_->OpenKey(kHKeyCurrentUser, "p", kKeyRead, nullptr));
}

// Each of the nine calls, on one handle.
std::vector<std::pair<const char*, std::function<std::int32_t(RegKey)>>>
AllCalls(RegistryStore* s) {
  static char name[64];
  static std::uint8_t data[64];
  static std::uint32_t n, t, d;
  static RegKey out;
  return {
      {"CreateKey", [=](RegKey k) { return s->CreateKey(k, "c", kKeyAllAccess, &out, nullptr); }},
      {"OpenKey", [=](RegKey k) { return s->OpenKey(k, "", kKeyRead, &out); }},
      {"QueryValue", [=](RegKey k) { return s->QueryValue(k, "v", &t, nullptr, &d); }},
      {"SetValue", [=](RegKey k) { return s->SetValue(k, "v", kRegBinary, data, 1); }},
      {"DeleteValue", [=](RegKey k) { return s->DeleteValue(k, "v"); }},
      {"DeleteKey", [=](RegKey k) { return s->DeleteKey(k, ""); }},
      {"EnumValue", [=](RegKey k) { n = 64, d = 64; return s->EnumValue(k, 0, name, &n, &t, data, &d); }},
      {"EnumKey", [=](RegKey k) { return s->EnumKey(k, 0, name, 64); }},
      {"CloseKey", [=](RegKey k) { return s->CloseKey(k); }},
  };
}

TEST_F(RegistryStoreTest, BadAndDeletedHandles) {
  RegKey closed = Create(kHKeyCurrentUser, "closed");
  ASSERT_EQ(0, store_->CloseKey(closed));
  for (const auto& [call, run] : AllCalls(store_.get())) {
    for (RegKey bad : {RegKey{0}, closed, closed + 1000, RegKey{0x80000004}}) {
      SCOPED_TRACE(std::string(call) + " on " + std::to_string(bad));
      EXPECT_EQ(kErrorInvalidHandle, run(bad));
    }
    // A key deleted through another handle: every call but close says so.
    RegKey doomed = Create(kHKeyCurrentUser, "doomed");
    Set(doomed, "v", B("x"));
    ASSERT_EQ(kErrorSuccess, store_->DeleteKey(kHKeyCurrentUser, "doomed"));
    Create(kHKeyCurrentUser, "doomed");  // a new key of the same name
    SCOPED_TRACE(call);
    EXPECT_EQ(std::string(call) == "CloseKey" ? kErrorSuccess : kErrorKeyDeleted,
              run(doomed));
    store_->DeleteKey(kHKeyCurrentUser, "doomed");
  }
}

TEST_F(RegistryStoreTest, ReadOnlyHandlesCannotChangeValues) {
  Set(Create(kHKeyCurrentUser, "ro"), "kept", B("1"));
  RegKey ro = 0, child = 0, writer = 0;
  ASSERT_EQ(0, store_->OpenKey(kHKeyCurrentUser, "ro", kKeyQueryValue, &ro));
  EXPECT_EQ(kErrorAccessDenied, Set(ro, "new", B("2")));
  EXPECT_EQ(kErrorAccessDenied, store_->DeleteValue(ro, "kept"));
  EXPECT_EQ(std::vector<std::string>{"kept"}, ValueNames(ro));
  EXPECT_EQ(0, store_->CreateKey(ro, "child", kKeyAllAccess, &child, nullptr));
  EXPECT_EQ(0, Set(child, "new", B("2")));
  ASSERT_EQ(0, store_->OpenKey(kHKeyCurrentUser, "ro", kKeyWrite, &writer));
  EXPECT_EQ(kErrorSuccess, store_->DeleteValue(writer, "kept"));
}

TEST_F(RegistryStoreTest, ValuesKeepExactBytesAndType) {
  RegKey key = Create(kHKeyCurrentUser, "types");
  struct Row {
    std::uint32_t type;
    Bytes stored;
    Bytes read;
  } rows[] = {
      {kRegNone, {}, {}},
      {kRegBinary, {0, 1, 0, 255}, {0, 1, 0, 255}},
      {kRegDword, {0xFF, 0xFF, 0xFF, 0xFF}, {0xFF, 0xFF, 0xFF, 0xFF}},
      {kRegSz, B(std::string("abc\0", 4)), B(std::string("abc\0", 4))},
      {kRegSz, B("abc"), B(std::string("abc\0", 4))},  // NUL added
      {kRegSz, {}, {0}},
      {kRegExpandSz, B("%x%"), B(std::string("%x%\0", 4))},
      {kRegMultiSz, B(std::string("a\0b\0", 4)), B(std::string("a\0b\0", 4))},
      {kRegQword, Bytes(8, 7), Bytes(8, 7)},
      {0xDEADBEEF, B("any"), B("any")},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.type);
    ASSERT_EQ(0, Set(key, "v", row.stored, row.type));
    std::uint32_t type = 0;
    std::int32_t code = -1;
    EXPECT_EQ(row.read, Get(key, "v", &code, &type));
    EXPECT_TRUE(code == 0 && type == row.type) << code << " " << type;
  }
  EXPECT_EQ(kErrorInvalidParameter, store_->SetValue(key, "v", kRegBinary, nullptr, 3));
  std::string long_name(kMaxValueNameLength + 1, 'v');
  EXPECT_EQ(kErrorInvalidParameter, Set(key, long_name.c_str(), B("x")));
  long_name.pop_back();
  EXPECT_EQ(kErrorSuccess, Set(key, long_name.c_str(), B("x")));
}

TEST_F(RegistryStoreTest, QueryValueBuffers) {
  RegKey key = Create(kHKeyCurrentUser, "q");
  ASSERT_EQ(kErrorSuccess, Set(key, "v", B("12345"), kRegBinary));
  std::uint32_t type = 0, size = 0;
  EXPECT_EQ(0, store_->QueryValue(key, "V", &type, nullptr, &size));
  EXPECT_TRUE(type == kRegBinary && size == 5u) << type << " " << size;
  Bytes buf(9, 0xAA);
  size = 4;  // too small: the size needed, the buffer untouched
  EXPECT_EQ(kErrorMoreData, store_->QueryValue(key, "v", &type, buf.data(), &size));
  EXPECT_TRUE(size == 5u && buf == Bytes(9, 0xAA)) << size;
  size = 9;
  EXPECT_EQ(0, store_->QueryValue(key, "v", &type, buf.data(), &size));
  EXPECT_EQ(5u, size);
  EXPECT_EQ(kErrorInvalidParameter, store_->QueryValue(key, "v", &type, buf.data(), nullptr));
  type = 99;
  EXPECT_EQ(kErrorFileNotFound, store_->QueryValue(key, "none", &type, nullptr, &size));
  EXPECT_EQ(kRegNone, type);
  // Null and empty names are the same default value.
  std::int32_t code = 0;
  Get(key, nullptr, &code);
  EXPECT_EQ(kErrorFileNotFound, code);
  ASSERT_EQ(kErrorSuccess, Set(key, nullptr, B("default")));
  EXPECT_EQ(B("default"), Get(key, ""));
  ASSERT_EQ(kErrorSuccess, store_->DeleteValue(key, ""));
  EXPECT_EQ(kErrorFileNotFound, store_->DeleteValue(key, nullptr));
  EXPECT_EQ(kErrorFileNotFound, store_->DeleteValue(key, "none"));
}

TEST_F(RegistryStoreTest, DeleteKeyRules) {
  RegKey parent = Create(kHKeyCurrentUser, "del\\parent");
  Set(parent, "v", B("1"));
  Create(parent, "child");
  EXPECT_EQ(kErrorAccessDenied, store_->DeleteKey(kHKeyCurrentUser, "del\\parent"));
  EXPECT_EQ(kErrorAccessDenied, store_->DeleteKey(parent, ""));
  EXPECT_EQ(B("1"), Get(parent, "v"));
  EXPECT_EQ(std::vector<std::string>{"child"}, SubKeys(parent));
  EXPECT_EQ(kErrorInvalidParameter, store_->DeleteKey(parent, nullptr));
  EXPECT_EQ(kErrorFileNotFound, store_->DeleteKey(parent, "nothing"));
  EXPECT_EQ(kErrorBadPathname, store_->DeleteKey(parent, "\\child"));
  EXPECT_EQ(kErrorSuccess, store_->DeleteKey(parent, "CHILD\\"));
  EXPECT_EQ(kErrorSuccess, store_->DeleteKey(parent, ""));
  EXPECT_EQ(kErrorKeyDeleted, Set(parent, "v", B("2")));
  // The values went with the key.
  RegKey reborn = Create(kHKeyCurrentUser, "del\\parent");
  EXPECT_EQ(std::vector<std::string>{}, ValueNames(reborn));
}

TEST_F(RegistryStoreTest, EnumValueOrderAndBuffers) {
  RegKey key = Create(kHKeyCurrentUser, "ev");
  for (const char* name : {"zeta", "alpha", "", "Mid"}) Set(key, name, B(name));
  Set(key, "ALPHA", B("replaced"));  // keeps its place and spelling
  Set(key, "gone", B("x"));
  store_->DeleteValue(key, "gone");
  Set(key, "zeta", B("again"));
  EXPECT_EQ((std::vector<std::string>{"zeta", "alpha", "", "Mid"}),
            ValueNames(key));

  // Value 1 is "alpha" = "replaced": name 5 + 1 characters, data 8 bytes.
  struct Row {
    std::uint32_t index, len, size;
    std::int32_t code;
    std::string name;  // "xxx" when not written
    std::uint32_t len_after, size_after;
    Bytes data;        // what the data buffer starts with afterwards
  } rows[] = {
      {1, 6, 8, kErrorSuccess, "alpha", 5, 8, B("replaced")},
      {1, 3, 16, kErrorMoreData, "al", 3, 8, B("replaced")},  // name cut
      {1, 8, 2, kErrorMoreData, "xxx", 8, 8, B("\xAA")},       // data too big
      {4, 8, 16, kErrorNoMoreItems, "xxx", 8, 16, B("\xAA")},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name + " " + std::to_string(row.len));
    char name[8] = "xxx";
    Bytes data(16, 0xAA);
    std::uint32_t len = row.len, size = row.size;
    EXPECT_EQ(row.code, store_->EnumValue(key, row.index, name, &len, nullptr, data.data(), &size));
    EXPECT_EQ(row.name, name);
    EXPECT_EQ(row.len_after, len);
    EXPECT_EQ(row.size_after, size);
    EXPECT_EQ(row.data, Bytes(data.begin(), data.begin() + row.data.size()));
  }
  char name[8];
  EXPECT_EQ(kErrorInvalidParameter,
            store_->EnumValue(key, 0, name, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(RegistryStoreTest, EnumKeySortsWithoutCaseAndChecksBuffer) {
  RegKey key = Create(kHKeyCurrentUser, "ek");
  for (const char* name : {"b", "_x", "C", "A", "\xE4", "\xC1"}) Create(key, name);
  // Letter case is folded upwards: "_" sorts after the letters.
  EXPECT_EQ((std::vector<std::string>{"A", "b", "C", "_x", "\xC1", "\xE4"}),
            SubKeys(key));
  char name[4] = "zz";
  EXPECT_EQ(kErrorMoreData, store_->EnumKey(key, 3, name, 2));
  EXPECT_STREQ("zz", name);
  EXPECT_EQ(kErrorSuccess, store_->EnumKey(key, 3, name, 3));
  EXPECT_STREQ("_x", name);
  EXPECT_EQ(kErrorNoMoreItems, store_->EnumKey(key, 6, name, 4));
}

TEST_F(RegistryStoreTest, MegabyteValue) {
  RegKey key = Create(kHKeyCurrentUser, "big");
  Bytes big(1 << 20);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = std::uint8_t(i * 31);
  ASSERT_EQ(kErrorSuccess, Set(key, "blob", big));
  EXPECT_EQ(big, Get(key, "blob"));
}

}  // namespace
}  // namespace tarvo2
