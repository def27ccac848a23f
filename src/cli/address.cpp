#include "cli/address.h"

#include "cli/text.h"
#include "tarvo2/convert.h"
#include "tarvo2/library_errors.h"

namespace tarvo2::cli {

ToolError::ToolError(ExitCode exit_code, std::int32_t number, const std::u16string& description)
    : Error(number, u"tarvo2", description), exit_code_(exit_code) {}

void Fail(ExitCode exit_code, std::int32_t number, std::string_view description) {
  throw ToolError(exit_code, number, Utf8ToText(description));
}

void UsageError(std::string_view description) {
  Fail(kExitUsage, err::kInvalidProcedureCall, description);
}

ExitCode ExitCodeFor(const Error& error) {
  if (auto* tool = dynamic_cast<const ToolError*>(&error)) return tool->exit_code();
  switch (error.Number()) {
    case err::kFileNotFound:
    case LibraryErrorNumber(ErrBadKey):
    case LibraryErrorNumber(ErrPageNotFound):
    case LibraryErrorNumber(ErrFieldNotFound):
      return kExitNotFound;
    case err::kInvalidProcedureCall:
    case err::kOverflow:
    case err::kSubscriptOutOfRange:
    case err::kTypeMismatch:
    case err::kInvalidUseOfNull:
    case err::kBadFileNameOrNumber:
    case LibraryErrorNumber(ErrZeroLengthFieldName):
    case LibraryErrorNumber(ErrIllegalCharacters):
    case LibraryErrorNumber(ErrInvalidParameters):
    case LibraryErrorNumber(ErrPageNameExists):
    case LibraryErrorNumber(ErrKeyHasSubkeys):
      return kExitUsage;
    default:
      return kExitStoreFailure;
  }
}

bool ParseRootName(std::u16string_view name, RegRootKeyEnum* root) {
  static const struct {
    const char16_t* long_name;
    const char16_t* short_name;
    RegRootKeyEnum root;
  } kRoots[] = {
      {u"HKEY_CLASSES_ROOT", u"HKCR", tarvo_HKEY_CLASSES_ROOT},
      {u"HKEY_CURRENT_USER", u"HKCU", tarvo_HKEY_CURRENT_USER},
      {u"HKEY_LOCAL_MACHINE", u"HKLM", tarvo_HKEY_LOCAL_MACHINE},
      {u"HKEY_USERS", u"HKU", tarvo_HKEY_USERS},
  };
  for (const auto& r : kRoots) {
    if (EqualsNoCase(name, r.long_name) || EqualsNoCase(name, r.short_name)) {
      *root = r.root;
      return true;
    }
  }
  return false;
}

std::u16string FullKeyPath(const Address& address) {
  std::u16string full = RootKeyName(address.root);
  if (!address.path.empty()) full += u"\\" + address.path;
  return full;
}

Address ParseAddress(std::string_view text) {
  Address a;
  a.text = std::string(text);
  std::size_t colon = text.find(':');
  std::string_view prefix = colon == std::string_view::npos ? std::string_view() : text.substr(0, colon);
  std::u16string rest = Utf8ToText(colon == std::string_view::npos ? text : text.substr(colon + 1));
  if (prefix == "reg") {
    a.kind = StoreKind::kRegistry;
    std::size_t sep = rest.find(u'\\');
    std::u16string root = rest.substr(0, sep);
    if (!ParseRootName(root, &a.root))
      UsageError("unknown registry root in '" + a.text +
                 "' (use HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS or HKCR, HKCU, "
                 "HKLM, HKU)");
    if (sep != std::u16string::npos) a.path = rest.substr(sep + 1);
    while (!a.path.empty() && a.path.back() == u'\\') a.path.pop_back();
    return a;
  }
  if (prefix == "ini" || prefix == "page") {
    a.kind = prefix == "ini" ? StoreKind::kIni : StoreKind::kPage;
    std::size_t hash = rest.rfind(u'#');
    if (hash != std::u16string::npos) {
      a.has_section = true;
      a.section = rest.substr(hash + 1);
      rest.resize(hash);
      if (a.section.empty())
        UsageError("empty " + std::string(prefix == "ini" ? "section" : "page") + " name after '#' in '" +
                   a.text + "'");
    }
    if (rest.empty()) UsageError("no file named in '" + a.text + "'");
    a.path = rest;
    return a;
  }
  UsageError("'" + a.text + "' is not a store address (ini:PATH[#SECTION], reg:ROOT\\KEY, page:FILE[#PAGE])");
}

}  // namespace tarvo2::cli
