// The file system seam.
//
// Every file access of the library goes through a FileSystem, so that tests
// can run against an in-memory file system and inject failures. Paths are
// native POSIX paths in UTF-8. Failures are reported as the automation
// runtime's error numbers (53 "File not found", 76 "Path not found", ...)
// together with the operating system's message for diagnostics.
//
// FileSystem::Default() is the real POSIX file system, and
// FileSystemWrapper forwards every call to another file system. (The test
// doubles, an in-memory twin and a fault-injecting wrapper, are in
// tarvo2/testing/file_system.h.)
//
// All implementations in this file are safe for concurrent use by several
// threads.
#ifndef TARVO2_FILE_SYSTEM_H_
#define TARVO2_FILE_SYSTEM_H_

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tarvo2/export.h"

namespace tarvo2 {

// The automation runtime's error numbers that file operations can raise.
enum FileErrorNumber : int {
  kFileOk = 0,
  kBadFileNameOrNumber = 52,
  kFileNotFound = 53,
  kDeviceIoError = 57,
  kFileAlreadyExists = 58,
  kDiskFull = 61,
  kTooManyFiles = 67,
  kPermissionDenied = 70,
  kPathFileAccessError = 75,
  kPathNotFound = 76,
};

// The outcome of a file operation: success, or an automation error number
// with a diagnostic message (the operating system's text and the path).
class TARVO2_EXPORT FileStatus {
 public:
  // Success.
  FileStatus() = default;

  static FileStatus OK() { return FileStatus(); }
  static FileStatus Error(int error_number, std::string message) {
    return FileStatus(error_number, std::move(message));
  }

  bool ok() const { return error_number_ == kFileOk; }
  // kFileOk on success, otherwise one of FileErrorNumber.
  int error_number() const { return error_number_; }
  // Empty on success.
  const std::string& message() const { return message_; }
  // "OK", or "<number>: <message>".
  std::string ToString() const;

 private:
  FileStatus(int n, std::string m) : error_number_(n), message_(std::move(m)) {}
  int error_number_ = kFileOk;
  std::string message_;
};

// What the failing call was doing, where errno alone is ambiguous.
enum class ErrnoContext {
  kAccess,  // reading or inspecting an existing path
  kCreate,  // creating a file: a missing component means a missing folder
};

// Translates the errno value `err` of a failed call on `path` to a status.
// The only place where errno values become automation error numbers:
//   ENOENT -> 53 (76 with ErrnoContext::kCreate), ENOTDIR -> 76,
//   EACCES/EPERM/EROFS -> 70, EEXIST -> 58, ENOSPC/EDQUOT/EFBIG -> 61,
//   EIO -> 57, EMFILE/ENFILE -> 67, ENAMETOOLONG/EINVAL/EBADF -> 52,
//   anything else (EISDIR, EBUSY, ELOOP, ...) -> 75.
TARVO2_EXPORT FileStatus PosixError(const std::string& path, int err,
                      ErrnoContext context = ErrnoContext::kAccess);

// What stat() tells about a path. Two FileInfo values of the same path
// describe the same file content when SameVersion() is true.
struct TARVO2_EXPORT FileInfo {
  bool exists = false;
  bool is_directory = false;
  // True for a regular file; false for a folder, a FIFO, a socket or a
  // device, which the library neither reads nor writes.
  bool is_regular = false;
  // False when the caller may not write the file, or when the file has no
  // write permission bit at all (treated as read-only even for root, as the
  // read-only attribute is on Windows).
  bool writable = false;
  uint64_t device = 0;
  uint64_t inode = 0;
  uint64_t size = 0;
  int64_t mtime_ns = 0;  // modification time, nanoseconds since the epoch
  int64_t ctime_ns = 0;  // status change time, nanoseconds since the epoch
  uint32_t mode = 0;     // permission bits (07777)

  // True when both describe the same version of a file: same existence,
  // device, inode, size, modification and change times.
  bool SameVersion(const FileInfo& other) const;
};

// Held while an inter-process lock is held; destroying it releases the lock.
class TARVO2_EXPORT FileLock {
 public:
  virtual ~FileLock();
};

class TARVO2_EXPORT FileSystem {
 public:
  FileSystem() = default;
  FileSystem(const FileSystem&) = delete;
  FileSystem& operator=(const FileSystem&) = delete;
  virtual ~FileSystem();

  // The real POSIX file system. The result lives for the whole process and
  // must not be deleted.
  static FileSystem* Default();

  // Stores the whole content of the file `path` in *contents. On failure
  // *contents is unchanged: 53 for a missing file, 75 for a folder, and 75
  // at once, without waiting or reading, for anything else that is not a
  // regular file (a FIFO, a socket, a device such as /dev/zero).
  virtual FileStatus ReadFile(const std::string& path,
                              std::string* contents) = 0;

  // Creates or truncates `path` and writes `data` to it; with `sync` the
  // data is flushed to the device before returning. A missing folder gives
  // 76, a path that names no regular file 75 (at once, nothing written).
  // On failure the file may hold part of `data`; use
  // ReplaceFileAtomically() where that is not acceptable.
  virtual FileStatus WriteFile(const std::string& path, std::string_view data,
                               bool sync) = 0;

  // Writes `data` after the existing content of `path`, creating the file
  // when it does not exist, and flushes it to the device. On failure (a
  // full disk, say) the file is cut back to its old length, so it holds
  // exactly its old bytes. Appenders using this call take turns on one
  // file (the POSIX file system locks it as LockFile() does). A path that
  // names no regular file gives 75 at once.
  virtual FileStatus AppendFile(const std::string& path,
                                std::string_view data) = 0;

  // Removes the file `path` (not a folder): 53 when it does not exist.
  virtual FileStatus DeleteFile(const std::string& path) = 0;

