// The tarvo2 tool: the .reg reader and writer and the import's undo, tested
// directly; every verb, format, exit code and error line through the built
// binary, each test on its own registry database and files.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli/output.h"
#include "cli/reg_file.h"
#include "cli/reg_transfer.h"
#include "platform_temp_dir.h"
#include "tarvo2/registry_store.h"
#include "tarvo2/testing/registry_store.h"

namespace tarvo2::regfile {
namespace {

using testing::ReadBytes;

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

struct Result { int exit; std::string out, err; };

// Every key below the four roots with its values, in store order:
// "key|name|type|hex bytes" lines, read with the raw store calls.
void DumpKey(RegistryStore& s, RegKey root, const std::string& path, const std::string& label, std::string* out) {
  RegKey h = 0;
  if (s.OpenKey(root, path.c_str(), kKeyRead, &h) != kErrorSuccess) return;
  *out += label + "\n";
  for (std::uint32_t i = 0;; ++i) {
    char name[20000];
    std::uint32_t nl = sizeof name, type = 0, size = 70000;
    std::vector<std::uint8_t> data(size);
    if (s.EnumValue(h, i, name, &nl, &type, data.data(), &size) != kErrorSuccess) break;
    *out += label + "|" + std::string(name, nl) + "|" + std::to_string(type) + "|";
    for (std::uint32_t b = 0; b < size; ++b) *out += "0123456789abcdef"[data[b] >> 4], *out += "0123456789abcdef"[data[b] & 15];
    *out += "\n";
  }
  std::vector<std::string> subs;
  char sub[300];
  for (std::uint32_t i = 0; s.EnumKey(h, i, sub, sizeof sub) == kErrorSuccess; ++i) subs.push_back(sub);
  s.CloseKey(h);
  for (const auto& n : subs) DumpKey(s, root, path.empty() ? n : path + "\\" + n, label + "\\" + n, out);
}
std::string Dump(RegistryStore& s) {
  std::string out;
  DumpKey(s, kHKeyCurrentUser, "", "HKCU", &out);
  DumpKey(s, kHKeyLocalMachine, "", "HKLM", &out);
  return out;
}

void SetRaw(RegistryStore& s, const char* key, const char* name, std::uint32_t type, const std::string& data) {
  RegKey h = 0;
  ASSERT_EQ(s.CreateKey(kHKeyCurrentUser, key, kKeyAllAccess, &h, nullptr), kErrorSuccess);
  ASSERT_EQ(s.SetValue(h, name, type, reinterpret_cast<const std::uint8_t*>(data.data()),
                       static_cast<std::uint32_t>(data.size())),
            kErrorSuccess);
  s.CloseKey(h);
}

// Values of every kind a .reg file must carry exactly.
void FillOddValues(RegistryStore& s) {
  SetRaw(s, "Software\\Odd", "", 1, std::string("default\0", 8));
  SetRaw(s, "Software\\Odd", "text \"q\" \\ \xE9", 1, std::string("C:\\dir \"x\" \xE9\xFF\0", 14));
  SetRaw(s, "Software\\Odd", "crlf", 1, std::string("a\r\nb\0", 5));
  SetRaw(s, "Software\\Odd", "no nul", 1, "abc");
  SetRaw(s, "Software\\Odd", "dword", 4, std::string("\x2a\0\0\x80", 4));
  SetRaw(s, "Software\\Odd", "short dword", 4, "\x01\x02");
  SetRaw(s, "Software\\Odd", "qword", 11, std::string("\1\2\3\4\5\6\7\x88", 8));
  SetRaw(s, "Software\\Odd", "expand", 2, std::string("%HOME%\\x\0", 9));
  SetRaw(s, "Software\\Odd", "multi", 7, std::string("a\0\xE9\0\0", 5));
  SetRaw(s, "Software\\Odd", "none", 0, "");
  SetRaw(s, "Software\\Odd", "type 12345", 0x12345, "\xff");
  SetRaw(s, "Software\\Odd", "big", 3, std::string(3000, '\x5a'));
  SetRaw(s, "Software\\Odd\\b Sub", "x", 1, std::string("1\0", 2));
  SetRaw(s, "Software\\Odd\\A sub", "y", 1, std::string("2\0", 2));
  RegKey h = 0;
  s.CreateKey(kHKeyCurrentUser, "Software\\Odd\\Empty\\Deeper", kKeyAllAccess, &h, nullptr);
  s.CloseKey(h);
}

// How the writer spells values (that every encoding reads back as written
// is checked byte for byte through the tool's export and import below).
TEST(RegFileTest, WriterSortsKeysDepthFirstAndSpellsEveryKindOfValue) {
  auto store = OpenSqliteRegistryStore(":memory:");
  FillOddValues(*store);
  RegFile exported;
  ASSERT_EQ(ExportKey(*store, kHKeyCurrentUser, "Software\\Odd", &exported), kErrorSuccess);
  ASSERT_EQ(exported.keys.size(), 5u);  // Odd, A sub, b Sub, Empty, Empty\Deeper: sorted, depth first
  EXPECT_EQ(exported.keys[1].path, "HKEY_CURRENT_USER\\Software\\Odd\\A sub");
  std::string text, error;
  WriteRegFile(exported, RegFileEncoding::kUtf8, &text, &error);
  EXPECT_NE(text.find("\"text \\\"q\\\" \\\\ \xC3\xA9\"=\"C:\\\\dir \\\"x\\\" \xC3\xA9\xC3\xBF\"\r\n"), std::string::npos);
  EXPECT_NE(text.find("\"dword\"=dword:8000002a\r\n"), std::string::npos);
  EXPECT_NE(text.find("\"multi\"=hex(7):61,00,00,00,e9,00,00,00,00,00\r\n"), std::string::npos);
  EXPECT_NE(text.find("\"type 12345\"=hex(12345):ff\r\n"), std::string::npos);
  EXPECT_NE(text.find("5a,5a,\\\r\n  5a,"), std::string::npos);
}

TEST(RegFileTest, ImportUndoesEverythingWhenTheStoreFailsMidway) {
  auto base = OpenSqliteRegistryStore(":memory:");
  FillOddValues(*base);
  SetRaw(*base, "Software\\Gone\\Child", "v", 1, std::string("x\0", 2));
  const std::string before = Dump(*base);
  RegFile file;
  RegFileError perr;
  ASSERT_TRUE(ParseRegFile("REGEDIT4\n[HKCU\\Software\\Odd]\n\"dword\"=dword:1\n\"crlf\"=-\n\"new\"=\"n\"\n"
                           "[-HKCU\\Software\\Gone]\n[HKCU\\Software\\New\\Deep]\n@=\"d\"\n\"last\"=hex:00\n",
                           &file, &perr))
      << perr.message;
  auto faulty = std::make_shared<FaultInjectingRegistryStore>(base);
  for (std::uint64_t n = 1; n <= 12; ++n) {
    faulty->ClearFaults();
    faulty->FailNthWrite(n, kErrorCantWrite);
    ImportResult r = ImportFile(*faulty, file);
    if (r.code == kErrorSuccess) {  // fewer writes than n: the import went through; put the store back
      EXPECT_GT(n, 6u);
      break;
    }
    EXPECT_EQ(r.code, kErrorCantWrite) << "write " << n;
    EXPECT_TRUE(r.rolled_back) << "write " << n;
    faulty->ClearFaults();
    std::string after = Dump(*base);
    // A deleted value that comes back is appended: compare as sets for the crlf value.
    EXPECT_EQ(after.size(), before.size()) << "write " << n << ": " << r.what;
    EXPECT_NE(after.find("HKCU\\Software\\Gone\\Child|v|1|7800"), std::string::npos) << "write " << n;
    EXPECT_EQ(after.find("New"), std::string::npos) << "write " << n;
    EXPECT_NE(after.find("|dword|4|2a000080"), std::string::npos) << "write " << n;
  }
}

TEST(OutputTest, JsonAndShellPiecesAreValid) {
  const struct {
    Variant value;
    const char* json;
  } values[] = {
      {Variant(0.5), "0.5"}, {Variant(-0.25), "-0.25"}, {Variant(1.5e20), "1.5E+20"},
      {Variant(std::int32_t{-7}), "-7"},
      {Variant(u"tab\t \"q\" \\ \x01 \u00e9"), "\"tab\\t \\\"q\\\" \\\\ \\u0001 \xC3\xA9\""}, {Variant(), "null"},
      {Variant(SafeArray::OfStrings({u"a", u""})), "[\"a\", \"\"]"},
  };
  for (const auto& row : values) EXPECT_EQ(cli::JsonValue(row.value), row.json) << row.json;
  const std::pair<std::u16string, const char*> names[] = {
      {u"Colour", "Colour"}, {u"my key", "my_key"}, {u"9lives", "_9lives"}, {u"", "_"}, {u"\u00e9t\u00e9", "_t_"}};
  for (const auto& [name, shell] : names) EXPECT_EQ(cli::ShellName(name), shell);
  EXPECT_EQ(cli::ShellQuote("it's"), "'it'\\''s'");
}

// ---------------------------------------------------------------------------
// The binary.

class CliTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(dir_.empty()); }

