// The .reg reader on any bytes, and the writer on whatever it reads. Input
// that parses is written back in each of the three encodings; each text
// parses again to the same keys and values, and writing that again gives
// the same text.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "cli/reg_file.h"

using namespace tarvo2::regfile;

namespace {

[[noreturn]] void Fail(const char* what, RegFileEncoding encoding, const std::string& text) {
  std::fprintf(stderr, "%s (encoding %d); the text written:\n%s\n", what, static_cast<int>(encoding), text.c_str());
  std::abort();
}

bool SameContent(const RegFile& a, const RegFile& b) {
  if (a.keys.size() != b.keys.size()) return false;
  for (std::size_t k = 0; k < a.keys.size(); ++k) {
    const RegFileKey& x = a.keys[k];
    const RegFileKey& y = b.keys[k];
    if (x.path != y.path || x.remove != y.remove || x.values.size() != y.values.size()) return false;
    for (std::size_t v = 0; v < x.values.size(); ++v) {
      const RegFileValue& p = x.values[v];
      const RegFileValue& q = y.values[v];
      if (p.name != q.name || p.remove != q.remove || p.type != q.type || p.data != q.data) return false;
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  RegFile file;
  RegFileError error;
  if (!ParseRegFile(std::string_view(reinterpret_cast<const char*>(data), size), &file, &error)) {
    // A refusal says where: a line and a column within the input, and why.
    if (error.line < 1 || error.column < 1 || error.message.empty() ||
        static_cast<std::size_t>(error.line) > size + 1)
      std::abort();
    return 0;
  }
  for (RegFileEncoding encoding : {RegFileEncoding::kRegedit4, RegFileEncoding::kUtf16Le, RegFileEncoding::kUtf8}) {
    std::string text;
    std::string message;
    // Names read from a file hold no line break, so every file read can be
    // written.
    if (!WriteRegFile(file, encoding, &text, &message)) Fail(message.c_str(), encoding, "");
    RegFile back;
    if (!ParseRegFile(text, &back, &error))
      Fail(("the text written does not parse: " + std::to_string(error.line) + ":" + std::to_string(error.column) +
            " " + error.message).c_str(),
           encoding, text);
    if (back.encoding != encoding) Fail("read back in another encoding", encoding, text);
    if (!SameContent(file, back)) Fail("read back with other keys or values", encoding, text);
    std::string again;
    if (!WriteRegFile(back, encoding, &again, &message) || again != text) Fail("written differently the second time", encoding, text);
  }
  return 0;
}
