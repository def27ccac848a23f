// The registry key under the common interface: interface lookup, version
// report, forwarding with its labels, and the import hook of Value.
#include <vector>

#include "registry_test_util.h"
#include "tarvo2/import.h"
#include "tarvo2/message_box.h"

namespace tarvo2 {
namespace {

struct RecordingBox : MessageBoxService {
  std::vector<String> messages;
  void Show(StringView m, StringView, std::int32_t style) override {
    EXPECT_EQ(style, 64);
    messages.emplace_back(m);
  }
};

class KeyStdInterfaceTest : public RegistryTest {
 protected:
  void TearDown() override {
    SetImportHook(&ImportStore);
    SetMessageBoxService(nullptr);
    RegistryTest::TearDown();
  }
};

TEST_F(KeyStdInterfaceTest, OffersTheCommonInterfaceBesideItsOwn) {
  auto key = KivRegistryKey::Create();
  Ref<Object> view = key->QueryInterface(u"tarvostdinterface");
  ASSERT_TRUE(view);
  EXPECT_EQ(view->ClassName(), u"KivRegistryKey");
  EXPECT_EQ(view->QueryInterface(u"KivRegistryKey").get(), key.get());
  EXPECT_EQ(key->QueryInterface(u"KivRegistryKey").get(), key.get());
  EXPECT_FALSE(key->QueryInterface(u"KivINIFileHandler"));
  EXPECT_EQ(TypeName(Variant(view)), u"KivRegistryKey");
}

TEST_F(KeyStdInterfaceTest, VersionReportNamesTheClass) {
  auto box = std::make_shared<RecordingBox>();
  SetMessageBoxService(box);
  auto key = KivRegistryKey::Create();
  EXPECT_EQ(key->Version(), u"2.0");
  EXPECT_TRUE(box->messages.empty());
  EXPECT_EQ(key->StdInterface()->Version(true), Variant(u"2.0"));
  ASSERT_EQ(box->messages.size(), 1u);
  EXPECT_EQ(box->messages[0], u"Tarvo2 - 2.0.4\rModule: KivRegistryKey - 2.0");
}

TEST_F(KeyStdInterfaceTest, ForwardersAddTheirLabelsToTheChain) {
  auto key = Key(u"Software\\Std");
  auto std = key->StdInterface();
  EXPECT_FALSE(std->SetValue(u"list", SafeArray::OfStrings({u"1", u"2"})));
  EXPECT_EQ(std->GetValue(u"list"), Variant(SafeArray::Of(VarType::kLong, {Variant(1), Variant(2)})));
  EXPECT_ERROR(std->SetValue(u" ", Variant(1)), LibNumber(ErrZeroLengthFieldName),
               u"Zero Length Feild Names Are Not Allowed",
               Chain({u"Tarvo2", u"KivRegistryKey.SetValue", u"KivRegistryKey.TarvoStdInterface_SetValue"}));
  key->DeleteKey();
  EXPECT_ERROR(std->get_Path(), LibNumber(ErrObjectInvalidated), u"Object has been invalidated",
               Chain({u"Tarvo2", u"KivRegistryKey.CheckState", u"KivRegistryKey.RootKey (Get)",
                      u"KivRegistryKey.Path (Get)", u"KivRegistryKey.TarvoStdInterface_Path (Get)"}));
  EXPECT_ERROR(std->put_Section(u"S"), LibNumber(ErrObjectInvalidated), u"Object has been invalidated",
               Chain({u"Tarvo2", u"KivRegistryKey.CheckState", u"KivRegistryKey.KeyName (Get)",
                      u"KivRegistryKey.Section (Let)", u"KivRegistryKey.TarvoStdInterface_Section (Let)"}));
  EXPECT_EQ(std->Version(), Variant(u"2.0"));  // no state check
}

Ref<Object> g_source;
Object* g_target = nullptr;

TEST_F(KeyStdInterfaceTest, StoreObjectsAssignedToValueGoToTheImportHook) {
  auto key = Key(u"Software\\Import");
  auto source = Key(u"Software\\Source");
  source->SetValue(u"x", Variant(1));
  source->SetValue(u"y", SafeArray::OfStrings({u"a", u"b"}));
  SetImportHook(nullptr);
  key->put_Value(Variant(source));  // no hook: nothing happens
  EXPECT_EQ(key->GetValueNames().Count(), 0u);
  SetImportHook(&ImportStore);  // the library's importers
  key->put_Value(Variant(source));
  EXPECT_EQ(key->GetValueNames(), SafeArray::OfStrings({u"x", u"y"}));
  EXPECT_EQ(Raw("Software\\Import", "y").second, std::string("a\tb\0", 4));

  SetImportHook([](Object& target, const Ref<Object>& src) {
    g_target = &target;
    g_source = src;
  });
  key->put_Value(Variant(source->StdInterface()));  // a view arrives as the store itself
  EXPECT_EQ(g_target, static_cast<Object*>(key.get()));
  EXPECT_EQ(g_source.get(), static_cast<Object*>(source.get()));
  g_source.reset();

  SetImportHook([](Object&, const Ref<Object>&) { RaiseRuntimeError(13); });
  EXPECT_ERROR(key->put_Value(Variant(source)), 13, u"Type mismatch",
               Chain({u"Tarvo2", u"KivRegistryKey.Import (Let)"}));
  auto other = MakeRef<DynamicObject>(u"kivregistrykey");  // class names compare exactly
  key->SetValue(u"v", Variant(u"x"));
  key->put_Value(Variant(other));  // an object is a plain value: not stored
  EXPECT_EQ(Raw("Software\\Import", "v").second, std::string("x\0", 2));
}

}  // namespace
}  // namespace tarvo2
