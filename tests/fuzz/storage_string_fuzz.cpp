// The storage string's field parser and its search and replace. The input
// is a page text, a search text and a replacement, separated by byte 1; the
// first byte chooses the direction. Fields of any page can be listed and
// read, a field written reads back, and Find and Replace agree with a
// plain reference search.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "tarvo2/codepage.h"
#include "tarvo2/error.h"
#include "tarvo2/storage_string.h"

using namespace tarvo2;

namespace {

// Non-overlapping matches of `needle` in `hay`, taken from the start
// (downwards) or from the end (upwards), in text order.
std::vector<std::size_t> Matches(const String& hay, const String& needle, bool up) {
  std::vector<std::size_t> at;
  if (!up) {
    for (std::size_t p = hay.find(needle); p != String::npos; p = hay.find(needle, p + needle.size()))
      at.push_back(p);
    return at;
  }
  for (std::size_t end = hay.size(); end >= needle.size();) {
    std::size_t p = hay.rfind(needle, end - needle.size());
    if (p == String::npos) break;
    at.insert(at.begin(), p);
    end = p;
  }
  return at;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0 || size > 4096) return 0;
  const bool up = data[0] & 1;
  std::vector<String> parts{String()};
  for (std::size_t i = 1; i < size; ++i) {
    if (data[i] == 1) parts.emplace_back();
    else parts.back() += AnsiByteToChar(data[i]);
  }
  parts.resize(3);
  const String& page = parts[0];
  const String& needle = parts[1];
  const String& replacement = parts[2];

  Ref<KivStorageString> ss = KivStorageString::Create();
  ss->put_Value(Variant(page));
  // Any page lists its fields and reads each of them.
  try {
    const SafeArray names = ss->GetFieldNames();
    for (const Variant& name : names.Items())
      ss->GetValue(name.AsString(), u"\t", true, true, Variant(u"<missing>"));
  } catch (const Error&) {
    // Names that are no valid field names are refused with an error.
  }
  // A field written reads back, whatever else the page holds.
  ss->SetValue(u"Fz", Variant(u"written"));
  if (ss->GetValue(u"Fz", u"\t", false, false) != Variant(u"written")) std::abort();

  if (needle.empty()) return 0;
  ss->put_Value(Variant(page));
  const std::vector<std::size_t> all = Matches(page, needle, up);
  const SearchDirectionEnum direction = up ? tarvo_SearchUp : tarvo_SearchDown;
  // Find from the start (downwards) or from the end (upwards).
  const std::int32_t found = ss->Find(needle, false, true, false, direction);
  const std::int32_t want = all.empty() ? 0 : static_cast<std::int32_t>((up ? all.back() : all.front()) + 1);
  if (found != want) std::abort();
  // Replace all, compared with the reference.
  ss->put_Value(Variant(page));
  String expected;
  std::size_t from = 0;
  for (std::size_t p : all) {
    expected.append(page, from, p - from);
    expected += replacement;
    from = p + needle.size();
  }
  expected.append(page, from, String::npos);
  const std::int32_t n = ss->Replace(needle, replacement, false, true, true, false, direction);
  if (n != static_cast<std::int32_t>(all.size()) || ss->get_Value() != Variant(expected)) std::abort();
  return 0;
}
