#include "tarvo2/testing/registry_store.h"

namespace tarvo2 {

FaultInjectingRegistryStore::FaultInjectingRegistryStore(
    std::shared_ptr<RegistryStore> target)
    : RegistryStoreWrapper(std::move(target)) {}

void FaultInjectingRegistryStore::FailNthWrite(std::uint64_t n,
                                               std::int32_t code) {
  std::lock_guard<std::mutex> lock(mu_);
  write_countdown_ = n;
  nth_write_code_ = code;
}

void FaultInjectingRegistryStore::FailAllWrites(std::int32_t code) {
  std::lock_guard<std::mutex> lock(mu_);
  all_writes_code_ = code;
}

void FaultInjectingRegistryStore::FailAllReads(std::int32_t code) {
  std::lock_guard<std::mutex> lock(mu_);
  all_reads_code_ = code;
}

void FaultInjectingRegistryStore::ClearFaults() {
  std::lock_guard<std::mutex> lock(mu_);
  write_countdown_ = 0;
  nth_write_code_ = all_writes_code_ = all_reads_code_ = 0;
}

std::uint64_t FaultInjectingRegistryStore::injected_failures() const {
  std::lock_guard<std::mutex> lock(mu_);
  return injected_;
}

std::int32_t FaultInjectingRegistryStore::NextWriteFault() {
  std::lock_guard<std::mutex> lock(mu_);
  std::int32_t code = 0;
  if (write_countdown_ > 0 && --write_countdown_ == 0) code = nth_write_code_;
  if (code == 0) code = all_writes_code_;
  if (code != 0) ++injected_;
  return code;
}

std::int32_t FaultInjectingRegistryStore::NextReadFault() {
  std::lock_guard<std::mutex> lock(mu_);
  if (all_reads_code_ != 0) ++injected_;
  return all_reads_code_;
}

std::int32_t FaultInjectingRegistryStore::CreateKey(
    RegKey parent, const char* subkey, std::uint32_t access, RegKey* result,
    std::uint32_t* disposition) {
  if (std::int32_t code = NextWriteFault()) {
    if (result != nullptr) *result = 0;
    return code;
  }
  return RegistryStoreWrapper::CreateKey(parent, subkey, access, result,
                                         disposition);
}

std::int32_t FaultInjectingRegistryStore::OpenKey(RegKey parent,
                                                  const char* subkey,
                                                  std::uint32_t access,
                                                  RegKey* result) {
  if (std::int32_t code = NextReadFault()) {
    if (result != nullptr) *result = 0;
    return code;
  }
  return RegistryStoreWrapper::OpenKey(parent, subkey, access, result);
}

std::int32_t FaultInjectingRegistryStore::QueryValue(RegKey key,
                                                     const char* name,
                                                     std::uint32_t* type,
                                                     std::uint8_t* data,
                                                     std::uint32_t* size) {
  if (std::int32_t code = NextReadFault()) return code;
  return RegistryStoreWrapper::QueryValue(key, name, type, data, size);
}

std::int32_t FaultInjectingRegistryStore::SetValue(RegKey key,
                                                   const char* name,
                                                   std::uint32_t type,
                                                   const std::uint8_t* data,
                                                   std::uint32_t size) {
  if (std::int32_t code = NextWriteFault()) return code;
  return RegistryStoreWrapper::SetValue(key, name, type, data, size);
}

std::int32_t FaultInjectingRegistryStore::DeleteValue(RegKey key,
                                                      const char* name) {
  if (std::int32_t code = NextWriteFault()) return code;
  return RegistryStoreWrapper::DeleteValue(key, name);
}

std::int32_t FaultInjectingRegistryStore::DeleteKey(RegKey key,
                                                    const char* subkey) {
  if (std::int32_t code = NextWriteFault()) return code;
  return RegistryStoreWrapper::DeleteKey(key, subkey);
}

std::int32_t FaultInjectingRegistryStore::EnumValue(
    RegKey key, std::uint32_t index, char* name, std::uint32_t* name_length,
    std::uint32_t* type, std::uint8_t* data, std::uint32_t* data_size) {
  if (std::int32_t code = NextReadFault()) return code;
  return RegistryStoreWrapper::EnumValue(key, index, name, name_length, type,
                                         data, data_size);
}

std::int32_t FaultInjectingRegistryStore::EnumKey(RegKey key,
                                                  std::uint32_t index,
                                                  char* name,
                                                  std::uint32_t name_size) {
  if (std::int32_t code = NextReadFault()) return code;
  return RegistryStoreWrapper::EnumKey(key, index, name, name_size);
}

}  // namespace tarvo2
