// Helpers of tests that work on real files, processes and the environment.
#ifndef TARVO2_TESTS_SUPPORT_PLATFORM_TEMP_DIR_H_
#define TARVO2_TESTS_SUPPORT_PLATFORM_TEMP_DIR_H_

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

namespace tarvo2::testing {

// A fresh folder under $TMPDIR (or /tmp), removed with its content when the
// object goes away.
class PlatformTempDir {
 public:
  PlatformTempDir() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/tarvo2-XXXXXX";
    if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~PlatformTempDir() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  PlatformTempDir(const PlatformTempDir&) = delete;
  PlatformTempDir& operator=(const PlatformTempDir&) = delete;

  // Empty when the folder could not be made.
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// The bytes of the file at `path` ("" when it cannot be read).
inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// What the shell command `command` writes to its standard output.
inline std::string CommandOutput(const std::string& command) {
  std::string out;
  FILE* p = ::popen(command.c_str(), "r");
  char buf[4096];
  for (std::size_t n; p && (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  if (p) ::pclose(p);
  return out;
}

// Sets (or, given null, unsets) an environment variable for a scope and
// puts back what it was.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    Set(value);
  }
  ~ScopedEnv() { Set(old_ ? old_->c_str() : nullptr); }
  void Set(const char* value) { value ? ::setenv(name_.c_str(), value, 1) : ::unsetenv(name_.c_str()); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

}  // namespace tarvo2::testing

#endif  // TARVO2_TESTS_SUPPORT_PLATFORM_TEMP_DIR_H_
