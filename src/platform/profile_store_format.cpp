#include "platform/profile_store_format.h"

#include "tarvo2/codepage.h"
#include "platform/unicode_case.h"

namespace tarvo2::profile {
namespace {

constexpr std::string_view kBom = "\xEF\xBB\xBF";

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

std::u16string FoldCase(std::u16string_view text) { return unicode_case::Fold(text); }

ProfileText::ProfileText(std::string bytes, std::uint32_t code_page)
    : bytes_(std::move(bytes)), code_page_(code_page) {
  utf8_ = bytes_.compare(0, kBom.size(), kBom) == 0;
  const std::string& s = bytes_;
  size_t pos = utf8_ ? kBom.size() : 0;
  bool eol_known = false;
  bool in_section = false;
  while (pos < s.size()) {
    Line line;
    line.begin = pos;
    size_t e = s.find_first_of("\r\n", pos);
    if (e == std::string::npos) {
      line.end = line.next = s.size();
    } else {
      line.end = e;
      line.next = (s[e] == '\r' && e + 1 < s.size() && s[e + 1] == '\n') ? e + 2 : e + 1;
      if (!eol_known) {
        eol_ = s.substr(e, line.next - e);
        eol_known = true;
      }
    }
    pos = line.next;

    size_t f = line.begin;
    while (f < line.end && IsBlank(s[f])) ++f;
    auto trim_right = [&](size_t b, size_t e2) {
      while (e2 > b && IsBlank(s[e2 - 1])) --e2;
      return e2;
    };
    if (f == line.end) {
      line.kind = LineKind::kBlank;
    } else if (s[f] == '[') {
      line.kind = LineKind::kSection;
      size_t b = f + 1;
      while (b < line.end && IsBlank(s[b])) ++b;
      size_t close = s.find(']', f + 1);
      size_t stop = (close == std::string::npos || close > line.end) ? line.end : close;
      if (b > stop) b = stop;
      line.name_begin = b;
      line.name_end = trim_right(b, stop);
      in_section = true;
    } else if (s[f] == ';') {
      line.kind = LineKind::kComment;
    } else {
      size_t eq = s.find('=', f);
      if (eq == std::string::npos || eq >= line.end) {
        line.kind = LineKind::kOther;
      } else {
        line.kind = LineKind::kKey;
        line.name_begin = f;
        line.name_end = trim_right(f, eq);
        size_t v = eq + 1;
        while (v < line.end && IsBlank(s[v])) ++v;
        line.edit_begin = v;
        size_t ve = trim_right(v, line.end);
        if (ve - v >= 2 && (s[v] == '"' || s[v] == '\'') && s[ve - 1] == s[v]) {
          ++v;
          --ve;
        }
        line.value_begin = v;
        line.value_end = ve;
      }
    }
    // Keys before the first section belong to no section and are never
    // matched; their names are left unfolded.
    if (line.kind == LineKind::kSection || (line.kind == LineKind::kKey && in_section))
      line.folded = FoldCase(Decode(line.name_begin, line.name_end));
    lines_.push_back(std::move(line));
  }
  BuildIndex();
}

void ProfileText::BuildIndex() {
  Section* current = nullptr;  // null before the first section and in copies
  for (size_t i = 0; i < lines_.size(); ++i) {
    const Line& l = lines_[i];
    if (l.kind == LineKind::kSection) {
      if (current != nullptr) current->stop = i;
      auto [it, first] = sections_.try_emplace(l.folded);
      current = first ? &it->second : nullptr;
      if (current != nullptr) current->header = i;
    } else if (l.kind == LineKind::kKey && current != nullptr) {
      current->keys.try_emplace(l.folded, i);  // the first key of a name wins
    }
  }
  if (current != nullptr) current->stop = lines_.size();
}

std::u16string ProfileText::Decode(size_t b, size_t e) const {
  std::string_view v(bytes_.data() + b, e - b);
  return utf8_ ? FromUtf8(v) : FromCodePage(v, code_page_);
}

std::string ProfileText::ToCodePage(size_t b, size_t e) const {
  std::string_view v(bytes_.data() + b, e - b);
  return utf8_ ? tarvo2::ToCodePage(FromUtf8(v), code_page_) : std::string(v);
}

std::string ProfileText::Encode(std::string_view code_page) const {
  return utf8_ ? ToUtf8(FromCodePage(code_page, code_page_)) : std::string(code_page);
}

const ProfileText::Section* ProfileText::FindSection(std::string_view section) const {
  auto it = sections_.find(FoldCase(FromCodePage(section, code_page_)));
  return it == sections_.end() ? nullptr : &it->second;
}

int ProfileText::FindKey(const Section& section, std::string_view key) const {
  if (key.empty() || key[0] == ';') return -1;
  auto it = section.keys.find(FoldCase(FromCodePage(key, code_page_)));
  return it == section.keys.end() ? -1 : static_cast<int>(it->second);
}

std::vector<std::string> ProfileText::SectionNames() const {
  std::vector<std::string> names;
  for (const Line& l : lines_)
    if (l.kind == LineKind::kSection && l.name_end > l.name_begin)
      names.push_back(ToCodePage(l.name_begin, l.name_end));
  return names;
}

std::vector<std::string> ProfileText::KeyNames(std::string_view section) const {
  std::vector<std::string> names;
  const Section* sec = FindSection(section);
  if (sec == nullptr) return names;
  for (size_t i = sec->header + 1; i < sec->stop; ++i) {
    const Line& l = lines_[i];
    if (l.kind == LineKind::kKey && l.name_end > l.name_begin)
      names.push_back(ToCodePage(l.name_begin, l.name_end));
  }
  return names;
}

std::optional<std::string> ProfileText::GetValue(std::string_view section,
                                                 std::string_view key) const {
  const Section* sec = FindSection(section);
  if (sec == nullptr) return std::nullopt;
  int k = FindKey(*sec, key);
  if (k < 0) return std::nullopt;
  return ToCodePage(lines_[k].value_begin, lines_[k].value_end);
}

std::optional<std::string> ProfileText::SetValue(std::string_view section,
                                                 std::string_view key,
                                                 std::string_view value) const {
  std::string out;
  const Section* sec = FindSection(section);
  if (sec != nullptr) {
    int k = FindKey(*sec, key);
    if (k >= 0) {
      const Line& l = lines_[k];
      if (Decode(l.value_begin, l.value_end) == FromCodePage(value, code_page_)) return std::nullopt;
      // Keep the indentation, the key's spelling and the blanks around '='.
      out.reserve(bytes_.size() + value.size());
      out.append(bytes_, 0, l.edit_begin);
      out += Encode(value);
      out.append(bytes_, l.end, std::string::npos);
      return out;
    }
    // After the last line of the section that is neither blank nor a
    // comment; the header itself when there is no such line.
    size_t last = sec->header;
    for (size_t i = sec->header + 1; i < sec->stop; ++i)
      if (lines_[i].kind != LineKind::kBlank && lines_[i].kind != LineKind::kComment)
        last = i;
    const Line& l = lines_[last];
    out.reserve(bytes_.size() + key.size() + value.size() + 4);
    out.append(bytes_, 0, l.next);
    if (l.next == l.end) out += eol_;  // an unterminated last line
    out += Encode(key);
    out += '=';
    out += Encode(value);
    out += eol_;
    out.append(bytes_, l.next, std::string::npos);
    return out;
  }
  out = bytes_;
  if (!lines_.empty() && lines_.back().next == lines_.back().end) out += eol_;
  out += '[';
  out += Encode(section);
  out += ']';
  out += eol_;
  out += Encode(key);
  out += '=';
  out += Encode(value);
  out += eol_;
  return out;
}

std::optional<std::string> ProfileText::DeleteKey(std::string_view section,
                                                  std::string_view key) const {
  const Section* sec = FindSection(section);
  if (sec == nullptr) return std::nullopt;
  int k = FindKey(*sec, key);
  if (k < 0) return std::nullopt;
  std::string out = bytes_;
  out.erase(lines_[k].begin, lines_[k].next - lines_[k].begin);
  return out;
}

std::optional<std::string> ProfileText::DeleteSection(std::string_view section) const {
  const Section* sec = FindSection(section);
  if (sec == nullptr) return std::nullopt;
  std::string out;
  out.reserve(bytes_.size());
  size_t kept_from = 0;  // start of the bytes not yet copied
  for (size_t i = sec->header; i < sec->stop; ++i) {
    if (i != sec->header && lines_[i].kind != LineKind::kKey) continue;
    out.append(bytes_, kept_from, lines_[i].begin - kept_from);
    kept_from = lines_[i].next;
  }
  out.append(bytes_, kept_from, std::string::npos);
  return out;
}

}  // namespace tarvo2::profile
