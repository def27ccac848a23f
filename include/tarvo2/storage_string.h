// KivStorageString: an in-memory, multi-page text store.
//
// Each page is one text (16-bit units) with an optional name; exactly one
// page is current and every field, cursor, search and file operation works on
// it. Named fields live inside the page text, framed by four tag strings:
//
//   OuterTagStart name InnerTagStart value InnerTagEnd OuterTagEnd
//
// which with the initial tags reads <\Colour={Red};/>. There is no escaping,
// no length prefix and no separator between fields; any other text may stand
// around and between them. Besides fields a page can be handled as plain
// text (one cursor, CR LF lines, extraction, search and replace), enciphered
// with a key, loaded from and saved to a file, and mirrored into a property
// of another object (binding).
//
// Conventions of this interface:
//  - Positions and lengths count 16-bit units; positions are 1-based.
//  - Every member runs under the standard handler (tarvo2::Guard): an error
//    leaving it carries one more source line, "KivStorageString.<label>".
//    The label is the member's name, with " (Get)", " (Let)" or " (Set)" for
//    property accessors, except where a member's comment names another one.
//  - Failures the store detects itself go through RaiseLibraryError and so
//    depend on the raise switch of the store's context (Services::
//    raise_errors). Each comment
//    says what the member does when the switch is off and the check fails.
//    Runtime errors (5, 6, 9, 13, 53, 94, 438, ...) are raised whatever the
//    switch says.
//  - Unless a comment says otherwise, a member that fails leaves the pages,
//    the cursor and every other state as they were before the call (work
//    already completed by an inner member it called, such as a field that
//    was written, stays done).
//  - An object is used by one thread at a time. The store holds no locks and
//    starts no threads.
//
// Binding and re-entrancy. A bound store mirrors its current page into one
// property of BoundObject: reads pull the property into the page first,
// writes push the page into it afterwards (see BindMode). A pull or a push
// that is already under way on a store is never started again on that same
// store: when a push reaches back into the store (a store bound to itself,
// two stores bound to each other while the raise switch is off, or a longer
// cycle of bindings), the inner push or pull is skipped and the outer one
// completes. So no binding can recurse without end.
#ifndef TARVO2_STORAGE_STRING_H_
#define TARVO2_STORAGE_STRING_H_

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "tarvo2/dispatch.h"
#include "tarvo2/export.h"
#include "tarvo2/std_interface.h"
#include "tarvo2/variant.h"

namespace tarvo2 {

// Which property of the bound object mirrors the current page. Any other
// value can be stored: it counts as bound (single-page mode, Protect
// blocked) but nothing is pulled or pushed.
enum BindModeEnum : std::int32_t {
  tarvo_BindModeNone = 0,             // not bound
  tarvo_BindModeTag = 1,              // the property "Tag"
  tarvo_BindModeDefaultProperty = 2,  // the default property (dispatch id 0)
  tarvo_BindModeValue = 3,            // the property "Value"
  tarvo_BindModeCaption = 4,          // the property "Caption"
  tarvo_BindModeText = 5,             // the property "Text"
};

// Direction of Find and Replace. Find treats every value other than
// tarvo_SearchUp as downwards, and so does Replace.
enum SearchDirectionEnum : std::int32_t {
  tarvo_SearchUp = 0,
  tarvo_SearchDown = 1,
};

// The record type that LookFor returns, one per search text found. Fields,
// in this order: Text (String: the text as searched, upper-cased when the
// search was not case-sensitive), Hits (Long, >= 1), Positions (array of
// Longs, lower bound 0, Hits elements, 1-based and increasing). Read them
// with Record::Field or late-bound with GetProperty(record, u"Hits").
inline constexpr char16_t kLookForResultsType[] = u"KivSSLookForResults";

// Builds a KivSSLookForResults record.
TARVO2_EXPORT Record MakeLookForResult(String text, const std::vector<std::int32_t>& positions);

class TARVO2_EXPORT KivStorageString : public Object {
 public:
  // A new store in `services` (the default context when null): one empty,
  // unnamed page, MultiPage on, not bound, not protected, cursor 0 (read as
  // 1), the tags "<\", "/>", "={", "};", ToggleValues "A" tab "B" tab ...
  // "Z", ToggleDelimiter tab.
  explicit KivStorageString(std::shared_ptr<Services> services = Services::Default());
  static Ref<KivStorageString> Create(std::shared_ptr<Services> services = Services::Default()) {
    return MakeRef<KivStorageString>(std::move(services));
  }
  // The context the object works in (its creator's for objects that
  // another object makes).
  const std::shared_ptr<Services>& services() const { return services_; }

