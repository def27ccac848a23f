// Binding to client objects and protected mode.
#include <gtest/gtest.h>

#include "ss_test_util.h"

namespace tarvo2 {
namespace {

using namespace sstest;

Ref<DynamicObject> Control(std::initializer_list<std::pair<const char16_t*, Variant>> props) {
  auto c = MakeRef<DynamicObject>(u"TextBox");
  for (const auto& [name, value] : props) c->Put(name, value);
  return c;
}

TEST(StorageStringBinding, MirrorsTheChosenProperty) {
  auto box = Control({{u"Value", u"hello"}});
  auto ss = KivStorageString::Create();
  ss->putref_BoundObject(box);
  EXPECT_EQ(ss->get_BindMode(), tarvo_BindModeDefaultProperty);
  EXPECT_FALSE(ss->get_MultiPage());
  box->Put(u"Value", 42);
  EXPECT_EQ(ss->get_Value(), Variant(u"42"));
  EXPECT_SS_ERROR(ss->AddPage(), Lib(ErrSinglePageMode), u"Add");

  struct Row {
    BindModeEnum mode;
    const char16_t* property;
  } rows[] = {{tarvo_BindModeTag, u"Tag"}, {tarvo_BindModeValue, u"Value"},
              {tarvo_BindModeCaption, u"Caption"}, {tarvo_BindModeText, u"Text"}};
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.property));
    auto ctl = Control({{r.property, u"<\\old={1};/>"}});
    auto s = KivStorageString::Create();
    s->put_BindMode(r.mode);
    s->putref_BoundObject(ctl);
    EXPECT_EQ(s->GetValue(u"old"), Variant(1));
    s->SetValue(u"f", u"v");
    EXPECT_EQ(*ctl->Find(r.property), Variant(u"<\\old={1};/><\\f={v};/>"));
    ctl->Put(r.property, u"pulled");
    s->InsertText(u"+", 1);  // a write does not pull first
    EXPECT_EQ(*ctl->Find(r.property), Variant(u"+<\\old={1};/><\\f={v};/>"));
    ctl->Put(r.property, u"AB");
    s->put_EncryptionKey(u"\u0001");
    s->put_Encrypted(true);  // pulls, enciphers, pushes
    EXPECT_EQ(*ctl->Find(r.property), Variant(u"@A"));
  }
}

TEST(StorageStringBinding, UnbindingRestoresMultiPage) {
  for (bool before : {true, false}) {
    auto ss = KivStorageString::Create();
    ss->put_MultiPage(before);
    ss->put_BindMode(tarvo_BindModeNone);
    EXPECT_EQ(ss->get_MultiPage(), before);
    ss->put_BindMode(tarvo_BindModeTag);
    ss->putref_BoundObject(Control({{u"Tag", u""}, {u"Text", u""}}));
    ss->put_BindMode(tarvo_BindModeText);
    ss->putref_BoundObject(nullptr);
    EXPECT_EQ(ss->get_MultiPage(), before);
    EXPECT_EQ(ss->get_BindMode(), tarvo_BindModeNone);
    EXPECT_FALSE(ss->get_BoundObject());
  }
}

TEST(StorageStringBinding, ProtectionAndBindingExcludeEachOther) {
  auto ss = KivStorageString::Create();
  ss->putref_BoundObject(Control({{u"Value", u""}}));
  EXPECT_SS_ERROR(ss->put_Protect(true), Lib(ErrProtectWhileBound), u"Protect (Let)");
  ss->putref_BoundObject(nullptr);
  ss->put_Protect(true);
  EXPECT_SS_ERROR(ss->put_BindMode(tarvo_BindModeCaption), Lib(ErrBindWhileProtected), u"BindMode (Let)");
  EXPECT_SS_ERROR(ss->putref_BoundObject(Control({{u"Value", u""}})), Lib(ErrBindWhileProtected),
                  u"BindMode (Let)", u"BoundTagObject (Set)");
  ss->put_BindMode(tarvo_BindModeNone);
  EXPECT_FALSE(ss->get_BoundObject());
  EXPECT_SS_ERROR(ss->put_Value(u"x"), Lib(ErrDirectStringAccess), u"Value (Let)");
  EXPECT_TRUE(ss->SetValue(u"f", u"v"));

  auto odd = KivStorageString::Create();  // a mode outside the enumeration
  odd->put_BindMode(static_cast<BindModeEnum>(9));
  odd->putref_BoundObject(Control({}));  // no property is read or written
  odd->SetValue(u"f", u"v");
  EXPECT_FALSE(odd->get_MultiPage());
  EXPECT_SS_ERROR(odd->put_Protect(true), Lib(ErrProtectWhileBound), u"Protect (Let)");
}

TEST(StorageStringBinding, ABrokenBoundObjectFailsWhateverTheSwitch) {
  auto ss = KivStorageString::Create();
  ss->put_Value(u"kept");
  EXPECT_SS_ERROR(ss->putref_BoundObject(Control({})), err::kNotSupported, u"UpdateFromBoundObject",
                  u"BoundTagObject (Set)");
  EXPECT_EQ(ss->get_BindMode(), tarvo_BindModeNone);  // the binding is undone
  EXPECT_TRUE(ss->get_MultiPage());
  EXPECT_EQ(ss->PageText(), u"kept");
  EXPECT_SS_ERROR(ss->putref_BoundObject(Control({{u"Value", Variant::Null()}})), err::kInvalidUseOfNull,
                  u"UpdateFromBoundObject", u"BoundTagObject (Set)");

  auto ctl = Control({{u"Value", u""}});
  ss->putref_BoundObject(ctl);
  ss->put_BindMode(tarvo_BindModeCaption);  // ctl has no Caption
  RaiseSwitchOff off;
  EXPECT_SS_ERROR(ss->GetValue(u"f"), err::kNotSupported, u"UpdateFromBoundObject", u"GetValue");
}

TEST(StorageStringBinding, CyclesOfBindingsEnd) {
  auto a = KivStorageString::Create();
  auto b = KivStorageString::Create();
  EXPECT_SS_ERROR(a->putref_BoundObject(a), Lib(ErrAlreadyBound), u"BoundTagObject (Set)");
  EXPECT_SS_ERROR(a->putref_BoundObject(a->StdInterface()), Lib(ErrAlreadyBound), u"BoundTagObject (Set)");
  b->putref_BoundObject(a);
  EXPECT_SS_ERROR(a->putref_BoundObject(b), Lib(ErrAlreadyBound), u"BoundTagObject (Set)");
  {
    RaiseSwitchOff off;
    a->putref_BoundObject(a);
    EXPECT_FALSE(a->get_BoundObject());
    a->putref_BoundObject(b);  // two stores bound to each other
    a->SetValue(u"f", u"1");
    b->SetValue(u"g", u"2");
    EXPECT_EQ(a->get_Value(), Variant(u"<\\f={1};/><\\g={2};/>"));
    EXPECT_EQ(b->PageText(), a->PageText());
  }
  auto c = KivStorageString::Create();
  auto d = KivStorageString::Create();  // a -> b (re-bound to c) -> c -> d -> a
  b->putref_BoundObject(c);
  c->putref_BoundObject(d);
  d->putref_BoundObject(a);
  a->Clear();
  d->SetValue(u"x", 5);
  for (auto* s : {a.get(), b.get(), c.get()}) EXPECT_EQ(s->GetValue(u"x"), Variant(5));
  for (auto* s : {a.get(), b.get(), c.get(), d.get()}) s->putref_BoundObject(nullptr);  // break the cycle
}

}  // namespace
}  // namespace tarvo2
