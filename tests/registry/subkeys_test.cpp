// The subkeys collection (order, Item, Add, Refresh, enumeration), DeleteKey
// and invalidation with the raise switch on and off, and object lifetime.
#include <vector>

#include "registry_test_util.h"

namespace tarvo2 {
namespace {

class SubKeysTest : public RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    MakeKeys({"Software\\T\\beta", "Software\\T\\Alpha\\a1\\a11", "Software\\T\\Alpha\\a2", "Software\\T\\gamma"});
  }
};

TEST_F(SubKeysTest, EntriesComeInTheStoresOrderAndAreFoundByPositionOrName) {
  auto key = Key(u"Software\\T");
  auto subs = key->get_SubKeys();
  EXPECT_EQ(key->get_SubKeys().get(), subs.get());  // made once
  EXPECT_EQ((*subs->begin()).get(), subs->get_Item(Variant(1)).get());
  EXPECT_EQ(subs->get_Item(Variant(2.6)).get(), subs->get_Item(Variant(u"GAMMA")).get());
  const std::tuple<Variant, std::int32_t, const char16_t*> rows[] = {
      {Variant(0), 9, u"Subscript out of range"}, {Variant(std::int16_t{4}), 9, u"Subscript out of range"},
      {Variant(u"delta"), 5, u"Invalid procedure call or argument"}, {Variant::Null(), 13, u"Type mismatch"}};
  for (const auto& [index, number, description] : rows) {
    SCOPED_TRACE(testing::PrintToString(index));
    EXPECT_ERROR(subs->get_Item(index), number, description, Chain({u"SubKeysCollection.Item (Get)"}));
  }
  // Late bound: ForEach walks the entries in the store's order; Item is the default member.
  Variant vsubs(subs);
  std::vector<String> seen;
  ForEach(vsubs, [&](const Variant& k) { seen.push_back(GetProperty(k, u"KeyName").AsString()); });
  EXPECT_EQ(seen, (std::vector<String>{u"Software\\T\\Alpha", u"Software\\T\\beta", u"Software\\T\\gamma"}));
  CallArgs beta{Variant(u"BETA")};
  EXPECT_EQ(vsubs.AsObject()->Invoke(kDispIdValue, InvokeKind::kGet, beta), Variant(subs->get_Item(Variant(2))));
}

TEST_F(SubKeysTest, AddFindsOrCreatesOneImmediateSubkey) {
  auto subs = Key(u"Software\\T")->get_SubKeys();
  EXPECT_EQ(subs->Add(u"BETA").get(), subs->get_Item(Variant(2)).get());
  auto two = subs->Add(u"delta");
  ASSERT_TRUE(two);
  EXPECT_TRUE(KeyExists("Software\\T\\delta") && two->get_IsOwned());
  EXPECT_EQ(two->get_KeyName(), u"Software\\T\\delta");
  EXPECT_EQ(subs->get_Item(Variant(4)).get(), two.get());
  for (const String& bad : {String(), String(u"a\\b"), String(u"\\")}) EXPECT_FALSE(subs->Add(bad));
  EXPECT_FALSE(KeyExists("Software\\T\\a"));
  auto refused = subs->Add(String(300, u'x'));  // the store refuses it: an entry all the same, no error
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->get_ErrorState(), 87);
  EXPECT_EQ(subs->get_Count(), 5);
}

TEST_F(SubKeysTest, RefreshInvalidatesOldEntriesAndShowsNewSubkeys) {
  auto subs = Key(u"Software\\T")->get_SubKeys();
  auto old = subs->get_Item(Variant(1));
  MakeKeys({"Software\\T\\new"});
  EXPECT_EQ(subs->get_Count(), 3);  // loaded once
  subs->Refresh();
  EXPECT_EQ(subs->get_Count(), 4);
  EXPECT_INVALIDATED(old->get_KeyName(), u"KivRegistryKey.KeyName (Get)");
  EXPECT_FALSE(subs->get_Item(Variant(u"alpha"))->get_Invalidated());
  // A key without a name lists its root; an unreadable parent lists nothing.
  EXPECT_EQ(KivRegistryKey::Create(services_)->get_SubKeys()->get_Item(Variant(u"Software"))->get_KeyName(), u"\\Software");
  InstallFaults()->FailAllReads(1012);
  subs->Refresh();
  EXPECT_EQ(subs->get_Count(), 0);
}

