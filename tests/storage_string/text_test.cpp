// The cursor, CR LF lines, insertion and extraction.
#include <gtest/gtest.h>

#include "ss_test_util.h"

namespace tarvo2 {
namespace {

using namespace sstest;

Ref<KivStorageString> Page(const String& text, std::int32_t cursor = 1) {
  auto ss = KivStorageString::Create();
  ss->put_Value(text);
  ss->put_Cursor(cursor);
  return ss;
}

TEST(StorageStringText, EmptyPage) {
  auto ss = KivStorageString::Create();
  EXPECT_EQ(ss->get_Cursor(), 1);
  EXPECT_EQ(ss->get_LineCount(), 0);
  EXPECT_EQ(ss->get_LineNumber(), 0);
  EXPECT_SS_ERROR(ss->FetchLine(), Lib(ErrInvalidLineNumber), u"FetchLine");
  ss->put_LineNumber(1);
  ss->InsertText(u"abc");
  EXPECT_EQ(ss->PageText(), u"abc");
  EXPECT_EQ(ss->get_Cursor(), 1);
}

TEST(StorageStringText, LinesAreSeparatedByCrLfOnly) {
  auto ss = Page(u"ab\r\ncd");
  EXPECT_EQ(ss->get_LineCount(), 2);
  struct Row {
    std::int32_t cursor, line;
  } rows[] = {{1, 1}, {3, 1}, {4, 2}, {6, 2}, {100, 2}};
  for (const Row& r : rows) {
    ss->put_Cursor(r.cursor);
    EXPECT_EQ(ss->get_LineNumber(), r.line) << "cursor " << r.cursor;
  }
  ss->put_LineNumber(2);
  EXPECT_EQ(ss->get_Cursor(), 4);
  EXPECT_EQ(ss->FetchLine(2), u"cd");
  EXPECT_EQ(ss->FetchLine(), u"cd");  // from the cursor
  for (std::int32_t bad : {0, 3, -7})
    EXPECT_SS_ERROR(ss->put_LineNumber(bad), Lib(ErrInvalidLineNumber), u"LineNumber (Let)");
  EXPECT_SS_ERROR(ss->FetchLine(3), Lib(ErrInvalidLineNumber), u"FetchLine");
  EXPECT_EQ(Page(u"ab\r\n")->get_LineCount(), 2);
  EXPECT_EQ(Page(u"ab\r\n")->FetchLine(2), u"");
  EXPECT_EQ(Page(u"a\rb\nc")->get_LineCount(), 1);
  EXPECT_EQ(Page(u"a\r\n\r\nb")->FetchLine(3), u"b");
}

TEST(StorageStringText, LineNumberWithTheSwitchOff) {
  RaiseSwitchOff off;
  struct Row {
    String page;
    std::int32_t line;
    std::int32_t cursor_or_error;  // > 0 cursor; else minus the error number
  } rows[] = {{u"a\r\nb\r\nc", -1, 6}, {u"a\r\nb\r\nc", 9, 6},  {u"abc", 2, -9},
              {u"a\r\nb", 0, -9},      {u"a\r\nb", -2, -5},     {u"", 3, -9}};
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::Message() << ToUtf8(r.page) << " line " << r.line);
    auto ss = Page(r.page);
    if (r.cursor_or_error > 0) {
      ss->put_LineNumber(r.line);
      EXPECT_EQ(ss->get_Cursor(), r.cursor_or_error);
    } else {
      EXPECT_SS_ERROR(ss->put_LineNumber(r.line), -r.cursor_or_error, u"LineNumber (Let)");
    }
  }
  EXPECT_EQ(Page(u"a")->FetchLine(4), u"");
}

TEST(StorageStringText, CursorStaysInRangeAndInsertKeepsIt) {
  auto ss = Page(u"abcdef", 100);
  EXPECT_EQ(ss->get_Cursor(), 6);
  ss->put_Cursor(-5);
  EXPECT_EQ(ss->get_Cursor(), 1);
  ss->put_Cursor(6);
  ss->Clear();
  EXPECT_EQ(ss->get_Cursor(), 1);

  struct Row {
    std::int32_t at;
    String expected;
  } rows[] = {{1, u"Xabc"}, {4, u"abcX"}, {50, u"abcX"}, {0, u"aXbc"}};
  for (const Row& r : rows) {
    auto p = Page(u"abc", 2);
    p->InsertText(u"X", r.at);
    EXPECT_EQ(p->PageText(), r.expected) << "at " << r.at;
    EXPECT_EQ(p->get_Cursor(), 2);
  }
  EXPECT_SS_ERROR(Page(u"abc")->InsertText(u"X", -1), err::kInvalidProcedureCall, u"InsertText");
}

