// Files, the default property (write) with import, the common interface and
// the version report.
#include <gtest/gtest.h>

#include <fstream>

#include "platform_temp_dir.h"
#include "ss_test_util.h"
#include "tarvo2/codepage.h"
#include "tarvo2/import.h"

namespace tarvo2 {
namespace {

using namespace sstest;

std::string FileBytes(FileSystem& fs, const std::string& path) {
  std::string bytes;
  EXPECT_TRUE(fs.ReadFile(path, &bytes).ok()) << path;
  return bytes;
}

// Every byte value once, fields, lone CR and LF, and a NUL.
String AwkwardPage() {
  String page = u"<\\a={1};/>x\ry\nz";
  for (int b = 0; b < 256; ++b) page += AnsiByteToChar(static_cast<unsigned char>(b));
  return page;
}

// A file system on which every read fails as an unreadable file does.
class UnreadableFs : public FileSystemWrapper {
 public:
  using FileSystemWrapper::FileSystemWrapper;
  FileStatus ReadFile(const std::string& p, std::string*) override { return PosixError(p, EACCES); }
};

TEST(StorageStringFiles, SaveAndLoadKeepEveryCharacterOfTheCodePage) {
  MemFs fs;
  auto ss = KivStorageString::Create();
  ss->put_Value(AwkwardPage());
  ss->Save(u"page.txt");
  EXPECT_EQ(FileBytes(*fs, "page.txt"), ToAnsi(AwkwardPage()));
  EXPECT_EQ(FileBytes(*fs, "page.txt").size(), AwkwardPage().size());

  auto back = KivStorageString::Create();
  back->AddPage(u"other");
  back->put_Value(u"old");
  back->ExtractText(1, 2);
  back->put_Cursor(2);
  EXPECT_TRUE(back->Load(u"page.txt").IsEmpty());
  EXPECT_EQ(back->PageText(), AwkwardPage());
  EXPECT_EQ(back->GetValue(u"a"), Variant(1));
  EXPECT_EQ(back->get_Cursor(), 2);
  EXPECT_EQ(back->get_LastExtraction(), u"ol");
  EXPECT_EQ(back->get_PageName(), u"other");

  ss->put_Value(u"\u4e2d!");  // outside the code page
  ss->Save(u"page.txt");
  EXPECT_EQ(FileBytes(*fs, "page.txt"), "?!");
}

TEST(StorageStringFiles, AppendsOnLoadAndSave) {
  MemFs fs;
  ASSERT_TRUE(fs->WriteFile("x.txt", "xyz", false).ok());
  ASSERT_TRUE(fs->WriteFile("ten.txt", "0123456789", false).ok());
  auto ss = KivStorageString::Create();
  ss->put_Value(u"abc");
  ss->Load(u"x.txt", true);
  EXPECT_EQ(ss->PageText(), u"abcxyz");
  ss->Load(u"x.txt");
  EXPECT_EQ(ss->PageText(), u"xyz");
  ss->Save(u"ten.txt", true);
  EXPECT_EQ(FileBytes(*fs, "ten.txt"), "0123456789xyz");
  ss->Save(u"ten.txt");
  EXPECT_EQ(FileBytes(*fs, "ten.txt"), "xyz");
  ss->Save(u"new.txt", true);
  EXPECT_EQ(FileBytes(*fs, "new.txt"), "xyz");
}

TEST(StorageStringFiles, FailuresLeaveThePageAndTheFile) {
  MemFs fs;
  ASSERT_TRUE(fs->CreateDir("dir").ok());
  auto bound = MakeRef<DynamicObject>();
  struct Row {
    const char16_t* name;
    std::shared_ptr<FileSystem> use;  // null: the in-memory one
    std::int32_t number;
    bool governed_by_switch;
  } rows[] = {{u"missing.txt", nullptr, err::kFileNotFound, true},
              {u"dir", nullptr, err::kPathFileAccessError, false},
              {u"dir/*", nullptr, err::kFileNotFound, false},
              {u"a.txt", std::make_shared<UnreadableFs>(fs.get()), err::kPermissionDenied, false}};
  ASSERT_TRUE(fs->WriteFile("a.txt", "new", false).ok());
  ASSERT_TRUE(fs->WriteFile("dir/f", "x", false).ok());
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.name));
    if (r.use) SetFileSystem(r.use);
    auto ss = KivStorageString::Create();
    ss->put_Value(u"page");
    EXPECT_SS_ERROR(ss->Load(r.name), r.number, u"Load");
    EXPECT_EQ(ss->PageText(), u"page");
    bound->Put(u"Value", u"page");
    ss->putref_BoundObject(bound);
    bound->Put(u"Value", u"stale");
    RaiseSwitchOff off;
    if (r.governed_by_switch) {
      EXPECT_TRUE(ss->Load(r.name).IsEmpty());
      EXPECT_EQ(*bound->Find(u"Value"), Variant(u"page"));  // still pushed
    } else {
      EXPECT_SS_ERROR(ss->Load(r.name), r.number, u"Load");
    }
    SetFileSystem(fs.get());
  }

  auto faulty = std::make_shared<FaultInjectingFileSystem>(fs.get());
  SetFileSystem(faulty);
  auto ss = KivStorageString::Create();
  ss->put_Value(u"replacement");
  faulty->FailNth(FaultInjectingFileSystem::Op::kRename, 1, EIO);
  EXPECT_SS_ERROR(ss->Save(u"a.txt"), err::kDeviceIOError, u"Save");
  EXPECT_EQ(FileBytes(*fs, "a.txt"), "new");
  std::vector<std::string> names;
  ASSERT_TRUE(fs->GetChildren(".", &names).ok());
  EXPECT_EQ(names.size(), 2u) << "no temporary file is left";
  EXPECT_SS_ERROR(ss->Save(u"dir"), err::kPathFileAccessError, u"Save");
  EXPECT_SS_ERROR(ss->Save(u"nowhere/f.txt"), err::kPathNotFound, u"Save");
  EXPECT_SS_ERROR(ss->Save(u""), err::kBadFileNameOrNumber, u"Save");
}

