// Benchmarks of KivStorageString on a page of 16 million characters, and the
// same replace, count and find done by CPython's str methods on the same
// text, with a comparison table at the end.
//
// The text is made of words drawn by a small linear congruential generator,
// separated by blanks and, every 13th word, by CR LF; the CPython side
// builds it with the same generator, and the hit counts of both sides are
// compared to make sure they searched the same text.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

#include "tarvo2/codepage.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/storage_string.h"

namespace {

using tarvo2::KivStorageString;
using tarvo2::Ref;
using tarvo2::SafeArray;
using tarvo2::String;

constexpr std::size_t kPageChars = 16u << 20;
constexpr const char* kWords[16] = {"lorem", "ipsum", "dolor", "sit",  "amet", "alpha", "beta",  "gamma",
                                    "delta", "kiv",   "tarvo", "store", "page", "field", "value", "x"};

// The operations compared with CPython, by benchmark name.
struct Pair {
  const char* benchmark;
  const char* python_key;
  const char* label;
};
constexpr Pair kPairs[] = {
    {"BM_ReplaceAll_1Char", "replace1", "Replace all \"x\" by \"y\""},
    {"BM_ReplaceAll_5Chars", "replace5", "Replace all \"alpha\" by \"ALPHA\""},
    {"BM_LookFor_3Texts", "count3", "LookFor / count of page, value, x"},
    {"BM_Find_EveryMatch", "findall", "Find stepping through every \"store\""},
};

const String& Text() {
  static const String text = [] {
    std::string s;
    s.reserve(kPageChars + 16);
    std::uint32_t state = 1;
    for (std::size_t n = 0; s.size() < kPageChars; ++n) {
      state = (state * 1103515245u + 12345u) & 0x7fffffffu;
      s += kWords[(state >> 16) & 15];
      s += (n % 13 == 12) ? "\r\n" : " ";
    }
    s.resize(kPageChars);
    return tarvo2::FromAnsi(s);
  }();
  return text;
}

Ref<KivStorageString> StoreWithText() {
  auto ss = KivStorageString::Create();
  ss->put_Value(Text());
  return ss;
}

// One store per benchmark that lives across its repetitions, so that a
// repetition works on a page already in use, as the CPython side does with
// its string.
Ref<KivStorageString>& SharedStore(const char* benchmark) {
  static std::map<std::string, Ref<KivStorageString>> stores;
  Ref<KivStorageString>& ss = stores[benchmark];
  if (!ss) ss = StoreWithText();
  return ss;
}

// Hit counts seen by our side, to check against CPython's.
std::map<std::string, long long>& OurCounts() {
  static std::map<std::string, long long> counts;
  return counts;
}

void ReplaceAll(benchmark::State& state, const char* key, const String& from, const String& to) {
  auto ss = SharedStore(key);
  ss->Replace(from, to, false, true, true);  // warm-up, untimed
  ss->Replace(to, from, false, true, true);
  std::int32_t replaced = 0;
  for (auto _ : state) {
    replaced = ss->Replace(from, to, false, true, true);
    state.PauseTiming();
    ss->Replace(to, from, false, true, true);  // the text holds no `to`: this restores it
    state.ResumeTiming();
  }
  OurCounts()[tarvo2::ToUtf8(from)] = replaced;
}

void BM_ReplaceAll_1Char(benchmark::State& state) { ReplaceAll(state, "replace1", u"x", u"y"); }
void BM_ReplaceAll_5Chars(benchmark::State& state) { ReplaceAll(state, "replace5", u"alpha", u"ALPHA"); }

void BM_LookFor_3Texts(benchmark::State& state) {
  auto ss = SharedStore("count3");
  const tarvo2::Variant texts(SafeArray::OfStrings({u"page", u"value", u"x"}));
  benchmark::DoNotOptimize(ss->LookFor(texts, true, false));  // warm-up, untimed
  long long hits = 0;
  for (auto _ : state) {
    SafeArray found = ss->LookFor(texts, true, false);
    hits = 0;
    for (const auto& r : found.Items()) hits += r.AsRecord().Field(u"Hits").AsLong();
    benchmark::DoNotOptimize(found);
  }
  OurCounts()["count3"] = hits;
}

void BM_Find_EveryMatch(benchmark::State& state) {
  auto ss = SharedStore("findall");
  benchmark::DoNotOptimize(ss->LookFor(tarvo2::Variant(u"store"), true, false));  // warm-up, untimed
  long long n = 0;
  for (auto _ : state) {
    n = 0;
    std::int32_t previous = 0;
    for (std::int32_t q = ss->Find(u"store", false); q > previous; q = ss->Find()) {
      ++n;
      previous = q;
    }
  }
  OurCounts()["findall"] = n;
}

void BM_Encrypted_On(benchmark::State& state) {
  auto ss = StoreWithText();
  ss->put_EncryptionKey(u"Key 1");
  for (auto _ : state) {
    ss->put_Encrypted(true);
    state.PauseTiming();
    ss->put_Encrypted(false);
    state.ResumeTiming();
  }
}

void BM_Encrypted_Off(benchmark::State& state) {
  auto ss = StoreWithText();
  ss->put_EncryptionKey(u"Key 1");
  for (auto _ : state) {
    state.PauseTiming();
    ss->put_Encrypted(true);
    state.ResumeTiming();
    ss->put_Encrypted(false);
  }
  if (ss->PageText() != Text()) state.SkipWithError("deciphering did not restore the page");
}

std::string TempFile() {
  static const std::string path = [] {
    const char* tmp = std::getenv("TMPDIR");
    return std::string(tmp && *tmp ? tmp : "/tmp") + "/tarvo2-bench-" + std::to_string(::getpid()) + ".txt";
  }();
  return path;
}

void BM_Save(benchmark::State& state) {
  auto ss = StoreWithText();
  const String name = tarvo2::FromUtf8(TempFile());
  for (auto _ : state) ss->Save(name);
}

void BM_Load(benchmark::State& state) {
  auto ss = StoreWithText();
  const String name = tarvo2::FromUtf8(TempFile());
  ss->Save(name);
  for (auto _ : state) ss->Load(name);
  if (ss->PageText() != Text()) state.SkipWithError("the loaded page differs");
  std::remove(TempFile().c_str());
}

constexpr int kFields = 10000;

String FieldName(int i) { return u"Field" + tarvo2::FromUtf8(std::to_string(i)); }

Ref<KivStorageString> StoreWithFields() {
  auto ss = KivStorageString::Create();
  for (int i = 0; i < kFields; ++i) ss->SetValue(FieldName(i), tarvo2::Variant(u"value number " + FieldName(i)));
  return ss;
}

void BM_SetValue_10000Fields(benchmark::State& state) {
  auto ss = StoreWithFields();
  std::vector<String> names;
  for (int i = 0; i < kFields; i += 97) names.push_back(FieldName(i));
  std::size_t k = 0;
  for (auto _ : state) {
    ss->SetValue(names[k % names.size()], tarvo2::Variant(static_cast<std::int32_t>(k)));
    ++k;
  }
}

void BM_GetValue_10000Fields(benchmark::State& state) {
  auto ss = StoreWithFields();
  std::vector<String> names;
  for (int i = 0; i < kFields; i += 97) names.push_back(FieldName(i));
  std::size_t k = 0;
  for (auto _ : state) benchmark::DoNotOptimize(ss->GetValue(names[k++ % names.size()]));
}

// The operations compared with CPython are timed like the CPython side: one
// operation per run, seven runs, the median counts.
BENCHMARK(BM_ReplaceAll_1Char)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7);
BENCHMARK(BM_ReplaceAll_5Chars)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7);
BENCHMARK(BM_LookFor_3Texts)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7);
BENCHMARK(BM_Find_EveryMatch)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(7);
BENCHMARK(BM_Encrypted_On)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Encrypted_Off)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Save)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SetValue_10000Fields)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_GetValue_10000Fields)->Unit(benchmark::kMicrosecond);

