// KivINIFileHandler's paths, its common interface, its version report, the
// import hook and calls through dispatch.
#include "tarvo2/file_system.h"
#include "tarvo2/host_module.h"
#include "tarvo2/import.h"
#include "tarvo2/ini_file.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/message_box.h"
#include "tarvo2/profile_store.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

struct RecordingBox : MessageBoxService {
  std::vector<String> shown;
  bool fail = false;
  void Show(StringView m, StringView t, std::int32_t style) override {
    if (fail) RaiseRuntimeError(err::kPermissionDenied);
    shown.push_back(String(m) + u"|" + String(t) + u"|" + ToString(Variant(style)));
  }
};

class IniInterfaceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetFileSystem(fs_);
    SetProfileStore(nullptr);
    SetMessageBoxService(box_);
    SetHostModulePath("/app/bin/host");
    for (const char* dir : {"/app", "/app/bin", "/app/bin/sub", "/data", "/data/x.d"})
      ASSERT_TRUE(fs_->CreateDir(dir).ok());
  }
  void TearDown() override {
    SetImportHook(&ImportStore);
    SetHostModulePath("");
    SetMessageBoxService(nullptr);
    SetFileSystem(nullptr);
  }
  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  std::shared_ptr<RecordingBox> box_ = std::make_shared<RecordingBox>();
};

TEST_F(IniInterfaceTest, CommonInterfacePathsLandBelowTheHostFolder) {
  struct Row { std::string host; String given; String want; };
  const Row rows[] = {
      {"/app/bin/host", u"cfg", u"/app/bin/cfg.INI"},
      {"/app/bin/host", u"cfg.ini", u"/app/bin/cfg.ini"},
      {"/app/bin/host", u"sub/cfg.ini", u"/app/bin/sub/cfg.ini"},
      {"/app/bin/host", u"missing/cfg", u"/app/bin/cfg.INI"},
      {"/app/bin/host", u"/data/cfg.ini", u"/data/cfg.ini"},
      {"/app/bin/host", u"/nope/cfg.ini", u"/app/bin/cfg.ini"},
      {"/app/bin/host", u"/data/x.d/c", u"/data/x.d/c"},  // '.' among the last four
      {"/app/bin/host", u"../bin/c.ini", u"/app/bin/../bin/c.ini"},
      {"host", u"cfg", u"cfg.INI"},  // no host folder: the configuration folder
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(ToUtf8(row.given) + " from " + row.host);
    SetHostModulePath(row.host);
    auto ini = KivINIFileHandler::Create();
    ini->StdInterface()->put_Path(row.given);
    EXPECT_EQ(ini->get_Path(), row.want);
    ini->StdInterface()->put_Path(u"/data/second.ini");  // write-once
    EXPECT_EQ(ini->StdInterface()->get_Path(), row.want);
  }
  SetHostModulePath("/app/bin/host");
  auto ini = KivINIFileHandler::Create();
  EXPECT_EQ(ini->HostFolder(), u"/app/bin/");
  ini->StdInterface()->put_Path(u"");
  EXPECT_FALSE(ini->PathIsSet());
  ini->put_Path(u" /data/raw ");  // the own Path takes the text unchanged
  EXPECT_EQ(ini->get_Path(), u" /data/raw ");
}

