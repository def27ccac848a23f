// The registry store kept in one SQLite database.
//
// Schema:
//   reg_keys(id, parent, name, fold, depth): one row per key. The four roots
//     are the rows 1..4 with a null parent; `name` keeps the spelling the key
//     was created with, `fold` (FoldName) is the case-insensitive lookup key,
//     unique among siblings, and the listing order of subkeys. Ids come from
//     AUTOINCREMENT and are never reused, so a handle naming a deleted key's
//     id can never see another key in its place, not even one made later by
//     another process.
//   reg_values(key_id, name, fold, type, data, seq): one row per value, `seq`
//     its creation number within its key (kept when the value is replaced).
// Names, and the data of the text types (REG_SZ, REG_EXPAND_SZ,
// REG_MULTI_SZ), are stored as UTF-8 BLOBs whatever the code page, as
// Windows keeps its registry in UTF-16: they are converted from the
// store's code page (code_page() at the call) on the way in and back to
// it on the way out. So a name or text written under one code page reads
// back under the other as the same characters, except that 1252 has no
// byte for most of them ('?' instead). Sizes and cuts are those of the
// caller's bytes. Version 1 of the schema held Windows-1252 bytes; opening
// such a database converts it once (a read-only one cannot be opened).
//
// Every call runs in one transaction: BEGIN IMMEDIATE for writes, so that
// the checks (is the key still there?) and the changes see the same
// database, and a deferred one for reads. The database is in WAL mode, so
// readers are not blocked by a writer in another process; a writer waits
// for the busy timeout and then fails with kErrorCantWrite.
//
// Handles live in an in-process table from handle number to key id and
// access rights; each call checks that the key row still exists.
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/registry_store_names.h"
#include "tarvo2/codepage.h"
#include "tarvo2/registry_store.h"

