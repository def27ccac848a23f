// Test doubles of the file system seam: an in-memory file system and a
// wrapper that makes chosen calls fail. Part of the tarvo2_testing library,
// for tests of the library and of applications built on it.
#ifndef TARVO2_TESTING_FILE_SYSTEM_H_
#define TARVO2_TESTING_FILE_SYSTEM_H_

#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "tarvo2/file_system.h"

namespace tarvo2 {

// A new, empty in-memory file system with the semantics of the POSIX one:
// the folders "/" and "." (the current folder of relative paths) exist;
// "//", "." and ".." components are resolved lexically; every write gives a
// new modification time, and a rename gives the target the inode of the
// renamed file. Symbolic links are not supported: ResolveSymlinks() returns
// the path itself. LockFile() locks within the process only. Safe for
// concurrent use.
std::shared_ptr<FileSystem> NewMemFileSystem();

// A wrapper that makes the Nth call of a kind fail with a chosen errno
// value (translated by PosixError), for testing failure paths. Calls are
// counted from 1 after each FailNth(); the failing call does nothing.
class FaultInjectingFileSystem : public FileSystemWrapper {
 public:
  enum class Op { kWrite, kAppend, kRename, kDelete };

  explicit FaultInjectingFileSystem(std::shared_ptr<FileSystem> target)
      : FileSystemWrapper(std::move(target)) {}

  // Makes the `n`th following call of `op` (n >= 1) fail with errno `err`.
  // Replaces any fault armed earlier for the same op.
  void FailNth(Op op, int n, int err);

  FileStatus WriteFile(const std::string& p, std::string_view d,
                       bool sync) override;
  FileStatus AppendFile(const std::string& p, std::string_view d) override;
  FileStatus RenameFile(const std::string& f, const std::string& t) override;
  FileStatus DeleteFile(const std::string& p) override;

 private:
  // Counts a call of `op`; true (with *err set) when it must fail.
  bool Trip(Op op, int* err);

  struct Fault {
    int remaining = 0;  // calls until the failure; 0 = disarmed
    int err = 0;
  };
  std::mutex mu_;
  Fault faults_[4];
};

}  // namespace tarvo2

#endif  // TARVO2_TESTING_FILE_SYSTEM_H_
