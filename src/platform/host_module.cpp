#include "tarvo2/host_module.h"

#include <unistd.h>

#include <mutex>

namespace tarvo2 {
namespace {

std::mutex mu;
std::string& Override() {
  static auto* path = new std::string();
  return *path;
}

std::string ReadSelfExe() {
  // readlink() does not say whether it cut the name; grow until it fits.
  for (size_t size = 256; size <= (1u << 20); size *= 4) {
    std::string buf(size, '\0');
    ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size());
    if (n < 0) return "";
    if (static_cast<size_t>(n) < buf.size()) {
      buf.resize(static_cast<size_t>(n));
      return buf;
    }
  }
  return "";
}

}  // namespace

std::string GetHostModulePath() {
  {
    std::lock_guard<std::mutex> l(mu);
    if (!Override().empty()) return Override();
  }
  return ReadSelfExe();
}

void SetHostModulePath(std::string path) {
  std::lock_guard<std::mutex> l(mu);
  Override() = std::move(path);
}

}  // namespace tarvo2