namespace tarvo2 {
namespace {

using registry_internal::FoldName;
using registry_internal::SplitKeyPath;

constexpr std::int64_t kSchemaVersion = 2;
constexpr std::int64_t kSchemaVersion1252 = 1;  // names and texts in 1252
constexpr std::int64_t kApplicationId = 0x54525632;  // "TRV2"
constexpr std::int64_t kFirstRootId = 1;             // HKEY_CLASSES_ROOT
constexpr std::int64_t kLastRootId = 4;              // HKEY_USERS
constexpr RegKey kFirstHandle = 0x10;

constexpr const char* kSchemaSql = R"sql(
CREATE TABLE IF NOT EXISTS reg_keys(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  parent INTEGER,
  name BLOB NOT NULL,
  fold BLOB NOT NULL,
  depth INTEGER NOT NULL);
CREATE UNIQUE INDEX IF NOT EXISTS reg_keys_by_fold ON reg_keys(parent, fold);
CREATE TABLE IF NOT EXISTS reg_values(
  key_id INTEGER NOT NULL,
  name BLOB NOT NULL,
  fold BLOB NOT NULL,
  type INTEGER NOT NULL,
  data BLOB NOT NULL,
  seq INTEGER NOT NULL,
  PRIMARY KEY(key_id, fold));
CREATE INDEX IF NOT EXISTS reg_values_by_seq ON reg_values(key_id, seq);
INSERT OR IGNORE INTO reg_keys(id, parent, name, fold, depth) VALUES
  (1, NULL, 'HKEY_CLASSES_ROOT', 'HKEY_CLASSES_ROOT', 0),
  (2, NULL, 'HKEY_CURRENT_USER', 'HKEY_CURRENT_USER', 0),
  (3, NULL, 'HKEY_LOCAL_MACHINE', 'HKEY_LOCAL_MACHINE', 0),
  (4, NULL, 'HKEY_USERS', 'HKEY_USERS', 0);
PRAGMA application_id = 1414682162;
PRAGMA user_version = 2;
)sql";

bool IsRootHandle(RegKey key) {
  return key >= kHKeyClassesRoot && key <= kHKeyUsers;
}

bool IsTextType(std::uint32_t type) {
  return type == kRegSz || type == kRegExpandSz;
}

// The types whose data is text, converted like names.
bool IsConvertedType(std::uint32_t type) {
  return IsTextType(type) || type == kRegMultiSz;
}

bool IsAscii(std::string_view s) {
  for (char c : s)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

// The caller's 8-bit text in `code_page` as the database holds it (UTF-8).
std::string ToStored(std::string_view text, std::uint32_t code_page) {
  if (IsAscii(text)) return std::string(text);
  return ToUtf8(FromCodePage(text, code_page));
}

// Text held by the database as the caller's 8-bit text in `code_page`.
std::string FromStored(std::string_view stored, std::uint32_t code_page) {
  if (IsAscii(stored)) return std::string(stored);
  return ToCodePage(FromUtf8(stored), code_page);
}

// A text value stored without its terminating NUL reads back with one.
void AddMissingNul(std::uint32_t type, std::string* data) {
  if (IsTextType(type) && (data->empty() || data->back() != '\0'))
    data->push_back('\0');
}

// Hands a value read (or its failure `code`) to a QueryValue caller: the
// type, the size, and the data when it fits.
std::int32_t CopyValueOut(std::int32_t code, std::uint32_t stored_type,
                          std::string* bytes, std::uint32_t* type,
                          std::uint8_t* data, std::uint32_t* size) {
  if (code == kErrorFileNotFound && type != nullptr) *type = kRegNone;
  if (code != kErrorSuccess) return code;
  AddMissingNul(stored_type, bytes);
  const auto needed = static_cast<std::uint32_t>(bytes->size());
  if (type != nullptr) *type = stored_type;
  if (data == nullptr) {
    if (size != nullptr) *size = needed;
    return kErrorSuccess;
  }
  if (*size < needed) {
    *size = needed;
    return kErrorMoreData;
  }
  if (needed > 0) std::memcpy(data, bytes->data(), needed);
  *size = needed;
  return kErrorSuccess;
}

// The result code for a failed open, from the SQLite code. A lock that
// another connection held for longer than the busy timeout is a transient
// failure, which the next call tries again.
std::int32_t OpenError(int rc) {
  int primary = rc & 0xFF;
  if (primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB)
    return kErrorBadDatabase;
  if (primary == SQLITE_BUSY || primary == SQLITE_LOCKED) return kErrorCantWrite;
  return kErrorCantOpen;
}

// Resets a cached statement when the scope that used it ends.
class StatementScope {
 public:
  explicit StatementScope(sqlite3_stmt* stmt) : stmt_(stmt) {}
  ~StatementScope() {
    if (stmt_ != nullptr) {
      sqlite3_reset(stmt_);
      sqlite3_clear_bindings(stmt_);
    }
  }
  StatementScope(const StatementScope&) = delete;
  StatementScope& operator=(const StatementScope&) = delete;

 private:
  sqlite3_stmt* stmt_;
};

// Binds code-page text or bytes as a BLOB; an empty one as a zero-length
// BLOB, never as NULL.
int BindBytes(sqlite3_stmt* stmt, int index, std::string_view bytes) {
  if (bytes.empty()) return sqlite3_bind_zeroblob(stmt, index, 0);
  return sqlite3_bind_blob64(stmt, index, bytes.data(), bytes.size(),
                             SQLITE_TRANSIENT);
}

std::string ColumnBytes(sqlite3_stmt* stmt, int column) {
  const void* p = sqlite3_column_blob(stmt, column);
  int n = sqlite3_column_bytes(stmt, column);
  if (p == nullptr || n <= 0) return std::string();
  return std::string(static_cast<const char*>(p), static_cast<std::size_t>(n));
}

// A value's data, bound without a copy: it outlives the statement's use.
struct ValueData {
  const std::uint8_t* bytes;
  std::uint32_t size;
};

// Bind one statement parameter and return the SQLite code. Only a value's
// data can be too big to bind; ids, numbers and names are small, so their
// binding is taken to work.
int BindParam(sqlite3_stmt* stmt, int index, std::int64_t number) {
  sqlite3_bind_int64(stmt, index, number);
  return SQLITE_OK;
}
int BindParam(sqlite3_stmt* stmt, int index, std::string_view bytes) {
  BindBytes(stmt, index, bytes);
  return SQLITE_OK;
}
int BindParam(sqlite3_stmt* stmt, int index, ValueData data) {
  if (data.size == 0) return sqlite3_bind_zeroblob(stmt, index, 0);
  return sqlite3_bind_blob64(stmt, index, data.bytes, data.size, SQLITE_STATIC);
}

class SqliteRegistryStore final : public RegistryStore {
 public:
  SqliteRegistryStore(const std::string& path,
                      const SqliteRegistryOptions& options)
      : path_(path), options_(options) {
    open_result_ = Open(path, options);
    CloseConnectionIfTransient();
  }

  ~SqliteRegistryStore() override { CloseConnection(); }

  std::int32_t open_result() const { return open_result_; }

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
  std::int32_t QueryValueAt(RegKey parent, const char* subkey,
                            const char* name, std::uint32_t* type,
                            std::uint8_t* data, std::uint32_t* size,
                            std::int32_t* open_result) override;
  std::int32_t SetValueAt(RegKey parent, const char* subkey, const char* name,
                          std::uint32_t type, const std::uint8_t* data,
                          std::uint32_t size,
                          std::int32_t* open_result) override;

 private:
  struct Handle {
    std::int64_t key_id;
    std::uint32_t access;
  };

  // Opens the database and makes it ours when it is empty; the result code
  // of the open. kErrorCantWrite (a lock held elsewhere) is transient: the
  // next call tries again (EnsureOpen).
  std::int32_t Open(const std::string& path,
                    const SqliteRegistryOptions& options);
  int OpenConnection(const std::string& name, int flags,
                     const SqliteRegistryOptions& options);
  void CloseConnection();
  void CloseConnectionIfTransient();
  void EnsureOpen();
  // The schema version, the application id and the number of schema
  // objects; a SQLite code.
  int ReadHeader(std::int64_t* version, std::int64_t* app_id,
                 std::int64_t* objects);
  // A URI that opens `path` read-only without locks or a shared-memory file.
  static std::string ImmutableUri(const std::string& path);
  // Converts a database of schema version 1 (Windows-1252 names and texts)
  // to UTF-8 and version 2, in one write transaction.
  std::int32_t UpgradeFrom1252();

  // The handle table. Requires mu_ held.
  // kErrorSuccess with the handle's entry in *handle; else the store's open
  // failure, or kErrorInvalidHandle when `key` is no handle.
  std::int32_t Lookup(RegKey key, Handle* handle);
  RegKey AddHandle(std::int64_t key_id, std::uint32_t access);

  // The cached statement for `sql` (a string literal), or null with the
  // failure's code in *rc.
  sqlite3_stmt* Statement(const char* sql, int* rc);
  // Runs a statement that returns no rows of interest.
  int Exec(const char* sql);

  // Maps a SQLite failure inside the running transaction to a result code.
  std::int32_t StoreError(int rc) const;

  // Run `body` (returning a result code) inside a read or, when `write`, a
  // write transaction; a nonzero code rolls the transaction back.
  template <typename Body>
  std::int32_t Transaction(bool write, Body body);
  std::int32_t Finish(std::int32_t code);

  // The start of every call on a handle: takes mu_, checks the store and
  // `key` (see Lookup) and then returns `body(handle)`.
  template <typename Body>
  std::int32_t OnHandle(RegKey key, Body body);
  // The same for a call on a subkey path: also checks `subkey` (null for
  // none) and returns `body(handle, parts)`, `parts` being its names.
  template <typename Body>
  std::int32_t OnPath(RegKey key, const char* subkey, Body body);
  // Runs `body(depth)` inside a read (or a write) transaction once the key
  // row `key_id` is found, `depth` being its depth below a root; without
  // the row the result is kErrorKeyDeleted.
  template <typename Body>
  std::int32_t OnKey(bool write, std::int64_t key_id, Body body);
  // The start of QueryValueAt and SetValueAt, which give what OpenKey of
  // `subkey` below `parent`, a call on the handle opened and CloseKey would:
  // takes mu_, checks the store, `parent` and `subkey`, and returns
  // `body(handle, parts, open_failed)`, `parts` being the subkey's names.
  // `open_failed(code)` is the result when the open fails with `code`: it
  // goes to *open_result, and the call on the null handle then fails with
  // kErrorInvalidParameter for `bad_args`, else with kErrorInvalidHandle
  // (or with the store's own failure when the database could not be
  // opened).
  template <typename Body>
  std::int32_t OnSubkey(RegKey parent, const char* subkey, bool bad_args,
                        std::int32_t* open_result, Body body);

  // Steps the cached statement `sql` (a string literal) once, with `params`
  // bound to ?1, ?2, ... (see BindParam). When it gives a row `row(stmt)`
  // reads it and the result is kErrorSuccess; when it gives none the result
  // is `no_row`; a failed bind or step gives the store failure.
  template <typename Row, typename... Params>
  std::int32_t QueryRow(const char* sql, std::int32_t no_row, Row row,
                        const Params&... params);
  // Runs the cached statement `sql`, a change that gives no rows.
  template <typename... Params>
  std::int32_t Change(const char* sql, const Params&... params);

  // Helpers for use inside a transaction. Each returns kErrorSuccess, the
  // code named, or a store failure.
  // kErrorKeyDeleted when the key row is gone; else its depth below a root.
  std::int32_t LoadKey(std::int64_t id, std::int64_t* depth);
  // kErrorFileNotFound when `parent` has no child `name`.
  std::int32_t FindChild(std::int64_t parent, std::string_view name,
                         std::int64_t* child);
  // Follows `parts` from `base`; kErrorFileNotFound when one is missing.
  std::int32_t Resolve(std::int64_t base,
                       const std::vector<std::string_view>& parts,
                       std::int64_t* id);
  // Follows `parts` from `base`, creating what is missing.
  std::int32_t ResolveOrCreate(std::int64_t base, std::int64_t base_depth,
                               const std::vector<std::string_view>& parts,
                               std::int64_t* id, bool* created);
  // kErrorFileNotFound when the key has no value `fold`.
  std::int32_t FetchValue(std::int64_t key_id, const std::string& fold,
                          std::uint32_t* type, std::string* data);
  // Creates or replaces a value of the key `key_id` (inside a write).
  std::int32_t PutValue(std::int64_t key_id, std::string_view value_name,
                        std::uint32_t type, const std::uint8_t* data,
                        std::uint32_t size);
  // The result for a value write through a handle without kKeySetValue.
  std::int32_t DeniedWrite(const Handle& handle);

  const std::string path_;
  const SqliteRegistryOptions options_;
  std::mutex mu_;
  sqlite3* db_ = nullptr;
  std::int32_t open_result_ = kErrorCantOpen;
  bool writing_ = false;  // the running transaction is a write
  std::map<const char*, sqlite3_stmt*> statements_;
  std::map<RegKey, Handle> handles_;
  RegKey next_handle_ = kFirstHandle;
  std::uint32_t cp_ = kCodePage1252;  // code_page() at the call's start (mu_ held)
};

std::int32_t SqliteRegistryStore::Open(const std::string& path,
                                       const SqliteRegistryOptions& options) {
  const bool in_memory = path == ":memory:";
  if (!in_memory) {
    // Create the file ourselves so that it is private to the user; SQLite
    // gives its wal and shm files the same mode.
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) ::close(fd);
  }
  int rc = OpenConnection(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, options);
  if (rc != SQLITE_OK) return OpenError(rc);

  // Reading the header tells a database from any other file.
  std::int64_t version = 0, app_id = 0, objects = 0;
  rc = ReadHeader(&version, &app_id, &objects);
  if (((rc & 0xFF) == SQLITE_READONLY || (rc & 0xFF) == SQLITE_CANTOPEN) && !in_memory &&
      sqlite3_db_readonly(db_, "main") == 1) {
    // A database in WAL mode that we may only read, in a folder where its
    // shared-memory file cannot be made: read it as an unchanging file.
    CloseConnection();
    rc = OpenConnection(ImmutableUri(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, options);
    if (rc != SQLITE_OK) return OpenError(rc);
    rc = ReadHeader(&version, &app_id, &objects);
  }
  if (rc != SQLITE_OK) return OpenError(rc);
  if (version != 0 && ((version != kSchemaVersion && version != kSchemaVersion1252) ||
                       app_id != kApplicationId))
    return kErrorBadDatabase;  // a newer registry, or another program's file
  // Only an empty database becomes ours; another program's is left exactly
  // as it is, not even switched to WAL.
  if (version == 0 && (objects != 0 || app_id != 0)) return kErrorBadDatabase;

  const bool read_only = sqlite3_db_readonly(db_, "main") == 1;
  if (!read_only && !in_memory) {
    rc = Exec("PRAGMA journal_mode=WAL");
    if (rc != SQLITE_OK) return OpenError(rc);
    Exec("PRAGMA synchronous=NORMAL");  // durable enough with WAL
  }
  if (version == kSchemaVersion1252) {
    if (read_only) return kErrorCantOpen;
    if (std::int32_t code = UpgradeFrom1252(); code != kErrorSuccess) return code;
  }
  if (version == 0) {
    if (read_only) return kErrorCantOpen;
    rc = Exec("BEGIN IMMEDIATE");
    if (rc != SQLITE_OK) return OpenError(rc);
    rc = sqlite3_exec(db_, kSchemaSql, nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK) rc = Exec("COMMIT");
    if (rc != SQLITE_OK) {
      if (!sqlite3_get_autocommit(db_)) Exec("ROLLBACK");
      return OpenError(rc);
    }
  }
  return kErrorSuccess;
}

int SqliteRegistryStore::OpenConnection(const std::string& name, int flags,
                                        const SqliteRegistryOptions& options) {
  int rc = sqlite3_open_v2(name.c_str(), &db_, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) return rc;
  sqlite3_extended_result_codes(db_, 1);
  sqlite3_busy_timeout(db_, options.busy_timeout_ms);
  return SQLITE_OK;
}

void SqliteRegistryStore::CloseConnection() {
  for (auto& entry : statements_) sqlite3_finalize(entry.second);
  statements_.clear();
  if (db_ != nullptr) sqlite3_close_v2(db_);
  db_ = nullptr;
}

int SqliteRegistryStore::ReadHeader(std::int64_t* version, std::int64_t* app_id,
                                    std::int64_t* objects) {
  for (auto [sql, value] : {std::pair{"PRAGMA user_version", version},
                            std::pair{"PRAGMA application_id", app_id},
                            std::pair{"SELECT count(*) FROM sqlite_master", objects}}) {
    int rc = SQLITE_OK;
    sqlite3_stmt* stmt = Statement(sql, &rc);
    if (stmt == nullptr) return rc;
    StatementScope scope(stmt);
    rc = sqlite3_step(stmt);
    if (rc != SQLITE_ROW) return rc;
    *value = sqlite3_column_int64(stmt, 0);
  }
  return SQLITE_OK;
}

std::string SqliteRegistryStore::ImmutableUri(const std::string& path) {
  std::string uri = "file:";
  for (unsigned char c : path) {
    if (c == '%' || c == '?' || c == '#' || c < 0x20 || c >= 0x7F) {
      char hex[4];
      std::snprintf(hex, sizeof hex, "%%%02X", c);
      uri += hex;
    } else {
      uri += static_cast<char>(c);
    }
  }
  return uri + "?immutable=1";
}

void SqliteRegistryStore::EnsureOpen() {
  if (open_result_ != kErrorCantWrite) return;
  // The last try found the database locked: try again now.
  CloseConnection();
  open_result_ = Open(path_, options_);
  if (open_result_ != kErrorSuccess) CloseConnectionIfTransient();
}

void SqliteRegistryStore::CloseConnectionIfTransient() {
  if (open_result_ == kErrorCantWrite) CloseConnection();
}

std::int32_t SqliteRegistryStore::UpgradeFrom1252() {
  struct Row {
    std::int64_t id;
    std::string name;
    std::uint32_t type;
    std::string data;
  };
  auto read_rows = [&](const char* sql, bool values, std::vector<Row>* rows) {
    int rc = SQLITE_OK;
    sqlite3_stmt* stmt = Statement(sql, &rc);
    if (stmt == nullptr) return rc;
    StatementScope scope(stmt);
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {
      Row r{sqlite3_column_int64(stmt, 0), ColumnBytes(stmt, 1), 0, {}};
      if (values) {
        r.type = static_cast<std::uint32_t>(sqlite3_column_int64(stmt, 2));
        r.data = ColumnBytes(stmt, 3);
      }
      rows->push_back(std::move(r));
    }
    return rc == SQLITE_DONE ? SQLITE_OK : rc;
  };
  writing_ = true;
  int rc = Exec("BEGIN IMMEDIATE");
  if (rc != SQLITE_OK) return OpenError(rc);
  auto body = [&]() -> std::int32_t {
    std::int64_t version = 0;
    std::int32_t code = QueryRow("PRAGMA user_version", kErrorBadDatabase,
                                 [&](sqlite3_stmt* stmt) { version = sqlite3_column_int64(stmt, 0); });
    if (code != kErrorSuccess || version != kSchemaVersion1252) return code;  // done by another process
    std::vector<Row> keys, values;
    if ((rc = read_rows("SELECT id, name FROM reg_keys WHERE parent IS NOT NULL", false, &keys)) != SQLITE_OK ||
        (rc = read_rows("SELECT rowid, name, type, data FROM reg_values", true, &values)) != SQLITE_OK)
      return StoreError(rc);
    // Unique placeholders first, so that no new fold meets an old one.
    for (const char* sql : {"UPDATE reg_keys SET fold = X'FF' || id WHERE parent IS NOT NULL",
                            "UPDATE reg_values SET fold = X'FF' || rowid"})
      if ((code = Change(sql)) != kErrorSuccess) return code;
    for (const Row& r : keys) {
      const std::string name = ToStored(r.name, kCodePage1252);
      code = Change("UPDATE reg_keys SET name = ?2, fold = ?3 WHERE id = ?1", r.id,
                    std::string_view(name), std::string_view(FoldName(name)));
      if (code != kErrorSuccess) return code;
    }
    for (const Row& r : values) {
      const std::string name = ToStored(r.name, kCodePage1252);
      const std::string data = IsConvertedType(r.type) ? ToStored(r.data, kCodePage1252) : r.data;
      code = Change("UPDATE reg_values SET name = ?2, fold = ?3, data = ?4 WHERE rowid = ?1", r.id,
                    std::string_view(name), std::string_view(FoldName(name)), std::string_view(data));
      if (code != kErrorSuccess) return code;
    }
    rc = Exec("PRAGMA user_version = 2");
    return rc == SQLITE_OK ? kErrorSuccess : StoreError(rc);
  };
  return Finish(body());
}

sqlite3_stmt* SqliteRegistryStore::Statement(const char* sql, int* rc) {
  auto it = statements_.find(sql);
  if (it != statements_.end()) return it->second;
  sqlite3_stmt* stmt = nullptr;
  *rc = sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt,
                           nullptr);
  if (*rc != SQLITE_OK) {
    sqlite3_finalize(stmt);
    return nullptr;
  }
  statements_.emplace(sql, stmt);
  return stmt;
}

int SqliteRegistryStore::Exec(const char* sql) {
  int rc = SQLITE_OK;
  sqlite3_stmt* stmt = Statement(sql, &rc);
  if (stmt == nullptr) return rc;
  StatementScope scope(stmt);
  do {
    rc = sqlite3_step(stmt);
  } while (rc == SQLITE_ROW);
  return rc == SQLITE_DONE ? SQLITE_OK : rc;
}

std::int32_t SqliteRegistryStore::StoreError(int rc) const {
  switch (rc & 0xFF) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return kErrorBadDatabase;
    case SQLITE_NOMEM:
      return kErrorOutOfMemory;
    default:
      return writing_ ? kErrorCantWrite : kErrorCantRead;
  }
}

