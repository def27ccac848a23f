// The standard conversions of values, under one locale-independent rule.
//
// Numeric text (IsNumericText):
//   [spaces] [sign] mantissa [exponent] [spaces]
//   - spaces: U+0020 only, any number, before and after;
//   - sign: one "+" or "-";
//   - mantissa: digits with at most one full stop "." as decimal separator,
//     at least one digit in all ("5", "5.", ".5"); no thousands separators;
//   - exponent: "E", "e", "D" or "d", an optional sign, at least one digit;
//   - or, instead of sign, mantissa and exponent, a hexadecimal "&H" or octal
//     "&O" literal (letters in either case) of up to 32 bits, read as a
//     signed 32-bit value ("&HFF" is 255, "&HFFFFFFFF" is -1).
//   Anything else (empty text, blanks only, "1,000", "1.2.3", "Inf") is not
//   numeric.
// Text to Double: the numeric text's value, correctly rounded; a value
//   beyond the range of Double raises Overflow (6); non-numeric text raises
//   Type mismatch (13).
// Text to Long: the text's Double value rounded to the nearest integer,
//   halves to the even neighbour (2.5 -> 2, 3.5 -> 4, -2.5 -> -2); outside
//   -2147483648..2147483647 raises Overflow (6).
// Value to text: Long, Integer and Byte in decimal; Double with up to 15
//   significant digits, Single with up to 7, in fixed notation when the
//   decimal exponent lies in -5 < e < digits, else as "1.5E+20" /
//   "1E-05"; Currency with up to 4 decimals; Boolean as "True"/"False";
//   Date as "yyyy-mm-dd", "hh:mm:ss" or both; Empty as ""; Null raises
//   Invalid use of Null (94); Error values, arrays and records raise Type
//   mismatch (13); an object yields the text of its default member Value,
//   or raises 438 when it has none.
// Type names: "Empty", "Null", "Boolean", "Byte", "Integer", "Long",
//   "Single", "Double", "Currency", "Date", "String", "Error", "Nothing",
//   the class name of an object, the type name of a record, and for arrays
//   the element type's name followed by "()" ("Long()", "Variant()").
#ifndef TARVO2_CONVERT_H_
#define TARVO2_CONVERT_H_

#include <cstdint>

#include "tarvo2/export.h"
#include "tarvo2/variant.h"

namespace tarvo2 {

TARVO2_EXPORT bool IsNumericText(StringView text) noexcept;
// The runtime's IsNumeric: numbers, Booleans and Empty are numeric, text by
// IsNumericText; Null, Dates, objects, arrays and errors are not.
TARVO2_EXPORT bool IsNumeric(const Variant& v);

TARVO2_EXPORT double TextToDouble(StringView text);         // 13, 6
TARVO2_EXPORT std::int32_t TextToLong(StringView text);     // 13, 6
// Rounds half to even and range-checks for a Long (6).
TARVO2_EXPORT std::int32_t RoundToLong(double d);
TARVO2_EXPORT std::int16_t RoundToInteger(double d);

// Conversions of any value, with the rules above.
TARVO2_EXPORT String ToString(const Variant& v);
TARVO2_EXPORT double ToDouble(const Variant& v);
TARVO2_EXPORT std::int32_t ToLong(const Variant& v);
TARVO2_EXPORT std::int16_t ToInteger(const Variant& v);
TARVO2_EXPORT float ToSingle(const Variant& v);
TARVO2_EXPORT std::uint8_t ToByte(const Variant& v);
TARVO2_EXPORT Currency ToCurrency(const Variant& v);
TARVO2_EXPORT Date ToDate(const Variant& v);
// Numbers: non-zero is True; text: "True"/"False" in any case, or numeric
// text; others raise 13 (Null 94).
TARVO2_EXPORT bool ToBool(const Variant& v);
// An object reference (possibly Nothing); Empty and Nothing give Nothing,
// any other value raises 13.
TARVO2_EXPORT Ref<Object> ToObject(const Variant& v);
// Converts to the given scalar type (used by typed arrays and arguments).
TARVO2_EXPORT Variant ConvertTo(const Variant& v, VarType type);

TARVO2_EXPORT String DoubleToString(double d, int significant_digits = 15);
TARVO2_EXPORT String TypeName(const Variant& v);

// The value of an object's default member (dispatch identity 0); raises
// 438 when it has none. Scalars are returned unchanged.
TARVO2_EXPORT Variant DefaultValue(const Variant& v);

// Upper-cases text as the runtime's UCase does for the characters of the
// Latin ranges (ASCII, Latin-1, Latin Extended-A and the few Windows-1252
// letters); other characters are left as they are.
TARVO2_EXPORT String ToUpper(StringView s);
TARVO2_EXPORT char16_t ToUpperChar(char16_t c) noexcept;
TARVO2_EXPORT String ToLower(StringView s);
// Compares without regard to letter case (under ToUpper).
TARVO2_EXPORT bool EqualsNoCase(StringView a, StringView b) noexcept;

// Removes spaces (U+0020 only) from both ends; tabs and line ends stay.
TARVO2_EXPORT String Trim(StringView s);

}  // namespace tarvo2

#endif  // TARVO2_CONVERT_H_
