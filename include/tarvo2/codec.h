// The value codec and the small helpers that the stores share.
//
// All stores keep values as text. PrepForSet turns a client's value into
// what is stored: an array becomes the texts of its elements joined by the
// delimiter, anything else is returned unchanged (the store then takes its
// text). PrepForGet turns stored text back into a value: a delimited text
// can become an array again (of Longs or Doubles when every element is
// numeric), and a numeric text a Long or a Double. The conversions are those
// of convert.h.
//
// Every procedure here runs under the standard handler with its bare name as
// label ("PrepForSet", ...), except SafeUBound, which never fails.
#ifndef TARVO2_CODEC_H_
#define TARVO2_CODEC_H_

#include <cstdint>

#include "tarvo2/services.h"
#include "tarvo2/variant.h"

namespace tarvo2 {

// The value to store: for an array (type name ending in "()"), the texts of
// its elements joined by `delimiter`; otherwise `value` itself. Raises 9 for
// an array without elements or never sized, 6 for bounds outside the 16-bit
// range, 94/13 when an element cannot become text. `delimiter` is not
// changed.
TARVO2_EXPORT Variant PrepForSet(const Variant& value, String& delimiter);

// The value to hand to a client for the stored `value`:
//  - a Long is returned as it is; anything but a Long or a String gives Empty;
//  - with `detect_array` and `delimiter` found in the text: the parts split
//    at every delimiter (indexed from 0); with `detect_number` and all parts
//    numeric, as Doubles when the text holds a full stop, else as Longs;
//  - else with `detect_number`: a Double when IsDouble holds, a Long when
//    the text is numeric (rounded half to even, 6 on overflow), else the text;
//  - else the text. An empty delimiter makes any non-empty text an array of
//    one element.
TARVO2_EXPORT Variant PrepForGet(const Variant& value, const String& delimiter, bool detect_array, bool detect_number);

// The texts of the array's elements, with the array's bounds. Arrays of
// Strings are copied; of Integers, Longs, Doubles, Booleans or Variants
// converted element by element; of any other element type left empty.
// Raises 9 (no elements / never sized), 6 (bounds outside -32768..32767).
TARVO2_EXPORT void VarToStrArray(Variant& array, SafeArray& result);

// Every element converted to Long (half to even) or to Double, with the
// array's bounds. Raises 13 for a non-numeric element, 6 on overflow, and as
// VarToStrArray for the bounds.
TARVO2_EXPORT void StrArrayToLngArray(const Variant& array, SafeArray& result);
TARVO2_EXPORT void StrArrayToDblArray(const Variant& array, SafeArray& result);

// True unless an element is not numeric text; true for an array without
// elements. Raises 13 when `array` is not an array.
TARVO2_EXPORT bool AllNumeric(const Variant& array);

// True when `value` is numeric, its text holds a full stop, and no second
// full stop follows. Raises 6 when the first full stop stands beyond
// position 32767.
TARVO2_EXPORT bool IsDouble(const Variant& value);

// True when the path names an existing file or folder of the file system
// of `services`, or, with wildcards (* ?), when anything matches it. False
// for the empty path.
TARVO2_EXPORT bool PathExists(const Services& services, StringView path);

// The upper bound of `array` in `dimension` as a Long, or Null when it has
// none (not an array, never sized, no such dimension). Never raises.
TARVO2_EXPORT Variant SafeUBound(const Variant& array, std::int32_t dimension = 1);

// Splits `text` at every occurrence of `delimiter` (exact comparison) into
// an array of strings indexed from 0. An empty delimiter yields the whole
// text as the one element; an empty text yields an array without elements.
TARVO2_EXPORT SafeArray SplitText(StringView text, StringView delimiter);

// Joins the strings of `array` with `delimiter`.
TARVO2_EXPORT String JoinStrings(const SafeArray& array, StringView delimiter);

}  // namespace tarvo2

#endif  // TARVO2_CODEC_H_