template <typename Body>
std::int32_t SqliteRegistryStore::Transaction(bool write, Body body) {
  writing_ = write;
  int rc = Exec(write ? "BEGIN IMMEDIATE" : "BEGIN DEFERRED");
  if (rc != SQLITE_OK) return StoreError(rc);
  return Finish(body());
}

std::int32_t SqliteRegistryStore::Finish(std::int32_t code) {
  if (code == kErrorSuccess) {
    int rc = Exec("COMMIT");
    if (rc != SQLITE_OK) code = StoreError(rc);
  }
  // A failed body or commit leaves the transaction open: undo all of it.
  if (!sqlite3_get_autocommit(db_)) Exec("ROLLBACK");
  return code;
}

template <typename Body>
std::int32_t SqliteRegistryStore::OnHandle(RegKey key, Body body) {
  std::lock_guard<std::mutex> lock(mu_);
  cp_ = code_page();
  Handle handle;
  std::int32_t code = Lookup(key, &handle);
  return code != kErrorSuccess ? code : body(handle);
}

template <typename Body>
std::int32_t SqliteRegistryStore::OnPath(RegKey key, const char* subkey,
                                         Body body) {
  return OnHandle(key, [&](const Handle& handle) {
    std::vector<std::string_view> parts;
    std::int32_t code = SplitKeyPath(subkey ? subkey : "", &parts);
    return code != kErrorSuccess ? code : body(handle, parts);
  });
}

