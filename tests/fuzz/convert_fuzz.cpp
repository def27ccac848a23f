// Numeric text: IsNumericText agrees with the conversions, numbers written
// as text read back as the same text, and Long conversion rounds the Double
// value half to even.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "tarvo2/codepage.h"
#include "tarvo2/convert.h"
#include "tarvo2/error.h"

using namespace tarvo2;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const String text = FromAnsi(std::string_view(reinterpret_cast<const char*>(data), size));
  const bool numeric = IsNumericText(text);
  double d = 0;
  try {
    d = TextToDouble(text);
    if (!numeric) std::abort();  // a Double from text that is not numeric
  } catch (const Error& e) {
    if (e.Number() != (numeric ? 6 : 13)) std::abort();
    return 0;
  }
  if (!std::isfinite(d)) std::abort();
  // The text of a number reads back as that text again.
  const String once = ToString(Variant(d));
  if (!IsNumericText(once) || ToString(Variant(TextToDouble(once))) != once) std::abort();
  // Text to Long is the Double value rounded half to even, or Overflow.
  std::int32_t want = 0;
  bool overflow = false;
  try {
    want = RoundToLong(d);
  } catch (const Error& e) {
    overflow = true;
  }
  try {
    if (TextToLong(text) != want || overflow) std::abort();
  } catch (const Error& e) {
    if (!overflow || e.Number() != 6) std::abort();
  }
  return 0;
}
