// The two classes through dispatch: type information and late-bound calls.
#include <vector>

#include "registry_test_util.h"

namespace tarvo2 {
namespace {

class RegistryDispatchTest : public RegistryTest {};

String Describe(const MemberInfo& m) {
  const char16_t* kinds[] = {u"", u"M", u"G", u"", u"L", u"", u"", u"", u"S"};
  String s = m.name + u":" + kinds[static_cast<int>(m.kind)] + u"(";
  for (const ParamInfo& p : m.params) {
    s += p.name;
    if (p.by_ref) s += u"&";
    if (p.optional) s += p.default_value ? u"=" + ToString(*p.default_value) : String(u"?");
    s += u",";
  }
  return s + u")";
}

TEST_F(RegistryDispatchTest, MembersAreListedInSlotOrderWithTheirParameters) {
  struct Row { const TypeInfo& info; bool creatable; std::vector<String> members; };
  const Row rows[] = {
      {KivRegistryKey::Info(), true,
       {u"RootKey:L(eNewValue,)", u"RootKey:G()", u"KeyName:L(sNewValue,)", u"KeyName:G()", u"Value:G()",
        u"Value:L(vNewValue,)", u"ErrorState:G()", u"SubKeys:G()", u"IsOwned:G()", u"Version:M(bShow=False,)",
        u"ErrorStateClear:M()", u"SetValue:M(sValueName,vValue,sArrayDelim&=\t,)",
        u"GetValue:M(sValueName,sArrayDelim=\t,bDetectArray=True,bDetectNum=True,vDefaultReturn?,)",
        u"DeleteValue:M(sValueName,)", u"DeleteKey:M(bRecursive=False,)", u"GetValueNames:M()",
        u"Invalidated:G()"}},
      {SubKeysCollection::Info(), false,
       {u"Refresh:M()", u"Add:M(sSubKeyName,)", u"Item:G(vIndexKey,)", u"Count:G()", u"NewEnum:G()"}},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.info.name));
    EXPECT_EQ(r.info.creatable, r.creatable);
    std::vector<String> got;
    for (const MemberInfo& m : r.info.members) got.push_back(Describe(m));
    EXPECT_EQ(got, r.members);
  }
  const TypeInfo& key = KivRegistryKey::Info();
  EXPECT_EQ(key.IdOfName(u"value"), kDispIdValue);
  EXPECT_EQ(key.FindByName(u"KeyName", InvokeKind::kGet)->help, u"The Key the KivRegistry Objectc reprisents");
  const TypeInfo& subs = SubKeysCollection::Info();
  EXPECT_EQ(subs.IdOfName(u"Item"), kDispIdValue);
  EXPECT_EQ(subs.IdOfName(u"NewEnum"), kDispIdNewEnum);
  EXPECT_TRUE(subs.FindByName(u"NewEnum", InvokeKind::kGet)->hidden);
}

TEST_F(RegistryDispatchTest, LateBoundCallsReachTheMembers) {
  Variant key(KivRegistryKey::Create());
  LetProperty(key, u"RootKey", Variant(static_cast<std::int32_t>(HKEY_LOCAL_MACHINE)));
  LetProperty(key, u"KeyName", Variant(u"Software\\Late"));
  Variant delimiter(u";");
  EXPECT_EQ(Call(key, u"SetValue", {u"list", SafeArray::OfStrings({u"a", u"b"}), ByRef(delimiter)}), Variant(false));
  EXPECT_EQ(Raw("Software\\Late", "list", kHKeyLocalMachine).second, std::string("a;b\0", 4));
  EXPECT_EQ(Call(key, u"GetValue", {u"list", Omitted(), Named(u"bDetectArray", false)}), Variant(u"a;b"));
  EXPECT_EQ(Call(key, u"GetValue", {u"nope", Named(u"vDefaultReturn", 7)}), Variant(7));
  EXPECT_ERROR(Call(key, u"GetValue", {u"nope"}), LibNumber(ErrBadKey), u"Bad Key",
               Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.QueryValueEx",
                      u"KivRegistryKey.QueryValue", u"KivRegistryKey.GetValue"}));
  // Reads that fell back on a default or failed did not replace the name
  // and delimiter of the last read of "list" (a tab), so Value writes there.
  LetProperty(key, u"Value", Variant(SafeArray::OfStrings({u"x", u"y"})));
  EXPECT_EQ(Raw("Software\\Late", "list", kHKeyLocalMachine).second, std::string("x\ty\0", 4));
  EXPECT_EQ(GetProperty(key, u"ErrorState"), Variant(0));
  EXPECT_EQ(Call(key, u"GetValueNames"), Variant(SafeArray::OfStrings({u"list"})));
}

TEST_F(RegistryDispatchTest, TheCollectionEnumeratesAndIndexesByName) {
  Variant key(Key(u"Software\\Coll"));
  Variant subs = GetProperty(key, u"SubKeys");
  Call(subs, u"Add", {u"one"});
  Call(subs, u"Add", {u"two"});
  std::vector<String> seen;
  ForEach(subs, [&](const Variant& k) { seen.push_back(GetProperty(k, u"KeyName").AsString()); });
  EXPECT_EQ(seen, (std::vector<String>{u"Software\\Coll\\one", u"Software\\Coll\\two"}));
  EXPECT_EQ(GetProperty(subs, u"Count"), Variant(2));
  CallArgs two{Variant(u"TWO")};
  Variant item = subs.AsObject()->Invoke(kDispIdValue, InvokeKind::kGet, two);
  EXPECT_EQ(GetProperty(item, u"IsOwned"), Variant(true));
  Call(item, u"DeleteKey");
  EXPECT_EQ(GetProperty(item, u"Invalidated"), Variant(true));
  EXPECT_EQ(GetProperty(subs, u"Count"), Variant(1));
  EXPECT_ERROR(GetProperty(subs, u"Item", {Variant(5)}), 9, u"Subscript out of range",
               Chain({u"Tarvo2", u"SubKeysCollection.Item (Get)"}));
}

}  // namespace
}  // namespace tarvo2
