// Pages: selection, names, adding, deleting, clearing, single-page mode;
// and the page cipher.
#include <gtest/gtest.h>

#include "ss_test_util.h"

namespace tarvo2 {
namespace {

using namespace sstest;

// Three pages named "", "Main", "" with page 3 current.
Ref<KivStorageString> ThreePages() {
  auto ss = KivStorageString::Create();
  ss->AddPage(u"Main");
  ss->AddPage();
  return ss;
}

TEST(StorageStringPages, SelectsByNumberOrName) {
  struct Row {
    Variant arg;
    std::int32_t page;  // 0: ErrPageNotFound
  } rows[] = {{2, 2},         {std::int16_t{1}, 1}, {u"2", 2},   {u" 3 ", 3}, {u"main", 2}, {u"MAIN", 2},
              {u"", 1},       {0, 0},               {-1, 0},     {u"0", 0},   {4, 0},      {2.0, 0},
              {Variant(), 0}, {true, 0},            {u"nope", 0}};
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::PrintToString(r.arg));
    auto ss = ThreePages();
    ss->put_Cursor(1);
    ss->put_Value(u"text");
    ss->put_Cursor(3);
    if (r.page == 0) {
      EXPECT_SS_ERROR(ss->put_Page(r.arg), Lib(ErrPageNotFound), u"Page (Let)");
      EXPECT_EQ(ss->get_Page(), Variant(3));
      EXPECT_EQ(ss->get_Cursor(), 3);
    } else {
      ss->put_Page(r.arg);
      EXPECT_EQ(ss->get_Page(), Variant(r.page));
      EXPECT_EQ(ss->get_Cursor(), 1);
    }
  }
  auto ss = ThreePages();
  EXPECT_SS_ERROR(ss->put_Page(u"1e99"), err::kOverflow, u"Page (Let)");
  RaiseSwitchOff off;
  ss->put_Value(u"abc");
  ss->put_Cursor(3);
  ss->put_Page(9);  // nothing selected, the cursor still goes to 1
  EXPECT_EQ(ss->get_Page(), Variant(3));
  EXPECT_EQ(ss->get_Cursor(), 1);
}

TEST(StorageStringPages, NamesAreUniqueWhenSet) {
  auto ss = ThreePages();
  EXPECT_SS_ERROR(ss->put_PageName(u"Main"), Lib(ErrPageNameExists), u"PageName (Let)");
  ss->put_PageName(u"MAIN");
  EXPECT_SS_ERROR(ss->put_PageName(u"MAIN"), Lib(ErrPageNameExists), u"PageName (Let)");
  EXPECT_SS_ERROR(ss->AddPage(u"Main", false), Lib(ErrPageNameExists), u"PageName (Let)", u"Add");
  EXPECT_EQ(ss->get_PageCount(), 4);
  EXPECT_EQ(ss->get_Page(), Variant(4));  // the new page stays current and unnamed
  EXPECT_EQ(ss->get_PageName(), u"");
  RaiseSwitchOff off;
  ss->put_Page(1);
  ss->AddPage(u"Main", false);
  EXPECT_EQ(ss->get_Page(), Variant(1));
  EXPECT_EQ(Strings(ss->GetPageNames()), (std::vector<String>{u"", u"Main", u"MAIN", u"", u""}));
  EXPECT_EQ(ss->GetPageNames().LBound(), 1);
}

