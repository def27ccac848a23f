// Fields: the text format, validation, reading with detection, deletion,
// name listing, concatenation and toggling.
#include <gtest/gtest.h>

#include "ss_test_util.h"

namespace tarvo2 {
namespace {

using namespace sstest;

TEST(StorageStringFields, WritesTheDocumentedFormatAndEditsInPlace) {
  auto ss = KivStorageString::Create();
  EXPECT_TRUE(ss->SetValue(u"Colour", u"Red"));
  EXPECT_EQ(ss->PageText(), u"<\\Colour={Red};/>");
  ss->SetValue(u"Size", 12);
  EXPECT_EQ(ss->get_Value(), Variant(u"<\\Colour={Red};/><\\Size={12};/>"));
  ss->SetValue(u"Colour", u"Blue");
  EXPECT_EQ(ss->PageText(), u"<\\Colour={Blue};/><\\Size={12};/>");
  ss->SetValue(u"  Pad  ", u"x");
  EXPECT_EQ(ss->GetValue(u"Pad"), Variant(u"x"));
  EXPECT_TRUE(ss->GetValue(u"  Pad  ").IsMissing());  // reading does not trim
  EXPECT_TRUE(ss->GetValue(u"colour").IsMissing());   // nor ignore case
}

TEST(StorageStringFields, ReadsBackWithDetection) {
  struct Row {
    Variant stored;
    bool detect_array, detect_number;
    Variant expected;
  } rows[] = {
      {Longs({1, 2, 3}), true, true, Longs({1, 2, 3})},
      {SafeArray::OfVariants({1, 1.5, 3}), true, true, SafeArray::Of(VarType::kDouble, {1.0, 1.5, 3.0})},
      {Longs({1, 2, 3}), false, true, Variant(u"1\t2\t3")},
      {Variant(u"007"), true, true, Variant(7)},
      {Variant(u"007"), true, false, Variant(u"007")},
      {Variant(u"a;b}c/d>"), true, true, Variant(u"a;b}c/d>")},  // lone tag characters are legal
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::PrintToString(r.stored));
    auto ss = KivStorageString::Create();
    ss->SetValue(u"f", r.stored);
    EXPECT_EQ(ss->GetValue(u"f", u"\t", r.detect_array, r.detect_number), r.expected);
  }
  auto ss = KivStorageString::Create();
  EXPECT_EQ(ss->GetValue(u"none", u"\t", true, true, 5), Variant(5));
}

TEST(StorageStringFields, RejectsTagTextsAndKeepsThePage) {
  struct Row {
    String name, value, delimiter;
  } rows[] = {{u"a", u"x/>y", u"\t"}, {u"a={", u"v", u"\t"}, {u"a", u"v", u"};"}, {u"a", u"<\\", u","}};
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.name + u"|" + r.value + u"|" + r.delimiter));
    auto ss = KivStorageString::Create();
    ss->SetValue(u"keep", u"1");
    EXPECT_SS_ERROR(ss->SetValue(r.name, r.value, r.delimiter), Lib(ErrIllegalCharacters), u"ValidateString",
                    u"SetValue");
    EXPECT_EQ(ss->PageText(), u"<\\keep={1};/>");
    RaiseSwitchOff off;
    EXPECT_FALSE(ss->SetValue(r.name, r.value, r.delimiter));  // dropped, never stored ambiguously
    EXPECT_EQ(ss->PageText(), u"<\\keep={1};/>");
  }
  auto ss = KivStorageString::Create();
  ss->put_OuterTagStart(u"[");
  EXPECT_SS_ERROR(ss->SetValue(u"a", u"x[y"), Lib(ErrIllegalCharacters), u"ValidateString", u"SetValue");
}

TEST(StorageStringFields, BlankNameIsRefusedUnlessTheSwitchIsOff) {
  auto ss = KivStorageString::Create();
  EXPECT_ERROR(ss->SetValue(u"   ", u"v"), -2147211482, u"Zero Length Feild Names Are Not Allowed",
               u"Tarvo2\r\nKivStorageString.SetValue");
  EXPECT_EQ(ss->PageText(), u"");
  EXPECT_SS_ERROR(ss->SetValue(u"n", Variant::Null()), err::kInvalidUseOfNull, u"SetValue");
  RaiseSwitchOff off;
  EXPECT_TRUE(ss->SetValue(u"  ", u"v"));
  EXPECT_EQ(ss->PageText(), u"<\\={v};/>");
}

