// KivStorageString: LookFor, Find and Replace.
#include <algorithm>
#include <string>

#include "storage_string/text_search.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/storage_string.h"

namespace tarvo2 {
namespace {

using storage_string::FindBackward;
using storage_string::FindForward;
using storage_string::FindManyForward;
using storage_string::kNotFound;

// Matches found per call of the batch scanner.
constexpr std::size_t kBatch = 512;

// The text a search runs over: the original itself when the comparison is
// exact, else an upper-cased copy made once for the whole call.
class Haystack {
 public:
  Haystack(const String& original, bool case_sensitive) {
    if (case_sensitive) {
      view_ = original;
    } else {
      upper_ = ToUpper(original);
      view_ = upper_;
    }
  }
  StringView view() const { return view_; }

 private:
  String upper_;
  StringView view_;
};

}  // namespace

SafeArray KivStorageString::LookFor(const Variant& vText, bool bCaseSensitive, bool bStartFromCursor,
                                    bool bUseLastExtraction) {
  return Guard(u"KivStorageString.LookFor", [&] {
    // Convert every element first: converting an object runs client code,
    // which must not run while the searched text is being scanned.
    std::vector<String> texts;
    if (vText.IsArray()) {
      for (const Variant& element : vText.AsArray().Items())
        texts.push_back(element.IsString() ? element.AsString() : ToString(element));
    } else {
      texts.push_back(ToString(vText));
    }

    const Haystack hay(SearchedText(bUseLastExtraction), bCaseSensitive);
    std::vector<Variant> records;
    std::vector<std::int32_t> positions;
    for (String& text : texts) {
      const std::size_t start =
          (!bStartFromCursor || bUseLastExtraction) ? 1 : static_cast<std::size_t>(get_Cursor());
      if (!bCaseSensitive) text = ToUpper(text);
      if (text.empty()) continue;
      positions.clear();
      std::size_t batch[kBatch];
      for (std::size_t from = start - 1; from != kNotFound;) {
        const std::size_t found = FindManyForward(hay.view(), text, from, batch, kBatch, &from);
        for (std::size_t b = 0; b < found; ++b) positions.push_back(static_cast<std::int32_t>(batch[b] + 1));
      }
      if (!positions.empty()) records.emplace_back(MakeLookForResult(std::move(text), positions));
    }
    return SafeArray::Of(VarType::kRecord, std::move(records), 0);
  });
}

std::int32_t KivStorageString::Find(const String& sSearchFor, bool bStartFromCursor, bool bCaseSensitive,
                                    bool bUseLastExtraction, SearchDirectionEnum eSearchDirection) {
  return Guard(u"KivStorageString.Find", [&] {
    String text;
    if (sSearchFor.empty() && !last_search_text_.empty()) {
      text = last_search_text_;
      const std::int32_t c = get_Cursor();
      put_Cursor(c == INT32_MAX ? c : c + 1);
    } else {
      text = sSearchFor;
    }
    if (text.empty()) return std::int32_t{0};
    last_search_text_ = text;

    const Haystack hay(SearchedText(bUseLastExtraction), bCaseSensitive);
    const String needle = bCaseSensitive ? text : ToUpper(text);
    const std::size_t len = hay.view().size();
    const std::size_t m = needle.size();
    const bool whole_text = !bStartFromCursor || bUseLastExtraction;
    std::size_t found = kNotFound;
    if (eSearchDirection == tarvo_SearchUp) {
      // The match whose last character lies at or before p, nearest to it.
      std::size_t p = whole_text ? len : static_cast<std::size_t>(get_Cursor());
      p = std::min(p, len);
      if (p >= m) found = FindBackward(hay.view(), needle, p - m);
    } else {
      const std::size_t start = whole_text ? 1 : static_cast<std::size_t>(get_Cursor());
      found = FindForward(hay.view(), needle, start - 1);
    }
    if (found == kNotFound) return std::int32_t{0};
    const std::int32_t q = static_cast<std::int32_t>(found + 1);
    last_find_matched_ = true;
    put_Cursor(q);
    return q;
  });
}

std::int32_t KivStorageString::Replace(const String& sSearchFor, const String& sReplaceWith, bool bStartFromCursor,
                                       bool bCaseSensitive, bool bReplaceAll, bool bUseLastExtraction,
                                       SearchDirectionEnum eSearchDirection) {
  return Guard(u"KivStorageString.Replace", [&] {
    if (protect_) {
      RaiseLibraryError(*services_, ErrDirectStringAccess);
      return std::int32_t{0};
    }
    String text;
    if (sSearchFor.empty() && !last_search_text_.empty()) {
      text = last_search_text_;
    } else {
      text = sSearchFor;
      last_find_matched_ = false;
    }
    if (text.empty()) return std::int32_t{0};
    last_search_text_ = text;

    const String& original = SearchedText(bUseLastExtraction);
    const Haystack hay(original, bCaseSensitive);
    const String needle = bCaseSensitive ? text : ToUpper(text);
    const std::size_t len = original.size();
    const std::size_t m = needle.size();
    const bool whole_text = !bStartFromCursor || bUseLastExtraction;
    const bool up = eSearchDirection == tarvo_SearchUp;

    // The new text is built in one buffer of its final size: the searched
    // string's own buffer, grown once to the final length when the
    // replacement is longer. Text moves only in the one order that never
    // overwrites text still to be read, and nothing below can fail once the
    // buffer has its size, so the text is never left half replaced. The
    // cursor goes just after the last replacement made in the search
    // direction: the rightmost downwards, the leftmost upwards.
    String& buffer = bUseLastExtraction ? last_extraction_ : CurrentText();
    // A replacement that is the buffer itself (a C++ caller passing
    // PageText()) is copied before the buffer changes.
    const String replacement_copy = &sReplaceWith == &buffer ? sReplaceWith : String();
    const String& replacement = &sReplaceWith == &buffer ? replacement_copy : sReplaceWith;
    const std::size_t r = replacement.size();
    using Traits = std::char_traits<char16_t>;
    std::size_t k = 0;             // replacements made
    std::size_t after_target = 0;  // 1-based position just after the last one made

    if (!up && r <= m) {
      // Downwards without growing: one pass. Each match is found before
      // anything at or after it changes, and text moves only towards the
      // beginning, behind the search.
      char16_t* d = buffer.data();
      std::size_t read = 0;
      std::size_t write = 0;
      std::size_t batch[kBatch];
      std::size_t from = (whole_text ? 1 : static_cast<std::size_t>(get_Cursor())) - 1;
      while (from != kNotFound) {
        const std::size_t found = FindManyForward(hay.view(), needle, from, batch, bReplaceAll ? kBatch : 1, &from);
        for (std::size_t b = 0; b < found; ++b) {
          const std::size_t at = batch[b];
          if (r < m) {
            Traits::move(d + write, d + read, at - read);
            write += at - read;
          } else {
            write = at;
          }
          Traits::copy(d + write, replacement.data(), r);
          write += r;
          read = at + m;
          after_target = write + 1;
          ++k;
        }
        if (!bReplaceAll) break;
      }
      if (k == 0) return std::int32_t{0};
      if (r < m) {
        Traits::move(d + write, d + read, len - read);
        buffer.resize(write + (len - read));
      }
    } else {
      // Upwards, or growing: collect the matches first, so that the new
      // length is known.
      std::vector<std::size_t> matches;
      if (up) {
        std::size_t p = whole_text ? len
                                   : static_cast<std::size_t>(get_Cursor()) + (last_find_matched_ ? m : 0);
        p = std::min(p, len);
        while (p >= m) {
          const std::size_t at = FindBackward(hay.view(), needle, p - m);
          if (at == kNotFound) break;
          matches.push_back(at);
          if (!bReplaceAll) break;
          p = at;  // the next match must end before this one begins
        }
        std::reverse(matches.begin(), matches.end());
      } else {
        std::size_t batch[kBatch];
        std::size_t from = (whole_text ? 1 : static_cast<std::size_t>(get_Cursor())) - 1;
        while (from != kNotFound) {
          const std::size_t found =
              FindManyForward(hay.view(), needle, from, batch, bReplaceAll ? kBatch : 1, &from);
          matches.insert(matches.end(), batch, batch + found);
          if (!bReplaceAll) break;
        }
      }
      if (matches.empty()) return std::int32_t{0};
      k = matches.size();
      const std::size_t new_length = len - k * m + k * r;
      const std::size_t target = up ? 0 : k - 1;
      after_target = matches[target] + target * r - target * m + r + 1;
      if (r == m) {
        char16_t* d = buffer.data();  // same length: only the matches change
        for (std::size_t at : matches) Traits::copy(d + at, replacement.data(), r);
      } else if (r < m) {
        char16_t* d = buffer.data();  // shrinking: left to right
        std::size_t write = matches[0];
        for (std::size_t i = 0; i < k; ++i) {
          Traits::copy(d + write, replacement.data(), r);
          write += r;
          const std::size_t from = matches[i] + m;
          const std::size_t to = i + 1 < k ? matches[i + 1] : len;
          Traits::move(d + write, d + from, to - from);
          write += to - from;
        }
        buffer.resize(new_length);
      } else {
        buffer.resize(new_length);  // growing: may reallocate, the text is still whole
        char16_t* d = buffer.data();
        std::size_t source_end = len;
        std::size_t write_end = new_length;
        for (std::size_t i = k; i-- > 0;) {  // right to left
          const std::size_t from = matches[i] + m;
          write_end -= source_end - from;
          Traits::move(d + write_end, d + from, source_end - from);
          write_end -= r;
          Traits::copy(d + write_end, replacement.data(), r);
          source_end = matches[i];
        }
      }
    }

    if (!bUseLastExtraction) UpdateBoundObject();
    last_find_matched_ = false;
    put_Cursor(static_cast<std::int32_t>(std::min<std::size_t>(after_target, INT32_MAX)));
    return static_cast<std::int32_t>(k);
  });
}

}  // namespace tarvo2
