// The default profile store: file resolution, the cache of parsed files,
// and the reading and writing rules of the Win32 profile functions.
#include "tarvo2/profile_store.h"

#include <pwd.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "platform/profile_store_format.h"
#include "tarvo2/codepage.h"

namespace tarvo2 {
namespace {

using profile::ProfileText;

thread_local uint32_t t_last_error = kProfileOk;

// A cached file whose time stamps lie this close to the moment its bytes
// were last read is "racy": a writer in the same clock tick could have
// changed it without changing size, inode or times. Such entries are
// checked against the bytes of the file until they age out. Two seconds
// cover file systems with coarse time stamps as well.
constexpr int64_t kRacyWindowNs = 2'000'000'000;
constexpr size_t kMaxCachedFiles = 16;

int64_t NowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::system_clock::now().time_since_epoch()).count();
}

uint32_t CodeOf(const FileStatus& s) {
  switch (s.error_number()) {
    case kFileOk: return kProfileOk;
    case kFileNotFound: return kProfileFileNotFound;
    case kPathNotFound: return kProfilePathNotFound;
    case kPermissionDenied:
    case kPathFileAccessError: return kProfileAccessDenied;
    case kDiskFull: return kProfileDiskFull;
    case kBadFileNameOrNumber: return kProfileInvalidName;
    default: return kProfileIoDevice;
  }
}

std::string ParentOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// `text` without the spaces at both ends (tabs stay).
std::string StripSpaces(const char* text) {
  std::string_view v(text);
  size_t b = v.find_first_not_of(' ');
  if (b == std::string_view::npos) return "";
  return std::string(v.substr(b, v.find_last_not_of(' ') - b + 1));
}

bool HasLineBreak(const char* text) {
  return text != nullptr && std::strpbrk(text, "\r\n") != nullptr;
}

// Copies `text`, cut to at most size-1 bytes (whole characters under
// 65001), and a NUL.
uint32_t CopyText(std::string_view text, char* buffer, uint32_t size,
                  uint32_t code_page) {
  if (size == 0) return 0;
  size_t n = CutPoint(text, size - 1, code_page);
  std::memcpy(buffer, text.data(), n);
  buffer[n] = '\0';
  return static_cast<uint32_t>(n);
}

uint32_t CopyList(const std::vector<std::string>& names, char* buffer,
                  uint32_t size, uint32_t code_page) {
  std::string list;
  for (const std::string& n : names) {
    list += n;
    list += '\0';
  }
  if (size == 0) return 0;
  if (list.size() + 1 < size || list.empty()) {
    std::memcpy(buffer, list.data(), list.size());
    buffer[list.size()] = '\0';
    return static_cast<uint32_t>(list.size());
  }
  if (size < 2) {
    buffer[0] = '\0';
    return 0;
  }
  // The last name ends at size-2; under 65001 earlier when a character
  // would be split there.
  const size_t n = CutPoint(list, size - 2, code_page);
  std::memcpy(buffer, list.data(), n);
  buffer[n] = '\0';
  buffer[n + 1] = '\0';
  return static_cast<uint32_t>(n);
}

class DefaultProfileStore : public ProfileStore {
 public:
  explicit DefaultProfileStore(std::shared_ptr<FileSystem> fs)
      : fs_(fs ? std::move(fs) : std::shared_ptr<FileSystem>(std::shared_ptr<FileSystem>(), FileSystem::Default())) {}

  uint32_t GetPrivateProfileString(const char* section, const char* key,
                                   const char* def, char* buffer, uint32_t size,
                                   const std::string& file) override {
    if (buffer == nullptr && size != 0) {
      SetLastError(kProfileInvalidParameter);
      return 0;
    }
    std::shared_ptr<const ProfileText> text;
    uint32_t code = kProfileFileNotFound;
    const uint32_t cp = code_page();
    std::string path = ResolveProfilePath(file);
    if (!path.empty()) {
      std::lock_guard<std::mutex> l(mu_);
      code = Load(fs_.get(), path, cp, &text);
    }
    uint32_t n;
    if (section == nullptr) {
      n = CopyList(text ? text->SectionNames() : std::vector<std::string>(), buffer, size, cp);
    } else if (key == nullptr) {
      n = CopyList(text ? text->KeyNames(StripSpaces(section)) : std::vector<std::string>(),
                   buffer, size, cp);
    } else {
      std::optional<std::string> value;
      if (text) value = text->GetValue(StripSpaces(section), StripSpaces(key));
      if (value) {
        n = CopyText(*value, buffer, size, cp);
      } else {
        std::string_view d = def == nullptr ? "" : def;
        size_t e = d.find_last_not_of(' ');
        n = CopyText(d.substr(0, e == std::string_view::npos ? 0 : e + 1), buffer, size, cp);
      }
    }
    SetLastError(code);
    return n;
  }

