#include "tarvo2/testing/file_system.h"

namespace tarvo2 {

void FaultInjectingFileSystem::FailNth(Op op, int n, int err) {
  std::lock_guard<std::mutex> l(mu_);
  faults_[static_cast<int>(op)] = Fault{n > 0 ? n : 0, err};
}

bool FaultInjectingFileSystem::Trip(Op op, int* err) {
  std::lock_guard<std::mutex> l(mu_);
  Fault& f = faults_[static_cast<int>(op)];
  if (f.remaining == 0) return false;
  if (--f.remaining != 0) return false;
  *err = f.err;
  return true;
}

FileStatus FaultInjectingFileSystem::WriteFile(const std::string& p,
                                               std::string_view d, bool sync) {
  int err;
  if (Trip(Op::kWrite, &err)) return PosixError(p, err);
  return FileSystemWrapper::WriteFile(p, d, sync);
}

FileStatus FaultInjectingFileSystem::AppendFile(const std::string& p,
                                                std::string_view d) {
  int err;
  if (Trip(Op::kAppend, &err)) return PosixError(p, err);
  return FileSystemWrapper::AppendFile(p, d);
}

FileStatus FaultInjectingFileSystem::RenameFile(const std::string& f,
                                                const std::string& t) {
  int err;
  if (Trip(Op::kRename, &err)) return PosixError(t, err);
  return FileSystemWrapper::RenameFile(f, t);
}

FileStatus FaultInjectingFileSystem::DeleteFile(const std::string& p) {
  int err;
  if (Trip(Op::kDelete, &err)) return PosixError(p, err);
  return FileSystemWrapper::DeleteFile(p);
}

}  // namespace tarvo2