  std::string P(const std::string& name) const { return dir_ + "/" + name; }

  // Runs the tool with `args`, the test's own registry and config folder.
  Result Run(std::vector<std::string> args, const std::string& input = "") {
    std::string out = P(".out"), err = P(".err"), in = P(".in");
    WriteFile(in, input);
    pid_t pid = ::fork();
    if (pid == 0) {
      ::setenv("TARVO2_REGISTRY", db_.c_str(), 1);
      ::setenv("XDG_CONFIG_HOME", dir_.c_str(), 1);
      int fi = ::open(in.c_str(), O_RDONLY), fo = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600),
          fe = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      ::dup2(fi, 0), ::dup2(fo, 1), ::dup2(fe, 2);
      std::vector<char*> argv{const_cast<char*>(TARVO2_CLI_PATH)};
      for (auto& a : args) argv.push_back(a.data());
      argv.push_back(nullptr);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadBytes(out), ReadBytes(err)};
  }
  std::string Sh(const std::string& script) {
    return testing::CommandOutput("T='" TARVO2_CLI_PATH "' TARVO2_REGISTRY='" + db_ + "' sh -c '" + script + "' 2>&1");
  }
  std::string DumpDb() {
    auto s = OpenSqliteRegistryStore(db_);
    return Dump(*s);
  }

  testing::PlatformTempDir tmp_;
  const std::string dir_ = tmp_.path(), db_ = tmp_ / "registry.sqlite3";
};

