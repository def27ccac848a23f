// Binding to client objects, protection, files, the default property (write)
// with import, and a call by name.
#include <gtest/gtest.h>

#include <fstream>

#include "platform_temp_dir.h"
#include "ss_test_util.h"
#include "tarvo2/codepage.h"

namespace tarvo2 {
namespace {

using namespace sstest;
using StorageStringBinding = Fixture;
using StorageStringFiles = Fixture;
using StorageStringValue = Fixture;
using StorageStringDispatch = Fixture;

Ref<DynamicObject> Control(const char16_t* property = nullptr, const Variant& value = u"") {
  auto c = MakeRef<DynamicObject>(u"TextBox");
  if (property) c->Put(property, value);
  return c;
}

TEST_F(StorageStringBinding, MirrorsTheChosenPropertyAndUnbindingRestoresMultiPage) {
  for (auto [mode, property, multi_page] :
       {std::tuple{tarvo_BindModeTag, u"Tag", true}, {tarvo_BindModeCaption, u"Caption", false}}) {
    SCOPED_TRACE(ToUtf8(property));
    auto ctl = Control(property, u"<\\old={1};/>");
    auto s = NewStore();
    s->put_MultiPage(multi_page);
    s->put_BindMode(mode);
    s->putref_BoundObject(ctl);
    EXPECT_EQ(s->GetValue(u"old"), Variant(1));
    s->SetValue(u"f", u"v");
    EXPECT_EQ(*ctl->Find(property), Variant(u"<\\old={1};/><\\f={v};/>"));
    ctl->Put(property, u"pulled");
    s->InsertText(u"+", 1);  // a write does not pull first
    EXPECT_EQ(*ctl->Find(property), Variant(u"+<\\old={1};/><\\f={v};/>"));
    s->putref_BoundObject(nullptr);
    EXPECT_TRUE(s->get_MultiPage() == multi_page && s->get_BindMode() == tarvo_BindModeNone && !s->get_BoundObject());
  }
}

TEST_F(StorageStringBinding, ProtectionExcludesBinding) {
  auto ss = NewStore();
  ss->putref_BoundObject(Control(u"Value"));
  EXPECT_EQ(ss->get_BindMode(), tarvo_BindModeDefaultProperty);
  EXPECT_SS_ERROR(ss->AddPage(), Lib(ErrSinglePageMode), u"Add");  // binding turns MultiPage off
  EXPECT_SS_ERROR(ss->put_Protect(true), Lib(ErrProtectWhileBound), u"Protect (Let)");
  ss->putref_BoundObject(nullptr);
  ss->put_Protect(true);
  EXPECT_SS_ERROR(ss->put_BindMode(tarvo_BindModeCaption), Lib(ErrBindWhileProtected), u"BindMode (Let)");
  EXPECT_SS_ERROR(ss->putref_BoundObject(Control(u"Value")), Lib(ErrBindWhileProtected), u"BindMode (Let)",
                  u"BoundTagObject (Set)");
  EXPECT_FALSE(ss->get_BoundObject());
  EXPECT_SS_ERROR(ss->put_Value(u"x"), Lib(ErrDirectStringAccess), u"Value (Let)");
  EXPECT_TRUE(ss->SetValue(u"f", u"v"));  // fields may still be written
}

TEST_F(StorageStringBinding, ABrokenBoundObjectFailsWhateverTheSwitch) {
  auto ss = Page(u"kept");
  EXPECT_SS_ERROR(ss->putref_BoundObject(Control()), err::kNotSupported, u"UpdateFromBoundObject",
                  u"BoundTagObject (Set)");
  EXPECT_TRUE(ss->get_BindMode() == tarvo_BindModeNone && ss->get_MultiPage());  // the binding is undone
  EXPECT_EQ(ss->PageText(), u"kept");
  EXPECT_SS_ERROR(ss->putref_BoundObject(Control(u"Value", Variant::Null())), err::kInvalidUseOfNull,
                  u"UpdateFromBoundObject", u"BoundTagObject (Set)");
  ss->putref_BoundObject(Control(u"Value"));
  ss->put_BindMode(tarvo_BindModeCaption);  // the control has no Caption
  RaiseSwitchOff off;
  EXPECT_SS_ERROR(ss->GetValue(u"f"), err::kNotSupported, u"UpdateFromBoundObject", u"GetValue");
}

TEST_F(StorageStringBinding, CyclesOfBindingsEnd) {
  auto a = NewStore();
  auto b = NewStore();
  EXPECT_SS_ERROR(a->putref_BoundObject(a), Lib(ErrAlreadyBound), u"BoundTagObject (Set)");
  EXPECT_SS_ERROR(a->putref_BoundObject(a->StdInterface()), Lib(ErrAlreadyBound), u"BoundTagObject (Set)");
  b->putref_BoundObject(a);
  EXPECT_SS_ERROR(a->putref_BoundObject(b), Lib(ErrAlreadyBound), u"BoundTagObject (Set)");
  {
    RaiseSwitchOff off;
    a->putref_BoundObject(b);  // two stores bound to each other
    a->SetValue(u"f", u"1");
    b->SetValue(u"g", u"2");
    EXPECT_EQ(a->get_Value(), Variant(u"<\\f={1};/><\\g={2};/>"));
    EXPECT_EQ(b->PageText(), a->PageText());
  }
  auto c = NewStore();
  auto d = NewStore();  // a -> b (re-bound to c) -> c -> d -> a
  b->putref_BoundObject(c);
  c->putref_BoundObject(d);
  d->putref_BoundObject(a);
  a->Clear();
  d->SetValue(u"x", 5);
  for (auto* s : {a.get(), b.get(), c.get()}) EXPECT_EQ(s->GetValue(u"x"), Variant(5));
  for (auto* s : {a.get(), b.get(), c.get(), d.get()}) s->putref_BoundObject(nullptr);  // break the cycle
}

std::string FileBytes(FileSystem* fs, const std::string& path) {
  std::string bytes;
  EXPECT_TRUE(fs->ReadFile(path, &bytes).ok()) << path;
  return bytes;
}

// Every byte value once, fields, lone CR and LF, and a NUL.
String AwkwardPage() {
  String page = u"<\\a={1};/>x\ry\nz";
  for (int b = 0; b < 256; ++b) page += AnsiByteToChar(static_cast<unsigned char>(b));
  return page;
}

TEST_F(StorageStringFiles, SaveAndLoadKeepEveryCharacterAndAppend) {
  MemFs fs;
  auto ss = Page(AwkwardPage());
  ss->Save(u"page.txt");
  // One byte per character under 1252; UTF-8 under 65001.
  EXPECT_EQ(FileBytes(fs.fs.get(), "page.txt"), Utf8Run() ? ToUtf8(AwkwardPage()) : ToAnsi(AwkwardPage()));
  auto back = Page(u"old");
  back->put_PageName(u"other");
  back->ExtractText(2, 3);
  EXPECT_TRUE(back->Load(u"page.txt").IsEmpty());
  EXPECT_EQ(State(*back) + back->get_PageName(), AwkwardPage() + u"|2|ldother");  // only the text changes
  ss->put_Value(u"\u4e2d!");  // outside the code page
  ss->Save(u"page.txt", true);
  ss->Load(u"page.txt", true);
  EXPECT_EQ(ss->PageText(), u"\u4e2d!" + AwkwardPage() + (Utf8Run() ? u"\u4e2d!" : u"?!"));
  ss->Save(u"new.txt", true);  // appending creates a missing file
  EXPECT_EQ(FileBytes(fs.fs.get(), "new.txt"), Utf8Run() ? ToUtf8(ss->PageText()) : ToAnsi(ss->PageText()));
}

// Under 65001 files are UTF-8: every character survives, a lone surrogate is
// written as U+FFFD, bytes that are not UTF-8 load as U+FFFD each.
TEST_F(StorageStringFiles, Utf8FilesUnderCodePage65001) {
  Context()->set_code_page(kCodePageUtf8);
  MemFs fs;
  struct Row { const char* what; String page; std::string bytes; String loaded; };
  const Row rows[] = {
      {"non-Latin", u"Caf\u00e9 \u65e5\u672c\u8a9e \U0001F600", "Caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E \xF0\x9F\x98\x80",
       u"Caf\u00e9 \u65e5\u672c\u8a9e \U0001F600"},
      {"lone surrogates", String(u"a\xD800" u"b\xDC00", 4), "a\xEF\xBF\xBD" "b\xEF\xBF\xBD", u"a\uFFFDb\uFFFD"},
      {"nul kept", String(u"a\0b", 3), std::string("a\0b", 3), String(u"a\0b", 3)},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    auto ss = Page(r.page);
    ss->Save(u"u.txt");
    EXPECT_EQ(FileBytes(fs.fs.get(), "u.txt"), r.bytes);
    ss->Load(u"u.txt");
    EXPECT_EQ(ss->PageText(), r.loaded);
  }
  // Invalid bytes, as a 1252 file and a cut file have them: one U+FFFD each.
  ASSERT_TRUE(fs->WriteFile("bad.txt", "Caf\xE9 \xE6\x97 \xF0\x9F\x98", false).ok());
  auto ss = Page(u"x");
  ss->Load(u"bad.txt", true);
  EXPECT_EQ(ss->PageText(), u"xCaf\uFFFD \uFFFD\uFFFD \uFFFD\uFFFD\uFFFD");
}

// A file system on which every read fails as an unreadable file does.
struct UnreadableFs : FileSystemWrapper {
  using FileSystemWrapper::FileSystemWrapper;
  FileStatus ReadFile(const std::string& p, std::string*) override { return PosixError(p, EACCES); }
};

TEST_F(StorageStringFiles, FailuresLeaveThePageAndTheFile) {
  MemFs fs;
  ASSERT_TRUE(fs->WriteFile("a.txt", "new", false).ok());
  ASSERT_TRUE(fs->CreateDir("dir").ok() && fs->WriteFile("dir/f", "x", false).ok());
  auto bound = MakeRef<DynamicObject>();
  struct Row { const char16_t* name; bool unreadable; std::int32_t number; bool governed_by_switch; };
  for (const Row& r : {Row{u"missing.txt", false, err::kFileNotFound, true},
                       Row{u"dir", false, err::kPathFileAccessError, false},
                       Row{u"a.txt", true, err::kPermissionDenied, false}}) {
    SCOPED_TRACE(ToUtf8(r.name));
    if (r.unreadable) Context()->set_file_system(std::make_shared<UnreadableFs>(fs.fs));
    auto ss = Page(u"page");
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
    Context()->set_file_system(fs.fs);
  }
  auto faulty = std::make_shared<FaultInjectingFileSystem>(fs.fs);
  Context()->set_file_system(faulty);
  auto ss = Page(u"replacement");
  faulty->FailNth(FaultInjectingFileSystem::Op::kRename, 1, EIO);
  EXPECT_SS_ERROR(ss->Save(u"a.txt"), err::kDeviceIOError, u"Save");
  EXPECT_EQ(FileBytes(fs.fs.get(), "a.txt"), "new");
  std::vector<std::string> names;
  ASSERT_TRUE(fs->GetChildren(".", &names).ok());
  EXPECT_EQ(names.size(), 2u) << "no temporary file is left";
  EXPECT_SS_ERROR(ss->Save(u"nowhere/f.txt"), err::kPathNotFound, u"Save");
  EXPECT_SS_ERROR(ss->Save(u""), err::kBadFileNameOrNumber, u"Save");

  ss->put_Protect(true);  // protection guards Load and Value, not Save
  EXPECT_SS_ERROR(ss->Load(u"a.txt"), Lib(ErrDirectStringAccess), u"Load");
  ss->Save(u"a.txt");
  RaiseSwitchOff off;
  ss->put_Value(u"forced");  // goes on as if unprotected
  ss->Load(u"a.txt");
  EXPECT_EQ(ss->PageText() + FromUtf8(FileBytes(fs.fs.get(), "a.txt")), u"forcedreplacement");
}

TEST_F(StorageStringFiles, RealFilesWithUtf8NamesAndAHundredMillionCharacters) {
  testing::PlatformTempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const std::string path = dir / "s\u00e4ve \u20ac.txt";
  {
    std::ofstream out(path, std::ios::binary);
    const std::string chunk(1'000'000, 'a');
    for (int i = 0; i < 100; ++i) out << chunk;
    out << "\r\nend";
  }
  auto ss = NewStore();
  ss->Load(FromUtf8(path));
  EXPECT_EQ(ss->PageText().size(), 100'000'005u);
  EXPECT_EQ(ss->FetchLine(2) + ToString(ss->get_LineCount()), u"end2");
  EXPECT_EQ(ss->Find(u"end", false), 100'000'003);
  EXPECT_EQ(ss->Replace(u"aaaa", u"b", false, true, true), 25'000'000);  // whole, in one pass
  EXPECT_EQ(ss->PageText().substr(24'999'999), u"b\r\nend");
  EXPECT_EQ(ss->get_Cursor(), 25'000'001);
  ss->put_Value(AwkwardPage());
  ss->Save(FromUtf8(path));
  ss->Save(FromUtf8(path), true);
  ss->Load(FromUtf8(path));
  EXPECT_EQ(ss->PageText(), AwkwardPage() + AwkwardPage());
  // A device is refused at once instead of read without end.
  EXPECT_SS_ERROR(ss->Load(u"/dev/zero"), err::kPathFileAccessError, u"Load");
  EXPECT_EQ(ss->PageText(), AwkwardPage() + AwkwardPage());
}

TEST_F(StorageStringValue, WritesTextOrImportsStores) {
  auto form = MakeRef<DynamicObject>(u"Form");  // another class: its default property
  form->Put(u"Value", u"from the form");
  auto ss = NewStore();
  String texts;
  for (const Variant& v : {Variant(u"KivStorageString"), Variant(12), Variant(true), Variant(), Variant(form)}) {
    ss->put_Value(v);
    texts += ss->PageText() + u"|";
  }
  EXPECT_EQ(texts, u"KivStorageString|12|True||from the form|");
  EXPECT_SS_ERROR(ss->put_Value(Variant::Null()), err::kInvalidUseOfNull, u"Value (Let)");
  EXPECT_EQ(ss->PageText(), u"from the form");
  ss->put_Value(Page(u"<\\b={2};/>")->StdInterface());  // a store's view imports the store
  EXPECT_EQ(ss->GetValue(u"b"), Variant(2));
}

TEST_F(StorageStringDispatch, ALateBoundCallWithNamedArgumentsAfterOmittedOnes) {
  Variant ss{NewStore()};
  LetProperty(ss, u"Value", u"abcabc");  // omitted: bCaseSensitive, bUseLastExtraction
  EXPECT_EQ(Call(ss, u"Find", {u"c", Named(u"eSearchDirection", 0), Named(u"bStartFromCursor", false)}), Variant(6));
}

}  // namespace
}  // namespace tarvo2
