// Calls by name through the type tables: binding of positional, named,
// omitted and by-reference arguments, property kinds, and the errors that
// bad calls get.
#include <gtest/gtest.h>

#include "tarvo2/class_registry.h"
#include "tarvo2/dispatch.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

class Sample : public Object {
 public:
  static const TypeInfo& Info() {
    static const TypeInfo info =
        ClassBuilder<Sample>(u"Sample")
            .Get(u"Value", &Sample::get_Value, u"The text")
            .Let(u"Value", &Sample::put_Value, u"The text")
            .Method(u"Join", &Sample::Join, u"Joins three texts",
                    {P(u"sA"), P(u"sB", u"-"), Opt(u"vC")})
            .Method(u"Bump", &Sample::Bump, u"Adds one to its argument", {P(u"nValue")})
            .Get(u"Child", &Sample::get_Child, u"The child object")
            .Set(u"Child", &Sample::putref_Child, u"The child object")
            .Method(u"Twice", [](Sample&, std::int32_t n) { return n * 2; }, u"Doubles", {P(u"n")})
            .Method(u"Peek", [](Sample&, bool b) { return !b; }, u"Reads a by-reference flag",
                    {P(u"bFlag", true).InOut()})
            .Build();
    return info;
  }
  const TypeInfo& GetTypeInfo() const override { return Info(); }

  Variant get_Value() { return value_; }
  void put_Value(const Variant& v) { value_ = Variant(ToString(v)); }
  String Join(String a, String b, const Variant& c) {
    return a + b + (c.IsMissing() ? String(u"<missing>") : ToString(c));
  }
  void Bump(Variant& n) { n = Variant(ToLong(n) + 1); }
  Ref<Object> get_Child() { return child_; }
  void putref_Child(Ref<Object> c) { child_ = std::move(c); }

 private:
  Variant value_{String()};
  Ref<Object> child_;
};

TEST(Dispatch, BindsPositionalNamedAndOmittedArguments) {
  Variant s{MakeRef<Sample>()};
  EXPECT_EQ(Call(s, u"join", {u"a"}), Variant(u"a-<missing>"));
  EXPECT_EQ(Call(s, u"JOIN", {u"a", u"+", 5}), Variant(u"a+5"));
  EXPECT_EQ(Call(s, u"Join", {Named(u"vC", true), Named(u"sa", u"x")}), Variant(u"x-True"));
  EXPECT_EQ(Call(s, u"Join", {u"a", Omitted(), u"c"}), Variant(u"a-c"));
  EXPECT_EQ(Call(s, u"Twice", {u"21"}), Variant(42));
}

TEST(Dispatch, ByReferenceArgumentsAreWrittenBack) {
  Variant s{MakeRef<Sample>()};
  Variant n(41);
  Call(s, u"Bump", {ByRef(n)});
  EXPECT_EQ(n, Variant(42));
  Variant m(1);
  Call(s, u"Bump", {Arg(m)});  // by value: the caller's copy stays
  EXPECT_EQ(m, Variant(1));
  // A parameter that is by reference but only read converts a copy.
  Variant flag(u"False");
  EXPECT_EQ(Call(s, u"Peek", {ByRef(flag)}), Variant(true));
  EXPECT_EQ(flag, Variant(u"False"));
  EXPECT_EQ(Call(s, u"Peek"), Variant(false));
  EXPECT_TRUE(Sample::Info().FindByName(u"Peek", InvokeKind::kMethod)->params[0].by_ref);
}

TEST(Dispatch, PropertiesAndTheDefaultMember) {
  Ref<Sample> obj = MakeRef<Sample>();
  Variant s{obj};
  LetProperty(s, u"value", 12);
  EXPECT_EQ(GetProperty(s, u"Value"), Variant(u"12"));
  EXPECT_EQ(ToString(s), u"12");  // through the default member
  Ref<Sample> child = MakeRef<Sample>();
  SetProperty(s, u"Child", Variant(child));
  EXPECT_EQ(GetProperty(s, u"Child").AsObject().get(), child.get());
  EXPECT_EQ(obj->GetIdOfName(u"VALUE"), kDispIdValue);
}

