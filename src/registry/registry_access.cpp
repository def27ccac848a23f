// The registry access layer of KivRegistryKey: the private procedures that
// open a key, move one value between a Variant and the store, close the key,
// and record the store's result code in ErrorState (raising the library
// error it maps to).
//
// Every procedure opens at most one handle and closes it before it returns,
// also when an error leaves it; nothing is cached between calls. A value is
// read and written with RegistryStore::QueryValueAt and SetValueAt, which
// open the key, move the value and close the key in one step of the store
// (one transaction of the SQLite store).
#include "registry/registry_access.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "tarvo2/codepage.h"
#include "tarvo2/convert.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/registry_key.h"

namespace tarvo2 {
namespace registry_internal {

std::int32_t LibraryErrorForResult(std::int32_t code) {
  switch (code) {
    case 1: return ErrBadDb;
    case 2: return ErrBadKey;
    case 3: return ErrCantOpenKey;
    case 4: return ErrCantReadKey;
    case 5: return ErrCantWriteKey;
    case 6: return ErrOutOfMemory;
    case 7: return ErrArenaTrashed;
    case 8: return ErrAccessDenied;
    case 87: return ErrInvalidParameters;
    case 259: return ErrNoMoreItems;
    default: return 0;
  }
}

bool ToStoreName(StringView text, std::uint32_t cp, std::string* out) {
  for (char16_t c : text)
    if (c == u'\0') return false;
  if (!IsRepresentable(text, cp)) return false;
  *out = ToCodePage(text, cp);
  return true;
}

bool DoubleToStoredText(double d, String* out) {
  if (!std::isfinite(d)) return false;
  char buf[64];
  auto res = std::to_chars(buf, buf + sizeof buf, d);  // shortest round trip
  std::string s(buf, res.ptr);
  std::string exponent;
  if (std::size_t e = s.find('e'); e != std::string::npos) {
    exponent = "E" + s.substr(e + 1);
    s.resize(e);
  }
  if (s.find('.') == std::string::npos) s += ".0";
  s += exponent;
  *out = String(s.begin(), s.end());
  return true;
}

}  // namespace registry_internal

using registry_internal::kAccessAll;
using registry_internal::kAccessRead;
using registry_internal::kAccessWrite;
using registry_internal::kUnsupportedType;
using registry_internal::ScopedKey;
using registry_internal::ToStoreName;

bool KivRegistryKey::CheckState() {
  if (!invalidated_) return true;
  Guard(u"KivRegistryKey.CheckState", [&] { RaiseLibraryError(*services_, ErrObjectInvalidated); });
  return false;
}

void KivRegistryKey::put_ErrorState(std::int32_t code) {
  Guard(u"KivRegistryKey.ErrorState (Let)", [&] {
    // An invalidated object keeps its last code (the switch being off).
    if (!CheckState()) return;
    error_state_ = code;
    if (std::int32_t lib = registry_internal::LibraryErrorForResult(code))
      RaiseLibraryError(*services_, static_cast<LibraryErrorCode>(lib));
  });
}

void KivRegistryKey::CreateNewKey(RegRootKeyEnum root, const String& key_path) {
  Guard(u"KivRegistryKey.CreateNewKey", [&] {
    ScopedKey key(services_->registry_store());
    std::string path;
    std::int32_t rc = kErrorInvalidParameter;
    if (ToStoreName(key_path, services_->code_page(), &path)) {
      std::uint32_t disposition = 0;
      rc = key.store().CreateKey(static_cast<RegKey>(root), path.c_str(), kAccessAll, key.out(), &disposition);
    }
    put_ErrorState(rc);
    key.Close();
  });
}

std::int32_t KivRegistryKey::SetValueEx(RegistryStore& store, RegKey root, const std::string& key_path,
                                        const String& value_name, std::uint32_t type, const Variant& value) {
  return Guard(u"KivRegistryKey.SetValueEx", [&]() -> std::int32_t {
    if (type != kRegSz && type != kRegDword) return kErrorSuccess;  // nothing to write
    std::string name;
    if (!ToStoreName(value_name, services_->code_page(), &name)) return kErrorInvalidParameter;
    // The open's own result is not examined: a key that cannot be opened
    // leaves the null handle, and the write on it reports why (6).
    if (type == kRegSz) {
      String text;
      if (value.IsDouble()) {
        if (!registry_internal::DoubleToStoredText(value.AsDouble(), &text)) return kErrorInvalidParameter;
      } else {
        text = value.IsString() ? value.AsString() : ToString(value);
      }
      std::string data = ToCodePage(text, services_->code_page());
      data.push_back('\0');
      if (data.size() > UINT32_MAX) return kErrorInvalidParameter;
      return store.SetValueAt(root, key_path.c_str(), name.c_str(), kRegSz,
                              reinterpret_cast<const std::uint8_t*>(data.data()),
                              static_cast<std::uint32_t>(data.size()));
    }
    std::int32_t n = ToLong(value);  // True is -1
    std::uint8_t bytes[4];
    std::memcpy(bytes, &n, sizeof n);  // native byte order
    return store.SetValueAt(root, key_path.c_str(), name.c_str(), kRegDword, bytes, sizeof bytes);
  });
}

void KivRegistryKey::SetKeyValue(RegRootKeyEnum root, const String& key_path, const String& value_name,
                                 const Variant& value, std::uint32_t type) {
  Guard(u"KivRegistryKey.SetKeyValue", [&] {
    std::int32_t rc = kErrorSuccess;
    if (type == kRegSz || type == kRegDword) {
      std::string path;
      if (!ToStoreName(key_path, services_->code_page(), &path)) {
        rc = kErrorInvalidParameter;
      } else {
        std::shared_ptr<RegistryStore> store = services_->registry_store();
        rc = SetValueEx(*store, static_cast<RegKey>(root), path, value_name, type, value);
      }
    }
    put_ErrorState(rc);
  });
}

std::int32_t KivRegistryKey::QueryValueEx(RegistryStore& store, RegKey root, const std::string& key_path,
                                          const String& value_name, Variant& value) {
  return Guard(u"KivRegistryKey.QueryValueEx", [&]() -> std::int32_t {
    std::string name;
    if (!ToStoreName(value_name, services_->code_page(), &name)) {
      put_ErrorState(kErrorInvalidParameter);
      return kErrorInvalidParameter;
    }
    // Most values fit a small buffer, so the first call asks for type and
    // data at once; a larger text is read again with a buffer of exactly
    // the size the store reports (no fixed limit on texts).
    constexpr std::uint32_t kFirstBuffer = 512;
    std::string buf(kFirstBuffer, '\0');
    std::uint32_t type = 0, size = kFirstBuffer;
    // The open's own result is not examined: a key that cannot be opened
    // leaves the null handle, and the read on it reports why (6).
    std::int32_t rc = store.QueryValueAt(root, key_path.c_str(), name.c_str(), &type,
                                         reinterpret_cast<std::uint8_t*>(buf.data()), &size);
    if (rc == kErrorMoreData && type == kRegSz) {
      buf.assign(size, '\0');
      rc = store.QueryValueAt(root, key_path.c_str(), name.c_str(), &type,
                              reinterpret_cast<std::uint8_t*>(buf.data()), &size);
      if (rc == kErrorSuccess && type != kRegSz) rc = kErrorMoreData;  // replaced in between
    }
    if (rc == kErrorMoreData && type != kRegSz && type != kRegDword) return kUnsupportedType;
    if (rc != kErrorSuccess) {
      put_ErrorState(rc);
      return rc;
    }
    if (type == kRegSz) {
      buf.resize(size > 0 ? size - 1 : 0);  // without the terminating NUL
      value = Variant(FromCodePage(buf, services_->code_page()));
      return kErrorSuccess;
    }
    if (type == kRegDword) {
      // A number stored with more than four bytes is not read into the
      // 32-bit integer: 234 (more data), as for a buffer that is too small.
      if (size > 4) {
        put_ErrorState(kErrorMoreData);
        return kErrorMoreData;
      }
      std::int32_t n = 0;
      std::memcpy(&n, buf.data(), size);  // native byte order
      value = Variant(n);
      return kErrorSuccess;
    }
    return kUnsupportedType;
  });
}

Variant KivRegistryKey::QueryValue(RegRootKeyEnum root, const String& key_path, const String& value_name) {
  return Guard(u"KivRegistryKey.QueryValue", [&] {
    Variant value;
    std::string path;
    std::int32_t rc = kErrorInvalidParameter;
    if (ToStoreName(key_path, services_->code_page(), &path)) {
      std::shared_ptr<RegistryStore> store = services_->registry_store();
      rc = QueryValueEx(*store, static_cast<RegKey>(root), path, value_name, value);
    }
    put_ErrorState(rc);
    return value;
  });
}

}  // namespace tarvo2
