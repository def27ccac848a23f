// The file name of the host process's executable, the stand-in for
// GetModuleFileNameA with no module handle.
#ifndef TARVO2_HOST_MODULE_H_
#define TARVO2_HOST_MODULE_H_

#include <string>

#include "tarvo2/export.h"

namespace tarvo2 {

// The full path of the executable of the current process, as a native
// UTF-8 path: the override set by SetHostModulePath() when there is one,
// otherwise the target of /proc/self/exe. Returns the empty string when
// the executable cannot be determined. Thread-safe.
TARVO2_EXPORT std::string GetHostModulePath();

// Makes GetHostModulePath() return `path` (for tests, or hosts that run
// under an interpreter); the empty string restores the default.
TARVO2_EXPORT void SetHostModulePath(std::string path);

}  // namespace tarvo2

#endif  // TARVO2_HOST_MODULE_H_
