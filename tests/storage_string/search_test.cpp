// LookFor, Find and Replace, and the scanners under them.
#include <gtest/gtest.h>

#include <random>

#include "ss_test_util.h"
#include "storage_string/text_search.h"

namespace tarvo2 {
namespace {

using namespace sstest;

Ref<KivStorageString> Page(const String& text, std::int32_t cursor = 1) {
  auto ss = KivStorageString::Create();
  ss->put_Value(text);
  ss->put_Cursor(cursor);
  return ss;
}

// "Text:hits@p1,p2;..." for comparing LookFor results at a glance.
std::string Summary(const SafeArray& results) {
  std::string out;
  for (const Variant& r : results.Items()) {
    out += ToUtf8(ToString(GetProperty(r, u"Text"))) + ":" + std::to_string(ToLong(GetProperty(r, u"Hits"))) + "@";
    const SafeArray& pos = r.AsRecord().Field(u"Positions").AsArray();
    EXPECT_EQ(pos.ElementType(), VarType::kLong);
    EXPECT_EQ(pos.LBound(), 0);
    for (const Variant& p : pos.Items()) out += std::to_string(p.AsLong()) + ",";
    out += ";";
  }
  return out;
}

TEST(StorageStringSearch, ScannersAgreeWithAPlainSearch) {
  std::mt19937 rng(7);
  for (int round = 0; round < 3000; ++round) {
    const int n = rng() % 200;
    String hay, needle;
    for (int i = 0; i < n; ++i) hay += char16_t(u'a' + rng() % 3);
    for (int i = 0, m = 1 + rng() % 4; i < m; ++i) needle += char16_t(u'a' + rng() % 3);
    const std::size_t from = rng() % (n + 2);
    const std::size_t expect_fwd = from > hay.size() ? String::npos : hay.find(needle, from);
    EXPECT_EQ(storage_string::FindForward(hay, needle, from), expect_fwd) << ToUtf8(hay) << " " << ToUtf8(needle);
    EXPECT_EQ(storage_string::FindBackward(hay, needle, from), hay.rfind(needle, from))
        << ToUtf8(hay) << " " << ToUtf8(needle);
    std::size_t batch[3], resume = from, got = 0;  // non-overlapping, resumed in batches of 3
    std::vector<std::size_t> all, expect_all;
    while (resume != storage_string::kNotFound) {
      got = storage_string::FindManyForward(hay, needle, resume, batch, 3, &resume);
      all.insert(all.end(), batch, batch + got);
    }
    for (std::size_t p = expect_fwd; p != String::npos; p = hay.find(needle, p + needle.size()))
      expect_all.push_back(p);
    EXPECT_EQ(all, expect_all) << ToUtf8(hay) << " " << ToUtf8(needle);
  }
}

TEST(StorageStringSearch, LookForListsEveryTextFound) {
  struct Row {
    String page;
    Variant texts;
    bool case_sensitive, from_cursor;
    std::int32_t cursor;
    std::string expected;
  } rows[] = {
      {u"abcabab", u"ab", true, true, 1, "ab:3@1,4,6,;"},
      {u"abcabab", SafeArray::OfStrings({u"x", u"ab", u"b"}), true, true, 1, "ab:3@1,4,6,;b:3@2,5,7,;"},
      {u"aaaa", u"aa", true, true, 1, "aa:2@1,3,;"},
      {u"abcABC", u"Ab", false, true, 1, "AB:2@1,4,;"},
      {u"abcabc", u"abc", true, true, 4, "abc:1@4,;"},
      {u"abcabc", u"abc", true, false, 4, "abc:2@1,4,;"},
      {u"abc", SafeArray::OfVariants({u"", 7, u"zz"}), true, true, 1, ""},
      {u"ab", u"abc", true, true, 1, ""},  // longer than the page
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.page) + " " + ::testing::PrintToString(r.texts));
    auto ss = Page(r.page, r.cursor);
    SafeArray results = ss->LookFor(r.texts, r.case_sensitive, r.from_cursor);
    EXPECT_EQ(results.LBound(), 0);
    EXPECT_EQ(Summary(results), r.expected);
    EXPECT_EQ(ss->get_Cursor(), r.cursor);
  }
  auto ss = Page(u"abcabc", 4);
  ss->ExtractText(2, 5);  // "bcab", cursor 2
  ss->put_Cursor(4);
  EXPECT_EQ(Summary(ss->LookFor(u"b", true, true, true)), "b:2@1,4,;");
  EXPECT_SS_ERROR(ss->LookFor(Variant::Null()), err::kInvalidUseOfNull, u"LookFor");
}

