// Writers killed with SIGKILL at random moments: a page file written by
// Save, an INI file and the registry each hold exactly the old or the new
// content afterwards, the registry passes its integrity check, and the next
// write leaves no temporary file behind.
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/platform_temp_dir.h"
#include "tarvo2/codepage.h"
#include "tarvo2/profile_store.h"
#include "tarvo2/registry_store.h"
#include "tarvo2/storage_string.h"

namespace tarvo2 {
namespace {

constexpr int kKills = 30;

// The content of version `n`: big enough that a kill often lands inside a
// write, with the number first so a reader can tell versions apart.
std::string Content(int n) {
  return std::to_string(n) + ";" + std::string(256 * 1024 + n, static_cast<char>('a' + n % 26));
}

// The version that `text` is exactly, or -1.
int VersionOf(const std::string& text) {
  const int n = std::atoi(text.c_str());
  return text == Content(n) ? n : -1;
}

std::vector<std::string> Names(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

// One store under test. `write(n)` makes version n the content (in the
// child, and in the parent for the next write); `read()` gives the version
// the store holds, or -1 for anything else; `left()` the files of its
// folder after a write.
struct Store {
  const char* name;
  std::function<void(int)> write;
  std::function<int()> read;
  std::vector<std::string> left;
};

// Kills a child that writes versions base+1, base+2, ... at a random moment,
// kKills times; each time the store must hold the version that was being
// written or the one before, and after the next write only `left` remains.
void KillWritersAtRandom(const Store& store, const std::string& dir) {
  SCOPED_TRACE(store.name);
  std::random_device seed_source;
  const unsigned seed = seed_source();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> delay_us(0, 40000);
  int base = 0;
  store.write(base);
  for (int kill = 0; kill < kKills; ++kill) {
    int progress[2];
    ASSERT_EQ(::pipe(progress), 0);
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      ::close(progress[0]);
      for (int n = base + 1;; ++n) {
        if (::write(progress[1], &n, sizeof n) != sizeof n) ::_exit(1);
        store.write(n);
      }
    }
    ::close(progress[1]);
    std::this_thread::sleep_for(std::chrono::microseconds(delay_us(random)));
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
    int started = base, n = 0;
    while (::read(progress[0], &n, sizeof n) == sizeof n) started = n;
    ::close(progress[0]);
    const int held = store.read();
    EXPECT_TRUE(held == started || (held == started - 1 && held >= base))
        << "kill " << kill << ": holds " << held << " while writing " << started;
    base = started + 1;
    store.write(base);
    EXPECT_EQ(store.read(), base);
    EXPECT_EQ(Names(dir), store.left) << "kill " << kill;
  }
}

TEST(CrashTest, KilledWritersLeaveTheOldOrTheNewContentAndNoTemporaryFile) {
  testing::PlatformTempDir tmp;
  ASSERT_FALSE(tmp.path().empty());
  for (const char* sub : {"page", "ini", "registry"}) std::filesystem::create_directory(tmp / sub);

  const std::string page = tmp / "page/page.txt";
  Store page_store{"Save", [&](int n) {
                     Ref<KivStorageString> ss = KivStorageString::Create();
                     ss->put_Value(Variant(FromAnsi(Content(n))));
                     ss->Save(FromAnsi(page));
                   },
                   [&] { return VersionOf(testing::ReadBytes(page)); }, {"page.txt"}};

  const std::string ini = tmp / "ini/app.ini";
  Store ini_store{"INI", [&](int n) { NewProfileStore()->WritePrivateProfileString("S", "v", Content(n).c_str(), ini); },
                  [&] {
                    const std::string text = testing::ReadBytes(ini);
                    const std::string prefix = "[S]\nv=";
                    if (text.compare(0, prefix.size(), prefix) != 0 || text.back() != '\n') return -1;
                    return VersionOf(text.substr(prefix.size(), text.size() - prefix.size() - 1));
                  },
                  {"app.ini"}};

  const std::string db = tmp / "registry/registry.sqlite3";
  Store registry_store{"registry",
                       [&](int n) {
                         const std::string data = Content(n);
                         OpenSqliteRegistryStore(db)->SetValueAt(
                             kHKeyCurrentUser, "", "v", kRegBinary, reinterpret_cast<const std::uint8_t*>(data.data()),
                             static_cast<std::uint32_t>(data.size()));
                       },
                       [&] {
                         sqlite3* raw = nullptr;
                         std::string check;
                         if (sqlite3_open(db.c_str(), &raw) == SQLITE_OK) {
                           sqlite3_exec(
                               raw, "PRAGMA integrity_check",
                               [](void* out, int, char** values, char**) {
                                 *static_cast<std::string*>(out) += values[0] ? values[0] : "";
                                 return 0;
                               },
                               &check, nullptr);
                         }
                         sqlite3_close(raw);
                         EXPECT_EQ(check, "ok");
                         auto store = OpenSqliteRegistryStore(db);
                         std::uint32_t size = 0;
                         if (store->QueryValue(kHKeyCurrentUser, "v", nullptr, nullptr, &size) != 0) return -1;
                         std::string data(size, '\0');
                         store->QueryValue(kHKeyCurrentUser, "v", nullptr, reinterpret_cast<std::uint8_t*>(data.data()),
                                           &size);
                         return VersionOf(data);
                       },
                       {"registry.sqlite3"}};

  KillWritersAtRandom(page_store, tmp / "page");
  KillWritersAtRandom(ini_store, tmp / "ini");
  KillWritersAtRandom(registry_store, tmp / "registry");
}

}  // namespace
}  // namespace tarvo2