  // The type information of the automation interface (class name
  // "KivStorageString", creatable), members in slot order.
  static const TypeInfo& Info();
  const TypeInfo& GetTypeInfo() const override { return Info(); }

  // "KivStorageString" gives this object, "TarvoStdInterface" a view that
  // forwards to the TarvoStdInterface_* members below; anything else none.
  Ref<Object> QueryInterface(StringView interface_name) override;
  Ref<TarvoStdInterface> StdInterface();

  // -------------------------------------------------------------------------
  // Fields (current page only).

  // The current page's whole text, pulled from the bound object first.
  Variant get_Value();

  // Replaces the current page's text with `v` converted to text (a number or
  // Boolean as its text, Empty as "", an object of another class through its
  // default property), then pushes it to a bound object. A store object of
  // this library is imported instead (import.h: ImportIfStore). Errors:
  // ErrDirectStringAccess while Protect is on (switch off: the assignment
  // goes on); 94 for Null, 13 for an array, record or Error value, 91/438
  // for an object without a usable default property; the page is unchanged.
  void put_Value(const Variant& v);

  // The four tags. Let stores the text unchanged (empty included) and does
  // not touch text already on any page: fields written under other tags are
  // no longer found.
  String get_OuterTagStart();
  void put_OuterTagStart(const String& sNewValue);
  String get_OuterTagEnd();
  void put_OuterTagEnd(const String& sNewValue);
  String get_InnerTagStart();
  void put_InnerTagStart(const String& sNewValue);
  String get_InnerTagEnd();
  void put_InnerTagEnd(const String& sNewValue);

  // The default cycle of Toggle, and a delimiter kept for the client
  // (nothing in the class reads it). Let ignores the empty string. The write
  // accessor of ToggleDelimiter is labelled "ToggleDelimiter (Set)".
  String get_ToggleValues();
  void put_ToggleValues(const String& sNewValue);
  String get_ToggleDelimiter();
  void put_ToggleDelimiter(const String& sNewValue);

  // Writes the field `sField` (blanks trimmed from both ends) on the current
  // page: an existing field is replaced in place, a new one is appended.
  // `vValue` is stored as its text; an array as its elements' texts joined
  // by `sDelimiter` (see PrepForSet). Pushes to a bound object and returns
  // true.
  // Errors: ErrZeroLengthFieldName for a blank name (switch off: the field
  // is stored with an empty name); ErrIllegalCharacters (from
  // "ValidateString") when the name, the value text or the delimiter holds
  // one of the four fixed texts "<\", "/>", "={", "};". Only these four are
  // tested, also after the tag properties have been changed, and a changed
  // tag is not tested: applications written against this store rely on
  // storing text that holds their own tags. The caller who changes the tags
  // must therefore keep them out of names and values, or later reads of the
  // page are ambiguous. With the switch off a rejected write is dropped: the
  // page is unchanged, nothing is pushed and the result is false. 94/13/9/6
  // when the value cannot become text.
  bool SetValue(const String& sField, const Variant& vValue, const String& sDelimiter = u"\t");

