// KivStorageString: construction, type information, the import hook and the
// field store of the current page.
#include "tarvo2/storage_string.h"

#include "storage_string/text_search.h"
#include "storage_string/store_adapter.h"
#include "tarvo2/codec.h"
#include "tarvo2/import.h"
#include "tarvo2/library_errors.h"

namespace tarvo2 {
namespace {

using storage_string::FindForward;
using storage_string::kNotFound;


// The four tag texts that are never allowed inside a name, value or
// delimiter, whatever the tags currently are; changed tags are not tested.
constexpr StringView kFixedTags[] = {u"<\\", u"/>", u"={", u"};"};

bool Contains(StringView text, StringView part) { return FindForward(text, part, 0) != kNotFound; }

}  // namespace

Record MakeLookForResult(String text, const std::vector<std::int32_t>& positions) {
  SafeArray list(VarType::kLong, 0, positions.size());
  for (std::size_t i = 0; i < positions.size(); ++i) list.Put(static_cast<std::int32_t>(i), Variant(positions[i]));
  return Record(kLookForResultsType, {{u"Text", Variant(std::move(text))},
                                      {u"Hits", Variant(static_cast<std::int32_t>(positions.size()))},
                                      {u"Positions", Variant(std::move(list))}});
}


KivStorageString::KivStorageString(std::shared_ptr<Services> services)
    : services_(Services::OrDefault(std::move(services))) {
  Guard(u"KivStorageString.Class_Initialize", [&] {
    outer_start_ = u"<\\";
    outer_end_ = u"/>";
    inner_start_ = u"={";
    inner_end_ = u"};";
    page_texts_.assign(1, String());
    page_names_.assign(1, String());
    for (char16_t c = u'A'; c <= u'Z'; ++c) {
      toggle_values_ += c;
      if (c != u'Z') toggle_values_ += u'\t';
    }
    toggle_delimiter_ = u"\t";
  });
}

Ref<Object> KivStorageString::QueryInterface(StringView interface_name) {
  return internal::StoreQueryInterface(*this, interface_name, [this] {
    return std::make_shared<internal::StorageStringStore>(Ref<KivStorageString>(this));
  });
}

Ref<TarvoStdInterface> KivStorageString::StdInterface() {
  return RefCast<TarvoStdInterface>(QueryInterface(u"TarvoStdInterface"));
}

const TypeInfo& KivStorageString::Info() {
  using S = KivStorageString;
  static const TypeInfo info =
      ClassBuilder<S>(u"KivStorageString", true)
          .Help(u"An in-memory, multi-page text store with named fields")
          // Fields.
          .Get(u"Value", &S::get_Value, u"The whole text of the current page")
          .Get(u"OuterTagStart", &S::get_OuterTagStart, u"The text that opens a field")
          .Let(u"OuterTagStart", &S::put_OuterTagStart, u"The text that opens a field", {P(u"sNewValue")})
          .Get(u"OuterTagEnd", &S::get_OuterTagEnd, u"The text that closes a field")
          .Let(u"OuterTagEnd", &S::put_OuterTagEnd, u"The text that closes a field", {P(u"sNewValue")})
          .Get(u"InnerTagStart", &S::get_InnerTagStart, u"The text between a field's name and its value")
          .Let(u"InnerTagStart", &S::put_InnerTagStart, u"The text between a field's name and its value",
               {P(u"sNewValue")})
          .Get(u"InnerTagEnd", &S::get_InnerTagEnd, u"The text that ends a field's value")
          .Let(u"InnerTagEnd", &S::put_InnerTagEnd, u"The text that ends a field's value", {P(u"sNewValue")})
          .Get(u"ToggleValues", &S::get_ToggleValues, u"The default cycle of Toggle")
          .Let(u"ToggleValues", &S::put_ToggleValues, u"The default cycle of Toggle", {P(u"sNewValue")})
          .Get(u"ToggleDelimiter", &S::get_ToggleDelimiter, u"A delimiter kept for the client")
          .Let(u"ToggleDelimiter", &S::put_ToggleDelimiter, u"A delimiter kept for the client", {P(u"sNewValue")})
          .Method(u"SetValue", &S::SetValue, u"Sets a value in a field",
                  {P(u"sField"), P(u"vValue"), P(u"sDelimiter", u"\t")})
          .Method(u"GetValue", &S::GetValue, u"Gets a value from a field",
                  {P(u"sFieldName"), P(u"sArrayDelim", u"\t"), P(u"bDetectArray", true), P(u"bDetectNum", true),
                   Opt(u"vReturn")})
          .Method(u"GetFieldNames", &S::GetFieldNames, u"Lists the names of the fields of the current page")
          .Method(u"DeleteField", &S::DeleteField, u"Removes a field", {P(u"sFieldName")})
          .Method(u"GetAndConcatenate", &S::GetAndConcatenate, u"Reads several fields and joins their values",
                  {P(u"vFields"), P(u"sSeparator", u"")})
          .Method(u"Toggle", &S::Toggle, u"Advances a field, or the page, to the next value of a cycle",
                  {P(u"sFieldName", u""), P(u"sToggle", u""), P(u"sDelimiter", u"\t"), P(u"bCaseSensitive", true).InOut()})
          // Pages and encryption.
          .Get(u"Page", &S::get_Page, u"The current page's number")
          .Let(u"Page", &S::put_Page, u"Selects the current page by number or name", {P(u"vNameOrNumber")})
          .Get(u"PageName", &S::get_PageName, u"The name of the current page")
          .Let(u"PageName", &S::put_PageName, u"The name of the current page", {P(u"sNewValue")})
          .Get(u"PageCount", &S::get_PageCount, u"The number of pages")
          .Get(u"MultiPage", &S::get_MultiPage, u"Whether more than one page may exist")
          .Let(u"MultiPage", &S::put_MultiPage, u"Whether more than one page may exist", {P(u"bNewValue")})
          .Let(u"EncryptionKey", &S::put_EncryptionKey, u"The key for enciphering the current page",
               {P(u"sNewValue")})
          .Let(u"Encrypted", &S::put_Encrypted, u"Enciphers (True) or deciphers (False) the current page",
               {P(u"bEncrypt")})
          .Method(u"Clear", &S::Clear, u"Empties the current page, or all pages", {P(u"bAll", false).InOut()})
          .Method(u"AddPage", &S::AddPage, u"Appends a page",
                  {P(u"sPageName", u""), P(u"bMakeCurrentPage", true)})
          .Method(u"DeletePage", &S::DeletePage, u"Deletes the current page, or all pages", {P(u"bAll", false)})
          .Method(u"GetPageNames", &S::GetPageNames, u"Lists the page names, indexed from 1")
          // Binding and protection.
          .Get(u"BindMode", &S::get_BindMode, u"Which property of the bound object mirrors the page")
          .Let(u"BindMode", &S::put_BindMode, u"Which property of the bound object mirrors the page",
               {P(u"eNewValue")})
          .Get(u"BoundObject", &S::get_BoundObject, u"The object the page is mirrored into")
          .Set(u"BoundObject", &S::putref_BoundObject, u"The object the page is mirrored into", {P(u"oNewValue")})
          .Get(u"Protect", &S::get_Protect, u"Whether replacing the whole page text is forbidden")
          .Let(u"Protect", &S::put_Protect, u"Whether replacing the whole page text is forbidden", {P(u"bNewValue")})
          // Cursor, lines and extraction.
          .Get(u"Cursor", &S::get_Cursor, u"The text cursor, a 1-based position in the current page")
          .Let(u"Cursor", &S::put_Cursor, u"The text cursor, a 1-based position in the current page",
               {P(u"nNewValue")})
          .Get(u"LineCount", &S::get_LineCount, u"The number of lines of the current page")
          .Get(u"LineNumber", &S::get_LineNumber, u"The line the cursor is in")
          .Let(u"LineNumber", &S::put_LineNumber, u"Moves the cursor to a line", {P(u"nLineNumber")})
          .Method(u"FetchLine", &S::FetchLine, u"Returns one line of the page or of the last extraction",
                  {P(u"nLineNumber", -1), P(u"bUseLastExtraction", false)})
          // nCursor is optional without a default value; left out, it counts as 0.
          .Method(u"InsertText",
                  [](S& self, const String& text, const Variant& cursor) {
                    self.InsertText(text, cursor.IsMissing() ? 0 : ToLong(cursor));
                  },
                  u"Inserts text at a position", {P(u"sText"), Opt(u"nCursor").Typed(VarType::kLong)})
          .Method(u"ExtractText", &S::ExtractText, u"Returns the text between two points",
                  {P(u"vFirstPoint"), P(u"vSecondPoint"), P(u"bStartFromCursor", false)})
          .Get(u"LastExtraction", &S::get_LastExtraction, u"The text of the last extraction")
          // Search and replace.
          .Method(u"LookFor", &S::LookFor, u"Counts and lists the occurrences of one or several texts",
                  {P(u"vText"), P(u"bCaseSensitive", true), P(u"bStartFromCursor", true),
                   P(u"bUseLastExtraction", false)})
          .Method(u"Find", &S::Find, u"Moves the cursor to the next occurrence of a text",
                  {P(u"sSearchFor", u""), P(u"bStartFromCursor", true), P(u"bCaseSensitive", true),
                   P(u"bUseLastExtraction", false), P(u"eSearchDirection", static_cast<std::int32_t>(tarvo_SearchDown))})
          .Method(u"Replace", &S::Replace, u"Replaces the next occurrence of a text, or all of them",
                  {P(u"sSearchFor", u""), P(u"sReplaceWith", u""), P(u"bStartFromCursor", true),
                   P(u"bCaseSensitive", true), P(u"bReplaceAll", false), P(u"bUseLastExtraction", false),
                   P(u"eSearchDirection", static_cast<std::int32_t>(tarvo_SearchDown))})
          // Files and the default property.
          .Method(u"Load", &S::Load, u"Loads the current page from a file", {P(u"sFileName"), P(u"bAppend", false).InOut()})
          .Method(u"Save", &S::Save, u"Saves the current page to a file", {P(u"sFileName"), P(u"bAppend", false)})
          .Let(u"Value", &S::put_Value, u"The whole text of the current page", {P(u"vNewValue")})
          .Method(u"Version", &S::Version, u"Returns the internal version number given to the object",
                  {P(u"bShow", false)})
          .Build();
  return info;
}

// ---------------------------------------------------------------------------
// Field machinery.

bool KivStorageString::FieldExists(StringView page, StringView name) {
  return Guard(u"KivStorageString.FieldExists", [&] {
    String key = outer_start_ + String(name) + inner_start_;
    return FindForward(page, key, 0) != kNotFound;
  });
}

std::pair<std::size_t, std::size_t> KivStorageString::FieldSpan(StringView page, StringView name) {
  String key = outer_start_ + String(name) + inner_start_;
  std::size_t start = FindForward(page, key, 0);
  if (start == kNotFound) RaiseRuntimeError(err::kInvalidProcedureCall);
  std::size_t end = FindForward(page, outer_end_, start);
  // A field without an end tag cannot be cut out without guessing where it
  // ends; refuse rather than damage the text around it.
  if (end == kNotFound) RaiseRuntimeError(err::kInvalidProcedureCall);
  return {start, end + outer_end_.size()};
}

String KivStorageString::SSParseValue(StringView page, StringView name) {
  return Guard(u"KivStorageString.SSParseValue", [&] {
    String key = outer_start_ + String(name) + inner_start_;
    std::size_t start = FindForward(page, key, 0);
    if (start == kNotFound) RaiseRuntimeError(err::kInvalidProcedureCall);
    start += key.size();
    std::size_t end = FindForward(page, inner_end_ + outer_end_, start);
    if (end == kNotFound) RaiseRuntimeError(err::kInvalidProcedureCall);
    return String(page.substr(start, end - start));
  });
}

void KivStorageString::SSAddValue(String& page, StringView name, StringView value) {
  Guard(u"KivStorageString.SSAddValue", [&] {
    String field;
    field.reserve(outer_start_.size() + name.size() + inner_start_.size() + value.size() + inner_end_.size() +
                  outer_end_.size());
    field.append(outer_start_).append(name).append(inner_start_).append(value).append(inner_end_).append(outer_end_);
    page += field;
  });
}

void KivStorageString::SSEditValue(String& page, StringView name, StringView value) {
  Guard(u"KivStorageString.SSEditValue", [&] {
    auto [start, end] = FieldSpan(page, name);
    String field;
    field.reserve(outer_start_.size() + name.size() + inner_start_.size() + value.size() + inner_end_.size() +
                  outer_end_.size());
    field.append(outer_start_).append(name).append(inner_start_).append(value).append(inner_end_).append(outer_end_);
    page.replace(start, end - start, field);
  });
}

void KivStorageString::SSDeleteValue(String& page, StringView name) {
  Guard(u"KivStorageString.SSDeleteValue", [&] {
    auto [start, end] = FieldSpan(page, name);
    page.erase(start, end - start);
  });
}

bool KivStorageString::ValidateString(std::initializer_list<StringView> texts) {
  return Guard(u"KivStorageString.ValidateString", [&] {
    bool valid = true;
    for (StringView text : texts) {
      bool bad = false;
      for (StringView tag : kFixedTags) bad = bad || Contains(text, tag);
      if (bad) {
        valid = false;
        RaiseLibraryError(*services_, ErrIllegalCharacters);
      }
    }
    return valid;
  });
}

// ---------------------------------------------------------------------------
// Public field members.

Variant KivStorageString::get_Value() {
  return Guard(u"KivStorageString.Value (Get)", [&] {
    UpdateFromBoundObject();
    return Variant(CurrentText());
  });
}

String KivStorageString::get_OuterTagStart() {
  return Guard(u"KivStorageString.OuterTagStart (Get)", [&] { return outer_start_; });
}
void KivStorageString::put_OuterTagStart(const String& s) {
  Guard(u"KivStorageString.OuterTagStart (Let)", [&] { outer_start_ = s; });
}
String KivStorageString::get_OuterTagEnd() {
  return Guard(u"KivStorageString.OuterTagEnd (Get)", [&] { return outer_end_; });
}
void KivStorageString::put_OuterTagEnd(const String& s) {
  Guard(u"KivStorageString.OuterTagEnd (Let)", [&] { outer_end_ = s; });
}
String KivStorageString::get_InnerTagStart() {
  return Guard(u"KivStorageString.InnerTagStart (Get)", [&] { return inner_start_; });
}
void KivStorageString::put_InnerTagStart(const String& s) {
  Guard(u"KivStorageString.InnerTagStart (Let)", [&] { inner_start_ = s; });
}
String KivStorageString::get_InnerTagEnd() {
  return Guard(u"KivStorageString.InnerTagEnd (Get)", [&] { return inner_end_; });
}
void KivStorageString::put_InnerTagEnd(const String& s) {
  Guard(u"KivStorageString.InnerTagEnd (Let)", [&] { inner_end_ = s; });
}

String KivStorageString::get_ToggleValues() {
  return Guard(u"KivStorageString.ToggleValues (Get)", [&] { return toggle_values_; });
}
void KivStorageString::put_ToggleValues(const String& s) {
  Guard(u"KivStorageString.ToggleValues (Let)", [&] {
    if (!s.empty()) toggle_values_ = s;
  });
}
String KivStorageString::get_ToggleDelimiter() {
  return Guard(u"KivStorageString.ToggleDelimiter (Get)", [&] { return toggle_delimiter_; });
}
void KivStorageString::put_ToggleDelimiter(const String& s) {
  Guard(u"KivStorageString.ToggleDelimiter (Set)", [&] {
    if (!s.empty()) toggle_delimiter_ = s;
  });
}

bool KivStorageString::SetValue(const String& sField, const Variant& vValue, const String& sDelimiter) {
  return Guard(u"KivStorageString.SetValue", [&] {
    String name = Trim(sField);
    if (name.empty()) RaiseLibraryError(*services_, ErrZeroLengthFieldName);
    String delimiter = sDelimiter;
    Variant prepared = PrepForSet(vValue, delimiter);
    String text = prepared.IsString() ? prepared.AsString() : ToString(prepared);
    // A rejected write is dropped (also with the raise switch off): a tag
    // text inside a name or value would make the page ambiguous.
    if (!ValidateString({name, text, delimiter})) return false;
    String& page = CurrentText();
    if (FieldExists(page, name))
      SSEditValue(page, name, text);
    else
      SSAddValue(page, name, text);
    UpdateBoundObject();
    return true;
  });
}

Variant KivStorageString::GetValue(const String& sFieldName, const String& sArrayDelim, bool bDetectArray,
                                   bool bDetectNum, const Variant& vReturn) {
  return Guard(u"KivStorageString.GetValue", [&] {
    UpdateFromBoundObject();
    const String& page = CurrentText();
    if (!FieldExists(page, sFieldName)) return vReturn;
    return PrepForGet(Variant(SSParseValue(page, sFieldName)), sArrayDelim, bDetectArray, bDetectNum);
  });
}

SafeArray KivStorageString::GetFieldNames() {
  return Guard(u"KivStorageString.GetFieldNames", [&] {
    UpdateFromBoundObject();
    StringView page = CurrentText();
    std::vector<String> names;
    std::size_t start = 0;
    for (;;) {
      std::size_t open = FindForward(page, outer_start_, start);
      if (open == kNotFound) break;
      std::size_t name_start = open + outer_start_.size();
      std::size_t name_end = FindForward(page, inner_start_, name_start);
      if (name_end == kNotFound) break;  // not a field: no name follows
      names.emplace_back(page.substr(name_start, name_end - name_start));
      std::size_t close = FindForward(page, outer_end_, name_start);
      if (close == kNotFound) break;  // an unterminated last field
      std::size_t next = close + outer_end_.size();
      if (next <= start) break;  // empty tags: the scan would stand still
      start = next;
    }
    return SafeArray::OfStrings(std::move(names));
  });
}

void KivStorageString::DeleteField(const String& sFieldName) {
  Guard(u"KivStorageString.DeleteValue", [&] {
    String& page = CurrentText();
    if (FieldExists(page, sFieldName))
      SSDeleteValue(page, sFieldName);
    else
      RaiseLibraryError(*services_, ErrFieldNotFound);
    UpdateBoundObject();
  });
}

String KivStorageString::GetAndConcatenate(const Variant& vFields, const String& sSeparator) {
  return Guard(u"KivStorageString.GetAndConcatenate", [&] {
    // Only text names fields: an array of strings, or one string. Anything
    // else, an array of Variants holding strings included, names nothing.
    std::vector<String> names;
    if (vFields.IsArray() && vFields.AsArray().ElementType() == VarType::kString) {
      for (const Variant& e : vFields.AsArray().Items()) names.push_back(e.AsString());
    } else if (vFields.IsString()) {
      names.push_back(vFields.AsString());
    } else {
      return String();
    }
    String result;
    for (std::size_t i = 0; i < names.size(); ++i) {
      Variant value = GetValue(names[i], u"\t", false, true);
      String text = ToString(value);
      if (i > 0) result += sSeparator;
      result += text;
    }
    return result;
  });
}

String KivStorageString::Toggle(const String& sFieldName, const Variant& sToggle, const String& sDelimiter,
                                bool bCaseSensitive) {
  return Guard(u"KivStorageString.Toggle", [&] {
    String list = ToString(sToggle);
    if (list.empty()) list = toggle_values_;
    if (!bCaseSensitive) list = ToUpper(list);
    SafeArray items = SplitText(list, sDelimiter);

    String current;
    if (sFieldName.empty())
      current = CurrentText();
    else if (FieldExists(CurrentText(), sFieldName))
      current = ToString(GetValue(sFieldName, sDelimiter, false, false));
    if (current.empty()) return String();
    if (!bCaseSensitive) current = ToUpper(current);

    const auto& all = items.Items();
    std::size_t match = 0;
    while (match < all.size() && all[match].AsString() != current) ++match;
    if (match == all.size()) return String();
    String next = all[(match + 1) % all.size()].AsString();

    if (sFieldName.empty())
      CurrentText() = next;
    else
      SetValue(sFieldName, Variant(next), u"\t");
    UpdateBoundObject();
    return next;
  });
}

}  // namespace tarvo2
