// Values of a key: writing, reading back, arrays, defaults, Value, deletion
// and listing.
#include "registry_test_util.h"

namespace tarvo2 {
namespace {

class KeyValuesTest : public RegistryTest {};

SafeArray Longs(std::vector<std::int32_t> v) {
  std::vector<Variant> items(v.begin(), v.end());
  return SafeArray::Of(VarType::kLong, items);
}

TEST_F(KeyValuesTest, ValuesReadBackThroughTheCodec) {
  struct Row {
    const char* what;
    Variant written;
    String delimiter;
    bool detect_array, detect_number;
    std::string stored;  // the raw text, "" for a number
    Variant read;
  };
  const Row rows[] = {
      {"true", Variant(true), u"\t", true, true, "", Variant(std::int32_t{-1})},
      {"integers", SafeArray::Of(VarType::kInteger, {Variant(std::int16_t{1}), Variant(std::int16_t{2}),
                                                     Variant(std::int16_t{3})}),
       u"\t", true, true, "1\t2\t3", Longs({1, 2, 3})},
      {"strings with comma", SafeArray::OfStrings({u"a", u"b"}), u",", true, true, "a,b",
       SafeArray::OfStrings({u"a", u"b"})},
      {"mixed variants", SafeArray::OfVariants({Variant(1), Variant(2.5), Variant(u"x")}), u"\t", true, true,
       "1\t2.5\tx", SafeArray::OfStrings({u"1", u"2.5", u"x"})},
      {"doubles", SafeArray::Of(VarType::kDouble, {Variant(1.5), Variant(2.0)}), u"\t", true, true, "1.5\t2",
       SafeArray::Of(VarType::kDouble, {Variant(1.5), Variant(2.0)})},
      {"no number detection", Variant(u"1\t2"), u"\t", true, false, "1\t2", SafeArray::OfStrings({u"1", u"2"})},
      {"no array detection", Variant(u"1\t2"), u"\t", false, true, "1\t2", Variant(u"1\t2")},
      {"long text", Variant(u"12"), u"\t", true, true, "12", Variant(std::int32_t{12})},
      {"double text", Variant(u"12.5"), u"\t", true, true, "12.5", Variant(12.5)},
      {"two stops", Variant(u"1.2.3"), u"\t", true, true, "1.2.3", Variant(u"1.2.3")},
      {"blanks", Variant(u"  "), u"\t", true, true, "  ", Variant(u"  ")},
      {"empty", Variant(u""), u"\t", true, true, "", Variant(u"")},
  };
  auto key = Key(u"Software\\Vendor\\App");
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    EXPECT_FALSE(key->SetValue(u"v", r.written, r.delimiter));
    if (!r.written.IsBoolean()) {
      EXPECT_EQ(Raw("Software\\Vendor\\App", "v").second, r.stored + '\0');
    }
    EXPECT_EQ(key->GetValue(u"v", r.delimiter, r.detect_array, r.detect_number), r.read);
    EXPECT_EQ(key->get_Value(), r.read);
  }
}

TEST_F(KeyValuesTest, NamesAreTrimmedAndABlankNameIsRefused) {
  auto key = Key(u"Software\\Trim");
  EXPECT_FALSE(key->SetValue(u" word ", Variant(u"x")));
  EXPECT_EQ(Raw("Software\\Trim", "word").second, std::string("x\0", 2));
  EXPECT_ERROR(key->SetValue(u"  ", Variant(u"y")), LibNumber(ErrZeroLengthFieldName),
               u"Zero Length Feild Names Are Not Allowed", Chain({u"Tarvo2", u"KivRegistryKey.SetValue"}));
  EXPECT_EQ(Raw("Software\\Trim", "").first, 0xFFFFu);
  SetRaiseErrors(false);  // then the default value is written
  EXPECT_FALSE(key->SetValue(u"  ", Variant(u"y")));
  EXPECT_EQ(Raw("Software\\Trim", "").second, std::string("y\0", 2));
  EXPECT_EQ(key->GetValueNames().Count(), 1u);  // the default value is not listed
}

TEST_F(KeyValuesTest, DefaultsStandForMissingValuesOnly) {
  auto key = Key(u"Software\\Defaults");
  key->SetValue(u"kept", Variant(u"k"));
  key->SetValue(u"empty", Variant(u""));
  EXPECT_EQ(key->GetValue(u"nope", u"\t", true, true, Variant(42)), Variant(42));
  EXPECT_EQ(key->get_ErrorState(), 2);
  EXPECT_EQ(key->get_Value(), Variant(u""));  // the last value is left as it was
  EXPECT_EQ(key->GetValue(u"empty", u"\t", true, true, Variant(42)), Variant(u""));
  EXPECT_EQ(key->StdInterface()->GetValue(u"nope"), Variant(u""));
  EXPECT_ERROR(key->SetValue(u"bad", Variant(SafeArray(VarType::kString))), 9, u"Subscript out of range",
               Chain({u"Tarvo2", u"VarToStrArray", u"PrepForSet", u"KivRegistryKey.SetValue"}));
}

TEST_F(KeyValuesTest, ValueWritesUnderTheRememberedNameAndDelimiter) {
  auto key = Key(u"Software\\Value");
  EXPECT_ERROR(key->put_Value(Variant(u"x")), LibNumber(ErrZeroLengthFieldName),
               u"Zero Length Feild Names Are Not Allowed",
               Chain({u"Tarvo2", u"KivRegistryKey.SetValue", u"KivRegistryKey.Import (Let)"}));
  Variant comma(u",");
  key->SetValue(u"list", SafeArray::OfStrings({u"a"}), comma);  // by-reference delimiter
  key->put_Value(SafeArray::OfStrings({u"b", u"c"}));
  EXPECT_EQ(Raw("Software\\Value", "list").second, std::string("b,c\0", 4));
  EXPECT_EQ(key->get_Value(), Variant(SafeArray::OfStrings({u"b", u"c"})));
}

TEST_F(KeyValuesTest, DeleteValueForgetsTheRememberedName) {
  auto key = Key(u"Software\\Del");
  key->SetValue(u"Colour", Variant(u"Red"), u";");
  EXPECT_TRUE(key->DeleteValue(u"COLOUR").IsEmpty());
  EXPECT_EQ(Raw("Software\\Del", "Colour").first, 0xFFFFu);
  EXPECT_EQ(key->get_Value(), Variant(u"Red"));
  EXPECT_ERROR(key->put_Value(Variant(u"x")), LibNumber(ErrZeroLengthFieldName),
               u"Zero Length Feild Names Are Not Allowed",
               Chain({u"Tarvo2", u"KivRegistryKey.SetValue", u"KivRegistryKey.Import (Let)"}));
  EXPECT_ERROR(key->DeleteValue(u"Colour"), LibNumber(ErrBadKey), u"Bad Key",
               Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.DeleteValue"}));
}

TEST_F(KeyValuesTest, ValueNamesComeInCreationOrder) {
  auto key = Key(u"Software\\List");
  EXPECT_EQ(key->GetValueNames().Count(), 0u);
  key->SetValue(u"zeta", Variant(1));
  key->SetValue(u"Alpha", Variant(1));
  RegKey h = 0;  // a name of blanks only, written past the key object
  GetRegistryStore()->OpenKey(kHKeyCurrentUser, "Software\\List", 2, &h);
  GetRegistryStore()->SetValue(h, "  ", kRegSz, reinterpret_cast<const std::uint8_t*>("b"), 2);
  GetRegistryStore()->CloseKey(h);
  key->SetValue(u"mid", Variant(1));
  SafeArray names = key->GetValueNames();
  EXPECT_EQ(names, SafeArray::OfStrings({u"zeta", u"Alpha", u"mid"}));
  EXPECT_EQ(names.LBound(), 0);
  EXPECT_EQ(key->get_ErrorState(), 0);
  // A key that cannot be opened lists nothing and records nothing.
  GetRegistryStore()->DeleteKey(kHKeyCurrentUser, "Software\\List");
  EXPECT_EQ(key->GetValueNames().Count(), 0u);
  EXPECT_EQ(key->get_ErrorState(), 0);
}

}  // namespace
}  // namespace tarvo2