struct Row {
  std::vector<std::string> args;  // "@" stands for the test folder
  int exit;
  std::string out;
  std::string err;  // the whole stderr, "@" for the folder
};

std::string Expand(std::string s, const std::string& dir) {
  for (std::size_t p; (p = s.find('@')) != std::string::npos;) s.replace(p, 1, dir);
  return s;
}

// Runs the rows in order, each on the state the previous ones left.
void RunRows(CliTest* t, std::function<Result(std::vector<std::string>)> run, const std::string& dir,
             const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    std::vector<std::string> args;
    std::string shown;
    for (const auto& a : row.args) args.push_back(Expand(a, dir)), shown += " " + a;
    Result r = run(args);
    EXPECT_EQ(r.exit, row.exit) << "tarvo2" << shown << "\n" << r.err;
    EXPECT_EQ(r.out, row.out) << "tarvo2" << shown;
    EXPECT_EQ(r.err, Expand(row.err, dir)) << "tarvo2" << shown;
  }
}

TEST_F(CliTest, EveryVerbOnEveryStoreInEveryFormat) {
  const std::string r = "reg:HKCU\\Software\\App";
  const std::string ini = "ini:@/app.ini";
  const std::string pg = "page:@/p.txt";
  RunRows(this, [&](auto a) { return Run(a); }, dir_, {
      // registry
      {{"set", r, "Colour", "Red"}, 0, "", ""},
      {{"set", r, "List", "1", "2", "3"}, 0, "", ""},
      {{"set", r, "N", "42", "--number"}, 0, "", ""},
      {{"set", r + "\\Win", "Top", "12.5"}, 0, "", ""},
      {{"get", r, "Colour"}, 0, "Red\n", ""},
      {{"get", r, "List"}, 0, "1\n2\n3\n", ""},
      {{"get", r, "List", "-d", ","}, 0, "1,2,3\n", ""},
      {{"get", r, "List", "--raw", "-f", "json"}, 0, "\"1\\t2\\t3\"\n", ""},
      {{"get", r, "List", "-f", "json"}, 0, "[1, 2, 3]\n", ""},
      {{"get", r, "N", "-f", "ini"}, 0, "N=42\n", ""},
      {{"get", r, "Colour", "-f", "sh"}, 0, "Colour='Red'\n", ""},
      {{"get", r + "\\Win", "Top", "-f", "json"}, 0, "12.5\n", ""},
      {{"list", r}, 0, "Win\\\nColour\nList\nN\n", ""},
      {{"list", r, "-f", "ini"}, 0, "Colour=Red\nList=1\t2\t3\nN=42\n[Win]\n", ""},
      {{"list", r, "-f", "sh", "-d", " "}, 0, "Colour='Red'\nList='1 2 3'\nN='42'\nsubkeys='Win'\n", ""},
      {{"list", r, "-f", "json"}, 0, "{\"subkeys\": [\"Win\"], \"fields\": {\"Colour\": \"Red\", \"List\": [1, 2, 3], \"N\": 42}}\n", ""},
      {{"list", "reg:HKEY_CURRENT_USER\\software"}, 0, "App\\\n", ""},
      {{"del", r, "N"}, 0, "", ""},
      {{"copy", r, ini}, 0, "", ""},
      {{"copy", r, pg + "#App"}, 0, "", ""},
      {{"del", r}, 2, "", "tarvo2: error -2147211480: Can't delete key because it's contains subkeys [Tarvo2 <- KivRegistryKey.DeleteKey <- tarvo2 del]\n"},
      {{"del", "-r", r}, 0, "", ""},
      {{"list", "reg:HKCU\\Software"}, 0, "", ""},
      // INI file (written by the copy: section App, then Win)
      {{"list", ini}, 0, "App\nWin\n", ""},
      {{"list", ini, "-f", "json"}, 0, "{\"sections\": [\"App\", \"Win\"], \"fields\": {}}\n", ""},
      {{"list", ini + "#App", "-f", "ini"}, 0, "Colour=Red\nList=1\t2\t3\n", ""},
      {{"get", ini + "#Win", "Top", "-f", "sh"}, 0, "Top='12.5'\n", ""},
      {{"set", ini + "#New", "k", "a b", "c"}, 0, "", ""},
      {{"get", ini + "#New", "k", "-f", "json"}, 0, "[\"a b\", \"c\"]\n", ""},
      {{"del", ini + "#New", "k"}, 0, "", ""},
      {{"list", ini + "#New", "-f", "sh"}, 0, "", ""},
      {{"del", ini + "#New"}, 0, "", ""},
      {{"list", ini, "-f", "sh"}, 0, "sections='App\nWin'\n", ""},
      {{"copy", ini, pg + "#Win"}, 0, "", ""},
      {{"get", pg, "Top"}, 0, "12.5\n", ""},
      {{"copy", pg + "#Win", "reg:HKLM\\Software\\FromPage"}, 0, "", ""},
      {{"list", "reg:HKLM\\Software\\FromPage", "-f", "json"}, 0, "{\"subkeys\": [], \"fields\": {\"Top\": 12.5}}\n", ""},
      {{"del", ini}, 0, "", ""},
      {{"list", ini}, 1, "", "tarvo2: error 53: File not found: @/app.ini [tarvo2 <- tarvo2 list]\n"},
      // page file
      {{"set", pg, "Colour", "Blue"}, 0, "", ""},
      {{"list", pg, "-f", "ini"}, 0, "Top=12.5\nColour=Blue\n", ""},
      {{"list", pg, "-f", "json", "--raw"}, 0, "{\"fields\": {\"Top\": \"12.5\", \"Colour\": \"Blue\"}}\n", ""},
      {{"del", pg, "Top"}, 0, "", ""},
      {{"list", pg}, 0, "Colour\n", ""},
      {{"del", pg}, 0, "", ""},
      {{"get", pg, "Colour"}, 1, "", "tarvo2: error 53: File not found: @/p.txt [tarvo2 <- tarvo2 get]\n"},
  });
  EXPECT_EQ(ReadBytes(P("app.ini")), "");
}

