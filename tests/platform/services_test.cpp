// The small platform services: the code page, the host module's path and the
// pseudo-random numbers.
#include <sys/stat.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tarvo2/codepage.h"
#include "tarvo2/host_module.h"
#include "tarvo2/random.h"

namespace tarvo2 {
namespace {

TEST(CodepageTest, EveryByteRoundTripsAndOtherCharactersBecomeQuestionMarks) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  EXPECT_TRUE(ToAnsi(FromAnsi(all)) == all && IsAnsiRepresentable(FromAnsi(all)));
  for (int b = 0; b < 256; ++b) EXPECT_EQ(CharToAnsiByte(AnsiByteToChar(b)), b) << b;
  // The five unassigned bytes are the C1 controls of the same number.
  for (unsigned char b : {0x81, 0x8D, 0x8F, 0x90, 0x9D}) EXPECT_EQ(AnsiByteToChar(b), char16_t{b}) << b;
  EXPECT_EQ(std::u16string(u"\u20AC\u0178"), FromAnsi("\x80\x9F"));
  EXPECT_EQ(CharToAnsiByte(u'\u0080'), -1);  // a C1 control without a byte
  EXPECT_EQ(ToAnsi(u"a\u4E2D\u20AC\xD800z"), "a?\x80?z");  // CJK, euro, lone surrogate
  EXPECT_FALSE(IsAnsiRepresentable(u"a\u4E2Dz"));
}

TEST(CodepageTest, Utf8Edges) {
  struct Row { const char* name; std::string utf8; std::u16string text; };
  const Row rows[] = {
      {"four bytes", "\xF0\x9F\x98\x80", u"\U0001F600"}, {"overlong slash", "\xC0\xAF", u"\uFFFD\uFFFD"},
      {"encoded surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
      {"stray continuation, NUL kept", std::string("a\x80\0b", 4), std::u16string(u"a\uFFFD\0b", 4)},
  };
  for (const Row& r : rows) EXPECT_EQ(FromUtf8(r.utf8), r.text) << r.name;
  EXPECT_EQ(ToUtf8(u"\U0001F600\u00E9"), "\xF0\x9F\x98\x80\xC3\xA9");
  EXPECT_EQ(ToUtf8(std::u16string(1, char16_t{0xDC00})), "\xEF\xBF\xBD");
}

TEST(HostModuleTest, IsThisProgram) {
  const std::string real = GetHostModulePath();
  struct stat st;
  ASSERT_EQ(stat(real.c_str(), &st), 0) << real;
  EXPECT_TRUE(real[0] == '/' && S_ISREG(st.st_mode) && real.find("platform_tests") != std::string::npos) << real;
}

TEST(RandomTest, FixedSeedGivesTheSameSequence) {
  auto draw = [](RandomService& r) {
    std::vector<float> v(8);
    for (float& f : v) f = r.NextSingle();
    return v;
  };
  auto a = NewFixedRandomService(7);
  const std::vector<float> first = draw(*a);
  EXPECT_EQ(first, draw(*NewFixedRandomService(7)));
  a->Randomize();  // restarts from the seed
  EXPECT_EQ(first, draw(*a));
  EXPECT_NE(first, draw(*NewFixedRandomService(8)));
  for (float f : first) EXPECT_TRUE(f >= 0.0f && f < 1.0f) << f;
}

}  // namespace
}  // namespace tarvo2