template <typename Body>
std::int32_t SqliteRegistryStore::OnSubkey(RegKey parent, const char* subkey,
                                           bool bad_args,
                                           std::int32_t* open_result,
                                           Body body) {
  if (open_result != nullptr) *open_result = kErrorSuccess;
  std::lock_guard<std::mutex> lock(mu_);
  cp_ = code_page();
  auto open_failed = [&](std::int32_t code) {
    if (open_result != nullptr) *open_result = code;
    if (bad_args) return kErrorInvalidParameter;
    return open_result_ != kErrorSuccess ? open_result_ : kErrorInvalidHandle;
  };
  Handle handle;
  std::vector<std::string_view> parts;
  std::int32_t code = Lookup(parent, &handle);
  if (code == kErrorSuccess) code = SplitKeyPath(subkey ? subkey : "", &parts);
  if (code != kErrorSuccess) return open_failed(code);
  return body(handle, parts, open_failed);
}

template <typename Body>
std::int32_t SqliteRegistryStore::OnKey(bool write, std::int64_t key_id,
                                        Body body) {
  auto run = [&] {
    std::int64_t depth = 0;
    std::int32_t code = LoadKey(key_id, &depth);
    return code != kErrorSuccess ? code : body(depth);
  };
  return Transaction(write, run);
}

