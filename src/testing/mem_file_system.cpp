// NewMemFileSystem(): an in-memory file system for tests. Each operation
// decides which errno value the POSIX call would have failed with and
// reports it through PosixError(), so both file systems fail alike.
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <map>
#include <set>

#include "tarvo2/testing/file_system.h"

namespace tarvo2 {
namespace {

struct Node {
  bool is_directory = false;
  std::string data;
  uint64_t inode = 0;
  int64_t mtime_ns = 0;
  int64_t ctime_ns = 0;
  uint32_t mode = 0644;
};

// A path reduced to its canonical spelling: "/" or "." roots, no empty,
// "." or ".." components, no trailing slash.
struct MemPath {
  std::string key;
  bool trailing_slash = false;  // the caller's spelling demands a folder
};

MemPath Normalize(const std::string& path) {
  MemPath out;
  bool absolute = !path.empty() && path[0] == '/';
  out.trailing_slash = path.size() > 1 && path.back() == '/';
  std::vector<std::string> parts;
  size_t i = 0;
  while (i <= path.size()) {
    size_t j = path.find('/', i);
    if (j == std::string::npos) j = path.size();
    std::string part = path.substr(i, j - i);
    if (part == "..") {
      if (!parts.empty() && parts.back() != "..") parts.pop_back();
      else if (!absolute) parts.push_back(part);
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    i = j + 1;
  }
  std::string key = absolute ? "/" : "";
  for (size_t k = 0; k < parts.size(); ++k) {
    if (k > 0) key += '/';
    key += parts[k];
  }
  out.key = key.empty() ? "." : key;
  return out;
}

std::string ParentOf(const std::string& key) {
  if (key == "/" || key == ".") return key;
  size_t slash = key.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : key.substr(0, slash);
}

struct LockTable {
  std::mutex mu;
  std::condition_variable cv;
  std::set<std::string> held;
};

class MemFileLock : public FileLock {
 public:
  MemFileLock(std::shared_ptr<LockTable> table, std::string key)
      : table_(std::move(table)), key_(std::move(key)) {}
  ~MemFileLock() override {
    std::lock_guard<std::mutex> l(table_->mu);
    table_->held.erase(key_);
    table_->cv.notify_all();
  }
 private:
  std::shared_ptr<LockTable> table_;
  std::string key_;
};

class MemFileSystem : public FileSystem {
 public:
  MemFileSystem() {
    nodes_["/"].is_directory = true;
    nodes_["."].is_directory = true;
    nodes_["/"].mode = nodes_["."].mode = 0755;
    nodes_["/"].inode = NextInode();
    nodes_["."].inode = NextInode();
  }

  FileStatus ReadFile(const std::string& path, std::string* contents) override {
    std::lock_guard<std::mutex> l(mu_);
    MemPath p = Normalize(path);
    const Node* n = Find(p, path);
    if (n == nullptr) return PosixError(path, LookupErrno(p));
    if (n->is_directory) return PosixError(path, EISDIR);
    *contents = n->data;
    return FileStatus::OK();
  }

  FileStatus WriteFile(const std::string& path, std::string_view data,
                       bool sync) override {
    return Write(path, data, /*append=*/false);
  }

  FileStatus AppendFile(const std::string& path, std::string_view data) override {
    return Write(path, data, /*append=*/true);
  }

  FileStatus DeleteFile(const std::string& path) override {
    std::lock_guard<std::mutex> l(mu_);
    MemPath p = Normalize(path);
    Node* n = Find(p, path);
    if (n == nullptr) return PosixError(path, LookupErrno(p));
    if (n->is_directory) return PosixError(path, EISDIR);
    nodes_.erase(p.key);
    return FileStatus::OK();
  }

  FileStatus RenameFile(const std::string& from, const std::string& to) override {
    std::lock_guard<std::mutex> l(mu_);
    MemPath f = Normalize(from), t = Normalize(to);
    Node* src = Find(f, from);
    if (src == nullptr) return PosixError(from, LookupErrno(f));
    if (int err = ParentErrno(t.key)) return PosixError(to, err);
    if (f.key == t.key) return FileStatus::OK();
    auto dst = nodes_.find(t.key);
    if (dst != nodes_.end()) {
      if (dst->second.is_directory && !src->is_directory) return PosixError(to, EISDIR);
      if (!dst->second.is_directory && src->is_directory) return PosixError(to, ENOTDIR);
      if (dst->second.is_directory && HasChildren(t.key)) return PosixError(to, ENOTEMPTY);
    }
    if (src->is_directory && t.key.compare(0, f.key.size() + 1, f.key + "/") == 0)
      return PosixError(to, EINVAL);
    Node moved = *src;
    moved.ctime_ns = Now();
    // A folder takes its whole subtree along.
    std::vector<std::pair<std::string, Node>> subtree;
    std::string prefix = f.key == "/" ? "/" : f.key + "/";
    for (auto it = nodes_.lower_bound(prefix);
         it != nodes_.end() && it->first.compare(0, prefix.size(), prefix) == 0;) {
      subtree.emplace_back(it->first.substr(prefix.size()), it->second);
      it = nodes_.erase(it);
    }
    nodes_.erase(f.key);
    nodes_[t.key] = moved;
    for (auto& [rest, node] : subtree) nodes_[t.key + "/" + rest] = node;
    return FileStatus::OK();
  }

  FileStatus CreateDir(const std::string& path) override {
    std::lock_guard<std::mutex> l(mu_);
    MemPath p = Normalize(path);
    if (nodes_.count(p.key)) return PosixError(path, EEXIST);
    if (int err = ParentErrno(p.key))
      return PosixError(path, err, ErrnoContext::kCreate);
    Node& n = nodes_[p.key];
    n.is_directory = true;
    n.mode = 0755;
    n.inode = NextInode();
    n.mtime_ns = n.ctime_ns = Now();
    return FileStatus::OK();
  }

  FileStatus GetChildren(const std::string& dir,
                         std::vector<std::string>* names) override {
    std::lock_guard<std::mutex> l(mu_);
    names->clear();
    MemPath p = Normalize(dir);
    const Node* n = Find(p, dir);
    if (n == nullptr) return PosixError(dir, LookupErrno(p));
    if (!n->is_directory) return PosixError(dir, ENOTDIR);
    for (const auto& [key, node] : nodes_) {
      if (key == p.key || key == "/" || key == ".") continue;
      if (ParentOf(key) == p.key) names->push_back(key.substr(key.rfind('/') + 1));
    }
    return FileStatus::OK();
  }

  FileStatus GetFileInfo(const std::string& path, FileInfo* info) override {
    std::lock_guard<std::mutex> l(mu_);
    *info = FileInfo();
    MemPath p = Normalize(path);
    const Node* n = Find(p, path);
    if (n == nullptr) return FileStatus::OK();
    info->exists = true;
    info->is_directory = n->is_directory;
    info->is_regular = !n->is_directory;
    info->writable = (n->mode & 0222) != 0;
    info->device = 1;
    info->inode = n->inode;
    info->size = n->is_directory ? 4096 : n->data.size();
    info->mtime_ns = n->mtime_ns;
    info->ctime_ns = n->ctime_ns;
    info->mode = n->mode;
    return FileStatus::OK();
  }

  FileStatus ChangeMode(const std::string& path, uint32_t mode) override {
    std::lock_guard<std::mutex> l(mu_);
    MemPath p = Normalize(path);
    Node* n = Find(p, path);
    if (n == nullptr) return PosixError(path, LookupErrno(p));
    n->mode = mode & 07777;
    n->ctime_ns = Now();
    return FileStatus::OK();
  }

  FileStatus ResolveSymlinks(const std::string& path, std::string* target) override {
    *target = path;
    return FileStatus::OK();
  }

  FileStatus LockFile(const std::string& path,
                      std::unique_ptr<FileLock>* lock) override {
    MemPath p = Normalize(path);
    {
      std::lock_guard<std::mutex> l(mu_);
      if (int err = ParentErrno(p.key))
        return PosixError(path, err, ErrnoContext::kCreate);
      auto it = nodes_.find(p.key);
      if (it != nodes_.end() && it->second.is_directory) return PosixError(path, EISDIR);
      if (it != nodes_.end() && (it->second.mode & 0222) == 0) return PosixError(path, EACCES);
    }
    // Like the POSIX file system, a lock needs a file: a missing one is
    // created empty.
    if (!Exists(path)) {
      FileStatus s = Write(path, "", /*append=*/true);
      if (!s.ok()) return s;
    }
    std::unique_lock<std::mutex> l(locks_->mu);
    locks_->cv.wait(l, [&] { return locks_->held.count(p.key) == 0; });
    locks_->held.insert(p.key);
    *lock = std::make_unique<MemFileLock>(locks_, p.key);
    return FileStatus::OK();
  }

 private:
  // The node that `p` names, or null. A trailing slash after a file names
  // nothing, as ENOTDIR would say.
  Node* Find(const MemPath& p, const std::string&) {
    auto it = nodes_.find(p.key);
    if (it == nodes_.end()) return nullptr;
    if (p.trailing_slash && !it->second.is_directory) return nullptr;
    return &it->second;
  }

  // Why looking up a path that Find() did not find failed.
  int LookupErrno(const MemPath& p) {
    auto it = nodes_.find(p.key);
    if (it != nodes_.end()) return ENOTDIR;  // file spelled with a slash
    return ParentErrno(p.key) == ENOTDIR ? ENOTDIR : ENOENT;
  }

  // 0 when the parent of `key` is an existing folder, otherwise the errno
  // value of a lookup through it.
  int ParentErrno(const std::string& key) {
    std::string parent = ParentOf(key);
    for (std::string k = parent;; k = ParentOf(k)) {
      auto it = nodes_.find(k);
      if (it != nodes_.end()) {
        if (!it->second.is_directory) return ENOTDIR;
        if (k == parent) return 0;
        return ENOENT;  // an ancestor exists but not the parent itself
      }
      if (k == "/" || k == ".") return ENOENT;
    }
  }

  bool HasChildren(const std::string& key) {
    std::string prefix = key == "/" ? "/" : key + "/";
    auto it = nodes_.lower_bound(prefix);
    return it != nodes_.end() && it->first.compare(0, prefix.size(), prefix) == 0;
  }

  FileStatus Write(const std::string& path, std::string_view data, bool append) {
    std::lock_guard<std::mutex> l(mu_);
    MemPath p = Normalize(path);
    auto it = nodes_.find(p.key);
    if (it != nodes_.end()) {
      if (it->second.is_directory) return PosixError(path, EISDIR);
      if (p.trailing_slash) return PosixError(path, ENOTDIR);
      if ((it->second.mode & 0222) == 0) return PosixError(path, EACCES);
    } else {
      if (p.trailing_slash) return PosixError(path, EISDIR);
      if (int err = ParentErrno(p.key))
        return PosixError(path, err, ErrnoContext::kCreate);
      it = nodes_.emplace(p.key, Node()).first;
      it->second.inode = NextInode();
    }
    Node& n = it->second;
    if (append) n.data.append(data); else n.data.assign(data);
    n.mtime_ns = n.ctime_ns = Now();
    return FileStatus::OK();
  }

  uint64_t NextInode() { return ++last_inode_; }

  // Real time with a resolution fine enough that every write differs.
  int64_t Now() {
    int64_t now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                      std::chrono::system_clock::now().time_since_epoch()).count();
    last_time_ = now > last_time_ ? now : last_time_ + 1;
    return last_time_;
  }

  std::mutex mu_;
  std::map<std::string, Node> nodes_;
  uint64_t last_inode_ = 0;
  int64_t last_time_ = 0;
  std::shared_ptr<LockTable> locks_ = std::make_shared<LockTable>();
};

}  // namespace

std::shared_ptr<FileSystem> NewMemFileSystem() {
  return std::make_shared<MemFileSystem>();
}

}  // namespace tarvo2
