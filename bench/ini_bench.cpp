// KivINIFileHandler.GetValue and SetValue on a real file of 1,000 keys in 50
// sections, compared with a full parse of the file on every call and with
// Python's configparser reading and writing the same keys.
//
//   ./ini_bench [--benchmark_filter=...]
//
// "cached" uses a context's default profile store, which keeps the parsed file
// and re-validates it against the file at every call. "parse per call"
// gives every call a fresh profile store, so the file is read and parsed
// each time. configparser is timed inside Python (python3 on the PATH):
// get() on a parsed file, read()+get() per call, set() alone, and set()
// followed by an atomic, fsynced rewrite of the file (what every SetValue
// does). Everything runs in rounds under code page 1252 and under 65001;
// the ratios of the medians of both are printed at the end.
//
// "stat" is a bare stat() of the same file: the cached GetValue must stay
// coherent with other processes' writes, so one stat() plus the in-memory
// lookup is its limit (goal: at most 1.2 times that). "writers" measures
// SetValue of 1, 4 and 8 processes on one file and on a file each in one
// folder, and where their time goes: the lock wait, the fsynced temporary
// file and the rename with its folder fsync.
#include <benchmark/benchmark.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tarvo2/codepage.h"
#include "tarvo2/file_system.h"
#include "tarvo2/ini_file.h"
#include "tarvo2/profile_store.h"
#include "tarvo2/services.h"
#include "tarvo2/testing/file_system.h"
#include "rounds.h"

namespace {

using tarvo2::String;

constexpr int kSections = 50;
constexpr int kKeysPerSection = 20;

std::string g_dir;
std::string g_file;
// The (section, key) pairs read and written, in a shuffled order.
std::vector<std::pair<String, String>> g_pairs;

std::string Two(int n) { return (n < 10 ? "0" : "") + std::to_string(n); }

void MakeFile() {
  char pattern[] = "/tmp/tarvo2-ini-bench-XXXXXX";
  if (::mkdtemp(pattern) == nullptr) {
    std::perror("mkdtemp");
    std::exit(1);
  }
  g_dir = pattern;
  g_file = g_dir + "/bench.ini";
  for (int s = 0; s < kSections; ++s)
    for (int k = 0; k < kKeysPerSection; ++k)
      g_pairs.emplace_back(tarvo2::FromAnsi("section" + Two(s)), tarvo2::FromAnsi("key" + Two(k)));
  std::shuffle(g_pairs.begin(), g_pairs.end(), std::mt19937(42));
}

// Writes the bench file's first content, so that every run starts from the
// same file (the writes of a run change its values). The store re-reads a
// file whose time stamps lie within two seconds of its last read; let the
// file age so that "cached" measures the cache.
void ResetFile() {
  std::ofstream out(g_file + ".new");
  for (int s = 0; s < kSections; ++s) {
    out << "[section" << Two(s) << "]\n";
    for (int k = 0; k < kKeysPerSection; ++k)
      out << "key" << Two(k) << "=value of key " << k << " in section " << s << "\n";
  }
  out.close();
  std::filesystem::rename(g_file + ".new", g_file);
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
}

// A handler on the bench file in a context of its own, whose profile store
// `services` holds (a new one per benchmark: no cache carried over).
tarvo2::Ref<tarvo2::KivINIFileHandler> Handler(const std::shared_ptr<tarvo2::Services>& services) {
  auto ini = tarvo2::KivINIFileHandler::Create(services);
  ini->put_Path(tarvo2::FromUtf8(g_file));
  return ini;
}

void BM_GetValueCached(benchmark::State& state) {
  auto ini = Handler(tarvo2::Services::New());
  size_t i = 0;
  for (auto _ : state) {
    const auto& [section, key] = g_pairs[i++ % g_pairs.size()];
    ini->put_Section(section);
    benchmark::DoNotOptimize(ini->GetValue(key));
  }
}
BENCHMARK(BM_GetValueCached);

// The same reads on the in-memory file system: the cost of the library's
// own code, without the system call that validates the cache.
void BM_GetValueCachedMemFs(benchmark::State& state) {
  auto fs = tarvo2::NewMemFileSystem();
  std::string bytes;
  tarvo2::FileSystem::Default()->ReadFile(g_file, &bytes);
  fs->CreateDir("/m");
  fs->WriteFile("/m/bench.ini", bytes, false);
  auto services = tarvo2::Services::New();
  services->set_file_system(fs);
  auto ini = tarvo2::KivINIFileHandler::Create(services);
  ini->put_Path(u"/m/bench.ini");
  ini->GetValue(u"warm");
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));  // out of the racy window
  size_t i = 0;
  for (auto _ : state) {
    const auto& [section, key] = g_pairs[i++ % g_pairs.size()];
    ini->put_Section(section);
    benchmark::DoNotOptimize(ini->GetValue(key));
  }
}
BENCHMARK(BM_GetValueCachedMemFs)->Iterations(1000000);