  // Reads the field `sFieldName` (exactly as given: not trimmed,
  // case-sensitive) of the current page after pulling from the bound
  // object, converted by PrepForGet with `sArrayDelim`, `bDetectArray` and
  // `bDetectNum`: by default a text holding a tab becomes an array (of
  // Longs or Doubles when all parts are numeric) and a numeric text a Long
  // or Double. A missing field raises nothing and returns `vReturn`
  // (the missing-argument Error value when omitted). Error 5 (from
  // "SSParseValue") when the field's value has no InnerTagEnd + OuterTagEnd
  // after it (text written by other means or under other tags).
  Variant GetValue(const String& sFieldName, const String& sArrayDelim = u"\t", bool bDetectArray = true,
                   bool bDetectNum = true, const Variant& vReturn = Variant::Missing());

  // The names of the fields of the current page in page order, duplicates
  // included, as strings indexed from 0 (no elements for a page without
  // fields); pulls first. Any OuterTagStart followed by an InnerTagStart is
  // read as a field start. A field start without a following InnerTagStart
  // is not a field and ends the scan; a name without an OuterTagEnd after it
  // is listed and ends the scan. The scan always moves forward, so it ends
  // whatever the tags are (even empty ones).
  SafeArray GetFieldNames();

  // Removes the field `sFieldName` from the current page, wherever it
  // stands, then pushes. Label "DeleteValue". ErrFieldNotFound when there is
  // no such field (switch off: nothing changes, the page is still pushed).
  // Error 5 (from "SSDeleteValue") when the field has no OuterTagEnd after
  // its start; the page is unchanged.
  void DeleteField(const String& sFieldName);

  // Reads the fields named by the array of strings `vFields` (or the one
  // field named by a single string) with GetValue(name, tab, false, true)
  // and joins their texts with `sSeparator` between consecutive values (no
  // separator before the first or after the last). Any other `vFields`
  // (an array of Variants included) gives "". A missing field raises 13,
  // whatever the switch says.
  String GetAndConcatenate(const Variant& vFields, const String& sSeparator = u"");

  // Advances a field, or with an empty `sFieldName` the whole page text, to
  // the next item of a cycle: `sToggle` split at `sDelimiter` (ToggleValues
  // when `sToggle` is empty). The item after the one equal to the current
  // text is stored and returned; after the last item comes the first. With
  // `bCaseSensitive` false the list and the current text are compared in
  // upper case and the upper-case item is stored. A current text that is
  // empty, missing or not in the list changes nothing and returns "". The
  // field is written with SetValue(name, item, tab), then the page is
  // pushed. (bCaseSensitive is passed by reference on the automation
  // interface and never changed, so C++ takes it by value.)
  String Toggle(const String& sFieldName = u"", const Variant& sToggle = Variant(String()),
                const String& sDelimiter = u"\t", bool bCaseSensitive = true);

  // -------------------------------------------------------------------------
  // Pages. Pages are numbered 1 to PageCount in creation order and close up
  // when one is deleted; there is always at least one page. A non-empty page
  // name is unique (case-sensitive) when it is set; several pages may be
  // unnamed.

  // The current page's number (a Long).
  Variant get_Page();

  // Selects the current page by number (an Integer or Long, or a numeric
  // text rounded half to even) or by name (any other text, compared without
  // regard to case, first match from page 1), then sets Cursor to 1.
  // Any other type (Double, Boolean, Empty, ...) selects nothing.
  // Errors: ErrSinglePageMode while MultiPage is off (switch off: goes on as
  // in multi-page mode); ErrPageNotFound when nothing is selected (the
  // current page stays; switch off: the cursor is still set to 1); 6 for a
  // numeric text beyond the Long range.
  void put_Page(const Variant& vNameOrNumber);

  // The current page's name. Let: ErrPageNameExists when a non-empty name
  // equals (case-sensitively) the name of any page, the current one
  // included; no name changes, also with the switch off. An empty name is
  // always stored.
  String get_PageName();
  void put_PageName(const String& sNewValue);

  std::int32_t get_PageCount();

  // Whether more than one page may be selected, added or deleted. Turning it
  // off keeps the pages that exist. Binding turns it off while it lasts.
  bool get_MultiPage();
  void put_MultiPage(bool bNewValue);

