// The platform's ANSI code page and the UTF-8 edges.
//
// Text that the library hands to files, the registry store and the profile
// store is 8-bit text in Windows-1252. The mapping used here is total in the
// byte direction: every one of the 256 byte values maps to one character and
// back, the five bytes that Windows-1252 leaves unassigned (0x81, 0x8D, 0x8F,
// 0x90, 0x9D) mapping to the C1 control characters of the same number.
#ifndef TARVO2_CODEPAGE_H_
#define TARVO2_CODEPAGE_H_

#include <string>
#include <string_view>

#include "tarvo2/export.h"

namespace tarvo2 {

// The byte written for a character that the code page cannot represent.
inline constexpr char kAnsiReplacement = '?';

// The character that byte `b` stands for.
TARVO2_EXPORT char16_t AnsiByteToChar(unsigned char b) noexcept;

// The byte for `c`, or -1 when the code page has none.
TARVO2_EXPORT int CharToAnsiByte(char16_t c) noexcept;

// Converts 16-bit text to code-page bytes, one byte per 16-bit unit;
// unrepresentable units (surrogate halves included) become kAnsiReplacement.
TARVO2_EXPORT std::string ToAnsi(std::u16string_view text);

// Converts code-page bytes to 16-bit text, one unit per byte. Never fails.
TARVO2_EXPORT std::u16string FromAnsi(std::string_view bytes);

// True when every unit of `text` has a byte in the code page.
TARVO2_EXPORT bool IsAnsiRepresentable(std::u16string_view text) noexcept;

// UTF-8 <-> UTF-16 for the edges of the library (file names, the console).
// Invalid UTF-8 sequences decode to U+FFFD; lone surrogates encode as U+FFFD.
TARVO2_EXPORT std::string ToUtf8(std::u16string_view text);
TARVO2_EXPORT std::u16string FromUtf8(std::string_view text);

}  // namespace tarvo2

#endif  // TARVO2_CODEPAGE_H_
