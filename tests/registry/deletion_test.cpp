// DeleteKey and invalidation, with the raise switch on and off.
#include "registry_test_util.h"

namespace tarvo2 {
namespace {

class DeletionTest : public RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    for (const char* p : {"Software\\T\\a\\a1", "Software\\T\\a\\a2", "Software\\T\\b"}) {
      RegKey h = 0;
      GetRegistryStore()->CreateKey(kHKeyCurrentUser, p, 0x3F, &h, nullptr);
      GetRegistryStore()->CloseKey(h);
    }
  }
};

TEST_F(DeletionTest, ACallersKeyIsDeletedAndInvalidated) {
  auto key = Key(u"Software\\T\\b");
  EXPECT_FALSE(key->get_IsOwned());
  key->DeleteKey();
  EXPECT_FALSE(KeyExists("Software\\T\\b"));
  EXPECT_TRUE(key->get_Invalidated());
  EXPECT_ERROR(key->get_ErrorState(), LibNumber(ErrObjectInvalidated), u"Object has been invalidated",
               Chain({u"Tarvo2", u"KivRegistryKey.CheckState", u"KivRegistryKey.ErrorState (Get)"}));
  EXPECT_ERROR(key->DeleteKey(), LibNumber(ErrObjectInvalidated), u"Object has been invalidated",
               Chain({u"Tarvo2", u"KivRegistryKey.CheckState", u"KivRegistryKey.DeleteKey"}));
}

TEST_F(DeletionTest, SubkeysRefuseAPlainDelete) {
  auto key = Key(u"Software\\T");
  EXPECT_ERROR(key->DeleteKey(), LibNumber(ErrKeyHasSubkeys), u"Can't delete key because it's contains subkeys",
               Chain({u"Tarvo2", u"KivRegistryKey.DeleteKey"}));
  EXPECT_TRUE(KeyExists("Software\\T\\a\\a1"));
  EXPECT_FALSE(key->get_Invalidated());
}

TEST_F(DeletionTest, RecursiveDeleteRemovesTheWholeTreeDepthFirst) {
  auto key = Key(u"Software\\T");
  auto a = key->get_SubKeys()->get_Item(Variant(u"a"));
  auto a1 = a->get_SubKeys()->get_Item(Variant(1));
  key->DeleteKey(true);
  EXPECT_FALSE(KeyExists("Software\\T"));
  EXPECT_TRUE(KeyExists("Software"));
  for (auto* k : {key.get(), a.get(), a1.get()}) EXPECT_TRUE(k->get_Invalidated());
}

TEST_F(DeletionTest, AnOwnedKeyLeavesItsCollection) {
  auto subs = Key(u"Software\\T")->get_SubKeys();
  auto b = subs->get_Item(Variant(u"B"));
  b->StdInterface()->put_Section(u"sec");  // the entry is found though its name changed
  b->DeleteKey();
  EXPECT_FALSE(KeyExists("Software\\T\\b\\sec"));
  EXPECT_TRUE(KeyExists("Software\\T\\b"));
  EXPECT_EQ(subs->get_Count(), 1);
  EXPECT_ERROR(subs->get_Item(Variant(u"b")), 5, u"Invalid procedure call or argument",
               Chain({u"Tarvo2", u"SubKeysCollection.Item (Get)"}));
}

TEST_F(DeletionTest, AFailedDeletionKeepsTheObjectValidAndOwned) {
  auto subs = Key(u"Software\\T")->get_SubKeys();
  auto a = subs->get_Item(Variant(u"a"));
  auto a1 = a->get_SubKeys()->get_Item(Variant(u"a1"));
  auto faults = std::make_shared<FaultInjectingRegistryStore>(GetRegistryStore());
  SetRegistryStore(faults);
  faults->FailAllWrites(5);
  EXPECT_ERROR(a1->DeleteKey(), LibNumber(ErrCantWriteKey), u"Can't Write Key",
               Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.DeleteKey"}));
  EXPECT_FALSE(a1->get_Invalidated());
  EXPECT_EQ(a->get_SubKeys()->get_Count(), 2);
  EXPECT_TRUE(KeyExists("Software\\T\\a\\a1"));
}

TEST_F(DeletionTest, WithTheSwitchOffAnInvalidatedKeyNeverReachesTheRoot) {
  auto store = GetRegistryStore();
  store->SetValue(kHKeyCurrentUser, "rootval", kRegSz, reinterpret_cast<const std::uint8_t*>("r"), 2);
  auto key = Key(u"Software\\T\\b");
  key->SetValue(u"rootval", Variant(u"mine"));
  key->DeleteKey();
  SetRaiseErrors(false);
  key->put_RootKey(HKEY_LOCAL_MACHINE);
  key->put_KeyName(u"Software\\Again");
  EXPECT_TRUE(key->SetValue(u"rootval", Variant(u"changed")));
  EXPECT_EQ(key->GetValue(u"rootval", u"\t", true, true, Variant(u"dflt")), Variant(u"dflt"));
  EXPECT_TRUE(key->DeleteValue(u"rootval").IsEmpty());
  EXPECT_EQ(key->GetValueNames().Count(), 0u);
  auto subs = key->get_SubKeys();
  EXPECT_EQ(subs->get_Count(), 0);
  EXPECT_FALSE(subs->Add(u"Software"));
  subs->Refresh();
  EXPECT_EQ(subs->get_Count(), 0);
  key->DeleteKey(true);
  EXPECT_EQ(Raw("", "rootval").second, std::string("r\0", 2));
  EXPECT_TRUE(KeyExists("Software\\T"));
  EXPECT_FALSE(KeyExists("Software\\Again"));
  EXPECT_EQ(key->get_RootKey(), HKEY_CURRENT_USER);
  EXPECT_EQ(key->get_ErrorState(), 0);
}

TEST_F(DeletionTest, WithTheSwitchOffAPlainDeleteOfAParentGoesOn) {
  auto key = Key(u"Software\\T\\a");
  SetRaiseErrors(false);
  key->DeleteKey();  // the store refuses a key with subkeys
  EXPECT_EQ(key->get_ErrorState(), 5);
  EXPECT_TRUE(key->get_Invalidated());
  EXPECT_TRUE(KeyExists("Software\\T\\a\\a1"));
}

}  // namespace
}  // namespace tarvo2