void BM_GetValueParsePerCall(benchmark::State& state) {
  auto services = tarvo2::Services::New();
  auto ini = Handler(services);
  size_t i = 0;
  for (auto _ : state) {
    const auto& [section, key] = g_pairs[i++ % g_pairs.size()];
    services->set_profile_store(tarvo2::NewProfileStore());  // an empty cache
    ini->put_Section(section);
    benchmark::DoNotOptimize(ini->GetValue(key));
  }
}
BENCHMARK(BM_GetValueParsePerCall);

void BM_Stat(benchmark::State& state) {
  struct stat st;
  for (auto _ : state) benchmark::DoNotOptimize(::stat(g_file.c_str(), &st));
}
BENCHMARK(BM_Stat);

// Times the steps of a write that can wait: the lock, the fsynced
// temporary file and the rename (which fsyncs the folder).
struct TimedFs : tarvo2::FileSystemWrapper {
  using FileSystemWrapper::FileSystemWrapper;
  using Clock = std::chrono::steady_clock;
  template <typename F>
  tarvo2::FileStatus Timed(double* total, F f) {
    auto start = Clock::now();
    tarvo2::FileStatus s = f();
    *total += std::chrono::duration<double, std::nano>(Clock::now() - start).count();
    return s;
  }
  tarvo2::FileStatus LockFile(const std::string& p, std::unique_ptr<tarvo2::FileLock>* l) override {
    return Timed(&lock_ns, [&] { return FileSystemWrapper::LockFile(p, l); });
  }
  tarvo2::FileStatus WriteFile(const std::string& p, std::string_view d, bool sync) override {
    return Timed(&write_ns, [&] { return FileSystemWrapper::WriteFile(p, d, sync); });
  }
  tarvo2::FileStatus RenameFile(const std::string& f, const std::string& t) override {
    return Timed(&rename_ns, [&] { return FileSystemWrapper::RenameFile(f, t); });
  }
  double lock_ns = 0, write_ns = 0, rename_ns = 0;
};

// Where the writers' time went, per write, by benchmark name.
std::map<std::string, std::array<double, 3>> g_write_steps;

