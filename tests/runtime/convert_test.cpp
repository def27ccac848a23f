// The standard conversions: numeric text, text to numbers, values to text,
// type names. Each table row names its input so a failure says which.
#include <gtest/gtest.h>

#include <cmath>

#include "tarvo2/convert.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

TEST(Convert, NumericTextRule) {
  struct Row { const char16_t* text; bool numeric; } rows[] = {
      {u"12", true},     {u" 12 ", true},   {u"+5", true},     {u"-5", true},
      {u"1.5", true},    {u".5", true},     {u"5.", true},     {u"1e3", true},
      {u"1E+3", true},   {u"2.5d-2", true}, {u"&H1F", true},   {u"&o17", true},
      {u"", false},      {u"   ", false},   {u"1,000", false}, {u"1.2.3", false},
      {u"1e", false},    {u"e5", false},    {u"-", false},     {u".", false},
      {u"\t1", false},   {u"1 2", false},   {u"&H", false},    {u"&HG", false},
      {u"Inf", false},   {u"0x10", false},  {u"&H1FFFFFFFF", false}, {u"+-1", false},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(ToUtf8(r.text));
    EXPECT_EQ(IsNumericText(r.text), r.numeric);
  }
}

TEST(Convert, TextToLongRoundsHalvesToEven) {
  struct Row { const char16_t* text; std::int32_t value; } rows[] = {
      {u"2.5", 2},   {u"3.5", 4},    {u"-2.5", -2},  {u"-3.5", -4}, {u"0.5", 0},
      {u"1.5", 2},   {u"2.51", 3},   {u" 7 ", 7},    {u"007", 7},   {u"1e3", 1000},
      {u"&HFF", 255}, {u"&HFFFFFFFF", -1}, {u"2147483647", 2147483647},
      {u"-2147483648", -2147483647 - 1}, {u"2147483647.4", 2147483647},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(ToUtf8(r.text));
    EXPECT_EQ(TextToLong(r.text), r.value);
  }
  EXPECT_ERROR(TextToLong(u"2147483648"), 6, u"Overflow", u"Tarvo2");
  EXPECT_ERROR(TextToLong(u"2147483647.5"), 6, u"Overflow", u"Tarvo2");
  EXPECT_ERROR(TextToLong(u"abc"), 13, u"Type mismatch", u"Tarvo2");
  EXPECT_ERROR(TextToLong(u""), 13, u"Type mismatch", u"Tarvo2");
}

TEST(Convert, TextToDouble) {
  EXPECT_DOUBLE_EQ(TextToDouble(u"12.5"), 12.5);
  EXPECT_DOUBLE_EQ(TextToDouble(u"-1.25E2"), -125.0);
  EXPECT_DOUBLE_EQ(TextToDouble(u"1d-3"), 0.001);
  EXPECT_EQ(TextToDouble(u"1e-400"), 0.0);
  EXPECT_ERROR(TextToDouble(u"1e400"), 6, u"Overflow", u"Tarvo2");
  EXPECT_ERROR(TextToDouble(u"1,5"), 13, u"Type mismatch", u"Tarvo2");
}

TEST(Convert, ValuesToText) {
  struct Row { Variant value; const char16_t* text; } rows[] = {
      {Variant(), u""}, {Variant(true), u"True"}, {Variant(false), u"False"}, {Variant(std::int32_t{-42}), u"-42"},
      {Variant(std::int16_t{7}), u"7"}, {Variant(2.5), u"2.5"}, {Variant(0.1 + 0.2), u"0.3"},
      {Variant(1e15), u"1E+15"}, {Variant(123456789012345.0), u"123456789012345"}, {Variant(1e-5), u"1E-05"},
      {Variant(0.0001), u"0.0001"}, {Variant(-1.5e-20), u"-1.5E-20"}, {Variant(1.0 / 3.0), u"0.333333333333333"},
      {Variant(100.0), u"100"}, {Variant(1.5f), u"1.5"}, {Variant(Currency{12345}), u"1.2345"},
      {Variant(Currency{-20000}), u"-2"}, {Variant(Date{45000.5}), u"2023-03-15 12:00:00"},
      {Variant(Date{0.25}), u"06:00:00"}, {Variant(u"x"), u"x"},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(ToUtf8(r.text));
    EXPECT_EQ(ToString(r.value), String(r.text));
  }
  EXPECT_ERROR(ToString(Variant::Null()), 94, u"Invalid use of Null", u"Tarvo2");
  EXPECT_ERROR(ToString(Variant::Missing()), 13, u"Type mismatch", u"Tarvo2");
  EXPECT_ERROR(ToString(Variant(SafeArray::OfStrings({u"a"}))), 13, u"Type mismatch", u"Tarvo2");
  EXPECT_ERROR(ToString(Variant::Nothing()), 91, StandardDescription(91), u"Tarvo2");
}

