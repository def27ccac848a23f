// KivINIFileHandler's values and arrays, sections and listings, deletes,
// and bad input: odd files, refused writes, folders and read-only files.
#include "tarvo2/ini_file.h"

#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "platform_temp_dir.h"

#include "tarvo2/file_system.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/profile_store.h"
#include "tarvo2/random.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

constexpr char kFile[] = "/d/t.ini";
constexpr int32_t kZeroLength = LibraryErrorNumber(ErrZeroLengthFieldName);
constexpr int32_t kIllegal = LibraryErrorNumber(ErrIllegalCharacters);

SafeArray Strings(std::vector<String> items) { return SafeArray::OfStrings(std::move(items)); }

class IniFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetFileSystem(fs_);
    SetProfileStore(nullptr);
    SetRandomService(NewFixedRandomService(7));
    ASSERT_TRUE(fs_->CreateDir("/d").ok());
    ini_->put_Path(u"/d/t.ini");
  }
  void TearDown() override {
    SetRaiseErrors(true);
    SetRandomService(nullptr);
    SetFileSystem(nullptr);
  }
  void Put(const std::string& content) { ASSERT_TRUE(fs_->WriteFile(kFile, content, false).ok()); }
  std::string Content() {
    std::string s = "<none>";
    fs_->ReadFile(kFile, &s);
    return s;
  }
  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  Ref<KivINIFileHandler> ini_ = KivINIFileHandler::Create();
};

TEST_F(IniFileTest, ValuesAndArraysRoundTrip) {
  auto longs = SafeArray::Of(VarType::kLong, {1, 2, 3});
  auto doubles = SafeArray::Of(VarType::kDouble, {1.5, 2.0});
  struct Row { const char* name; Variant value; String delimiter; std::string line; Variant back; };
  const Row rows[] = {
      {"text", u"Red", u"\t", "Red", u"Red"},
      {"long", 12, u"\t", "12", 12},
      {"double", 12.5, u"\t", "12.5", 12.5},
      {"boolean", true, u"\t", "True", u"True"},
      {"empty", Variant(), u"\t", "", u""},
      {"dotted text", u"1.2.3", u"\t", "1.2.3", u"1.2.3"},
      {"strings", Strings({u"a", u"b"}), u"\t", "a\tb", Strings({u"a", u"b"})},
      {"comma", Strings({u"a", u"b"}), u",", "a,b", Strings({u"a", u"b"})},
      {"longs", longs, u"\t", "1\t2\t3", longs},
      {"doubles", doubles, u"\t", "1.5\t2", SafeArray::Of(VarType::kDouble, {1.5, 2.0})},
      {"mixed", SafeArray::OfVariants({1, u"x"}), u";", "1;x", Strings({u"1", u"x"})},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Put("");
    EXPECT_FALSE(ini_->SetValue(u"  k ", row.value, row.delimiter));
    EXPECT_EQ(Content(), "[DEFAULT]\nk=" + row.line + "\n");
    EXPECT_EQ(ini_->GetValue(u"k", row.delimiter), row.back);
    EXPECT_EQ(ini_->get_Value(), row.back);
    // Value (Let) writes under the name and delimiter remembered last.
    ini_->put_Value(u"other");
    EXPECT_EQ(Content(), "[DEFAULT]\nk=other\n");
    ini_->put_Value(row.value);
    EXPECT_EQ(Content(), "[DEFAULT]\nk=" + row.line + "\n");
    EXPECT_EQ(ini_->get_Value(), row.back);
  }
}

