// KivRegistryKey::GetValue and SetValue on a database file, against a raw
// SQLite prepared statement doing the same read and write on an equivalent
// table (one row per value, keyed by key path and value name, in a WAL
// database with the same settings). Runs under code page 1252 and again
// under 65001 and prints the overhead ratios of both at the end.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

#include "tarvo2/codepage.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/registry_key.h"
#include "tarvo2/registry_store.h"

namespace {

using namespace tarvo2;

const char kText[] = "The quick brown fox jumps over the lazy dog";

struct Folder {
  Folder() {
    char tmpl[] = "/tmp/tarvo2_bench_XXXXXX";
    if (::mkdtemp(tmpl) == nullptr) std::abort();
    path = tmpl;
  }
  ~Folder() { std::filesystem::remove_all(path); }
  std::string path;
};

Folder& TempFolder() {
  static Folder folder;
  return folder;
}

// The library side: one key object on a registry file, in a context of its own.
const std::shared_ptr<Services>& BenchContext() {
  static const std::shared_ptr<Services> services = [] {
    auto s = Services::New();
    s->set_registry_location(TempFolder().path + "/registry.sqlite3");
    return s;
  }();
  return services;
}

Ref<KivRegistryKey> BenchKey() {
  static Ref<KivRegistryKey> key = [] {
    auto k = KivRegistryKey::Create(BenchContext());
    k->put_KeyName(u"Software\\Vendor\\Bench");
    k->SetValue(u"Colour", Variant(String(kText, kText + sizeof kText - 1)));
    return k;
  }();
  return key;
}

// The raw side: the same value in a plain table.
struct RawDb {
  RawDb() {
    std::string path = TempFolder().path + "/raw.sqlite3";
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) std::abort();
    Exec("PRAGMA journal_mode=WAL");
    Exec("PRAGMA synchronous=NORMAL");
    Exec("CREATE TABLE IF NOT EXISTS reg_values(key_path BLOB NOT NULL, name BLOB NOT NULL, type INTEGER, "
         "data BLOB, PRIMARY KEY(key_path, name))");
    Prepare("SELECT type, data FROM reg_values WHERE key_path = ?1 AND name = ?2", &read);
    Prepare("INSERT INTO reg_values(key_path, name, type, data) VALUES(?1, ?2, ?3, ?4) "
            "ON CONFLICT(key_path, name) DO UPDATE SET type = excluded.type, data = excluded.data",
            &write);
    Write(kText);
  }
  ~RawDb() {
    sqlite3_finalize(read);
    sqlite3_finalize(write);
    sqlite3_close(db);
  }
  void Exec(const char* sql) {
    if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) std::abort();
  }
  void Prepare(const char* sql, sqlite3_stmt** stmt) {
    if (sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, stmt, nullptr) != SQLITE_OK) std::abort();
  }
  std::string Read() {
    sqlite3_bind_blob(read, 1, kPath, sizeof kPath - 1, SQLITE_STATIC);
    sqlite3_bind_blob(read, 2, "Colour", 6, SQLITE_STATIC);
    std::string out;
    if (sqlite3_step(read) == SQLITE_ROW)
      out.assign(static_cast<const char*>(sqlite3_column_blob(read, 1)), sqlite3_column_bytes(read, 1));
    sqlite3_reset(read);
    return out;
  }
  void Write(const std::string& text) {
    sqlite3_bind_blob(write, 1, kPath, sizeof kPath - 1, SQLITE_STATIC);
    sqlite3_bind_blob(write, 2, "Colour", 6, SQLITE_STATIC);
    sqlite3_bind_int(write, 3, 1);
    sqlite3_bind_blob(write, 4, text.c_str(), static_cast<int>(text.size() + 1), SQLITE_STATIC);
    if (sqlite3_step(write) != SQLITE_DONE) std::abort();
    sqlite3_reset(write);
  }
  static constexpr char kPath[] = "HKEY_CURRENT_USER\\Software\\Vendor\\Bench";
  sqlite3* db = nullptr;
  sqlite3_stmt* read = nullptr;
  sqlite3_stmt* write = nullptr;
};

RawDb& Raw() {
  static RawDb raw;
  return raw;
}

void BM_KeyGetValue(benchmark::State& state) {
  auto key = BenchKey();
  for (auto _ : state) benchmark::DoNotOptimize(key->GetValue(u"Colour"));
}
BENCHMARK(BM_KeyGetValue);

void BM_RawGetValue(benchmark::State& state) {
  RawDb& raw = Raw();
  for (auto _ : state) benchmark::DoNotOptimize(raw.Read());
}
BENCHMARK(BM_RawGetValue);

void BM_KeySetValue(benchmark::State& state) {
  auto key = BenchKey();
  Variant value(String(kText, kText + sizeof kText - 1));
  for (auto _ : state) benchmark::DoNotOptimize(key->SetValue(u"Colour", value));
}
BENCHMARK(BM_KeySetValue);

void BM_RawSetValue(benchmark::State& state) {
  RawDb& raw = Raw();
  std::string text = kText;
  for (auto _ : state) raw.Write(text);
}
BENCHMARK(BM_RawSetValue);

// Prints as usual and keeps each benchmark's real time per iteration (the
// median when the run is repeated).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration) {
        times_[run.run_name.function_name] = run.GetAdjustedRealTime();
      } else if (run.aggregate_name == "median") {
        times_[run.run_name.function_name] = run.GetAdjustedRealTime();
      }
    }
  }
  void PrintRatios(const char* title) const {
    std::printf("\nOverhead of KivRegistryKey over a raw prepared statement, %s (goal: at most 2x):\n", title);
    for (const char* op : {"GetValue", "SetValue"})
      if (double r = Ratio(op); r > 0)
        std::printf("  %-8s  ours %10.1f ns  raw %10.1f ns  ratio %.2fx\n", op, Time("BM_Key", op),
                    Time("BM_Raw", op), r);
  }
  // The ratio of KivRegistryKey to the raw statement for `op`, 0 when not run.
  double Ratio(const char* op) const {
    double raw = Time("BM_Raw", op);
    return raw > 0 ? Time("BM_Key", op) / raw : 0;
  }

 private:
  double Time(const char* prefix, const char* op) const {
    auto it = times_.find(std::string(prefix) + op);
    return it == times_.end() ? 0 : it->second;
  }
  std::map<std::string, double> times_;
};

}  // namespace

// Runs every benchmark under code page 1252 and again under 65001 (UTF-8),
// and prints the ratios of both runs and how the 65001 ratios compare.
int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter ansi, utf8;
  BenchContext()->set_code_page(kCodePage1252);
  benchmark::RunSpecifiedBenchmarks(&ansi);
  BenchContext()->set_code_page(kCodePageUtf8);
  benchmark::RunSpecifiedBenchmarks(&utf8);
  ansi.PrintRatios("code page 1252");
  utf8.PrintRatios("code page 65001");
  std::printf("\nRatio under 65001 against the ratio under 1252 (goal: within 10%%):\n");
  for (const char* op : {"GetValue", "SetValue"})
    if (ansi.Ratio(op) > 0 && utf8.Ratio(op) > 0)
      std::printf("  %-8s  %.2fx / %.2fx = %+.1f%%\n", op, utf8.Ratio(op), ansi.Ratio(op),
                  (utf8.Ratio(op) / ansi.Ratio(op) - 1) * 100);
  benchmark::Shutdown();
  return 0;
}
