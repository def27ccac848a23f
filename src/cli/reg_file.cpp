#include "cli/reg_file.h"

#include <cstdio>
#include <new>

#include "cli/text.h"

namespace tarvo2::regfile {
namespace {

using cli::StoreBytesToText;
using cli::TextToStoreBytes;
using cli::TextToUtf8;
using cli::Utf8ToText;

constexpr char16_t kHeader4[] = u"REGEDIT4";
constexpr char16_t kHeader5[] = u"Windows Registry Editor Version 5.00";
constexpr std::size_t kMaxComponent = 255;
constexpr std::size_t kMaxDepth = 512;
constexpr std::size_t kMaxValueName = 16383;

const struct {
  const char16_t* long_name;
  const char16_t* short_name;
} kRoots[] = {
    {u"HKEY_CLASSES_ROOT", u"HKCR"},
    {u"HKEY_CURRENT_USER", u"HKCU"},
    {u"HKEY_LOCAL_MACHINE", u"HKLM"},
    {u"HKEY_USERS", u"HKU"},
};

char16_t Upper(char16_t c) { return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c; }

bool EqualsAsciiNoCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (Upper(a[i]) != Upper(b[i])) return false;
  return true;
}

int HexDigit(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t'; }

bool IsUnicodeText(std::uint32_t type) { return type == 1 || type == 2 || type == 7; }

std::string CodePoint(char16_t c) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "U+%04X", static_cast<unsigned>(c));
  return buf;
}

std::u16string FromUtf16Le(std::string_view bytes) {
  std::u16string text(bytes.size() / 2, u'\0');
  for (std::size_t i = 0; i < text.size(); ++i)
    text[i] = static_cast<char16_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                    (static_cast<unsigned char>(bytes[2 * i + 1]) << 8));
  return text;
}

