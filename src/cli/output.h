// Output formats of the tarvo2 tool's get and list verbs.
//
//   lines  get: the value; an array one element a line, or joined with the
//          delimiter when one was given. list: one name a line (subkeys
//          with a trailing '\').
//   ini    name=value lines; list adds "[name]" lines for sections/subkeys.
//   sh     name='value' lines, safe to eval in any POSIX shell: every value
//          is single-quoted ("'" written as '\''), names are made into shell
//          identifiers (characters other than letters, digits and '_'
//          become '_', a leading digit gets a '_' before it); arrays are
//          joined with the delimiter. list adds one variable named after
//          the containers ("sections" or "subkeys") holding their names,
//          one a line.
//   json   get: the value (a string, a number, an array, or null for
//          Empty). list: {"sections"|"subkeys": [...], "fields": {...}}.
// All text is written as UTF-8.
#ifndef TARVO2_CLI_OUTPUT_H_
#define TARVO2_CLI_OUTPUT_H_

#include <string>

#include "cli/stores.h"

namespace tarvo2::cli {

enum class Format { kLines, kIni, kSh, kJson };

// Parses "lines", "ini", "sh" or "json"; false for anything else.
bool ParseFormat(const std::string& text, Format* format);

struct OutputOptions {
  Format format = Format::kLines;
  std::u16string delimiter = u"\t";
  bool delimiter_given = false;  // lines: join arrays instead of one a line
};

// The text that `get` prints for field `name` with value `value`.
std::string FormatValue(const std::u16string& name, const Variant& value, const OutputOptions& options);

// The text that `list` prints.
std::string FormatListing(const Listing& listing, const OutputOptions& options);

// Pieces, exposed for tests.
std::string ShellQuote(const std::string& utf8);
std::string ShellName(const std::u16string& name);
std::string JsonValue(const Variant& value);

}  // namespace tarvo2::cli

#endif  // TARVO2_CLI_OUTPUT_H_
