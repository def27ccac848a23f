// Moving registry content between a RegistryStore and the .reg model.
//
// Export and import work on the raw store (tarvo2/registry_store.h) because
// a .reg file carries every value type and every byte, which the key
// object's text-and-number view does not.
#ifndef TARVO2_CLI_REG_TRANSFER_H_
#define TARVO2_CLI_REG_TRANSFER_H_

#include <cstdint>
#include <functional>
#include <string>

#include "cli/reg_file.h"
#include "tarvo2/registry_store.h"

namespace tarvo2::regfile {

// Called now and then with the number of keys done so far (and, for
// imports, the total).
using ProgressFn = std::function<void(std::size_t done, std::size_t total)>;

// The long root name ("HKEY_CURRENT_USER") of a root handle, or "".
std::string RootName(RegKey root);

// Appends to `*out` the key `path` (code-page bytes; "" for the root
// itself) below `root` and, depth first, all its subkeys: each key's
// values in stored order, then its subkeys sorted as the store enumerates
// them (by name, letter case ignored). Returns kErrorSuccess, or the
// store's result code of the first call that failed (kErrorFileNotFound
// when the key does not exist); `*out` is then incomplete.
std::int32_t ExportKey(RegistryStore& store, RegKey root, const std::string& path, RegFile* out,
                       const ProgressFn& progress = nullptr);

struct ImportResult {
  std::int32_t code = kErrorSuccess;  // the store's code of the failed call
  std::string what;                   // the step that failed (UTF-8)
  bool rolled_back = true;            // every change before it was undone
};

// Applies `file` to `store`, in file order: creates keys (with missing
// parents), sets values, deletes values ("name"=-) and key trees ([-key]);
// deleting something that does not exist is no error. All or nothing: when
// a store call fails, every change made before it is undone in reverse
// order (a value that was deleted and restored comes back at the end of
// its key's value order), and the result names the failure.
// `file` must come from ParseRegFile (or satisfy its checks).
ImportResult ImportFile(RegistryStore& store, const RegFile& file, const ProgressFn& progress = nullptr);

}  // namespace tarvo2::regfile

#endif  // TARVO2_CLI_REG_TRANSFER_H_
