// The registry store: Tarvo2's stand-in for the Win32 registry functions.
//
// A RegistryStore offers the nine registry calls that the library makes
// (RegCreateKeyExA, RegOpenKeyExA, RegCloseKey, RegQueryValueExA,
// RegSetValueExA, RegDeleteValueA, RegDeleteKeyA, RegEnumValueA and
// RegEnumKeyA) with the same arguments, minus the reserved ones, and the same
// result codes. All text (key paths, value names, and the data of the text
// types REG_SZ, REG_EXPAND_SZ and REG_MULTI_SZ) is 8-bit text in the
// store's code page at the time of the call (code_page(), see
// tarvo2/codepage.h). Under 1252 every byte value is an ordinary character
// and comes back as written. Under 65001 text is UTF-8, and bytes that are
// not valid UTF-8 are stored as U+FFFD, as Windows converts them.
//
// The store keeps text as characters, not as the caller's bytes, as the
// Windows registry keeps UTF-16: a name or text written under one code page
// reads back under the other as the same characters (a character that
// Windows-1252 lacks reads as '?' under 1252, one per UTF-16 unit). Lengths,
// limits and cuts count the bytes of the calling code page.
//
// The whole registry is one SQLite database per user. The registry classes
// use the store of their context (Services::registry_store(), see
// services.h), which opens a location or is replaced as a whole. A test
// double that fails chosen calls is in tarvo2/testing/registry_store.h.
//
// Rules common to all calls:
//   * Key paths are relative to the key of the handle passed. Components are
//     separated by '\'; a trailing '\' is ignored, runs of '\' count as one,
//     a leading '\' fails with kErrorBadPathname, and '/' is an ordinary
//     character. A component longer than kMaxKeyNameLength characters, or a
//     path that would lead deeper than kMaxKeyDepth levels below a root,
//     fails with kErrorInvalidParameter.
//   * Key and value names match under Unicode simple case folding (e.g.
//     "Ä"/"ä", "Š"/"š", "Ÿ"/"ÿ", "Σ"/"σ"/"ς"; "ß" does not match "SS") and
//     keep the spelling they were first created with.
//   * A null, unknown or closed handle gives kErrorInvalidHandle. A handle to
//     a key deleted since it was opened (through any handle, by any process)
//     gives kErrorKeyDeleted for every call except CloseKey.
//   * A failing call changes nothing in the store.
//   * Store failures: kErrorBadDatabase for a corrupt database,
//     kErrorCantOpen when the database cannot be opened, kErrorCantRead for
//     a failed read and kErrorCantWrite for a failed write (read-only file,
//     full disk, lock not obtained within the busy timeout).
//
// All implementations here are safe to call from several threads at once.
#ifndef TARVO2_REGISTRY_STORE_H_
#define TARVO2_REGISTRY_STORE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "tarvo2/codepage.h"
#include "tarvo2/export.h"

