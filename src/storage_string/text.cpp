// KivStorageString: the cursor, CR LF lines, insertion and extraction.
#include <algorithm>

#include "storage_string/text_search.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/storage_string.h"

namespace tarvo2 {
namespace {

using storage_string::CountLineBreaks;
using storage_string::FindForward;
using storage_string::kNotFound;
using storage_string::NthLineBreak;
using storage_string::PositionOf;

// The range rule of the cursor: within 1 to the page length, and never
// below 1 (so 1 on an empty page).
std::int32_t ClampCursor(std::int64_t v, std::size_t length) {
  const std::int64_t len = static_cast<std::int64_t>(std::min<std::size_t>(length, INT32_MAX));
  if (v > len) v = len;
  if (v < 1) v = 1;
  return static_cast<std::int32_t>(v);
}

std::size_t LineCountOf(StringView text) { return text.empty() ? 0 : CountLineBreaks(text, text.size()) + 1; }

bool IsWholeNumber(const Variant& v) { return v.Type() == VarType::kInteger || v.Type() == VarType::kLong; }

}  // namespace

std::int32_t KivStorageString::get_Cursor() {
  return Guard(u"KivStorageString.Cursor (Get)", [&] {
    cursor_ = ClampCursor(cursor_, CurrentText().size());
    return cursor_;
  });
}

void KivStorageString::put_Cursor(std::int32_t nNewValue) {
  Guard(u"KivStorageString.Cursor (Let)", [&] { cursor_ = ClampCursor(nNewValue, CurrentText().size()); });
}

std::int32_t KivStorageString::get_LineCount() {
  return Guard(u"KivStorageString.LineCount (Get)",
               [&] { return static_cast<std::int32_t>(LineCountOf(CurrentText())); });
}

std::int32_t KivStorageString::get_LineNumber() {
  return Guard(u"KivStorageString.LineNumber (Get)", [&] {
    const std::int32_t c = get_Cursor();
    const String& page = CurrentText();
    if (page.empty()) return std::int32_t{0};
    return static_cast<std::int32_t>(CountLineBreaks(page, static_cast<std::size_t>(c)) + 1);
  });
}

void KivStorageString::put_LineNumber(std::int32_t nLineNumber) {
  Guard(u"KivStorageString.LineNumber (Let)", [&] {
    const std::int64_t n = nLineNumber;
    if (n == 1) {
      put_Cursor(1);
      return;
    }
    if (n < 1) RaiseLibraryError(*services_, ErrInvalidLineNumber);
    // Only reached below 1 with the raise switch off.
    if (n < -1) RaiseRuntimeError(err::kInvalidProcedureCall);
    const String& page = CurrentText();
    const std::int64_t lines = static_cast<std::int64_t>(LineCountOf(page));
    const std::int64_t pieces = n == -1 ? lines : std::min(n, lines);
    const std::int64_t last_piece = pieces - 1;
    if (n - 1 > last_piece) RaiseLibraryError(*services_, ErrInvalidLineNumber);
    // With the switch off: no line before the target to stand after.
    if (last_piece <= 0) RaiseRuntimeError(err::kSubscriptOutOfRange);
    // The LF that ends line `last_piece` (the line before the target).
    const std::size_t cr = NthLineBreak(page, static_cast<std::size_t>(last_piece));
    put_Cursor(static_cast<std::int32_t>(std::min<std::size_t>(cr + 2, INT32_MAX)));
  });
}

String KivStorageString::FetchLine(std::int32_t nLineNumber, bool bUseLastExtraction) {
  return Guard(u"KivStorageString.FetchLine", [&] {
    UpdateFromBoundObject();
    std::int32_t n = nLineNumber;
    if (n < 1) n = get_LineNumber();
    StringView source = bUseLastExtraction ? StringView(last_extraction_) : StringView(CurrentText());
    if (n >= 1 && !source.empty()) {
      std::size_t start = 0;
      bool found = true;
      for (std::int32_t i = 1; i < n && found; ++i) {
        std::size_t br = FindForward(source, u"\r\n", start);
        if (br == kNotFound)
          found = false;
        else
          start = br + 2;
      }
      if (found) {
        std::size_t end = FindForward(source, u"\r\n", start);
        return String(source.substr(start, end == kNotFound ? StringView::npos : end - start));
      }
    }
    RaiseLibraryError(*services_, ErrInvalidLineNumber);
    return String();
  });
}

void KivStorageString::InsertText(const String& sText, std::int32_t nCursor) {
  Guard(u"KivStorageString.InsertText", [&] {
    std::int32_t n = nCursor;
    if (n == 0) n = get_Cursor();
    if (n < 0) RaiseRuntimeError(err::kInvalidProcedureCall);
    const String& page = CurrentText();
    const std::size_t at = std::min(static_cast<std::size_t>(n - 1), page.size());
    String text;
    text.reserve(page.size() + sText.size());
    text.append(page, 0, at).append(sText).append(page, at, String::npos);
    CurrentText() = std::move(text);
    UpdateBoundObject();
  });
}

String KivStorageString::ExtractText(const Variant& vFirstPoint, const Variant& vSecondPoint, bool bStartFromCursor) {
  return Guard(u"KivStorageString.ExtractText", [&] {
    UpdateFromBoundObject();
    if (vFirstPoint.IsArray() || vSecondPoint.IsArray()) RaiseLibraryError(*services_, 0, u"", err::kTypeMismatch);
    const String& page = CurrentText();
    const std::int64_t len = static_cast<std::int64_t>(page.size());

    std::int64_t s = 0;
    if (IsWholeNumber(vFirstPoint)) {
      s = ToLong(vFirstPoint);
    } else if (vFirstPoint.IsString()) {
      const String& mark = vFirstPoint.AsString();
      const std::size_t from = bStartFromCursor ? static_cast<std::size_t>(get_Cursor()) : 1;
      const std::size_t at = PositionOf(page, mark, from);
      s = at == 0 ? 0 : static_cast<std::int64_t>(at + mark.size());
    }

    std::int64_t e = 0;
    if (IsWholeNumber(vSecondPoint)) {
      e = ToLong(vSecondPoint);
    } else if (vSecondPoint.IsString()) {
      if (s + 1 < 1) RaiseRuntimeError(err::kInvalidProcedureCall);
      const std::size_t at = PositionOf(page, vSecondPoint.AsString(), static_cast<std::size_t>(s + 1));
      e = at == 0 ? -1 : static_cast<std::int64_t>(at) - 1;
    }

    if (s < 0 || s > len || e < 0 || e > len || e < s) RaiseLibraryError(*services_, ErrParameterOutOfBounds);
    if (s == 0 || e == 0) return String();
    // Beyond this point only with the raise switch off for a bad pair.
    if (s < 1) RaiseRuntimeError(err::kInvalidProcedureCall);
    const std::int64_t count = e - s + 1;
    if (count < 0) RaiseRuntimeError(err::kInvalidProcedureCall);
    String piece;
    if (s <= len) piece = page.substr(static_cast<std::size_t>(s - 1), static_cast<std::size_t>(std::min(count, len - s + 1)));
    last_extraction_ = piece;
    put_Cursor(static_cast<std::int32_t>(std::min<std::int64_t>(s, INT32_MAX)));
    return piece;
  });
}

String KivStorageString::get_LastExtraction() {
  return Guard(u"KivStorageString.LastExtraction (Get)", [&] { return last_extraction_; });
}

}  // namespace tarvo2
