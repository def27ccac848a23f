// KivRegistryKey and SubKeysCollection: an object view of one registry key,
// its values and its subkeys.
//
// A KivRegistryKey names one key by a root (RootKey) and a key path below it
// (KeyName). Assigning KeyName creates the key; SetValue and GetValue move
// texts, 32-bit numbers and arrays (joined at a delimiter, see codec.h)
// between the client and the key; SubKeys presents the key's subkeys as
// KivRegistryKey objects. Every registry call goes to the registry store of
// the object's context (Services::registry_store(), see services.h); key handles are held only inside one
// call. The result code of the latest recorded store call is kept in
// ErrorState; the codes 1-8, 87 and 259 also raise a library error:
//
//   1 ErrBadDb           2 ErrBadKey           3 ErrCantOpenKey
//   4 ErrCantReadKey     5 ErrCantWriteKey     6 ErrOutOfMemory
//   7 ErrArenaTrashed    8 ErrAccessDenied    87 ErrInvalidParameters
//   259 ErrNoMoreItems
//
// Every other code (0, 234 more data, the store's own 1009-1018 failures of
// a corrupt, unopenable, unreadable, read-only or locked database) is only
// recorded. So a write to a read-only database makes SetValue return true
// with ErrorState 1013, and raises nothing.
//
// Text crosses the store boundary in the Windows-1252 code page. A key path
// or value name that contains U+0000 or a character the code page cannot
// represent is refused before any store call with result code 87 (so it
// raises ErrInvalidParameters): it would otherwise silently name another
// key or value. Text data converts unrepresentable characters to '?'.
//
// Errors follow the library's rules (error.h, library_errors.h): each
// procedure adds "KivRegistryKey.<label>" or "SubKeysCollection.<label>" to
// the source chain, and library errors are raised only while the raise
// switch is on. With the switch off each procedure goes on as documented.
//
// Lifetime. A key holds its SubKeysCollection; the collection holds its
// entries; an entry refers to its owner collection weakly, and a collection
// refers to its parent key by a non-owning pointer that the key clears when
// it is destroyed (the collection then keeps the parent's root and key name
// as they were, so it stays usable). There are no reference cycles: every
// object is destroyed as soon as the client lets go of it.
//
// Invalidation. DeleteKey and SubKeysCollection::Refresh invalidate key
// objects for good. Every member of an invalidated key except Invalidated,
// Version and the interface forwarders raises ErrObjectInvalidated (10026)
// with the label "KivRegistryKey.CheckState" under its own. With the raise
// switch off an invalidated key never reaches the registry: RootKey and
// KeyName assignments are ignored, SetValue writes nothing and returns true,
// GetValue returns its default (the missing-argument marker when none was
// given), DeleteValue and DeleteKey do nothing, GetValueNames returns an
// empty array, and SubKeys gives an empty collection to which Add adds
// nothing. ErrorState then keeps its value.
//
// Objects are used by one thread at a time.
#ifndef TARVO2_REGISTRY_KEY_H_
#define TARVO2_REGISTRY_KEY_H_

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

#include "tarvo2/dispatch.h"
#include "tarvo2/export.h"
#include "tarvo2/registry_store.h"
#include "tarvo2/std_interface.h"

namespace tarvo2 {

// The four predefined roots. The tarvo_ names are the library's constants;
// the HKEY_ names are the same values under the names that also appear in
// path texts ("HKEY_CURRENT_USER\Software\...").
enum RegRootKeyEnum : std::int32_t {
  tarvo_HKEY_CLASSES_ROOT = static_cast<std::int32_t>(0x80000000u),   // -2147483648
  tarvo_HKEY_CURRENT_USER = static_cast<std::int32_t>(0x80000001u),   // -2147483647
  tarvo_HKEY_LOCAL_MACHINE = static_cast<std::int32_t>(0x80000002u),  // -2147483646
  tarvo_HKEY_USERS = static_cast<std::int32_t>(0x80000003u),          // -2147483645
  HKEY_CLASSES_ROOT = tarvo_HKEY_CLASSES_ROOT,
  HKEY_CURRENT_USER = tarvo_HKEY_CURRENT_USER,
  HKEY_LOCAL_MACHINE = tarvo_HKEY_LOCAL_MACHINE,
  HKEY_USERS = tarvo_HKEY_USERS,
};

// The root's name in path texts, or "" for a value that is not a root.
TARVO2_EXPORT String RootKeyName(RegRootKeyEnum root);

class SubKeysCollection;

class TARVO2_EXPORT KivRegistryKey : public Object {
 public:
  // A new key object in `services` (the default context when null):
  // HKEY_CURRENT_USER, no key name, ErrorState 0. Makes no registry call;
  // every registry call goes to the context's registry store.
  explicit KivRegistryKey(std::shared_ptr<Services> services = Services::Default());
  ~KivRegistryKey() override;
  static Ref<KivRegistryKey> Create(std::shared_ptr<Services> services = Services::Default()) {
    return MakeRef<KivRegistryKey>(std::move(services));
  }
  // The context the object works in (its creator's for objects that
  // another object makes).
  const std::shared_ptr<Services>& services() const { return services_; }

