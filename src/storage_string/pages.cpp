// KivStorageString: pages, single-page mode and the page cipher.
#include "tarvo2/codepage.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/storage_string.h"

namespace tarvo2 {
namespace {

// The Windows-1252 code of a page character; '?' for one outside the code
// page (such a character does not survive enciphering).
inline unsigned AnsiCode(char16_t c) {
  if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return c;
  int b = CharToAnsiByte(c);
  return b < 0 ? static_cast<unsigned char>(kAnsiReplacement) : static_cast<unsigned>(b);
}

}  // namespace

Variant KivStorageString::get_Page() {
  return Guard(u"KivStorageString.Page (Get)", [&] { return Variant(current_); });
}

void KivStorageString::put_Page(const Variant& vNameOrNumber) {
  Guard(u"KivStorageString.Page (Let)", [&] {
    if (!multi_page_) RaiseLibraryError(*services_, ErrSinglePageMode);
    const std::int32_t count = static_cast<std::int32_t>(page_texts_.size());
    std::int32_t selected = 0;
    auto by_number = [&](std::int32_t n) {
      if (n >= 1 && n <= count) selected = n;
    };
    const VarType type = vNameOrNumber.Type();
    if (type == VarType::kInteger || type == VarType::kLong) {
      by_number(ToLong(vNameOrNumber));
    } else if (type == VarType::kString) {
      const String& text = vNameOrNumber.AsString();
      if (IsNumericText(text)) {
        by_number(TextToLong(text));
      } else {
        for (std::int32_t i = 0; i < count && selected == 0; ++i)
          if (EqualsNoCase(page_names_[i], text)) selected = i + 1;
      }
    }
    if (selected == 0)
      RaiseLibraryError(*services_, ErrPageNotFound);
    else
      current_ = selected;
    put_Cursor(1);
  });
}

String KivStorageString::get_PageName() {
  return Guard(u"KivStorageString.PageName (Get)", [&] { return page_names_[current_ - 1]; });
}

void KivStorageString::put_PageName(const String& sNewValue) {
  Guard(u"KivStorageString.PageName (Let)", [&] {
    if (!sNewValue.empty()) {
      for (const String& name : page_names_) {
        if (name == sNewValue) {
          RaiseLibraryError(*services_, ErrPageNameExists);
          return;  // no name changes, also with the raise switch off
        }
      }
    }
    page_names_[current_ - 1] = sNewValue;
  });
}

std::int32_t KivStorageString::get_PageCount() {
  return Guard(u"KivStorageString.PageCount (Get)",
               [&] { return static_cast<std::int32_t>(page_texts_.size()); });
}

bool KivStorageString::get_MultiPage() {
  return Guard(u"KivStorageString.MultiPage (Get)", [&] { return multi_page_; });
}

void KivStorageString::put_MultiPage(bool bNewValue) {
  Guard(u"KivStorageString.MultiPage (Let)", [&] { multi_page_ = bNewValue; });
}

void KivStorageString::put_EncryptionKey(const String& sNewValue) {
  Guard(u"KivStorageString.EncryptionKey (Let)", [&] { encryption_key_ = sNewValue; });
}

void KivStorageString::put_Encrypted(bool bEncrypt) {
  Guard(u"KivStorageString.Encrypted (Let)", [&] {
    const std::size_t n = encryption_key_.size();
    if (n == 0) {
      RaiseLibraryError(*services_, ErrEncryptionKeyNotSet);
      return;
    }
    UpdateFromBoundObject();
    if (CurrentText().empty()) return;

    std::vector<unsigned> key(n);
    for (std::size_t i = 0; i < n; ++i) {
      int b = CharToAnsiByte(encryption_key_[i]);
      if (b < 0) RaiseRuntimeError(err::kOverflow);
      key[i] = static_cast<unsigned>(b);
    }
    // The last character meets the key's first, the one before it the
    // key's second, and so on. Nothing can fail from here on, so the page
    // is transformed where it stands.
    String& text = CurrentText();
    std::size_t j = 0;
    for (std::size_t i = text.size(); i-- > 0;) {
      const unsigned c = AnsiCode(text[i]);
      const unsigned code = bEncrypt ? (c + 256 - key[j]) & 0xFF : (c + key[j]) & 0xFF;
      text[i] = AnsiByteToChar(static_cast<unsigned char>(code));
      if (++j == n) j = 0;
    }
    UpdateBoundObject();
  });
}

void KivStorageString::Clear(bool bAll) {
  Guard(u"KivStorageString.Clear", [&] {
    if (bAll) {
      for (String& t : page_texts_) t.clear();
      for (String& n : page_names_) n.clear();
    } else {
      CurrentText().clear();
      page_names_[current_ - 1].clear();
    }
    last_extraction_.clear();
    UpdateBoundObject();
  });
}

void KivStorageString::AddPage(const String& sPageName, bool bMakeCurrentPage) {
  Guard(u"KivStorageString.Add", [&] {
    if (!multi_page_) RaiseLibraryError(*services_, ErrSinglePageMode);
    const std::int32_t remembered = current_;
    page_texts_.reserve(page_texts_.size() + 1);
    page_names_.reserve(page_names_.size() + 1);
    page_texts_.emplace_back();
    page_names_.emplace_back();
    current_ = static_cast<std::int32_t>(page_texts_.size());
    put_PageName(sPageName);
    if (!bMakeCurrentPage) current_ = remembered;
  });
}

void KivStorageString::DeletePage(bool bAll) {
  Guard(u"KivStorageString.DeletePage", [&] {
    if (!multi_page_) RaiseLibraryError(*services_, ErrSinglePageMode);
    if (bAll) {
      page_texts_.assign(1, String());
      page_names_.assign(1, String());
      current_ = 1;
      return;
    }
    if (page_texts_.size() < 2) return;  // the only page stays as it is
    page_texts_.erase(page_texts_.begin() + (current_ - 1));
    page_names_.erase(page_names_.begin() + (current_ - 1));
    current_ = std::min(current_, static_cast<std::int32_t>(page_texts_.size()));
  });
}

SafeArray KivStorageString::GetPageNames() {
  return Guard(u"KivStorageString.GetPageNames", [&] { return SafeArray::OfStrings(page_names_, 1); });
}

}  // namespace tarvo2
