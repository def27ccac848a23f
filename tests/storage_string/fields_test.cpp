// Fields (format, validation, detection, deletion, listing, concatenation,
// toggling), pages and the page cipher.
#include <gtest/gtest.h>

#include "ss_test_util.h"

namespace tarvo2 {
namespace {

using namespace sstest;
using StorageStringFields = Fixture;
using StorageStringPages = Fixture;
using StorageStringCipher = Fixture;

TEST_F(StorageStringFields, WritesTheFormatInPlaceAndReadsNamesExactly) {
  auto ss = NewStore();
  EXPECT_TRUE(ss->SetValue(u"Colour", u"Red"));
  ss->SetValue(u"Size", 12);
  ss->SetValue(u"Colour", u"Blue");  // edited in place
  ss->SetValue(u"  Pad  ", u"x");
  EXPECT_EQ(ss->get_Value(), Variant(u"<\\Colour={Blue};/><\\Size={12};/><\\Pad={x};/>"));
  EXPECT_TRUE(ss->GetValue(u"  Pad  ").IsMissing());  // reading neither trims
  EXPECT_TRUE(ss->GetValue(u"colour").IsMissing());   // nor ignores case
  ss->SetValue(u"f", u"a;b}c/d>");  // lone tag characters are legal
  EXPECT_EQ(ss->GetValue(u"f"), Variant(u"a;b}c/d>"));
}

TEST_F(StorageStringFields, RejectsTagTextsAndBlankNamesKeepingThePage) {
  struct Row { String name, value, delimiter; } rows[] = {
      {u"a", u"x/>y", u"\t"}, {u"a={", u"v", u"\t"}, {u"a", u"v", u"};"}, {u"a", u"<\\", u","}};
  auto ss = Page(u"<\\keep={1};/>");
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.name + u"|" + r.value + u"|" + r.delimiter));
    EXPECT_SS_ERROR(ss->SetValue(r.name, r.value, r.delimiter), Lib(ErrIllegalCharacters), u"ValidateString",
                    u"SetValue");
  }
  EXPECT_SS_ERROR(ss->SetValue(u"n", Variant::Null()), err::kInvalidUseOfNull, u"SetValue");
  EXPECT_EQ(ss->PageText(), u"<\\keep={1};/>");
  RaiseSwitchOff off;
  EXPECT_FALSE(ss->SetValue(u"a", u"x/>y"));  // dropped, never stored ambiguously
  EXPECT_TRUE(ss->SetValue(u"  ", u"v"));
  EXPECT_EQ(ss->PageText(), u"<\\keep={1};/><\\={v};/>");
}

// Through calls by name: a changed tag is legal inside names and values,
// while the four fixed texts stay illegal under any tags.
TEST_F(StorageStringFields, ValidatesTheFixedTextsOnlyAfterTagsChange) {
  struct Row { const char16_t *tag, *text, *name, *value, *page; } rows[] = {
      {u"OuterTagStart", u"[[", u"a", u"[[x", u"[[a={[[x};/>"},
      {u"OuterTagEnd", u"]]", u"a", u"x]]", u"<\\a={x]]};]]"},
      {u"InnerTagStart", u":", u"a", u"b:c", u"<\\a:b:c};/>"}, {u"InnerTagEnd", u"|", u"n|", u"v", u"<\\n|={v|/>"},
      {u"OuterTagStart", u"", u"a", u"x", u"a={x};/>"}};
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(String(r.tag) + u"=" + r.text));
    Variant ss{NewStore()};
    LetProperty(ss, r.tag, r.text);
    EXPECT_EQ(Call(ss, u"SetValue", {r.name, r.value}), Variant(true));
    EXPECT_EQ(GetProperty(ss, u"Value"), Variant(r.page));
    EXPECT_EQ(Call(ss, u"GetValue", {r.name}), Variant(r.value));
    for (const char16_t* bad : {u"<\\x", u"q/>", u"={", u"a};b"}) {
      EXPECT_SS_ERROR(Call(ss, u"SetValue", {u"a", bad}), Lib(ErrIllegalCharacters), u"ValidateString",
                      u"SetValue");
      EXPECT_SS_ERROR(Call(ss, u"SetValue", {bad, u"v"}), Lib(ErrIllegalCharacters), u"ValidateString",
                      u"SetValue");
    }
    EXPECT_EQ(GetProperty(ss, u"Value"), Variant(r.page));
  }
}

