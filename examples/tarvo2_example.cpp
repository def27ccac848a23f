// The Tarvo2 example application.
//
// A small application that uses the library the way a desktop program
// would: it creates objects through the class factory and calls them by
// member name, keeps settings in a storage string, a registry and an INI
// file, saves and restores where its two windows stood in each of the three
// stores, copies each store into the others and prints what every store
// holds, and shows how errors and a failing store reach a client.
//
// It leaves no trace: its registry database, INI files and saved page live
// in a fresh temporary folder (below $TMPDIR, or /tmp) that it removes
// before it exits, and the program pretends to live in that folder, so the
// window placement INI file lands there too. Two runs print the same text
// except for the folder's name on the first line; paths below it are
// printed as $FOLDER/...
//
// Usage: tarvo2_example [--keep]
//   --keep  leave the temporary folder in place and name it at the end
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "tarvo2/codepage.h"
#include "tarvo2/tarvo2.h"

using namespace tarvo2;

namespace {

// The example's own folder, ending in '/'; printed as "$FOLDER/".
std::string g_folder;

std::string U8(StringView s) {
  std::string out = ToUtf8(s);
  if (!g_folder.empty())
    for (std::size_t p; (p = out.find(g_folder)) != std::string::npos;) out.replace(p, g_folder.size(), "$FOLDER/");
  for (std::size_t p; (p = out.find('\t')) != std::string::npos;) out.replace(p, 1, "\\t");
  for (std::size_t p; (p = out.find('\r')) != std::string::npos;) out.replace(p, 1, "\\r");
  for (std::size_t p; (p = out.find('\n')) != std::string::npos;) out.replace(p, 1, "\\n");
  return out;
}

std::string Show(const Variant& v) {
  if (v.IsArray()) {
    std::string out = U8(TypeName(v)) + " {";
    bool first = true;
    for (const auto& e : v.AsArray().Items()) {
      out += first ? " " : ", ";
      out += Show(e);
      first = false;
    }
    return out + " }";
  }
  if (v.IsRecord()) {
    std::string out = U8(TypeName(v)) + " {";
    for (const auto& [name, value] : v.AsRecord().Fields()) out += " " + U8(name) + "=" + Show(value);
    return out + " }";
  }
  try {
    if (v.IsString()) return "\"" + U8(v.AsString()) + "\"";
    return U8(TypeName(v)) + " " + U8(ToString(v));
  } catch (const Error&) {
    return U8(TypeName(v));
  }
}

void PrintError(const Error& e) {
  std::cout << "  error " << e.Number() << ": " << U8(e.Description()) << "\n";
  const String& source = e.Source();
  std::size_t start = 0;
  for (;;) {
    std::size_t p = source.find(u"\r\n", start);
    std::cout << "    from " << U8(source.substr(start, p == String::npos ? String::npos : p - start)) << "\n";
    if (p == String::npos) break;
    start = p + 2;
  }
}

void Heading(const char* title) { std::cout << "\n== " << title << " ==\n"; }

Variant Names(const Variant& store, StringView member) { return Call(store, member); }

// Prints everything a store holds, unit by unit (pages, key and subkeys,
// sections), reading through the store's own members by name.
void PrintStore(const char* label, const Variant& store) {
  String cls = TypeName(store);
  std::cout << "  " << label << " (" << U8(cls) << ")\n";
  auto fields = [&](const Variant& s, StringView names_member) {
    Variant names = Names(s, names_member);
    for (const Variant& n : names.AsArray().Items())
      std::cout << "      " << U8(n.AsString()) << " = "
                << Show(Call(s, u"GetValue", {n, u"\t", true, true, Variant(u"")})) << "\n";
  };
  if (cls == u"KivStorageString") {
    std::int32_t count = ToLong(GetProperty(store, u"PageCount"));
    Variant current = GetProperty(store, u"Page");
    for (std::int32_t i = 1; i <= count; ++i) {
      if (count > 1) LetProperty(store, u"Page", i);
      std::cout << "    page " << i << " \"" << U8(ToString(GetProperty(store, u"PageName"))) << "\"\n";
      fields(store, u"GetFieldNames");
    }
    if (count > 1) LetProperty(store, u"Page", current);
  } else if (cls == u"KivRegistryKey") {
    std::cout << "    key " << U8(ToString(GetProperty(store, u"KeyName"))) << "\n";
    fields(store, u"GetValueNames");
    ForEach(GetProperty(store, u"SubKeys"), [&](const Variant& sub) {
      std::cout << "    subkey " << U8(ToString(GetProperty(sub, u"KeyName"))) << "\n";
      fields(sub, u"GetValueNames");
    });
  } else {
    Variant sections = Call(store, u"GetSectionNames");
    Variant keep = GetProperty(store, u"Section");
    for (const Variant& s : sections.AsArray().Items()) {
      LetProperty(store, u"Section", s);
      std::cout << "    [" << U8(s.AsString()) << "]\n";
      fields(store, u"GetFieldNames");
    }
    LetProperty(store, u"Section", keep);
  }
}

Variant NewForm(const char16_t* name, double top, double left, double width, double height) {
  Ref<DynamicObject> form = MakeRef<DynamicObject>(u"Form");
  form->Put(u"Name", String(name));
  form->Put(u"Top", top);
  form->Put(u"Left", left);
  form->Put(u"Width", width);
  form->Put(u"Height", height);
  form->Put(u"WindowState", std::int32_t{0});
  return Variant(form);
}

std::string Bounds(const Variant& form) {
  std::string out;
  for (const char16_t* p : {u"Top", u"Left", u"Width", u"Height", u"WindowState"})
    out += U8(p) + "=" + U8(ToString(GetProperty(form, p))) + " ";
  return out;
}

// ---------------------------------------------------------------------------

void CallingByName() {
  Heading("Classes and calling by name");
  for (const auto& id : LibraryClasses().ProgIds()) {
    const TypeInfo* info = LibraryClasses().Find(id);
    std::cout << "  " << U8(id) << ": " << info->members.size() << " members"
              << (info->creatable ? "" : " (not creatable)") << "\n";
  }
  Variant ss(CreateObject(u"Tarvo2.KivStorageString"));
  std::cout << "  KivStorageString.Version() = " << Show(Call(ss, u"version")) << "\n";
  std::cout << "  TarvoLibrary.Version(False) = " << Show(Call(Variant(GetTarvoLibrary()), u"Version", {false}))
            << "\n";
  std::cout << "  version report: " << U8(VersionReportText(u"KivStorageString")) << "\n";
}

void Conversions() {
  Heading("Values as the stores keep them");
  String tab = u"\t";
  Variant arr(SafeArray::OfVariants({Variant(1), Variant(2.5), Variant(u"x")}));
  std::cout << "  " << Show(arr) << " is stored as " << Show(PrepForSet(arr, tab)) << "\n";
  for (const Variant& v : {Variant(u"1\t2\t3"), Variant(u"1\t2.5"), Variant(u"a\t1"), Variant(u"007"),
                           Variant(u"12.5"), Variant(u"1.2.3")})
    std::cout << "  stored " << Show(v) << " reads back as " << Show(PrepForGet(v, tab, true, true)) << "\n";
}

void StorageString(const std::string& folder) {
  Heading("Storage string: fields, pages, cipher, search and replace, files");
  Variant ss(CreateObject(u"Tarvo2.KivStorageString"));
  LetProperty(ss, u"PageName", u"Colours");
  Call(ss, u"SetValue", {u"Colour", u"Red"});
  Call(ss, u"SetValue", {u"Sizes", Variant(SafeArray::OfVariants({Variant(10), Variant(12), Variant(14)}))});
  std::cout << "  page text: " << Show(GetProperty(ss, u"Value")) << "\n";
  std::cout << "  GetValue(Sizes) = " << Show(Call(ss, u"GetValue", {u"Sizes"})) << "\n";
  Call(ss, u"AddPage", {u"Notes", true});
  LetProperty(ss, u"Value", u"The quick brown fox\r\njumps over the lazy dog.\r\nThe end.");
  std::cout << "  pages: " << Show(Call(ss, u"GetPageNames")) << ", current " << Show(GetProperty(ss, u"Page"))
            << ", lines " << Show(GetProperty(ss, u"LineCount")) << "\n";
  Variant found = Call(ss, u"LookFor", {Variant(SafeArray::OfStrings({u"the", u"fox"})), false, false});
  std::cout << "  LookFor(the, fox): " << Show(found) << "\n";
  std::cout << "  Find(\"o\") at " << Show(Call(ss, u"Find", {u"o", false})) << ", again at "
            << Show(Call(ss, u"Find")) << "\n";
  Variant n = Call(ss, u"Replace", {u"The", u"A", false, true, true});
  std::cout << "  Replace(The -> A, all) replaced " << Show(n) << ": " << Show(GetProperty(ss, u"Value")) << "\n";
  LetProperty(ss, u"EncryptionKey", u"secret");
  LetProperty(ss, u"Encrypted", true);
  std::cout << "  enciphered: " << Show(GetProperty(ss, u"Value")) << "\n";
  LetProperty(ss, u"Encrypted", false);
  std::cout << "  deciphered: " << Show(GetProperty(ss, u"Value")) << "\n";
  String file = FromUtf8(folder) + u"tarvo2_example.page";
  Call(ss, u"Save", {file});
  Variant copy(CreateObject(u"Tarvo2.KivStorageString"));
  Call(copy, u"Load", {file});
  std::cout << "  saved to and loaded from " << U8(file) << ": "
            << (GetProperty(copy, u"Value") == GetProperty(ss, u"Value") ? "identical" : "DIFFERENT") << "\n";
}

void Registry() {
  Heading("Registry: values, subkeys, recursive delete");
  Variant key(CreateObject(u"Tarvo2.KivRegistryKey"));
  LetProperty(key, u"RootKey", static_cast<std::int32_t>(tarvo_HKEY_CURRENT_USER));
  LetProperty(key, u"KeyName", u"Software\\Tarvo2 Example\\Demo");
  Call(key, u"SetValue", {u"Greeting", u"Hello"});
  Call(key, u"SetValue", {u"Answer", 42});
  Call(key, u"SetValue", {u"Ratios", Variant(SafeArray::OfVariants({Variant(0.5), Variant(1.5)}))});
  for (const char16_t* child : {u"Alpha", u"Beta"}) Call(GetProperty(key, u"SubKeys"), u"Add", {child});
  std::cout << "  values: " << Show(Call(key, u"GetValueNames")) << "\n";
  std::cout << "  Answer = " << Show(Call(key, u"GetValue", {u"Answer"})) << ", Ratios = "
            << Show(Call(key, u"GetValue", {u"Ratios"})) << "\n";
  std::cout << "  subkeys:";
  ForEach(GetProperty(key, u"SubKeys"), [](const Variant& sub) { std::cout << " " << U8(ToString(GetProperty(sub, u"KeyName"))); });
  std::cout << "\n";
  Variant parent(CreateObject(u"Tarvo2.KivRegistryKey"));
  LetProperty(parent, u"KeyName", u"Software\\Tarvo2 Example");
  std::cout << "  Software\\Tarvo2 Example has " << Show(GetProperty(GetProperty(parent, u"SubKeys"), u"Count"))
            << " subkey(s)\n";
  Call(key, u"DeleteKey", {true});  // Demo with its subkeys Alpha and Beta
  Call(GetProperty(parent, u"SubKeys"), u"Refresh");
  std::cout << "  after Demo.DeleteKey(True) it has " << Show(GetProperty(GetProperty(parent, u"SubKeys"), u"Count"))
            << ", and the Demo object reports Invalidated = " << Show(GetProperty(key, u"Invalidated")) << "\n";
  Call(parent, u"DeleteKey", {true});
}

void IniFile(const std::string& folder) {
  Heading("INI file");
  Variant ini(CreateObject(u"Tarvo2.KivINIFileHandler"));
  String path = FromUtf8(folder) + u"tarvo2_example.ini";
  LetProperty(ini, u"Path", path);
  LetProperty(ini, u"Section", u"Settings");
  Call(ini, u"SetValue", {u"Theme", u"Dark"});
  Call(ini, u"SetValue", {u"Recent", Variant(SafeArray::OfStrings({u"a.txt", u"b.txt"}))});
  Call(ini, u"SetValue", {u"Zoom", 1.25});
  std::cout << "  " << U8(path) << "\n  sections " << Show(Call(ini, u"GetSectionNames")) << ", fields "
            << Show(Call(ini, u"GetFieldNames")) << "\n";
  std::cout << "  Recent = " << Show(Call(ini, u"GetValue", {u"Recent"})) << ", Zoom = "
            << Show(Call(ini, u"GetValue", {u"Zoom"})) << "\n";
}

void WindowPlacement(std::vector<Variant>& stores) {
  Heading("Window placement in the three stores");
  Variant lib(GetTarvoLibrary());
  Variant main_form = NewForm(u"frmMain", 0, 0, 800, 600);
  Variant tool_form = NewForm(u"frmTools", 40, 30, 200, 300);
  Call(lib, u"KivCenterForm", {ByRef(main_form)});
  std::cout << "  frmMain centred on the screen: " << Bounds(main_form) << "\n";
  Call(lib, u"KivCenterForm", {ByRef(tool_form), ByRef(main_form)});
  std::cout << "  frmTools centred within frmMain: " << Bounds(tool_form) << "\n";
  LetProperty(tool_form, u"WindowState", 2);  // maximised when the application closes

  const std::pair<StorageTypeEnum, const char*> kinds[] = {
      {tarvo_INIFile, "INI file"}, {tarvo_Registry, "registry"}, {tarvo_StorageString, "storage string"}};
  for (const auto& [kind, name] : kinds) {
    Variant store = Call(lib, u"KivSetFormSaveParams", {static_cast<std::int32_t>(kind), u"Tarvo2 Example"});
    // Handed out as TarvoStdInterface: typed calls see its five members,
    // calls by name reach the store's own ones.
    Ref<TarvoStdInterface> common = RefCast<TarvoStdInterface>(store.AsObject());
    std::cout << "  " << name << ": path \"" << U8(common->get_Path()) << "\", section \""
              << U8(common->get_Section()) << "\", TypeName " << U8(TypeName(store)) << "\n";
    Call(lib, u"KivSaveFormParams", {ByRef(main_form), u"last file: report.txt"});
    Call(lib, u"KivSaveFormParams", {ByRef(tool_form), Variant(SafeArray::OfVariants({Variant(1), Variant(2)}))});
    Variant restored_main = NewForm(u"frmMain", 0, 0, 0, 0);
    Variant restored_tools = NewForm(u"frmTools", 0, 0, 0, 0);
    Variant extra_main, extra_tools;
    Call(lib, u"KivRestoreFormParams", {restored_main, ByRef(extra_main)});
    Call(lib, u"KivRestoreFormParams", {restored_tools, ByRef(extra_tools)});
    std::cout << "    restored frmMain:  " << Bounds(restored_main) << "extra " << Show(extra_main) << "\n";
    std::cout << "    restored frmTools: " << Bounds(restored_tools) << "extra " << Show(extra_tools) << "\n";
    stores.push_back(Variant(store.AsObject()->QueryInterface(TypeName(store))));
    std::cout << "    the store itself Is the object handed out: "
              << (SameObject(stores.back(), store) ? "True" : "False") << "\n";
  }
}

// A registry whose database cannot be opened (its folder is a plain file),
// in a services context of its own beside the example's registry. Such
// failures of the store are recorded, not raised: the client sees them in
// ErrorState.
void StoreFailure() {
  Heading("A failing store, seen through ErrorState");
  std::ofstream(g_folder + "not-a-folder") << "a file where a folder should be\n";
  auto unreachable = Services::New();
  unreachable->set_registry_location(g_folder + "not-a-folder/registry.sqlite3");
  Variant key(CreateObject(u"Tarvo2.KivRegistryKey", unreachable));
  LetProperty(key, u"KeyName", u"Software\\Tarvo2 Example\\Unreachable");
  Variant written = Call(key, u"SetValue", {u"Greeting", u"Hello"});
  std::cout << "  registry at " << U8(FromUtf8(g_folder + "not-a-folder/registry.sqlite3")) << "\n";
  std::cout << "  SetValue(Greeting, Hello) returned " << Show(written) << " and raised nothing\n";
  std::cout << "  ErrorState = " << Show(GetProperty(key, u"ErrorState"))
            << " (1011: the registry database cannot be opened)\n";
  std::cout << "  GetValue(Greeting, default \"none\") = "
            << Show(Call(key, u"GetValue", {u"Greeting", u"\t", true, true, u"none"})) << ", ErrorState = "
            << Show(GetProperty(key, u"ErrorState")) << "\n";
  Call(key, u"ErrorStateClear");
  std::cout << "  after ErrorStateClear: ErrorState = " << Show(GetProperty(key, u"ErrorState")) << "\n";
}

void CopyAcross(std::vector<Variant>& stores) {
  Heading("Copying each store into the others");
  const char* names[] = {"INI file", "registry key", "storage string"};
  for (const Variant& s : stores) PrintStore("before copying:", s);
  for (std::size_t from = 0; from < stores.size(); ++from)
    for (std::size_t to = 0; to < stores.size(); ++to) {
      if (from == to) continue;
      // A fresh target of the same kind, addressed like the original.
      Variant target(CreateObject(u"Tarvo2." + TypeName(stores[to])));
      if (to == 0) LetProperty(target, u"Path", ToString(GetProperty(stores[to], u"Path")) + u".copy");
      if (to == 1) LetProperty(target, u"KeyName", u"Software\\Tarvo2 Example\\Copy of " + FromUtf8(names[from]));
      LetProperty(target, u"Value", stores[from]);
      std::string label = std::string(names[from]) + " copied into a new " + names[to];
      PrintStore(label.c_str(), target);
      // The copies are for show: remove them again.
      if (to == 0) Call(target, u"DeleteFile");
      if (to == 1) Call(target, u"DeleteKey", {true});
    }
}

void Errors() {
  Heading("Errors reach the client with their source chain");
  Variant ss(CreateObject(u"Tarvo2.KivStorageString"));
  try {
    Call(ss, u"SetValue", {u"   ", u"x"});
  } catch (const Error& e) {
    PrintError(e);
  }
  try {
    Call(ss, u"SetValue", {u"Name", u"a/>b"});
  } catch (const Error& e) {
    PrintError(e);
  }
  try {
    CreateObject(u"Tarvo2.SubKeysCollection");
  } catch (const Error& e) {
    PrintError(e);
  }
  LetProperty(Variant(GetTarvoLibrary()), u"TarvoRaiseErrors", false);
  Call(ss, u"DeleteField", {u"Missing"});
  std::cout << "  with TarvoRaiseErrors = False, DeleteField of a missing field returns quietly\n";
  LetProperty(Variant(GetTarvoLibrary()), u"TarvoRaiseErrors", true);
}

}  // namespace

