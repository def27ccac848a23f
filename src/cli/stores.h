// The verbs of the tarvo2 tool on the three stores, through the library's
// classes (KivINIFileHandler, KivRegistryKey, KivStorageString), so that
// every name rule, conversion and error is the one an application sees.
//
// Every function reports failure by throwing tarvo2::Error (a ToolError for
// what the tool itself detects); ExitCodeFor() gives the exit code. Nothing
// is created or changed by a function that fails before its write, and the
// reading functions never create a file, a registry database or a key.
#ifndef TARVO2_CLI_STORES_H_
#define TARVO2_CLI_STORES_H_

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cli/address.h"
#include "tarvo2/variant.h"

namespace tarvo2::cli {

// How values are read: the array delimiter (the library's tab), and whether arrays and numbers
// are detected (as applications read them) or the stored text is returned.
struct ReadOptions {
  std::u16string delimiter = u"\t";
  bool raw = false;
};

// The content of one address: the names of what it contains (sections of an
// INI file, subkeys of a registry key) and its fields with their values.
struct Listing {
  std::string container_kind;  // "sections", "subkeys" or "" when none
  std::vector<std::u16string> containers;
  std::vector<std::pair<std::u16string, Variant>> fields;  // values Empty unless read
};

// The registry database that the tool works on: `location` as given with
// --registry, or "" for the library's default (TARVO2_REGISTRY, else the
// per-user file). Call before any other function here.
void UseRegistryLocation(const std::string& location);

// Reads field `name` at `address`. Missing file, key, section, page or field:
// exit code 1.
Variant GetField(const Address& address, const std::u16string& name, const ReadOptions& options);

// Writes `value` (a scalar, or an array joined with `delimiter`) to field
// `name`, creating the file, section or key as needed.
void SetField(const Address& address, const std::u16string& name, const Variant& value,
              const std::u16string& delimiter);

// Deletes field `name`, or with no name the addressed container: the INI
// section (the whole file when no section is given), the registry key (with
// its subkeys only when `recursive`), or the page file.
void Delete(const Address& address, const std::optional<std::u16string>& name, bool recursive);

// Lists the address; the values of the fields are read when `with_values`.
Listing List(const Address& address, bool with_values, const ReadOptions& options);

// Copies the whole content of `source` into `target` with the library's
// importers (a store object assigned to the target's Value). A page target
// is saved afterwards; when the copy yields several pages, `target` must
// name the one to save.
void Copy(const Address& source, const Address& target);

// Writes the key at `address` (a reg address) with all its subkeys to the
// .reg file `file` ("-" for stdout), replacing it atomically. `encoding` is
// "utf8" or "utf16" (Windows Registry Editor Version 5.00) or "regedit4"
// (REGEDIT4, code-page text).
void ExportRegistry(const Address& address, const std::string& file, const std::string& encoding);

// Reads the .reg file `file` ("-" for stdin) whole, checks it, and applies
// it to the registry, all or nothing: a syntax error (exit code 2) names
// the file, line and column and changes nothing; a store failure midway
// (exit code 3) undoes what was done before it.
void ImportRegistry(const std::string& file);

// The code-page bytes of a registry key path or value name; a character that
// the code page cannot hold is a usage error.
std::string StoreName(const std::u16string& text, const char* what);

// Throws a ToolError for a registry result code (1009 to 1013 and the rest)
// recorded by `label`; does nothing for 0.
void CheckRegistryCode(std::int32_t code, const char16_t* label);

// Fails with exit code 1 when the registry database file is missing (a
// reading verb must not create it).
void RequireRegistryDatabase();

}  // namespace tarvo2::cli

#endif  // TARVO2_CLI_STORES_H_
