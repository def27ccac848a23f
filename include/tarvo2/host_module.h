// The host executable: the stand-in for GetModuleFileNameA with no module
// handle, and the folder and name that the library takes from it.
#ifndef TARVO2_HOST_MODULE_H_
#define TARVO2_HOST_MODULE_H_

#include <string>

#include "tarvo2/export.h"
#include "tarvo2/object.h"

namespace tarvo2 {

// A host executable's path, parsed once.
struct TARVO2_EXPORT HostModule {
  // The full path, a native UTF-8 path ("" when unknown).
  std::string path;
  // The path as a 260-character buffer holds it (cut to 259 units, and at
  // its first NUL), up to and including its last '/'; "" without a '/'.
  String folder;
  // The text after that '/' without its last full stop and what follows
  // ("/opt/Ledger.bin" gives "Ledger").
  String name;
};

// Parses `path` into a HostModule.
TARVO2_EXPORT HostModule ParseHostModulePath(std::string path);

// The full path of the executable of the current process (the target of
// /proc/self/exe), or "" when it cannot be determined.
TARVO2_EXPORT std::string ReadHostModulePath();

}  // namespace tarvo2

#endif  // TARVO2_HOST_MODULE_H_