TEST_F(IniInterfaceTest, CommonInterfaceForwardsToTheStoreAndReportsTheVersion) {
  auto ini = KivINIFileHandler::Create();
  Ref<Object> view = ini->QueryInterface(u"tarvostdinterface");
  auto face = RefCast<TarvoStdInterface>(view);
  ASSERT_TRUE(face);
  EXPECT_EQ(view->ClassName(), u"KivINIFileHandler");
  EXPECT_EQ(view->QueryInterface(u"KivINIFileHandler").get(), ini.get());
  EXPECT_FALSE(ini->QueryInterface(u"KivRegistryKey"));
  face->put_Path(u"/data/s.ini");
  face->put_Section(u"  S ");
  EXPECT_EQ(face->get_Section(), u"S");
  EXPECT_FALSE(face->SetValue(u"k", SafeArray::OfStrings({u"1", u"2"}), u","));
  EXPECT_EQ(face->GetValue(u"k", u","), Variant(SafeArray::Of(VarType::kLong, {1, 2})));
  EXPECT_EQ(face->GetValue(u"none"), Variant(u""));
  EXPECT_EQ(face->Version(), Variant(u"2.0"));
  EXPECT_TRUE(box_->shown.empty());
  EXPECT_EQ(Call(Variant(ini), u"Version", {true}), Variant(u"2.0"));
  EXPECT_EQ(box_->shown, std::vector<String>{
      u"Tarvo2 - 2.0.4\rModule: KivINIFileHandler - 2.0|Tarvo2 - Version Information|64"});
  box_->fail = true;
  EXPECT_ERROR(face->Version(true), 70, u"Permission denied",
               u"Tarvo2\r\nKivINIFileHandler.Version\r\nKivINIFileHandler.TarvoStdInterface_Version");
  EXPECT_ERROR(face->SetValue(u"", 1), LibraryErrorNumber(ErrZeroLengthFieldName),
               u"Zero Length Feild Names Are Not Allowed",
               u"Tarvo2\r\nKivINIFileHandler.SetValue\r\nKivINIFileHandler.TarvoStdInterface_SetValue");
  EXPECT_ERROR(face->put_Section(u"[x]"), LibraryErrorNumber(ErrIllegalCharacters),
               u"Illegal Character(s) Passed",
               u"Tarvo2\r\nKivINIFileHandler.Section (Let)\r\n"
               u"KivINIFileHandler.TarvoStdInterface_Section (Let)");
}

Ref<Object> g_source;
Object* g_target = nullptr;
void RecordImport(Object& target, const Ref<Object>& source) {
  g_target = &target;
  g_source = source;
  if (source->ClassName() == u"KivRegistryKey") RaiseRuntimeError(err::kTypeMismatch);
}

TEST_F(IniInterfaceTest, StoreObjectsGoToTheImportHook) {
  auto ini = KivINIFileHandler::Create();
  ini->put_Path(u"/data/i.ini");
  ini->SetValue(u"k", u"old");
  auto other = KivINIFileHandler::Create();
  other->put_Path(u"/data/o.ini");
  other->put_Section(u"T");
  other->SetValue(u"n", 1);
  auto registry = MakeRef<DynamicObject>(u"KivRegistryKey");
  SetImportHook(nullptr);  // no hook: nothing happens
  ini->put_Value(Variant(other->StdInterface()));
  EXPECT_EQ(ini->GetSectionNames(), SafeArray::OfStrings({u"DEFAULT"}));
  SetImportHook(&ImportStore);  // the library's importers
  ini->put_Value(Variant(other));
  EXPECT_EQ(ini->GetSectionNames(), SafeArray::OfStrings({u"DEFAULT", u"T"}));
  EXPECT_EQ(ini->get_Section(), u"T");

  SetImportHook(&RecordImport);
  LetProperty(Variant(ini), u"Value", Variant(other->StdInterface()));
  EXPECT_EQ(g_target, ini.get());
  EXPECT_EQ(g_source.get(), other.get());
  EXPECT_ERROR(ini->put_Value(Variant(registry)), 13, u"Type mismatch",
               u"Tarvo2\r\nKivINIFileHandler.Import (Let)");
  // Any other object is a plain value: its default property's text.
  auto form = MakeRef<DynamicObject>(u"kivinifilehandler");
  form->Put(u"Value", u"from form");
  ini->put_Section(u"");
  ini->GetValue(u"k");
  ini->put_Value(Variant(form));
  EXPECT_EQ(ini->GetValue(u"k"), Variant(u"from form"));
  g_source.reset();
}