// state.range(0) processes each write kWritesEach values, into one shared
// file (range(1) == 0) or each into its own file of the folder.
void BM_Writers(benchmark::State& state) {
  constexpr int kWritesEach = 40;
  const int procs = static_cast<int>(state.range(0));
  const bool shared = state.range(1) == 0;
  std::array<double, 3> steps{};
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    std::vector<std::pair<pid_t, int>> children;
    for (int c = 0; c < procs; ++c) {
      int fds[2];
      if (::pipe(fds) != 0) std::abort();
      pid_t pid = ::fork();
      if (pid == 0) {
        ::close(fds[0]);
        auto fs = std::make_shared<TimedFs>(std::shared_ptr<tarvo2::FileSystem>(tarvo2::FileSystem::Default(),
                                                                                [](tarvo2::FileSystem*) {}));
        auto store = tarvo2::NewProfileStore(fs);
        const std::string file = g_dir + (shared ? "/writers.ini" : "/writer" + std::to_string(c) + ".ini");
        for (int i = 0; i < kWritesEach; ++i)
          store->WritePrivateProfileString("S", ("c" + std::to_string(c) + "k" + std::to_string(i)).c_str(), "v",
                                           file);
        double out[3] = {fs->lock_ns, fs->write_ns, fs->rename_ns};
        if (::write(fds[1], out, sizeof out) != sizeof out) ::_exit(1);
        ::_exit(0);
      }
      ::close(fds[1]);
      children.emplace_back(pid, fds[0]);
    }
    for (auto [pid, fd] : children) {
      double in[3] = {};
      if (::read(fd, in, sizeof in) == sizeof in)
        for (int k = 0; k < 3; ++k) steps[k] += in[k];
      ::close(fd);
      ::waitpid(pid, nullptr, 0);
    }
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  const double writes = static_cast<double>(state.iterations()) * procs * kWritesEach;
  state.counters["writes/s"] = benchmark::Counter(writes, benchmark::Counter::kIsRate);
  for (double& s : steps) s /= writes;
  g_write_steps[std::to_string(procs) + (procs == 1 ? " writer, " : " writers, ") +
                (shared ? "one file" : "a file each")] = steps;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(g_dir))
    if (e.path().filename().string().rfind("writer", 0) == 0) std::filesystem::remove(e.path(), ec);
}
BENCHMARK(BM_Writers)
    ->ArgsProduct({{1, 4, 8}, {0, 1}})
    ->ArgNames({"procs", "own_file"})
    ->UseManualTime()
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond);

void BM_SetValueCached(benchmark::State& state) {
  auto ini = Handler(tarvo2::Services::New());
  size_t i = 0;
  for (auto _ : state) {
    const auto& [section, key] = g_pairs[i % g_pairs.size()];
    ini->put_Section(section);
    // A value that differs from the stored one, so that every call writes.
    ini->SetValue(key, static_cast<int32_t>(i++));
  }
}
BENCHMARK(BM_SetValueCached);

void BM_SetValueParsePerCall(benchmark::State& state) {
  auto services = tarvo2::Services::New();
  auto ini = Handler(services);
  size_t i = 0;
  for (auto _ : state) {
    const auto& [section, key] = g_pairs[i % g_pairs.size()];
    services->set_profile_store(tarvo2::NewProfileStore());
    ini->put_Section(section);
    ini->SetValue(key, static_cast<int32_t>(i++) + 1000000);
  }
}
BENCHMARK(BM_SetValueParsePerCall);

// Keeps the console output and the wall and CPU time per iteration of
// every run, in nanoseconds.
class Recorder : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& r : runs) {
      if (r.run_type != Run::RT_Iteration) continue;
      double unit = r.time_unit == benchmark::kMicrosecond   ? 1e3
                    : r.time_unit == benchmark::kMillisecond ? 1e6
                                                             : 1.0;
      std::string name = r.benchmark_name().substr(0, r.benchmark_name().find('/'));
      wall[name] = r.GetAdjustedRealTime() * unit;
      cpu[name] = r.GetAdjustedCPUTime() * unit;
    }
  }
  std::map<std::string, double> wall, cpu;
};

constexpr char kPython[] = R"PY(
import configparser, os, random, sys, time
path = sys.argv[1]
pairs = [("section%02d" % s, "key%02d" % k) for s in range(50) for k in range(20)]
random.Random(42).shuffle(pairs)
def per_call(name, fn, n):
    w, c = time.perf_counter_ns(), time.process_time_ns()
    for i in range(n):
        fn(i)
    w, c = time.perf_counter_ns() - w, time.process_time_ns() - c
    print(name, w / n, c / n)
cp = configparser.ConfigParser()
cp.read(path)
per_call("get", lambda i: cp.get(*pairs[i % 1000]), 200000)
def parse_get(i):
    c = configparser.ConfigParser()
    c.read(path)
    c.get(*pairs[i % 1000])
per_call("parse_get", parse_get, 300)
per_call("set", lambda i: cp.set(*pairs[i % 1000], str(i)), 200000)
copy = path + ".py.ini"
def set_write(i):
    cp.set(*pairs[i % 1000], str(i))
    with open(copy + ".tmp", "w") as f:
        cp.write(f)
        f.flush()
        os.fsync(f.fileno())
    os.replace(copy + ".tmp", copy)
