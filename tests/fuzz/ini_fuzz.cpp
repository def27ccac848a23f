// The INI reader and in-place writer on any file content. The input is the
// file, then a section, a key and a value separated by byte 1. Every key
// listed can be read; a write reads back, and the keys it does not concern
// keep their values.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "tarvo2/file_system.h"
#include "tarvo2/profile_store.h"
#include "tarvo2/testing/file_system.h"

using namespace tarvo2;

namespace {

constexpr char kFile[] = "/f.ini";

std::vector<std::string> List(ProfileStore* store, const char* section) {
  std::string buf(1 << 16, '\0');
  const std::uint32_t n = store->GetPrivateProfileString(section, nullptr, "", buf.data(), buf.size(), kFile);
  std::vector<std::string> names;
  for (std::size_t start = 0; start < n;) {
    std::size_t end = buf.find('\0', start);
    names.push_back(buf.substr(start, end - start));
    start = end + 1;
  }
  return names;
}

std::string Get(ProfileStore* store, const std::string& section, const std::string& key) {
  std::string buf(1 << 16, '\0');
  const std::uint32_t n =
      store->GetPrivateProfileString(section.c_str(), key.c_str(), "<none>", buf.data(), buf.size(), kFile);
  return buf.substr(0, n);
}

// Whether two names may name the same entry: equal without regard to ASCII
// letter case, or holding letters beyond ASCII, whose folding is not
// modelled here.
bool MaySame(std::string a, std::string b) {
  for (std::string* s : {&a, &b}) {
    for (char& c : *s) {
      if (static_cast<unsigned char>(c) >= 0x80) return true;
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return a == b;
}

std::string Trim(const std::string& s, const char* blanks) {
  std::size_t b = s.find_first_not_of(blanks);
  if (b == std::string::npos) return "";
  return s.substr(b, s.find_last_not_of(blanks) - b + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 8192) return 0;
  std::vector<std::string> parts{std::string()};
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == 1) parts.emplace_back();
    else parts.back() += static_cast<char>(data[i]);
  }
  parts.resize(4);
  auto fs = NewMemFileSystem();
  auto store = NewProfileStore(fs);
  if (!fs->WriteFile(kFile, parts[0], false).ok()) std::abort();

  // Everything listed reads without trouble; remember it.
  std::map<std::pair<std::string, std::string>, std::string> before;
  for (const std::string& section : List(store.get(), nullptr)) {
    if (section.find('\0') != std::string::npos) continue;
    for (const std::string& key : List(store.get(), section.c_str())) {
      if (key.find('\0') != std::string::npos) continue;
      before.emplace(std::pair(section, key), Get(store.get(), section, key));
    }
  }

  // A write of a value the reader gives back as it is: names of letters,
  // digits and inner blanks, a value without blanks or quotes at its ends.
  auto clean = [](const std::string& s, const char* allowed) {
    std::string out;
    for (char c : s)
      if (std::string_view(allowed).find(c) != std::string_view::npos) out += c;
    return out;
  };
  const std::string section = Trim(clean(parts[1], "abcAB_09 .\xe4\xc4"), " ");
  const std::string key = Trim(clean(parts[2], "abcAB_09 .\xe4\xc4"), " ");
  // A value inside a matching pair of quotes loses them on reading: cut
  // the closing one until no pair is left (`""""` takes three cuts).
  std::string value = clean(parts[3], "abcAB_09 =;[]\"'#.\xe4\xc4\t");
  for (value = Trim(value, " \t"); value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0];
       value = Trim(value, " \t"))
    value.pop_back();
  if (key.empty()) return 0;
  if (!store->WritePrivateProfileString(section.c_str(), key.c_str(), value.c_str(), kFile)) std::abort();
  if (Get(store.get(), section, key) != value) std::abort();
  for (const auto& [names, old] : before) {
    if (MaySame(names.first, section) && MaySame(names.second, key)) continue;
    if (Get(store.get(), names.first, names.second) != old) std::abort();
  }
  return 0;
}
