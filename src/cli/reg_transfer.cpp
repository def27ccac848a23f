#include "cli/reg_transfer.h"

#include <vector>

namespace tarvo2::regfile {
namespace {

const struct {
  const char* name;
  RegKey key;
} kRootTable[] = {
    {"HKEY_CLASSES_ROOT", kHKeyClassesRoot},
    {"HKEY_CURRENT_USER", kHKeyCurrentUser},
    {"HKEY_LOCAL_MACHINE", kHKeyLocalMachine},
    {"HKEY_USERS", kHKeyUsers},
};

// Splits "HKEY_CURRENT_USER\Software\App" into the root handle and the path.
bool SplitPath(const std::string& full, RegKey* root, std::string* path) {
  std::size_t sep = full.find('\\');
  std::string name = full.substr(0, sep);
  for (const auto& r : kRootTable) {
    if (name == r.name) {
      *root = r.key;
      *path = sep == std::string::npos ? std::string() : full.substr(sep + 1);
      return true;
    }
  }
  return false;
}

std::string Join(const std::string& path, const std::string& name) { return path.empty() ? name : path + "\\" + name; }

// Closes a handle when it goes out of scope.
class Handle {
 public:
  explicit Handle(RegistryStore& store) : store_(store) {}
  ~Handle() {
    if (h_) store_.CloseKey(h_);
  }
  RegKey* out() { return &h_; }
  RegKey get() const { return h_; }