per_call("set_write", set_write, 300)
)PY";

struct Times {
  std::map<std::string, double> wall, cpu;
};

Times RunConfigParser() {
  Times t;
  std::string script = g_dir + "/bench.py";
  std::ofstream(script) << kPython;
  std::string command = "python3 '" + script + "' '" + g_file + "' 2>&1";
  FILE* p = ::popen(command.c_str(), "r");
  if (p == nullptr) return t;
  char line[512];
  while (std::fgets(line, sizeof line, p) != nullptr) {
    char name[64];
    double wall, cpu;
    if (std::sscanf(line, "%63s %lf %lf", name, &wall, &cpu) == 3) {
      t.wall[name] = wall;
      t.cpu[name] = cpu;
    } else {
      std::fputs(line, stderr);
    }
  }
  ::pclose(p);
  return t;
}

double Find(const std::map<std::string, double>& m, const std::string& k) {
  auto it = m.find(k);
  return it == m.end() ? 0.0 : it->second;
}

void PrintRatios(const Times& ours, const Times& py) {
  struct Row { const char* label; const Times* t; const char* name; };
  const Row rows[] = {
      {"GetValue, cached", &ours, "BM_GetValueCached"},
      {"GetValue, cached, in-memory files (no syscall)", &ours, "BM_GetValueCachedMemFs"},
      {"GetValue, parse per call", &ours, "BM_GetValueParsePerCall"},
      {"configparser get (parsed once)", &py, "get"},
      {"configparser read + get", &py, "parse_get"},
      {"SetValue, cached (atomic, fsynced write)", &ours, "BM_SetValueCached"},
      {"SetValue, parse per call", &ours, "BM_SetValueParsePerCall"},
      {"configparser set (memory only)", &py, "set"},
      {"configparser set + atomic fsynced write", &py, "set_write"},
  };
  std::printf("\n%-48s %12s %12s\n", "per call", "wall ns", "CPU ns");
  for (const Row& r : rows) {
    double w = Find(r.t->wall, r.name), c = Find(r.t->cpu, r.name);
    if (w > 0) std::printf("%-48s %12.0f %12.0f\n", r.label, w, c);
    else std::printf("%-48s %12s %12s\n", r.label, "n/a", "n/a");
  }
  struct Ratio { const char* label; const Times* a; const char* an; const Times* b; const char* bn; const char* goal; };
  const Ratio ratios[] = {
      {"GetValue cached vs parse per call", &ours, "BM_GetValueCached", &ours, "BM_GetValueParsePerCall", "goal >= 20x"},
      {"GetValue cached vs configparser get", &ours, "BM_GetValueCached", &py, "get", "goal > 1x"},
      {"GetValue cached, in-memory vs configparser get", &ours, "BM_GetValueCachedMemFs", &py, "get", ""},
      {"GetValue parse per call vs configparser read + get", &ours, "BM_GetValueParsePerCall", &py, "parse_get", ""},
      {"SetValue cached vs parse per call", &ours, "BM_SetValueCached", &ours, "BM_SetValueParsePerCall", ""},
      {"SetValue cached vs configparser set + write", &ours, "BM_SetValueCached", &py, "set_write", ""},
      {"SetValue cached vs configparser set (memory only)", &ours, "BM_SetValueCached", &py, "set", ""},
  };
  const double stat_ns = Find(ours.wall, "BM_Stat"), mem_ns = Find(ours.wall, "BM_GetValueCachedMemFs");
  const double cached_ns = Find(ours.wall, "BM_GetValueCached");
  if (stat_ns > 0 && mem_ns > 0)
    std::printf("\nGetValue cached vs stat() + in-memory lookup (%.0f + %.0f ns): %.2fx   goal <= 1.2x\n", stat_ns,
                mem_ns, cached_ns / (stat_ns + mem_ns));
  std::printf("\n%-34s %12s %12s %12s\n", "SetValue writers, per write", "lock wait us", "data+fsync us",
              "rename+fsync us");
  for (const auto& [name, steps] : g_write_steps)
    std::printf("%-34s %12.0f %12.0f %12.0f\n", name.c_str(), steps[0] / 1e3, steps[1] / 1e3, steps[2] / 1e3);
  std::printf("\n%-52s %9s %9s\n", "speed-up (times faster)", "wall", "CPU");
  for (const Ratio& r : ratios) {
    double aw = Find(r.a->wall, r.an), bw = Find(r.b->wall, r.bn);
    double ac = Find(r.a->cpu, r.an), bc = Find(r.b->cpu, r.bn);
    if (aw > 0 && bw > 0 && ac > 0 && bc > 0)
      std::printf("%-52s %8.1fx %8.1fx  %s\n", r.label, bw / aw, bc / ac, r.goal);
    else
      std::printf("%-52s %9s %9s  %s\n", r.label, "n/a", "n/a", r.goal);
  }
}

