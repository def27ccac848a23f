#include "tarvo2/services.h"

#include "tarvo2/error.h"
#include "tarvo2/import.h"

namespace tarvo2 {
namespace {

// The POSIX file system, shared without ownership: it lives for the whole
// process.
std::shared_ptr<FileSystem> PosixFileSystem() {
  return std::shared_ptr<FileSystem>(std::shared_ptr<FileSystem>(), FileSystem::Default());
}

}  // namespace

Services::Services()
    : file_system_([] { return ServiceSlot<FileSystem>::Made{PosixFileSystem()}; }),
      profile_store_([this] {
        return ServiceSlot<ProfileStore>::Made{NewProfileStore(file_system(), code_page())};
      }),
      registry_store_([this] {
        std::int32_t opened = kErrorSuccess;
        std::shared_ptr<RegistryStore> store = OpenRegistryStore(registry_location(), &opened);
        store->set_code_page(code_page());
        return ServiceSlot<RegistryStore>::Made{std::move(store), opened == kErrorSuccess};
      }),
      random_([] { return ServiceSlot<RandomService>::Made{NewClockRandomService()}; }),
      screen_([] { return ServiceSlot<ScreenService>::Made{NewDefaultScreenService()}; }),
      message_box_([] { return ServiceSlot<MessageBoxService>::Made{NewTerminalMessageBox()}; }),
      host_module_([] {
        return ServiceSlot<const HostModule>::Made{
            std::make_shared<const HostModule>(ParseHostModulePath(ReadHostModulePath()))};
      }),
      // The library's start-up: the raise switch is on before the first
      // object of the context exists.
      raise_errors_(true),
      import_hook_(&ImportStore),
      code_page_(EnvironmentCodePage()) {}

Services::~Services() = default;

const std::shared_ptr<Services>& Services::Default() {
  // Never destroyed: objects may outlive the end of main().
  static const auto* services = new std::shared_ptr<Services>(New());
  return *services;
}

void Services::set_file_system(std::shared_ptr<FileSystem> fs) {
  file_system_.Set(std::move(fs));
  profile_store_.DropDefault();
}

void Services::set_profile_store(std::shared_ptr<ProfileStore> store) {
  std::lock_guard<std::mutex> l(code_page_mu_);
  if (store) store->set_code_page(code_page());
  profile_store_.Set(std::move(store));
}

void Services::set_registry_store(std::shared_ptr<RegistryStore> store) {
  std::lock_guard<std::mutex> l(code_page_mu_);
  if (store) store->set_code_page(code_page());
  registry_store_.Set(std::move(store));
}

void Services::set_code_page(std::uint32_t code_page) {
  if (!IsSupportedCodePage(code_page)) RaiseRuntimeError(err::kInvalidProcedureCall);
  std::lock_guard<std::mutex> l(code_page_mu_);
  code_page_.store(code_page, std::memory_order_relaxed);
  // A default being made now is made under the slot's lock: Peek() waits
  // for it and then puts it into the new code page too.
  if (auto store = profile_store_.Peek()) store->set_code_page(code_page);
  if (auto store = registry_store_.Peek()) store->set_code_page(code_page);
}

std::string Services::registry_location() const {
  std::lock_guard<std::mutex> l(location_mu_);
  return registry_location_;
}

void Services::set_registry_location(std::string path) {
  {
    std::lock_guard<std::mutex> l(location_mu_);
    registry_location_ = std::move(path);
  }
  registry_store_.Set(nullptr);
}

void Services::set_host_module_path(std::string path) {
  host_module_.Set(path.empty() ? nullptr : std::make_shared<const HostModule>(ParseHostModulePath(std::move(path))));
}

// ---------------------------------------------------------------------------
// The default context's services.

std::shared_ptr<FileSystem> GetFileSystem() { return Services::Default()->file_system(); }
void SetFileSystem(std::shared_ptr<FileSystem> fs) { Services::Default()->set_file_system(std::move(fs)); }

std::shared_ptr<ProfileStore> GetProfileStore() { return Services::Default()->profile_store(); }
void SetProfileStore(std::shared_ptr<ProfileStore> store) { Services::Default()->set_profile_store(std::move(store)); }

std::shared_ptr<RegistryStore> GetRegistryStore() { return Services::Default()->registry_store(); }
void SetRegistryStore(std::shared_ptr<RegistryStore> store) {
  Services::Default()->set_registry_store(std::move(store));
}
void SetRegistryLocation(std::string path) { Services::Default()->set_registry_location(std::move(path)); }

std::shared_ptr<RandomService> GetRandomService() { return Services::Default()->random(); }
void SetRandomService(std::shared_ptr<RandomService> service) { Services::Default()->set_random(std::move(service)); }

std::shared_ptr<ScreenService> GetScreenService() { return Services::Default()->screen(); }
void SetScreenService(std::shared_ptr<ScreenService> service) { Services::Default()->set_screen(std::move(service)); }
void SetScreenSize(double width, double height) { SetScreenService(NewFixedScreenService(width, height)); }

std::shared_ptr<MessageBoxService> GetMessageBoxService() { return Services::Default()->message_box(); }
void SetMessageBoxService(std::shared_ptr<MessageBoxService> service) {
  Services::Default()->set_message_box(std::move(service));
}

std::string GetHostModulePath() { return Services::Default()->host_module()->path; }
void SetHostModulePath(std::string path) { Services::Default()->set_host_module_path(std::move(path)); }

ImportHook GetImportHook() { return Services::Default()->import_hook(); }
void SetImportHook(ImportHook hook) { Services::Default()->set_import_hook(hook); }

std::uint32_t GetCodePage() { return Services::Default()->code_page(); }
void SetCodePage(std::uint32_t code_page) { Services::Default()->set_code_page(code_page); }

}  // namespace tarvo2
