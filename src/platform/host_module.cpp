#include "tarvo2/host_module.h"

#include <unistd.h>

#include "tarvo2/codepage.h"

namespace tarvo2 {

HostModule ParseHostModulePath(std::string path) {
  HostModule h;
  String text = FromUtf8(path);
  if (text.size() > 259) text.resize(259);
  std::size_t nul = text.find(u'\0');
  if (nul != String::npos) text.resize(nul);
  std::size_t slash = text.rfind(u'/');
  h.folder = slash == String::npos ? String() : text.substr(0, slash + 1);
  String file = slash == String::npos ? text : text.substr(slash + 1);
  std::size_t dot = file.rfind(u'.');
  h.name = dot == String::npos ? file : file.substr(0, dot);
  h.path = std::move(path);
  return h;
}

std::string ReadHostModulePath() {
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

}  // namespace tarvo2
