// tarvo2: the command-line tool for the library's three stores.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "cli/address.h"
#include "cli/output.h"
#include "cli/stores.h"
#include "cli/text.h"
#include "tarvo2/convert.h"

namespace tarvo2::cli {
namespace {

constexpr char kDescription[] =
    "tarvo2: read and change Tarvo2 stores (INI files, the per-user registry, storage-string page files)\n"
    "from the shell, exactly as applications of the library see them.\n\n"
    "Addresses:\n"
    "  ini:PATH[#SECTION]    an INI file (a name without '/' lies in ~/.config) and a section\n"
    "  reg:ROOT\\KEY\\PATH     a registry key; ROOT is HKEY_CURRENT_USER or HKCU, HKLM, HKCR, HKU\n"
    "  page:FILE[#PAGE]      a page file saved by a storage string, and the page's name\n\n"
    "Exit codes: 0 success, 1 not found, 2 usage error, 3 store failure.";

struct Settings {
  std::string registry;
  std::string format = "lines";
  std::optional<std::string> delimiter;
  bool raw = false;
  bool number = false;
  bool recursive = false;
  std::string address, target, name;
  std::vector<std::string> values;
};

void Write(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

OutputOptions Output(const Settings& s) {
  OutputOptions o;
  if (!ParseFormat(s.format, &o.format)) UsageError("unknown format '" + s.format + "' (lines, ini, sh, json)");
  if (s.delimiter) {
    o.delimiter = Utf8ToText(*s.delimiter);
    o.delimiter_given = true;
  }
  return o;
}

ReadOptions Read(const Settings& s) {
  ReadOptions r;  // arrays are read at the library's delimiter, the tab
  r.raw = s.raw;
  return r;
}

// One command-line value as the Variant to store: text, or with --number a
// Long (an integer in range) or a Double.
Variant ValueOf(const std::string& text, bool number) {
  std::u16string t = Utf8ToText(text);
  if (!number) return Variant(t);
  if (!IsNumericText(t)) UsageError("'" + text + "' is not a number");
  double d = TextToDouble(t);
  if (d == static_cast<double>(static_cast<std::int64_t>(d)) && d >= -2147483648.0 && d <= 2147483647.0 &&
      t.find(u'.') == std::u16string::npos)
    return Variant(static_cast<std::int32_t>(d));
  return Variant(d);
}

int Run(int argc, char** argv) {
  CLI::App app{kDescription, "tarvo2"};
  app.require_subcommand(1, 1);
  app.set_version_flag("--version", "tarvo2 " TARVO2_CLI_VERSION);
  app.fallthrough();
  Settings s;
  app.add_option("--registry", s.registry,
                 "The registry database to use (a file, or :memory:); default: $TARVO2_REGISTRY, else "
                 "~/.config/tarvo2/registry.sqlite3");

  auto add_format = [&](CLI::App* cmd) {
    cmd->add_option("-f,--format", s.format, "Output format: lines, ini, sh or json")
        ->check(CLI::IsMember({"lines", "ini", "sh", "json"}));
  };
  auto add_delimiter = [&](CLI::App* cmd, const char* help) { cmd->add_option("-d,--delimiter", s.delimiter, help); };
  auto add_address = [&](CLI::App* cmd) { cmd->add_option("address", s.address, "Store address")->required(); };

  CLI::App* get = app.add_subcommand("get", "Print the value of field NAME at ADDRESS");
  add_address(get);
  get->add_option("name", s.name, "Field, key or value name")->required();
  add_format(get);
  add_delimiter(get, "Join an array's elements with this text instead of printing one a line (sh, ini: instead of a tab)");
  get->add_flag("--raw", s.raw, "Print the stored text as it is, without array and number detection");

  CLI::App* set = app.add_subcommand("set", "Write field NAME at ADDRESS; several values make an array");
  add_address(set);
  set->add_option("name", s.name, "Field, key or value name")->required();
  set->add_option("values", s.values, "The value, or the elements of an array")->required();
  add_delimiter(set, "Delimiter that joins the elements of an array (default: tab)");
  set->add_flag("--number", s.number,
                "Store the values as numbers (an integer as a 32-bit number, in the registry a DWORD)");

  CLI::App* del = app.add_subcommand("del", "Delete field NAME, or without NAME the section, key or file");
  add_address(del);
  del->add_option("name", s.name, "Field, key or value name");
  del->add_flag("-r,--recursive", s.recursive, "Delete a registry key with all its subkeys");

  CLI::App* list = app.add_subcommand(
      "list", "List the sections of an INI file, the subkeys and values of a key, or the fields of a section or page");
  add_address(list);
  add_format(list);
  add_delimiter(list, "Join arrays with this text instead of a tab");
  list->add_flag("--raw", s.raw, "Print stored texts as they are, without array and number detection");

  CLI::App* copy = app.add_subcommand("copy", "Copy the whole content of SOURCE into TARGET (the library's import)");
  copy->add_option("source", s.address, "Source store address")->required();
  copy->add_option("target", s.target, "Target store address")->required();

  std::string encoding = "utf8";
  CLI::App* exp = app.add_subcommand("export", "Write a registry key with all its subkeys to a .reg file");
  exp->add_option("key", s.address, "Registry key address reg:ROOT\\KEY")->required();
  exp->add_option("file", s.target, "The .reg file to write, or - for stdout")->required();
  exp->add_option("--encoding", encoding,
                  "utf8 or utf16 (Windows Registry Editor Version 5.00; utf16 is regedit's UTF-16LE with BOM), or "
                  "regedit4 (REGEDIT4, 8-bit text in the code page); default utf8")
      ->check(CLI::IsMember({"utf8", "utf16", "regedit4"}));

  CLI::App* imp = app.add_subcommand(
      "import", "Apply a .reg file to the registry, all or nothing (REGEDIT4 or version 5.00, UTF-16LE or UTF-8)");
  imp->add_option("file", s.target, "The .reg file to read, or - for stdin")->required();

  for (CLI::App* cmd : app.get_subcommands({})) cmd->fallthrough();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help
    std::string verb = app.get_subcommands().empty() ? "" : " " + app.get_subcommands()[0]->get_name();
    std::fprintf(stderr, "tarvo2: error 5: %s [tarvo2%s] (see tarvo2%s --help)\n", e.what(), verb.c_str(),
                 verb.c_str());
    return kExitUsage;
  }

  CLI::App* cmd = app.get_subcommands()[0];
  std::string verb = cmd->get_name();
  try {
    try {
      UseRegistryLocation(s.registry);
      if (cmd == get) {
        Address a = ParseAddress(s.address);
        OutputOptions o = Output(s);
        Variant v = GetField(a, Utf8ToText(s.name), Read(s));
        Write(FormatValue(Utf8ToText(s.name), v, o));
      } else if (cmd == set) {
        Address a = ParseAddress(s.address);
        std::u16string delimiter = s.delimiter ? Utf8ToText(*s.delimiter) : u"\t";
        Variant value;
        if (s.values.size() == 1) {
          value = ValueOf(s.values[0], s.number);
        } else {
          std::vector<Variant> items;
          for (const auto& v : s.values) items.push_back(ValueOf(v, s.number));
          value = Variant(SafeArray::OfVariants(std::move(items)));
        }
        SetField(a, Utf8ToText(s.name), value, delimiter);
      } else if (cmd == del) {
        Address a = ParseAddress(s.address);
        std::optional<std::u16string> name;
        if (del->count("name")) name = Utf8ToText(s.name);
        Delete(a, name, s.recursive);
      } else if (cmd == list) {
        Address a = ParseAddress(s.address);
        OutputOptions o = Output(s);
        Write(FormatListing(List(a, o.format != Format::kLines, Read(s)), o));
      } else if (cmd == copy) {
        Copy(ParseAddress(s.address), ParseAddress(s.target));
      } else if (cmd == exp) {
        ExportRegistry(ParseAddress(s.address), s.target, encoding);
      } else if (cmd == imp) {
        ImportRegistry(s.target);
      }
    } catch (...) {
      Error e = CurrentError();
      ExitCode code = kExitStoreFailure;
      try {
        throw;
      } catch (const Error& original) {
        code = ExitCodeFor(original);
      } catch (...) {
      }
      e.AppendSource(Utf8ToText("tarvo2 " + verb));
      std::fprintf(stderr, "tarvo2: error %s\n", e.what());
      return code;
    }
  } catch (...) {
    std::fprintf(stderr, "tarvo2: error 51: Internal error [tarvo2 %s]\n", verb.c_str());
    return kExitStoreFailure;
  }
  std::fflush(stdout);
  if (std::ferror(stdout)) {
    std::fprintf(stderr, "tarvo2: error 57: Device I/O error: cannot write the output [tarvo2 %s]\n", verb.c_str());
    return kExitStoreFailure;
  }
  return kExitOk;
}

}  // namespace
}  // namespace tarvo2::cli

int main(int argc, char** argv) { return tarvo2::cli::Run(argc, argv); }
