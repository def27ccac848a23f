// Services: the context that every object of the library works in.
//
// A context holds everything an object needs from outside itself: the file
// system, the profile store of INI files, the registry store (with the
// location it opens), the random source, the screen, the message box, the
// host module path, the raise switch of the library's own errors, the
// import hook and the code page of its 8-bit text. Every object takes a context when it is created and keeps it
// for its whole life; objects that an object makes (subkeys, a subkeys
// collection, the store of TarvoLibrary::KivSetFormSaveParams, the views of
// the common interface) work in their creator's context. Two contexts are
// independent: two registry databases, two raise switches, two file systems
// can be used side by side in one process.
//
//   auto ctx = Services::New();
//   ctx->set_registry_location("/srv/app/registry.sqlite3");
//   auto key = KivRegistryKey::Create(ctx);            // works in ctx
//   auto ini = CreateObject(u"Tarvo2.KivINIFileHandler", ctx);
//
// Services::Default() is the context of every object created without one
// (and of CreateObject(prog_id)); the Get*/Set* functions at the end of this
// file read and replace its services. Its raise switch is the library-wide
// switch that TarvoLibrary.TarvoRaiseErrors writes.
//
// Every service a context was not given is made on first use: the POSIX
// file system, a profile store over the context's file system, the SQLite
// registry at registry_location() (DefaultRegistryLocation() when empty),
// NewClockRandomService(), the screen of NewDefaultScreenService(), the
// terminal message box and the path of the running executable. Replacing a
// service with nullptr returns to that default. Objects fetch a service at
// each call, so a replacement applies to objects created earlier too; what
// a call already fetched stays alive until the call ends.
//
// All members are safe to call from several threads at once.
#ifndef TARVO2_SERVICES_H_
#define TARVO2_SERVICES_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "tarvo2/codepage.h"
#include "tarvo2/export.h"
#include "tarvo2/file_system.h"
#include "tarvo2/host_module.h"
#include "tarvo2/message_box.h"
#include "tarvo2/object.h"
#include "tarvo2/profile_store.h"
#include "tarvo2/random.h"
#include "tarvo2/registry_store.h"
#include "tarvo2/screen.h"

namespace tarvo2 {

class Services;

// What a store's Value (write) does with a store object of this library
// (see import.h): `services` is the target's context. ImportStore unless
// replaced; null turns imports off.
using ImportHook = void (*)(const Services& services, Object& target, const Ref<Object>& source);

// One replaceable service: what was set, or else a default made on first
// use. The maker's result is kept unless it says otherwise (a registry
// that failed to open is made again at the next use).
template <class T>
class ServiceSlot {
 public:
  struct Made {
    std::shared_ptr<T> service;
    bool keep = true;  // false: hand it out once, make a new one next time
  };
  using Maker = std::function<Made()>;

  // REQUIRES: `make` never returns a null service.
  explicit ServiceSlot(Maker make) : make_(std::move(make)) {}
  ServiceSlot(const ServiceSlot&) = delete;
  ServiceSlot& operator=(const ServiceSlot&) = delete;

  // The service set, or the default (made now when there is none yet).
  // Never null.
  std::shared_ptr<T> Get() const {
    std::lock_guard<std::mutex> l(mu_);
    if (current_) return current_;
    Made made = make_();
    if (made.keep) {
      current_ = made.service;
      is_default_ = true;
    }
    return made.service;
  }

  // Replaces the service; nullptr returns to the default, made again at
  // the next Get(). The old service is released outside the lock.
  void Set(std::shared_ptr<T> service) {
    std::shared_ptr<T> old;
    std::lock_guard<std::mutex> l(mu_);
    old = std::exchange(current_, std::move(service));
    is_default_ = false;
  }

  // The service set or made so far, without making one: null when there is
  // none yet.
  std::shared_ptr<T> Peek() const {
    std::lock_guard<std::mutex> l(mu_);
    return current_;
  }