TEST_F(SubKeysTest, DeleteKeyDeletesAndInvalidates) {
  auto key = Key(u"Software\\T");
  EXPECT_ERROR(key->DeleteKey(), Lib(ErrKeyHasSubkeys), u"Can't delete key because it's contains subkeys",
               Chain({u"KivRegistryKey.DeleteKey"}));
  EXPECT_FALSE(key->get_Invalidated());
  auto subs = key->get_SubKeys();
  auto beta = subs->get_Item(Variant(u"BETA"));
  beta->StdInterface()->put_Section(u"sec");  // the entry is found though its name changed
  beta->DeleteKey();
  EXPECT_TRUE(!KeyExists("Software\\T\\beta\\sec") && KeyExists("Software\\T\\beta"));
  EXPECT_INVALIDATED(beta->DeleteKey(), u"KivRegistryKey.DeleteKey");
  EXPECT_EQ(subs->get_Count(), 2);
  auto alpha = subs->get_Item(Variant(1));
  auto a2 = alpha->get_SubKeys()->get_Item(Variant(u"a2"));
  auto faults = InstallFaults();
  faults->FailAllWrites(5);  // a failed deletion keeps the object valid and owned
  EXPECT_ERROR(a2->DeleteKey(), Lib(ErrCantWriteKey), u"Can't Write Key",
               Chain({u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.DeleteKey"}));
  EXPECT_TRUE(!a2->get_Invalidated() && a2->get_IsOwned() && KeyExists("Software\\T\\Alpha\\a2"));
  faults->ClearFaults();
  alpha->DeleteKey(true);  // depth first through its whole tree
  EXPECT_TRUE(!KeyExists("Software\\T\\Alpha") && KeyExists("Software\\T\\gamma"));
  EXPECT_TRUE(alpha->get_Invalidated() && a2->get_Invalidated());
  EXPECT_EQ(subs->get_Count(), 1);
}

TEST_F(SubKeysTest, WithTheSwitchOffAnInvalidatedKeyNeverReachesTheRegistry) {
  services_->registry_store()->SetValue(kHKeyCurrentUser, "rootval", kRegSz, reinterpret_cast<const std::uint8_t*>("r"), 2);
  auto parent = Key(u"Software\\T\\Alpha");
  services_->set_raise_errors(false);
  parent->DeleteKey();  // the store refuses a key with subkeys; the object is invalidated all the same
  EXPECT_EQ(parent->get_ErrorState(), 5);
  EXPECT_TRUE(parent->get_Invalidated() && KeyExists("Software\\T\\Alpha\\a2"));
  auto key = Key(u"Software\\T\\beta");
  key->SetValue(u"rootval", Variant(u"mine"));
  key->DeleteKey();
  key->put_RootKey(HKEY_LOCAL_MACHINE);
  key->put_KeyName(u"Software\\Again");
  EXPECT_TRUE(key->SetValue(u"rootval", Variant(u"changed")));
  EXPECT_EQ(key->GetValue(u"rootval", u"\t", true, true, Variant(u"dflt")), Variant(u"dflt"));
  EXPECT_TRUE(key->DeleteValue(u"rootval").IsEmpty());
  EXPECT_EQ(key->GetValueNames().Count(), 0u);
  auto subs = key->get_SubKeys();
  EXPECT_FALSE(subs->Add(u"Software"));
  subs->Refresh();
  EXPECT_EQ(subs->get_Count(), 0);
  key->DeleteKey(true);
  EXPECT_EQ(Raw("", "rootval").second, std::string("r\0", 2));
  EXPECT_TRUE(KeyExists("Software\\T") && !KeyExists("Software\\Again"));
  EXPECT_EQ(key->get_RootKey(), HKEY_CURRENT_USER);
  EXPECT_EQ(key->get_ErrorState(), 0);
}

TEST_F(SubKeysTest, EveryObjectIsReleasedOnceTheClientLetsGo) {
  {
    Ref<Enumerator> e = Key(u"Software\\T")->get_SubKeys()->NewEnum();  // the key and collection go at once
    Variant first;
    ASSERT_TRUE(e->Next(first));  // the enumerator keeps its snapshot
    EXPECT_EQ(GetProperty(GetProperty(first, u"SubKeys"), u"Count"), Variant(2));
  }
  ExpectAllReleased();
  auto subs = Key(u"Software\\T")->get_SubKeys();  // the parent goes at once
  subs->Add(u"c")->get_SubKeys()->Add(u"c1");
  subs->get_Item(Variant(u"c"))->DeleteKey(true);
  subs->get_Item(Variant(1))->get_SubKeys();
  subs->Refresh();
  auto entry = subs->get_Item(Variant(u"beta"));
  EXPECT_EQ(services_.use_count(), 1 + 4);  // the collection and its three entries, not the parent
  EXPECT_TRUE(subs->Add(u"new") && KeyExists("Software\\T\\new"));  // the parent's location was kept
  subs.reset();
  EXPECT_FALSE(entry->get_IsOwned());  // its collection is gone
  EXPECT_FALSE(entry->SetValue(u"v", Variant(1)));
  entry.reset();
  ExpectAllReleased();
  Key(u"Software\\T\\Alpha")->DeleteKey(true);
  ExpectAllReleased();
}

}  // namespace
}  // namespace tarvo2