TEST(StorageStringFiles, ProtectionGuardsLoadAndValueButNotSave) {
  MemFs fs;
  ASSERT_TRUE(fs->WriteFile("x.txt", "xyz", false).ok());
  auto ss = KivStorageString::Create();
  ss->put_Value(u"kept");
  ss->put_Protect(true);
  EXPECT_SS_ERROR(ss->Load(u"x.txt"), Lib(ErrDirectStringAccess), u"Load");
  EXPECT_SS_ERROR(ss->put_Value(u"x"), Lib(ErrDirectStringAccess), u"Value (Let)");
  ss->Save(u"out.txt");
  EXPECT_EQ(FileBytes(*fs, "out.txt"), "kept");
  RaiseSwitchOff off;
  ss->Load(u"x.txt");
  EXPECT_EQ(ss->PageText(), u"kept");
  ss->put_Value(u"forced");  // goes on as if unprotected
  EXPECT_EQ(ss->PageText(), u"forced");
}

TEST(StorageStringFiles, RealFilesWithUtf8Names) {
  testing::PlatformTempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const String name = FromUtf8(dir / "s\u00e4ve \u20ac.txt");
  auto ss = KivStorageString::Create();
  ss->put_Value(AwkwardPage());
  ss->Save(name);
  ss->Save(name, true);
  auto back = KivStorageString::Create();
  back->Load(name);
  EXPECT_EQ(back->PageText(), AwkwardPage() + AwkwardPage());
}

TEST(StorageStringFiles, HundredMillionCharacterPage) {
  testing::PlatformTempDir dir;
  const std::string path = dir / "big.txt";
  {
    std::ofstream out(path, std::ios::binary);
    const std::string chunk(1'000'000, 'a');
    for (int i = 0; i < 100; ++i) out << chunk;
    out << "\r\nend";
  }
  auto ss = KivStorageString::Create();
  ss->Load(FromUtf8(path));
  EXPECT_EQ(ss->PageText().size(), 100'000'005u);
  EXPECT_EQ(ss->get_LineCount(), 2);
  EXPECT_EQ(ss->FetchLine(2), u"end");
  ss->put_Cursor(INT32_MAX);
  EXPECT_EQ(ss->get_Cursor(), 100'000'005);
  EXPECT_EQ(ss->Find(u"end", false), 100'000'003);
}