TEST_F(CliTest, ErrorsGiveTheirExitCodeAndOneLine) {
  ASSERT_EQ(Run({"set", "reg:HKCU\\A", "x", "1"}).exit, 0);
  WriteFile(P("a.ini"), "[S]\nk=v\n");
  RunRows(this, [&](auto a) { return Run(a); }, dir_, {
      {{"get", "reg:HKCU\\A", "nope"}, 1, "", "tarvo2: error -2147211499: Bad Key [Tarvo2 <- KivRegistryKey.ErrorState (Let) <- KivRegistryKey.QueryValueEx <- KivRegistryKey.QueryValue <- KivRegistryKey.GetValue <- tarvo2 get]\n"},
      {{"get", "reg:HKCU\\B", "x"}, 1, "", "tarvo2: error -2147211499: Bad Key: HKEY_CURRENT_USER\\B does not exist [tarvo2 <- tarvo2 get]\n"},
      {{"get", "ini:@/a.ini#T", "k"}, 1, "", "tarvo2: error -2147211502: Section Not Found: [T] in @/a.ini [tarvo2 <- tarvo2 get]\n"},
      {{"get", "ini:@/a.ini#S", "q"}, 1, "", "tarvo2: error -2147211501: Field Not Found: q [tarvo2 <- tarvo2 get]\n"},
      {{"del", "ini:@/a.ini#S", "q"}, 1, "", "tarvo2: error -2147211501: Field Not Found: q [tarvo2 <- tarvo2 del]\n"},
      {{"set", "reg:HKCU\\A", " ", "v"}, 2, "", "tarvo2: error -2147211482: Zero Length Feild Names Are Not Allowed [Tarvo2 <- KivRegistryKey.SetValue <- tarvo2 set]\n"},
      {{"set", "ini:@/a.ini#S", "k", "two\nlines"}, 2, "", "tarvo2: error 87: The INI file cannot hold this name or value (a line break, a NUL, or a key with '=' or a leading ';' or '['): @/a.ini [tarvo2 <- tarvo2 set]\n"},
      {{"set", "ini:@/no/such/a.ini#S", "k", "v"}, 3, "", "tarvo2: error 3: INI write failed, the folder does not exist: @/no/such/a.ini [tarvo2 <- tarvo2 set]\n"},
      {{"set", "reg:HKCU\\A\xE2\x98\x83", "k", "v"}, 2, "", "tarvo2: error 5: the key path 'A\xE2\x98\x83' holds U+2603, which the registry's code page cannot store [tarvo2 <- tarvo2 set]\n"},
      {{"set", "reg:HKCU", "k", "v"}, 2, "", "tarvo2: error 5: name a key below the root: reg:HKEY_CURRENT_USER\\KEY [tarvo2 <- tarvo2 set]\n"},
      {{"get", "reg:HKXY\\A", "x"}, 2, "", "tarvo2: error 5: unknown registry root in 'reg:HKXY\\A' (use HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS or HKCR, HKCU, HKLM, HKU) [tarvo2 <- tarvo2 get]\n"},
      {{"get", "file.ini", "x"}, 2, "", "tarvo2: error 5: 'file.ini' is not a store address (ini:PATH[#SECTION], reg:ROOT\\KEY, page:FILE[#PAGE]) [tarvo2 <- tarvo2 get]\n"},
      {{"get", "ini:@/a.ini#S"}, 2, "", "tarvo2: error 5: name is required [tarvo2 get] (see tarvo2 get --help)\n"},
      {{"list", "ini:@/a.ini", "-f", "xml"}, 2, "", "tarvo2: error 5: --format: xml not in {lines,ini,sh,json} [tarvo2 list] (see tarvo2 list --help)\n"},
      {{"frob"}, 2, "", "tarvo2: error 5: A subcommand is required [tarvo2] (see tarvo2 --help)\n"},
      {{"copy", "ini:@/a.ini#S", "page:@/p"}, 2, "", "tarvo2: error 5: copy takes a whole INI file as its source: drop '#S' [tarvo2 <- tarvo2 copy]\n"},
      {{"set", "--registry", "@/none/r.db", "reg:HKCU\\A", "x", "1"}, 3, "", "tarvo2: error 1011: The registry database cannot be opened: @/none/r.db [tarvo2 <- KivRegistryKey.KeyName (Let) <- tarvo2 set]\n"},
      {{"get", "--registry", "@/none.db", "reg:HKCU\\A", "x"}, 1, "", "tarvo2: error 53: File not found: registry database @/none.db [tarvo2 <- tarvo2 get]\n"},
      {{"--registry", "@/other.db", "set", "reg:HKCU\\O", "x", "1"}, 0, "", ""},
      {{"get", "reg:HKCU\\O", "x"}, 1, "", "tarvo2: error -2147211499: Bad Key: HKEY_CURRENT_USER\\O does not exist [tarvo2 <- tarvo2 get]\n"},
      {{"copy", "reg:HKCU", "page:@/p"}, 2, "", "tarvo2: error 5: the copy gives 2 pages (\"\", A); a page file holds one: name it with page:FILE#PAGE [tarvo2 <- tarvo2 copy]\n"},
      {{"export", "ini:@/a.ini", "@/x.reg"}, 2, "", "tarvo2: error 5: export takes a registry key: reg:ROOT\\KEY [tarvo2 <- tarvo2 export]\n"},
  });
  EXPECT_FALSE(std::filesystem::exists(P("none.db")));
  for (const char* verb : {"get", "set", "del", "list", "copy", "export", "import"}) {
    Result h = Run({verb, "--help"});
    EXPECT_EQ(h.exit, 0) << verb;
    EXPECT_NE(h.out.find("Usage:"), std::string::npos) << verb;
  }
}

