// The store-independent parts of the registry store: the one-step defaults,
// the forwarding wrapper, and the locations.
#include "tarvo2/registry_store.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace tarvo2 {

RegistryStore::RegistryStore() : code_page_(EnvironmentCodePage()) {}

RegistryStore::~RegistryStore() = default;

std::uint32_t RegistryStore::code_page() const { return code_page_.load(std::memory_order_relaxed); }

void RegistryStore::set_code_page(std::uint32_t code_page) {
  code_page_.store(code_page, std::memory_order_relaxed);
}

std::int32_t RegistryStore::QueryValueAt(RegKey parent, const char* subkey,
                                         const char* name, std::uint32_t* type,
                                         std::uint8_t* data,
                                         std::uint32_t* size,
                                         std::int32_t* open_result) {
  RegKey key = 0;
  std::int32_t opened = OpenKey(parent, subkey, kKeyQueryValue, &key);
  if (open_result != nullptr) *open_result = opened;
  std::int32_t code = QueryValue(key, name, type, data, size);
  if (key != 0) CloseKey(key);
  return code;
}

std::int32_t RegistryStore::SetValueAt(RegKey parent, const char* subkey,
                                       const char* name, std::uint32_t type,
                                       const std::uint8_t* data,
                                       std::uint32_t size,
                                       std::int32_t* open_result) {
  RegKey key = 0;
  std::int32_t opened = OpenKey(parent, subkey, kKeySetValue, &key);
  if (open_result != nullptr) *open_result = opened;
  std::int32_t code = SetValue(key, name, type, data, size);
  if (key != 0) CloseKey(key);
  return code;
}

// ---------------------------------------------------------------------------
// RegistryStoreWrapper

RegistryStoreWrapper::RegistryStoreWrapper(
    std::shared_ptr<RegistryStore> target)
    : target_(std::move(target)) {}

RegistryStoreWrapper::~RegistryStoreWrapper() = default;

std::uint32_t RegistryStoreWrapper::code_page() const { return target_->code_page(); }

void RegistryStoreWrapper::set_code_page(std::uint32_t code_page) { target_->set_code_page(code_page); }

std::int32_t RegistryStoreWrapper::CreateKey(RegKey parent, const char* subkey,
                                             std::uint32_t access,
                                             RegKey* result,
                                             std::uint32_t* disposition) {
  return target_->CreateKey(parent, subkey, access, result, disposition);
}

std::int32_t RegistryStoreWrapper::OpenKey(RegKey parent, const char* subkey,
                                           std::uint32_t access,
                                           RegKey* result) {
  return target_->OpenKey(parent, subkey, access, result);
}

std::int32_t RegistryStoreWrapper::CloseKey(RegKey key) {
  return target_->CloseKey(key);
}

std::int32_t RegistryStoreWrapper::QueryValue(RegKey key, const char* name,
                                              std::uint32_t* type,
                                              std::uint8_t* data,
                                              std::uint32_t* size) {
  return target_->QueryValue(key, name, type, data, size);
}

std::int32_t RegistryStoreWrapper::SetValue(RegKey key, const char* name,
                                            std::uint32_t type,
                                            const std::uint8_t* data,
                                            std::uint32_t size) {
  return target_->SetValue(key, name, type, data, size);
}

std::int32_t RegistryStoreWrapper::DeleteValue(RegKey key, const char* name) {
  return target_->DeleteValue(key, name);
}

std::int32_t RegistryStoreWrapper::DeleteKey(RegKey key, const char* subkey) {
  return target_->DeleteKey(key, subkey);
}

std::int32_t RegistryStoreWrapper::EnumValue(
    RegKey key, std::uint32_t index, char* name, std::uint32_t* name_length,
    std::uint32_t* type, std::uint8_t* data, std::uint32_t* data_size) {
  return target_->EnumValue(key, index, name, name_length, type, data,
                            data_size);
}

std::int32_t RegistryStoreWrapper::EnumKey(RegKey key, std::uint32_t index,
                                           char* name,
                                           std::uint32_t name_size) {
  return target_->EnumKey(key, index, name, name_size);
}

// ---------------------------------------------------------------------------
// Locations

namespace {

std::string EnvOrEmpty(const char* name) {
  const char* v = std::getenv(name);
  return v == nullptr ? std::string() : std::string(v);
}

// The folder that holds the per-user registry when TARVO2_REGISTRY is not
// set, or "" when neither XDG_CONFIG_HOME nor a home folder is known.
std::string DefaultRegistryFolder() {
  std::string config = EnvOrEmpty("XDG_CONFIG_HOME");
  if (config.empty()) {
    std::string home = EnvOrEmpty("HOME");
    if (home.empty()) {
      // No HOME in the environment (a service, a stripped test run): fall
      // back to the account's home folder.
      struct passwd pwd;
      struct passwd* found = nullptr;
      char buf[4096];
      if (::getpwuid_r(::getuid(), &pwd, buf, sizeof buf, &found) != 0 ||
          found == nullptr || found->pw_dir == nullptr ||
          found->pw_dir[0] == '\0')
        return std::string();
      home = found->pw_dir;
    }
    config = home + "/.config";
  }
  return config + "/tarvo2";
}

// Creates `folder` and its missing parents, each with mode 0700. Failures
// are left for the database open to report.
void MakeFolders(const std::string& folder) {
  for (std::size_t pos = 1; pos <= folder.size(); ++pos) {
    if (pos == folder.size() || folder[pos] == '/') {
      std::string prefix = folder.substr(0, pos);
      if (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST) return;
    }
  }
}

}  // namespace

std::string DefaultRegistryLocation() {
  std::string env = EnvOrEmpty("TARVO2_REGISTRY");
  if (!env.empty()) return env;
  std::string folder = DefaultRegistryFolder();
  // Without any home the registry cannot persist; keep it in memory rather
  // than writing into the current directory.
  if (folder.empty()) return ":memory:";
  return folder + "/registry.sqlite3";
}

std::shared_ptr<RegistryStore> OpenRegistryStore(const std::string& location,
                                                 std::int32_t* open_result) {
  std::string path = location;
  if (path.empty()) {
    path = DefaultRegistryLocation();
    if (EnvOrEmpty("TARVO2_REGISTRY").empty() && path != ":memory:")
      MakeFolders(DefaultRegistryFolder());
  }
  return OpenSqliteRegistryStore(path, SqliteRegistryOptions(), open_result);
}

}  // namespace tarvo2