namespace tarvo2 {

// A key handle: one of the four predefined roots, or a handle returned by
// CreateKey or OpenKey. 0 is never a valid handle.
using RegKey = std::uint32_t;

inline constexpr RegKey kHKeyClassesRoot = 0x80000000u;
inline constexpr RegKey kHKeyCurrentUser = 0x80000001u;
inline constexpr RegKey kHKeyLocalMachine = 0x80000002u;
inline constexpr RegKey kHKeyUsers = 0x80000003u;

// Result codes (the Win32 numbering; LONG semantics).
inline constexpr std::int32_t kErrorSuccess = 0;
inline constexpr std::int32_t kErrorFileNotFound = 2;
inline constexpr std::int32_t kErrorAccessDenied = 5;
inline constexpr std::int32_t kErrorInvalidHandle = 6;
inline constexpr std::int32_t kErrorOutOfMemory = 14;
inline constexpr std::int32_t kErrorInvalidParameter = 87;
inline constexpr std::int32_t kErrorBadPathname = 161;
inline constexpr std::int32_t kErrorMoreData = 234;
inline constexpr std::int32_t kErrorNoMoreItems = 259;
inline constexpr std::int32_t kErrorBadDatabase = 1009;  // ERROR_BADDB
inline constexpr std::int32_t kErrorBadKey = 1010;       // ERROR_BADKEY
inline constexpr std::int32_t kErrorCantOpen = 1011;     // ERROR_CANTOPEN
inline constexpr std::int32_t kErrorCantRead = 1012;     // ERROR_CANTREAD
inline constexpr std::int32_t kErrorCantWrite = 1013;    // ERROR_CANTWRITE
inline constexpr std::int32_t kErrorKeyDeleted = 1018;

// Value type numbers. The store keeps any 32-bit type number unchanged;
// these are the ones with a meaning.
inline constexpr std::uint32_t kRegNone = 0;
inline constexpr std::uint32_t kRegSz = 1;
inline constexpr std::uint32_t kRegExpandSz = 2;
inline constexpr std::uint32_t kRegBinary = 3;
inline constexpr std::uint32_t kRegDword = 4;
inline constexpr std::uint32_t kRegDwordBigEndian = 5;
inline constexpr std::uint32_t kRegLink = 6;
inline constexpr std::uint32_t kRegMultiSz = 7;
inline constexpr std::uint32_t kRegQword = 11;

// Access rights of a handle. Only kKeySetValue is enforced: without it a
// handle cannot set or delete values. Everything else is always allowed.
inline constexpr std::uint32_t kKeyQueryValue = 0x0001;
inline constexpr std::uint32_t kKeySetValue = 0x0002;
inline constexpr std::uint32_t kKeyCreateSubKey = 0x0004;
inline constexpr std::uint32_t kKeyEnumerateSubKeys = 0x0008;
inline constexpr std::uint32_t kKeyNotify = 0x0010;
inline constexpr std::uint32_t kKeyCreateLink = 0x0020;
inline constexpr std::uint32_t kKeyRead = 0x20019;
inline constexpr std::uint32_t kKeyWrite = 0x20006;
inline constexpr std::uint32_t kKeyAllAccess = 0xF003F;

// Dispositions reported by CreateKey.
inline constexpr std::uint32_t kRegCreatedNewKey = 1;
inline constexpr std::uint32_t kRegOpenedExistingKey = 2;

// Limits.
inline constexpr std::size_t kMaxKeyNameLength = 255;     // per component
inline constexpr std::size_t kMaxKeyDepth = 512;          // below a root
inline constexpr std::size_t kMaxValueNameLength = 16383;

class TARVO2_EXPORT RegistryStore {
 public:
  // A store in EnvironmentCodePage().
  RegistryStore();
  RegistryStore(const RegistryStore&) = delete;
  RegistryStore& operator=(const RegistryStore&) = delete;

  // Closes every handle still open on this store.
  virtual ~RegistryStore();

  // The code page of the text this store takes and hands out: kCodePage1252
  // or kCodePageUtf8. A context keeps its store in its own code page
  // (Services::set_code_page), so a store is best not shared between
  // contexts of different code pages. A call takes the code page once, at
  // its start. Wrappers report and set their target's.
  virtual std::uint32_t code_page() const;
  // REQUIRES: IsSupportedCodePage(code_page); any other value counts as 1252.
  virtual void set_code_page(std::uint32_t code_page);

  // RegCreateKeyExA. Opens the key `subkey` below `parent`, creating it and
  // every missing key on its path first. A null or empty `subkey` opens a
  // new handle to `parent`'s own key.
  // On success returns kErrorSuccess, stores a new handle with the rights
  // `access` in *result and, when `disposition` is not null,
  // kRegCreatedNewKey or kRegOpenedExistingKey in *disposition.
  // On failure sets *result to 0 and creates nothing. `result` must not be
  // null (else kErrorInvalidParameter).
  virtual std::int32_t CreateKey(RegKey parent, const char* subkey,
                                 std::uint32_t access, RegKey* result,
                                 std::uint32_t* disposition) = 0;

  // RegOpenKeyExA. Opens the existing key `subkey` below `parent` (a null or
  // empty `subkey` gives a new handle to `parent`'s key) and stores the new
  // handle in *result. A missing key gives kErrorFileNotFound. On any
  // failure *result is set to 0. `result` must not be null.
  virtual std::int32_t OpenKey(RegKey parent, const char* subkey,
                               std::uint32_t access, RegKey* result) = 0;

  // RegCloseKey. Releases `key`; returns kErrorSuccess, also for a handle
  // whose key was deleted. Closing a predefined root does nothing and
  // returns kErrorSuccess; the root stays usable. A null, unknown or already
  // closed handle gives kErrorInvalidHandle.
  virtual std::int32_t CloseKey(RegKey key) = 0;

  // RegQueryValueExA. Reads the value `name` (null or "" means the key's
  // default value) of `key`.
  //   * `data` null: returns kErrorSuccess with the type in *type and the
  //     size in bytes in *size (each when not null).
  //   * `data` not null: *size is its capacity in bytes (`size` must then
  //     not be null, else kErrorInvalidParameter). If the value fits it is
  //     copied, *size becomes the bytes written and the result is
  //     kErrorSuccess; otherwise the buffer is left untouched, *size becomes
  //     the size needed and the result is kErrorMoreData.
  //   * A missing value gives kErrorFileNotFound and sets *type to kRegNone.
  // A kRegSz or kRegExpandSz value stored without a terminating NUL reads
  // back with one added (and counted in the size).
  virtual std::int32_t QueryValue(RegKey key, const char* name,
                                  std::uint32_t* type, std::uint8_t* data,
                                  std::uint32_t* size) = 0;