// Records the time of every benchmark (the median of its repetitions when
// it has several) in milliseconds, while printing as usual.
class RecordingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred) continue;
      const bool median = r.run_type == Run::RT_Aggregate && r.aggregate_name == "median";
      if (r.run_type == Run::RT_Aggregate && !median) continue;
      const double value = r.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(r.time_unit) * 1e3;
      if (median || !medians_.count(r.run_name.function_name)) ms[r.run_name.function_name] = value;
      if (median) medians_.insert(r.run_name.function_name);
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> ms;

 private:
  std::set<std::string> medians_;
};

// The CPython side: the same text, then the median of seven timed runs of
// each operation (milliseconds), and the hit counts.
constexpr const char* kPythonScript = R"PY(
import time
N = 16 << 20
W = ["lorem","ipsum","dolor","sit","amet","alpha","beta","gamma","delta","kiv","tarvo","store","page","field","value","x"]
parts = []
state = 1
n = 0
size = 0
while size < N:
    state = (state * 1103515245 + 12345) & 0x7fffffff
    w = W[(state >> 16) & 15]
    sep = "\r\n" if n % 13 == 12 else " "
    parts.append(w)
    parts.append(sep)
    size += len(w) + len(sep)
    n += 1
s = "".join(parts)[:N]
del parts
def findall(t):
    c = 0
    i = s.find(t)
    while i >= 0:
        c += 1
        i = s.find(t, i + 1)
    return c
