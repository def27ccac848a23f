// KivINIFileHandler: an object view of one section of an INI file.
//
// The object reads and writes one INI (profile) file through the platform's
// profile store (tarvo2/profile_store.h), always working on one section of
// it, Section ("DEFAULT" at first). A field is a key of that section. Values
// are handled as by the other stores: a value may be text, a number or a
// one-dimensional array; an array is stored as its elements' texts joined by
// a delimiter (a tab by default), and on reading, arrays and numbers are
// detected again (PrepForSet and PrepForGet of tarvo2/codec.h).
//
// Conventions of this interface:
//  - Every member except DeleteFile runs under the standard handler
//    (tarvo2::Guard): an error leaving it carries one more source line,
//    "KivINIFileHandler.<label>". The label is the member's name with
//    " (Get)" or " (Let)" for property accessors, except that writing Value
//    is labelled "Import (Let)" and the members of the common interface are
//    labelled "TarvoStdInterface_<member>" (see below). The access to the
//    file adds a line of its own before that: "KivINIFileHandler.
//    INIGetValue", "...INISetValue", "...INIGetSections", "...INIGetFields",
//    "...INIDeleteValue" or "...INIDeleteSection".
//  - Two failures are the object's own: ErrZeroLengthFieldName (10022) from
//    SetValue and ErrIllegalCharacters (10023) from Section (Let). They go
//    through RaiseLibraryError and so depend on the raise switch of the
//    object's context (Services::raise_errors); each comment says what the member does when
//    the switch is off. Runtime errors (6, 9, 13, 94, ...) are raised
//    whatever the switch says.
//  - What the profile store reports is not an error here: a missing file,
//    section or key reads as missing, and a write that the store refuses
//    (a folder that does not exist, a read-only file, a path naming a
//    folder, a name or value with a line break or a NUL character, a key
//    that contains '=' or begins with ';' or '[') leaves the file as it
//    was and returns normally. LastProfileError() tells a C++ caller what
//    the store said about the latest access.
//  - File paths are native POSIX paths. A path without '/' names a file in
//    the profile store's configuration folder ($XDG_CONFIG_HOME or
//    ~/.config); any other path is used as it is, relative to the current
//    folder unless it begins with '/'.
//  - Text reaches the file as Windows-1252 (tarvo2/codepage.h): a character
//    of a section name, key name or value that the code page cannot
//    represent is written as '?'. Values are written whole, of any length,
//    but every read passes the store one buffer of 1,024 characters: a
//    value comes back as at most its first 1,023 characters, and a listing
//    whose names (each with its NUL) take 1,023 characters or more comes
//    back cut inside its last name, which then also loses its last
//    character (see GetSectionNames). Imports from an INI file read the same
//    way. Blanks at both ends of a value are dropped on reading, and one
//    pair of matching outer quotes ("..." or '...') is removed, as the
//    profile functions do.
//  - An object is used by one thread at a time. Several objects, in this
//    and other processes, may work on the same file: every write is a
//    locked, atomic read-modify-write of the profile store, and every read
//    sees the file as it is at that moment.
#ifndef TARVO2_INI_FILE_H_
#define TARVO2_INI_FILE_H_

#include <cstdint>

#include "tarvo2/dispatch.h"
#include "tarvo2/export.h"
#include "tarvo2/std_interface.h"
#include "tarvo2/variant.h"

namespace tarvo2 {

class TARVO2_EXPORT KivINIFileHandler : public Object {
 public:
  // A new object in `services` (the default context when null): Path unset
  // and empty, Section "DEFAULT", Value Empty, no field name or delimiter
  // remembered, and HostFolder() taken from the context's host executable
  // (Services::host_module()). Label "Class_Initialize".
  explicit KivINIFileHandler(std::shared_ptr<Services> services = Services::Default());
  static Ref<KivINIFileHandler> Create(std::shared_ptr<Services> services = Services::Default()) {
    return MakeRef<KivINIFileHandler>(std::move(services));
  }
  // The context the object works in (its creator's for objects that
  // another object makes).
  const std::shared_ptr<Services>& services() const { return services_; }

  // The type information of the automation interface (class name
  // "KivINIFileHandler", creatable). Members in slot order: Path (Let),
  // Path (Get), Section (Let), Section (Get), Value (Get), Value (Let),
  // Version, SetValue, GetValue, GetSectionNames, GetFieldNames,
  // DeleteFile, DeleteSection, DeleteField. Value is the default member.
  // SetValue's sArrayDelim is declared as a String passed by reference; it
  // is never changed.
  static const TypeInfo& Info();
  const TypeInfo& GetTypeInfo() const override { return Info(); }