  bool WritePrivateProfileString(const char* section, const char* key,
                                 const char* value,
                                 const std::string& file) override {
    uint32_t code = Write(section, key, value, file);
    SetLastError(code);
    return code == kProfileOk;
  }

 private:
  uint32_t Write(const char* section_in, const char* key_in, const char* value,
                 const std::string& file) {
    if (HasLineBreak(section_in) || HasLineBreak(key_in) || HasLineBreak(value))
      return kProfileInvalidParameter;
    if (section_in == nullptr)
      return key_in == nullptr ? kProfileOk : kProfileFileNotFound;
    std::string section = StripSpaces(section_in);
    std::string key;
    if (key_in != nullptr) {
      key = StripSpaces(key_in);
      if (key.empty() || key.find('=') != std::string::npos || key[0] == ';' ||
          key[0] == '[')
        return kProfileInvalidParameter;
    }
    std::string path = ResolveProfilePath(file);
    if (path.empty()) return kProfileFileNotFound;
    bool deleting = key_in == nullptr || value == nullptr;

    const uint32_t cp = code_page();
    std::lock_guard<std::mutex> l(mu_);
    FileSystem* fs = fs_.get();
    if (!deleting && file.find('/') == std::string::npos) {
      // The configuration folder stands in for a folder that always exists.
      uint32_t code = CreateFolders(fs, ParentOf(path));
      if (code != kProfileOk) return code;
    }
    // Refuse before taking the lock, which creates a missing file, so that
    // a refused write creates nothing. A FIFO or a device is refused before
    // anything could wait on it.
    FileInfo info;
    FileStatus s = fs->GetFileInfo(path, &info);
    if (!s.ok()) return CodeOf(s);
    if (info.exists && (!info.is_regular || !info.writable)) return kProfileAccessDenied;
    if (!info.exists) {
      if (deleting) return kProfileOk;
      if (!fs->IsDirectory(ParentOf(path))) return kProfilePathNotFound;
    }

    std::unique_ptr<FileLock> lock;
    s = fs->LockFile(path, &lock);
    if (!s.ok()) return CodeOf(s);
    uint32_t code = WriteLocked(fs, path, cp, section, key, key_in, value);
    if (code != kProfileOk && !info.exists) {
      // The lock made an empty file for the write that failed: remove it
      // again, so that the failed write leaves nothing behind.
      FileInfo now;
      if (fs->GetFileInfo(path, &now).ok() && now.exists && now.is_regular && now.size == 0)
        fs->DeleteFile(path);
    }
    return code;
  }

  // The read-modify-write of Write(), under the file's lock.
  uint32_t WriteLocked(FileSystem* fs, const std::string& path, uint32_t cp, const std::string& section,
                       const std::string& key, const char* key_in, const char* value) {
    const bool deleting = key_in == nullptr || value == nullptr;
    FileInfo info;
    FileStatus s;
    // Another process may have written the file since: read it again under
    // the lock.
    std::shared_ptr<const ProfileText> text;
    uint32_t code = Load(fs, path, cp, &text);
    if (code == kProfileFileNotFound) {
      if (deleting) return kProfileOk;
      text = std::make_shared<ProfileText>(std::string(), cp);
    } else if (code != kProfileOk) {
      return code;
    }
    std::optional<std::string> edited;
    if (key_in == nullptr) edited = text->DeleteSection(section);
    else if (value == nullptr) edited = text->DeleteKey(section, key);
    else edited = text->SetValue(section, key, value);
    if (!edited) return kProfileOk;

    s = fs->ReplaceFileAtomically(path, *edited);
    if (!s.ok()) return CodeOf(s);
    s = fs->GetFileInfo(path, &info);
    if (s.ok() && info.exists) {
      Remember(path, info, std::make_shared<ProfileText>(std::move(*edited), cp));
    } else {
      cache_.erase(path);
    }
    return kProfileOk;
  }

  // Creates `dir` and its missing parents.
  static uint32_t CreateFolders(FileSystem* fs, const std::string& dir) {
    if (fs->IsDirectory(dir)) return kProfileOk;
    std::string parent = ParentOf(dir);
    if (parent != dir) {
      uint32_t code = CreateFolders(fs, parent);
      if (code != kProfileOk) return code;
    }
    FileStatus s = fs->CreateDir(dir);
    if (!s.ok() && !fs->IsDirectory(dir)) return CodeOf(s);
    return kProfileOk;
  }

