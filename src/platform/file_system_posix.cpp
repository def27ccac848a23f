// FileSystem::Default(): the seam over the POSIX calls.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "tarvo2/file_system.h"

namespace tarvo2 {
namespace {

// Retries a call that failed with EINTR.
template <typename F>
auto RetryEintr(F f) {
  decltype(f()) r;
  do r = f(); while (r < 0 && errno == EINTR);
  return r;
}

class FdCloser {
 public:
  explicit FdCloser(int fd) : fd_(fd) {}
  ~FdCloser() { if (fd_ >= 0) ::close(fd_); }
  // Closes now and reports a failure of close itself (a late write error).
  int Close() { int r = ::close(fd_); fd_ = -1; return r; }
  // Hands the descriptor over; it is no longer closed here.
  int Release() { int fd = fd_; fd_ = -1; return fd; }
 private:
  int fd_;
};

FileStatus WriteAll(int fd, const std::string& path, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = RetryEintr([&] { return ::write(fd, data.data(), data.size()); });
    if (n < 0) return PosixError(path, errno);
    data.remove_prefix(static_cast<size_t>(n));
  }
  return FileStatus::OK();
}

// Refuses what is not a regular file: a folder (EISDIR, 75), a FIFO, a
// socket or a device (75 as well, with its own message).
FileStatus RegularFileOnly(const std::string& path, const struct stat& st) {
  if (S_ISREG(st.st_mode)) return FileStatus::OK();
  if (S_ISDIR(st.st_mode)) return PosixError(path, EISDIR);
  return FileStatus::Error(kPathFileAccessError, path + ": not a regular file");
}

std::string DirOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

class PosixFileLock : public FileLock {
 public:
  explicit PosixFileLock(int fd) : fd_(fd) {}
  ~PosixFileLock() override { ::close(fd_); }  // closing releases the lock
 private:
  int fd_;
};

class PosixFileSystem : public FileSystem {
 public:
  FileStatus ReadFile(const std::string& path, std::string* contents) override {
    // Non-blocking, so that a FIFO or a device is refused at once instead of
    // waiting for a writer or reading without end.
    int fd = RetryEintr([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); });
    if (fd < 0) return PosixError(path, errno);
    FdCloser closer(fd);
    struct stat st;
    if (::fstat(fd, &st) != 0) return PosixError(path, errno);
    if (FileStatus s = RegularFileOnly(path, st); !s.ok()) return s;
    std::string data;
    data.reserve(static_cast<size_t>(st.st_size));
    char buf[64 * 1024];
    for (;;) {
      ssize_t n = RetryEintr([&] { return ::read(fd, buf, sizeof buf); });
      if (n < 0) return PosixError(path, errno);
      if (n == 0) break;
      data.append(buf, static_cast<size_t>(n));
    }
    contents->swap(data);
    return FileStatus::OK();
  }

  FileStatus WriteFile(const std::string& path, std::string_view data,
                       bool sync) override {
    return Write(path, data, O_TRUNC, sync);
  }

  FileStatus AppendFile(const std::string& path, std::string_view data) override {
    return Write(path, data, O_APPEND, false);
  }

  FileStatus DeleteFile(const std::string& path) override {
    if (::unlink(path.c_str()) != 0) return PosixError(path, errno);
    return FileStatus::OK();
  }

  FileStatus RenameFile(const std::string& from, const std::string& to) override {
    if (::rename(from.c_str(), to.c_str()) != 0) return PosixError(to, errno);
    // Make the new directory entry durable as well.
    int dfd = ::open(DirOf(to).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
      ::fsync(dfd);
      ::close(dfd);
    }
    return FileStatus::OK();
  }

  FileStatus CreateDir(const std::string& path) override {
    if (::mkdir(path.c_str(), 0777) != 0)
      return PosixError(path, errno, ErrnoContext::kCreate);
    return FileStatus::OK();
  }

  FileStatus GetChildren(const std::string& dir,
                         std::vector<std::string>* names) override {
    names->clear();
    DIR* d = ::opendir(dir.c_str());
    if (d == nullptr) return PosixError(dir, errno);
    while (struct dirent* e = ::readdir(d)) {
      std::string_view n = e->d_name;
      if (n != "." && n != "..") names->emplace_back(n);
    }
    ::closedir(d);
    return FileStatus::OK();
  }

  FileStatus GetFileInfo(const std::string& path, FileInfo* info) override {
    return Stat(path, info, /*check_writable=*/true);
  }

  FileStatus GetFileVersion(const std::string& path, FileInfo* info) override {
    return Stat(path, info, /*check_writable=*/false);
  }