TEST_F(IniInterfaceTest, TypeInfoListsTheMembersInSlotOrder) {
  const TypeInfo& info = KivINIFileHandler::Info();
  EXPECT_EQ(info.name, u"KivINIFileHandler");
  EXPECT_TRUE(info.creatable);
  // name, kind, parameters as "name[?default][&]"
  using K = InvokeKind;
  struct Row { String name; K kind; std::vector<String> params; };
  const Row rows[] = {
      {u"Path", K::kLet, {u"sPath"}}, {u"Path", K::kGet, {}},
      {u"Section", K::kLet, {u"sSection"}}, {u"Section", K::kGet, {}},
      {u"Value", K::kGet, {}}, {u"Value", K::kLet, {u"vValue"}},
      {u"Version", K::kMethod, {u"bShow?False"}},
      {u"SetValue", K::kMethod, {u"sFieldName", u"vValue", u"sArrayDelim?\t&"}},
      {u"GetValue", K::kMethod,
       {u"sFieldName", u"sArrayDelim?\t", u"bDetectArray?True", u"bDetectNum?True", u"vDefaultReturn?"}},
      {u"GetSectionNames", K::kMethod, {}}, {u"GetFieldNames", K::kMethod, {}},
      {u"DeleteFile", K::kMethod, {}}, {u"DeleteSection", K::kMethod, {}},
      {u"DeleteField", K::kMethod, {u"sFieldName"}},
  };
  ASSERT_EQ(info.members.size(), std::size(rows));
  for (size_t i = 0; i < info.members.size(); ++i) {
    const MemberInfo& m = info.members[i];
    SCOPED_TRACE(ToUtf8(m.name));
    EXPECT_EQ(m.name, rows[i].name);
    EXPECT_EQ(m.kind, rows[i].kind);
    std::vector<String> params;
    for (const ParamInfo& p : m.params)
      params.push_back(p.name + (p.optional ? u"?" + ToString(*p.default_value) : u"") +
                       (p.by_ref ? u"&" : u""));
    EXPECT_EQ(params, rows[i].params);
  }
  EXPECT_EQ(info.members[7].params[2].type, VarType::kString);
  EXPECT_EQ(info.IdOfName(u"value"), kDispIdValue);
}

TEST_F(IniInterfaceTest, LateBoundCalls) {
  Ref<Object> created = KivINIFileHandler::Create();
  Variant ini(created);
  LetProperty(ini, u"Path", u"/data/late.ini");
  LetProperty(ini, u"Section", u"S");
  Variant delimiter = u",";
  EXPECT_EQ(Call(ini, u"SetValue", {u"a", SafeArray::OfStrings({u"1", u"x"}), ByRef(delimiter)}),
            Variant(false));
  EXPECT_EQ(delimiter, Variant(u","));
  Call(ini, u"SetValue", {u"n", 5});
  EXPECT_EQ(Call(ini, u"GetValue", {u"a", u",", Named(u"bDetectNum", false)}),
            Variant(SafeArray::OfStrings({u"1", u"x"})));
  EXPECT_EQ(Call(ini, u"GetValue", {u"gone", Omitted(), Omitted(), Omitted(), Omitted()}),
            Variant(u""));
  EXPECT_EQ(Call(ini, u"GetValue", {u"n"}), Variant(5));
  LetProperty(ini, u"Value", 6);  // the default member, under the name read last
  EXPECT_EQ(GetProperty(ini, u"Value"), Variant(5));
  EXPECT_EQ(Call(ini, u"GetFieldNames"), Variant(SafeArray::OfStrings({u"a", u"n"})));
  EXPECT_EQ(Call(ini, u"GetValue", {u"n"}), Variant(6));
  Call(ini, u"DeleteField", {u"a"});
  Call(ini, u"DeleteSection");
  EXPECT_EQ(Call(ini, u"GetSectionNames"), Variant(SafeArray::OfStrings({})));
  EXPECT_ERROR_NUMBER(Call(ini, u"DeleteField"), err::kArgumentNotOptional);
  EXPECT_ERROR(Call(ini, u"SetValue", {u" ", 1}), LibraryErrorNumber(ErrZeroLengthFieldName),
               u"Zero Length Feild Names Are Not Allowed", u"Tarvo2\r\nKivINIFileHandler.SetValue");
}

}  // namespace
}  // namespace tarvo2
