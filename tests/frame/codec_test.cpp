// The value codec: what a store keeps for a value and what it hands back.
#include <gtest/gtest.h>

#include "tarvo2/codec.h"

#include "frame/counters.h"
#include "tarvo2/testing/file_system.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

Variant Strings(std::vector<String> s) { return Variant(SafeArray::OfStrings(std::move(s))); }
Variant Longs(std::vector<Variant> v) { return Variant(SafeArray::Of(VarType::kLong, std::move(v))); }
Variant Doubles(std::vector<Variant> v) { return Variant(SafeArray::Of(VarType::kDouble, std::move(v))); }

TEST(Codec, PrepForSetJoinsArrays) {
  String tab = u"\t", comma = u",";
  struct Row {
    const char* what;
    Variant value;
    String& delimiter;
    Variant stored;
  } rows[] = {
      {"strings, tab", Strings({u"a", u"b"}), tab, Variant(u"a\tb")},
      {"strings, comma", Strings({u"a", u"b"}), comma, Variant(u"a,b")},
      {"variants", Variant(SafeArray::OfVariants({Variant(1), Variant(2.5), Variant(u"x")})), tab,
       Variant(u"1\t2.5\tx")},
      {"doubles", Doubles({1.5, 2.0}), tab, Variant(u"1.5\t2")},
      {"booleans", Variant(SafeArray::Of(VarType::kBoolean, {true, false})), tab, Variant(u"True\tFalse")},
      {"singles stay empty", Variant(SafeArray::Of(VarType::kSingle, {1.5f, 2.0f, 3.0f})), tab,
       Variant(u"\t\t")},
      {"bytes stay empty", Variant(SafeArray::Of(VarType::kByte, {std::uint8_t{1}, std::uint8_t{2}})), tab,
       Variant(u"\t")},
      {"scalar unchanged", Variant(12), tab, Variant(12)},
      {"lower bound kept", Variant(SafeArray::OfStrings({u"x", u"y"}, 5)), tab, Variant(u"x\ty")},
  };
  for (auto& r : rows) {
    SCOPED_TRACE(r.what);
    EXPECT_EQ(PrepForSet(r.value, r.delimiter), r.stored);
  }
}

TEST(Codec, PrepForSetFailures) {
  String tab = u"\t";
  EXPECT_ERROR(PrepForSet(Strings({}), tab), 9, u"Subscript out of range",
               u"Tarvo2\r\nVarToStrArray\r\nPrepForSet");
  EXPECT_ERROR(PrepForSet(Variant(SafeArray(VarType::kString)), tab), 9, u"Subscript out of range",
               u"Tarvo2\r\nVarToStrArray\r\nPrepForSet");
  EXPECT_ERROR(PrepForSet(Variant(SafeArray(VarType::kString, 32760, 8)), tab), 6, u"Overflow",
               u"Tarvo2\r\nVarToStrArray\r\nPrepForSet");
  EXPECT_ERROR(PrepForSet(Variant(SafeArray::OfVariants({Variant::Null()})), tab), 94, u"Invalid use of Null",
               u"Tarvo2\r\nVarToStrArray\r\nPrepForSet");
}