TEST_F(CliTest, ShOutputSurvivesEval) {
  const std::vector<std::string> values = {"it's", "two  spaces", "$HOME `id` $(id)", "line1\nline2", "\"q\" \\ ;|&", ""};
  for (std::size_t i = 0; i < values.size(); ++i) {
    ASSERT_EQ(Run({"set", "reg:HKCU\\S", "v" + std::to_string(i), values[i]}).exit, 0) << values[i];
    ASSERT_EQ(Run({"set", "page:" + P("p"), "f-" + std::to_string(i), values[i]}).exit, 0) << values[i];
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    std::string n = std::to_string(i);
    EXPECT_EQ(Sh("eval \"$($T get reg:HKCU\\\\S v" + n + " -f sh)\" && printf %s \"$v" + n + "\""), values[i]);
    EXPECT_EQ(Sh("eval \"$($T list page:" + P("p") + " -f sh)\" && printf %s \"$f_" + n + "\""), values[i]);
  }
}

TEST_F(CliTest, ExportImportRoundTripsByteForByte) {
  {
    auto s = OpenSqliteRegistryStore(db_);
    FillOddValues(*s);
  }
  const std::string before = DumpDb();
  for (const char* enc : {"utf8", "utf16", "regedit4"}) {
    std::string file = P(std::string("x-") + enc + ".reg");
    ASSERT_EQ(Run({"export", "reg:HKCU\\Software\\Odd", file, "--encoding", enc}).exit, 0) << enc;
    ASSERT_EQ(Run({"del", "-r", "reg:HKCU\\Software\\Odd"}).exit, 0);
    Result r = Run({"import", file});
    ASSERT_EQ(r.exit, 0) << r.err;
    EXPECT_EQ(DumpDb(), before) << enc;
    Result again = Run({"export", "reg:HKCU\\Software\\Odd", "-", "--encoding", enc});
    EXPECT_EQ(again.out, ReadBytes(file)) << enc;
  }
  EXPECT_EQ(ReadBytes(P("x-utf16.reg")).substr(0, 4), std::string("\xFF\xFE" "W\0", 4));
  EXPECT_EQ(ReadBytes(P("x-regedit4.reg")).substr(0, 10), "REGEDIT4\r\n");
  ASSERT_EQ(Run({"del", "-r", "reg:HKCU\\Software\\Odd"}).exit, 0);
  Result piped = Run({"import", "-"}, ReadBytes(P("x-utf8.reg")));
  EXPECT_EQ(piped.exit, 0) << piped.err;
  EXPECT_EQ(DumpDb(), before);
  Result missing = Run({"export", "reg:HKCU\\Nope", P("n.reg")});
  EXPECT_EQ(missing.exit, 1);
  EXPECT_FALSE(std::filesystem::exists(P("n.reg")));
}

