// KivRegistryKey: identity, values, the common interface and deletion.
#include "tarvo2/registry_key.h"

#include <vector>

#include "registry/registry_access.h"
#include "registry/store_adapter.h"
#include "tarvo2/codec.h"
#include "tarvo2/codepage.h"
#include "tarvo2/convert.h"
#include "tarvo2/import.h"
#include "tarvo2/library_errors.h"

namespace tarvo2 {

using registry_internal::kAccessRead;
using registry_internal::kAccessWrite;
using registry_internal::ScopedKey;
using registry_internal::ToStoreName;

namespace {

// The separators that may follow a root name in a path text, in the order
// they are tried.
constexpr char16_t kSeparators[] = {u'/', u'\\', u'|', u'.'};

constexpr RegRootKeyEnum kRoots[] = {tarvo_HKEY_CLASSES_ROOT, tarvo_HKEY_CURRENT_USER, tarvo_HKEY_LOCAL_MACHINE,
                                     tarvo_HKEY_USERS};

// The registry type a value is stored with: numbers for Integer, Long and
// Boolean; text for Double, String and the arrays the codec can join.
std::uint32_t StoredType(const Variant& v) {
  switch (v.Type()) {
    case VarType::kInteger:
    case VarType::kLong:
    case VarType::kBoolean:
      return kRegDword;
    case VarType::kDouble:
    case VarType::kString:
      return kRegSz;
    default:
      break;
  }
  if (v.IsArray()) {
    switch (v.ElementType()) {
      case VarType::kInteger:
      case VarType::kLong:
      case VarType::kDouble:
      case VarType::kString:
      case VarType::kBoolean:
      case VarType::kVariant:
        return kRegSz;
      default:
        break;
    }
  }
  return kRegNone;
}

// Resets a flag when the scope ends, also when an error leaves it.
class FlagScope {
 public:
  explicit FlagScope(bool& flag) : flag_(flag) { flag_ = true; }
  ~FlagScope() { flag_ = false; }
  FlagScope(const FlagScope&) = delete;
  FlagScope& operator=(const FlagScope&) = delete;

