#include "tarvo2/codec.h"

#include "frame/counters.h"
#include "tarvo2/codepage.h"
#include "tarvo2/convert.h"
#include "tarvo2/error.h"

namespace tarvo2 {
namespace {

// Loops over array bounds use a 16-bit counter: a bound outside its range,
// or an upper bound at its maximum (the counter steps past it), overflows.
void CheckSixteenBitLoop(std::int32_t lower, std::int32_t upper) {
  if (lower < -32768 || lower > 32767) RaiseRuntimeError(err::kOverflow);
  if (upper >= lower && upper >= 32767) RaiseRuntimeError(err::kOverflow);
}

bool IsArrayTypeName(const Variant& v) { return TypeName(v).find(u"()") != String::npos; }

// Sizes `result` like `array` (error 9 when that is impossible).
void SizeLike(const SafeArray& array, VarType type, SafeArray& result) {
  std::int32_t lo = array.LBound();
  std::int32_t hi = array.UBound();
  if (hi < lo) RaiseRuntimeError(err::kSubscriptOutOfRange);
  result = SafeArray(type, lo, array.Count());
}

void ConvertStrArray(const Variant& array, SafeArray& result, VarType type) {
  const SafeArray& a = array.AsArray();
  SafeArray out;
  SizeLike(a, type, out);
  CheckSixteenBitLoop(a.LBound(), a.UBound());
  for (std::size_t i = 0; i < a.Count(); ++i) {
    const Variant& e = a.Items()[i];
    std::int32_t index = a.LBound() + static_cast<std::int32_t>(i);
    if (type == VarType::kLong)
      out.Put(index, Variant(ToLong(e)));
    else
      out.Put(index, Variant(ToDouble(e)));
  }
  result = std::move(out);
}

}  // namespace

SafeArray SplitText(StringView text, StringView delimiter) {
  std::vector<String> parts;
  if (text.empty()) return SafeArray::OfStrings({});
  if (delimiter.empty()) return SafeArray::OfStrings({String(text)});
  std::size_t start = 0;
  for (;;) {
    std::size_t p = text.find(delimiter, start);
    if (p == StringView::npos) {
      parts.emplace_back(text.substr(start));
      break;
    }
    parts.emplace_back(text.substr(start, p - start));
    start = p + delimiter.size();
  }
  return SafeArray::OfStrings(std::move(parts));
}

String JoinStrings(const SafeArray& array, StringView delimiter) {
  String out;
  bool first = true;
  for (const auto& e : array.Items()) {
    if (!first) out += delimiter;
    first = false;
    out += e.IsString() ? e.AsString() : ToString(e);
  }
  return out;
}

Variant PrepForSet(const Variant& value, String& delimiter) {
  return Guard(u"PrepForSet", [&]() -> Variant {
    if (!IsArrayTypeName(value)) return value;
    Variant copy = value;
    SafeArray texts;
    VarToStrArray(copy, texts);
    return Variant(JoinStrings(texts, delimiter));
  });
}

void VarToStrArray(Variant& array, SafeArray& result) {
  Guard(u"VarToStrArray", [&] {
    const SafeArray& a = array.AsArray();
    SafeArray out;
    SizeLike(a, VarType::kString, out);
    CheckSixteenBitLoop(a.LBound(), a.UBound());
    switch (a.ElementType()) {
      case VarType::kString:
      case VarType::kInteger:
      case VarType::kLong:
      case VarType::kDouble:
      case VarType::kBoolean:
      case VarType::kVariant:
        for (std::size_t i = 0; i < a.Count(); ++i)
          out.Put(a.LBound() + static_cast<std::int32_t>(i), Variant(ToString(a.Items()[i])));
        break;
      default:
        break;  // other element types are not converted: the texts stay empty
    }
    result = std::move(out);
  });
}

Variant PrepForGet(const Variant& value, const String& delimiter, bool detect_array, bool detect_number) {
  return Guard(u"PrepForGet", [&]() -> Variant {
    if (value.IsLong()) return value;
    if (!value.IsString()) return Variant();
    const String& text = value.AsString();
    bool found = !text.empty() && (delimiter.empty() || text.find(delimiter) != String::npos);
    if (detect_array && found) {
      Variant parts(SplitText(text, delimiter));
      if (detect_number && AllNumeric(parts)) {
        SafeArray numbers;
        if (text.find(u'.') != String::npos)
          StrArrayToDblArray(parts, numbers);
        else
          StrArrayToLngArray(parts, numbers);
        return Variant(std::move(numbers));
      }
      return parts;
    }
    if (detect_number) {
      if (IsDouble(value)) return Variant(ToDouble(value));
      if (IsNumericText(text)) return Variant(ToLong(value));
      return value;
    }
    return value;
  });
}

void StrArrayToLngArray(const Variant& array, SafeArray& result) {
  Guard(u"StrArrayToLngArray", [&] { ConvertStrArray(array, result, VarType::kLong); });
}

void StrArrayToDblArray(const Variant& array, SafeArray& result) {
  Guard(u"StrArrayToDblArray", [&] { ConvertStrArray(array, result, VarType::kDouble); });
}

bool AllNumeric(const Variant& array) {
  return Guard(u"AllNumeric", [&] {
    const SafeArray& a = array.AsArray();
    if (!a.IsSized()) RaiseRuntimeError(err::kSubscriptOutOfRange);
    for (const auto& e : a.Items())
      if (!IsNumeric(e)) return false;
    return true;
  });
}

bool IsDouble(const Variant& value) {
  return Guard(u"IsDouble", [&] {
    if (!IsNumeric(value)) return false;
    String text = ToString(value);
    std::size_t first = text.find(u'.');
    if (first == String::npos) return false;
    if (first + 1 > 32767) RaiseRuntimeError(err::kOverflow);
    return text.find(u'.', first + 1) == String::npos;
  });
}

std::int32_t PostInc(std::int32_t& n) {
  return Guard(u"PostInc", [&] {
    if (n == INT32_MAX) RaiseRuntimeError(err::kOverflow);
    return n++;
  });
}

std::int32_t PreInc(std::int32_t& n) {
  return Guard(u"PreInc", [&] {
    if (n == INT32_MAX) RaiseRuntimeError(err::kOverflow);
    return ++n;
  });
}

bool PathExists(const Services& services, StringView path) {
  return Guard(u"PathExists", [&] {
    if (path.empty()) return false;
    return services.file_system()->PathExists(ToUtf8(path));
  });
}

Variant SafeUBound(const Variant& array, std::int32_t dimension) {
  if (!array.IsArray() || dimension != 1) return Variant::Null();
  const SafeArray& a = array.AsArray();
  if (!a.IsSized()) return Variant::Null();
  return Variant(a.UBound());
}

}  // namespace tarvo2
