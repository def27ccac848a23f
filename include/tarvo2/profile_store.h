// The profile store: INI files read and written the way the Win32 functions
// GetPrivateProfileStringA and WritePrivateProfileStringA do it.
//
// Section names, key names, values and defaults are 8-bit text in the
// store's code page at the time of the call (code_page(): Windows-1252 or
// UTF-8, see tarvo2/codepage.h); a null pointer means what NULL means to
// Win32. File names are native paths in UTF-8. A file name without
// '/' names a file in the per-user configuration folder ($XDG_CONFIG_HOME,
// or ~/.config); any other name is used as it is.
//
// File format, as read: lines end with CR LF, LF or CR; blanks (space, tab)
// around names and values are ignored; "[name]" starts a section (text after
// the first ']' is ignored, a header without ']' takes the rest of the
// line); "key=value" is a key line, the value being everything after the
// first '='; one matching pair of outer quotes ("..." or '...') is removed
// from a value; a line whose first non-blank character is ';' is a comment;
// other lines, and key lines before the first section, are ignored. Names
// match under Unicode simple case folding ("Ä"/"ä", "Σ"/"σ"/"ς"; not "ß"/
// "SS"); of duplicate sections or keys the first wins, while listings
// repeat them. A file that starts with a UTF-8 byte-order mark is read as
// UTF-8 converted to the code page, and is written back as UTF-8 with its
// mark. Any other file is text in the code page: its bytes are handed out
// as they are (under 65001 invalid UTF-8 included, which the caller's
// conversion reads as U+FFFD), so a file written under one code page and
// read under the other gives what Windows gives for the same bytes: "Café"
// written under 1252 (byte E9) reads as "Caf\uFFFD" under 65001, and written
// under 65001 (C3 A9) reads as "CafÃ©" under 1252.
//
// Writes edit the file in place: every byte that the write does not
// concern is kept. They are atomic (a temporary file renamed over the
// target, through FileSystem::ReplaceFileAtomically) and serialized across
// processes by FileSystem::LockFile, so no update of another process is
// lost. Parsed files are cached and re-validated against the file at every
// call, so changes made by other processes show at the next call.
//
// All methods are safe for concurrent use by several threads.
#ifndef TARVO2_PROFILE_STORE_H_
#define TARVO2_PROFILE_STORE_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "tarvo2/codepage.h"
#include "tarvo2/export.h"
#include "tarvo2/file_system.h"

namespace tarvo2 {

// Win32 error codes that the profile store reports through LastError().
enum ProfileError : uint32_t {
  kProfileOk = 0,
  kProfileFileNotFound = 2,       // ERROR_FILE_NOT_FOUND
  kProfilePathNotFound = 3,       // ERROR_PATH_NOT_FOUND
  kProfileAccessDenied = 5,       // ERROR_ACCESS_DENIED
  kProfileInvalidParameter = 87,  // ERROR_INVALID_PARAMETER
  kProfileDiskFull = 112,         // ERROR_DISK_FULL
  kProfileInvalidName = 123,      // ERROR_INVALID_NAME
  kProfileIoDevice = 1117,        // ERROR_IO_DEVICE
};

class TARVO2_EXPORT ProfileStore {
 public:
  // A store in EnvironmentCodePage().
  ProfileStore();
  ProfileStore(const ProfileStore&) = delete;
  ProfileStore& operator=(const ProfileStore&) = delete;
  virtual ~ProfileStore();