  // The key of Encrypted (write-only; the empty string is stored too).
  void put_EncryptionKey(const String& sNewValue);

  // Enciphers (true) or deciphers (false) the current page with the key:
  // from the last character back to the first, each character's
  // Windows-1252 code c becomes (c - k + 256) mod 256 (enciphering) or
  // (c + k) mod 256 (deciphering), where k runs through the key's codes
  // from its first character, repeating. A page character outside the code
  // page is read as '?' and does not survive; the result may hold any byte
  // value as a character, NUL included. The same key deciphers exactly;
  // nothing detects a wrong key or a page enciphered twice. Pulls before and
  // pushes after. Write-only. An empty page is left alone.
  // Errors: ErrEncryptionKeyNotSet for an empty key (switch off: nothing
  // happens); 6 when a key character has no Windows-1252 code (the page is
  // unchanged).
  void put_Encrypted(bool bEncrypt);

  // Empties the current page's text and name, or with `bAll` those of every
  // page (the pages stay); empties LastExtraction; pushes. Works in
  // single-page mode. (bAll is passed by reference on the automation
  // interface and never changed.)
  void Clear(bool bAll = false);

  // Appends a page named `sPageName` and makes it current, or with
  // `bMakeCurrentPage` false keeps the current page. Label "Add".
  // Errors: ErrSinglePageMode while MultiPage is off (switch off: the page
  // is added anyway); ErrPageNameExists for a name in use: the new page is
  // then already added, current and unnamed, and stays so (switch off: the
  // call completes with the new page unnamed).
  void AddPage(const String& sPageName = u"", bool bMakeCurrentPage = true);

  // Deletes the current page (the following page takes its number and
  // becomes current; after deleting the last page the one before it does),
  // or with `bAll` every page, leaving one empty, unnamed page. Deleting the
  // only page changes nothing. ErrSinglePageMode while MultiPage is off
  // (switch off: deletes anyway).
  void DeletePage(bool bAll = false);

  // The page names as strings indexed from 1 to PageCount.
  SafeArray GetPageNames();

  // -------------------------------------------------------------------------
  // Binding and protection. Bound and protected exclude each other. While a
  // bind mode other than none is set, MultiPage is off (its previous value
  // is restored on unbinding) and Protect cannot change.
  //
  // Pull ("UpdateFromBoundObject"): the mirrored property is read late-bound
  // and its text becomes the current page. Push ("UpdateBoundObject"): the
  // page's whole text is assigned to the property as a string. Value (Get),
  // GetValue, GetFieldNames, FetchLine, ExtractText and Encrypted pull
  // first; Value (Let), Load, SetValue, DeleteField, Toggle, Clear,
  // InsertText, Encrypted and a page-changing Replace push afterwards. A
  // write does not pull first. A pull or push fails with the bound object's
  // error (438 for a missing property, 94 for a Null value) whatever the
  // switch says; a write has by then already changed the page.

  // Let: with a mode other than none, binds (MultiPage saved and turned
  // off when coming from none); with none, releases BoundObject and
  // restores MultiPage. Any value is stored. ErrBindWhileProtected for a
  // mode other than none while Protect is on (switch off: stored anyway).
  BindModeEnum get_BindMode();
  void put_BindMode(BindModeEnum eNewValue);

  // The bound object (none when unbound). Labels "BoundTagObject (Get)" and
  // "BoundTagObject (Set)". Set with an object: sets BindMode to
  // tarvo_BindModeDefaultProperty unless a mode was chosen before, keeps the
  // object and pulls the page from it at once. If that first pull fails,
  // the binding is undone (object, mode and MultiPage as before) and the
  // error is raised. Set with none unbinds as BindMode none does.
  // Errors: ErrAlreadyBound when the object is a KivStorageString bound to
  // this store (switch off: the binding is made; re-entrancy protection
  // keeps pulls and pushes finite), and when it is this store itself (always
  // refused: a self-binding mirrors nothing and would keep the store alive;
  // switch off: nothing changes); ErrBindWhileProtected (from
  // "BindMode (Let)") while Protect is on.
  Ref<Object> get_BoundObject();
  void putref_BoundObject(Ref<Object> oNewValue);