TEST(Dispatch, BadCallsRaiseTheRuntimeErrors) {
  Variant s{MakeRef<Sample>()};
  struct Row {
    const char* what;
    std::function<void()> call;
    std::int32_t number;
  } rows[] = {
      {"unknown member", [&] { Call(s, u"Nope"); }, 438},
      {"required argument left out", [&] { Call(s, u"Join"); }, 449},
      {"too many arguments", [&] { Call(s, u"Join", {1, 2, 3, 4}); }, 450},
      {"unknown named argument", [&] { Call(s, u"Join", {u"a", Named(u"zz", 1)}); }, 448},
      {"argument of the wrong type", [&] { Call(s, u"Twice", {u"abc"}); }, 13},
      {"Null for a Long", [&] { Call(s, u"Twice", {Variant::Null()}); }, 94},
      {"overflowing Long", [&] { Call(s, u"Twice", {1e10}); }, 6},
      {"Let of a read-only member", [&] { LetProperty(s, u"Join", 1); }, 438},
      {"Set of a non-object", [&] { SetProperty(s, u"Child", 5); }, 13},
      {"call on Nothing", [&] { Call(Variant::Nothing(), u"Join"); }, 91},
      {"call on a number", [&] { Call(Variant(5), u"Join"); }, 424},
  };
  for (auto& row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_ERROR(row.call(), row.number, StandardDescription(row.number), u"Tarvo2");
  }
}

TEST(Dispatch, TypeInformationDescribesTheMembers) {
  const TypeInfo& ti = Sample::Info();
  const MemberInfo* join = ti.FindByName(u"join", InvokeKind::kMethod);
  ASSERT_NE(join, nullptr);
  ASSERT_EQ(join->params.size(), 3u);
  EXPECT_EQ(join->params[1].name, u"sB");
  EXPECT_TRUE(join->params[1].optional);
  EXPECT_EQ(*join->params[1].default_value, Variant(u"-"));
  EXPECT_FALSE(join->params[2].default_value.has_value());
  EXPECT_EQ(join->result, VarType::kString);
  EXPECT_EQ(ti.FindByName(u"Bump", InvokeKind::kMethod)->params[0].by_ref, true);
  EXPECT_EQ(ti.IdOfName(u"child"), ti.FindByName(u"Child", InvokeKind::kSet)->id);
}

TEST(Dispatch, RegistryCreatesByProgIdAndRefusesOthers) {
  ClassRegistry reg;
  reg.Register(u"Test", Sample::Info(), [] { return Ref<Object>(MakeRef<Sample>()); });
  Ref<Object> o = reg.Create(u"test.sample");
  EXPECT_EQ(o->ClassName(), u"Sample");
  EXPECT_ERROR(reg.Create(u"Test.Other"), 429, u"ActiveX component can't create object", u"Tarvo2");
}

// A Sample handed out under another interface: it answers QueryInterface
// as the Sample does, as a store's common-interface view does.
class SampleView : public Object {
 public:
  explicit SampleView(Ref<Sample> s) : s_(std::move(s)) {}
  const TypeInfo& GetTypeInfo() const override { return Sample::Info(); }
  Ref<Object> QueryInterface(StringView name) override { return s_->QueryInterface(name); }

 private:
  Ref<Sample> s_;
};

TEST(Dispatch, SameObjectComparesIdentityThroughViews) {
  auto s = MakeRef<Sample>();
  Variant a{s}, view{MakeRef<SampleView>(s)}, view2{MakeRef<SampleView>(s)}, other{MakeRef<Sample>()},
      form{MakeRef<DynamicObject>(u"Form")}, nothing = Variant::Nothing();
  struct Row { const char* name; const Variant &x, &y; bool same; } rows[] = {
      {"itself", a, a, true},           {"object and its view", a, view, true},
      {"two views", view, view2, true}, {"another object", a, other, false},
      {"a view and another", view, other, false}, {"a client object", form, form, true},
      {"Nothing twice", nothing, nothing, true}, {"Nothing and an object", view, nothing, false}};
  for (const Row& r : rows) {
    EXPECT_EQ(SameObject(r.x, r.y), r.same) << r.name;
    EXPECT_EQ(SameObject(r.y, r.x), r.same) << r.name;
  }
  EXPECT_ERROR(SameObject(a, 1), 424, StandardDescription(424), u"Tarvo2");
  EXPECT_ERROR(SameObject(Variant(), nothing), 424, StandardDescription(424), u"Tarvo2");
}

TEST(Dispatch, DynamicObjectsCreatePropertiesOnAssignment) {
  Variant form{MakeRef<DynamicObject>(u"Form")};
  LetProperty(form, u"Top", 10);
  EXPECT_EQ(GetProperty(form, u"top"), Variant(10));
  EXPECT_EQ(form.AsObject()->GetIdOfName(u"vALUE"), kDispIdValue);  // the default member, in any letter case
  EXPECT_ERROR(GetProperty(form, u"Left"), 438, StandardDescription(438), u"Tarvo2");
  EXPECT_EQ(TypeName(form), u"Form");
}

}  // namespace
}  // namespace tarvo2