  // Drops a default made earlier (so that it is made again), but keeps a
  // service that was set.
  void DropDefault() {
    std::shared_ptr<T> old;
    std::lock_guard<std::mutex> l(mu_);
    if (is_default_) old = std::exchange(current_, nullptr);
    is_default_ = false;
  }

 private:
  mutable std::mutex mu_;
  const Maker make_;
  mutable std::shared_ptr<T> current_;  // guarded by mu_
  mutable bool is_default_ = false;     // current_ was made by make_
};

class TARVO2_EXPORT Services {
 public:
  // A context with every service at its default, the raise switch on (the
  // library's start-up) and ImportStore as the import hook.
  Services();
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;
  ~Services();

  // A new context, as held by the objects created in it.
  static std::shared_ptr<Services> New() { return std::make_shared<Services>(); }

  // The default context: that of objects created without one. Lives for
  // the whole process.
  static const std::shared_ptr<Services>& Default();
  // `services`, or Default() when it is null.
  static std::shared_ptr<Services> OrDefault(std::shared_ptr<Services> services) {
    return services ? std::move(services) : Default();
  }

  // Files of the storage string's Load and Save, the INI file's DeleteFile
  // and path checks, and the default profile store. Replacing it also
  // replaces a default profile store (whose cache described the old one).
  std::shared_ptr<FileSystem> file_system() const { return file_system_.Get(); }
  void set_file_system(std::shared_ptr<FileSystem> fs);

  // The INI files of KivINIFileHandler. The default is NewProfileStore()
  // over file_system(). A store set here is put into code_page().
  std::shared_ptr<ProfileStore> profile_store() const { return profile_store_.Get(); }
  void set_profile_store(std::shared_ptr<ProfileStore> store);

  // The registry of KivRegistryKey. The default is OpenRegistryStore(
  // registry_location()), opened at the first use; an open that failed is
  // tried again at the next use, while every call of the failed store
  // reports the failure. Stores handed out earlier stay valid for as long
  // as their holders keep them. A store set here is put into code_page().
  std::shared_ptr<RegistryStore> registry_store() const { return registry_store_.Get(); }
  void set_registry_store(std::shared_ptr<RegistryStore> store);

  // The location the default registry store opens: a path, ":memory:", or
  // "" for DefaultRegistryLocation(). Setting it drops the current store,
  // set or default, so that the next use opens the new location.
  std::string registry_location() const;
  void set_registry_location(std::string path);

  // The random source of KivINIFileHandler.GetValue's marker texts.
  std::shared_ptr<RandomService> random() const { return random_.Get(); }
  void set_random(std::shared_ptr<RandomService> random) { random_.Set(std::move(random)); }

  // The screen that TarvoLibrary.KivCenterForm centres forms on.
  std::shared_ptr<ScreenService> screen() const { return screen_.Get(); }
  void set_screen(std::shared_ptr<ScreenService> screen) { screen_.Set(std::move(screen)); }

  // The message box of the version report.
  std::shared_ptr<MessageBoxService> message_box() const { return message_box_.Get(); }
  void set_message_box(std::shared_ptr<MessageBoxService> box) { message_box_.Set(std::move(box)); }

  // The host executable, parsed once: its path and the folder and name
  // that the INI file and the window placement helpers use. The default is
  // the running executable (ReadHostModulePath()).
  std::shared_ptr<const HostModule> host_module() const { return host_module_.Get(); }
  // Makes `path` the host executable's path; "" returns to the default.
  void set_host_module_path(std::string path);

  // The raise switch of the library's own errors (RaiseLibraryError),
  // shared by every object of this context. On from creation.
  bool raise_errors() const { return raise_errors_.load(std::memory_order_relaxed); }
  void set_raise_errors(bool raise) { raise_errors_.store(raise, std::memory_order_relaxed); }