  // Sets *text to the current content of `path` read in `code_page`, taken
  // from the cache while the file is unchanged (and was read in that code
  // page). Returns kProfileOk, or the code of why there is no content
  // (*text is then null). REQUIRES: mu_ held.
  uint32_t Load(FileSystem* fs, const std::string& path, uint32_t code_page,
                std::shared_ptr<const ProfileText>* text) {
    text->reset();
    FileInfo info;
    FileStatus s = fs->GetFileVersion(path, &info);
    if (!s.ok()) return CodeOf(s);
    if (!info.exists) {
      cache_.erase(path);
      return fs->IsDirectory(ParentOf(path)) ? kProfileFileNotFound : kProfilePathNotFound;
    }
    if (!info.is_regular) return kProfileAccessDenied;  // a folder, a FIFO, a device
    auto it = cache_.find(path);
    int64_t now = NowNs();
    if (it != cache_.end() && it->second.text->code_page() != code_page) {
      cache_.erase(it);
      it = cache_.end();
    }
    if (it != cache_.end() && it->second.info.SameVersion(info) &&
        std::max(info.mtime_ns, info.ctime_ns) < it->second.read_ns - kRacyWindowNs) {
      it->second.last_use = ++use_clock_;
      *text = it->second.text;
      return kProfileOk;
    }
    std::string bytes;
    s = fs->ReadFile(path, &bytes);
    if (!s.ok()) {
      cache_.erase(path);
      return CodeOf(s);
    }
    if (it != cache_.end() && it->second.text->bytes() == bytes) {
      it->second.info = info;
      it->second.read_ns = now;
      it->second.last_use = ++use_clock_;
      *text = it->second.text;
      return kProfileOk;
    }
    *text = std::make_shared<ProfileText>(std::move(bytes), code_page);
    Remember(path, info, *text);
    cache_[path].read_ns = now;
    return kProfileOk;
  }

  void Remember(const std::string& path, const FileInfo& info,
                std::shared_ptr<const ProfileText> text) {
    if (cache_.size() >= kMaxCachedFiles && cache_.count(path) == 0) {
      auto oldest = cache_.begin();
      for (auto it = cache_.begin(); it != cache_.end(); ++it)
        if (it->second.last_use < oldest->second.last_use) oldest = it;
      cache_.erase(oldest);
    }
    Entry& e = cache_[path];
    e.info = info;
    e.read_ns = NowNs();
    e.text = std::move(text);
    e.last_use = ++use_clock_;
  }

  struct Entry {
    FileInfo info;        // the file as it was when `text` was read
    int64_t read_ns = 0;  // when the bytes were last read or confirmed
    std::shared_ptr<const ProfileText> text;
    uint64_t last_use = 0;
  };

  const std::shared_ptr<FileSystem> fs_;
  std::mutex mu_;  // guards everything below; held for a whole call
  std::map<std::string, Entry> cache_;
  uint64_t use_clock_ = 0;
};

std::string HomeFolder() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && *home != '\0') return home;
  struct passwd pw, *result = nullptr;
  char buf[4096];
  if (getpwuid_r(getuid(), &pw, buf, sizeof buf, &result) == 0 && result != nullptr &&
      result->pw_dir != nullptr)
    return result->pw_dir;
  return ".";
}

}  // namespace

ProfileStore::ProfileStore() : code_page_(EnvironmentCodePage()) {}

ProfileStore::~ProfileStore() = default;

uint32_t ProfileStore::LastError() const { return t_last_error; }

void ProfileStore::SetLastError(uint32_t code) { t_last_error = code; }

std::shared_ptr<ProfileStore> NewProfileStore(std::shared_ptr<FileSystem> fs, std::uint32_t code_page) {
  auto store = std::make_shared<DefaultProfileStore>(std::move(fs));
  if (code_page != 0) store->set_code_page(code_page);
  return store;
}

std::string ResolveProfilePath(const std::string& file) {
  if (file.empty() || file.find('/') != std::string::npos) return file;
  // Relative values of XDG_CONFIG_HOME are invalid and ignored.
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  std::string base = (xdg != nullptr && xdg[0] == '/') ? std::string(xdg)
                                                        : HomeFolder() + "/.config";
  if (base.size() > 1 && base.back() == '/') base.pop_back();
  return base + "/" + file;
}

}  // namespace tarvo2