  // Protected mode forbids replacing the page's whole text through Value
  // (Let), Load and Replace (ErrDirectStringAccess). Let raises
  // ErrProtectWhileBound while a bind mode is set, whatever the flag
  // (switch off: stored anyway).
  bool get_Protect();
  void put_Protect(bool bNewValue);

  // -------------------------------------------------------------------------
  // Cursor, lines and extraction. A line break is exactly CR LF; a lone CR
  // or LF is an ordinary character. A non-empty text has one line more than
  // it has CR LF pairs; the empty text has no lines.

  // The one cursor of the object (not per page). Range rule for both
  // accessors: a value above the page length becomes the length, one below
  // 1 becomes 1 (1 on an empty page). Reading stores the corrected value.
  // Writing never fails.
  std::int32_t get_Cursor();
  void put_Cursor(std::int32_t nNewValue);

  // The number of lines of the current page (0 for the empty page).
  std::int32_t get_LineCount();

  // Read: the line the cursor is in (a cursor on the CR of a break belongs
  // to the line before, on the LF to the next); 0 on the empty page.
  // Write: line 1 puts the cursor at 1 on any page; line n > 1 puts it on
  // the LF ending line n - 1. ErrInvalidLineNumber for n < 1 or beyond the
  // last line. With the switch off, -1 or a number beyond the last line
  // moves to the last line when the page has two lines or more; otherwise
  // 9 (no line to move to, also for 0) or 5 (n below -1) is raised.
  std::int32_t get_LineNumber();
  void put_LineNumber(std::int32_t nLineNumber);

  // Line `nLineNumber` (the cursor's line when below 1) of the page, or of
  // the last extraction with `bUseLastExtraction`, without its CR LF. The
  // line number always comes from the page cursor. Pulls first. Changes
  // nothing. ErrInvalidLineNumber when there is no such line (switch off:
  // returns "").
  String FetchLine(std::int32_t nLineNumber = -1, bool bUseLastExtraction = false);

  // Inserts `sText` so that it begins at position `nCursor` (the cursor when
  // 0 or omitted); a position beyond the end appends. The cursor keeps its
  // value. Pushes afterwards; ignores Protect. Error 5 for a negative
  // position.
  void InsertText(const String& sText, std::int32_t nCursor = 0);

  // Returns the text between two points of the page, both inclusive, stores
  // it as LastExtraction and moves the cursor to its start. Pulls first.
  // Start s from `vFirstPoint`: an Integer or Long is the position; a string
  // is searched (case-sensitively, from the cursor with `bStartFromCursor`,
  // else from 1) and s is the first character after it (0 when it does not
  // occur); any other type gives 0. End e from `vSecondPoint`: an Integer or
  // Long is the position; a string is searched from s + 1 and e is the last
  // character before it (-1 when it does not occur); any other type gives
  // 0. An empty search string occurs at the search start, or nowhere when
  // the start lies beyond the page. The bounds are checked first; a pair
  // within them with s = 0 or e = 0 returns "" and changes nothing (so an
  // end of 0 after a start above 0 is out of bounds). Errors: 13 (through RaiseLibraryError, so switch-dependent)
  // when a point is an array (switch off: it counts as another type);
  // ErrParameterOutOfBounds unless 0 <= s <= e <= length. With the switch
  // off an out-of-bounds pair is still extracted: a start beyond the text
  // gives "", an end beyond it is cut at the end, an end one below the start
  // gives "", and a start below 1 or an end further below the start raises
  // 5; in these cases LastExtraction and the cursor are set as usual.
  // Error 5 as well when a string end point follows a start below 0.
  String ExtractText(const Variant& vFirstPoint, const Variant& vSecondPoint, bool bStartFromCursor = false);

