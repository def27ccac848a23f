// Text at the edges of the tarvo2 command-line tool.
//
// The stores keep text as 8-bit bytes in the library's code page (see
// tarvo2/codepage.h); the terminal, the command line and Unicode .reg files
// speak UTF-8 or UTF-16. Every conversion between store bytes and Unicode
// text in the tool goes through the functions below, so that the code page
// is decided in one place.
#ifndef TARVO2_CLI_TEXT_H_
#define TARVO2_CLI_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace tarvo2::cli {

// Store bytes (code page text) -> UTF-16 text. Never fails.
std::u16string StoreBytesToText(std::string_view bytes);

// UTF-16 text -> store bytes in the default context's code page
// (GetCodePage(), that of the stores the tool uses).
// Returns std::u16string::npos when every character has bytes in the code
// page; otherwise the index of the first unit that has none: under 1252 a
// character outside Windows-1252, under 65001 a lone surrogate (`*bytes`
// then holds the conversion with '?' or U+FFFD in its place).
std::size_t TextToStoreBytes(std::u16string_view text, std::string* bytes);

// UTF-8 <-> UTF-16 for the command line and the terminal (invalid UTF-8
// decodes to U+FFFD).
std::u16string Utf8ToText(std::string_view utf8);
std::string TextToUtf8(std::u16string_view text);

}  // namespace tarvo2::cli

#endif  // TARVO2_CLI_TEXT_H_