TEST(StorageStringFields, DeletesAndListsFields) {
  auto ss = KivStorageString::Create();
  EXPECT_EQ(ss->GetFieldNames().Count(), 0u);
  EXPECT_TRUE(ss->GetFieldNames().IsSized());
  ss->SetValue(u"a", u"1");
  ss->SetValue(u"b", u"2");
  EXPECT_EQ(Strings(ss->GetFieldNames()), (std::vector<String>{u"a", u"b"}));
  ss->DeleteField(u"a");
  EXPECT_EQ(ss->PageText(), u"<\\b={2};/>");
  EXPECT_SS_ERROR(ss->DeleteField(u"a"), Lib(ErrFieldNotFound), u"DeleteValue");
  {
    RaiseSwitchOff off;
    ss->DeleteField(u"zz");
  }
  ss->DeleteField(u"b");
  EXPECT_EQ(ss->PageText(), u"");
}

TEST(StorageStringFields, ScansOfDamagedTextOrEmptyTagsEnd) {
  auto ss = KivStorageString::Create();
  ss->put_Value(u"<\\a={1};/><\\b={2}");  // b has no end
  EXPECT_EQ(Strings(ss->GetFieldNames()), (std::vector<String>{u"a", u"b"}));
  EXPECT_SS_ERROR(ss->GetValue(u"b"), err::kInvalidProcedureCall, u"SSParseValue", u"GetValue");
  EXPECT_SS_ERROR(ss->DeleteField(u"b"), err::kInvalidProcedureCall, u"SSDeleteValue", u"DeleteValue");
  EXPECT_EQ(ss->PageText(), u"<\\a={1};/><\\b={2}");
  ss->put_OuterTagStart(u"");
  ss->put_OuterTagEnd(u"");
  EXPECT_LE(ss->GetFieldNames().Count(), 2u);  // terminates
  ss->put_OuterTagStart(u"#");
  EXPECT_TRUE(ss->GetValue(u"a").IsMissing());  // old fields are no longer found
  ss->SetValue(u"c", u"3");
  EXPECT_EQ(ss->PageText(), u"<\\a={1};/><\\b={2}#c={3};");
}

TEST(StorageStringFields, ConcatenatesFieldsOfAStringList) {
  auto ss = KivStorageString::Create();
  ss->SetValue(u"x", 1);
  ss->SetValue(u"y", 2);
  EXPECT_EQ(ss->GetAndConcatenate(SafeArray::OfStrings({u"x", u"y"})), u"12");
  EXPECT_EQ(ss->GetAndConcatenate(SafeArray::OfStrings({u"x", u"y", u"x"}), u", "), u"1, 2, 1");
  EXPECT_EQ(ss->GetAndConcatenate(SafeArray::OfVariants({u"x", u"y"})), u"");
  EXPECT_EQ(ss->GetAndConcatenate(u"y"), u"2");
  EXPECT_SS_ERROR(ss->GetAndConcatenate(SafeArray::OfStrings({u"x", u"nope"})), err::kTypeMismatch,
                  u"GetAndConcatenate");
}

TEST(StorageStringFields, TogglesThroughACycle) {
  struct Row {
    const char16_t* field;  // nullptr: toggle the whole page
    Variant stored, list;
    const char16_t* delimiter;
    bool case_sensitive;
    String expected;  // "" = nothing changes
  } rows[] = {
      {u"f", u"C", u"", u"\t", true, u"D"},         {u"f", u"Z", u"", u"\t", true, u"A"},
      {u"f", u"??", u"", u"\t", true, u""},         {u"f", u"Off", u"On,Off", u",", true, u"On"},
      {u"f", u"off", u"On,Off", u",", false, u"ON"}, {nullptr, u"B", u"", u"\t", true, u"C"},
      {u"missing", Variant(), u"", u"\t", true, u""},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::PrintToString(r.stored));
    auto ss = KivStorageString::Create();
    if (r.field == nullptr)
      ss->put_Value(r.stored);
    else if (!r.stored.IsEmpty())
      ss->SetValue(r.field, r.stored);
    const String before = ss->PageText();
    EXPECT_EQ(ss->Toggle(r.field ? r.field : u"", r.list, r.delimiter, r.case_sensitive), r.expected);
    if (r.expected.empty())
      EXPECT_EQ(ss->PageText(), before);
    else if (r.field == nullptr)
      EXPECT_EQ(ss->PageText(), r.expected);
    else
      EXPECT_EQ(ss->GetValue(r.field, u"\t", false, false), Variant(r.expected));
  }
  auto ss = KivStorageString::Create();
  EXPECT_EQ(ss->get_ToggleValues().size(), 51u);
  ss->put_ToggleValues(u"");
  ss->put_ToggleDelimiter(u"");
  EXPECT_EQ(ss->get_ToggleValues().substr(0, 4), u"A\tB\t");
  EXPECT_EQ(ss->get_ToggleDelimiter(), u"\t");
}

}  // namespace
}  // namespace tarvo2
