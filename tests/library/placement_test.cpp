// Saving and restoring where forms stood, in each of the three stores.
#include <gtest/gtest.h>

#include "tarvo2/tarvo2.h"
#include "tarvo2/testing/file_system.h"
#include "forms.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

class PlacementTest : public ::testing::TestWithParam<StorageTypeEnum> {
 protected:
  // The library object and the stores it makes work in the test's context.
  void SetUp() override {
    services_->set_registry_location(":memory:");
    services_->set_file_system(fs_);
    ASSERT_TRUE(fs_->CreateDir("/apps").ok());
    services_->set_host_module_path("/apps/Ledger.bin");
    lib_ = TarvoLibrary::Create(services_);
  }
  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  std::shared_ptr<Services> services_ = Services::New();
  Ref<TarvoLibrary> lib_;
};

TEST_P(PlacementTest, SaveAndRestoreRoundTrip) {
  Ref<TarvoStdInterface> store = lib_->KivSetFormSaveParams(GetParam(), u"Acme");
  ASSERT_TRUE(store);
  EXPECT_EQ(store->get_Section(), u"WindowParams");

  // A maximised form: its normal bounds are saved with the maximised state,
  // and it stays maximised.
  Variant f = Form(1200.4, 2400.5, 6000, 4500, 2);
  lib_->KivSaveFormParams(f, Variant(42));
  EXPECT_EQ(GetProperty(f, u"WindowState"), Variant(2));
  Variant record = store->GetValue(u"frmMain");
  EXPECT_EQ(record, Variant(SafeArray::Of(VarType::kLong, {1200, 2400, 6000, 4500, 2, 0, 0})));

  Variant g = Form(0, 0, 10, 10, 0);
  Variant extra;
  lib_->KivRestoreFormParams(g.AsObject(), extra);
  EXPECT_EQ(Placement(g), (std::vector<Variant>{1200, 2400, 6000, 4500, 2}));
  EXPECT_EQ(extra, Variant(42));

  // Without restoring afterwards the form is left normal.
  Variant h = Form(1, 2, 3, 4, 1, u"frmOther");
  lib_->KivSaveFormParams(h, Variant::Missing(), false);
  EXPECT_EQ(GetProperty(h, u"WindowState"), Variant(0));
  // Called by name without the flag, it restores: its declared default is true.
  Variant by_name = Form(1, 2, 3, 4, 1, u"frmByName");
  Call(Variant(lib_), u"KivSaveFormParams", {by_name});
  EXPECT_EQ(GetProperty(by_name, u"WindowState"), Variant(1));

  // A form that was never saved is left alone, and so is its extra value.
  Variant never = Form(5, 6, 7, 8, 0, u"frmNever");
  Variant keep(u"unchanged");
  Call(Variant(lib_), u"KivRestoreFormParams", {never, ByRef(keep)});
  EXPECT_EQ(GetProperty(never, u"Top"), Variant(5.0));
  EXPECT_EQ(keep, Variant(u"unchanged"));
}

INSTANTIATE_TEST_SUITE_P(AllStores, PlacementTest,
                         ::testing::Values(tarvo_INIFile, tarvo_Registry, tarvo_StorageString));

TEST_F(PlacementTest, StorePathsFollowTheHostName) {
  Ref<TarvoStdInterface> ini = lib_->KivSetFormSaveParams(tarvo_INIFile, u"Acme");
  ASSERT_TRUE(ini);
  EXPECT_EQ(ini->get_Path(), u"/apps/Ledger.ini");
  Variant f = Form(1, 2, 3, 4, 0);
  lib_->KivSaveFormParams(f);
  std::string text;
  ASSERT_TRUE(fs_->ReadFile("/apps/Ledger.ini", &text).ok());
  EXPECT_EQ(text, "[WindowParams]\nfrmMain=1\t2\t3\t4\t0\t0\t0\n");

  Ref<TarvoStdInterface> reg = lib_->KivSetFormSaveParams(tarvo_Registry, u"");  // reuses Acme
  ASSERT_TRUE(reg);
  EXPECT_EQ(TypeName(Variant(reg)), u"KivRegistryKey");
  lib_->KivSaveFormParams(f);
  Ref<Object> key = CreateObject(u"Tarvo2.KivRegistryKey", services_);
  LetProperty(Variant(key), u"KeyName", u"Software\\Acme\\Ledger\\WindowParams");
  EXPECT_EQ(Call(Variant(key), u"GetValue", {u"frmMain"}),
            Variant(SafeArray::Of(VarType::kLong, {1, 2, 3, 4, 0, 0, 0})));
}

// The store handed out under the common interface, held in a Variant, is
// the store: its class name, its identity and its own members by name.
TEST_F(PlacementTest, TheHandedOutStoreIsTheStore) {
  struct Row { StorageTypeEnum type; const char16_t *class_name, *member; Variant value; } rows[] = {
      {tarvo_Registry, u"KivRegistryKey", u"KeyName", u"Software\\Acme\\Ledger\\WindowParams"},
      {tarvo_StorageString, u"KivStorageString", u"PageName", u"WindowParams"},
      {tarvo_INIFile, u"KivINIFileHandler", u"Path", u"/apps/Ledger.ini"}};
  Variant lib(lib_);
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(String(r.class_name) + u"." + r.member));
    Variant st = Call(lib, u"KivSetFormSaveParams", {static_cast<std::int32_t>(r.type), u"Acme"});
    EXPECT_EQ(TypeName(st), r.class_name);
    EXPECT_TRUE(SameObject(st, Variant(st.AsObject()->QueryInterface(r.class_name))) && !SameObject(st, lib));
    EXPECT_EQ(GetProperty(st, r.member), r.value);
  }
}

TEST_F(PlacementTest, ShortRecordsFailAfterApplyingWhatTheyHave) {
  Ref<TarvoStdInterface> store = lib_->KivSetFormSaveParams(tarvo_StorageString, u"Acme");
  store->SetValue(u"frmMain", Variant(u"10\t20\t30"));
  Variant f = Form(0, 0, 0, 0, 0);
  EXPECT_ERROR(lib_->KivRestoreFormParams(f.AsObject()), 9, u"Subscript out of range",
               u"Tarvo2\r\nKivRestoreFormParams");
  EXPECT_EQ(GetProperty(f, u"Width"), Variant(30));
  EXPECT_EQ(GetProperty(f, u"Height"), Variant(0.0));
}

}  // namespace
}  // namespace tarvo2