TEST_F(IniFileTest, DetectionOptionsAndDefaults) {
  Put("[DEFAULT]\nnums=1\t2\nblank=\n");
  struct Row { bool array, number; Variant want; };
  const Row rows[] = {
      {true, true, SafeArray::Of(VarType::kLong, {1, 2})},
      {true, false, Strings({u"1", u"2"})},
      {false, true, u"1\t2"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(::testing::Message() << row.array << row.number);
    EXPECT_EQ(ini_->GetValue(u"nums", u"\t", row.array, row.number), row.want);
  }
  EXPECT_EQ(ini_->GetValue(u"missing"), Variant(u""));
  EXPECT_EQ(ini_->GetValue(u"missing", u"\t", true, true, 42), Variant(42));
  EXPECT_EQ(ini_->get_Value(), Variant(42));
  EXPECT_EQ(ini_->GetValue(u"blank", u"\t", true, true, 42), Variant(u""));
  EXPECT_EQ(ini_->GetValue(u" nums ", u",", false, true), Variant(u"1\t2"));
  // The marker of a missing key is the one text that reads as absent.
  auto random = NewFixedRandomService(7);
  random->Randomize();
  Variant marker = u"KivDefaultReturn_" + ToString(Variant(random->NextSingle()));
  ini_->SetValue(u"m", marker);
  EXPECT_EQ(ini_->GetValue(u"m", u"\t", true, true, u"absent"), Variant(u"absent"));
  SetRandomService(NewClockRandomService());
  EXPECT_EQ(ini_->GetValue(u"m"), marker);
}

TEST_F(IniFileTest, ValueErrorsCarryTheirSourceChain) {
  EXPECT_ERROR(ini_->put_Value(5), kZeroLength, u"Zero Length Feild Names Are Not Allowed",
               u"Tarvo2\r\nKivINIFileHandler.SetValue\r\nKivINIFileHandler.Import (Let)");
  EXPECT_ERROR(ini_->SetValue(u"  ", 5), kZeroLength, u"Zero Length Feild Names Are Not Allowed",
               u"Tarvo2\r\nKivINIFileHandler.SetValue");
  EXPECT_ERROR(ini_->SetValue(u"k", Variant::Null()), 94, u"Invalid use of Null",
               u"Tarvo2\r\nKivINIFileHandler.SetValue");
  Put("[DEFAULT]\nbig=99999999999\n");
  EXPECT_ERROR_NUMBER(ini_->GetValue(u"big"), 6);
  EXPECT_EQ(ini_->get_Value(), Variant());
  EXPECT_EQ(Content(), "[DEFAULT]\nbig=99999999999\n");
  // Switched off, the empty name goes to the store, which refuses it.
  SetRaiseErrors(false);
  EXPECT_FALSE(ini_->SetValue(u" ", 5));
  EXPECT_EQ(ini_->LastProfileError(), kProfileInvalidParameter);
  EXPECT_EQ(Content(), "[DEFAULT]\nbig=99999999999\n");
}

TEST_F(IniFileTest, SectionsAreTrimmedAndChecked) {
  struct Row { String given; String want; bool illegal; };
  const Row rows[] = {
      {u"  Colours ", u"Colours", false}, {u"", u"DEFAULT", false}, {u"   ", u"DEFAULT", false},
      {u"\tTab", u"\tTab", false},        {u"a[b", u"a[b", true},   {u" ]x ", u"]x", true},
  };
  for (bool raise : {true, false}) {
    SetRaiseErrors(raise);
    for (const Row& row : rows) {
      SCOPED_TRACE(ToUtf8(row.given) + (raise ? " raising" : " quiet"));
      ini_->put_Section(u"before");
      if (row.illegal && raise) {
        EXPECT_ERROR(ini_->put_Section(row.given), kIllegal, u"Illegal Character(s) Passed",
                     u"Tarvo2\r\nKivINIFileHandler.Section (Let)");
        EXPECT_EQ(ini_->get_Section(), u"before");
      } else {
        ini_->put_Section(row.given);
        EXPECT_EQ(ini_->get_Section(), row.want);
      }
    }
  }
}

TEST_F(IniFileTest, ListsSectionsAndFieldsInFileOrder) {
  EXPECT_EQ(ini_->GetSectionNames(), Strings({}));
  EXPECT_EQ(ini_->GetFieldNames(), Strings({}));
  Put("[B]\nz=1\n;c=2\nno equals\n[a]\n[b]\nZ=3\ny=4\n");
  EXPECT_EQ(ini_->GetSectionNames(), Strings({u"B", u"a", u"b"}));
  ini_->put_Section(u"b");  // the first section of a name, any case
  EXPECT_EQ(ini_->GetFieldNames(), Strings({u"z"}));
  ini_->put_Section(u"a");
  EXPECT_EQ(ini_->GetFieldNames(), Strings({}));
  ini_->SetValue(u"new", 1);
  EXPECT_EQ(ini_->GetFieldNames(), Strings({u"new"}));
}

TEST_F(IniFileTest, DeletesFieldsSectionsAndTheFile) {
  Put("[S]\n;note\nk=1\nj=2\n[T]\nx=1\n");
  ini_->put_Section(u"S");
  ini_->SetValue(u"k", 5, u",");
  ini_->DeleteField(u"j");
  ini_->put_Value(6);  // still remembered: "k" with ","
  ini_->DeleteField(u"K");
  EXPECT_EQ(Content(), "[S]\n;note\n[T]\nx=1\n");
  EXPECT_ERROR_NUMBER(ini_->put_Value(7), kZeroLength);
  ini_->SetValue(u"k", 5, u",");
  ini_->DeleteSection();
  EXPECT_EQ(ini_->get_Section(), u"DEFAULT");
  EXPECT_EQ(Content(), ";note\n[T]\nx=1\n");
  EXPECT_ERROR_NUMBER(ini_->put_Value(7), kZeroLength);
  ini_->DeleteSection();  // a missing section changes nothing
  ini_->DeleteField(u"nothing");
  EXPECT_EQ(Content(), ";note\n[T]\nx=1\n");

  ini_->DeleteFile();
  EXPECT_FALSE(fs_->Exists(kFile));
  ini_->DeleteFile();  // no file: discarded
  ini_->put_Path(u"/d/other.ini");
  ini_->SetValue(u"k", 1);
  EXPECT_EQ(ini_->get_Path(), u"/d/t.ini");
  EXPECT_EQ(Content(), "[DEFAULT]\nk=1\n");
  // A folder, a wildcard, a missing folder: nothing is removed, nothing raised.
  for (const char16_t* path : {u"/d", u"/d/*.ini", u"/none/t.ini"}) {
    auto other = KivINIFileHandler::Create();
    other->put_Path(path);
    other->DeleteFile();
  }
  EXPECT_TRUE(fs_->IsDirectory("/d"));
  EXPECT_EQ(Content(), "[DEFAULT]\nk=1\n");
}

// Bad input.

TEST_F(IniFileTest, OddFilesReadAndEditInPlace) {
  const std::string mb(1 << 20, 'm');
  struct Row { const char* name; std::string before; Variant k; String added; std::string after; };
  const Row rows[] = {
      {"bytes that are not UTF-8", "[S]\nk=\xff\x81\x90\n", u"\u00ff\u0081\u0090", u"\u00e9",
       "[S]\nk=\xff\x81\x90\nj=\xe9\n"},
      {"no newline at the end", "[S]\nk=1", 1, u"2", "[S]\nk=1\nj=2\n"},
      {"CR LF", "[S]\r\nk=1\r\n", 1, u"2", "[S]\r\nk=1\r\nj=2\r\n"},
      {"byte-order mark", "\xEF\xBB\xBF[S]\nk=\xc3\xa9\n", u"\u00e9", u"\u00fc",
       "\xEF\xBB\xBF[S]\nk=\xc3\xa9\nj=\xc3\xbc\n"},
      {"quotes and blanks", "[S]\n k = ' a ' \n", u" a ", u"  b  ", "[S]\n k = ' a ' \nj=  b  \n"},
      {"1 MB line", "[S]\nk=" + mb + "\n", FromAnsi(mb), u"2", "[S]\nk=" + mb + "\nj=2\n"},
      {"not in the code page", "[S]\n", u"", u"\u65e5x", "[S]\nj=?x\n"},
  };
  ini_->put_Section(u"S");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Put(row.before);
    EXPECT_EQ(ini_->GetValue(u"k", u"\t", true, true, u""), row.k);
    ini_->SetValue(u"j", row.added);
    EXPECT_EQ(Content(), row.after);
  }
  ini_->SetValue(u"big", FromAnsi(mb));
  EXPECT_EQ(ini_->GetValue(u"big"), Variant(FromAnsi(mb)));
}

