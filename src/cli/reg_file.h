// Registry files (.reg): the text format of regedit, read and written.
//
// A file starts with a header line, "REGEDIT4" (8-bit text in the stores'
// code page) or "Windows Registry Editor Version 5.00" (Unicode: UTF-16LE
// with a byte-order mark, or UTF-8 with or without one). Then come key
// blocks:
//
//   [HKEY_CURRENT_USER\Software\App]      creates the key (and its parents)
//   @="default value"                     the key's default value
//   "Name"="text with \\ and \" escaped"  REG_SZ
//   "Count"=dword:0000002a                REG_DWORD, 8 hex digits
//   "Blob"=hex:01,02,ff                   REG_BINARY
//   "Path"=hex(2):25,00,...               REG_EXPAND_SZ; hex(7): REG_MULTI_SZ,
//                                         hex(b): REG_QWORD, hex(0): REG_NONE,
//                                         hex(N): any type number N (hex)
//   "Old"=-                               deletes the value
//   [-HKEY_CURRENT_USER\Software\Gone]    deletes the key with its subkeys
//
// Hex lists continue on the next line after a trailing '\'; blank lines and
// lines starting with ';' are ignored; lines end with CR LF, LF or CR. Roots
// are written long (HKEY_CURRENT_USER) or short (HKCU; letter case ignored)
// and always written long. In a version 5.00 file the data of types 1, 2
// and 7 written as hex is UTF-16LE text, as on Windows; it is converted to
// and from the code page. Everything else is stored as the bytes given.
//
// The model holds names and data as the registry store keeps them: key
// paths and value names in code-page bytes, value data as raw bytes.
#ifndef TARVO2_CLI_REG_FILE_H_
#define TARVO2_CLI_REG_FILE_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo2::regfile {

struct RegFileValue {
  std::string name;       // "" is the key's default value ("@")
  bool remove = false;    // "name"=-
  std::uint32_t type = 0;
  std::string data;       // the value's bytes (empty when `remove`)
  int line = 0;           // 1-based line of the value in the file read
};

struct RegFileKey {
  std::string path;       // long root name, then "\" and the key path (none for a root)
  bool remove = false;    // [-path]
  std::vector<RegFileValue> values;
  int line = 0;
};

enum class RegFileEncoding {
  kRegedit4,  // "REGEDIT4", code-page bytes
  kUtf16Le,   // "Windows Registry Editor Version 5.00", UTF-16LE with BOM
  kUtf8,      // "Windows Registry Editor Version 5.00", UTF-8 without BOM
};

struct RegFile {
  RegFileEncoding encoding = RegFileEncoding::kUtf8;  // as read; ignored by WriteRegFile
  std::vector<RegFileKey> keys;
};

// Where and why a file could not be read. Lines and columns are 1-based;
// columns count characters of the decoded line.
struct RegFileError {
  int line = 0;
  int column = 0;
  std::string message;  // UTF-8, without the location
};

// Parses the whole of `bytes`. On success fills `*file` and returns true.
// On the first error returns false with `*error` set and `*file` in no
// particular state. Besides the syntax, it checks what the registry store
// would refuse: an unknown root, an empty key path component, a component
// longer than 255 characters or a path deeper than 512 levels, a value name
// longer than 16,383 characters, a character the code page cannot hold, odd
// UTF-16 data, and values inside a deleted key. Never throws except
// std::bad_alloc.
bool ParseRegFile(std::string_view bytes, RegFile* file, RegFileError* error);

// Writes the text of `file` in `encoding` to `*out`, CR LF line ends: the
// header, a blank line, then every key block followed by a blank line.
// REG_SZ data that is one text ending in a single NUL, without CR or LF, is
// written as a string, REG_DWORD data of 4 bytes as dword:, anything else
// as a hex list wrapped near 80 columns. ParseRegFile of the result gives
// `file` back (lines aside). Returns false, with `*error` naming the key or
// value, when a key path or value name holds CR or LF, which no line of the
// format can carry. Requires: key paths begin with a long root name.
bool WriteRegFile(const RegFile& file, RegFileEncoding encoding, std::string* out, std::string* error);

}  // namespace tarvo2::regfile

#endif  // TARVO2_CLI_REG_FILE_H_