TEST(StorageStringText, ExtractsBetweenTwoPoints) {
  struct Row {
    String page;
    Variant first, second;
    bool from_cursor;
    std::int32_t cursor;
    String result;             // expected text
    std::int32_t new_cursor;   // 0: cursor and LastExtraction unchanged
    LibraryErrorCode error = static_cast<LibraryErrorCode>(0);  // ErrParameterOutOfBounds or 0
  } rows[] = {
      {u"abcdef", 2, 4, false, 5, u"bcd", 2},
      {u"abcdef", 0, 4, false, 5, u"", 0},
      {u"abcdef", 4, 2, false, 5, u"", 0, ErrParameterOutOfBounds},
      {u"abcdef", 2, 7, false, 5, u"", 0, ErrParameterOutOfBounds},
      {u"x[abc]y", u"[", u"]", false, 5, u"abc", 3},
      {u"x[abc]y", u"[", 5, false, 5, u"abc", 3},
      {u"x[]y", u"[", u"]", false, 1, u"", 0, ErrParameterOutOfBounds},
      {u"[a][b]", u"[", u"]", true, 4, u"b", 5},
      {u"[a][b]", u"[", u"]", false, 4, u"a", 2},
      {u"abcdef", 2.0, 4, false, 5, u"", 0},
      {u"abcdef", 2, 4.0, false, 5, u"", 0, ErrParameterOutOfBounds},
      {u"abcdef", u"zz", 4, false, 5, u"", 0},  // a start text that does not occur
      {u"abcdef", std::int16_t{3}, std::int16_t{3}, false, 5, u"c", 3},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(::testing::Message() << ToUtf8(r.page) << " " << ::testing::PrintToString(r.first) << " "
                                      << ::testing::PrintToString(r.second));
    auto ss = Page(r.page, r.cursor);
    if (r.error) {
      EXPECT_SS_ERROR(ss->ExtractText(r.first, r.second, r.from_cursor), Lib(r.error), u"ExtractText");
      continue;
    }
    EXPECT_EQ(ss->ExtractText(r.first, r.second, r.from_cursor), r.result);
    EXPECT_EQ(ss->get_Cursor(), r.new_cursor ? r.new_cursor : r.cursor);
    EXPECT_EQ(ss->get_LastExtraction(), r.result);
    EXPECT_EQ(ss->PageText(), r.page);
  }
  auto ss = Page(u"abcdef");
  EXPECT_SS_ERROR(ss->ExtractText(Longs({1}), 2), err::kTypeMismatch, u"ExtractText");
}

TEST(StorageStringText, OutOfBoundsExtractionWithTheSwitchOff) {
  RaiseSwitchOff off;
  auto ss = Page(u"abcdef", 2);
  EXPECT_EQ(ss->ExtractText(3, 99), u"cdef");
  EXPECT_EQ(ss->get_Cursor(), 3);
  EXPECT_EQ(ss->ExtractText(9, 12), u"");
  EXPECT_EQ(ss->get_LastExtraction(), u"");
  EXPECT_EQ(ss->ExtractText(4, 3), u"");
  EXPECT_EQ(ss->ExtractText(Longs({1}), 2), u"");
  EXPECT_SS_ERROR(ss->ExtractText(5, 2), err::kInvalidProcedureCall, u"ExtractText");
  EXPECT_SS_ERROR(ss->ExtractText(-2, 3), err::kInvalidProcedureCall, u"ExtractText");
  EXPECT_SS_ERROR(ss->ExtractText(-2, u"c"), err::kInvalidProcedureCall, u"ExtractText");

  ss->put_Value(u"l1\r\nl2 tail");
  ss->ExtractText(4, 9);  // "\nl2 ta", cursor 4 (line 2)
  EXPECT_EQ(ss->FetchLine(1, true), u"\nl2 ta");
  EXPECT_EQ(ss->FetchLine(-1, true), u"");  // line 2 of the extraction: missing
}

}  // namespace
}  // namespace tarvo2