 private:
  RegistryStore& store_;
  RegKey h_ = 0;
};

// Reads value `name` of `h`. A missing value sets *exists false and is no
// failure.
std::int32_t ReadValue(RegistryStore& store, RegKey h, const std::string& name, bool* exists, std::uint32_t* type,
                       std::string* data) {
  for (;;) {
    std::uint32_t size = 0;
    std::int32_t rc = store.QueryValue(h, name.c_str(), type, nullptr, &size);
    *exists = rc != kErrorFileNotFound;
    if (rc == kErrorFileNotFound) return kErrorSuccess;
    if (rc != kErrorSuccess) return rc;
    std::vector<std::uint8_t> buf(size + 1);
    rc = store.QueryValue(h, name.c_str(), type, buf.data(), &size);
    if (rc == kErrorMoreData) continue;  // changed meanwhile
    if (rc != kErrorSuccess) return rc;
    data->assign(reinterpret_cast<const char*>(buf.data()), size);
    return kErrorSuccess;
  }
}

std::int32_t SubkeyNames(RegistryStore& store, RegKey h, std::vector<std::string>* names) {
  char buf[kMaxKeyNameLength + 1];
  for (std::uint32_t i = 0;; ++i) {
    std::int32_t rc = store.EnumKey(h, i, buf, sizeof buf);
    if (rc == kErrorNoMoreItems) return kErrorSuccess;
    if (rc != kErrorSuccess) return rc;
    names->push_back(buf);
  }
}

// Deletes the key `path` below `root` with all its subkeys; a missing key
// is no failure.
std::int32_t DeleteTree(RegistryStore& store, RegKey root, const std::string& path) {
  std::vector<std::string> children;
  {
    Handle h(store);
    std::int32_t rc = store.OpenKey(root, path.c_str(), kKeyRead, h.out());
    if (rc == kErrorFileNotFound) return kErrorSuccess;
    if (rc != kErrorSuccess) return rc;
    if ((rc = SubkeyNames(store, h.get(), &children)) != kErrorSuccess) return rc;
  }
  for (const auto& child : children)
    if (std::int32_t rc = DeleteTree(store, root, Join(path, child)); rc != kErrorSuccess) return rc;
  std::int32_t rc = store.DeleteKey(root, path.c_str());
  return rc == kErrorFileNotFound ? kErrorSuccess : rc;
}

std::int32_t ExportTree(RegistryStore& store, RegKey root, const std::string& path, RegFile* out,
                        const ProgressFn& progress) {
  std::vector<std::string> children;
  {
    Handle h(store);
    std::int32_t rc = store.OpenKey(root, path.c_str(), kKeyRead, h.out());
    if (rc != kErrorSuccess) return rc;
    RegFileKey key;
    key.path = Join(RootName(root), path);
    std::vector<char> name(kMaxValueNameLength + 1);
    std::vector<std::uint8_t> data(4096);
    for (std::uint32_t i = 0;;) {
      std::uint32_t name_length = static_cast<std::uint32_t>(name.size());
      std::uint32_t data_size = static_cast<std::uint32_t>(data.size());
      std::uint32_t type = 0;
      rc = store.EnumValue(h.get(), i, name.data(), &name_length, &type, data.data(), &data_size);
      if (rc == kErrorNoMoreItems) break;
      if (rc == kErrorMoreData && data_size > data.size()) {
        data.resize(data_size);
        continue;
      }
      if (rc != kErrorSuccess) return rc;
      RegFileValue v;
      v.name.assign(name.data(), name_length);
      v.type = type;
      v.data.assign(reinterpret_cast<const char*>(data.data()), data_size);
      key.values.push_back(std::move(v));
      ++i;
    }
    if ((rc = SubkeyNames(store, h.get(), &children)) != kErrorSuccess) return rc;
    out->keys.push_back(std::move(key));
  }
  if (progress) progress(out->keys.size(), 0);
  for (const auto& child : children)
    if (std::int32_t rc = ExportTree(store, root, Join(path, child), out, progress); rc != kErrorSuccess) return rc;
  return kErrorSuccess;
}

// One step that undoes one change of an import.
struct Undo {
  enum Kind { kDeleteTree, kSetValue, kDeleteValue, kRestoreTree } kind;
  RegKey root = 0;
  std::string path{};
  std::string name{};
  std::uint32_t type = 0;
  std::string data{};
  RegFile tree{};
};

std::int32_t SetOne(RegistryStore& store, RegKey h, const std::string& name, std::uint32_t type,
                    const std::string& data) {
  return store.SetValue(h, name.c_str(), type, reinterpret_cast<const std::uint8_t*>(data.data()),
                        static_cast<std::uint32_t>(data.size()));
}

// Writes the keys and values of `tree` (an export) back.
std::int32_t RestoreTree(RegistryStore& store, const RegFile& tree) {
  for (const RegFileKey& key : tree.keys) {
    RegKey root;
    std::string path;
    if (!SplitPath(key.path, &root, &path)) return kErrorInvalidParameter;
    Handle h(store);
    std::int32_t rc = store.CreateKey(root, path.c_str(), kKeyAllAccess, h.out(), nullptr);
    if (rc != kErrorSuccess) return rc;
    for (const RegFileValue& v : key.values)
      if ((rc = SetOne(store, h.get(), v.name, v.type, v.data)) != kErrorSuccess) return rc;
  }
  return kErrorSuccess;
}

std::int32_t RunUndo(RegistryStore& store, const Undo& u) {
  switch (u.kind) {
    case Undo::kDeleteTree:
      return DeleteTree(store, u.root, u.path);
    case Undo::kRestoreTree:
      return RestoreTree(store, u.tree);
    case Undo::kSetValue:
    case Undo::kDeleteValue: {
      Handle h(store);
      std::int32_t rc = store.OpenKey(u.root, u.path.c_str(), kKeySetValue, h.out());
      if (rc != kErrorSuccess) return rc;
      if (u.kind == Undo::kSetValue) return SetOne(store, h.get(), u.name, u.type, u.data);
      rc = store.DeleteValue(h.get(), u.name.c_str());
      return rc == kErrorFileNotFound ? kErrorSuccess : rc;
    }
  }
  return kErrorSuccess;
}

class Importer {
 public:
  Importer(RegistryStore& store) : store_(store) {}

  // Applies one key block; returns the failed call's code, `what_` naming it.
  std::int32_t Apply(const RegFileKey& key) {
    RegKey root;
    std::string path;
    if (!SplitPath(key.path, &root, &path)) return Failed(kErrorInvalidParameter, "unknown root", key);
    return key.remove ? RemoveKey(root, path, key) : WriteKey(root, path, key);
  }