  // RegSetValueExA. Creates or replaces the value `name` (null or "" means
  // the default value) of `key` with exactly the `size` bytes at `data` and
  // the type number `type`, whatever it is. A replaced value keeps its
  // place in the enumeration order and its original spelling.
  // Requires: `data` is not null when `size` > 0 (else
  // kErrorInvalidParameter). A handle without kKeySetValue gives
  // kErrorAccessDenied; a name longer than kMaxValueNameLength gives
  // kErrorInvalidParameter.
  virtual std::int32_t SetValue(RegKey key, const char* name,
                                std::uint32_t type, const std::uint8_t* data,
                                std::uint32_t size) = 0;

  // RegDeleteValueA. Removes the value `name` (null or "": the default
  // value). A missing value gives kErrorFileNotFound; a handle without
  // kKeySetValue gives kErrorAccessDenied.
  virtual std::int32_t DeleteValue(RegKey key, const char* name) = 0;

  // RegDeleteKeyA. Removes the key `subkey` below `key` with all its values.
  // An empty `subkey` deletes `key`'s own key; a null one gives
  // kErrorInvalidParameter. A missing key gives kErrorFileNotFound. A key
  // that has subkeys, or a predefined root, is refused with
  // kErrorAccessDenied and nothing is deleted: recursive deletion is the
  // caller's business. Handles still open on the deleted key then give
  // kErrorKeyDeleted.
  virtual std::int32_t DeleteKey(RegKey key, const char* subkey) = 0;

  // RegEnumValueA. Reports the value at `index` of `key`; values are in the
  // order they were created (the default value among them once it is set).
  // *name_length is the capacity of `name` in characters on entry; the name
  // needs its length + 1.
  //   * Everything fits: writes the name with a NUL, sets *name_length to its
  //     length (without the NUL), *type, the data and *data_size (the type,
  //     data and data size parts each only when their pointer is not null);
  //     returns kErrorSuccess.
  //   * Only the name does not fit: returns kErrorMoreData; the name is cut
  //     to *name_length - 1 bytes (under 65001 fewer, ending before a
  //     character that would be split) and NUL-terminated, *name_length is
  //     left unchanged, and the data parts are still written.
  //   * The data does not fit in *data_size bytes: returns kErrorMoreData,
  //     sets *data_size to the size needed and *type; the name and the data
  //     buffer are not written.
  //   * `index` past the last value: returns kErrorNoMoreItems and writes
  //     nothing.
  // Requires: `name` and `name_length` not null, and `data_size` not null
  // when `data` is not (else kErrorInvalidParameter).
  virtual std::int32_t EnumValue(RegKey key, std::uint32_t index, char* name,
                                 std::uint32_t* name_length,
                                 std::uint32_t* type, std::uint8_t* data,
                                 std::uint32_t* data_size) = 0;

  // RegEnumKeyA. Writes the name of the subkey at `index` of `key`, with a
  // NUL, to `name` (capacity `name_size` bytes); subkeys are sorted by name
  // in upper case, in code point order (as Windows lists them). A buffer shorter than the name's
  // length + 1 gives kErrorMoreData and writes nothing; `index` past the last
  // subkey gives kErrorNoMoreItems. `name` must not be null.
  virtual std::int32_t EnumKey(RegKey key, std::uint32_t index, char* name,
                               std::uint32_t name_size) = 0;

  // Reads the value `name` of the key `subkey` below `parent` in one step:
  // the same as OpenKey(parent, subkey, kKeyQueryValue, &h), then
  // QueryValue(h, name, type, data, size) on that handle (on the null handle
  // when the open failed), then CloseKey(h), with the same results, except
  // that a store may do it in one read instead of three calls. When
  // `open_result` is not null it receives the open's result.
  // The default implementation makes exactly those three calls (so wrappers
  // see them); the SQLite store does it in one transaction.
  virtual std::int32_t QueryValueAt(RegKey parent, const char* subkey,
                                    const char* name, std::uint32_t* type,
                                    std::uint8_t* data, std::uint32_t* size,
                                    std::int32_t* open_result = nullptr);