 private:
  bool& flag_;
};

}  // namespace

String RootKeyName(RegRootKeyEnum root) {
  switch (root) {
    case tarvo_HKEY_CLASSES_ROOT: return u"HKEY_CLASSES_ROOT";
    case tarvo_HKEY_CURRENT_USER: return u"HKEY_CURRENT_USER";
    case tarvo_HKEY_LOCAL_MACHINE: return u"HKEY_LOCAL_MACHINE";
    case tarvo_HKEY_USERS: return u"HKEY_USERS";
  }
  return String();
}


KivRegistryKey::KivRegistryKey(std::shared_ptr<Services> services)
    : services_(Services::OrDefault(std::move(services))) {}

KivRegistryKey::~KivRegistryKey() {
  if (subkeys_) subkeys_->DetachParent(*this);
}

const TypeInfo& KivRegistryKey::Info() {
  using K = KivRegistryKey;
  static const TypeInfo info =
      ClassBuilder<K>(u"KivRegistryKey")
          .Let(u"RootKey", &K::put_RootKey, u"The root key in which the registry key resides in",
               {P(u"eNewValue")})
          .Get(u"RootKey", &K::get_RootKey, u"The root key in which the registry key resides in")
          .Let(u"KeyName", &K::put_KeyName, u"The Key the KivRegistry Objectc reprisents", {P(u"sNewValue")})
          .Get(u"KeyName", &K::get_KeyName, u"The Key the KivRegistry Objectc reprisents")
          .Get(u"Value", &K::get_Value, u"")
          .Let(u"Value", &K::put_Value, u"", {P(u"vNewValue")})
          .Get(u"ErrorState", &K::get_ErrorState,
               u"Read only property that returns the error code returned from the API during a registry "
               u"read/write")
          .Get(u"SubKeys", &K::get_SubKeys,
               u"Collection of KivRegistryKey's reprisenting the SubKeys of a registry key")
          .Get(u"IsOwned", &K::get_IsOwned,
               u"Signifies whether or not the object belongs to another registry key's SubKeys collection")
          .Method(u"Version", &K::Version, u"Returns the internal version number given by the author for this Class",
                  {P(u"bShow", false)})
          .Method(u"ErrorStateClear", &K::ErrorStateClear, u"Clears the ErrorState propery")
          .Method(
              u"SetValue",
              [](K& self, const String& name, const Variant& value, Variant& delimiter) {
                return self.SetValue(name, value, delimiter);
              },
              u"Sets a value in the registry key",
              {P(u"sValueName"), P(u"vValue"), P(u"sArrayDelim", u"\t").Typed(VarType::kString)})
          .Method(u"GetValue", &K::GetValue, u"Gets a value from the registry key",
                  {P(u"sValueName"), P(u"sArrayDelim", u"\t"), P(u"bDetectArray", true), P(u"bDetectNum", true),
                   Opt(u"vDefaultReturn")})
          .Method(u"DeleteValue", &K::DeleteValue, u"Deletes a value in the registry key", {P(u"sValueName")})
          .Method(u"DeleteKey", &K::DeleteKey, u"Deletes the registry key", {P(u"bRecursive", false)})
          .Method(u"GetValueNames", &K::GetValueNames, u"Gets all the value names in the registry key")
          .Get(u"Invalidated", &K::get_Invalidated, u"")
          .Build();
  return info;
}

Ref<Object> KivRegistryKey::QueryInterface(StringView interface_name) {
  return internal::StoreQueryInterface(*this, interface_name, [this] {
    return std::make_shared<internal::RegistryKeyStore>(Ref<KivRegistryKey>(this));
  });
}

Ref<TarvoStdInterface> KivRegistryKey::StdInterface() {
  return RefCast<TarvoStdInterface>(QueryInterface(u"TarvoStdInterface"));
}

// ---------------------------------------------------------------------------
// Identity.

void KivRegistryKey::put_RootKey(RegRootKeyEnum eNewValue) {
  Guard(u"KivRegistryKey.RootKey (Let)", [&] {
    if (!CheckState()) return;
    if (root_set_ && !section_change_) return;  // assigned once
    root_ = eNewValue;
    root_set_ = true;
  });
}

RegRootKeyEnum KivRegistryKey::get_RootKey() {
  return Guard(u"KivRegistryKey.RootKey (Get)", [&] {
    CheckState();
    return root_;
  });
}

void KivRegistryKey::put_KeyName(const String& sNewValue) {
  Guard(u"KivRegistryKey.KeyName (Let)", [&] {
    if (!CheckState()) return;
    if (key_name_set_ && !section_change_) return;  // assigned once
    if (sNewValue.empty()) return;
    String path = sNewValue;
    key_name_ = path;
    CreateNewKey(root_, path);
    key_name_set_ = true;
  });
}

String KivRegistryKey::get_KeyName() {
  return Guard(u"KivRegistryKey.KeyName (Get)", [&] {
    CheckState();
    return key_name_;
  });
}

// ---------------------------------------------------------------------------
// Values.

Variant KivRegistryKey::get_Value() {
  return Guard(u"KivRegistryKey.Value (Get)", [&] {
    CheckState();
    return last_value_;
  });
}

void KivRegistryKey::put_Value(const Variant& vNewValue) {
  Guard(u"KivRegistryKey.Import (Let)", [&] {
    if (!CheckState()) return;
    if (ImportIfStore(*services_, *this, vNewValue)) return;
    String name = last_value_name_;
    String delimiter = last_delimiter_;
    SetValue(name, vNewValue, delimiter);
  });
}

std::int32_t KivRegistryKey::get_ErrorState() {
  return Guard(u"KivRegistryKey.ErrorState (Get)", [&] {
    CheckState();
    return error_state_;
  });
}

void KivRegistryKey::ErrorStateClear() {
  Guard(u"KivRegistryKey.ErrorStateClear", [&] {
    if (CheckState()) error_state_ = 0;
  });
}

bool KivRegistryKey::SetValue(const String& sValueName, const Variant& vValue, Variant& sArrayDelim) {
  String delimiter = Guard(u"KivRegistryKey.SetValue", [&] {
    return sArrayDelim.IsMissing() ? String(u"\t") : ToString(sArrayDelim);
  });
  return SetValue(sValueName, vValue, delimiter);
}

bool KivRegistryKey::SetValue(const String& sValueName, const Variant& vValue, const String& sArrayDelim) {
  return Guard(u"KivRegistryKey.SetValue", [&] {
    if (!CheckState()) return true;  // nothing written
    String name = Trim(sValueName);
    if (name.empty()) RaiseLibraryError(*services_, ErrZeroLengthFieldName);
    ErrorStateClear();
    std::uint32_t type = key_name_set_ ? StoredType(vValue) : kRegNone;
    String delimiter = sArrayDelim;
    Variant value = vValue;
    last_value_name_ = name;
    last_delimiter_ = delimiter;
    last_value_ = value;
    Variant encoded = PrepForSet(value, delimiter);
    SetKeyValue(root_, key_name_, name, encoded, type);
    return error_state_ != 0;
  });
}

Variant KivRegistryKey::GetValue(const String& sValueName, const String& sArrayDelim, bool bDetectArray,
                                 bool bDetectNum, const Variant& vDefaultReturn) {
  return Guard(u"KivRegistryKey.GetValue", [&]() -> Variant {
    if (!CheckState()) return vDefaultReturn;
    String name = sValueName;
    String delimiter = sArrayDelim;
    Variant fallback = vDefaultReturn;
    try {
      ErrorStateClear();
      Variant stored = QueryValue(root_, key_name_, name);
      Variant result = PrepForGet(stored, delimiter, bDetectArray, bDetectNum);
      if (result.IsEmpty()) result = fallback;
      last_delimiter_ = delimiter;
      last_value_name_ = name;
      last_value_ = result;
      return result;
    } catch (const Error& e) {
      // A value that does not exist gives the default the caller supplied.
      if (e.Number() == LibraryErrorNumber(ErrBadKey) && !fallback.IsMissing()) return fallback;
      throw;
    }
  });
}

Variant KivRegistryKey::DeleteValue(const String& sValueName) {
  return Guard(u"KivRegistryKey.DeleteValue", [&] {
    if (!CheckState()) return Variant();
    String value_name = sValueName;
    ScopedKey key(services_->registry_store());
    std::string path, name;
    std::int32_t rc = kErrorInvalidParameter;
    if (ToStoreName(key_name_, services_->code_page(), &path) && ToStoreName(value_name, services_->code_page(), &name)) {
      // The open's result shows in the delete's result (6 on a null handle).
      key.store().OpenKey(static_cast<RegKey>(root_), path.c_str(), kAccessWrite, key.out());
      rc = key.store().DeleteValue(key.get(), name.c_str());
    }
    put_ErrorState(rc);
    if (EqualsNoCase(value_name, last_value_name_)) {
      last_value_name_.clear();
      last_delimiter_ = u"\t";
    }
    key.Close();
    return Variant();
  });
}

SafeArray KivRegistryKey::GetValueNames() {
  return Guard(u"KivRegistryKey.GetValueNames", [&] {
    std::vector<String> names;
    if (!CheckState()) return SafeArray::OfStrings(names);
    std::string path;
    if (!ToStoreName(key_name_, services_->code_page(), &path)) return SafeArray::OfStrings(names);
    ScopedKey key(services_->registry_store());
    if (key.store().OpenKey(static_cast<RegKey>(root_), path.c_str(), kAccessRead, key.out()) != kErrorSuccess)
      return SafeArray::OfStrings(names);
    // Fixed buffers as the listing has always used: a longer name or more
    // data ends the listing with 234.
    constexpr std::uint32_t kNameBuffer = 1024, kDataBuffer = 1024;
    std::vector<char> name(kNameBuffer);
    std::vector<std::uint8_t> data(kDataBuffer);
    std::int32_t rc = kErrorSuccess;
    for (std::uint32_t index = 0;; ++index) {
      std::uint32_t length = kNameBuffer, size = kDataBuffer, type = 0;
      rc = key.store().EnumValue(key.get(), index, name.data(), &length, &type, data.data(), &size);
      if (rc != kErrorSuccess) break;
      String text = FromCodePage(std::string_view(name.data(), length), services_->code_page());
      if (!Trim(text).empty()) names.push_back(std::move(text));
    }
    if (rc != kErrorNoMoreItems) put_ErrorState(rc);
    key.Close();
    return SafeArray::OfStrings(std::move(names));
  });
}

// ---------------------------------------------------------------------------
// Subkeys, ownership and deletion.

Ref<SubKeysCollection> KivRegistryKey::get_SubKeys() {
  return Guard(u"KivRegistryKey.SubKeys (Get)", [&] {
    CheckState();
    if (!subkeys_) {
      subkeys_ = Ref<SubKeysCollection>(new SubKeysCollection(services_));
      // Loads nothing when this key is invalidated.
      subkeys_->LoadSubKeys(this);
    }
    return subkeys_;
  });
}

bool KivRegistryKey::get_IsOwned() {
  return Guard(u"KivRegistryKey.IsOwned (Get)", [&] {
    CheckState();
    return !owner_.expired();
  });
}

bool KivRegistryKey::get_Invalidated() {
  return Guard(u"KivRegistryKey.Invalidated (Get)", [&] { return invalidated_; });
}

void KivRegistryKey::put_Invalidated(bool value) {
  Guard(u"KivRegistryKey.Invalidated (Let)", [&] {
    if (value) invalidated_ = true;  // permanent
  });
}

void KivRegistryKey::putref_OwnerCollection(SubKeysCollection* owner) {
  Guard(u"KivRegistryKey.OwnerCollection (Set)", [&] {
    owner_ = owner ? std::weak_ptr<SubKeysCollection*>(owner->self_token_) : std::weak_ptr<SubKeysCollection*>();
  });
}

void KivRegistryKey::DeleteKey(bool bRecursive) {
  Guard(u"KivRegistryKey.DeleteKey", [&] {
    if (!CheckState()) return;
    Ref<KivRegistryKey> keep(this);  // leaving the owner collection may drop the last other reference
    bool owned = get_IsOwned();
    Ref<SubKeysCollection> subkeys = get_SubKeys();
    if (bRecursive) {
      // Each child removes itself from the collection: walk a copy.
      std::vector<Ref<KivRegistryKey>> children;
      for (const auto& child : *subkeys) children.push_back(child);
      for (const auto& child : children) child->DeleteKey(true);
    } else if (subkeys->get_Count() > 0) {
      RaiseLibraryError(*services_, ErrKeyHasSubkeys);
    }
    subkeys->Clear();

    std::string path;
    std::int32_t rc = kErrorInvalidParameter;
    if (ToStoreName(key_name_, services_->code_page(), &path)) {
      auto store = services_->registry_store();
      rc = store->DeleteKey(static_cast<RegKey>(root_), path.c_str());
    }
    put_ErrorState(rc);

    // Removed as the object it is: its key name may have changed since the
    // collection stored it (a section), so the name would not find it.
    if (owned) {
      if (auto token = owner_.lock(); token && *token) (*token)->RemoveEntry(this);
    }
    root_set_ = false;
    key_name_set_ = false;
    key_name_.clear();
    last_value_name_.clear();
    last_delimiter_ = u"\t";
    put_Invalidated(true);
  });
}

String KivRegistryKey::Version(bool bShow) {
  return Guard(u"KivRegistryKey.Version", [&] { return VersionReport(*services_, u"KivRegistryKey", bShow); });
}

// ---------------------------------------------------------------------------
// Path and section.

String KivRegistryKey::get_Path() {
  return Guard(u"KivRegistryKey.Path (Get)", [&] {
    RegRootKeyEnum root = get_RootKey();
    return RootKeyName(root) + u"\\" + get_KeyName();
  });
}

void KivRegistryKey::put_Path(const String& path) {
  Guard(u"KivRegistryKey.Path (Let)", [&] {
    String text = path;
    std::size_t key_start = 0;
    for (char16_t separator : kSeparators) {
      std::size_t pos = text.find(separator);
      if (pos == String::npos) continue;
      String head = text.substr(0, pos);
      bool found = false;
      for (RegRootKeyEnum root : kRoots) {
        if (head == RootKeyName(root)) {
          put_RootKey(root);
          key_start = pos + 1;
          found = true;
          break;
        }
      }
      if (found) break;
    }
    String key_part = text.substr(key_start);
    // A path written for a file ("...\App.ini") names the key without its
    // extension.
    std::size_t dot = key_part.rfind(u'.');
    if (dot != String::npos && dot + 4 >= key_part.size()) key_part.resize(dot);
    put_KeyName(key_part);
  });
}

String KivRegistryKey::get_Section() {
  return Guard(u"KivRegistryKey.Section (Get)", [&] {
    if (!section_appended_) return String();
    String key_name = get_KeyName();
    for (char16_t separator : kSeparators) {
      std::size_t pos = key_name.rfind(separator);
      if (pos != String::npos) return key_name.substr(pos + 1);
    }
    return String();
  });
}

void KivRegistryKey::put_Section(const String& section) {
  Guard(u"KivRegistryKey.Section (Let)", [&] {
    String s = section;
    if (section_appended_) {
      FlagScope change(section_change_);
      std::size_t n = get_Section().size();
      String key_name = get_KeyName();
      if (!s.empty()) {
        String base = key_name.substr(0, key_name.size() - std::min(n, key_name.size()));
        put_KeyName(base);
        put_KeyName(base + s);
      } else {
        put_KeyName(key_name.substr(0, key_name.size() - std::min(n + 1, key_name.size())));
        section_appended_ = false;
      }
    } else if (!Trim(s).empty()) {
      {
        FlagScope change(section_change_);
        put_KeyName(get_KeyName() + u"\\" + s);
      }
      section_appended_ = true;
    } else {
      section_appended_ = false;
    }
  });
}

// ---------------------------------------------------------------------------
// The common interface.

void KivRegistryKey::TarvoStdInterface_put_Path(const String& sPath) {
  Guard(u"KivRegistryKey.TarvoStdInterface_Path (Let)", [&] { put_Path(sPath); });
}

String KivRegistryKey::TarvoStdInterface_get_Path() {
  return Guard(u"KivRegistryKey.TarvoStdInterface_Path (Get)", [&] { return get_Path(); });
}

void KivRegistryKey::TarvoStdInterface_put_Section(const String& sSection) {
  Guard(u"KivRegistryKey.TarvoStdInterface_Section (Let)", [&] { put_Section(sSection); });
}

String KivRegistryKey::TarvoStdInterface_get_Section() {
  return Guard(u"KivRegistryKey.TarvoStdInterface_Section (Get)", [&] { return get_Section(); });
}

bool KivRegistryKey::TarvoStdInterface_SetValue(const String& sFieldName, const Variant& vValue,
                                                const String& sDelimiter) {
  return Guard(u"KivRegistryKey.TarvoStdInterface_SetValue",
               [&] { return SetValue(sFieldName, vValue, sDelimiter); });
}

Variant KivRegistryKey::TarvoStdInterface_GetValue(const String& sFieldName, const String& sDelimiter) {
  return Guard(u"KivRegistryKey.TarvoStdInterface_GetValue",
               [&] { return GetValue(sFieldName, sDelimiter, true, true, Variant(u"")); });
}

Variant KivRegistryKey::TarvoStdInterface_Version(bool bShow) {
  return Guard(u"KivRegistryKey.TarvoStdInterface_Version", [&] { return Variant(Version(bShow)); });
}

}  // namespace tarvo2