  // The text of the last extraction (also replaced by Replace with
  // bUseLastExtraction, emptied by Clear). Belongs to the object, not to a
  // page.
  String get_LastExtraction();

  // -------------------------------------------------------------------------
  // Search and replace: literal text, compared exactly or (with
  // bCaseSensitive false) in upper case. The searched text is the current
  // page, or the last extraction with bUseLastExtraction; positions refer to
  // the searched text. Searches run at memory speed; a case-insensitive
  // search upper-cases the searched text once per call.

  // Counts and lists the non-overlapping occurrences of each element of
  // `vText` (one value or an array of values, each converted to text) from
  // the cursor (with `bStartFromCursor`, unless searching the last
  // extraction) or from 1. Returns an array (lower bound 0) of
  // KivSSLookForResults records, one per element found, in element order;
  // empty texts and texts not found give no record. Changes nothing.
  // 94/13/438 when an element cannot become text.
  SafeArray LookFor(const Variant& vText, bool bCaseSensitive = true, bool bStartFromCursor = true,
                    bool bUseLastExtraction = false);

  // Moves the cursor to the next occurrence of `sSearchFor` and returns its
  // position, or returns 0 and leaves everything as it was. Downwards the
  // search starts at the cursor (or 1); upwards it finds the match whose
  // last character lies at or before the cursor (or the last match of the
  // text) and nearest to it. An empty `sSearchFor` continues the previous
  // search (LastSearchText) after moving the cursor one position on; with
  // no previous search it returns 0. A successful Find sets the flag that
  // lets a following Replace with an empty search text replace this match.
  std::int32_t Find(const String& sSearchFor = u"", bool bStartFromCursor = true, bool bCaseSensitive = true,
                    bool bUseLastExtraction = false, SearchDirectionEnum eSearchDirection = tarvo_SearchDown);

  // Replaces the next occurrence of `sSearchFor` (all non-overlapping ones
  // from the start to the end of the text in the search direction with
  // `bReplaceAll`) by `sReplaceWith` and returns the number replaced. The
  // start is as for Find; upwards from the cursor it includes a match that
  // Find left under the cursor. An empty `sSearchFor` reuses the previous
  // search text. The new text is built in one buffer of its final size and
  // stored in the page (then pushed) or, with `bUseLastExtraction`, in
  // LastExtraction. The cursor moves just after the last replacement made
  // (downwards) or the one nearest the beginning (upwards); nothing moves
  // when nothing is replaced. ErrDirectStringAccess while Protect is on
  // (switch off: returns 0, nothing changes). Directions other than
  // tarvo_SearchUp search downwards.
  std::int32_t Replace(const String& sSearchFor = u"", const String& sReplaceWith = u"",
                       bool bStartFromCursor = true, bool bCaseSensitive = true, bool bReplaceAll = false,
                       bool bUseLastExtraction = false, SearchDirectionEnum eSearchDirection = tarvo_SearchDown);

  // -------------------------------------------------------------------------
  // Files. A file holds exactly the text of one page, one Windows-1252 byte
  // per character, with no header, byte-order mark or line-end conversion.
  // File names are UTF-8 paths of the file system seam (GetFileSystem()).

  // Replaces the current page's text with the file's text, or appends it
  // with `bAppend`, then pushes. Returns Empty. The page changes only after
  // the whole file has been read. Errors: ErrDirectStringAccess while
  // Protect is on; 53 "File not found" (through RaiseLibraryError) when the
  // path names nothing; with the switch off either failure loads nothing and
  // returns normally (the page is still pushed). A folder (75), an
  // unreadable file (70) and other file-system failures raise their runtime
  // error whatever the switch says. (bAppend is passed by reference on the
  // automation interface and never changed.)
  Variant Load(const String& sFileName, bool bAppend = false);

