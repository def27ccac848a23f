// The parts of the file system seam shared by every implementation: status
// and errno translation, atomic replacement and path matching built on the
// virtual primitives.
#include "tarvo2/file_system.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace tarvo2 {

std::string FileStatus::ToString() const {
  if (ok()) return "OK";
  return std::to_string(error_number_) + ": " + message_;
}

FileStatus PosixError(const std::string& path, int err, ErrnoContext context) {
  int number;
  switch (err) {
    case ENOENT:
      number = context == ErrnoContext::kCreate ? kPathNotFound : kFileNotFound;
      break;
    case ENOTDIR:
      number = kPathNotFound;
      break;
    case EACCES:
    case EPERM:
    case EROFS:
      number = kPermissionDenied;
      break;
    case EEXIST:
      number = kFileAlreadyExists;
      break;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      number = kDiskFull;
      break;
    case EIO:
      number = kDeviceIoError;
      break;
    case EMFILE:
    case ENFILE:
      number = kTooManyFiles;
      break;
    case ENAMETOOLONG:
    case EINVAL:
    case EBADF:
      number = kBadFileNameOrNumber;
      break;
    default:
      number = kPathFileAccessError;
      break;
  }
  return FileStatus::Error(number, path + ": " + std::strerror(err));
}

bool FileInfo::SameVersion(const FileInfo& o) const {
  if (exists != o.exists) return false;
  if (!exists) return true;
  return device == o.device && inode == o.inode && size == o.size &&
         mtime_ns == o.mtime_ns && ctime_ns == o.ctime_ns &&
         is_directory == o.is_directory;
}

FileLock::~FileLock() = default;
FileSystem::~FileSystem() = default;

namespace {

// Splits `path` at its last '/' into the folder ("." when there is none)
// and the last component.
void SplitPath(const std::string& path, std::string* dir, std::string* name) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    *dir = ".";
    *name = path;
  } else {
    *dir = slash == 0 ? "/" : path.substr(0, slash);
    *name = path.substr(slash + 1);
  }
}

bool OnlySpaces(std::string_view s) {
  return s.find_first_not_of(' ') == std::string_view::npos;
}

