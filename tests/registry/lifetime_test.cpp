// Every key and collection object is destroyed once the client lets go,
// whatever way it was reached.
#include <functional>

#include "registry_test_util.h"

namespace tarvo2 {
namespace {

class LifetimeTest : public RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    for (const char* p : {"Software\\L\\a\\a1\\a11", "Software\\L\\a\\a2", "Software\\L\\b"}) {
      RegKey h = 0;
      GetRegistryStore()->CreateKey(kHKeyCurrentUser, p, 0x3F, &h, nullptr);
      GetRegistryStore()->CloseKey(h);
    }
    keys_ = KivRegistryKey::LiveInstances();
    collections_ = SubKeysCollection::LiveInstances();
  }
  void ExpectAllReleased() {
    EXPECT_EQ(KivRegistryKey::LiveInstances(), keys_);
    EXPECT_EQ(SubKeysCollection::LiveInstances(), collections_);
  }
  std::int64_t keys_ = 0, collections_ = 0;
};

TEST_F(LifetimeTest, EveryPatternReleasesEverything) {
  struct Row { const char* what; std::function<void()> use; };
  const Row rows[] = {
      {"walk down the tree",
       [] {
         auto k = Key(u"Software\\L");
         auto a11 = k->get_SubKeys()->get_Item(Variant(u"a"))->get_SubKeys()->get_Item(Variant(1))
                        ->get_SubKeys()->get_Item(Variant(1));
         EXPECT_EQ(a11->get_KeyName(), u"Software\\L\\a\\a1\\a11");
         EXPECT_EQ(a11->get_SubKeys()->get_Count(), 0);
       }},
      {"enumeration",
       [] {
         Variant subs(Key(u"Software\\L")->get_SubKeys());
         Ref<Enumerator> e = RefCast<SubKeysCollection>(subs.AsObject())->NewEnum();
         int n = 0;
         ForEach(subs, [&](const Variant& k) { n += GetProperty(GetProperty(k, u"SubKeys"), u"Count").AsLong(); });
         EXPECT_EQ(n, 2);
         subs = Variant();
         Variant first;
         EXPECT_TRUE(e->Next(first));  // the enumerator keeps its snapshot
       }},
      {"add and remove",
       [] {
         auto subs = Key(u"Software\\L")->get_SubKeys();
         subs->Add(u"c")->get_SubKeys()->Add(u"c1");
         subs->get_Item(Variant(u"c"))->DeleteKey(true);
       }},
      {"refresh",
       [] {
         auto k = Key(u"Software\\L");
         auto old = k->get_SubKeys()->get_Item(Variant(1));
         old->get_SubKeys();
         k->get_SubKeys()->Refresh();
         k->get_SubKeys()->Refresh();
       }},
      {"recursive delete", [] { Key(u"Software\\L\\a")->DeleteKey(true); }},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    r.use();
    ExpectAllReleased();
  }
}

TEST_F(LifetimeTest, APartHeldAloneStaysUsable) {
  Ref<KivRegistryKey> entry;
  Ref<SubKeysCollection> subs;
  {
    auto k = Key(u"Software\\L");
    subs = k->get_SubKeys();
    entry = subs->get_Item(Variant(u"b"));
  }
  EXPECT_EQ(KivRegistryKey::LiveInstances(), keys_ + 2);  // the entries a and b, not the parent
  EXPECT_TRUE(subs->Add(u"new"));  // the parent's location was kept
  EXPECT_TRUE(KeyExists("Software\\L\\new"));
  subs.reset();
  EXPECT_FALSE(entry->get_IsOwned());  // its collection is gone
  EXPECT_FALSE(entry->SetValue(u"v", Variant(1)));
  entry.reset();
  ExpectAllReleased();

  subs = Key(u"Software\\L")->get_SubKeys();
  subs->Refresh();
  EXPECT_EQ(subs->get_Count(), 3);
  subs.reset();
  ExpectAllReleased();
}

}  // namespace
}  // namespace tarvo2