std::string Utf16(const std::string& ascii) {
  std::string out = "\xFF\xFE";
  for (char c : ascii) out += c, out += '\0';
  return out;
}

TEST_F(CliTest, HandWrittenFilesImport) {
  struct Case {
    const char* what;
    std::string bytes;
    std::string dump;  // of HKCU\T after the import, on a store holding T\Old (o=1, p=2)
  };
  const std::string pre = "HKCU\nHKCU\\T\n";
  const std::vector<Case> cases = {
      {"CRLF, short root, continued hex, value deletion",
       "REGEDIT4\r\n\r\n; comment\r\n[HKCU\\T\\Old]\r\n\"b\"=hex:01,02,\\\r\n    03 , 04\r\n\"o\"=-\r\n\"gone\"=-\r\n",
       pre + "HKCU\\T\\Old\nHKCU\\T\\Old|p|1|3200\nHKCU\\T\\Old|b|3|01020304\nHKLM\n"},
      {"UTF-16LE with BOM, hex(2) as UTF-16 text, dword, default value",
       Utf16("Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\T\\New]\r\n@=\"d\"\r\n"
             "\"e\"=hex(2):25,00,41,00,00,00\r\n\"n\"=dword:0000002A\r\n"),
       pre + "HKCU\\T\\New\nHKCU\\T\\New||1|6400\nHKCU\\T\\New|e|2|254100\nHKCU\\T\\New|n|4|2a000000\n"
             "HKCU\\T\\Old\nHKCU\\T\\Old|o|1|3100\nHKCU\\T\\Old|p|1|3200\nHKLM\n"},
      {"UTF-8 without BOM, key deletion, lone CR and LF line ends, qword, other type",
       "Windows Registry Editor Version 5.00\n[-HKCU\\T\\Old]\r[HKCU\\T\\\xC3\xA9]\n\"q\"=hex(b):01,00,00,00,00,00,00,00\n"
       "\"z\"=hex(7fffffff):\n",
       pre + "HKCU\\T\\\xE9\nHKCU\\T\\\xE9|q|11|0100000000000000\nHKCU\\T\\\xE9|z|2147483647|\nHKLM\n"},
  };
  for (const Case& c : cases) {
    std::filesystem::remove(db_);
    ASSERT_EQ(Run({"set", "reg:HKCU\\T\\Old", "o", "1"}).exit, 0);
    ASSERT_EQ(Run({"set", "reg:HKCU\\T\\Old", "p", "2"}).exit, 0);
    WriteFile(P("h.reg"), c.bytes);
    Result r = Run({"import", P("h.reg")});
    EXPECT_EQ(r.exit, 0) << c.what << "\n" << r.err;
    EXPECT_EQ(DumpDb(), c.dump) << c.what;
  }
}