  // The import hook of the stores of this context (see import.h).
  ImportHook import_hook() const { return import_hook_.load(); }
  void set_import_hook(ImportHook hook) { import_hook_.store(hook); }

  // The code page of the context's 8-bit text (tarvo2/codepage.h):
  // kCodePage1252 or kCodePageUtf8. Its objects write text in it to files
  // (KivStorageString.Save), INI files and the registry, and read text back
  // in it; its profile and registry stores work in it. A context starts
  // with EnvironmentCodePage() (the environment variable TARVO2_CODEPAGE).
  std::uint32_t code_page() const { return code_page_.load(std::memory_order_relaxed); }
  // Makes `code_page` the context's code page and that of its current
  // profile and registry stores, set or default (defaults made later are
  // made in it too). Set it before the context's first use or between
  // uses: a call that is converting text at that moment may use either
  // code page. Files, INI files and registry values already written keep
  // their bytes and are read in the new code page from then on.
  // Fails with the runtime error 5 ("Invalid procedure call or argument"),
  // changing nothing, for any value other than 1252 and 65001.
  void set_code_page(std::uint32_t code_page);

 private:
  ServiceSlot<FileSystem> file_system_;
  ServiceSlot<ProfileStore> profile_store_;
  ServiceSlot<RegistryStore> registry_store_;
  ServiceSlot<RandomService> random_;
  ServiceSlot<ScreenService> screen_;
  ServiceSlot<MessageBoxService> message_box_;
  ServiceSlot<const HostModule> host_module_;
  mutable std::mutex location_mu_;
  std::string registry_location_;  // guarded by location_mu_
  std::atomic<bool> raise_errors_;
  std::atomic<ImportHook> import_hook_;
  // Changes of the code page and of the stores that must follow it.
  std::mutex code_page_mu_;
  std::atomic<std::uint32_t> code_page_;
};

// ---------------------------------------------------------------------------
// The default context's services, read and replaced one at a time. Each
// Set* is Services::Default()->set_*(); nullptr (or "") returns that
// service to its default.

TARVO2_EXPORT std::shared_ptr<FileSystem> GetFileSystem();
TARVO2_EXPORT void SetFileSystem(std::shared_ptr<FileSystem> fs);

TARVO2_EXPORT std::shared_ptr<ProfileStore> GetProfileStore();
TARVO2_EXPORT void SetProfileStore(std::shared_ptr<ProfileStore> store);

TARVO2_EXPORT std::shared_ptr<RegistryStore> GetRegistryStore();
TARVO2_EXPORT void SetRegistryStore(std::shared_ptr<RegistryStore> store);
TARVO2_EXPORT void SetRegistryLocation(std::string path);

TARVO2_EXPORT std::shared_ptr<RandomService> GetRandomService();
TARVO2_EXPORT void SetRandomService(std::shared_ptr<RandomService> service);

TARVO2_EXPORT std::shared_ptr<ScreenService> GetScreenService();
TARVO2_EXPORT void SetScreenService(std::shared_ptr<ScreenService> service);
// SetScreenService(NewFixedScreenService(width, height)).
TARVO2_EXPORT void SetScreenSize(double width, double height);

TARVO2_EXPORT std::shared_ptr<MessageBoxService> GetMessageBoxService();
TARVO2_EXPORT void SetMessageBoxService(std::shared_ptr<MessageBoxService> service);

// The host executable's path (host_module()->path).
TARVO2_EXPORT std::string GetHostModulePath();
TARVO2_EXPORT void SetHostModulePath(std::string path);

TARVO2_EXPORT ImportHook GetImportHook();
TARVO2_EXPORT void SetImportHook(ImportHook hook);

// The default context's code page (Services::code_page()). SetCodePage
// fails as Services::set_code_page does.
TARVO2_EXPORT std::uint32_t GetCodePage();
TARVO2_EXPORT void SetCodePage(std::uint32_t code_page);

}  // namespace tarvo2

#endif  // TARVO2_SERVICES_H_