  // Class name "KivRegistryKey", creatable; members in slot order: RootKey
  // (Let, Get), KeyName (Let, Get), Value (Get, Let; default member),
  // ErrorState, SubKeys, IsOwned, Version, ErrorStateClear, SetValue,
  // GetValue, DeleteValue, DeleteKey, GetValueNames, Invalidated.
  static const TypeInfo& Info();
  const TypeInfo& GetTypeInfo() const override { return Info(); }

  // "KivRegistryKey" gives this object, "TarvoStdInterface" a view that
  // forwards to the TarvoStdInterface_* members below; anything else none.
  Ref<Object> QueryInterface(StringView interface_name) override;
  Ref<TarvoStdInterface> StdInterface();

  // -------------------------------------------------------------------------
  // Identity. Each can be assigned once; later assignments are ignored
  // without error (only a Section change re-targets the key).

  // Stores the root, not validated: a value that is not a root makes every
  // store call fail with 6 (ErrOutOfMemory) or a similar mapped code.
  // Assigning it after KeyName does not move or create the key.
  void put_RootKey(RegRootKeyEnum eNewValue);
  RegRootKeyEnum get_RootKey();

  // Stores the path unchanged (not trimmed) and creates the key, with any
  // missing keys on its path, under the current root; the outcome is in
  // ErrorState (a path deeper than 512 levels or with a component longer
  // than 255 characters records 87, a leading "\" records 161). An empty
  // path is ignored.
  void put_KeyName(const String& sNewValue);
  String get_KeyName();

  // -------------------------------------------------------------------------
  // Values.

  // The value of the latest SetValue or GetValue (as given, or as decoded);
  // does not read the registry.
  Variant get_Value();
  // A store object of this library is imported (import.h: ImportIfStore). Any other
  // value is written with SetValue(last value name, value, last delimiter);
  // before any SetValue or GetValue that name is "", which raises
  // ErrZeroLengthFieldName.
  void put_Value(const Variant& vNewValue);

  // The result code of the latest recorded store call (0 after success,
  // -1 after reading a value of a type other than text or 32-bit number).
  std::int32_t get_ErrorState();
  void ErrorStateClear();

  // Writes the value `sValueName` (spaces trimmed from both ends). Integer,
  // Long and Boolean values are stored as 32-bit numbers (True as -1);
  // Double and String values, and one-dimensional arrays of Integer, Long,
  // Double, String, Boolean or Variant (joined with `sArrayDelim`), as
  // text. A Double is written as the shortest text that reads back as the
  // same Double, always with a full stop ("3.0", "1.5E+20"); an infinite or
  // NaN Double is refused with result code 87. Other values (Empty, Null,
  // Single, Currency, Date, Byte, objects, other arrays) and any value
  // before KeyName was assigned write nothing. Returns true when ErrorState
  // is nonzero afterwards (the write failed), false otherwise.
  // Remembers the name, delimiter and value for Value.
  // Errors: ErrZeroLengthFieldName for a blank name (switch off: the key's
  // default value is written); the codec's errors for an array without
  // elements (9) and the like; mapped store codes.
  // The first form takes the delimiter by reference as the automation
  // interface does (a missing marker stands for the tab); it is not changed.
  bool SetValue(const String& sValueName, const Variant& vValue, Variant& sArrayDelim);
  bool SetValue(const String& sValueName, const Variant& vValue, const String& sArrayDelim = u"\t");

  // Reads the value `sValueName` (not trimmed; "" is the default value) and
  // decodes it with PrepForGet. A key that does not exist (deleted by other
  // means since) is read through the null handle of the failed open, which
  // records 6 and raises ErrOutOfMemory; SetValue and DeleteValue do the
  // same. A value that reads as Empty (missing with
  // the switch off, of another type, unreadable) gives `vDefaultReturn`.
  // A missing value raises ErrBadKey unless `vDefaultReturn` was supplied
  // (is not the missing marker): then the default is returned, ErrorState
  // is 2 and the remembered name, delimiter and value stay as they were.
  Variant GetValue(const String& sValueName, const String& sArrayDelim = u"\t", bool bDetectArray = true,
                   bool bDetectNum = true, const Variant& vDefaultReturn = Variant::Missing());