  static FileStatus Stat(const std::string& path, FileInfo* info, bool check_writable) {
    *info = FileInfo();
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
      if (errno == ENOENT || errno == ENOTDIR) return FileStatus::OK();
      return PosixError(path, errno);
    }
    info->exists = true;
    info->is_directory = S_ISDIR(st.st_mode);
    info->is_regular = S_ISREG(st.st_mode);
    info->writable = check_writable && (st.st_mode & 0222) != 0 &&
                     ::access(path.c_str(), W_OK) == 0;
    info->device = st.st_dev;
    info->inode = st.st_ino;
    info->size = static_cast<uint64_t>(st.st_size);
    info->mtime_ns = int64_t{st.st_mtim.tv_sec} * 1000000000 + st.st_mtim.tv_nsec;
    info->ctime_ns = int64_t{st.st_ctim.tv_sec} * 1000000000 + st.st_ctim.tv_nsec;
    info->mode = st.st_mode & 07777;
    return FileStatus::OK();
  }

  FileStatus ChangeMode(const std::string& path, uint32_t mode) override {
    if (::chmod(path.c_str(), mode & 07777) != 0) return PosixError(path, errno);
    return FileStatus::OK();
  }

  FileStatus ResolveSymlinks(const std::string& path, std::string* target) override {
    std::string current = path;
    for (int hops = 0; hops < 40; ++hops) {
      struct stat st;
      if (::lstat(current.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) {
        *target = current;
        return FileStatus::OK();
      }
      std::string link(static_cast<size_t>(st.st_size) + 256, '\0');
      ssize_t n = ::readlink(current.c_str(), link.data(), link.size());
      if (n < 0) return PosixError(current, errno);
      link.resize(static_cast<size_t>(n));
      if (link.empty()) return PosixError(current, ENOENT);
      if (link[0] != '/' && current.find('/') != std::string::npos)
        link = DirOf(current) + "/" + link;
      current = link;
    }
    return PosixError(path, ELOOP);
  }

  FileStatus LockFile(const std::string& path,
                      std::unique_ptr<FileLock>* lock) override {
    std::string target;
    FileStatus s = ResolveSymlinks(path, &target);
    if (!s.ok()) return s;
    // An exclusive open-file-description lock on the whole target file,
    // opened for writing as NFS requires of a write lock. A writer replaces
    // the file by renaming a new one over it, so once the lock is ours the
    // path must still name the locked file; when it names another one,
    // lock that one instead.
    for (;;) {
      int fd = RetryEintr([&] {
        return ::open(target.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0666);
      });
      if (fd < 0) return PosixError(target, errno, ErrnoContext::kCreate);
      FdCloser closer(fd);
      struct stat st;
      if (::fstat(fd, &st) != 0) return PosixError(target, errno);
      if (s = RegularFileOnly(target, st); !s.ok()) return s;
      struct flock fl = {};
      fl.l_type = F_WRLCK;
      fl.l_whence = SEEK_SET;  // l_start 0, l_len 0: the whole file
      if (RetryEintr([&] { return ::fcntl(fd, F_OFD_SETLKW, &fl); }) != 0)
        return PosixError(target, errno);
      struct stat now;
      if (::stat(target.c_str(), &now) == 0 && now.st_dev == st.st_dev &&
          now.st_ino == st.st_ino) {
        *lock = std::make_unique<PosixFileLock>(closer.Release());
        return FileStatus::OK();
      }
      // Replaced or removed while we waited: closing drops the stale lock.
    }
  }

 private:
  static FileStatus Write(const std::string& path, std::string_view data,
                          int mode_flag, bool sync) {
    int fd = RetryEintr([&] {
      return ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK | mode_flag, 0666);
    });
    if (fd < 0) {
      // A FIFO without a reader: refused like any FIFO.
      if (errno == ENXIO) return FileStatus::Error(kPathFileAccessError, path + ": not a regular file");
      return PosixError(path, errno, ErrnoContext::kCreate);
    }
    FdCloser closer(fd);
    struct stat st;
    if (::fstat(fd, &st) != 0) return PosixError(path, errno);
    if (FileStatus s = RegularFileOnly(path, st); !s.ok()) return s;
    off_t old_size = 0;
    if (mode_flag == O_APPEND) {
      // Appenders of this library take turns, so that the length read here
      // is the one to go back to when the write fails half way.
      struct flock fl = {};
      fl.l_type = F_WRLCK;
      fl.l_whence = SEEK_SET;
      if (RetryEintr([&] { return ::fcntl(fd, F_OFD_SETLKW, &fl); }) != 0 ||
          ::fstat(fd, &st) != 0)
        return PosixError(path, errno);
      old_size = st.st_size;
    }
    FileStatus s = WriteAll(fd, path, data);
    // An append is always flushed, so that a late failure still finds the
    // file open and locked.
    if (s.ok() && (sync || mode_flag == O_APPEND) && ::fsync(fd) != 0) s = PosixError(path, errno);
    if (!s.ok()) {
      // A failed append is cut back: the file keeps exactly its old bytes.
      if (mode_flag == O_APPEND && ::ftruncate(fd, old_size) == 0) ::fsync(fd);
      return s;
    }
    if (closer.Close() != 0) s = PosixError(path, errno);
    return s;
  }
};

}  // namespace

FileSystem* FileSystem::Default() {
  static PosixFileSystem* fs = new PosixFileSystem();
  return fs;
}

}  // namespace tarvo2
