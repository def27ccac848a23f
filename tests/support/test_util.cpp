#include "test_util.h"

namespace tarvo2 {

void PrintTo(const Variant& v, std::ostream* os) {
  *os << ToUtf8(TypeName(v));
  if (v.IsArray()) {
    const SafeArray& a = v.AsArray();
    *os << '{';
    if (a.IsSized()) {
      *os << a.LBound() << ".." << a.UBound() << ':';
      for (const auto& x : a.Items()) {
        *os << ' ';
        PrintTo(x, os);
      }
    }
    *os << '}';
    return;
  }
  try {
    *os << '(' << ToUtf8(ToString(v)) << ')';
  } catch (...) {
  }
}

std::vector<String> SourceLines(const Error& e) {
  std::vector<String> out;
  const String& s = e.Source();
  std::size_t start = 0;
  for (;;) {
    std::size_t p = s.find(u"\r\n", start);
    out.push_back(s.substr(start, p == String::npos ? String::npos : p - start));
    if (p == String::npos) break;
    start = p + 2;
  }
  return out;
}

}  // namespace tarvo2