template <typename Row, typename... Params>
std::int32_t SqliteRegistryStore::QueryRow(const char* sql, std::int32_t no_row,
                                           Row row, const Params&... params) {
  int rc = SQLITE_OK;
  sqlite3_stmt* stmt = Statement(sql, &rc);
  if (stmt == nullptr) return StoreError(rc);
  StatementScope scope(stmt);
  int index = 0;
  // Binds in order and stops at the first failure.
  ((rc = rc == SQLITE_OK ? BindParam(stmt, ++index, params) : rc), ...);
  if (rc != SQLITE_OK) return StoreError(rc);
  rc = sqlite3_step(stmt);
  if (rc == SQLITE_DONE) return no_row;
  if (rc != SQLITE_ROW) return StoreError(rc);
  row(stmt);
  return kErrorSuccess;
}

template <typename... Params>
std::int32_t SqliteRegistryStore::Change(const char* sql,
                                         const Params&... params) {
  return QueryRow(
      sql, kErrorSuccess, [](sqlite3_stmt*) {}, params...);
}

std::int32_t SqliteRegistryStore::Lookup(RegKey key, Handle* handle) {
  EnsureOpen();
  if (open_result_ != kErrorSuccess) return open_result_;
  if (IsRootHandle(key)) {
    *handle = {kFirstRootId + (key - kHKeyClassesRoot), kKeyAllAccess};
    return kErrorSuccess;
  }
  auto it = handles_.find(key);
  if (it == handles_.end()) return kErrorInvalidHandle;
  *handle = it->second;
  return kErrorSuccess;
}