TEST(StorageStringSearch, FindStepsAndContinues) {
  auto ss = Page(u"abcb");
  EXPECT_EQ(ss->Find(u"b"), 2);
  EXPECT_EQ(ss->get_Cursor(), 2);
  EXPECT_EQ(ss->Find(), 4);
  EXPECT_EQ(ss->Find(), 4);  // the cursor cannot pass the end
  EXPECT_EQ(ss->Find(u"zz"), 0);
  EXPECT_EQ(ss->get_Cursor(), 4);
  EXPECT_EQ(ss->Find(u"B", false, false), 2);
  EXPECT_EQ(KivStorageString::Create()->Find(), 0);  // nothing to continue

  struct Row {
    std::int32_t cursor;
    bool from_cursor;
    std::int32_t expected;
  } up[] = {{5, true, 4}, {4, true, 1}, {1, true, 0}, {1, false, 4}};
  for (const Row& r : up) {
    auto p = Page(u"abxab", r.cursor);
    EXPECT_EQ(p->Find(u"ab", r.from_cursor, true, false, tarvo_SearchUp), r.expected) << "cursor " << r.cursor;
  }
}

TEST(StorageStringSearch, ReplacesOneOrAllMatches) {
  struct Row {
    String page;
    String find, with;
    bool from_cursor, all;
    SearchDirectionEnum direction;
    std::int32_t cursor;
    std::int32_t count;
    String result;
    std::int32_t new_cursor;
  } rows[] = {
      {u"banana", u"a", u"X", true, false, tarvo_SearchDown, 1, 1, u"bXnana", 3},
      {u"banana", u"a", u"X", true, true, tarvo_SearchDown, 1, 3, u"bXnXnX", 6},
      {u"banana", u"ana", u"X", true, true, tarvo_SearchDown, 1, 1, u"bXna", 3},
      {u"abc", u"b", u"X", true, false, tarvo_SearchDown, 1, 1, u"aXc", 3},
      {u"abxab", u"ab", u"Y", false, true, tarvo_SearchUp, 3, 2, u"YxY", 2},
      {u"abxab", u"ab", u"long", true, false, tarvo_SearchUp, 4, 1, u"longxab", 5},
      {u"aXbxc", u"x", u"", false, true, static_cast<SearchDirectionEnum>(7), 1, 2, u"abc", 3},
      {u"abc", u"zz", u"Y", true, true, tarvo_SearchDown, 2, 0, u"abc", 2},
      {u"aAbA", u"a", u"-", false, true, tarvo_SearchDown, 1, 3, u"--b-", 4},  // letter case ignored
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.page + u" " + r.find + u"->" + r.with));
    auto ss = Page(r.page, r.cursor);
    EXPECT_EQ(ss->Replace(r.find, r.with, r.from_cursor, false, r.all, false, r.direction), r.count);
    EXPECT_EQ(ss->PageText(), r.result);
    EXPECT_EQ(ss->get_Cursor(), r.new_cursor);
  }
}

TEST(StorageStringSearch, ReplaceFollowsFindAndKeepsOtherTextsSafe) {
  auto ss = Page(u"abxab", 5);
  EXPECT_EQ(ss->Find(u"ab", true, true, false, tarvo_SearchUp), 4);
  EXPECT_EQ(ss->Replace(u"", u"Z", true, true, false, false, tarvo_SearchUp), 1);
  EXPECT_EQ(ss->PageText(), u"abxZ");
  auto self = Page(u"xyx");
  EXPECT_EQ(self->Replace(u"x", self->PageText(), false, true, true), 2);  // the page as its own replacement
  EXPECT_EQ(self->PageText(), u"xyxyxyx");

  auto bound = MakeRef<DynamicObject>();
  bound->Put(u"Value", u"one two one");
  ss->putref_BoundObject(bound);
  ss->ExtractText(5, 11);
  EXPECT_EQ(ss->Replace(u"one", u"1", false, true, true, true), 1);
  EXPECT_EQ(ss->get_LastExtraction(), u"two 1");
  EXPECT_EQ(*bound->Find(u"Value"), Variant(u"one two one"));
  ss->putref_BoundObject(nullptr);

  ss->put_Protect(true);
  EXPECT_SS_ERROR(ss->Replace(u"one", u"1"), Lib(ErrDirectStringAccess), u"Replace");
  RaiseSwitchOff off;
  EXPECT_EQ(ss->Replace(u"one", u"1", false, true, true), 0);
  EXPECT_EQ(ss->PageText(), u"one two one");
}

TEST(StorageStringSearch, LargePagesAreHandledWhole) {
  String big(16u << 20, u'.');
  for (std::size_t i = 7; i < big.size(); i += 1000) big[i] = u'q';
  const std::int32_t hits = static_cast<std::int32_t>((big.size() - 7 + 999) / 1000);
  auto ss = Page(big);
  EXPECT_EQ(ss->Replace(u"q", u"QQ", false, true, true), hits);  // grows in place
  EXPECT_EQ(ss->PageText().size(), big.size() + hits);
  EXPECT_EQ(ss->PageText().substr(0, 10), u".......QQ.");
  EXPECT_EQ(ss->Find(u"qq", false, false, false, tarvo_SearchUp), 7 + 1001 * (hits - 1) + 1);
  EXPECT_EQ(ss->Replace(u"QQ", u"q", false, true, true), hits);  // shrinks in place
  EXPECT_EQ(ss->PageText(), big);
  EXPECT_EQ(ss->get_Cursor(), 7 + 1000 * (hits - 1) + 2);
}

}  // namespace
}  // namespace tarvo2