TEST(StorageStringPages, DeletesAndClears) {
  auto ss = ThreePages();
  for (int i = 1; i <= 3; ++i) {
    ss->put_Page(i);
    ss->put_Value(Variant(i));
  }
  ss->put_Page(2);
  ss->DeletePage();
  EXPECT_EQ(ss->get_PageCount(), 2);
  EXPECT_EQ(ss->get_Page(), Variant(2));
  EXPECT_EQ(ss->PageText(), u"3");
  ss->DeletePage();
  EXPECT_EQ(ss->get_Page(), Variant(1));
  ss->put_PageName(u"Only");
  ss->DeletePage();  // the only page stays as it is
  EXPECT_EQ(ss->PageText(), u"1");
  EXPECT_EQ(ss->get_PageName(), u"Only");

  ss->AddPage(u"Two");
  ss->put_Value(u"2");
  ss->ExtractText(1, 1);
  ss->Clear(true);
  EXPECT_EQ(ss->get_PageCount(), 2);
  EXPECT_EQ(Strings(ss->GetPageNames()), (std::vector<String>{u"", u""}));
  EXPECT_EQ(ss->get_LastExtraction(), u"");
  ss->DeletePage(true);
  EXPECT_EQ(ss->get_PageCount(), 1);
}

TEST(StorageStringPages, SinglePageModeRefusesPageChanges) {
  auto ss = KivStorageString::Create();
  ss->put_MultiPage(false);
  EXPECT_SS_ERROR(ss->AddPage(), Lib(ErrSinglePageMode), u"Add");
  EXPECT_SS_ERROR(ss->DeletePage(true), Lib(ErrSinglePageMode), u"DeletePage");
  EXPECT_SS_ERROR(ss->put_Page(1), Lib(ErrSinglePageMode), u"Page (Let)");
  EXPECT_EQ(ss->get_PageCount(), 1);
  ss->put_Value(u"x");
  ss->Clear();  // allowed
  EXPECT_EQ(ss->PageText(), u"");
  RaiseSwitchOff off;
  ss->AddPage(u"P");
  EXPECT_EQ(ss->get_PageCount(), 2);
}

TEST(StorageStringCipher, EnciphersFromTheLastCharacterWithARepeatingKey) {
  auto ss = KivStorageString::Create();
  const String text = u"Caf\u00e9 \u20ac 100\r\n<\\a={b};/>";
  ss->put_Value(text);
  ss->put_EncryptionKey(u"\u0001");
  ss->put_Encrypted(true);
  EXPECT_EQ(ss->PageText().substr(0, 4), String(u"B`e\u00e8"));  // each code one lower
  ss->put_Encrypted(false);
  EXPECT_EQ(ss->PageText(), text);

  ss->put_EncryptionKey(u"Key");
  ss->put_Value(u"ab");
  ss->put_Encrypted(true);  // 'b' meets 'K', 'a' meets 'e'
  EXPECT_EQ(ss->PageText(), (String{char16_t(0x61 - 0x65 + 256), char16_t(0x62 - 0x4B)}));
  ss->put_Value(text);
  ss->put_Encrypted(true);
  ss->put_Encrypted(true);
  ss->put_Encrypted(false);
  ss->put_Encrypted(false);
  EXPECT_EQ(ss->PageText(), text);
  ss->put_Encrypted(true);
  ss->put_EncryptionKey(u"Other");
  ss->put_Encrypted(false);
  EXPECT_NE(ss->PageText(), text);

  ss->put_Value(u"A");
  ss->put_EncryptionKey(u"A");
  ss->put_Encrypted(true);
  EXPECT_EQ(ss->PageText(), String(1, u'\0'));  // NUL survives as a character
}

TEST(StorageStringCipher, RefusesAMissingOrUnrepresentableKey) {
  auto ss = KivStorageString::Create();
  EXPECT_SS_ERROR(ss->put_Encrypted(true), Lib(ErrEncryptionKeyNotSet), u"Encrypted (Let)");
  ss->put_EncryptionKey(u"\u4e2d");
  ss->put_Encrypted(true);  // an empty page is left alone
  ss->put_Value(u"abc");
  EXPECT_SS_ERROR(ss->put_Encrypted(true), err::kOverflow, u"Encrypted (Let)");
  EXPECT_EQ(ss->PageText(), u"abc");
  ss->put_EncryptionKey(u"");
  RaiseSwitchOff off;
  ss->put_Encrypted(true);
  EXPECT_EQ(ss->PageText(), u"abc");
}

}  // namespace
}  // namespace tarvo2