  // Writes the current page's text (as it is: no pull, Protect ignored) to
  // the file, or after the file's bytes with `bAppend` (creating it when
  // missing). Without `bAppend` the text goes to a temporary file in the
  // same folder that is then renamed over the target, so a failure leaves
  // the old file whole. A character outside the code page is written as
  // '?'. Returns Empty. An empty name raises 52; file-system failures (a
  // folder 75, a read-only file or folder 70, a missing folder 76, a full
  // disk 61, ...) raise their runtime error. Changes nothing in the object.
  Variant Save(const String& sFileName, bool bAppend = false);

  // The internal version "2.0"; with `bShow` the version report is shown
  // first (see VersionReport).
  String Version(bool bShow = false);

  // -------------------------------------------------------------------------
  // TarvoStdInterface, as the view of StdInterface() calls it. Path reads ""
  // and ignores writes. Section is the current page's name; writing it
  // selects the first page of exactly that name (case-sensitive) through
  // Page, or adds one through AddPage(s, true); an empty name does nothing.
  // Both go through the public members, so single-page mode raises
  // ErrSinglePageMode. SetValue and GetValue forward to the class's own,
  // GetValue with detection on and "" for a missing field.
  void TarvoStdInterface_put_Path(const String& sPath);
  String TarvoStdInterface_get_Path();
  void TarvoStdInterface_put_Section(const String& sSection);
  String TarvoStdInterface_get_Section();
  bool TarvoStdInterface_SetValue(const String& sFieldName, const Variant& vValue,
                                  const String& sDelimiter = u"\t");
  Variant TarvoStdInterface_GetValue(const String& sFieldName, const String& sDelimiter = u"\t");
  Variant TarvoStdInterface_Version(bool bShow = false);

  // -------------------------------------------------------------------------
  // C++ only (not on the automation interface).

  // The current page's text as stored, without pulling or copying. Valid
  // until the next call that changes the store.
  const String& PageText() const { return page_texts_[current_ - 1]; }

 private:
  String& CurrentText() { return page_texts_[current_ - 1]; }
  const std::shared_ptr<Services> services_;

  // Field machinery on a page text (labels as their names).
  bool FieldExists(StringView page, StringView name);
  String SSParseValue(StringView page, StringView name);
  void SSAddValue(String& page, StringView name, StringView value);
  void SSEditValue(String& page, StringView name, StringView value);
  void SSDeleteValue(String& page, StringView name);
  // Raises ErrIllegalCharacters for each text holding one of the four fixed
  // tag texts (never the current tags); returns false when one did (the
  // raise switch being off).
  bool ValidateString(std::initializer_list<StringView> texts);
  // The 0-based start of the field and the end just after its OuterTagEnd;
  // raises 5 when the field has no end.
  std::pair<std::size_t, std::size_t> FieldSpan(StringView page, StringView name);

  // Binding: pull and push when bound with a mode 1 to 5 and not already
  // under way on this object.
  void UpdateFromBoundObject();
  void UpdateBoundObject();
  bool MirrorsProperty() const { return bound_ && bind_mode_ >= 1 && bind_mode_ <= 5; }

  // The searched text of Find/Replace/LookFor.
  const String& SearchedText(bool use_last_extraction) {
    return use_last_extraction ? last_extraction_ : CurrentText();
  }

  String outer_start_;
  String outer_end_;
  String inner_start_;
  String inner_end_;
  std::vector<String> page_texts_;
  std::vector<String> page_names_;
  std::int32_t current_ = 1;  // 1-based
  bool multi_page_ = true;
  bool saved_multi_page_ = false;
  String encryption_key_;
  bool protect_ = false;
  Ref<Object> bound_;
  std::int32_t bind_mode_ = tarvo_BindModeNone;
  std::int32_t cursor_ = 0;
  String last_extraction_;
  String last_search_text_;
  bool last_find_matched_ = false;
  String toggle_values_;
  String toggle_delimiter_;
  bool pulling_ = false;  // re-entrancy guards of the binding
  bool pushing_ = false;
};

}  // namespace tarvo2

#endif  // TARVO2_STORAGE_STRING_H_
