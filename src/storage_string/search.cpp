// KivStorageString: LookFor, Find and Replace.
#include <algorithm>
#include <string>

#include "storage_string/splice.h"
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
    const bool whole_text = !bStartFromCursor || bUseLastExtraction;
    storage_string::Splice splice;
    splice.hay = hay.view();
    splice.needle = needle;
    splice.up = eSearchDirection == tarvo_SearchUp;
    splice.all = bReplaceAll;
    // Upwards from the cursor a match that Find left under the cursor ends
    // m characters after it, and is itself replaced.
    if (splice.up)
      splice.start = whole_text ? original.size()
                                : static_cast<std::size_t>(get_Cursor()) + (last_find_matched_ ? needle.size() : 0);
    else
      splice.start = whole_text ? 1 : static_cast<std::size_t>(get_Cursor());

    String& buffer = bUseLastExtraction ? last_extraction_ : CurrentText();
    // A replacement that is the buffer itself (a C++ caller passing
    // PageText()) is copied before the buffer changes.
    const String replacement_copy = &sReplaceWith == &buffer ? sReplaceWith : String();
    splice.replacement = &sReplaceWith == &buffer ? replacement_copy : sReplaceWith;
    std::size_t after = 0;
    const std::size_t k = storage_string::SpliceMatches(buffer, splice, &after);
    if (k == 0) return std::int32_t{0};

    if (!bUseLastExtraction) UpdateBoundObject();
    last_find_matched_ = false;
    put_Cursor(static_cast<std::int32_t>(std::min<std::size_t>(after, INT32_MAX)));
    return static_cast<std::int32_t>(k);
  });
}

}  // namespace tarvo2