  // Writes the value `name` of the key `subkey` below `parent` in one step:
  // the same as OpenKey(parent, subkey, kKeySetValue, &h), then
  // SetValue(h, name, type, data, size) on that handle (on the null handle
  // when the open failed), then CloseKey(h), with the same results. The
  // default implementation makes exactly those three calls; the SQLite
  // store does it in one transaction.
  virtual std::int32_t SetValueAt(RegKey parent, const char* subkey,
                                  const char* name, std::uint32_t type,
                                  const std::uint8_t* data, std::uint32_t size,
                                  std::int32_t* open_result = nullptr);

 private:
  std::atomic<std::uint32_t> code_page_;
};

// Forwards every call to another store; derive from it and override the
// calls to intercept (in the manner of an Env wrapper).
class TARVO2_EXPORT RegistryStoreWrapper : public RegistryStore {
 public:
  // Requires: `target` is not null.
  explicit RegistryStoreWrapper(std::shared_ptr<RegistryStore> target);
  ~RegistryStoreWrapper() override;

  RegistryStore* target() const { return target_.get(); }

  std::uint32_t code_page() const override;
  void set_code_page(std::uint32_t code_page) override;

  std::int32_t CreateKey(RegKey parent, const char* subkey,
                         std::uint32_t access, RegKey* result,
                         std::uint32_t* disposition) override;
  std::int32_t OpenKey(RegKey parent, const char* subkey, std::uint32_t access,
                       RegKey* result) override;
  std::int32_t CloseKey(RegKey key) override;
  std::int32_t QueryValue(RegKey key, const char* name, std::uint32_t* type,
                          std::uint8_t* data, std::uint32_t* size) override;
  std::int32_t SetValue(RegKey key, const char* name, std::uint32_t type,
                        const std::uint8_t* data, std::uint32_t size) override;
  std::int32_t DeleteValue(RegKey key, const char* name) override;
  std::int32_t DeleteKey(RegKey key, const char* subkey) override;
  std::int32_t EnumValue(RegKey key, std::uint32_t index, char* name,
                         std::uint32_t* name_length, std::uint32_t* type,
                         std::uint8_t* data, std::uint32_t* data_size) override;
  std::int32_t EnumKey(RegKey key, std::uint32_t index, char* name,
                       std::uint32_t name_size) override;

 private:
  std::shared_ptr<RegistryStore> target_;
};

struct SqliteRegistryOptions {
  // How long a call waits for a lock held by another connection or process
  // before it gives up with kErrorCantWrite (or kErrorCantRead).
  int busy_timeout_ms = 5000;
  // The store's code page (RegistryStore::code_page()); 0 for
  // EnvironmentCodePage().
  std::uint32_t code_page = 0;
};

// Opens the SQLite registry database at `path` (":memory:" gives a private,
// empty in-memory registry), creating the file with mode 0600 and the
// schema when they do not exist yet. The folder must exist.
//
// Always returns a store. If the database could not be opened, every call
// of the returned store except CloseKey returns the failure code:
// kErrorBadDatabase when the file is not a valid registry database (corrupt,
// of a newer schema, or another program's: any database that is neither
// empty nor ours, which is then left byte for byte as it was),
// kErrorCantOpen otherwise (no such folder, no permission, a read-only file
// that holds no registry yet). A lock that another process held for longer
// than the busy timeout gives kErrorCantWrite, and is transient: every later
// call tries to open the database again until it succeeds. When
// `open_result` is not null it receives the first try's code, or
// kErrorSuccess. A file that can only be read opens successfully, also in a
// folder that can only be read: reads work and every write gives
// kErrorCantWrite.
TARVO2_EXPORT std::shared_ptr<RegistryStore> OpenSqliteRegistryStore(
    const std::string& path,
    const SqliteRegistryOptions& options = SqliteRegistryOptions(),
    std::int32_t* open_result = nullptr);

// The location a context opens when none was set: the environment
// variable TARVO2_REGISTRY when it is set and not empty (a path, or
// ":memory:"); otherwise $XDG_CONFIG_HOME/tarvo2/registry.sqlite3, with
// $HOME/.config in place of XDG_CONFIG_HOME when that is unset or empty
// (the account's home folder when HOME is unset too, and ":memory:" when
// no home folder is known at all).
TARVO2_EXPORT std::string DefaultRegistryLocation();

// Opens the registry at `location` with OpenSqliteRegistryStore; an empty
// `location` opens DefaultRegistryLocation(), creating its missing folders
// (mode 0700) first when it is the XDG location. Results as
// OpenSqliteRegistryStore.
TARVO2_EXPORT std::shared_ptr<RegistryStore> OpenRegistryStore(const std::string& location,
                                                 std::int32_t* open_result = nullptr);

}  // namespace tarvo2

#endif  // TARVO2_REGISTRY_STORE_H_