TEST_F(IniFileTest, RefusedWritesLeaveTheFileAlone) {
  ini_->put_Section(u"S");
  Put("[S]\nk=1\n");
  for (const char16_t* value : {u"a\r\nb", u"a\nb", u"a\rb"}) {
    ini_->SetValue(u"k", value);
    EXPECT_EQ(ini_->LastProfileError(), kProfileInvalidParameter);
  }
  for (const char16_t* name : {u"a=b", u";c", u"[x"}) ini_->SetValue(name, 1);
  EXPECT_EQ(Content(), "[S]\nk=1\n");
  // Deleted behind the object's back: reads find nothing, a write starts anew.
  ASSERT_TRUE(fs_->DeleteFile("/d/t.ini").ok());
  EXPECT_EQ(ini_->GetValue(u"k", u"\t", true, true, u"none"), Variant(u"none"));
  EXPECT_EQ(ini_->GetFieldNames(), SafeArray::OfStrings({}));
  ini_->SetValue(u"j", 2);
  EXPECT_EQ(Content(), "[S]\nj=2\n");
}

TEST(IniRealFileTest, FoldersReadOnlyFilesAndMissingFolders) {
  SetFileSystem(nullptr);
  SetProfileStore(nullptr);
  testing::PlatformTempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const std::string file = dir / "ro.ini";
  std::ofstream(file) << "[S]\nk=1\n";
  ASSERT_EQ(::chmod(file.c_str(), 0444), 0);
  struct Row { std::string path; uint32_t error; };
  const Row rows[] = {
      {dir.path(), kProfileAccessDenied},
      {file, kProfileAccessDenied},
      {dir / "none/x.ini", kProfilePathNotFound},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    auto ini = KivINIFileHandler::Create();
    ini->put_Path(FromUtf8(row.path));
    ini->put_Section(u"S");
    EXPECT_FALSE(ini->SetValue(u"k", 2));
    EXPECT_EQ(ini->LastProfileError(), row.error);
    ini->DeleteSection();
    ini->DeleteFile();
  }
  std::stringstream kept;
  kept << std::ifstream(file).rdbuf();
  EXPECT_EQ(kept.str(), "[S]\nk=1\n");
  EXPECT_FALSE(GetFileSystem()->Exists(dir / "none"));

  // A writable file on disk: written, read by a second object, deleted.
  auto a = KivINIFileHandler::Create(), b = KivINIFileHandler::Create();
  a->put_Path(FromUtf8(dir / "rw.ini"));
  b->put_Path(a->get_Path());
  a->SetValue(u"k", SafeArray::Of(VarType::kDouble, {0.5, 2.25}));
  EXPECT_EQ(b->GetValue(u"k"), Variant(SafeArray::Of(VarType::kDouble, {0.5, 2.25})));
  b->DeleteFile();
  EXPECT_FALSE(GetFileSystem()->Exists(dir / "rw.ini"));
  EXPECT_EQ(a->GetValue(u"k"), Variant(u""));
}

}  // namespace
}  // namespace tarvo2