// The median of `values` (0 for none).
double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// Per benchmark, the median over rounds of one code page's figures.
Times Medians(const std::vector<Recorder>& rounds) {
  Times t;
  for (const auto& [name, unused] : rounds.front().cpu) {
    std::vector<double> wall, cpu;
    for (const Recorder& r : rounds) {
      wall.push_back(Find(r.wall, name));
      cpu.push_back(Find(r.cpu, name));
    }
    t.wall[name] = Median(wall);
    t.cpu[name] = Median(cpu);
  }
  return t;
}

}  // namespace

// Runs every benchmark in rounds (--rounds=N, default 3), each round under
// code page 1252 and under 65001 (UTF-8), the order alternating from round
// to round so that a passing load weighs on both alike. Prints the ratios
// of the medians under each code page, and how 65001 compares with 1252:
// the median over rounds of the change within a round.
int main(int argc, char** argv) {
  const int rounds = tarvo2_bench::TakeRounds(argc, argv);
  MakeFile();
  benchmark::Initialize(&argc, argv);
  std::vector<Recorder> ansi(rounds), utf8(rounds);
  for (int round = 0; round < rounds; ++round) {
    for (int step = 0; step < 2; ++step) {
      const bool run_utf8 = (step == 0) == (round % 2 == 1);
      std::printf("\n=== round %d, code page %s\n", round + 1, run_utf8 ? "65001" : "1252");
      // The benchmarks make contexts of their own, which start in the code
      // page that TARVO2_CODEPAGE names.
      setenv("TARVO2_CODEPAGE", run_utf8 ? "65001" : "1252", 1);
      ResetFile();
      benchmark::RunSpecifiedBenchmarks(run_utf8 ? &utf8[round] : &ansi[round]);
    }
  }
  benchmark::Shutdown();
  const Times py = RunConfigParser();
  std::printf("\n=== code page 1252 (medians of %d rounds)\n", rounds);
  PrintRatios(Medians(ansi), py);
  std::printf("\n=== code page 65001 (medians of %d rounds)\n", rounds);
  PrintRatios(Medians(utf8), py);
  std::printf("\n65001 against 1252 (goal: within 10%%): the medians' CPU time and their change, and the\n"
              "change within each round (median, min, max)\n");
  std::printf("%-28s %12s %12s %8s %26s\n", "", "1252 CPU ns", "65001 CPU ns", "change", "rounds: median, min, max");
  const Times a = Medians(ansi), u = Medians(utf8);
  for (const auto& [name, c1252] : a.cpu) {
    std::vector<double> changes;
    for (int round = 0; round < rounds; ++round) {
      const double x = Find(ansi[round].cpu, name), y = Find(utf8[round].cpu, name);
      if (x > 0 && y > 0) changes.push_back((y / x - 1) * 100);
    }
    if (changes.empty()) continue;
    std::printf("%-28s %12.0f %12.0f %+7.1f%% %+9.1f%% %+7.1f%% %+7.1f%%\n", name.c_str(), c1252, Find(u.cpu, name),
                (Find(u.cpu, name) / c1252 - 1) * 100, Median(changes),
                *std::min_element(changes.begin(), changes.end()), *std::max_element(changes.begin(), changes.end()));
  }
  std::error_code ec;
  std::filesystem::remove_all(g_dir, ec);
  return 0;
}