  // Renames `from` to `to`, replacing `to` atomically when it exists, and
  // makes the rename durable.
  virtual FileStatus RenameFile(const std::string& from,
                                const std::string& to) = 0;

  // Creates the folder `path`; its parent must exist. 58 when it exists.
  virtual FileStatus CreateDir(const std::string& path) = 0;

  // Stores the names of the entries of folder `dir` (without "." and "..")
  // in *names, in no particular order.
  virtual FileStatus GetChildren(const std::string& dir,
                                 std::vector<std::string>* names) = 0;

  // Describes `path`, following symbolic links. A path that names nothing
  // is not an error: it gives OK with info->exists false.
  virtual FileStatus GetFileInfo(const std::string& path, FileInfo* info) = 0;

  // Like GetFileInfo(), for callers that only ask whether a file changed
  // (FileInfo::SameVersion): `writable` may be left false unchecked, which
  // saves the POSIX file system a second system call. The default calls
  // GetFileInfo(), so wrappers that override it keep seeing every query.
  virtual FileStatus GetFileVersion(const std::string& path, FileInfo* info) {
    return GetFileInfo(path, info);
  }

  // Sets the permission bits of `path` to `mode` (07777).
  virtual FileStatus ChangeMode(const std::string& path, uint32_t mode) = 0;

  // Stores in *target the path that `path` finally names after following
  // symbolic links in its last component (relative link text is taken
  // relative to the link's folder). A path that is not a link, or does not
  // exist, is its own target.
  virtual FileStatus ResolveSymlinks(const std::string& path,
                                     std::string* target) = 0;

  // Takes an exclusive lock for the read-modify-write of the file `path`,
  // waiting for other holders in this or any other process; the lock is
  // held until *lock is destroyed. Only writers of the same file wait for
  // each other. A missing file is created empty, since a lock needs a file
  // (callers lock only what they are about to write); the folder must
  // exist: 76 otherwise. A file the caller may not write gives 70, and
  // anything but a regular file 75, without waiting.
  // The POSIX file system takes an exclusive open-file-description lock
  // (F_OFD_SETLKW) on the symbolic link target of `path`, opened for
  // reading and writing, which also works on NFS; no lock file is made.
  // After the lock is taken it checks that the path still names the
  // locked file, and locks the new one when a rename replaced it, so a
  // writer that renames a new file over the target hands the lock on.
  virtual FileStatus LockFile(const std::string& path,
                              std::unique_ptr<FileLock>* lock) = 0;

  // Writes `data` as the new content of `path` so that every reader sees
  // either the old or the new content, never a mixture: the data goes to a
  // temporary file in the same folder, is flushed, and is renamed over the
  // target. An existing target keeps its permission bits; a symbolic link
  // stays a link and its final target receives the data. A read-only
  // target gives 70, a folder or anything else that is not a regular file
  // 75, without changing anything. On any failure the target is unchanged
  // and no temporary file is left. Temporary files of the same target
  // left by writers that were killed (their process is gone; only those
  // of this host are judged) are removed first, so they never outlive the
  // next write.
  // Built on the virtual primitives above, so wrappers and fault injection
  // apply to its steps.
  FileStatus ReplaceFileAtomically(const std::string& path,
                                   std::string_view data);

  // True when `path` names an existing folder (following links).
  bool IsDirectory(const std::string& path);

  // True when `path` names an existing file or folder (following links).
  bool Exists(const std::string& path);

  // True when `pattern` names something: an existing file or folder,
  // whatever a folder holds. When the last component contains the
  // wildcards '*' (any run of characters) or '?' (any one character) and
  // names nothing literally, true when an entry of its folder matches it;
  // an entry whose name is only spaces does not count, and matching is
  // case-sensitive like the file system. The empty path, and a path whose
  // last component is only spaces, are false. Never fails.
  bool PathExists(const std::string& pattern);
};

// A file system that forwards every call to another one. Subclasses
// override the calls they want to change.
class TARVO2_EXPORT FileSystemWrapper : public FileSystem {
 public:
  // REQUIRES: target is not null.
  explicit FileSystemWrapper(std::shared_ptr<FileSystem> target)
      : target_(std::move(target)) {}

  FileSystem* target() const { return target_.get(); }

  FileStatus ReadFile(const std::string& p, std::string* c) override {
    return target_->ReadFile(p, c);
  }
  FileStatus WriteFile(const std::string& p, std::string_view d,
                       bool sync) override {
    return target_->WriteFile(p, d, sync);
  }
  FileStatus AppendFile(const std::string& p, std::string_view d) override {
    return target_->AppendFile(p, d);
  }
  FileStatus DeleteFile(const std::string& p) override {
    return target_->DeleteFile(p);
  }
  FileStatus RenameFile(const std::string& f, const std::string& t) override {
    return target_->RenameFile(f, t);
  }
  FileStatus CreateDir(const std::string& p) override {
    return target_->CreateDir(p);
  }
  FileStatus GetChildren(const std::string& d,
                         std::vector<std::string>* n) override {
    return target_->GetChildren(d, n);
  }
  FileStatus GetFileInfo(const std::string& p, FileInfo* i) override {
    return target_->GetFileInfo(p, i);
  }
  FileStatus ChangeMode(const std::string& p, uint32_t m) override {
    return target_->ChangeMode(p, m);
  }
  FileStatus ResolveSymlinks(const std::string& p, std::string* t) override {
    return target_->ResolveSymlinks(p, t);
  }
  FileStatus LockFile(const std::string& p,
                      std::unique_ptr<FileLock>* l) override {
    return target_->LockFile(p, l);
  }

 private:
  std::shared_ptr<FileSystem> target_;
};

}  // namespace tarvo2

#endif  // TARVO2_FILE_SYSTEM_H_
