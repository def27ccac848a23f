// The subkeys collection: loading, order, lookup, Add and Refresh.
#include <vector>

#include "registry_test_util.h"

namespace tarvo2 {
namespace {

class SubKeysTest : public RegistryTest {
 protected:
  static void MakeKeys(std::initializer_list<const char*> paths) {
    for (const char* p : paths) {
      RegKey h = 0;
      ASSERT_EQ(GetRegistryStore()->CreateKey(kHKeyCurrentUser, p, 0x3F, &h, nullptr), 0);
      GetRegistryStore()->CloseKey(h);
    }
  }
  static std::vector<String> Names(SubKeysCollection& c) {
    std::vector<String> out;
    for (const auto& k : c) out.push_back(k->get_KeyName());
    return out;
  }
};

TEST_F(SubKeysTest, AKeyWithoutSubkeysGivesAnEmptyCollection) {
  auto key = Key(u"Software\\Leaf");
  auto subs = key->get_SubKeys();
  EXPECT_EQ(subs->get_Count(), 0);
  EXPECT_EQ(subs->begin(), subs->end());
  int seen = 0;
  ForEach(Variant(subs), [&](const Variant&) { ++seen; });
  EXPECT_EQ(seen, 0);
  EXPECT_EQ(key->get_SubKeys().get(), subs.get());  // made once
}

TEST_F(SubKeysTest, EntriesComeInTheStoresOrderAndAreFoundByPositionOrName) {
  MakeKeys({"Software\\P\\beta", "Software\\P\\Alpha", "Software\\P\\gamma\\deep"});
  auto subs = Key(u"Software\\P")->get_SubKeys();
  EXPECT_EQ(Names(*subs), (std::vector<String>{u"Software\\P\\Alpha", u"Software\\P\\beta", u"Software\\P\\gamma"}));
  EXPECT_EQ(subs->get_Item(Variant(1))->get_KeyName(), u"Software\\P\\Alpha");
  EXPECT_EQ(subs->get_Item(Variant(2.6)).get(), subs->get_Item(Variant(u"GAMMA")).get());
  EXPECT_TRUE(subs->get_Item(Variant(u"ALPHA"))->get_IsOwned());
  struct Row { Variant index; std::int32_t number; const char16_t* description; };
  const Row rows[] = {{Variant(0), 9, u"Subscript out of range"},
                      {Variant(std::int16_t{4}), 9, u"Subscript out of range"},
                      {Variant(u"delta"), 5, u"Invalid procedure call or argument"},
                      {Variant::Null(), 13, u"Type mismatch"}};
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::PrintToString(r.index));
    EXPECT_ERROR(subs->get_Item(r.index), r.number, r.description,
                 Chain({u"Tarvo2", u"SubKeysCollection.Item (Get)"}));
  }
}

TEST_F(SubKeysTest, AddFindsOrCreatesOneImmediateSubkey) {
  MakeKeys({"Software\\Q\\one"});
  auto subs = Key(u"Software\\Q")->get_SubKeys();
  auto one = subs->get_Item(Variant(1));
  EXPECT_EQ(subs->Add(u"ONE").get(), one.get());
  auto two = subs->Add(u"two");
  ASSERT_TRUE(two);
  EXPECT_TRUE(KeyExists("Software\\Q\\two"));
  EXPECT_EQ(two->get_KeyName(), u"Software\\Q\\two");
  EXPECT_TRUE(two->get_IsOwned());
  EXPECT_EQ(subs->get_Item(Variant(2)).get(), two.get());
  // Names that would not name one immediate subkey create nothing.
  for (const String& bad : {String(), String(u"a\\b"), String(u"\\")}) {
    SCOPED_TRACE(ToUtf8(bad));
    EXPECT_FALSE(subs->Add(bad));
  }
  EXPECT_FALSE(KeyExists("Software\\Q\\a"));
  // A key the store refuses still gets its entry; Add never raises.
  auto refused = subs->Add(String(300, u'x'));
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->get_ErrorState(), 87);
  EXPECT_EQ(subs->get_Count(), 3);
}

TEST_F(SubKeysTest, RefreshInvalidatesOldEntriesAndShowsNewSubkeys) {
  MakeKeys({"Software\\R\\old"});
  auto subs = Key(u"Software\\R")->get_SubKeys();
  auto old = subs->get_Item(Variant(1));
  MakeKeys({"Software\\R\\new"});
  EXPECT_EQ(subs->get_Count(), 1);  // loaded once
  subs->Refresh();
  EXPECT_EQ(subs->get_Count(), 2);
  EXPECT_TRUE(old->get_Invalidated());
  EXPECT_ERROR(old->get_KeyName(), LibNumber(ErrObjectInvalidated), u"Object has been invalidated",
               Chain({u"Tarvo2", u"KivRegistryKey.CheckState", u"KivRegistryKey.KeyName (Get)"}));
  auto again = subs->get_Item(Variant(u"old"));
  EXPECT_NE(again.get(), old.get());
  EXPECT_FALSE(again->get_Invalidated());
}

TEST_F(SubKeysTest, AKeyWithoutNameListsItsRoot) {
  MakeKeys({"TopLevel"});
  auto subs = KivRegistryKey::Create()->get_SubKeys();
  auto top = subs->get_Item(Variant(u"TopLevel"));
  EXPECT_EQ(top->get_KeyName(), u"\\TopLevel");
  EXPECT_EQ(top->get_ErrorState(), 161);  // the store refuses the leading "\"
}

TEST_F(SubKeysTest, AnUnreadableParentListsNothing) {
  MakeKeys({"Software\\U\\x"});
  auto key = Key(u"Software\\U");
  auto faults = std::make_shared<FaultInjectingRegistryStore>(GetRegistryStore());
  SetRegistryStore(faults);
  faults->FailAllReads(1012);
  EXPECT_EQ(key->get_SubKeys()->get_Count(), 0);
  EXPECT_EQ(key->get_ErrorState(), 0);
  faults->ClearFaults();
  key->get_SubKeys()->Refresh();
  EXPECT_EQ(key->get_SubKeys()->get_Count(), 1);
}

}  // namespace
}  // namespace tarvo2