TEST_F(StorageStringFields, DeletesListsAndSurvivesDamagedText) {
  auto ss = NewStore();
  EXPECT_TRUE(ss->GetFieldNames().IsSized() && ss->GetFieldNames().Count() == 0);
  for (const char16_t* f : {u"a", u"b", u"c"}) ss->SetValue(f, u"1");
  ss->DeleteField(u"b");
  EXPECT_EQ(ss->PageText(), u"<\\a={1};/><\\c={1};/>");
  EXPECT_SS_ERROR(ss->DeleteField(u"b"), Lib(ErrFieldNotFound), u"DeleteValue");
  ss->put_Value(u"<\\a={1};/><\\b={2}");  // b has no end
  EXPECT_EQ(Strings(ss->GetFieldNames()), (std::vector<String>{u"a", u"b"}));
  EXPECT_SS_ERROR(ss->GetValue(u"b"), err::kInvalidProcedureCall, u"SSParseValue", u"GetValue");
  ss->put_OuterTagStart(u"");
  ss->put_OuterTagEnd(u"");
  EXPECT_LE(ss->GetFieldNames().Count(), 2u);  // terminates
}

TEST_F(StorageStringFields, ConcatenatesAndToggles) {
  auto ss = Page(u"<\\x={1};/><\\y={2};/>");
  EXPECT_EQ(ss->GetAndConcatenate(SafeArray::OfStrings({u"x", u"y", u"x"}), u", "), u"1, 2, 1");
  EXPECT_SS_ERROR(ss->GetAndConcatenate(SafeArray::OfStrings({u"x", u"nope"})), err::kTypeMismatch,
                  u"GetAndConcatenate");
  struct Row { String field, page; Variant list; bool case_sensitive; String result_and_page; };
  const Row rows[] = {{u"f", u"<\\f={Z};/>", u"", true, u"A|<\\f={A};/>"},  // wraps around
                      {u"f", u"<\\f={??};/>", u"", true, u"|<\\f={??};/>"},  // not in the list
                      {u"f", u"<\\f={off};/>", u"On\tOff", false, u"ON|<\\f={ON};/>"},
                      {u"", u"B", u"", true, u"C|C"}};  // the whole page
  for (const Row& r : rows) {
    auto t = Page(r.page);
    EXPECT_EQ(t->Toggle(r.field, r.list, u"\t", r.case_sensitive) + u"|" + t->PageText(), r.result_and_page);
  }
}

// Three pages named "", "Main", "" with page 3 current, holding "abc", the cursor at 3.
Ref<KivStorageString> ThreePages() {
  auto ss = NewStore();
  ss->AddPage(u"Main");
  ss->AddPage();
  ss->put_Value(u"abc");
  ss->put_Cursor(3);
  return ss;
}

TEST_F(StorageStringPages, SelectsByNumberOrName) {
  const std::pair<Variant, std::int32_t> rows[] = {  // page 0: ErrPageNotFound
      {2, 2}, {std::int16_t{1}, 1}, {u" 3 ", 3}, {u"main", 2}, {u"", 1}, {0, 0}, {u"0", 0}, {4, 0}, {2.0, 0},
      {u"nope", 0}, {Variant(), 0}, {true, 0}};
  for (const auto& [arg, page] : rows) {
    SCOPED_TRACE(::testing::PrintToString(arg));
    auto ss = ThreePages();
    if (page == 0) EXPECT_SS_ERROR(ss->put_Page(arg), Lib(ErrPageNotFound), u"Page (Let)");
    else ss->put_Page(arg);
    EXPECT_EQ(std::pair(ss->get_Page(), ss->get_Cursor()), std::pair(Variant(page ? page : 3), page ? 1 : 3));
  }
  auto ss = ThreePages();
  EXPECT_SS_ERROR(ss->put_Page(u"1e99"), err::kOverflow, u"Page (Let)");
  RaiseSwitchOff off;
  ss->put_Page(9);  // nothing selected, the cursor still goes to 1
  EXPECT_EQ(std::pair(ss->get_Page(), ss->get_Cursor()), std::pair(Variant(3), 1));
}