// Glob match of `name` against `pattern` with '*' and '?'; backtracks only
// to the latest '*', which is enough for these two wildcards.
bool WildcardMatch(std::string_view pattern, std::string_view name) {
  size_t p = 0, n = 0, star = std::string_view::npos, mark = 0;
  while (n < name.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
      ++p;
      ++n;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      mark = n;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      n = ++mark;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

std::atomic<uint64_t> temp_counter{0};

// What /proc tells of the process `pid`: its state letter and when it
// started, in clock ticks since boot (both "" when it is not known). With
// the pid the start time names one process, even after the pid is reused.
struct ProcessStat {
  std::string state, start;
};
ProcessStat StatOf(long pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  size_t paren = stat.rfind(')');  // the command name may hold spaces
  ProcessStat out;
  if (paren == std::string::npos) return out;
  std::istringstream fields(stat.substr(paren + 1));
  std::string field;
  for (int i = 3; i <= 22 && fields >> field; ++i) {
    if (i == 3) out.state = field;
    if (i == 22) out.start = field;
  }
  return out;
}

// This host's name as 8 hex digits (FNV-1a), so that a folder shared over
// the network tells the writers of different machines apart.
std::string HostTag() {
  char host[256] = {};
  ::gethostname(host, sizeof host - 1);
  uint32_t h = 2166136261u;
  for (const char* c = host; *c != '\0'; ++c) h = (h ^ static_cast<unsigned char>(*c)) * 16777619u;
  char out[9];
  std::snprintf(out, sizeof out, "%08x", h);
  return out;
}

// Names this process as a writer of temporary files: pid, start time and
// host ("<pid>-<start>-<host>"). Recomputed after a fork.
std::string WriterTag() {
  static std::mutex mu;
  static long tagged_pid = -1;
  static std::string tag;
  std::lock_guard<std::mutex> l(mu);
  const long pid = ::getpid();
  if (pid != tagged_pid) {
    std::string start = StatOf(pid).start;
    tag = std::to_string(pid) + "-" + (start.empty() ? "0" : start) + "-" + HostTag();
    tagged_pid = pid;
  }
  return tag;
}

// Whether the writer that left the temporary file with the suffix `tag`
// (what follows ".tmp" in its name) is gone for sure. Files of other
// hosts, and names this library did not make, are never taken as stale.
// Also understands the older suffix "<pid>.<counter>".
bool WriterIsGone(std::string_view tag) {
  size_t digits = 0;
  while (digits < tag.size() && tag[digits] >= '0' && tag[digits] <= '9') ++digits;
  if (digits == 0 || digits > 9 || digits == tag.size()) return false;
  const long pid = std::stol(std::string(tag.substr(0, digits)));
  if (pid <= 0) return false;
  std::string_view rest = tag.substr(digits);
  std::string start;
  if (rest[0] == '-') {
    size_t dash = rest.find('-', 1), dot = rest.find('.');
    if (dash == std::string_view::npos || dot == std::string_view::npos || dot < dash) return false;
    if (rest.substr(dash + 1, dot - dash - 1) != HostTag()) return false;
    start = std::string(rest.substr(1, dash - 1));
  } else if (rest[0] != '.') {
    return false;
  }
  if (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) return true;
  const ProcessStat now = StatOf(pid);
  if (now.state == "Z" || now.state == "X") return true;  // killed, not yet reaped
  if (start.empty() || start == "0") return false;
  return !now.start.empty() && now.start != start;  // the pid belongs to a newer process
}

}  // namespace

bool FileSystem::IsDirectory(const std::string& path) {
  FileInfo info;
  return GetFileInfo(path, &info).ok() && info.exists && info.is_directory;
}

bool FileSystem::Exists(const std::string& path) {
  FileInfo info;
  return GetFileInfo(path, &info).ok() && info.exists;
}

bool FileSystem::PathExists(const std::string& pattern) {
  if (pattern.empty()) return false;
  std::string dir, name;
  SplitPath(pattern, &dir, &name);
  if (!name.empty() && OnlySpaces(name)) return false;
  if (Exists(pattern)) return true;
  if (name.find_first_of("*?") == std::string::npos) return false;
  std::vector<std::string> children;
  if (!GetChildren(dir, &children).ok()) return false;
  for (const std::string& child : children) {
    if (OnlySpaces(child)) continue;
    if (WildcardMatch(name, child)) return true;
  }
  return false;
}

FileStatus FileSystem::ReplaceFileAtomically(const std::string& path,
                                             std::string_view data) {
  std::string target;
  FileStatus s = ResolveSymlinks(path, &target);
  if (!s.ok()) return s;
  FileInfo info;
  s = GetFileInfo(target, &info);
  if (!s.ok()) return s;
  if (info.exists && info.is_directory) return PosixError(target, EISDIR);
  if (info.exists && !info.is_regular)
    return FileStatus::Error(kPathFileAccessError, target + ": not a regular file");
  if (info.exists && !info.writable) return PosixError(target, EACCES);

  // A hidden name in the target's folder, unique across hosts, processes
  // (pid and start time) and threads (counter), so that the rename stays
  // within one file system.
  std::string dir, name;
  SplitPath(target, &dir, &name);
  const std::string prefix = (target.find('/') == std::string::npos ? "" : dir + "/");
  const std::string temp_name = "." + name + ".tmp";
  // Temporary files of this target left by writers that were killed go
  // now, so that they never outlive the next write.
  std::vector<std::string> children;
  if (GetChildren(dir, &children).ok()) {
    for (const std::string& child : children) {
      if (child.size() > temp_name.size() && child.compare(0, temp_name.size(), temp_name) == 0 &&
          WriterIsGone(std::string_view(child).substr(temp_name.size())))
        DeleteFile(prefix + child);  // best effort
    }
  }
  std::string temp = prefix + temp_name + WriterTag() + "." + std::to_string(temp_counter.fetch_add(1));
  s = WriteFile(temp, data, /*sync=*/true);
  if (s.ok() && info.exists) s = ChangeMode(temp, info.mode);
  if (s.ok()) s = RenameFile(temp, target);
  if (!s.ok()) {
    DeleteFile(temp);  // best effort; the target is untouched either way
    return s;
  }
  return FileStatus::OK();
}

}  // namespace tarvo2