TEST_F(CliTest, MalformedFilesNameLineAndColumnAndChangeNothing) {
  ASSERT_EQ(Run({"set", "reg:HKCU\\T", "keep", "1"}).exit, 0);
  const std::string before = DumpDb();
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"REGEDIT5\n", "1:1: the file must begin with the line REGEDIT4 or Windows Registry Editor Version 5.00"},
      {"REGEDIT4\n\"a\"=\"b\"\n", "2:1: a value before any key: a [key] line must come first"},
      {"REGEDIT4\n[HKCU\\T]\n\"keep\"=-\n[HKCU\\T\n", "4:8: missing ']' at the end of the key line"},
      {"REGEDIT4\n[HKXX\\T]\n", "2:2: unknown root 'HKXX' (HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS or HKCR, HKCU, HKLM, HKU)"},
      {"REGEDIT4\n[HKCU\\a\\\\b]\n", "2:9: empty key name: two '\\' in a row"},
      {"REGEDIT4\n[-HKCU]\n", "2:3: a root cannot be deleted"},
      {"REGEDIT4\n[HKCU\\T] x\n", "2:10: unexpected text after ']'"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\"=\"unclosed\n", "3:14: missing closing '\"'"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\"=\"bad \\n escape\"\n", "3:10: unknown escape: only \\\\ and \\\" may follow '\\' in a string"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\"=hex:01,02,\\\n  0g\n", "4:4: expected ',' between hex bytes"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\"=hex:01,\n", "3:12: expected a hex byte after ','"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\"=hex:01,\\\n", "3:12: '\\' continues the line past the end of the file"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\"=hex:123\n", "3:11: a hex byte has at most two digits"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\"=dword:123456789\n", "3:19: dword: takes at most 8 hex digits"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\"=hex(2x):00\n", "3:10: expected ')' after the type number"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\"=string\n", "3:5: unknown value data: expected \"text\", dword:, hex:, hex(N): or -"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\" \"b\"\n", "3:5: expected '=' after the value name"},
      {"REGEDIT4\n[HKCU\\T]\n\"a\"=\"b\" x\n", "3:9: unexpected text after the value"},
      {"REGEDIT4\n[HKCU\\T]\n\"\"=\"b\"\n", "3:1: an empty value name: write the default value as @"},
      {"REGEDIT4\n[-HKCU\\T]\n\"a\"=-\n", "3:1: a deleted key [-...] cannot hold values"},
      {"REGEDIT4\n[HKCU\\T]\nkeep=1\n", "3:1: expected a key line [...], a value line \"name\"=... or @=..., or a comment ;"},
      {"\xEF\xBB\xBFWindows Registry Editor Version 5.00\n[HKCU\\T]\n\"\xE2\x98\x83\"=\"x\"\n", "3:2: the character U+2603 cannot be stored in the code page"},
      {Utf16("Windows Registry Editor Version 5.00\n[HKCU\\T]\n\"a\"=hex(7):61,00,00\n"), "3:5: hex(7) data of a version 5.00 file is UTF-16LE text: it needs an even number of bytes"},
      {Utf16("Windows Registry Editor Version 5.00\n") + "x", "1:37: the UTF-16 file ends in half a character (an odd number of bytes)"},
      {"\xFE\xFF", "1:1: UTF-16 big-endian files are not supported: save the file as UTF-16LE or UTF-8"},
      {"REGEDIT4\n[HKCU\\" + std::string(256, 'k') + "]\n", "2:7: a key name is longer than 255 characters"},
  };
  for (const auto& [bytes, where] : cases) {
    WriteFile(P("bad.reg"), bytes);
    Result r = Run({"import", P("bad.reg")});
    EXPECT_EQ(r.exit, 2) << where;
    EXPECT_EQ(r.err, "tarvo2: error 5: " + P("bad.reg") + ":" + where + " (nothing was imported) [tarvo2 <- tarvo2 import]\n");
    EXPECT_EQ(DumpDb(), before) << where;
  }
  Result missing = Run({"import", P("none.reg")});
  EXPECT_EQ(missing.exit, 1);
  EXPECT_EQ(missing.err, "tarvo2: error 53: File not found: " + P("none.reg") + " [tarvo2 <- tarvo2 import]\n");
}