RegKey SqliteRegistryStore::AddHandle(std::int64_t key_id,
                                      std::uint32_t access) {
  // Handle numbers run upwards below the roots; after a wrap-around the
  // ones still in use are skipped.
  while (next_handle_ == 0 || next_handle_ >= kHKeyClassesRoot ||
         handles_.count(next_handle_) != 0) {
    next_handle_ =
        next_handle_ >= kHKeyClassesRoot ? kFirstHandle : next_handle_ + 1;
  }
  RegKey key = next_handle_++;
  handles_[key] = {key_id, access};
  return key;
}

std::int32_t SqliteRegistryStore::LoadKey(std::int64_t id,
                                          std::int64_t* depth) {
  return QueryRow(
      "SELECT depth FROM reg_keys WHERE id = ?1", kErrorKeyDeleted,
      [&](sqlite3_stmt* stmt) { *depth = sqlite3_column_int64(stmt, 0); }, id);
}

std::int32_t SqliteRegistryStore::FindChild(std::int64_t parent,
                                            std::string_view name,
                                            std::int64_t* child) {
  return QueryRow(
      "SELECT id FROM reg_keys WHERE parent = ?1 AND fold = ?2",
      kErrorFileNotFound,
      [&](sqlite3_stmt* stmt) { *child = sqlite3_column_int64(stmt, 0); },
      parent, std::string_view(FoldName(ToStored(name, cp_))));
}

std::int32_t SqliteRegistryStore::Resolve(
    std::int64_t base, const std::vector<std::string_view>& parts,
    std::int64_t* id) {
  std::int64_t current = base;
  for (std::string_view part : parts) {
    std::int32_t code = FindChild(current, part, &current);
    if (code != kErrorSuccess) return code;
  }
  *id = current;
  return kErrorSuccess;
}

std::int32_t SqliteRegistryStore::ResolveOrCreate(
    std::int64_t base, std::int64_t base_depth,
    const std::vector<std::string_view>& parts, std::int64_t* id,
    bool* created) {
  std::int64_t current = base;
  std::int64_t depth = base_depth;
  *created = false;
  for (std::string_view part : parts) {
    ++depth;
    std::int32_t code = FindChild(current, part, &current);
    if (code == kErrorSuccess) continue;
    if (code != kErrorFileNotFound) return code;
    const std::string stored = ToStored(part, cp_);
    code = Change(
        "INSERT INTO reg_keys(parent, name, fold, depth) "
        "VALUES(?1, ?2, ?3, ?4)",
        current, std::string_view(stored), std::string_view(FoldName(stored)), depth);
    if (code != kErrorSuccess) return code;
    current = sqlite3_last_insert_rowid(db_);
    *created = true;
  }
  *id = current;
  return kErrorSuccess;
}

std::int32_t SqliteRegistryStore::FetchValue(std::int64_t key_id,
                                             const std::string& fold,
                                             std::uint32_t* type,
                                             std::string* data) {
  return QueryRow(
      "SELECT type, data FROM reg_values WHERE key_id = ?1 AND fold = ?2",
      kErrorFileNotFound,
      [&](sqlite3_stmt* stmt) {
        *type = static_cast<std::uint32_t>(sqlite3_column_int64(stmt, 0));
        *data = ColumnBytes(stmt, 1);
        if (IsConvertedType(*type)) *data = FromStored(*data, cp_);
      },
      key_id, std::string_view(fold));
}

std::int32_t SqliteRegistryStore::DeniedWrite(const Handle& handle) {
  // A deleted key is reported as such even through a read-only handle.
  std::int32_t code =
      OnKey(false, handle.key_id, [](std::int64_t) { return kErrorSuccess; });
  return code != kErrorSuccess ? code : kErrorAccessDenied;
}

std::int32_t SqliteRegistryStore::CreateKey(RegKey parent, const char* subkey,
                                            std::uint32_t access,
                                            RegKey* result,
                                            std::uint32_t* disposition) {
  if (result == nullptr) return kErrorInvalidParameter;
  *result = 0;
  return OnPath(
      parent, subkey,
      [&](const Handle& handle, const std::vector<std::string_view>& parts) {
        // Most creates find the key in place: try that without taking the
        // write lock, which also lets existing keys open in a read-only
        // database.
        std::int64_t id = 0;
        bool created = false;
        auto find_or_make = [&](bool make) {
          return OnKey(make, handle.key_id, [&](std::int64_t depth) {
            if (depth + static_cast<std::int64_t>(parts.size()) >
                static_cast<std::int64_t>(kMaxKeyDepth))
              return kErrorInvalidParameter;
            return make ? ResolveOrCreate(handle.key_id, depth, parts, &id,
                                          &created)
                        : Resolve(handle.key_id, parts, &id);
          });
        };
        std::int32_t code = find_or_make(false);
        if (code == kErrorFileNotFound) code = find_or_make(true);
        if (code != kErrorSuccess) return code;
        *result = AddHandle(id, access);
        if (disposition != nullptr)
          *disposition = created ? kRegCreatedNewKey : kRegOpenedExistingKey;
        return kErrorSuccess;
      });
}

std::int32_t SqliteRegistryStore::OpenKey(RegKey parent, const char* subkey,
                                          std::uint32_t access,
                                          RegKey* result) {
  if (result == nullptr) return kErrorInvalidParameter;
  *result = 0;
  return OnPath(
      parent, subkey,
      [&](const Handle& handle, const std::vector<std::string_view>& parts) {
        std::int64_t id = 0;
        std::int32_t code = OnKey(false, handle.key_id, [&](std::int64_t) {
          return Resolve(handle.key_id, parts, &id);
        });
        if (code != kErrorSuccess) return code;
        *result = AddHandle(id, access);
        return kErrorSuccess;
      });
}

