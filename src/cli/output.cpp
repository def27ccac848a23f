#include "cli/output.h"

#include <cstdio>

#include "cli/text.h"
#include "tarvo2/convert.h"

namespace tarvo2::cli {
namespace {

std::string U8(const std::u16string& s) { return TextToUtf8(s); }

// The text of a value, arrays joined with the delimiter.
std::string Text(const Variant& v, const std::u16string& delimiter) {
  if (!v.IsArray()) return U8(ToString(v));
  std::u16string joined;
  bool first = true;
  for (const Variant& e : v.AsArray().Items()) {
    if (!first) joined += delimiter;
    joined += ToString(e);
    first = false;
  }
  return U8(joined);
}

std::string JsonString(const std::u16string& s) {
  std::u16string escaped;
  for (char16_t c : s) {
    switch (c) {
      case u'"': escaped += u"\\\""; break;
      case u'\\': escaped += u"\\\\"; break;
      case u'\n': escaped += u"\\n"; break;
      case u'\r': escaped += u"\\r"; break;
      case u'\t': escaped += u"\\t"; break;
      default:
        if (c < 0x20 || c == 0x7F) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", static_cast<unsigned>(c));
          for (const char* p = buf; *p; ++p) escaped += static_cast<char16_t>(*p);
        } else {
          escaped += c;
        }
    }
  }
  return "\"" + U8(escaped) + "\"";
}

// A number's text as JSON wants it ("0.5", never ".5").
std::string JsonNumber(const Variant& v) {
  std::string t = U8(ToString(v));
  std::size_t digits = (!t.empty() && t[0] == '-') ? 1 : 0;
  if (t.size() > digits && t[digits] == '.') t.insert(digits, "0");
  return t;
}

}  // namespace

bool ParseFormat(const std::string& text, Format* format) {
  if (text == "lines") *format = Format::kLines;
  else if (text == "ini") *format = Format::kIni;
  else if (text == "sh") *format = Format::kSh;
  else if (text == "json") *format = Format::kJson;
  else return false;
  return true;
}

std::string ShellQuote(const std::string& s) {
  std::string out = "'";
  for (char c : s) {
    if (c == '\'') out += "'\\''";
    else out += c;
  }
  return out + "'";
}

std::string ShellName(const std::u16string& name) {
  std::string out;
  for (char16_t c : name) {
    bool ok = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') || c == u'_';
    out += ok ? static_cast<char>(c) : '_';
  }
  if (out.empty() || (out[0] >= '0' && out[0] <= '9')) out.insert(0, "_");
  return out;
}

std::string JsonValue(const Variant& v) {
  if (v.IsArray()) {
    std::string out = "[";
    bool first = true;
    for (const Variant& e : v.AsArray().Items()) {
      if (!first) out += ", ";
      out += JsonValue(e);
      first = false;
    }
    return out + "]";
  }
  if (v.IsEmpty() || v.IsNull() || v.IsError()) return "null";
  if (v.IsBoolean()) return v.AsBool() ? "true" : "false";
  if (v.IsNumber()) return JsonNumber(v);
  return JsonString(ToString(v));
}

std::string FormatValue(const std::u16string& name, const Variant& value, const OutputOptions& o) {
  switch (o.format) {
    case Format::kLines:
      if (value.IsArray() && !o.delimiter_given) {
        std::string out;
        for (const Variant& e : value.AsArray().Items()) out += U8(ToString(e)) + "\n";
        return out;
      }
      return Text(value, o.delimiter) + "\n";
    case Format::kIni:
      return U8(name) + "=" + Text(value, o.delimiter) + "\n";
    case Format::kSh:
      return ShellName(name) + "=" + ShellQuote(Text(value, o.delimiter)) + "\n";
    case Format::kJson:
      return JsonValue(value) + "\n";
  }
  return {};
}

std::string FormatListing(const Listing& l, const OutputOptions& o) {
  std::string out;
  bool subkeys = l.container_kind == "subkeys";
  switch (o.format) {
    case Format::kLines:
      for (const auto& c : l.containers) out += U8(c) + (subkeys ? "\\" : "") + "\n";
      for (const auto& f : l.fields) out += U8(f.first) + "\n";
      return out;
    case Format::kIni:
      for (const auto& f : l.fields) out += FormatValue(f.first, f.second, o);
      for (const auto& c : l.containers) out += "[" + U8(c) + "]\n";
      return out;
    case Format::kSh: {
      for (const auto& f : l.fields) out += FormatValue(f.first, f.second, o);
      if (!l.container_kind.empty()) {
        std::string names;
        for (const auto& c : l.containers) names += (names.empty() ? "" : "\n") + U8(c);
        out += l.container_kind + "=" + ShellQuote(names) + "\n";
      }
      return out;
    }
    case Format::kJson: {
      out = "{";
      if (!l.container_kind.empty()) {
        out += "\"" + l.container_kind + "\": [";
        for (std::size_t i = 0; i < l.containers.size(); ++i)
          out += (i ? ", " : "") + JsonString(l.containers[i]);
        out += "], ";
      }
      out += "\"fields\": {";
      for (std::size_t i = 0; i < l.fields.size(); ++i)
        out += (i ? ", " : "") + JsonString(l.fields[i].first) + ": " + JsonValue(l.fields[i].second);
      return out + "}}\n";
    }
  }
  return out;
}

}  // namespace tarvo2::cli
