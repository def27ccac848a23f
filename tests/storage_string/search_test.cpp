// The cursor, CR LF lines, insertion and extraction; LookFor, Find and
// Replace, and the scanners under them.
#include <gtest/gtest.h>

#include <optional>
#include <random>

#include "ss_test_util.h"
#include "storage_string/splice.h"
#include "storage_string/text_search.h"

namespace tarvo2 {
namespace {

using namespace sstest;
using StorageStringText = Fixture;
using StorageStringSearch = Fixture;

TEST_F(StorageStringText, LinesAreSeparatedByCrLfOnly) {
  auto ss = NewStore();
  EXPECT_EQ(ss->get_LineCount() + ss->get_LineNumber(), 0);
  ss->put_LineNumber(1);  // line 1 exists on any page
  ss->InsertText(u"ab\r\ncd");
  for (auto [cursor, line] : {std::pair{1, 1}, {3, 1}, {4, 2}, {6, 2}, {100, 2}}) {
    ss->put_Cursor(cursor);
    EXPECT_EQ(ss->get_LineNumber(), line) << "cursor " << cursor;
  }
  ss->put_LineNumber(2);
  EXPECT_EQ(ss->FetchLine(2) + ss->FetchLine() + ToString(ss->get_Cursor()), u"cdcd4");  // the cursor's line
  for (std::int32_t bad : {0, 3, -7})
    EXPECT_SS_ERROR(ss->put_LineNumber(bad), Lib(ErrInvalidLineNumber), u"LineNumber (Let)");
  EXPECT_SS_ERROR(ss->FetchLine(3), Lib(ErrInvalidLineNumber), u"FetchLine");
  EXPECT_EQ(ss->get_LineCount() + Page(u"ab\r\n")->get_LineCount() + Page(u"a\rb\nc")->get_LineCount(), 5);
  EXPECT_EQ(Page(u"a\r\n\r\nb")->FetchLine(3) + Page(u"ab\r\n")->FetchLine(2), u"b");
  RaiseSwitchOff off;  // -1 or beyond the last line: the last line, when there are two or more
  EXPECT_EQ(Page(u"a")->FetchLine(4), u"");
  const std::tuple<String, std::int32_t, std::int32_t> rows[] = {  // > 0 cursor, else minus the error
      {u"a\r\nb\r\nc", -1, 6}, {u"a\r\nb\r\nc", 9, 6}, {u"abc", 2, -9}, {u"a\r\nb", 0, -9}, {u"a\r\nb", -2, -5}};
  for (const auto& [page, line, cursor_or_error] : rows) {
    SCOPED_TRACE(::testing::Message() << ToUtf8(page) << " line " << line);
    auto p = Page(page);
    if (cursor_or_error < 0) EXPECT_SS_ERROR(p->put_LineNumber(line), -cursor_or_error, u"LineNumber (Let)");
    else EXPECT_EQ((p->put_LineNumber(line), p->get_Cursor()), cursor_or_error);
  }
}

TEST_F(StorageStringText, CursorStaysInRangeAndInsertKeepsIt) {
  auto ss = Page(u"abcdef", 100);
  EXPECT_EQ(ss->get_Cursor(), 6);
  ss->put_Cursor(-5);
  EXPECT_EQ(ss->get_Cursor(), 1);
  for (auto [at, expected] : {std::pair{1, u"Xabc|2|"}, {4, u"abcX|2|"}, {50, u"abcX|2|"}, {0, u"aXbc|2|"}}) {
    auto p = Page(u"abc", 2);
    p->InsertText(u"X", at);
    EXPECT_EQ(State(*p), expected) << "at " << at;
  }
  EXPECT_SS_ERROR(Page(u"abc")->InsertText(u"X", -1), err::kInvalidProcedureCall, u"InsertText");
}

TEST_F(StorageStringText, ExtractsBetweenTwoPoints) {
  const std::int32_t kOut = Lib(ErrParameterOutOfBounds), kCall = err::kInvalidProcedureCall,
                     kType = err::kTypeMismatch;
  struct Row { String page; Variant first, second; String state; std::int32_t error = 0;
               bool raise = true, from_cursor = false; };
  const Row rows[] = {  // the cursor stands at 5; switch off, out-of-bounds pairs are still extracted
      {u"abcdef", 2, 4, u"abcdef|2|bcd"}, {u"abcdef", 0, 4, u"abcdef|5|"}, {u"abcdef", 4, 2, u"abcdef|5|", kOut},
      {u"abcdef", 2, 7, u"abcdef|5|", kOut}, {u"x[abc]y", u"[", u"]", u"x[abc]y|3|abc"},
      {u"x[]y", u"[", u"]", u"x[]y|4|", kOut}, {u"[a]x[b]", u"[", u"]", u"[a]x[b]|6|b", 0, true, true},
      {u"abcdef", 2.0, 4, u"abcdef|5|"}, {u"abcdef", u"zz", 4, u"abcdef|5|"},
      {u"abcdef", std::int16_t{3}, std::int16_t{3}, u"abcdef|3|c"}, {u"abc", Longs({1}), 2, u"abc|3|", kType},
      {u"abcdef", 3, 99, u"abcdef|3|cdef", 0, false}, {u"abcdef", 9, 12, u"abcdef|6|", 0, false},
      {u"abcdef", 4, 3, u"abcdef|4|", 0, false}, {u"abcdef", 5, 2, u"abcdef|5|", kCall, false}};
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::PrintToString(r.first) + " " + ::testing::PrintToString(r.second));
    auto ss = Page(r.page, 5);
    std::optional<RaiseSwitchOff> off;
    if (!r.raise) off.emplace();
    if (r.error)
      EXPECT_SS_ERROR(ss->ExtractText(r.first, r.second, r.from_cursor), r.error, u"ExtractText");
    else
      EXPECT_EQ(ss->ExtractText(r.first, r.second, r.from_cursor), r.state.substr(r.state.rfind(u'|') + 1));
    EXPECT_EQ(State(*ss), r.state);
  }
  auto ss = Page(u"l1\r\nl2 tail");
  ss->ExtractText(4, 9);  // "\nl2 ta", cursor 4 (line 2)
  EXPECT_EQ(ss->FetchLine(1, true), u"\nl2 ta");
  RaiseSwitchOff off;
  EXPECT_EQ(ss->FetchLine(-1, true), u"");  // line 2 of the extraction: missing
}

