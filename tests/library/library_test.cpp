// The global library object: creation by ProgID, the raise switch across
// objects, and centring forms.
#include <gtest/gtest.h>

#include "tarvo2/screen.h"
#include "tarvo2/tarvo2.h"
#include "forms.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

TEST(Factory, CreatesByProgIdAndRefusesUnknownClasses) {
  for (const char16_t* id : {u"Tarvo2.TarvoStdInterface", u"tarvo2.tarvolibrary"}) {
    SCOPED_TRACE(ToUtf8(id));
    Ref<Object> o = CreateObject(id);
    ASSERT_TRUE(o);
    EXPECT_EQ(Call(Variant(o), u"Version"), Variant(u"2.0"));
  }
  EXPECT_ERROR(CreateObject(u"Tarvo2.Nothing"), 429, u"ActiveX component can't create object", u"Tarvo2");
  EXPECT_ERROR(CreateObject(u"KivStorageString"), 429, u"ActiveX component can't create object", u"Tarvo2");
  // In a context of the caller's: the object works in it; the refusals are the same.
  auto services = Services::New();
  Ref<Object> key = CreateObject(u"tarvo2.kivregistrykey", services);
  ASSERT_TRUE(RefCast<KivRegistryKey>(key));
  EXPECT_EQ(RefCast<KivRegistryKey>(key)->services(), services);
  for (const char16_t* id : {u"Tarvo2.SubKeysCollection", u"Tarvo2.Nothing"})
    EXPECT_ERROR(CreateObject(id, services), 429, u"ActiveX component can't create object", u"Tarvo2");
}

TEST(Library, RaiseSwitchIsWriteOnlyAndShared) {
  Variant lib(GetTarvoLibrary());
  LetProperty(lib, u"TarvoRaiseErrors", false);
  EXPECT_FALSE(RaiseErrorsEnabled());
  LetProperty(Variant(CreateObject(u"Tarvo2.TarvoLibrary")), u"tarvoraiseerrors", true);
  EXPECT_TRUE(RaiseErrorsEnabled());
  // A library object of another context switches that context only.
  auto services = Services::New();
  LetProperty(Variant(CreateObject(u"Tarvo2.TarvoLibrary", services)), u"TarvoRaiseErrors", false);
  EXPECT_FALSE(services->raise_errors());
  EXPECT_TRUE(RaiseErrorsEnabled());
  EXPECT_ERROR(GetProperty(lib, u"TarvoRaiseErrors"), 438, StandardDescription(438), u"Tarvo2");
}

TEST(Library, CentresOnTheScreenOrWithinAnotherForm) {
  auto services = Services::New();
  services->set_screen(NewFixedScreenService(12000, 9000));
  Variant lib(TarvoLibrary::Create(services));
  Variant f = Form(0, 0, 4000, 3000);
  Call(lib, u"KivCenterForm", {ByRef(f)});
  EXPECT_EQ(Placement(f), (std::vector<Variant>{2325.0, 4000.0, 4000.0, 3000.0, 0}));
  Variant outer = Form(100, 100, 8000, 6000);
  Call(lib, u"KivCenterForm", {ByRef(f), ByRef(outer)});
  EXPECT_EQ(Placement(f), (std::vector<Variant>{1050.0, 2000.0, 4000.0, 3000.0, 0}));

  Variant maximised = Form(1, 2, 4000, 3000, 2);
  Call(lib, u"KivCenterForm", {ByRef(maximised)});
  EXPECT_EQ(GetProperty(maximised, u"Top"), Variant(1.0));
}

TEST(Library, FailuresOfTheFormCarryTheBareLabel) {
  Variant lib(GetTarvoLibrary());
  Variant broken(MakeRef<DynamicObject>(u"Form"));
  EXPECT_ERROR(Call(lib, u"KivCenterForm", {ByRef(broken)}), 438, StandardDescription(438),
               u"Tarvo2\r\nKivCenterForm");
}

TEST(Library, NoStoreWithoutAVendor) {
  Ref<TarvoLibrary> lib = TarvoLibrary::Create();
  EXPECT_FALSE(lib->KivSetFormSaveParams(tarvo_StorageString, u""));
  Variant f = Form(1, 2, 3, 4);
  lib->KivSaveFormParams(f);  // nothing to save to: a no-op
  Variant extra(u"unchanged");
  lib->KivRestoreFormParams(f.AsObject(), extra);
  EXPECT_EQ(extra, Variant(u"unchanged"));
  EXPECT_FALSE(lib->KivSetFormSaveParams(static_cast<StorageTypeEnum>(7), u"Vendor"));
}

}  // namespace
}  // namespace tarvo2
