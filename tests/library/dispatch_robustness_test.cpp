// Every member of every class, called by name with odd arguments: each call
// either succeeds or raises a tarvo2::Error; none crashes, hangs or throws
// anything else. The type information must also be well formed.
#include <gtest/gtest.h>

#include "tarvo2/tarvo2.h"
#include "tarvo2/testing/file_system.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

struct SilentBox : MessageBoxService {
  void Show(StringView, StringView, std::int32_t) override {}
};

class DispatchRobustness : public ::testing::Test {
 protected:
  void SetUp() override {
    services_->set_registry_location(":memory:");
    services_->set_file_system(fs_);
    ASSERT_TRUE(fs_->CreateDir("/cfg").ok());
    services_->set_message_box(std::make_shared<SilentBox>());
  }
  std::shared_ptr<FileSystem> fs_ = NewMemFileSystem();
  std::shared_ptr<Services> services_ = Services::New();
};

// A live object of each class, set up so that its members reach real work.
std::vector<Ref<Object>> Subjects(const std::shared_ptr<Services>& services_) {
  std::vector<Ref<Object>> out;
  Variant ss(CreateObject(u"Tarvo2.KivStorageString", services_));
  Call(ss, u"SetValue", {u"a", u"1\t2"});
  out.push_back(ss.AsObject());
  Variant key(CreateObject(u"Tarvo2.KivRegistryKey", services_));
  LetProperty(key, u"KeyName", u"Software\\Robust");
  Call(key, u"SetValue", {u"v", 5});
  Call(GetProperty(key, u"SubKeys"), u"Add", {u"child"});
  out.push_back(key.AsObject());
  out.push_back(GetProperty(key, u"SubKeys").AsObject());
  Variant ini(CreateObject(u"Tarvo2.KivINIFileHandler", services_));
  LetProperty(ini, u"Path", u"/cfg/robust.ini");
  Call(ini, u"SetValue", {u"k", u"v"});
  out.push_back(ini.AsObject());
  out.push_back(CreateObject(u"Tarvo2.TarvoStdInterface", services_));
  out.push_back(CreateObject(u"Tarvo2.TarvoLibrary", services_));
  return out;
}

std::vector<std::vector<Arg>> OddArgumentLists() {
  Variant form(MakeRef<DynamicObject>(u"Form"));
  return {
      {}, {Variant()}, {Variant::Null()}, {Variant(u"")}, {Variant(u"x"), Variant(u"y")}, {Variant(-1)},
      {Variant(1e300)}, {Variant(2147483647)}, {Variant::Nothing()}, {form}, {Variant(SafeArray::OfStrings({}))},
      {Variant(SafeArray(VarType::kString))}, {Variant(SafeArray::OfVariants({Variant(1), Variant::Null()}))},
      {Variant(u"a"), Variant(u"b"), Variant(u"c"), Variant(u"d"), Variant(u"e"), Variant(u"f"), Variant(u"g"),
       Variant(u"h")},
      {Named(u"nosuchparameter", 1)},
  };
}

TEST_F(DispatchRobustness, OddCallsRaiseErrorsAndNeverCrash) {
  for (bool raise : {true, false}) {
    services_->set_raise_errors(raise);
    for (const Ref<Object>& obj : Subjects(services_)) {
      const TypeInfo& ti = obj->GetTypeInfo();
      for (const MemberInfo& m : ti.members) {
        for (const auto& list : OddArgumentLists()) {
          SCOPED_TRACE(ToUtf8(ti.name + u"." + m.name) + " with " + std::to_string(list.size()) + " argument(s)");
          if (m.kind == InvokeKind::kLet || m.kind == InvokeKind::kSet) {
            if (list.empty()) continue;  // a put always carries its value
          }
          // Deleting keys and files is allowed; the subjects are rebuilt per
          // class in the next round anyway.
          try {
            Invoke(Variant(obj), m.name, m.kind, CallArgs(list));
          } catch (const Error& e) {
            EXPECT_NE(e.Number(), 0);
            EXPECT_FALSE(e.Description().empty());
          } catch (const std::exception& e) {
            ADD_FAILURE() << "not a tarvo2::Error: " << e.what();
          }
        }
      }
    }
  }
}

TEST_F(DispatchRobustness, TypeInformationIsWellFormed) {
  for (const String& id : LibraryClasses().ProgIds()) {
    const TypeInfo* ti = LibraryClasses().Find(id);
    ASSERT_NE(ti, nullptr);
    SCOPED_TRACE(ToUtf8(id));
    EXPECT_EQ(u"Tarvo2." + ti->name, id);
    for (const MemberInfo& m : ti->members) {
      SCOPED_TRACE(ToUtf8(m.name));
      EXPECT_FALSE(m.name.empty());
      EXPECT_EQ(ti->IdOfName(m.name), m.id);
      EXPECT_TRUE(m.invoke);
      bool optional_seen = false;
      for (const ParamInfo& p : m.params) {
        EXPECT_FALSE(p.name.empty());
        if (p.optional) optional_seen = true;
        // Optional parameters come last, except the value of a property put.
        if (optional_seen && !p.optional && !(m.kind == InvokeKind::kLet || m.kind == InvokeKind::kSet))
          ADD_FAILURE() << "required parameter " << ToUtf8(p.name) << " after an optional one";
        if (p.default_value && !p.optional) ADD_FAILURE() << "default on a required parameter";
      }
      // Members of one name are properties of one kind each, or one method.
      int same = 0;
      for (const MemberInfo& o : ti->members)
        if (EqualsNoCase(o.name, m.name) && o.kind == m.kind) ++same;
      EXPECT_EQ(same, 1);
    }
  }
}

}  // namespace
}  // namespace tarvo2
