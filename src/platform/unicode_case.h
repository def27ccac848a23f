// Letter case of names for the stores' case-insensitive matching: section
// and key names of INI files, key and value names of the registry.
//
// Names match under Unicode simple case folding (CaseFolding.txt, statuses
// C and S): "Ä" matches "ä", "Σ", "σ" and "ς" match each other, "ẞ" matches
// "ß", but "ß" does not match "SS" (that would be full folding, which
// changes lengths). Within the characters of Windows-1252 this gives the
// same pairs as upper-casing, so names written under code page 1252 match
// as they always have. The folding comes from ICU (u_foldCase), whose
// tables follow the Unicode version of the installed ICU.
#ifndef TARVO2_PLATFORM_UNICODE_CASE_H_
#define TARVO2_PLATFORM_UNICODE_CASE_H_

#include <string>
#include <string_view>

namespace tarvo2::unicode_case {

// `text` with every code point replaced by its simple case fold. Surrogate
// pairs are folded as the code point they encode; a lone surrogate stays.
// Two names match exactly when their folds are equal.
std::u16string Fold(std::u16string_view text);

// The sort key of a name held as valid UTF-8: each code point c becomes the
// upper case of its fold f, or f itself when that upper case folds to
// something else (so "ı" keeps apart from "I"), written as UTF-8. Two names
// have equal keys exactly when their folds are equal, and the byte order of
// keys is the order of the names compared in upper case, as Windows lists
// registry keys. Invalid bytes are copied unchanged.
std::string UpperKey(std::string_view utf8);

}  // namespace tarvo2::unicode_case

#endif  // TARVO2_PLATFORM_UNICODE_CASE_H_