TEST(StorageStringValue, WritesTextOrImportsStores) {
  auto ss = KivStorageString::Create();
  struct Row {
    Variant v;
    String text;
  } rows[] = {{u"KivStorageString", u"KivStorageString"}, {12, u"12"}, {true, u"True"}, {Variant(), u""}, {[] {
                auto other = MakeRef<DynamicObject>(u"Form");  // another class: its default property
                other->Put(u"Value", u"from the form");
                return Variant(other);
              }(), u"from the form"}};
  for (const Row& r : rows) {
    ss->put_Value(r.v);
    EXPECT_EQ(ss->PageText(), r.text);
  }
  ss->put_Value(u"kept");
  EXPECT_SS_ERROR(ss->put_Value(Variant::Null()), err::kInvalidUseOfNull, u"Value (Let)");
  EXPECT_SS_ERROR(ss->put_Value(Longs({1})), err::kTypeMismatch, u"Value (Let)");
  EXPECT_EQ(ss->PageText(), u"kept");

  auto source = KivStorageString::Create();
  source->put_PageName(u"P1");
  source->SetValue(u"a", 1);
  source->AddPage(u"P2");
  source->SetValue(u"b", 2);
  source->put_Page(1);
  ss->put_Value(source->StdInterface());
  EXPECT_EQ(Strings(ss->GetPageNames()), (std::vector<String>{u"P1", u"P2"}));
  EXPECT_EQ(ss->get_Page(), Variant(2));
  EXPECT_EQ(ss->GetValue(u"b"), Variant(2));
  EXPECT_EQ(source->get_Page(), Variant(1));

  const ImportHook importers = GetImportHook();
  static Object* seen_target;
  static Object* seen_source;
  SetImportHook([](Object& t, const Ref<Object>& s) {
    seen_target = &t;
    seen_source = s.get();
  });
  ss->put_Value(source->StdInterface());
  EXPECT_EQ(seen_target, ss.get());
  EXPECT_EQ(seen_source, source.get());
  SetImportHook(nullptr);
  ss->put_Value(source);
  EXPECT_EQ(ss->get_PageCount(), 2);  // nothing imported
  SetImportHook(importers);
}

TEST(StorageStringStdInterface, SectionsArePagesAndVersionIsReported) {
  auto ss = KivStorageString::Create();
  Ref<TarvoStdInterface> std_if = RefCast<TarvoStdInterface>(ss->QueryInterface(u"tarvostdinterface"));
  ASSERT_TRUE(std_if);
  EXPECT_EQ(std_if->ClassName(), u"KivStorageString");
  std_if->put_Path(u"C:\\x");
  EXPECT_EQ(std_if->get_Path(), u"");
  std_if->put_Section(u"Settings");
  std_if->put_Section(u"");
  EXPECT_EQ(ss->get_PageCount(), 2);
  EXPECT_EQ(std_if->get_Section(), u"Settings");
  std_if->SetValue(u"List", SafeArray::OfStrings({u"1", u"2"}));
  ss->put_Page(1);
  std_if->put_Section(u"Settings");
  EXPECT_EQ(ss->get_PageCount(), 2);
  EXPECT_EQ(std_if->GetValue(u"List"), Longs({1, 2}));
  EXPECT_EQ(std_if->GetValue(u"none"), Variant(u""));
  std_if->put_Section(u"settings");  // exact names: a new page
  EXPECT_EQ(ss->get_PageCount(), 3);

  ss->put_MultiPage(false);
  EXPECT_SS_ERROR(std_if->put_Section(u"settings"), Lib(ErrSinglePageMode), u"Page (Let)",
                  u"TarvoStdInterface_Section (Let)");
  EXPECT_SS_ERROR(std_if->put_Section(u"Fresh"), Lib(ErrSinglePageMode), u"Add", u"TarvoStdInterface_Section (Let)");

  auto box = std::make_shared<RecordingMessageBox>();
  SetMessageBoxService(box);
  EXPECT_EQ(ss->Version(), u"2.0");
  EXPECT_TRUE(box->shown.empty());
  EXPECT_EQ(std_if->Version(true), Variant(u"2.0"));
  ASSERT_EQ(box->shown.size(), 1u);
  EXPECT_EQ(box->shown[0].message, u"Tarvo2 - 2.0.4\rModule: KivStorageString - 2.0");
  EXPECT_EQ(box->shown[0].title, u"Tarvo2 - Version Information");
  EXPECT_EQ(box->shown[0].style, 64);
  struct Failing : MessageBoxService {
    void Show(StringView, StringView, std::int32_t) override { RaiseRuntimeError(err::kPermissionDenied); }
  };
  SetMessageBoxService(std::make_shared<Failing>());
  EXPECT_SS_ERROR(std_if->Version(true), err::kPermissionDenied, u"Version", u"TarvoStdInterface_Version (Get)");
  SetMessageBoxService(nullptr);
}

}  // namespace
}  // namespace tarvo2