  // Removes the value; a missing one records 2 and raises ErrBadKey. When it
  // is the remembered value name (letter case ignored), that name becomes ""
  // and the delimiter a tab. Always returns Empty.
  Variant DeleteValue(const String& sValueName);

  // The names of the key's values in creation order, lower bound 0; the
  // default value and names made only of spaces are not listed. A key that
  // cannot be opened gives an empty array and records nothing. A value with
  // more than 1,024 bytes of data or a name longer than 1,023 characters
  // ends the listing there, recording 234 (nothing raised).
  SafeArray GetValueNames();

  // -------------------------------------------------------------------------
  // Subkeys and deletion.

  // The collection of this key's subkeys, created and loaded on first use;
  // later registry changes show after Refresh. On a key without a key name
  // it lists the root's own subkeys.
  Ref<SubKeysCollection> get_SubKeys();
  // True while the object belongs to a SubKeysCollection that made it (the
  // collection still exists).
  bool get_IsOwned();
  // True once the object was invalidated; never raises.
  bool get_Invalidated();

  // Deletes the key. With bRecursive, deletes every subkey first, depth
  // first in the collection's order; without it a key with subkeys raises
  // ErrKeyHasSubkeys and nothing is deleted. Then the subkey collection is
  // emptied, the key deleted (a failure with a mapped code raises; the
  // object then stays valid and owned), the object removed from its owner
  // collection (found as the object itself, so a key name changed by a
  // section since does not matter), its names reset, and it is invalidated.
  void DeleteKey(bool bRecursive = false);

  // "2.0"; with bShow also shows the version report.
  String Version(bool bShow = false);

  // -------------------------------------------------------------------------
  // The TarvoStdInterface side. Path reads "<root name>\<KeyName>"; writing
  // it takes a leading root name followed by one of "/", "\", "|", "."
  // (letter case matters), cuts a file extension (a full stop among the
  // last four characters) and assigns the rest to KeyName. Section appends
  // a subkey to the key name (creating it), replaces it, or with "" returns
  // to the base key. SetValue and GetValue forward to the members above
  // (GetValue with both detections on and "" as default).
  void TarvoStdInterface_put_Path(const String& sPath);
  String TarvoStdInterface_get_Path();
  void TarvoStdInterface_put_Section(const String& sSection);
  String TarvoStdInterface_get_Section();
  bool TarvoStdInterface_SetValue(const String& sFieldName, const Variant& vValue,
                                  const String& sDelimiter = u"\t");
  Variant TarvoStdInterface_GetValue(const String& sFieldName, const String& sDelimiter = u"\t");
  Variant TarvoStdInterface_Version(bool bShow = false);

 private:
  friend class SubKeysCollection;
  const std::shared_ptr<Services> services_;

  // Raises ErrObjectInvalidated on an invalidated object; returns false
  // when the object is invalidated (the switch being off), so that the
  // caller stops before it reaches the registry.
  bool CheckState();

  // The access layer (registry_access.cpp).
  void put_ErrorState(std::int32_t code);
  void CreateNewKey(RegRootKeyEnum root, const String& key_path);
  void SetKeyValue(RegRootKeyEnum root, const String& key_path, const String& value_name, const Variant& value,
                   std::uint32_t type);
  // Writes through RegistryStore::SetValueAt (open, write and close in one
  // step of the store).
  std::int32_t SetValueEx(RegistryStore& store, RegKey root, const std::string& key_path,
                          const String& value_name, std::uint32_t type, const Variant& value);
  Variant QueryValue(RegRootKeyEnum root, const String& key_path, const String& value_name);
  // Reads through RegistryStore::QueryValueAt: the open, the read and the
  // close of the key `key_path` below `root` in one step of the store.
  std::int32_t QueryValueEx(RegistryStore& store, RegKey root, const std::string& key_path,
                            const String& value_name, Variant& value);

  // The private accessors behind the common interface.
  String get_Path();
  void put_Path(const String& path);
  String get_Section();
  void put_Section(const String& section);

  // Links to the subkeys collection.
  void putref_OwnerCollection(SubKeysCollection* owner);
  void put_Invalidated(bool value);

  RegRootKeyEnum root_ = tarvo_HKEY_CURRENT_USER;
  bool root_set_ = false;
  String key_name_;
  bool key_name_set_ = false;
  Variant last_value_;
  String last_value_name_;
  String last_delimiter_;
  std::int32_t error_state_ = 0;
  bool section_change_ = false;
  bool section_appended_ = false;
  bool invalidated_ = false;
  Ref<SubKeysCollection> subkeys_;
  // The collection that made this object. Weak: the collection owns its
  // entries, not the other way round.
  std::weak_ptr<SubKeysCollection*> owner_;
};

// The subkeys of one key as KivRegistryKey objects: an ordered list keyed
// by subkey name (letter case ignored), positions from 1. Obtained only
// from KivRegistryKey::get_SubKeys; class name "SubKeysCollection", not
// creatable. Members in slot order: Refresh, Add, Item (default member),
// Count, NewEnum (hidden, dispatch identity -4).
class TARVO2_EXPORT SubKeysCollection : public Object {
 public:
  ~SubKeysCollection() override;