TEST(CompletionTest, CompletesVerbsOptionsFormatsAndRoots) {
  const struct {
    const char* line;  // the command line up to the cursor
    const char* expected;
  } rows[] = {
      {"tarvo2 ex", "export\n"}, {"tarvo2 get -", "--help\n--registry\n--format\n--delimiter\n--raw\n"},
      {"tarvo2 del -", "--help\n--registry\n--recursive\n"}, {"tarvo2 list -f j", "json\n"},
      {"tarvo2 set reg:HKL", "HKLM\\\n"},  // bash puts back only what follows the ':'
      {"tarvo2 get page:/nonexistent/x", ""}, {"tarvo2 copy i", "ini:\n"},
  };
  for (const auto& row : rows) {
    // Words split as bash splits them, at blanks and around ':'.
    std::string cmd = std::string("bash -c 'source " TARVO2_CLI_COMPLETION "; COMP_LINE=\"") + row.line +
                      "\"; COMP_POINT=${#COMP_LINE}; read -ra COMP_WORDS <<< \"${COMP_LINE//:/ : }\"; "
                      "COMP_CWORD=$((${#COMP_WORDS[@]}-1)); _tarvo2; "
                      "[ ${#COMPREPLY[@]} -gt 0 ] && printf \"%s\\n\" \"${COMPREPLY[@]}\"'";
    EXPECT_EQ(testing::CommandOutput(cmd), row.expected) << row.line;
  }
}

}  // namespace
}  // namespace tarvo2::regfile