TEST(Codec, PrepForGetDetectsArraysAndNumbers) {
  struct Row {
    const char* what;
    Variant stored;
    String delimiter;
    bool detect_array, detect_number;
    Variant expected;
  } rows[] = {
      {"longs", Variant(u"1\t2\t3"), u"\t", true, true, Longs({1, 2, 3})},
      {"doubles", Variant(u"1\t2.5"), u"\t", true, true, Doubles({1.0, 2.5})},
      {"mixed stays text", Variant(u"a\t1"), u"\t", true, true, Strings({u"a", u"1"})},
      {"numbers off", Variant(u"1\t2"), u"\t", true, false, Strings({u"1", u"2"})},
      {"arrays off", Variant(u"1\t2"), u"\t", false, true, Variant(u"1\t2")},
      {"long", Variant(u"12"), u"\t", true, true, Variant(12)},
      {"double", Variant(u"12.5"), u"\t", true, true, Variant(12.5)},
      {"two stops", Variant(u"1.2.3"), u"\t", true, true, Variant(u"1.2.3")},
      {"leading zeros", Variant(u"007"), u"\t", true, true, Variant(7)},
      {"leading zeros kept", Variant(u"007"), u"\t", true, false, Variant(u"007")},
      {"half to even", Variant(u"2.5e0"), u"\t", false, true, Variant(2.5)},
      {"empty", Variant(u""), u"\t", true, true, Variant(u"")},
      {"blanks", Variant(u"   "), u"\t", true, true, Variant(u"   ")},
      {"stored long", Variant(5), u"\t", false, false, Variant(5)},
      {"other types", Variant(2.5), u"\t", true, true, Variant()},
      {"empty delimiter", Variant(u"abc"), u"", true, true, Strings({u"abc"})},
      {"empty delimiter, number", Variant(u"42"), u"", true, true, Longs({42})},
      {"empty delimiter, empty text", Variant(u""), u"", true, true, Variant(u"")},
      {"trailing delimiter", Variant(u"1\t"), u"\t", true, true, Strings({u"1", u""})},
  };
  for (auto& r : rows) {
    SCOPED_TRACE(r.what);
    EXPECT_EQ(PrepForGet(r.stored, r.delimiter, r.detect_array, r.detect_number), r.expected);
  }
  EXPECT_ERROR(PrepForGet(Variant(u"99999999999"), u"\t", true, true), 6, u"Overflow",
               u"Tarvo2\r\nPrepForGet");
  EXPECT_ERROR(PrepForGet(Variant(u"1\t99999999999"), u"\t", true, true), 6, u"Overflow",
               u"Tarvo2\r\nStrArrayToLngArray\r\nPrepForGet");
}

TEST(Codec, Helpers) {
  EXPECT_TRUE(IsDouble(Variant(u"1.5")));
  EXPECT_FALSE(IsDouble(Variant(u"15")));
  EXPECT_FALSE(IsDouble(Variant(u"1.5.")));
  EXPECT_FALSE(IsDouble(Variant(u"x.5")));
  EXPECT_TRUE(AllNumeric(Strings({})));
  EXPECT_FALSE(AllNumeric(Strings({u"1", u"x"})));
  EXPECT_EQ(SafeUBound(Variant(SafeArray(VarType::kString))), Variant::Null());
  EXPECT_EQ(SafeUBound(Variant(5)), Variant::Null());
  EXPECT_EQ(SafeUBound(Strings({u"a", u"b"})), Variant(1));
  EXPECT_EQ(SafeUBound(Strings({u"a"}), 2), Variant::Null());
  std::int32_t n = 5;
  EXPECT_EQ(PostInc(n), 5);
  EXPECT_EQ(n, 6);
  EXPECT_EQ(PreInc(n), 7);
  EXPECT_EQ(n, 7);
  n = INT32_MAX;
  EXPECT_ERROR(PreInc(n), 6, u"Overflow", u"Tarvo2\r\nPreInc");
  EXPECT_ERROR(PostInc(n), 6, u"Overflow", u"Tarvo2\r\nPostInc");
  EXPECT_EQ(n, INT32_MAX);
}

TEST(Codec, PathExistsAsksTheFileSystem) {
  auto mem = NewMemFileSystem();
  auto services = Services::New();
  services->set_file_system(mem);
  ASSERT_TRUE(mem->CreateDir("/data").ok());
  ASSERT_TRUE(mem->WriteFile("/data/app.ini", "x", false).ok());
  EXPECT_TRUE(PathExists(*services, u"/data/app.ini"));
  EXPECT_TRUE(PathExists(*services, u"/data"));
  EXPECT_TRUE(PathExists(*services, u"/data/*.ini"));
  EXPECT_FALSE(PathExists(*services, u"/data/*.txt"));
  EXPECT_FALSE(PathExists(*services, u""));
  EXPECT_FALSE(PathExists(*Services::New(), u"/data/app.ini"));  // another context, another file system
}

}  // namespace
}  // namespace tarvo2
