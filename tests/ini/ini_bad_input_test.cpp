// KivINIFileHandler given files and paths that are not what it expects:
// defined results, nothing lost, nothing torn.
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "platform_temp_dir.h"
#include "tarvo2/file_system.h"
#include "tarvo2/ini_file.h"
#include "tarvo2/profile_store.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

class IniBadInputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetFileSystem(fs_);
    SetProfileStore(nullptr);
    ASSERT_TRUE(fs_->CreateDir("/d").ok());
    ini_->put_Path(u"/d/t.ini");
    ini_->put_Section(u"S");
  }
  void TearDown() override { SetFileSystem(nullptr); }
  void Put(const std::string& content) { ASSERT_TRUE(fs_->WriteFile("/d/t.ini", content, false).ok()); }
  std::string Content() {
    std::string s = "<none>";
    fs_->ReadFile("/d/t.ini", &s);
    return s;
  }
  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  Ref<KivINIFileHandler> ini_ = KivINIFileHandler::Create();
};

TEST_F(IniBadInputTest, OddFilesReadAndEditInPlace) {
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

TEST_F(IniBadInputTest, RefusedWritesLeaveTheFileAlone) {
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