  // "KivINIFileHandler" gives this object, "TarvoStdInterface" a view that
  // forwards to the TarvoStdInterface_* members below; anything else none.
  Ref<Object> QueryInterface(StringView interface_name) override;
  Ref<TarvoStdInterface> StdInterface();

  // -------------------------------------------------------------------------
  // The file and the section.

  // The path of the INI file. Write-once: the first assignment stores the
  // text unchanged (not trimmed, not resolved, the empty text included) and
  // fixes the file for the object's whole life; every later assignment is
  // ignored without an error. Until then the path is empty, which names no
  // file: reads find nothing and writes are refused by the store.
  void put_Path(const String& sPath);
  String get_Path();

  // The section that SetValue, GetValue, GetFieldNames, DeleteField and
  // DeleteSection work on. Let trims spaces (U+0020 only) from both ends;
  // a text that is then empty selects "DEFAULT". A text holding '[' or ']'
  // raises ErrIllegalCharacters and leaves Section unchanged; with the
  // raise switch off the trimmed text is taken brackets and all. Section
  // names are matched by the store without regard to letter case.
  void put_Section(const String& sSection);
  String get_Section();

  // -------------------------------------------------------------------------
  // Values.

  // The result of the latest GetValue (Empty before the first), without
  // reading the file.
  Variant get_Value();

  // A store object of this library (import.h: ImportIfStore) is imported. Any other
  // value is written with SetValue(<field name of the latest SetValue or
  // GetValue>, vValue, <its delimiter>); before any SetValue or GetValue
  // that name is empty, so this raises ErrZeroLengthFieldName (source lines
  // "Tarvo2", "KivINIFileHandler.SetValue", "KivINIFileHandler.Import
  // (Let)"), and the initial delimiter is empty. Label "Import (Let)".
  void put_Value(const Variant& vValue);

  // Writes vValue to the field sFieldName of Section, creating the key, the
  // section and the file as needed, and always returns false. The name is
  // trimmed of spaces; an empty name raises ErrZeroLengthFieldName and
  // writes nothing (switch off: the empty name is passed on and the store
  // refuses it). The value is stored as PrepForSet(vValue, sArrayDelim)
  // converted to text: an array as its elements joined by sArrayDelim, a
  // number in the standard text form, a Boolean as "True"/"False", Empty
  // as "". Errors: 94 for Null, 9 for an array without elements, 6 for
  // array bounds outside -32768..32767, 13 for a value without text; the
  // file is then unchanged. Remembers the trimmed name and sArrayDelim for
  // Value (Let), also when the store refused the write.
  bool SetValue(const String& sFieldName, const Variant& vValue,
                const String& sArrayDelim = u"\t");

  // Reads the field sFieldName of Section. When the key does not exist (nor
  // its section, nor the file) returns vDefaultReturn unchanged (an
  // explicitly missing argument counts as the empty string). Otherwise
  // returns PrepForGet(text, sArrayDelim, bDetectArray, bDetectNum): an
  // array when bDetectArray and the delimiter occurs in the text (of Longs
  // or Doubles when bDetectNum and every part is numeric), a Double or Long
  // for numeric text when bDetectNum, else the text; an existing key with
  // an empty value gives "" whatever the default. The name is passed to the
  // store untrimmed (the store trims spaces from names itself).
  //
  // Absence is told apart by reading with a marker default,
  // "KivDefaultReturn_" followed by the text of a pseudo-random Single from
  // the random service (tarvo2/random.h), reseeded for every call. A stored
  // value that equals that marker exactly therefore reads as absent.
  //
  // A value longer than 1,023 characters is read as its first 1,023 (the
  // file keeps it whole); detection works on that text.
  //
  // Remembers the result (see get_Value), sFieldName and sArrayDelim.
  // Errors: 6 when numeric text overflows a Long; nothing is remembered.
  Variant GetValue(const String& sFieldName, const String& sArrayDelim = u"\t",
                   bool bDetectArray = true, bool bDetectNum = true,
                   const Variant& vDefaultReturn = Variant(String()));

