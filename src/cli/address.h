// Store addresses of the tarvo2 command-line tool, and the tool's errors.
//
//   ini:PATH[#SECTION]     an INI file (the library's path rules: a name
//                          without '/' lies in the configuration folder)
//                          and optionally one of its sections;
//   reg:ROOT[\Key\Path]    a registry key; ROOT is HKEY_CLASSES_ROOT,
//                          HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE or
//                          HKEY_USERS, or HKCR, HKCU, HKLM, HKU (letter case
//                          ignored);
//   page:FILE[#PAGE]       a file saved by a storage string (one page of
//                          text), and the name that page carries.
// The section or page name follows the last '#'.
#ifndef TARVO2_CLI_ADDRESS_H_
#define TARVO2_CLI_ADDRESS_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "tarvo2/error.h"
#include "tarvo2/registry_key.h"

namespace tarvo2::cli {

// The tool's exit codes.
enum ExitCode : int {
  kExitOk = 0,
  kExitNotFound = 1,      // a store, key, section, page or field is missing
  kExitUsage = 2,         // bad arguments or input that no store can hold
  kExitStoreFailure = 3,  // a store failed or refused the operation
};

// An error of the tool: a tarvo2::Error that knows its exit code.
class ToolError : public Error {
 public:
  ToolError(ExitCode exit_code, std::int32_t number, const std::u16string& description);
  ExitCode exit_code() const noexcept { return exit_code_; }

 private:
  ExitCode exit_code_;
};

// Throws a ToolError whose source is "tarvo2" and whose description is the
// UTF-8 text `description`.
[[noreturn]] void Fail(ExitCode exit_code, std::int32_t number, std::string_view description);
// Shorthand for a usage error (number 5, invalid procedure call or argument).
[[noreturn]] void UsageError(std::string_view description);

// The exit code for a library error: 1 for missing things (53, ErrBadKey,
// ErrPageNotFound, ErrFieldNotFound), 2 for refused arguments (blank or
// illegal names, invalid parameters, type and conversion errors), 3 for
// everything else.
ExitCode ExitCodeFor(const Error& error);

enum class StoreKind { kIni, kRegistry, kPage };

struct Address {
  StoreKind kind = StoreKind::kIni;
  std::string text;          // the address as given (UTF-8)
  std::u16string path;       // ini and page: the file; reg: key path below the root
  bool has_section = false;  // ini and page: a '#' part was given
  std::u16string section;    // ini: section; page: page name
  RegRootKeyEnum root = tarvo_HKEY_CURRENT_USER;  // reg only
};

// Parses `text` (UTF-8). A missing or unknown prefix, an unknown root, an
// empty path or an empty '#' part is a usage error.
Address ParseAddress(std::string_view text);

// The registry root named `name` in long or short form, letter case
// ignored; false when it names none.
bool ParseRootName(std::u16string_view name, RegRootKeyEnum* root);

// "HKEY_CURRENT_USER\Software\App" for a reg address (the root alone for a
// root address).
std::u16string FullKeyPath(const Address& address);

}  // namespace tarvo2::cli

#endif  // TARVO2_CLI_ADDRESS_H_
