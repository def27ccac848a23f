// The Tarvo2 example application.
//
// Creates objects through the class factory, calls members by name,
// converts values, and shows how an error reaches a client with its number,
// description and source chain.
#include <iostream>
#include <string>

#include "tarvo2/codepage.h"
#include "tarvo2/tarvo2.h"

using namespace tarvo2;

namespace {

std::string U8(StringView s) { return ToUtf8(s); }

std::string Show(const Variant& v) {
  std::string out = U8(TypeName(v));
  if (v.IsArray()) {
    out += " {";
    bool first = true;
    for (const auto& e : v.AsArray().Items()) {
      out += first ? " " : ", ";
      out += Show(e);
      first = false;
    }
    return out + " }";
  }
  try {
    return out + " " + U8(ToString(v));
  } catch (const Error&) {
    return out;
  }
}

void PrintError(const Error& e) {
  std::cout << "  error " << e.Number() << ": " << U8(e.Description()) << "\n";
  std::u16string source = e.Source();
  std::size_t start = 0;
  for (;;) {
    std::size_t p = source.find(u"\r\n", start);
    std::cout << "    source: " << U8(source.substr(start, p == String::npos ? String::npos : p - start)) << "\n";
    if (p == String::npos) break;
    start = p + 2;
  }
}

void Section(const char* title) { std::cout << "\n== " << title << " ==\n"; }

}  // namespace

int main() {
  Section("Classes of the library");
  for (const auto& id : LibraryClasses().ProgIds()) std::cout << "  " << U8(id) << "\n";

  Section("Calling by name");
  Variant std_if(CreateObject(u"Tarvo2.TarvoStdInterface"));
  std::cout << "  TarvoStdInterface.Version() = " << Show(Call(std_if, u"version")) << "\n";
  Variant lib(GetTarvoLibrary());
  std::cout << "  TarvoLibrary.Version(False) = " << Show(Call(lib, u"Version", {false})) << "\n";
  std::cout << "  Report text: " << U8(VersionReportText(u"TarvoLibrary")).replace(14, 1, " | ") << "\n";

  Section("Conversions");
  String tab = u"\t";
  for (const Variant& v : {Variant(u"1\t2\t3"), Variant(u"1\t2.5"), Variant(u"a\t1"), Variant(u"007"),
                           Variant(u"12.5"), Variant(u"1.2.3")}) {
    std::string shown = U8(v.AsString());
    for (auto& c : shown)
      if (c == '\t') c = '|';
    std::cout << "  stored \"" << shown << "\" reads back as " << Show(PrepForGet(v, tab, true, true)) << "\n";
  }
  Variant arr(SafeArray::OfVariants({Variant(1), Variant(2.5), Variant(u"x")}));
  std::cout << "  " << Show(arr) << " is stored as \"" << U8(ToString(PrepForSet(arr, tab))) << "\"\n";

  Section("Errors");
  try {
    CreateObject(u"Tarvo2.NoSuchClass");
  } catch (const Error& e) {
    PrintError(e);
  }
  try {
    Call(lib, u"KivCenterForm");
  } catch (const Error& e) {
    PrintError(e);
  }
  try {
    // A form without a WindowState property: the failure passes through the
    // placement helper, which adds its line to the source chain.
    Variant form(MakeRef<DynamicObject>(u"Form"));
    Call(lib, u"KivCenterForm", {ByRef(form)});
  } catch (const Error& e) {
    PrintError(e);
  }
  return 0;
}