// Makes a fresh folder below $TMPDIR (or /tmp); returns it ending in '/'.
std::string MakeFolder() {
  const char* tmp = getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/tarvo2-example-XXXXXX";
  if (!mkdtemp(pattern.data())) return std::string();
  return pattern + "/";
}

int main(int argc, char** argv) {
  bool keep = false;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--keep")) {
      keep = true;
    } else {
      std::cerr << "usage: " << argv[0] << " [--keep]\n";
      return 2;
    }
  }
  const std::string folder = MakeFolder();
  if (folder.empty()) {
    std::cerr << "cannot make a temporary folder: " << std::strerror(errno) << "\n";
    return 1;
  }
  std::cout << "Working folder: " << folder.substr(0, folder.size() - 1) << " (shown below as $FOLDER)\n";
  g_folder = folder;
  // Everything the example stores stays in its folder: the registry, and the
  // INI file that the window placement helpers put beside the program.
  SetRegistryLocation(folder + "registry.sqlite3");
  SetHostModulePath(folder + "tarvo2_example");
  int status = 0;
  try {
    CallingByName();
    Conversions();
    StorageString(folder);
    Registry();
    IniFile(folder);
    std::vector<Variant> stores;
    WindowPlacement(stores);
    CopyAcross(stores);
    Errors();
    StoreFailure();
  } catch (const Error& e) {
    std::cout << "unexpected failure:\n";
    PrintError(e);
    status = 1;
  }
  SetRegistryStore(nullptr);
  std::error_code ec;
  if (keep) {
    std::cout << "\nKept " << folder << "\n";
  } else if (std::filesystem::remove_all(folder, ec) == static_cast<std::uintmax_t>(-1) || ec) {
    std::cerr << "cannot remove " << folder << ": " << ec.message() << "\n";
    status = 1;
  }
  return status;
}
