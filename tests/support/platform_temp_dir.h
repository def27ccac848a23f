// A fresh folder under $TMPDIR (or /tmp) for tests that need real files,
// removed with its content when the object goes away.
#ifndef TARVO2_TESTS_SUPPORT_PLATFORM_TEMP_DIR_H_
#define TARVO2_TESTS_SUPPORT_PLATFORM_TEMP_DIR_H_

#include <cstdlib>
#include <filesystem>
#include <string>

namespace tarvo2::testing {

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

}  // namespace tarvo2::testing

#endif  // TARVO2_TESTS_SUPPORT_PLATFORM_TEMP_DIR_H_
