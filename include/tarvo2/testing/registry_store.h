// A test double of the registry store: a wrapper that fails chosen calls.
// Part of the tarvo2_testing library.
#ifndef TARVO2_TESTING_REGISTRY_STORE_H_
#define TARVO2_TESTING_REGISTRY_STORE_H_

#include <cstdint>
#include <memory>
#include <mutex>

#include "tarvo2/registry_store.h"

namespace tarvo2 {

// A wrapper that makes chosen calls fail, for testing how callers cope with
// store failures. Writes are CreateKey, SetValue, DeleteValue and DeleteKey;
// reads are OpenKey, QueryValue, EnumValue and EnumKey. CloseKey is never
// failed. A failed call does not reach the target, so nothing changes in the
// store; out arguments are left as they were, except that a failed
// CreateKey or OpenKey sets *result to 0.
class FaultInjectingRegistryStore : public RegistryStoreWrapper {
 public:
  explicit FaultInjectingRegistryStore(std::shared_ptr<RegistryStore> target);

  // The `n`-th write from now (1 for the very next) fails with `code`; the
  // writes before and after it pass. Replaces any earlier write fault.
  void FailNthWrite(std::uint64_t n, std::int32_t code);
  // Every write from now fails with `code`.
  void FailAllWrites(std::int32_t code);
  // Every read from now fails with `code`.
  void FailAllReads(std::int32_t code);
  // Removes every fault; calls pass again.
  void ClearFaults();
  // The number of calls failed so far.
  std::uint64_t injected_failures() const;

  std::int32_t CreateKey(RegKey parent, const char* subkey,
                         std::uint32_t access, RegKey* result,
                         std::uint32_t* disposition) override;
  std::int32_t OpenKey(RegKey parent, const char* subkey, std::uint32_t access,
                       RegKey* result) override;
  std::int32_t QueryValue(RegKey key, const char* name, std::uint32_t* type,
                          std::uint8_t* data, std::uint32_t* size) override;
  std::int32_t SetValue(RegKey key, const char* name, std::uint32_t type,
                        const std::uint8_t* data, std::uint32_t size) override;
  std::int32_t DeleteValue(RegKey key, const char* name) override;
  std::int32_t DeleteKey(RegKey key, const char* subkey) override;
  std::int32_t EnumValue(RegKey key, std::uint32_t index, char* name,
                         std::uint32_t* name_length, std::uint32_t* type,
                         std::uint8_t* data, std::uint32_t* data_size) override;
  std::int32_t EnumKey(RegKey key, std::uint32_t index, char* name,
                       std::uint32_t name_size) override;

 private:
  // Returns the code to fail the current call with, or 0 to let it pass.
  std::int32_t NextWriteFault();
  std::int32_t NextReadFault();

  mutable std::mutex mu_;
  std::uint64_t write_countdown_ = 0;  // 0: no single-write fault pending
  std::int32_t nth_write_code_ = 0;
  std::int32_t all_writes_code_ = 0;   // 0: writes pass
  std::int32_t all_reads_code_ = 0;    // 0: reads pass
  std::uint64_t injected_ = 0;
};

}  // namespace tarvo2

#endif  // TARVO2_TESTING_REGISTRY_STORE_H_