  // Reads from the profile file `file` into buffer[0 .. size-1] and returns
  // the number of bytes placed, not counting the final NUL. Spaces (not
  // tabs) are stripped from both ends of `section` and `key`. Sizes and
  // cuts count bytes. Under code page 65001 a cut never splits a character:
  // it ends before the character that would not fit whole (CutPoint() of
  // tarvo2/codepage.h), so it may place up to 3 bytes fewer than said below.
  //
  // - section and key given: the key's value. A value that does not fit is
  //   cut to size-1 bytes plus a NUL, and size-1 is returned. When the key,
  //   the section or the file is missing (or the key begins with ';'),
  //   `def` is placed instead, with its trailing spaces stripped; a null
  //   `def` counts as "".
  // - section null: the names of all sections; `key` is ignored.
  // - key null: the names of the section's keys.
  //   A list is each name followed by a NUL, then one more NUL ("A\0BB\0\0"),
  //   and the result counts all but the last NUL. A list whose length + 1
  //   is >= size is cut so that its last name ends at index size-2, NULs
  //   stand at size-2 and size-1, and size-2 is returned (0 when size < 2).
  //   An empty list (also of a missing file) is a single NUL and gives 0.
  //   Names that are empty are not listed.
  // Reads are whole for a caller whose buffer is large enough: a caller that
  // uses this store directly may pass any size, and when a value came back
  // as size-1 bytes or a list as size-2 it may have been cut, so ask again
  // with a larger buffer. KivINIFileHandler does not: its reads always pass
  // a buffer of 1,024, so its clients see values cut to 1,023 characters
  // and lists cut to 1,022.
  // With size 0 nothing is written and 0 is returned. A null buffer with a
  // nonzero size writes nothing, returns 0 and sets LastError() to 87.
  // Never fails otherwise: LastError() becomes 0 when the file was read,
  // or 2 (missing file), 3 (missing folder), 5 (folder or unreadable file).
  virtual uint32_t GetPrivateProfileString(const char* section,
                                           const char* key, const char* def,
                                           char* buffer, uint32_t size,
                                           const std::string& file) = 0;

  // Changes the profile file `file` and returns true on success. Spaces are
  // stripped from both ends of `section` and `key`.
  //
  // - value given: sets the key. An existing key keeps its line: everything
  //   up to the first non-blank character after its '=' stays, the rest of
  //   the line becomes `value`. A new key goes directly after the last line
  //   of its section that is neither blank nor a comment; a new section
  //   ("[section]" and "key=value") is appended at the end of the file; a
  //   missing file is created (with LF line ends). Added lines use the
  //   file's own line end and terminate an unterminated last line first.
  //   Writing the value already stored leaves the file untouched.
  // - value null: deletes the key's line (the section header stays).
  // - key null: deletes the section's header and key lines; its comments
  //   stay. `value` is ignored.
  // - section and key null: does nothing and returns true.
  // Deleting what does not exist succeeds and changes nothing; a delete
  // against a missing file creates nothing.
  //
  // On failure returns false, sets LastError() and leaves the file as it
  // was: 87 for CR or LF in section, key or value, or a key that is empty,
  // contains '=' or begins with ';' or '['; 2 for a null section with a
  // non-null key (or an empty file name); 3 for a missing folder; 5 for a
  // read-only file or a path naming a folder; 112, 123 or 1117 for other
  // failures of the file system. On success LastError() becomes 0.
  virtual bool WritePrivateProfileString(const char* section, const char* key,
                                         const char* value,
                                         const std::string& file) = 0;

  // The ProfileError code of the latest call of the calling thread, like
  // GetLastError(); shared by all profile stores.
  virtual uint32_t LastError() const;

  // The code page of the text this store takes and hands out: kCodePage1252
  // or kCodePageUtf8. A context keeps its stores in its own code page
  // (Services::set_code_page), so a store is best not shared between
  // contexts of different code pages. A call takes the code page once, at
  // its start.
  std::uint32_t code_page() const { return code_page_.load(std::memory_order_relaxed); }
  // REQUIRES: IsSupportedCodePage(code_page); any other value counts as 1252.
  void set_code_page(std::uint32_t code_page) {
    code_page_.store(code_page, std::memory_order_relaxed);
  }

 protected:
  // Records `code` as the calling thread's last error.
  static void SetLastError(uint32_t code);

 private:
  std::atomic<std::uint32_t> code_page_;
};

// A new profile store over `fs` (FileSystem::Default() when null), in
// `code_page` (EnvironmentCodePage() when 0). REQUIRES: code_page is 0 or
// supported.
TARVO2_EXPORT std::shared_ptr<ProfileStore> NewProfileStore(
    std::shared_ptr<FileSystem> fs = nullptr, std::uint32_t code_page = 0);

// The path that the profile store uses for `file`: the name itself when it
// contains '/', otherwise the name inside $XDG_CONFIG_HOME (when absolute)
// or $HOME/.config. Empty for an empty name.
TARVO2_EXPORT std::string ResolveProfilePath(const std::string& file);

}  // namespace tarvo2

#endif  // TARVO2_PROFILE_STORE_H_
