// The library's 8-bit code page, and the conversions between 16-bit text and
// the 8-bit text that the library hands to files, the registry store and the
// profile store.
//
// Two code pages are offered, as Windows offers them for its ANSI calls:
//
//  * 1252 (Windows-1252, the default): one byte per character. The mapping
//    is total in the byte direction: every one of the 256 byte values maps to
//    one character and back, the five bytes that Windows-1252 leaves
//    unassigned (0x81, 0x8D, 0x8F, 0x90, 0x9D) mapping to the C1 control
//    characters of the same number. A character without a byte is written
//    as '?' (kAnsiReplacement), one '?' per 16-bit unit, so an emoji (a
//    surrogate pair) becomes "??".
//  * 65001 (UTF-8): text is written as UTF-8; a lone surrogate is written as
//    U+FFFD (EF BF BD). Reading, each byte that does not belong to a valid
//    UTF-8 sequence (a stray continuation byte, a truncated sequence, an
//    overlong form, an encoded surrogate, a value above U+10FFFF, the bytes
//    C0, C1, F5..FF) reads as one U+FFFD; the valid bytes around it read as
//    their characters.
//
// Lengths and cuts of 8-bit text count bytes under both code pages. Under
// 65001 a cut never splits a character: CutPoint() gives the longest prefix
// of whole characters within a byte limit.
//
// The code page itself belongs to a context: Services::code_page() of
// tarvo2/services.h, GetCodePage()/SetCodePage() for the default context.
// The stores take 8-bit text in their own code page (code_page() of
// ProfileStore and RegistryStore), which their context keeps equal to its
// own.
#ifndef TARVO2_CODEPAGE_H_
#define TARVO2_CODEPAGE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tarvo2/export.h"

namespace tarvo2 {

inline constexpr std::uint32_t kCodePage1252 = 1252;
inline constexpr std::uint32_t kCodePageUtf8 = 65001;

// The code page that the environment variable TARVO2_CODEPAGE names: 65001
// for "65001" (surrounding blanks allowed), else 1252 (also when the
// variable is unset or empty). Every context (tarvo2/services.h) and every
// store made without a code page starts with it. Read at each call.
TARVO2_EXPORT std::uint32_t EnvironmentCodePage() noexcept;

// True for 1252 and 65001.
TARVO2_EXPORT bool IsSupportedCodePage(std::uint32_t code_page) noexcept;

// --- Conversions in a given code page. `code_page` must be supported; any
// other value is treated as 1252.

// 16-bit text to 8-bit text, with the replacements described above.
TARVO2_EXPORT std::string ToCodePage(std::u16string_view text, std::uint32_t code_page);

// 8-bit text to 16-bit text, with the U+FFFD rule above. Never fails.
TARVO2_EXPORT std::u16string FromCodePage(std::string_view bytes, std::uint32_t code_page);

// True when ToCodePage() writes every character of `text` as itself: under
// 1252 every unit has a byte; under 65001 `text` holds no lone surrogate.
TARVO2_EXPORT bool IsRepresentable(std::u16string_view text, std::uint32_t code_page) noexcept;

// Where a cut of `bytes` to at most `limit` bytes ends: under 1252,
// min(limit, size); under 65001 the same, moved back to the start of a
// valid multi-byte sequence that would otherwise be split, so that the
// prefix holds only whole characters (at most 3 bytes fewer than `limit`).
// Bytes that are not valid UTF-8 count as one character each.
TARVO2_EXPORT std::size_t CutPoint(std::string_view bytes, std::size_t limit,
                     std::uint32_t code_page) noexcept;

// Where the last character of `bytes` starts (0 for empty text): size-1
// under 1252; under 65001 the start of the last valid UTF-8 sequence when
// `bytes` ends with one, otherwise size-1.
TARVO2_EXPORT std::size_t LastCharStart(std::string_view bytes, std::uint32_t code_page) noexcept;

// --- Windows-1252 itself.

// The byte written for a character that Windows-1252 cannot represent.
inline constexpr char kAnsiReplacement = '?';

// The character that byte `b` stands for.
TARVO2_EXPORT char16_t AnsiByteToChar(unsigned char b) noexcept;

// The byte for `c`, or -1 when the code page has none.
TARVO2_EXPORT int CharToAnsiByte(char16_t c) noexcept;

// Converts 16-bit text to Windows-1252, one byte per 16-bit unit;
// unrepresentable units (surrogate halves included) become kAnsiReplacement.
TARVO2_EXPORT std::string ToAnsi(std::u16string_view text);

// Converts Windows-1252 bytes to 16-bit text, one unit per byte. Never fails.
TARVO2_EXPORT std::u16string FromAnsi(std::string_view bytes);

// True when every unit of `text` has a byte in Windows-1252.
TARVO2_EXPORT bool IsAnsiRepresentable(std::u16string_view text) noexcept;

// --- UTF-8, for the edges of the library (native file names, the console)
// and for code page 65001. Invalid UTF-8 decodes to U+FFFD per byte as
// described above; lone surrogates encode as U+FFFD.
TARVO2_EXPORT std::string ToUtf8(std::u16string_view text);
TARVO2_EXPORT std::u16string FromUtf8(std::string_view text);

// The length of the valid UTF-8 sequence that starts at bytes[pos] (1 to 4),
// or 0 when the byte there does not start one. REQUIRES: pos < size.
TARVO2_EXPORT std::size_t Utf8SequenceLength(std::string_view bytes, std::size_t pos) noexcept;

}  // namespace tarvo2

#endif  // TARVO2_CODEPAGE_H_