TEST_F(StorageStringSearch, ScannersAgreeWithStdFind) {
  std::mt19937 rng(7);
  for (int round = 0; round < 3000; ++round) {
    String hay(rng() % 200, u'a'), needle(1 + rng() % 4, u'a');
    for (char16_t& c : hay) c += rng() % 3;
    for (char16_t& c : needle) c += rng() % 3;
    SCOPED_TRACE(ToUtf8(hay + u" " + needle));
    const std::size_t from = rng() % (hay.size() + 2);
    const std::size_t expect_fwd = from > hay.size() ? String::npos : hay.find(needle, from);
    EXPECT_EQ(storage_string::FindForward(hay, needle, from), expect_fwd);
    EXPECT_EQ(storage_string::FindBackward(hay, needle, from), hay.rfind(needle, from));
    std::size_t batch[3], resume = from;  // non-overlapping, resumed in batches of 3
    std::vector<std::size_t> all, expect_all;
    while (resume != storage_string::kNotFound)
      all.insert(all.end(), batch, batch + storage_string::FindManyForward(hay, needle, resume, batch, 3, &resume));
    for (std::size_t p = expect_fwd; p != String::npos; p = hay.find(needle, p + needle.size()))
      expect_all.push_back(p);
    EXPECT_EQ(all, expect_all);
  }
}

