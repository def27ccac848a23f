// The text of one profile file: its lines as parsed for lookup, and edits
// that produce the new bytes of the file while keeping every byte they do
// not concern.
#ifndef TARVO2_PLATFORM_PROFILE_STORE_FORMAT_H_
#define TARVO2_PLATFORM_PROFILE_STORE_FORMAT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarvo2::profile {

enum class LineKind { kBlank, kOther, kComment, kSection, kKey };

// One line of the file, as offsets into its bytes.
struct Line {
  size_t begin = 0;  // first byte of the line
  size_t end = 0;    // end of the content, where its line end starts
  size_t next = 0;   // first byte after the line end (== end: unterminated)
  LineKind kind = LineKind::kBlank;
  size_t name_begin = 0, name_end = 0;    // section or key name, trimmed
  size_t value_begin = 0, value_end = 0;  // key value, trimmed, unquoted
  size_t edit_begin = 0;  // key: first non-blank after '=', or `end`
  std::u16string folded;  // the name with letter case folded
};

// Folds the letter case of 16-bit text for name comparison (Unicode simple
// case folding, platform/unicode_case.h).
std::u16string FoldCase(std::u16string_view text);

// Immutable parsed content of one file, read in one code page. Names and
// values passed in and returned are bytes in that code page; the file may
// be text in the code page or UTF-8 with a byte-order mark. Under 65001 the
// bytes of a file without the mark are handed out as they are, invalid
// UTF-8 included: the caller's conversion turns those into U+FFFD.
class ProfileText {
 public:
  ProfileText(std::string bytes, std::uint32_t code_page);

  const std::string& bytes() const { return bytes_; }
  bool utf8() const { return utf8_; }
  std::uint32_t code_page() const { return code_page_; }

  // Section names in file order, duplicates included, empty names left out.
  std::vector<std::string> SectionNames() const;
  // Key names of the first section called `section`; empty when missing.
  std::vector<std::string> KeyNames(std::string_view section) const;
  // The value of `key` in the first section called `section`.
  std::optional<std::string> GetValue(std::string_view section,
                                      std::string_view key) const;

  // The bytes of the file after the edit, or nullopt when the edit changes
  // nothing. REQUIRES: the names and value hold no CR or LF and the key is
  // non-empty (the store refuses those before).
  std::optional<std::string> SetValue(std::string_view section,
                                      std::string_view key,
                                      std::string_view value) const;
  std::optional<std::string> DeleteKey(std::string_view section,
                                       std::string_view key) const;
  std::optional<std::string> DeleteSection(std::string_view section) const;

 private:
  // The first section of a name: its header line, the line after its last
  // line, and the first key line of each key name in it.
  struct Section {
    size_t header = 0;
    size_t stop = 0;
    std::unordered_map<std::u16string, size_t> keys;  // folded name -> line
  };

  // Builds sections_ from lines_, so that lookups need no scan of the file.
  void BuildIndex();
  // The first section called `section`, or nullptr.
  const Section* FindSection(std::string_view section) const;
  // Index of the first key line called `key` in `section`, or -1.
  int FindKey(const Section& section, std::string_view key) const;
  std::u16string Decode(size_t b, size_t e) const;
  std::string ToCodePage(size_t b, size_t e) const;
  std::string Encode(std::string_view code_page) const;

  std::string bytes_;
  std::uint32_t code_page_;
  bool utf8_ = false;
  std::string eol_ = "\n";
  std::vector<Line> lines_;
  std::unordered_map<std::u16string, Section> sections_;  // folded name -> first
};

}  // namespace tarvo2::profile

#endif  // TARVO2_PLATFORM_PROFILE_STORE_FORMAT_H_
