#include "tarvo2/convert.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

#include "tarvo2/dispatch.h"
#include "tarvo2/error.h"

namespace tarvo2 {
namespace {

// A numeric text split into its parts, ready for from_chars.
struct ParsedNumber {
  bool ok = false;
  bool radix_literal = false;  // &H / &O
  std::uint32_t radix_value = 0;
  bool negative = false;
  std::string body;   // digits, '.', 'e', exponent digits (ASCII)
  bool negative_exponent = false;
};

ParsedNumber Parse(StringView s) {
  ParsedNumber r;
  std::size_t i = 0, n = s.size();
  while (i < n && s[i] == u' ') ++i;
  while (n > i && s[n - 1] == u' ') --n;
  if (i == n) return r;
  if (s[i] == u'&') {
    if (i + 1 >= n) return r;
    char16_t kind = s[i + 1];
    unsigned base = (kind == u'H' || kind == u'h') ? 16 : (kind == u'O' || kind == u'o') ? 8 : 0;
    if (base == 0) return r;
    std::size_t j = i + 2;
    if (j == n) return r;
    std::uint64_t v = 0;
    for (; j < n; ++j) {
      char16_t c = s[j];
      unsigned d;
      if (c >= u'0' && c <= u'9') d = c - u'0';
      else if (base == 16 && c >= u'a' && c <= u'f') d = c - u'a' + 10;
      else if (base == 16 && c >= u'A' && c <= u'F') d = c - u'A' + 10;
      else return r;
      if (d >= base) return r;
      v = v * base + d;
      if (v > 0xFFFFFFFFull) return r;
    }
    r.ok = true;
    r.radix_literal = true;
    r.radix_value = static_cast<std::uint32_t>(v);
    return r;
  }
  if (s[i] == u'+' || s[i] == u'-') {
    r.negative = s[i] == u'-';
    ++i;
  }
  std::size_t digits = 0;
  bool dot = false;
  for (; i < n; ++i) {
    char16_t c = s[i];
    if (c >= u'0' && c <= u'9') {
      r.body += static_cast<char>(c);
      ++digits;
    } else if (c == u'.' && !dot) {
      dot = true;
      r.body += '.';
    } else {
      break;
    }
  }
  if (digits == 0) return r;
  if (i < n && (s[i] == u'E' || s[i] == u'e' || s[i] == u'D' || s[i] == u'd')) {
    ++i;
    r.body += 'e';
    if (i < n && (s[i] == u'+' || s[i] == u'-')) {
      r.negative_exponent = s[i] == u'-';
      r.body += static_cast<char>(s[i]);
      ++i;
    }
    std::size_t exp_digits = 0;
    for (; i < n && s[i] >= u'0' && s[i] <= u'9'; ++i, ++exp_digits) r.body += static_cast<char>(s[i]);
    if (exp_digits == 0) return r;
  }
  r.ok = (i == n);
  return r;
}

double ParsedToDouble(const ParsedNumber& p) {
  if (p.radix_literal) return static_cast<double>(static_cast<std::int32_t>(p.radix_value));
  double d = 0;
  const char* first = p.body.data();
  const char* last = first + p.body.size();
  auto [ptr, ec] = std::from_chars(first, last, d, std::chars_format::general);
  if (ec == std::errc::result_out_of_range) {
    if (p.negative_exponent) return p.negative ? -0.0 : 0.0;  // underflow reads as zero
    RaiseRuntimeError(err::kOverflow);
  }
  if (ec != std::errc() || ptr != last) RaiseRuntimeError(err::kTypeMismatch);
  return p.negative ? -d : d;
}

double RoundHalfEven(double d) {
  double f = std::floor(d);
  double diff = d - f;
  if (diff > 0.5) return f + 1;
  if (diff < 0.5) return f;
  return std::fmod(f, 2.0) == 0 ? f : f + 1;
}

char16_t UpperChar(char16_t c) {
  if (c < 0x80) return (c >= u'a' && c <= u'z') ? c - 0x20 : c;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 0x20;
  if (c == 0xFF) return 0x178;
  if (c >= 0x100 && c <= 0x137) return c & ~1u;
  if (c >= 0x139 && c <= 0x148) return (c & 1) ? c : c - 1;
  if (c >= 0x14A && c <= 0x177) return c & ~1u;
  if (c >= 0x179 && c <= 0x17E) return (c & 1) ? c : c - 1;
  if (c == 0x192) return 0x191;
  if (c >= 0x3B1 && c <= 0x3C9 && c != 0x3C2) return c - 0x20;
  if (c == 0x3C2) return 0x3A3;
  if (c >= 0x430 && c <= 0x44F) return c - 0x20;
  if (c >= 0x450 && c <= 0x45F) return c - 0x50;
  return c;
}

char16_t LowerChar(char16_t c) {
  if (c < 0x80) return (c >= u'A' && c <= u'Z') ? c + 0x20 : c;
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 0x20;
  if (c == 0x178) return 0xFF;
  if (c >= 0x100 && c <= 0x137) return c | 1u;
  if (c >= 0x139 && c <= 0x148) return (c & 1) ? c + 1 : c;
  if (c >= 0x14A && c <= 0x177) return c | 1u;
  if (c >= 0x179 && c <= 0x17E) return (c & 1) ? c + 1 : c;
  if (c == 0x191) return 0x192;
  if (c >= 0x391 && c <= 0x3A9) return c + 0x20;
  if (c >= 0x410 && c <= 0x42F) return c + 0x20;
  if (c >= 0x400 && c <= 0x40F) return c + 0x50;
  return c;
}

String Ascii(std::string_view s) { return String(s.begin(), s.end()); }

String CivilDate(std::int64_t days) {
  // Days since 1970-01-01 to y-m-d (proleptic Gregorian).
  days += 719468;
  std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  std::int64_t doe = days - era * 146097;
  std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  std::int64_t y = yoe + era * 400;
  std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  std::int64_t mp = (5 * doy + 2) / 153;
  std::int64_t d = doy - (153 * mp + 2) / 5 + 1;
  std::int64_t m = mp < 10 ? mp + 3 : mp - 9;
  if (m <= 2) ++y;
  char buf[80];
  std::snprintf(buf, sizeof buf, "%04lld-%02lld-%02lld", static_cast<long long>(y),
                static_cast<long long>(m), static_cast<long long>(d));
  return Ascii(buf);
}

String DateToString(double serial) {
  double day = std::trunc(serial);
  double frac = std::fabs(serial - day);
  std::int64_t secs = static_cast<std::int64_t>(std::llround(frac * 86400.0));
  if (secs >= 86400) secs = 86399;
  String out;
  if (day != 0 || secs == 0) out = CivilDate(static_cast<std::int64_t>(day) - 25569);
  if (secs != 0) {
    char buf[80];
    std::snprintf(buf, sizeof buf, "%02lld:%02lld:%02lld", static_cast<long long>(secs / 3600),
                  static_cast<long long>(secs / 60 % 60), static_cast<long long>(secs % 60));
    if (!out.empty()) out += u' ';
    out += Ascii(buf);
  }
  return out;
}

String CurrencyToString(Currency c) {
  bool neg = c.scaled < 0;
  std::uint64_t v = neg ? 0 - static_cast<std::uint64_t>(c.scaled) : static_cast<std::uint64_t>(c.scaled);
  std::string s = std::to_string(v / 10000);
  std::uint64_t frac = v % 10000;
  if (frac) {
    char buf[8];
    std::snprintf(buf, sizeof buf, "%04llu", static_cast<unsigned long long>(frac));
    std::string f = buf;
    while (!f.empty() && f.back() == '0') f.pop_back();
    s += '.' + f;
  }
  return Ascii((neg ? "-" : "") + s);
}

}  // namespace

bool IsNumericText(StringView text) noexcept { return Parse(text).ok; }

bool IsNumeric(const Variant& v) {
  if (v.IsEmpty() || v.IsBoolean() || v.IsNumber()) return true;
  if (v.IsString()) return IsNumericText(v.AsString());
  return false;
}

double TextToDouble(StringView text) {
  ParsedNumber p = Parse(text);
  if (!p.ok) RaiseRuntimeError(err::kTypeMismatch);
  return ParsedToDouble(p);
}

std::int32_t RoundToLong(double d) {
  if (std::isnan(d)) RaiseRuntimeError(err::kOverflow);
  double r = RoundHalfEven(d);
  if (r < -2147483648.0 || r > 2147483647.0) RaiseRuntimeError(err::kOverflow);
  return static_cast<std::int32_t>(r);
}

std::int16_t RoundToInteger(double d) {
  std::int32_t l = RoundToLong(d);
  if (l < -32768 || l > 32767) RaiseRuntimeError(err::kOverflow);
  return static_cast<std::int16_t>(l);
}

std::int32_t TextToLong(StringView text) {
  ParsedNumber p = Parse(text);
  if (!p.ok) RaiseRuntimeError(err::kTypeMismatch);
  if (p.radix_literal) return static_cast<std::int32_t>(p.radix_value);
  return RoundToLong(ParsedToDouble(p));
}

String DoubleToString(double d, int significant_digits) {
  if (d == 0) return u"0";
  if (std::isnan(d) || std::isinf(d)) RaiseRuntimeError(err::kOverflow);
  char buf[64];
  auto [ptr, ec] = std::to_chars(buf, buf + sizeof buf, d, std::chars_format::general, significant_digits);
  std::string s(buf, ptr);
  for (char& c : s)
    if (c == 'e') c = 'E';
  return Ascii(s);
}

// Every conversion below names the types it handles; the last branch of
// each lists the remaining ones, so that a new alternative of Variant fails
// to compile here instead of converting by accident.
template <class T, class... U>
inline constexpr bool kIs = (std::is_same_v<T, U> || ...);

String ToString(const Variant& v) {
  return v.Visit([&](const auto& x) -> String {
    using T = std::decay_t<decltype(x)>;
    if constexpr (kIs<T, std::monostate>) return String();
    else if constexpr (kIs<T, NullValue>) RaiseRuntimeError(err::kInvalidUseOfNull);
    else if constexpr (kIs<T, bool>) return x ? u"True" : u"False";
    else if constexpr (kIs<T, std::uint8_t, std::int16_t, std::int32_t>) return Ascii(std::to_string(x));
    else if constexpr (kIs<T, float>) return DoubleToString(x, 7);
    else if constexpr (kIs<T, double>) return DoubleToString(x, 15);
    else if constexpr (kIs<T, Currency>) return CurrencyToString(x);
    else if constexpr (kIs<T, Date>) return DateToString(x.serial);
    else if constexpr (kIs<T, String>) return x;
    else if constexpr (kIs<T, Ref<Object>>) return ToString(DefaultValue(v));
    else {
      static_assert(kIs<T, ErrorValue, SafeArray, Record>);
      RaiseRuntimeError(err::kTypeMismatch);
    }
  });
}

double ToDouble(const Variant& v) {
  return v.Visit([&](const auto& x) -> double {
    using T = std::decay_t<decltype(x)>;
    if constexpr (kIs<T, std::monostate>) return 0;
    else if constexpr (kIs<T, NullValue>) RaiseRuntimeError(err::kInvalidUseOfNull);
    else if constexpr (kIs<T, bool>) return x ? -1 : 0;
    else if constexpr (kIs<T, std::uint8_t, std::int16_t, std::int32_t, float, double>) return x;
    else if constexpr (kIs<T, Currency>) return static_cast<double>(x.scaled) / 10000.0;
    else if constexpr (kIs<T, Date>) return x.serial;
    else if constexpr (kIs<T, String>) return TextToDouble(x);
    else if constexpr (kIs<T, Ref<Object>>) return ToDouble(DefaultValue(v));
    else {
      static_assert(kIs<T, ErrorValue, SafeArray, Record>);
      RaiseRuntimeError(err::kTypeMismatch);
    }
  });
}

std::int32_t ToLong(const Variant& v) {
  return v.Visit([&](const auto& x) -> std::int32_t {
    using T = std::decay_t<decltype(x)>;
    if constexpr (kIs<T, std::monostate>) return 0;
    else if constexpr (kIs<T, NullValue>) RaiseRuntimeError(err::kInvalidUseOfNull);
    else if constexpr (kIs<T, bool>) return x ? -1 : 0;
    else if constexpr (kIs<T, std::uint8_t, std::int16_t, std::int32_t>) return x;
    else if constexpr (kIs<T, float, double, Currency, Date>) return RoundToLong(ToDouble(v));
    else if constexpr (kIs<T, String>) return TextToLong(x);
    else if constexpr (kIs<T, Ref<Object>>) return ToLong(DefaultValue(v));
    else {
      static_assert(kIs<T, ErrorValue, SafeArray, Record>);
      RaiseRuntimeError(err::kTypeMismatch);
    }
  });
}

std::int16_t ToInteger(const Variant& v) {
  std::int32_t l = ToLong(v);
  if (l < -32768 || l > 32767) RaiseRuntimeError(err::kOverflow);
  return static_cast<std::int16_t>(l);
}

float ToSingle(const Variant& v) {
  double d = ToDouble(v);
  if (std::fabs(d) > std::numeric_limits<float>::max()) RaiseRuntimeError(err::kOverflow);
  return static_cast<float>(d);
}

std::uint8_t ToByte(const Variant& v) {
  std::int32_t l = ToLong(v);
  if (l < 0 || l > 255) RaiseRuntimeError(err::kOverflow);
  return static_cast<std::uint8_t>(l);
}

Currency ToCurrency(const Variant& v) {
  if (const Currency* c = v.GetIf<Currency>()) return *c;
  double d = ToDouble(v) * 10000.0;
  if (std::fabs(d) >= 9.2233720368547758e18) RaiseRuntimeError(err::kOverflow);
  return Currency{static_cast<std::int64_t>(RoundHalfEven(d))};
}

Date ToDate(const Variant& v) {
  if (const Date* d = v.GetIf<Date>()) return *d;
  if (v.IsString()) RaiseRuntimeError(err::kTypeMismatch);
  return Date{ToDouble(v)};
}

bool ToBool(const Variant& v) {
  return v.Visit([&](const auto& x) -> bool {
    using T = std::decay_t<decltype(x)>;
    if constexpr (kIs<T, std::monostate>) return false;
    else if constexpr (kIs<T, NullValue>) RaiseRuntimeError(err::kInvalidUseOfNull);
    else if constexpr (kIs<T, bool>) return x;
    else if constexpr (kIs<T, std::uint8_t, std::int16_t, std::int32_t, float, double, Currency, Date>)
      return ToDouble(v) != 0;
    else if constexpr (kIs<T, String>) {
      String t = Trim(x);
      if (EqualsNoCase(t, u"True")) return true;
      if (EqualsNoCase(t, u"False")) return false;
      return TextToDouble(x) != 0;
    } else if constexpr (kIs<T, Ref<Object>>) return ToBool(DefaultValue(v));
    else {
      static_assert(kIs<T, ErrorValue, SafeArray, Record>);
      RaiseRuntimeError(err::kTypeMismatch);
    }
  });
}

Ref<Object> ToObject(const Variant& v) {
  if (v.IsObject()) return v.AsObject();
  if (v.IsEmpty() || v.IsMissing()) return Ref<Object>();
  RaiseRuntimeError(err::kTypeMismatch);
}

Variant ConvertTo(const Variant& v, VarType type) {
  switch (type) {
    case VarType::kEmpty: return Variant();
    case VarType::kNull: return Variant::Null();
    case VarType::kInteger: return Variant(ToInteger(v));
    case VarType::kLong: return Variant(ToLong(v));
    case VarType::kSingle: return Variant(ToSingle(v));
    case VarType::kDouble: return Variant(ToDouble(v));
    case VarType::kCurrency: return Variant(ToCurrency(v));
    case VarType::kDate: return Variant(ToDate(v));
    case VarType::kString: return Variant(ToString(v));
    case VarType::kObject: return Variant(ToObject(v));
    case VarType::kBoolean: return Variant(ToBool(v));
    case VarType::kByte: return Variant(ToByte(v));
    case VarType::kError:
      if (v.IsError()) return v;
      RaiseRuntimeError(err::kTypeMismatch);
    case VarType::kRecord:
      if (v.IsRecord()) return v;
      RaiseRuntimeError(err::kTypeMismatch);
    case VarType::kVariant: return v;
    default: RaiseRuntimeError(err::kTypeMismatch);
  }
}

static String ScalarTypeName(VarType t) {
  switch (t) {
    case VarType::kEmpty: return u"Empty";
    case VarType::kNull: return u"Null";
    case VarType::kInteger: return u"Integer";
    case VarType::kLong: return u"Long";
    case VarType::kSingle: return u"Single";
    case VarType::kDouble: return u"Double";
    case VarType::kCurrency: return u"Currency";
    case VarType::kDate: return u"Date";
    case VarType::kString: return u"String";
    case VarType::kObject: return u"Object";
    case VarType::kError: return u"Error";
    case VarType::kBoolean: return u"Boolean";
    case VarType::kVariant: return u"Variant";
    case VarType::kByte: return u"Byte";
    case VarType::kRecord: return u"Record";
    default: return u"Unknown";
  }
}

String TypeName(const Variant& v) {
  if (v.IsArray()) {
    const SafeArray& a = v.AsArray();
    if (a.ElementType() == VarType::kRecord && a.IsSized() && a.Count() > 0 && a.Items()[0].IsRecord())
      return a.Items()[0].AsRecord().TypeName() + u"()";
    return ScalarTypeName(a.ElementType()) + u"()";
  }
  if (v.IsObject()) {
    const Ref<Object>& o = v.AsObject();
    return o ? o->ClassName() : String(u"Nothing");
  }
  if (v.IsRecord()) return v.AsRecord().TypeName();
  return ScalarTypeName(v.Type());
}

Variant DefaultValue(const Variant& v) {
  if (!v.IsObject()) return v;
  const Ref<Object>& o = v.AsObject();
  if (!o) RaiseRuntimeError(err::kObjectNotSet);
  CallArgs none;
  Variant r = o->Invoke(kDispIdValue, InvokeKind::kGet, none);
  return r;
}

char16_t ToUpperChar(char16_t c) noexcept { return UpperChar(c); }

String ToUpper(StringView s) {
  String out(s);
  for (char16_t& c : out) c = UpperChar(c);
  return out;
}

String ToLower(StringView s) {
  String out(s);
  for (char16_t& c : out) c = LowerChar(c);
  return out;
}

bool EqualsNoCase(StringView a, StringView b) noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i] != b[i] && UpperChar(a[i]) != UpperChar(b[i])) return false;
  return true;
}

String Trim(StringView s) {
  std::size_t b = 0, e = s.size();
  while (b < e && s[b] == u' ') ++b;
  while (e > b && s[e - 1] == u' ') --e;
  return String(s.substr(b, e - b));
}

}  // namespace tarvo2
