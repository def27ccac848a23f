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

std::string DirOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

class PosixFileLock : public FileLock {
 public:
  explicit PosixFileLock(int fd) : fd_(fd) {}
  ~PosixFileLock() override { ::close(fd_); }  // closing releases the flock
 private:
  int fd_;
};

class PosixFileSystem : public FileSystem {
 public:
  FileStatus ReadFile(const std::string& path, std::string* contents) override {
    int fd = RetryEintr([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); });
    if (fd < 0) return PosixError(path, errno);
    FdCloser closer(fd);
    struct stat st;
    if (::fstat(fd, &st) != 0) return PosixError(path, errno);
    if (S_ISDIR(st.st_mode)) return PosixError(path, EISDIR);
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
    // Lock the folder that holds the final target: it outlives the atomic
    // rename that replaces the file, and locking it leaves nothing behind.
    std::size_t slash = target.rfind('/');
    std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : target.substr(0, slash);
    int fd = RetryEintr([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    if (fd < 0) return PosixError(folder, errno, ErrnoContext::kCreate);
    if (RetryEintr([&] { return ::flock(fd, LOCK_EX); }) != 0) {
      int err = errno;
      ::close(fd);
      return PosixError(folder, err);
    }
    *lock = std::make_unique<PosixFileLock>(fd);
    return FileStatus::OK();
  }

 private:
  static FileStatus Write(const std::string& path, std::string_view data,
                          int mode_flag, bool sync) {
    int fd = RetryEintr([&] {
      return ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | mode_flag, 0666);
    });
    if (fd < 0) return PosixError(path, errno, ErrnoContext::kCreate);
    FdCloser closer(fd);
    FileStatus s = WriteAll(fd, path, data);
    if (!s.ok()) return s;
    if (sync && ::fsync(fd) != 0) return PosixError(path, errno);
    if (closer.Close() != 0) return PosixError(path, errno);
    return FileStatus::OK();
  }
};

}  // namespace

FileSystem* FileSystem::Default() {
  static PosixFileSystem* fs = new PosixFileSystem();
  return fs;
}

}  // namespace tarvo2