TEST(Convert, BooleansFromValues) {
  EXPECT_TRUE(ToBool(Variant(u"true")));
  EXPECT_FALSE(ToBool(Variant(u" FALSE ")));
  EXPECT_TRUE(ToBool(Variant(u"-1")));
  EXPECT_FALSE(ToBool(Variant(u"0")));
  EXPECT_TRUE(ToBool(Variant(0.5)));
  EXPECT_ERROR(ToBool(Variant(u"yes")), 13, u"Type mismatch", u"Tarvo2");
  EXPECT_ERROR(ToBool(Variant::Null()), 94, u"Invalid use of Null", u"Tarvo2");
}

TEST(Convert, TypeNamesAsClientsSeeThem) {
  struct Row { Variant value; const char16_t* name; } rows[] = {
      {Variant(), u"Empty"}, {Variant::Null(), u"Null"}, {Variant(std::int32_t{1}), u"Long"},
      {Variant(std::int16_t{1}), u"Integer"}, {Variant(1.0), u"Double"}, {Variant(u"s"), u"String"},
      {Variant(true), u"Boolean"}, {Variant::Missing(), u"Error"}, {Variant::Nothing(), u"Nothing"},
      {Variant(SafeArray::OfStrings({u"a"})), u"String()"},
      {Variant(SafeArray::OfVariants({Variant(1)})), u"Variant()"},
      {Variant(SafeArray(VarType::kDouble, 0, 2)), u"Double()"},
      {Variant(Record(u"KivSSLookForResults", {})), u"KivSSLookForResults"},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(ToUtf8(r.name));
    EXPECT_EQ(TypeName(r.value), String(r.name));
  }
}

TEST(Convert, CaseAndTrim) {
  EXPECT_EQ(ToUpper(u"abcäöüÿšœ"), u"ABCÄÖÜŸŠŒ");
  EXPECT_TRUE(EqualsNoCase(u"Colour", u"cOLOUR"));
  EXPECT_FALSE(EqualsNoCase(u"Colour", u"Color"));
  EXPECT_EQ(Trim(u"  a b \t "), u"a b \t");
  EXPECT_EQ(Trim(u"\ta "), u"\ta");
}

TEST(Variants, ArraysHaveValueSemanticsAndBounds) {
  SafeArray a(VarType::kLong, -2, 3);
  a.Put(-2, Variant(u"5"));  // converted to the element type
  Variant v(a);
  Variant copy = v;
  copy.AsArray().Put(0, Variant(9));
  EXPECT_EQ(v.AsArray().At(0), Variant(0));
  EXPECT_EQ(v.AsArray().At(-2), Variant(5));
  EXPECT_EQ(v.AsArray().UBound(), 0);
  EXPECT_ERROR(v.AsArray().At(1), 9, u"Subscript out of range", u"Tarvo2");
  EXPECT_ERROR(a.Put(-1, Variant(u"x")), 13, u"Type mismatch", u"Tarvo2");
  SafeArray never(VarType::kString);
  EXPECT_ERROR(never.UBound(), 9, u"Subscript out of range", u"Tarvo2");
}

}  // namespace
}  // namespace tarvo2