std::int32_t SqliteRegistryStore::CloseKey(RegKey key) {
  std::lock_guard<std::mutex> lock(mu_);
  if (IsRootHandle(key)) return kErrorSuccess;
  return handles_.erase(key) != 0 ? kErrorSuccess : kErrorInvalidHandle;
}

std::int32_t SqliteRegistryStore::QueryValue(RegKey key, const char* name,
                                             std::uint32_t* type,
                                             std::uint8_t* data,
                                             std::uint32_t* size) {
  if (data != nullptr && size == nullptr) return kErrorInvalidParameter;
  return OnHandle(key, [&](const Handle& handle) {
    const std::string fold = FoldName(ToStored(name ? name : "", cp_));
    std::uint32_t stored_type = kRegNone;
    std::string bytes;
    std::int32_t code = OnKey(false, handle.key_id, [&](std::int64_t) {
      return FetchValue(handle.key_id, fold, &stored_type, &bytes);
    });
    return CopyValueOut(code, stored_type, &bytes, type, data, size);
  });
}

std::int32_t SqliteRegistryStore::QueryValueAt(
    RegKey parent, const char* subkey, const char* name, std::uint32_t* type,
    std::uint8_t* data, std::uint32_t* size, std::int32_t* open_result) {
  const bool bad_args = data != nullptr && size == nullptr;
  return OnSubkey(
      parent, subkey, bad_args, open_result,
      [&](const Handle& handle, const std::vector<std::string_view>& parts,
          const auto& open_failed) {
        if (bad_args) return kErrorInvalidParameter;
        const std::string fold = FoldName(ToStored(name ? name : "", cp_));
        std::uint32_t stored_type = kRegNone;
        std::string bytes;
        bool opened = false;
        std::int32_t code = OnKey(false, handle.key_id, [&](std::int64_t) {
          std::int64_t id = 0;
          std::int32_t c = Resolve(handle.key_id, parts, &id);
          if (c != kErrorSuccess) return c;
          opened = true;
          return FetchValue(id, fold, &stored_type, &bytes);
        });
        if (!opened) return open_failed(code);
        return CopyValueOut(code, stored_type, &bytes, type, data, size);
      });
}

std::int32_t SqliteRegistryStore::SetValue(RegKey key, const char* name,
                                           std::uint32_t type,
                                           const std::uint8_t* data,
                                           std::uint32_t size) {
  if (data == nullptr && size > 0) return kErrorInvalidParameter;
  return OnHandle(key, [&](const Handle& handle) {
    const std::string_view value_name = name ? name : "";
    if (value_name.size() > kMaxValueNameLength) return kErrorInvalidParameter;
    if ((handle.access & kKeySetValue) == 0) return DeniedWrite(handle);
    return OnKey(true, handle.key_id, [&](std::int64_t) {
      return PutValue(handle.key_id, value_name, type, data, size);
    });
  });
}

std::int32_t SqliteRegistryStore::PutValue(std::int64_t key_id,
                                           std::string_view value_name,
                                           std::uint32_t type,
                                           const std::uint8_t* data,
                                           std::uint32_t size) {
  // A replaced value keeps its name's spelling and its place.
  const std::string stored = ToStored(value_name, cp_);
  std::string text;
  if (IsConvertedType(type) && size > 0) {
    text = ToStored(std::string_view(reinterpret_cast<const char*>(data), size), cp_);
    if (text.size() > UINT32_MAX) return kErrorInvalidParameter;
    data = reinterpret_cast<const std::uint8_t*>(text.data());
    size = static_cast<std::uint32_t>(text.size());
  }
  return Change(
      "INSERT INTO reg_values(key_id, name, fold, type, data, seq) "
      "VALUES(?1, ?2, ?3, ?4, ?5, (SELECT COALESCE(MAX(seq), 0) + 1 "
      "FROM reg_values WHERE key_id = ?1)) "
      "ON CONFLICT(key_id, fold) DO UPDATE SET "
      "type = excluded.type, data = excluded.data",
      key_id, std::string_view(stored), std::string_view(FoldName(stored)), std::int64_t{type},
      ValueData{data, size});
}

std::int32_t SqliteRegistryStore::SetValueAt(
    RegKey parent, const char* subkey, const char* name, std::uint32_t type,
    const std::uint8_t* data, std::uint32_t size, std::int32_t* open_result) {
  const bool bad_args = data == nullptr && size > 0;
  return OnSubkey(
      parent, subkey, bad_args, open_result,
      [&](const Handle& handle, const std::vector<std::string_view>& parts,
          const auto& open_failed) {
        auto resolve_only = [&] {
          std::int64_t id = 0;
          return OnKey(false, handle.key_id, [&](std::int64_t) {
            return Resolve(handle.key_id, parts, &id);
          });
        };
        const std::string_view value_name = name ? name : "";
        if (bad_args || value_name.size() > kMaxValueNameLength) {
          std::int32_t opened = resolve_only();
          if (opened != kErrorSuccess) return open_failed(opened);
          return kErrorInvalidParameter;
        }
        bool began = false, opened = false;
        std::int32_t code = Transaction(true, [&] {
          began = true;
          std::int64_t depth, id = 0;
          std::int32_t c = LoadKey(handle.key_id, &depth);
          if (c == kErrorSuccess) c = Resolve(handle.key_id, parts, &id);
          if (c != kErrorSuccess) return c;
          opened = true;
          return PutValue(id, value_name, type, data, size);
        });
        if (!began) {
          // The write could not start (a read-only or locked database): the
          // open alone would still have worked or failed on its own.
          std::int32_t open_code = resolve_only();
          return open_code != kErrorSuccess ? open_failed(open_code) : code;
        }
        return opened ? code : open_failed(code);
      });
}