std::string ToUtf16Le(std::u16string_view text) {
  std::string bytes;
  bytes.reserve(text.size() * 2);
  for (char16_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  return bytes;
}

std::vector<std::u16string> SplitLines(const std::u16string& text) {
  std::vector<std::u16string> lines;
  std::u16string line;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char16_t c = text[i];
    if (c == u'\r' || c == u'\n') {
      lines.push_back(std::move(line));
      line.clear();
      if (c == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n') ++i;
    } else {
      line.push_back(c);
    }
  }
  if (!line.empty() || lines.empty()) lines.push_back(std::move(line));
  return lines;
}

struct Failure {
  int line;
  int column;
  std::string message;
};

class Parser {
 public:
  Parser(std::vector<std::u16string> lines, RegFile* file) : lines_(std::move(lines)), file_(file) {}

  void Run() {
    std::u16string header = lines_[0];
    while (!header.empty() && IsBlank(header.back())) header.pop_back();
    if (header == kHeader5) {
      version5_ = true;
    } else if (header != kHeader4) {
      Fail(0, "the file must begin with the line REGEDIT4 or Windows Registry Editor Version 5.00");
    }
    for (line_ = 1; line_ < lines_.size(); ++line_) {
      col_ = 0;
      SkipBlanks();
      if (AtEnd()) continue;
      char16_t c = L()[col_];
      if (c == u';') continue;
      if (c == u'[') {
        ParseKey();
      } else if (c == u'"' || c == u'@') {
        ParseValue();
      } else {
        Fail(col_, "expected a key line [...], a value line \"name\"=... or @=..., or a comment ;");
      }
    }
  }

 private:
  const std::u16string& L() const { return lines_[line_]; }
  bool AtEnd() const { return col_ >= L().size(); }
  void SkipBlanks() {
    while (!AtEnd() && IsBlank(L()[col_])) ++col_;
  }
  [[noreturn]] void Fail(std::size_t col, std::string message) const {
    throw Failure{static_cast<int>(line_ + 1), static_cast<int>(col + 1), std::move(message)};
  }
  // True at a '\' that only blanks follow: the line goes on on the next one.
  bool AtContinuation() const {
    if (AtEnd() || L()[col_] != u'\\') return false;
    for (std::size_t i = col_ + 1; i < L().size(); ++i)
      if (!IsBlank(L()[i])) return false;
    return true;
  }
  void NextLine() {
    if (line_ + 1 >= lines_.size()) Fail(col_, "'\\' continues the line past the end of the file");
    ++line_;
    col_ = 0;
  }
  void ExpectEnd() {
    SkipBlanks();
    if (!AtEnd()) Fail(col_, "unexpected text after the value");
  }

  // Converts `text` to code-page bytes; `columns[i]` is where text[i] stood.
  std::string StoreBytes(const std::u16string& text, const std::vector<std::size_t>& columns) const {
    std::string bytes;
    std::size_t bad = TextToStoreBytes(text, &bytes);
    if (bad != std::u16string::npos)
      Fail(columns[bad], "the character " + CodePoint(text[bad]) + " cannot be stored in the code page");
    return bytes;
  }

  // A quoted string at col_, with the escapes \\ and \". Leaves col_ after
  // the closing quote.
  std::u16string ParseQuoted(std::vector<std::size_t>* columns) {
    std::u16string text;
    ++col_;
    for (;;) {
      if (AtEnd()) Fail(col_, "missing closing '\"'");
      char16_t c = L()[col_];
      if (c == u'"') {
        ++col_;
        return text;
      }
      if (c == u'\\') {
        if (col_ + 1 >= L().size() || (L()[col_ + 1] != u'\\' && L()[col_ + 1] != u'"'))
          Fail(col_, "unknown escape: only \\\\ and \\\" may follow '\\' in a string");
        ++col_;
        c = L()[col_];
      }
      text.push_back(c);
      columns->push_back(col_);
      ++col_;
    }
  }

  void ParseKey() {
    const std::u16string& l = L();
    std::size_t start = col_ + 1;
    bool remove = start < l.size() && l[start] == u'-';
    if (remove) ++start;
    std::size_t close = l.rfind(u']');
    if (close == std::u16string::npos || close < start) Fail(l.size(), "missing ']' at the end of the key line");
    for (std::size_t i = close + 1; i < l.size(); ++i)
      if (!IsBlank(l[i])) Fail(i, "unexpected text after ']'");
    std::u16string path = l.substr(start, close - start);
    std::size_t sep = path.find(u'\\');
    std::u16string root = path.substr(0, sep);
    const char16_t* long_name = nullptr;
    for (const auto& r : kRoots)
      if (EqualsAsciiNoCase(root, r.long_name) || EqualsAsciiNoCase(root, r.short_name)) long_name = r.long_name;
    if (!long_name)
      Fail(start, "unknown root '" + TextToUtf8(root) +
                      "' (HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE, HKEY_USERS or HKCR, HKCU, HKLM, "
                      "HKU)");
    if (remove && (sep == std::u16string::npos || sep + 1 >= path.size()))
      Fail(start, "a root cannot be deleted");
    RegFileKey key;
    key.remove = remove;
    key.line = static_cast<int>(line_ + 1);
    TextToStoreBytes(long_name, &key.path);
    if (sep != std::u16string::npos && sep + 1 < path.size()) {
      std::u16string rest = path.substr(sep + 1);
      if (rest.back() == u'\\') rest.pop_back();  // a trailing '\' names the same key
      std::size_t depth = 0;
      std::size_t pos = 0;
      std::vector<std::size_t> columns;
      for (;;) {
        std::size_t end = rest.find(u'\\', pos);
        if (end == std::u16string::npos) end = rest.size();
        std::size_t col = start + sep + 1 + pos;
        if (end == pos) Fail(col, "empty key name: two '\\' in a row");
        if (end - pos > kMaxComponent) Fail(col, "a key name is longer than 255 characters");
        if (++depth > kMaxDepth) Fail(col, "the key path is deeper than 512 levels");
        if (end == rest.size()) break;
        pos = end + 1;
      }
      for (std::size_t i = 0; i < rest.size(); ++i) columns.push_back(start + sep + 1 + i);
      key.path += "\\" + StoreBytes(rest, columns);
    }
    file_->keys.push_back(std::move(key));
  }

  // Reads one to eight hex digits at the column as a 32-bit number.
  std::uint32_t ParseHex32(const char* too_long, const char* none) {
    std::uint32_t n = 0;
    std::size_t digits = 0;
    for (; !AtEnd() && HexDigit(L()[col_]) >= 0; ++col_, ++digits) {
      if (digits == 8) Fail(col_, too_long);
      n = n * 16 + static_cast<std::uint32_t>(HexDigit(L()[col_]));
    }
    if (digits == 0) Fail(col_, none);
    return n;
  }

  std::string ParseHexList() {
    std::string data;
    bool need_byte = false;
    for (;;) {
      SkipBlanks();
      if (AtContinuation()) {
        NextLine();
        continue;
      }
      if (AtEnd()) {
        if (need_byte) Fail(col_, "expected a hex byte after ','");
        return data;
      }
      int hi = HexDigit(L()[col_]);
      if (hi < 0) Fail(col_, "expected a hex byte (00 to ff)");
      ++col_;
      int value = hi;
      if (!AtEnd() && HexDigit(L()[col_]) >= 0) value = value * 16 + HexDigit(L()[col_++]);
      if (!AtEnd() && HexDigit(L()[col_]) >= 0) Fail(col_, "a hex byte has at most two digits");
      data.push_back(static_cast<char>(value));
      SkipBlanks();
      if (AtEnd()) return data;
      if (L()[col_] != u',') Fail(col_, "expected ',' between hex bytes");
      ++col_;
      need_byte = true;
    }
  }

  void ParseValue() {
    std::size_t name_col = col_;
    RegFileValue value;
    value.line = static_cast<int>(line_ + 1);
    if (L()[col_] == u'@') {
      ++col_;
    } else {
      std::vector<std::size_t> columns;
      std::u16string name = ParseQuoted(&columns);
      if (name.size() > kMaxValueName) Fail(name_col, "a value name is longer than 16,383 characters");
      value.name = StoreBytes(name, columns);
      if (value.name.empty()) Fail(name_col, "an empty value name: write the default value as @");
    }
    if (file_->keys.empty()) Fail(name_col, "a value before any key: a [key] line must come first");
    if (file_->keys.back().remove) Fail(name_col, "a deleted key [-...] cannot hold values");
    SkipBlanks();
    if (AtEnd() || L()[col_] != u'=') Fail(col_, "expected '=' after the value name");
    ++col_;
    SkipBlanks();
    if (AtEnd()) Fail(col_, "missing value data after '='");
    std::size_t data_col = col_;
    std::u16string_view rest = std::u16string_view(L()).substr(col_);
    auto starts = [&](std::u16string_view word) {
      return rest.size() >= word.size() && EqualsAsciiNoCase(rest.substr(0, word.size()), word);
    };
    if (rest[0] == u'-') {
      ++col_;
      value.remove = true;
      ExpectEnd();
    } else if (rest[0] == u'"') {
      std::vector<std::size_t> columns;
      std::u16string text = ParseQuoted(&columns);
      value.type = 1;
      value.data = StoreBytes(text, columns);
      value.data.push_back('\0');
      ExpectEnd();
    } else if (starts(u"dword:")) {
      col_ += 6;
      const std::uint32_t n = ParseHex32("dword: takes at most 8 hex digits", "expected hex digits after dword:");
      value.type = 4;
      for (int i = 0; i < 4; ++i) value.data.push_back(static_cast<char>((n >> (8 * i)) & 0xFF));
      ExpectEnd();
    } else if (starts(u"hex:")) {
      col_ += 4;
      value.type = 3;
      value.data = ParseHexList();
    } else if (starts(u"hex(")) {
      col_ += 4;
      const std::uint32_t n =
          ParseHex32("a type number takes at most 8 hex digits", "expected the type number in hex after hex(");
      if (AtEnd() || L()[col_] != u')') Fail(col_, "expected ')' after the type number");
      ++col_;
      if (AtEnd() || L()[col_] != u':') Fail(col_, "expected ':' after hex(...)");
      ++col_;
      value.type = n;
      std::size_t data_line = line_;
      value.data = ParseHexList();
      if (version5_ && IsUnicodeText(n)) {
        std::size_t end_line = line_;
        line_ = data_line;
        if (value.data.size() % 2 != 0)
          Fail(data_col, "hex(" + std::to_string(n) + ") data of a version 5.00 file is UTF-16LE text: it needs an even number of bytes");
        std::u16string text = FromUtf16Le(value.data);
        std::size_t bad = TextToStoreBytes(text, &value.data);
        if (bad != std::u16string::npos)
          Fail(data_col, "the character " + CodePoint(text[bad]) + " in the data cannot be stored in the code page");
        line_ = end_line;
      }
    } else {
      Fail(col_, "unknown value data: expected \"text\", dword:, hex:, hex(N): or -");
    }
    file_->keys.back().values.push_back(std::move(value));
  }

  std::vector<std::u16string> lines_;
  RegFile* file_;
  std::size_t line_ = 0;
  std::size_t col_ = 0;
  bool version5_ = false;
};

std::u16string Escape(std::u16string_view text) {
  std::u16string out;
  for (char16_t c : text) {
    if (c == u'\\' || c == u'"') out.push_back(u'\\');
    out.push_back(c);
  }
  return out;
}

// REG_SZ data that reads back the same when written as a string.
bool IsPlainText(const std::string& data) {
  if (data.empty() || data.back() != '\0') return false;
  for (std::size_t i = 0; i + 1 < data.size(); ++i)
    if (data[i] == '\0' || data[i] == '\r' || data[i] == '\n') return false;
  return true;
}

bool HasLineBreak(const std::string& s) { return s.find_first_of("\r\n") != std::string::npos; }

void WriteHex(std::u16string* out, std::u16string line, const std::string& bytes) {
  static const char16_t kDigits[] = u"0123456789abcdef";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    unsigned char b = static_cast<unsigned char>(bytes[i]);
    std::u16string piece{kDigits[b >> 4], kDigits[b & 15]};
    if (i + 1 < bytes.size()) piece.push_back(u',');
    if (line.size() + piece.size() > 77 && i > 0) {
      *out += line + u"\\\r\n";
      line = u"  ";
    }
    line += piece;
  }
  *out += line + u"\r\n";
}

}  // namespace