TEST_F(StorageStringSearch, SplicesMatchesInEitherDirection) {
  struct Row {
    const char16_t* text;
    const char16_t* hay;  // null: the text itself
    const char16_t* needle;
    const char16_t* with;
    std::size_t start;
    bool up, all;
    const char16_t* want;
    std::size_t count, after;
  };
  const Row rows[] = {
      {u"banana", nullptr, u"a", u"X", 1, false, false, u"bXnana", 1, 3},
      {u"banana", nullptr, u"a", u"X", 1, false, true, u"bXnXnX", 3, 7},
      {u"banana", nullptr, u"ana", u"X", 1, false, true, u"bXna", 1, 3},  // no overlaps
      {u"banana", nullptr, u"a", u"XYZ", 3, false, true, u"banXYZnXYZ", 2, 11},
      {u"abab", nullptr, u"ab", u"cd", 2, false, true, u"abcd", 1, 5},
      {u"abc", nullptr, u"x", u"y", 1, false, true, u"abc", 0, 0},
      {u"abc", nullptr, u"a", u"y", 2, false, false, u"abc", 0, 0},
      {u"abxab", nullptr, u"ab", u"Y", 5, true, true, u"YxY", 2, 2},
      {u"abxab", nullptr, u"ab", u"Z", 5, true, false, u"abxZ", 1, 5},
      {u"abxab", nullptr, u"ab", u"Z", 4, true, false, u"Zxab", 1, 2},  // must end at or before 4
      {u"abab", nullptr, u"ab", u"Z", 9, true, true, u"ZZ", 2, 2},       // first match at 1, next to another
      {u"aaa", nullptr, u"aa", u"Y", 3, true, true, u"aY", 1, 3},        // no overlaps upwards either
      {u"abab", nullptr, u"ab", u"", 4, true, true, u"", 2, 1},
      {u"abab", nullptr, u"ab", u"XYZ", 4, true, true, u"XYZXYZ", 2, 4},
      {u"abab", nullptr, u"ab", u"XYZ", 4, true, false, u"abXYZ", 1, 6},
      {u"ab", nullptr, u"abc", u"x", 2, true, true, u"ab", 0, 0},
      {u"aBcb", u"ABCB", u"B", u"x", 1, false, true, u"axcx", 2, 5},  // compared in upper case
  };
  for (const Row& row : rows) {
    String text = row.text;
    SCOPED_TRACE(ToUtf8(text + u" " + row.needle + u"->" + row.with) + (row.up ? " up" : " down") +
                 (row.all ? " all from " : " one from ") + std::to_string(row.start));
    storage_string::Splice s;
    s.hay = row.hay ? StringView(row.hay) : StringView(text);
    s.needle = row.needle;
    s.replacement = row.with;
    s.start = row.start;
    s.up = row.up;
    s.all = row.all;
    std::size_t after = 0;
    EXPECT_EQ(storage_string::SpliceMatches(text, s, &after), row.count);
    EXPECT_EQ(text, row.want);
    EXPECT_EQ(after, row.after);
  }
}

// "Text:hits@p1,p2;..." for comparing LookFor results at a glance.
std::string Summary(const SafeArray& results) {
  std::string out = results.LBound() == 0 ? "" : "bad bound ";
  for (const Variant& r : results.Items()) {
    out += ToUtf8(ToString(GetProperty(r, u"Text"))) + ":" + std::to_string(ToLong(GetProperty(r, u"Hits"))) + "@";
    const SafeArray& pos = r.AsRecord().Field(u"Positions").AsArray();
    if (pos.LBound() != 0 || pos.ElementType() != VarType::kLong) out += "bad positions ";
    for (const Variant& p : pos.Items()) out += std::to_string(p.AsLong()) + ",";
    out += ";";
  }
  return out;
}

TEST_F(StorageStringSearch, LookForListsEveryTextFoundAndFindStepsOn) {
  struct Row { String page; Variant texts; bool case_sensitive, from_cursor; std::string expected; };
  const Row rows[] = {  // the cursor stands at 4
      {u"abcabab", SafeArray::OfStrings({u"x", u"ab", u"b"}), true, false, "ab:3@1,4,6,;b:3@2,5,7,;"},
      {u"aaaa", u"aa", true, false, "aa:2@1,3,;"}, {u"abcABC", u"Ab", false, false, "AB:2@1,4,;"},
      {u"abcabc", u"abc", true, true, "abc:1@4,;"},
      {u"abc", SafeArray::OfVariants({u"", 7, u"zz"}), true, true, ""}};
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.page) + " " + ::testing::PrintToString(r.texts));
    auto ss = Page(r.page, 4);
    const String before = State(*ss);
    EXPECT_EQ(Summary(ss->LookFor(r.texts, r.case_sensitive, r.from_cursor)), r.expected);
    EXPECT_EQ(State(*ss), before);
  }
  EXPECT_SS_ERROR(Page(u"abc")->LookFor(Variant::Null()), err::kInvalidUseOfNull, u"LookFor");
  auto ss = Page(u"abcb");
  EXPECT_EQ(NewStore()->Find(), 0);  // nothing to continue
  std::vector<std::int32_t> got = {ss->Find(u"b"), ss->get_Cursor(), ss->Find(), ss->Find(), ss->Find(u"zz"),
                                   ss->get_Cursor(), ss->Find(u"B", false, false)};
  EXPECT_EQ(got, (std::vector<std::int32_t>{2, 2, 4, 4, 0, 4, 2}));  // the cursor cannot pass the end
  for (auto [cursor, from_cursor, expected] : {std::tuple{5, true, 4}, {4, true, 1}, {1, true, 0}, {1, false, 4}})
    EXPECT_EQ(Page(u"abxab", cursor)->Find(u"ab", from_cursor, true, false, tarvo_SearchUp), expected)
        << "cursor " << cursor;
}