TEST_F(StorageStringPages, NamesAddingDeletingAndSinglePageMode) {
  auto ss = ThreePages();
  EXPECT_SS_ERROR(ss->AddPage(u"Main", false), Lib(ErrPageNameExists), u"PageName (Let)", u"Add");
  EXPECT_EQ(ss->get_Page(), Variant(4));  // the new page stays current and unnamed
  ss->put_PageName(u"MAIN");
  EXPECT_SS_ERROR(ss->put_PageName(u"MAIN"), Lib(ErrPageNameExists), u"PageName (Let)");  // itself included
  EXPECT_EQ(Strings(ss->GetPageNames()), (std::vector<String>{u"", u"Main", u"", u"MAIN"}));
  EXPECT_EQ(ss->GetPageNames().LBound(), 1);
  for (int i = 1; i <= 3; ++i) ss->put_Page(i), ss->put_Value(Variant(i));
  ss->put_Page(2);
  ss->DeletePage();  // the following page takes its place
  EXPECT_EQ(ss->PageText(), u"3");
  ss->put_Page(3);
  ss->DeletePage();  // the last page: the one before becomes current
  EXPECT_EQ(ss->get_Page(), Variant(2));
  ss->DeletePage(true);
  ss->put_PageName(u"Only");
  ss->DeletePage();  // the only page stays as it is
  EXPECT_EQ(ss->get_PageName() + ToString(ss->get_PageCount()), u"Only1");
  ss->put_MultiPage(false);
  EXPECT_SS_ERROR(ss->AddPage(), Lib(ErrSinglePageMode), u"Add");
  EXPECT_SS_ERROR(ss->DeletePage(true), Lib(ErrSinglePageMode), u"DeletePage");
  EXPECT_SS_ERROR(ss->put_Page(1), Lib(ErrSinglePageMode), u"Page (Let)");
  ss->Clear();  // allowed: empties the name
  RaiseSwitchOff off;
  ss->AddPage(u"P");
  EXPECT_EQ(Strings(ss->GetPageNames()), (std::vector<String>{u"", u"P"}));
}

TEST_F(StorageStringCipher, EnciphersWithARepeatingKeyAndRefusesBadKeys) {
  const String text = u"Caf\u00e9 \u20ac 100\r\n<\\a={b};/>";
  auto ss = Page(u"ab");
  EXPECT_SS_ERROR(ss->put_Encrypted(true), Lib(ErrEncryptionKeyNotSet), u"Encrypted (Let)");
  ss->put_EncryptionKey(u"Key");
  ss->put_Encrypted(true);  // from the last character: 'b' meets 'K', 'a' meets 'e'
  EXPECT_EQ(ss->PageText(), (String{char16_t(0x61 - 0x65 + 256), char16_t(0x62 - 0x4B)}));
  ss->put_Value(text);
  for (bool b : {true, true, false, false}) ss->put_Encrypted(b);
  EXPECT_EQ(ss->PageText(), text);
  ss->put_Value(u"A");
  ss->put_EncryptionKey(u"A");
  ss->put_Encrypted(true);
  ss->put_EncryptionKey(u"\u4e2d");
  EXPECT_SS_ERROR(ss->put_Encrypted(true), err::kOverflow, u"Encrypted (Let)");
  EXPECT_EQ(ss->PageText(), String(1, u'\0'));  // NUL survives as a character; the page is unchanged
  ss->Clear();
  ss->put_Encrypted(true);  // an empty page is left alone
}

}  // namespace
}  // namespace tarvo2