std::int32_t SqliteRegistryStore::DeleteValue(RegKey key, const char* name) {
  return OnHandle(key, [&](const Handle& handle) {
    if ((handle.access & kKeySetValue) == 0) return DeniedWrite(handle);
    const std::string fold = FoldName(ToStored(name ? name : "", cp_));
    return OnKey(true, handle.key_id, [&](std::int64_t) {
      std::int32_t c =
          Change("DELETE FROM reg_values WHERE key_id = ?1 AND fold = ?2",
                 handle.key_id, fold);
      if (c != kErrorSuccess) return c;
      return sqlite3_changes(db_) == 0 ? kErrorFileNotFound : kErrorSuccess;
    });
  });
}

std::int32_t SqliteRegistryStore::DeleteKey(RegKey key, const char* subkey) {
  if (subkey == nullptr) return kErrorInvalidParameter;
  return OnPath(
      key, subkey,
      [&](const Handle& handle, const std::vector<std::string_view>& parts) {
        return OnKey(true, handle.key_id, [&](std::int64_t) {
          std::int64_t target;
          std::int32_t c = Resolve(handle.key_id, parts, &target);
          if (c != kErrorSuccess) return c;
          if (target >= kFirstRootId && target <= kLastRootId)
            return kErrorAccessDenied;
          bool has_subkeys = false;
          c = QueryRow(
              "SELECT 1 FROM reg_keys WHERE parent = ?1 LIMIT 1", kErrorSuccess,
              [&](sqlite3_stmt*) { has_subkeys = true; }, target);
          if (c != kErrorSuccess) return c;
          if (has_subkeys) return kErrorAccessDenied;
          for (const char* sql : {"DELETE FROM reg_values WHERE key_id = ?1",
                                  "DELETE FROM reg_keys WHERE id = ?1"}) {
            c = Change(sql, target);
            if (c != kErrorSuccess) return c;
          }
          return kErrorSuccess;
        });
      });
}

std::int32_t SqliteRegistryStore::EnumValue(
    RegKey key, std::uint32_t index, char* name, std::uint32_t* name_length,
    std::uint32_t* type, std::uint8_t* data, std::uint32_t* data_size) {
  if (name == nullptr || name_length == nullptr ||
      (data != nullptr && data_size == nullptr))
    return kErrorInvalidParameter;
  std::string value_name, bytes;
  std::uint32_t stored_type = kRegNone;
  std::uint32_t cp = kCodePage1252;
  std::int32_t code = OnHandle(key, [&](const Handle& handle) {
    cp = cp_;
    return OnKey(false, handle.key_id, [&](std::int64_t) {
      return QueryRow(
          "SELECT name, type, data FROM reg_values WHERE key_id = ?1 "
          "ORDER BY seq LIMIT 1 OFFSET ?2",
          kErrorNoMoreItems,
          [&](sqlite3_stmt* stmt) {
            value_name = FromStored(ColumnBytes(stmt, 0), cp_);
            stored_type =
                static_cast<std::uint32_t>(sqlite3_column_int64(stmt, 1));
            bytes = ColumnBytes(stmt, 2);
            if (IsConvertedType(stored_type)) bytes = FromStored(bytes, cp_);
          },
          handle.key_id, std::int64_t{index});
    });
  });
  if (code != kErrorSuccess) return code;
  AddMissingNul(stored_type, &bytes);
  const auto needed = static_cast<std::uint32_t>(bytes.size());
  if (data != nullptr && *data_size < needed) {
    *data_size = needed;
    if (type != nullptr) *type = stored_type;
    return kErrorMoreData;
  }
  if (*name_length > value_name.size()) {
    std::memcpy(name, value_name.data(), value_name.size());
    name[value_name.size()] = '\0';
    *name_length = static_cast<std::uint32_t>(value_name.size());
  } else {
    code = kErrorMoreData;
    if (*name_length > 0) {
      // Under UTF-8 the cut ends before a character that would be split.
      const std::size_t n = CutPoint(value_name, *name_length - 1, cp);
      std::memcpy(name, value_name.data(), n);
      name[n] = '\0';
    }
  }
  if (type != nullptr) *type = stored_type;
  if (data != nullptr && needed > 0) std::memcpy(data, bytes.data(), needed);
  if (data_size != nullptr) *data_size = needed;
  return code;
}

std::int32_t SqliteRegistryStore::EnumKey(RegKey key, std::uint32_t index,
                                          char* name,
                                          std::uint32_t name_size) {
  if (name == nullptr) return kErrorInvalidParameter;
  std::string key_name;
  std::int32_t code = OnHandle(key, [&](const Handle& handle) {
    return OnKey(false, handle.key_id, [&](std::int64_t) {
      return QueryRow(
          "SELECT name FROM reg_keys WHERE parent = ?1 "
          "ORDER BY fold LIMIT 1 OFFSET ?2",
          kErrorNoMoreItems,
          [&](sqlite3_stmt* stmt) { key_name = FromStored(ColumnBytes(stmt, 0), cp_); },
          handle.key_id, std::int64_t{index});
    });
  });
  if (code != kErrorSuccess) return code;
  if (name_size <= key_name.size()) return kErrorMoreData;
  std::memcpy(name, key_name.data(), key_name.size());
  name[key_name.size()] = '\0';
  return kErrorSuccess;
}

}  // namespace

std::shared_ptr<RegistryStore> OpenSqliteRegistryStore(
    const std::string& path, const SqliteRegistryOptions& options,
    std::int32_t* open_result) {
  auto store = std::make_shared<SqliteRegistryStore>(path, options);
  if (options.code_page != 0) store->set_code_page(options.code_page);
  if (open_result != nullptr) *open_result = store->open_result();
  return store;
}

}  // namespace tarvo2
