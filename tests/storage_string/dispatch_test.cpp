// The automation interface of KivStorageString: its type information and
// late-bound calls.
#include <gtest/gtest.h>

#include "ss_test_util.h"

namespace tarvo2 {
namespace {

using namespace sstest;

TEST(StorageStringDispatch, MembersInSlotOrder) {
  const TypeInfo& info = KivStorageString::Info();
  EXPECT_EQ(info.name, u"KivStorageString");
  EXPECT_TRUE(info.creatable);
  String listed;
  for (const MemberInfo& m : info.members) {
    const char16_t* kind = m.kind == InvokeKind::kGet   ? u"<"
                           : m.kind == InvokeKind::kLet ? u">"
                           : m.kind == InvokeKind::kSet ? u"=" : u"";
    listed += kind + m.name + u" ";
    EXPECT_FALSE(m.help.empty()) << ToUtf8(m.name);
  }
  EXPECT_EQ(listed,
            u"<Value <OuterTagStart >OuterTagStart <OuterTagEnd >OuterTagEnd <InnerTagStart >InnerTagStart "
            u"<InnerTagEnd >InnerTagEnd <ToggleValues >ToggleValues <ToggleDelimiter >ToggleDelimiter SetValue "
            u"GetValue GetFieldNames DeleteField GetAndConcatenate Toggle <Page >Page <PageName >PageName "
            u"<PageCount <MultiPage >MultiPage >EncryptionKey >Encrypted Clear AddPage DeletePage GetPageNames "
            u"<BindMode >BindMode <BoundObject =BoundObject <Protect >Protect <Cursor >Cursor <LineCount "
            u"<LineNumber >LineNumber FetchLine InsertText ExtractText <LastExtraction LookFor Find Replace Load "
            u"Save >Value Version ");
  EXPECT_EQ(info.IdOfName(u"value"), kDispIdValue);
}

TEST(StorageStringDispatch, ParametersAndDefaults) {
  const TypeInfo& info = KivStorageString::Info();
  struct Row {
    const char16_t* member;
    String params;  // name, "?" when optional, "=" default
  } rows[] = {
      {u"SetValue", u"sField vValue sDelimiter?=\t"},
      {u"GetValue", u"sFieldName sArrayDelim?=\t bDetectArray?=True bDetectNum?=True vReturn?"},
      {u"Toggle", u"sFieldName?= sToggle?= sDelimiter?=\t bCaseSensitive?=True"},
      {u"AddPage", u"sPageName?= bMakeCurrentPage?=True"},
      {u"FetchLine", u"nLineNumber?=-1 bUseLastExtraction?=False"},
      {u"InsertText", u"sText nCursor?=0"},
      {u"ExtractText", u"vFirstPoint vSecondPoint bStartFromCursor?=False"},
      {u"LookFor", u"vText bCaseSensitive?=True bStartFromCursor?=True bUseLastExtraction?=False"},
      {u"Find", u"sSearchFor?= bStartFromCursor?=True bCaseSensitive?=True bUseLastExtraction?=False "
                u"eSearchDirection?=1"},
      {u"Replace", u"sSearchFor?= sReplaceWith?= bStartFromCursor?=True bCaseSensitive?=True "
                   u"bReplaceAll?=False bUseLastExtraction?=False eSearchDirection?=1"},
      {u"Load", u"sFileName bAppend?=False"},
      {u"Version", u"bShow?=False"},
  };
  for (const Row& r : rows) {
    const MemberInfo* m = info.FindByName(r.member, InvokeKind::kMethod);
    ASSERT_NE(m, nullptr) << ToUtf8(r.member);
    String got;
    for (const ParamInfo& p : m->params) {
      if (!got.empty()) got += u" ";
      got += p.name;
      if (p.optional) got += u"?";
      if (p.default_value) got += u"=" + ToString(*p.default_value);
    }
    EXPECT_EQ(got, r.params) << ToUtf8(r.member);
  }
  EXPECT_EQ(info.FindByName(u"Page", InvokeKind::kLet)->params[0].name, u"vNameOrNumber");
  EXPECT_EQ(info.FindByName(u"LineNumber", InvokeKind::kLet)->params[0].name, u"nLineNumber");
}

TEST(StorageStringDispatch, LateBoundCallsReachTheStore) {
  Variant ss{KivStorageString::Create()};
  EXPECT_EQ(Call(ss, u"setvalue", {u"Colour", u"Red"}), Variant(true));
  EXPECT_EQ(Call(ss, u"GetValue", {u"Colour", Named(u"vReturn", 0)}), Variant(u"Red"));
  EXPECT_TRUE(Call(ss, u"GetValue", {u"none"}).IsMissing());
  EXPECT_EQ(ToString(ss), u"<\\Colour={Red};/>");  // the default property
  LetProperty(ss, u"Value", u"abcabc");
  Call(ss, u"AddPage", {Named(u"bMakeCurrentPage", false), Named(u"sPageName", u"Two")});
  LetProperty(ss, u"Page", u"two");
  EXPECT_EQ(GetProperty(ss, u"Page"), Variant(2));
  LetProperty(ss, u"Page", 1);
  Variant found = Call(ss, u"LookFor", {SafeArray::OfStrings({u"bc", u"c"})});
  ASSERT_EQ(found.AsArray().Count(), 2u);
  EXPECT_EQ(TypeName(found), u"KivSSLookForResults()");
  EXPECT_EQ(GetProperty(found.AsArray().At(1), u"Hits"), Variant(2));
  EXPECT_EQ(GetProperty(found.AsArray().At(0), u"Positions"), Longs({2, 5}));
  EXPECT_EQ(Call(ss, u"Replace", {u"b", u"B", Named(u"bReplaceAll", true)}), Variant(2));
  EXPECT_EQ(Call(ss, u"Find", {u"c", Named(u"eSearchDirection", 0), Named(u"bStartFromCursor", false)}), Variant(6));

  auto box = MakeRef<DynamicObject>();
  box->Put(u"Caption", u"cap");
  LetProperty(ss, u"BindMode", static_cast<std::int32_t>(tarvo_BindModeCaption));
  SetProperty(ss, u"BoundObject", Variant(box));
  EXPECT_EQ(GetProperty(ss, u"Value"), Variant(u"cap"));
  EXPECT_EQ(GetProperty(ss, u"BoundObject").AsObject().get(), box.get());
  SetProperty(ss, u"BoundObject", Variant::Nothing());

  EXPECT_SS_ERROR(Call(ss, u"DeleteField", {u"x"}), Lib(ErrFieldNotFound), u"DeleteValue");
  EXPECT_ERROR_NUMBER(Call(ss, u"SetValue", {u"a"}), err::kArgumentNotOptional);
  EXPECT_ERROR_NUMBER(GetProperty(ss, u"EncryptionKey"), err::kNotSupported);
  EXPECT_EQ(tarvo_BindModeText, 5);
  EXPECT_EQ(tarvo_SearchUp, 0);
}

}  // namespace
}  // namespace tarvo2