  // -------------------------------------------------------------------------
  // Listings (arrays of Strings indexed from 0; an empty array, with no
  // elements, when there is nothing to list, the file is missing or the
  // path names a folder). Duplicate names are listed as often as they occur
  // in the file, each with its own spelling, in file order. The store fills
  // one buffer of 1,024 characters: when the names with one NUL after each
  // take 1,023 characters or more, the list holds the names that fit, the
  // last of them cut so that the text is 1,022 characters long, and that
  // last name then loses one more character (so names of 500 and 600
  // characters list as 500 and 520).

  // The names of all sections of the file.
  SafeArray GetSectionNames();
  // The names of the keys of Section.
  SafeArray GetFieldNames();

  // -------------------------------------------------------------------------
  // Deleting.

  // Deletes the file that Path names (a bare name inside the configuration
  // folder, as for every other member), when it exists. Never raises:
  // every failure (no such file, a folder, a read-only file, a file that
  // cannot be removed, a path with wildcards, which are not expanded) is
  // discarded and the file stays as it was. Path stays fixed, so a later write creates the
  // file again at the same place.
  void DeleteFile();

  // Deletes Section's header and key lines (comment lines inside it stay),
  // then selects "DEFAULT", forgets the remembered field name and sets the
  // remembered delimiter to a tab. A missing section or file is no error.
  void DeleteSection();

  // Deletes the key sFieldName (untrimmed; the store trims spaces) of
  // Section; a missing key is no error. When sFieldName equals the
  // remembered field name without regard to letter case, that name is
  // forgotten and the remembered delimiter becomes a tab.
  void DeleteField(const String& sFieldName);

  // "2.0"; with bShow true it first shows the version report (tarvo2/
  // std_interface.h) and returns once the user has closed it. Label
  // "Version".
  String Version(bool bShow = false);

  // -------------------------------------------------------------------------
  // TarvoStdInterface, as the view returned by StdInterface() calls it.

  // Resolves `sPath` against HostFolder() and assigns it to Path (so the
  // write-once rule applies). An empty text does nothing. Then:
  //  1. If the last four characters hold no '.', ".INI" is appended.
  //  2. A full path (beginning with '/') whose folder (the text up to and
  //     including its last '/') does not exist becomes HostFolder() + its
  //     file name; one whose folder exists stays as it is.
  //  3. A relative path p becomes HostFolder() + p when HostFolder() + its
  //     folder exists (a bare file name has the empty folder, so it lands in
  //     HostFolder()), otherwise HostFolder() + its file name.
  // The extension test looks only at the last four characters: "dir.d/c"
  // gets no ".INI". Label "TarvoStdInterface_Path (Let)".
  void TarvoStdInterface_put_Path(const String& sPath);
  String TarvoStdInterface_get_Path();
  void TarvoStdInterface_put_Section(const String& sSection);
  String TarvoStdInterface_get_Section();
  // SetValue(sFieldName, vValue, sDelimiter).
  bool TarvoStdInterface_SetValue(const String& sFieldName, const Variant& vValue,
                                  const String& sDelimiter = u"\t");
  // GetValue(sFieldName, sDelimiter, true, true, "").
  Variant TarvoStdInterface_GetValue(const String& sFieldName, const String& sDelimiter = u"\t");
  // Version(bShow) as a Variant holding the string.
  Variant TarvoStdInterface_Version(bool bShow = false);

  // -------------------------------------------------------------------------
  // C++ only (not part of the automation interface).

  // The folder of the host executable (GetHostModulePath(), whatever its
  // length) with its trailing '/', the base of relative paths given through
  // TarvoStdInterface; empty when the executable cannot be determined (relative paths then stay relative to
  // the current folder, and a bare name to the configuration folder).
  const String& HostFolder() const { return host_folder_; }

  // True once Path has been assigned.
  bool PathIsSet() const { return path_is_set_; }

  // The ProfileError code (tarvo2/profile_store.h) of the latest access of
  // this object to the file: 0 when it succeeded, 2 or 3 when a read found
  // no file or folder, 3, 5 or 87 when a write was refused. 0 before the
  // first access; DeleteFile does not change it.
  uint32_t LastProfileError() const { return last_profile_error_; }

 private:
  const std::shared_ptr<Services> services_;
  String path_;
  bool path_is_set_ = false;
  String section_;
  Variant last_value_;
  String last_field_name_;
  String last_delimiter_;
  String host_folder_;
  uint32_t last_profile_error_ = 0;
};

}  // namespace tarvo2

#endif  // TARVO2_INI_FILE_H_
