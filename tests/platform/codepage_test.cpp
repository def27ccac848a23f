#include "tarvo2/codepage.h"

#include <gtest/gtest.h>

namespace tarvo2 {
namespace {

TEST(CodepageTest, EveryByteRoundTrips) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  std::u16string text = FromAnsi(all);
  ASSERT_EQ(text.size(), 256u);
  EXPECT_EQ(ToAnsi(text), all);
  EXPECT_TRUE(IsAnsiRepresentable(text));
  for (int b = 0; b < 256; ++b)
    EXPECT_EQ(CharToAnsiByte(AnsiByteToChar(static_cast<unsigned char>(b))), b) << b;
}

TEST(CodepageTest, UnassignedBytesAreC1Controls) {
  for (unsigned char b : {0x81, 0x8D, 0x8F, 0x90, 0x9D}) {
    SCOPED_TRACE(b);
    EXPECT_EQ(AnsiByteToChar(b), char16_t{b});
  }
  EXPECT_EQ(AnsiByteToChar(0x80), u'\u20AC');
  EXPECT_EQ(AnsiByteToChar(0x9F), u'\u0178');
  EXPECT_EQ(CharToAnsiByte(u'\u0080'), -1);  // C1 control without a byte
}

TEST(CodepageTest, UnrepresentableCharactersBecomeQuestionMarks) {
  std::u16string text = u"a\u4E2D\u20AC\xD800z";  // CJK, euro, lone surrogate
  EXPECT_EQ(ToAnsi(text), std::string("a?\x80?z"));
  EXPECT_FALSE(IsAnsiRepresentable(text));
}

TEST(CodepageTest, Utf8Edges) {
  struct Row { const char* name; std::string utf8; std::u16string text; };
  const Row rows[] = {
      {"ascii", "abc", u"abc"},
      {"two bytes", "\xC3\xA9", u"\u00E9"},
      {"three bytes", "\xE2\x82\xAC", u"\u20AC"},
      {"four bytes", "\xF0\x9F\x98\x80", u"\U0001F600"},
      {"overlong slash", "\xC0\xAF", u"\uFFFD\uFFFD"},
      {"encoded surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
      {"truncated", "\xE2\x82", u"\uFFFD\uFFFD"},
      {"above U+10FFFF", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"stray continuation", "a\x80" "b", u"a\uFFFDb"},
      {"NUL kept", std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(FromUtf8(r.utf8), r.text);
  }
  EXPECT_EQ(ToUtf8(u"\U0001F600\u00E9"), "\xF0\x9F\x98\x80\xC3\xA9");
  EXPECT_EQ(ToUtf8(std::u16string(1, char16_t{0xDC00})), "\xEF\xBF\xBD");
}

}  // namespace
}  // namespace tarvo2
