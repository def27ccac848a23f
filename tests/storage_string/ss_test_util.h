// Helpers shared by the storage string tests.
#ifndef TARVO2_TESTS_STORAGE_STRING_SS_TEST_UTIL_H_
#define TARVO2_TESTS_STORAGE_STRING_SS_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "tarvo2/services.h"
#include "tarvo2/testing/file_system.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/storage_string.h"
#include "test_util.h"

namespace tarvo2::sstest {

// The source chain of an error raised by the library and passed through the
// given storage string procedures, innermost first.
inline String Chain(std::initializer_list<const char16_t*> labels) {
  String s = kLibraryName;
  for (const char16_t* l : labels) s += String(u"\r\nKivStorageString.") + l;
  return s;
}

inline std::int32_t Lib(LibraryErrorCode code) { return LibraryErrorNumber(code); }

// The description a client sees for `number`.
inline String Describe(std::int32_t number) {
  String m = LibraryErrorMessage(number);
  return m.empty() ? StandardDescription(number) : m;
}

// The context of the running test: every test of these suites gets a new
// one (Fixture), and the stores it makes with NewStore() work in it.
inline std::shared_ptr<Services>& Context() {
  static std::shared_ptr<Services> context;
  return context;
}

// The fixture of every storage string suite, each under its own name.
class Fixture : public ::testing::Test {
 protected:
  void SetUp() override { Context() = Services::New(); }
  void TearDown() override { Context().reset(); }
};

inline Ref<KivStorageString> NewStore() { return KivStorageString::Create(Context()); }

// Turns the test context's raise switch off for one scope.
struct RaiseSwitchOff {
  RaiseSwitchOff() { Context()->set_raise_errors(false); }
  ~RaiseSwitchOff() { Context()->set_raise_errors(true); }
};

// Gives the test context a fresh in-memory file system.
struct MemFs {
  MemFs() { Context()->set_file_system(fs); }
  FileSystem* operator->() const { return fs.get(); }
  std::shared_ptr<FileSystem> fs = NewMemFileSystem();
};

inline std::vector<String> Strings(const SafeArray& a) {
  std::vector<String> out;
  for (const Variant& v : a.Items()) out.push_back(v.AsString());
  return out;
}

inline SafeArray Longs(std::vector<Variant> items) { return SafeArray::Of(VarType::kLong, std::move(items)); }

// A store whose only page holds `text`, with the cursor at `cursor`.
inline Ref<KivStorageString> Page(const String& text, std::int32_t cursor = 1) {
  auto ss = NewStore();
  ss->put_Value(text);
  ss->put_Cursor(cursor);
  return ss;
}

// "page text|cursor|last extraction", to compare a store's state at once.
inline String State(KivStorageString& ss) {
  return ss.PageText() + u"|" + FromUtf8(std::to_string(ss.get_Cursor())) + u"|" + ss.get_LastExtraction();
}

}  // namespace tarvo2::sstest

// Asserts the number, description and storage-string source chain of an
// error raised by `stmt`.
#define EXPECT_SS_ERROR(stmt, number, ...) \
  EXPECT_ERROR(stmt, (number), ::tarvo2::sstest::Describe(number), ::tarvo2::sstest::Chain({__VA_ARGS__}))

#endif  // TARVO2_TESTS_STORAGE_STRING_SS_TEST_UTIL_H_