bool ParseRegFile(std::string_view bytes, RegFile* file, RegFileError* error) {
  *file = RegFile();
  std::u16string text;
  bool odd = false;
  if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
      static_cast<unsigned char>(bytes[1]) == 0xFE) {
    text = FromUtf16Le(bytes.substr(2));
    odd = bytes.size() % 2 != 0;
    file->encoding = RegFileEncoding::kUtf16Le;
  } else if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFE &&
             static_cast<unsigned char>(bytes[1]) == 0xFF) {
    *error = RegFileError{1, 1, "UTF-16 big-endian files are not supported: save the file as UTF-16LE or UTF-8"};
    return false;
  } else if (bytes.size() >= 3 && bytes.substr(0, 3) == "\xEF\xBB\xBF") {
    text = Utf8ToText(bytes.substr(3));
    file->encoding = RegFileEncoding::kUtf8;
  } else if (bytes.substr(0, 8) == "REGEDIT4") {
    text = StoreBytesToText(bytes);
    file->encoding = RegFileEncoding::kRegedit4;
  } else {
    text = Utf8ToText(bytes);
    file->encoding = RegFileEncoding::kUtf8;
  }
  std::vector<std::u16string> lines = SplitLines(text);
  if (odd) {
    *error = RegFileError{static_cast<int>(lines.size()), static_cast<int>(lines.back().size() + 1),
                          "the UTF-16 file ends in half a character (an odd number of bytes)"};
    return false;
  }
  try {
    Parser(std::move(lines), file).Run();
  } catch (const Failure& f) {
    *error = RegFileError{f.line, f.column, f.message};
    return false;
  }
  return true;
}