  bool Rollback() {
    bool ok = true;
    for (auto it = undo_.rbegin(); it != undo_.rend(); ++it)
      if (RunUndo(store_, *it) != kErrorSuccess) ok = false;
    undo_.clear();
    return ok;
  }

  const std::string& what() const { return what_; }

 private:
  std::int32_t Failed(std::int32_t rc, const std::string& step, const RegFileKey& key) {
    what_ = step + " (line " + std::to_string(key.line) + ", [" + key.path + "])";
    return rc;
  }

  std::int32_t RemoveKey(RegKey root, const std::string& path, const RegFileKey& key) {
    Undo u{Undo::kRestoreTree};
    std::int32_t rc = ExportTree(store_, root, path, &u.tree, nullptr);
    if (rc == kErrorFileNotFound) return kErrorSuccess;
    if (rc != kErrorSuccess) return Failed(rc, "reading the key to delete", key);
    undo_.push_back(std::move(u));
    if ((rc = DeleteTree(store_, root, path)) != kErrorSuccess) return Failed(rc, "deleting the key", key);
    return kErrorSuccess;
  }

  std::int32_t WriteKey(RegKey root, const std::string& path, const RegFileKey& key) {
    // The first component of the path that does not exist yet: everything
    // from there down is new, and undoing means deleting it.
    std::size_t pos = 0;
    while (!path.empty()) {
      std::size_t end = path.find('\\', pos);
      std::string prefix = path.substr(0, end);
      Handle h(store_);
      std::int32_t rc = store_.OpenKey(root, prefix.c_str(), kKeyQueryValue, h.out());
      if (rc == kErrorFileNotFound) {
        undo_.push_back(Undo{Undo::kDeleteTree, root, prefix});
        break;
      }
      if (rc != kErrorSuccess) return Failed(rc, "opening the key", key);
      if (end == std::string::npos) break;
      pos = end + 1;
    }
    Handle h(store_);
    std::int32_t rc = store_.CreateKey(root, path.c_str(), kKeyAllAccess, h.out(), nullptr);
    if (rc != kErrorSuccess) return Failed(rc, "creating the key", key);
    for (const RegFileValue& v : key.values) {
      bool exists = false;
      Undo u{Undo::kSetValue, root, path, v.name};
      if ((rc = ReadValue(store_, h.get(), v.name, &exists, &u.type, &u.data)) != kErrorSuccess)
        return Failed(rc, "reading value \"" + v.name + "\"", key);
      if (v.remove) {
        if (!exists) continue;
        rc = store_.DeleteValue(h.get(), v.name.c_str());
        if (rc == kErrorSuccess) undo_.push_back(std::move(u));
      } else {
        if (!exists) u.kind = Undo::kDeleteValue;
        rc = SetOne(store_, h.get(), v.name, v.type, v.data);
        if (rc == kErrorSuccess) undo_.push_back(std::move(u));
      }
      if (rc != kErrorSuccess) return Failed(rc, "writing value \"" + v.name + "\"", key);
    }
    return kErrorSuccess;
  }

  RegistryStore& store_;
  std::vector<Undo> undo_;
  std::string what_;
};

}  // namespace

std::string RootName(RegKey root) {
  for (const auto& r : kRootTable)
    if (r.key == root) return r.name;
  return {};
}

std::int32_t ExportKey(RegistryStore& store, RegKey root, const std::string& path, RegFile* out,
                       const ProgressFn& progress) {
  return ExportTree(store, root, path, out, progress);
}

ImportResult ImportFile(RegistryStore& store, const RegFile& file, const ProgressFn& progress) {
  ImportResult result;
  Importer importer(store);
  for (std::size_t i = 0; i < file.keys.size(); ++i) {
    std::int32_t rc = importer.Apply(file.keys[i]);
    if (rc != kErrorSuccess) {
      result.code = rc;
      result.what = importer.what();
      result.rolled_back = importer.Rollback();
      return result;
    }
    if (progress) progress(i + 1, file.keys.size());
  }
  return result;
}

}  // namespace tarvo2::regfile