TEST_F(StorageStringSearch, ReplacesOneOrAllMatchesAndFollowsFind) {
  struct Row { String page, find, with; bool from_cursor, all; std::int32_t direction, cursor, count; String state; };
  const Row rows[] = {
      {u"banana", u"a", u"X", true, false, tarvo_SearchDown, 1, 1, u"bXnana|3|"},
      {u"banana", u"a", u"X", true, true, tarvo_SearchDown, 1, 3, u"bXnXnX|6|"},
      {u"abxab", u"ab", u"Y", false, true, tarvo_SearchUp, 3, 2, u"YxY|2|"},
      {u"abab", u"ab", u"Y", false, true, tarvo_SearchUp, 3, 2, u"YY|2|"},  // upwards to a match at 1 next to another
      {u"ababab", u"ab", u"long", false, true, tarvo_SearchUp, 1, 3, u"longlonglong|5|"},
      {u"abxab", u"ab", u"long", true, false, tarvo_SearchUp, 4, 1, u"longxab|5|"},
      {u"aXbxc", u"x", u"", false, true, 7, 1, 2, u"abc|3|"},  // any other direction is downwards
      {u"abc", u"zz", u"Y", true, true, tarvo_SearchDown, 2, 0, u"abc|2|"},
      {u"aAbA", u"a", u"-", false, true, tarvo_SearchDown, 1, 3, u"--b-|4|"}};  // letter case ignored
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.page + u" " + r.find + u"->" + r.with));
    auto ss = Page(r.page, r.cursor);
    EXPECT_EQ(ss->Replace(r.find, r.with, r.from_cursor, false, r.all, false,
                          static_cast<SearchDirectionEnum>(r.direction)), r.count);
    EXPECT_EQ(State(*ss), r.state);
  }
  // After a Find, an empty search text replaces what Find found; other texts stay safe.
  auto ss = Page(u"abxab", 5);
  EXPECT_EQ(ss->Find(u"ab", true, true, false, tarvo_SearchUp), 4);
  EXPECT_EQ(ss->Replace(u"", u"Z", true, true, false, false, tarvo_SearchUp), 1);
  EXPECT_EQ(ss->PageText(), u"abxZ");
  auto self = Page(u"xyx");
  self->Replace(u"x", self->PageText(), false, true, true);  // the page as its own replacement
  EXPECT_EQ(self->PageText(), u"xyxyxyx");
  auto bound = MakeRef<DynamicObject>();
  bound->Put(u"Value", u"one two one");
  ss->putref_BoundObject(bound);
  ss->ExtractText(5, 11);
  EXPECT_EQ(ss->Replace(u"one", u"1", false, true, true, true), 1);
  EXPECT_EQ(State(*ss), u"one two one|6|two 1");
  EXPECT_EQ(*bound->Find(u"Value"), Variant(u"one two one"));  // the page is not pushed
  ss->putref_BoundObject(nullptr);
  ss->put_Protect(true);
  EXPECT_SS_ERROR(ss->Replace(u"one", u"1"), Lib(ErrDirectStringAccess), u"Replace");
  RaiseSwitchOff off;
  EXPECT_EQ(ss->Replace(u"one", u"1", false, true, true), 0);
  EXPECT_EQ(ss->PageText(), u"one two one");
}

}  // namespace
}  // namespace tarvo2
