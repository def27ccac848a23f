// KivRegistryKey::GetValue and SetValue on a database file, against a raw
// SQLite prepared statement doing the same read and write on an equivalent
// table (one row per value, keyed by key path and value name, in a WAL
// database with the same settings). Runs in rounds under code page 1252
// and under 65001 and prints the overhead ratios of both at the end.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tarvo2/codepage.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/registry_key.h"
#include "tarvo2/registry_store.h"
#include "rounds.h"

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

// Prints as usual and keeps each benchmark's real and CPU time per
// iteration (the medians when the run is repeated).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration || run.aggregate_name == "median") {
        real_[run.run_name.function_name] = run.GetAdjustedRealTime();
        cpu_[run.run_name.function_name] = run.GetAdjustedCPUTime();
      }
    }
  }
  // The ratio of KivRegistryKey to the raw statement for `op` in real time
  // (or CPU time), 0 when not run.
  double Ratio(const char* op, bool cpu = false) const {
    double raw = Time(cpu, "BM_Raw", op);
    return raw > 0 ? Time(cpu, "BM_Key", op) / raw : 0;
  }

 private:
  double Time(bool cpu, const char* prefix, const char* op) const {
    const auto& times = cpu ? cpu_ : real_;
    auto it = times.find(std::string(prefix) + op);
    return it == times.end() ? 0 : it->second;
  }
  std::map<std::string, double> real_, cpu_;
};

// The median of `values` (0 for none).
double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

}  // namespace

// Runs every benchmark in rounds (--rounds=N, default 3), each round under
// code page 1252 and under 65001 (UTF-8), the order alternating from round
// to round so that a passing load weighs on both alike. Prints the median
// overhead ratios of both code pages and how the 65001 ratio compares with
// the 1252 one: the median over rounds of the change within a round.
int main(int argc, char** argv) {
  const int rounds = tarvo2_bench::TakeRounds(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  std::vector<RatioReporter> ansi(rounds), utf8(rounds);
  for (int round = 0; round < rounds; ++round) {
    for (int step = 0; step < 2; ++step) {
      const bool run_utf8 = (step == 0) == (round % 2 == 1);
      std::printf("\n=== round %d, code page %s\n", round + 1, run_utf8 ? "65001" : "1252");
      BenchContext()->set_code_page(run_utf8 ? kCodePageUtf8 : kCodePage1252);
      benchmark::RunSpecifiedBenchmarks(run_utf8 ? &utf8[round] : &ansi[round]);
    }
  }
  std::printf("\nOverhead of KivRegistryKey over a raw prepared statement, medians of %d rounds, in real\n"
              "and CPU time (goal: at most 2x), and the 65001 ratio against the 1252 ratio within each\n"
              "round, in CPU time (goal: within 10%%):\n", rounds);
  for (const char* op : {"GetValue", "SetValue"}) {
    std::vector<double> real1252, real65001, cpu1252, cpu65001, changes;
    for (int round = 0; round < rounds; ++round) {
      const double a = ansi[round].Ratio(op, true), u = utf8[round].Ratio(op, true);
      if (a <= 0 || u <= 0) continue;
      real1252.push_back(ansi[round].Ratio(op));
      real65001.push_back(utf8[round].Ratio(op));
      cpu1252.push_back(a);
      cpu65001.push_back(u);
      changes.push_back((u / a - 1) * 100);
    }
    if (changes.empty()) continue;
    std::printf("  %-8s  1252 %.2fx (CPU %.2fx)  65001 %.2fx (CPU %.2fx)  change %+.1f%% (rounds %+.1f%% to %+.1f%%)\n",
                op, Median(real1252), Median(cpu1252), Median(real65001), Median(cpu65001), Median(changes),
                *std::min_element(changes.begin(), changes.end()), *std::max_element(changes.begin(), changes.end()));
  }
  benchmark::Shutdown();
  return 0;
}