ops = {
    "replace1": lambda: s.replace("x", "y"),
    "replace5": lambda: s.replace("alpha", "ALPHA"),
    "count3": lambda: s.count("page") + s.count("value") + s.count("x"),
    "findall": lambda: findall("store"),
}
for key, op in ops.items():
    times = []
    for _ in range(7):
        t0 = time.perf_counter()
        r = op()
        times.append(time.perf_counter() - t0)
        del r
    times.sort()
    print("time", key, times[3] * 1e3)
print("count", "x", s.count("x"))
print("count", "alpha", s.count("alpha"))
print("count", "count3", s.count("page") + s.count("value") + s.count("x"))
print("count", "findall", findall("store"))
)PY";

struct PythonResults {
  std::map<std::string, double> ms;
  std::map<std::string, long long> counts;
  bool ran = false;
};

PythonResults RunCPython() {
  PythonResults out;
  std::string script = kPythonScript;
  std::string command = "python3 -c '" + script + "' 2>&1";
  FILE* p = ::popen(command.c_str(), "r");
  if (p == nullptr) return out;
  char line[512];
  while (std::fgets(line, sizeof line, p) != nullptr) {
    char kind[16], key[64];
    double value = 0;
    if (std::sscanf(line, "%15s %63s %lf", kind, key, &value) != 3) {
      std::fprintf(stderr, "python3: %s", line);
      continue;
    }
    if (std::string(kind) == "time") out.ms[key] = value;
    if (std::string(kind) == "count") out.counts[key] = static_cast<long long>(value);
  }
  out.ran = ::pclose(p) == 0 && !out.ms.empty();
  return out;
}

void PrintComparison(const RecordingReporter& ours, const PythonResults& py) {
  std::printf("\nKivStorageString vs CPython %s on the same %zu-character text\n",
              py.ran ? "(str.replace, str.count, str.find)" : "(CPython not available)", kPageChars);
  std::printf("Both sides: median of 7 runs of one operation. ratio = Tarvo2 time / CPython time"
              " (<= 1.00: Tarvo2 at least as fast)\n\n");
  std::printf("%-40s %12s %12s %8s\n", "operation", "Tarvo2 ms", "CPython ms", "ratio");
  for (const Pair& pair : kPairs) {
    auto o = ours.ms.find(pair.benchmark);
    auto c = py.ms.find(pair.python_key);
    if (o == ours.ms.end()) continue;
    if (c == py.ms.end()) {
      std::printf("%-40s %12.3f %12s %8s\n", pair.label, o->second, "-", "-");
      continue;
    }
    std::printf("%-40s %12.3f %12.3f %8.2f\n", pair.label, o->second, c->second, o->second / c->second);
  }
  // The hit counts must agree, or the two sides searched different texts.
  const std::pair<const char*, const char*> checks[] = {
      {"x", "x"}, {"alpha", "alpha"}, {"count3", "count3"}, {"findall", "findall"}};
  for (const auto& [mine, theirs] : checks) {
    auto a = OurCounts().find(mine);
    auto b = py.counts.find(theirs);
    if (a == OurCounts().end() || b == py.counts.end()) continue;
    if (a->second != b->second)
      std::printf("MISMATCH: %s found %lld times here, %lld times by CPython\n", mine, a->second, b->second);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RecordingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  PrintComparison(reporter, RunCPython());
  benchmark::Shutdown();
  return 0;
}