bool WriteRegFile(const RegFile& file, RegFileEncoding encoding, std::string* out, std::string* error) {
  bool version5 = encoding != RegFileEncoding::kRegedit4;
  std::u16string text = version5 ? kHeader5 : kHeader4;
  text += u"\r\n\r\n";
  for (const RegFileKey& key : file.keys) {
    if (HasLineBreak(key.path)) {
      *error = "the key name " + TextToUtf8(StoreBytesToText(key.path)) + " holds a line break, which a .reg file cannot carry";
      return false;
    }
    text += (key.remove ? u"[-" : u"[") + StoreBytesToText(key.path) + u"]\r\n";
    for (const RegFileValue& v : key.values) {
      if (HasLineBreak(v.name)) {
        *error = "a value name of " + TextToUtf8(StoreBytesToText(key.path)) +
                 " holds a line break, which a .reg file cannot carry";
        return false;
      }
      std::u16string line = v.name.empty() ? u"@=" : u"\"" + Escape(StoreBytesToText(v.name)) + u"\"=";
      if (v.remove) {
        text += line + u"-\r\n";
      } else if (v.type == 1 && IsPlainText(v.data)) {
        text += line + u"\"" + Escape(StoreBytesToText(std::string_view(v.data).substr(0, v.data.size() - 1))) +
                u"\"\r\n";
      } else if (v.type == 4 && v.data.size() == 4) {
        std::uint32_t n = 0;
        for (int i = 3; i >= 0; --i) n = (n << 8) | static_cast<unsigned char>(v.data[i]);
        char buf[16];
        std::snprintf(buf, sizeof buf, "dword:%08x", n);
        text += line + Utf8ToText(buf) + u"\r\n";
      } else {
        char buf[24];
        if (v.type == 3) std::snprintf(buf, sizeof buf, "hex:");
        else std::snprintf(buf, sizeof buf, "hex(%x):", v.type);
        std::string bytes = version5 && IsUnicodeText(v.type) ? ToUtf16Le(StoreBytesToText(v.data)) : v.data;
        WriteHex(&text, line + Utf8ToText(buf), bytes);
      }
    }
    text += u"\r\n";
  }
  switch (encoding) {
    case RegFileEncoding::kRegedit4: TextToStoreBytes(text, out); break;
    case RegFileEncoding::kUtf16Le: *out = "\xFF\xFE" + ToUtf16Le(text); break;
    case RegFileEncoding::kUtf8: *out = TextToUtf8(text); break;
  }
  return true;
}

}  // namespace tarvo2::regfile