  // An empty collection in `services` that belongs to no key: it lists
  // nothing and Add creates nothing. (The class table needs a creator;
  // clients cannot create the class by ProgID.)
  static Ref<SubKeysCollection> Create(std::shared_ptr<Services> services = Services::Default());

  // The context of the collection: that of the key that made it. Its
  // entries are made in it too.
  const std::shared_ptr<Services>& services() const { return services_; }

  static const TypeInfo& Info();
  const TypeInfo& GetTypeInfo() const override { return Info(); }

  // Invalidates every entry and reloads the list from the registry with new
  // objects.
  void Refresh();

  // The entry named `sSubKeyName` (letter case ignored); when there is
  // none, creates the registry key below the parent and appends a new,
  // owned entry. Never raises: a key the store cannot create still gets its
  // entry (its ErrorState holds the code). A name that is empty or contains
  // "\" would not name one immediate subkey (it would name the parent
  // itself, or an entry that could never be removed again), so it creates
  // nothing and gives an empty Ref, as does a collection whose parent key
  // was invalidated.
  Ref<KivRegistryKey> Add(const String& sSubKeyName);

  // A String selects the entry of that name (letter case ignored); a number
  // (or Boolean) selects by position, 1 to Count, after rounding to a Long.
  // Errors: 5 for a name not in the list, 9 for a position out of range,
  // 13 for any other kind of value.
  Ref<KivRegistryKey> get_Item(const Variant& vIndexKey);
  std::int32_t get_Count();
  // An enumerator over a snapshot of the entries, in order.
  Ref<Enumerator> NewEnum();

  // One entry: the name that Add received and the key object.
  struct Entry {
    String name;
    Ref<KivRegistryKey> key;
  };

  // C++ iteration over the entries in order (for (auto& key : *subkeys)).
  // Do not add, remove or refresh while iterating.
  class const_iterator {
   public:
    using value_type = Ref<KivRegistryKey>;
    using difference_type = std::ptrdiff_t;
    using reference = const Ref<KivRegistryKey>&;
    using pointer = const Ref<KivRegistryKey>*;
    using iterator_category = std::forward_iterator_tag;
    const_iterator() = default;
    reference operator*() const { return it_->key; }
    pointer operator->() const { return &it_->key; }
    const_iterator& operator++() { ++it_; return *this; }
    const_iterator operator++(int) { const_iterator t = *this; ++it_; return t; }
    friend bool operator==(const const_iterator& a, const const_iterator& b) { return a.it_ == b.it_; }

   private:
    friend class SubKeysCollection;
    explicit const_iterator(std::vector<Entry>::const_iterator it) : it_(it) {}
    std::vector<Entry>::const_iterator it_;
  };
  const_iterator begin() const { return const_iterator(entries_.begin()); }
  const_iterator end() const { return const_iterator(entries_.end()); }

 private:
  friend class KivRegistryKey;

  explicit SubKeysCollection(std::shared_ptr<Services> services);

  // Empties the list and fills it with the subkeys of `parent` (or of the
  // remembered parent when null), in the store's order. Opening the parent
  // key or listing its subkeys fails quietly: the list stays short.
  void LoadSubKeys(KivRegistryKey* parent);
  // Empties the list; nothing is invalidated.
  void Clear();

  // Called by the parent key's destructor: keeps its root and key name
  // (when the parent is still valid; an invalidated parent leaves the
  // collection without a location).
  void DetachParent(const KivRegistryKey& parent);
  // Removes `key` itself (not by name) from the list, when it is there.
  void RemoveEntry(const KivRegistryKey* key);
  // The parent's location, or false when there is none to use.
  bool ParentLocation(RegRootKeyEnum* root, String* key_name) const;
  std::size_t IndexOf(const Variant& index_key) const;

  const std::shared_ptr<Services> services_;
  std::vector<Entry> entries_;
  KivRegistryKey* parent_ = nullptr;  // not owned; cleared by the parent's destructor
  bool has_location_ = false;         // parent_ or the detached copy below is valid
  RegRootKeyEnum detached_root_ = tarvo_HKEY_CURRENT_USER;
  String detached_key_name_;
  // Entries hold a weak_ptr to this token; it dies with the collection.
  std::shared_ptr<SubKeysCollection*> self_token_;
};

}  // namespace tarvo2

#endif  // TARVO2_REGISTRY_KEY_H_
