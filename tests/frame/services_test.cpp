// The services context: defaults made on first use, replacement, and
// contexts that do not see each other's services.
#include "tarvo2/services.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform_temp_dir.h"
#include "tarvo2/testing/file_system.h"
#include "tarvo2/testing/registry_store.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

// The text of value "v" of HKEY_CURRENT_USER, or "<code>" when it cannot
// be read.
std::string ReadV(RegistryStore& store) {
  char data[64];
  std::uint32_t size = sizeof data;
  std::int32_t rc = store.QueryValueAt(kHKeyCurrentUser, "", "v", nullptr, reinterpret_cast<std::uint8_t*>(data), &size);
  return rc == kErrorSuccess ? std::string(data, size ? size - 1 : 0) : "<" + std::to_string(rc) + ">";
}

std::int32_t WriteV(RegistryStore& store, const std::string& text) {
  return store.SetValueAt(kHKeyCurrentUser, "", "v", kRegSz, reinterpret_cast<const std::uint8_t*>(text.c_str()),
                          static_cast<std::uint32_t>(text.size() + 1));
}

TEST(Services, TheDefaultProfileStoreFollowsTheFileSystem) {
  auto services = Services::New();
  auto first = NewMemFileSystem(), second = NewMemFileSystem();
  services->set_file_system(first);
  EXPECT_TRUE(services->profile_store()->WritePrivateProfileString("S", "k", "1", "/a.ini"));
  services->set_file_system(second);  // a new default store over the new file system
  EXPECT_TRUE(services->profile_store()->WritePrivateProfileString("S", "k", "2", "/a.ini"));
  std::string a, b;
  ASSERT_TRUE(first->ReadFile("/a.ini", &a).ok() && second->ReadFile("/a.ini", &b).ok());
  EXPECT_EQ(a + b, "[S]\nk=1\n[S]\nk=2\n");
  // A store that was set stays when the file system changes.
  auto own = NewProfileStore(first);
  services->set_profile_store(own);
  services->set_file_system(second);
  EXPECT_EQ(services->profile_store(), own);
  services->set_profile_store(nullptr);
  EXPECT_NE(services->profile_store(), own);
}

TEST(Services, RegistryLocationsOpenLazilyAndAFailedOpenIsRetried) {
  testing::PlatformTempDir tmp;
  ASSERT_FALSE(tmp.path().empty());
  auto services = Services::New();
  services->set_registry_location(tmp / "one.db");
  auto store = services->registry_store();
  EXPECT_EQ(services->registry_store(), store);  // opened once
  ASSERT_EQ(WriteV(*store, "one"), kErrorSuccess);
  services->set_registry_location(tmp / "sub/two.db");  // the folder does not exist yet
  EXPECT_EQ(services->registry_location(), tmp / "sub/two.db");
  EXPECT_EQ(ReadV(*services->registry_store()), "<1011>");
  ASSERT_EQ(::mkdir((tmp / "sub").c_str(), 0700), 0);
  EXPECT_EQ(ReadV(*services->registry_store()), "<2>");  // opened now: empty
  EXPECT_EQ(ReadV(*store), "one");                         // the old store stays usable
  services->set_registry_store(store);
  EXPECT_EQ(ReadV(*services->registry_store()), "one");
  services->set_registry_store(nullptr);  // back to the location
  EXPECT_EQ(ReadV(*services->registry_store()), "<2>");
}

TEST(Services, HostModuleIsParsedOnceAndContextsAreIndependent) {
  auto a = Services::New(), b = Services::New();
  a->set_host_module_path("/opt/app/Ledger.exe");
  auto host = a->host_module();
  EXPECT_EQ(host, a->host_module());
  EXPECT_EQ(host->folder + u"|" + host->name, u"/opt/app/|Ledger");
  EXPECT_EQ(b->host_module()->path, ReadHostModulePath());
  a->set_host_module_path("");
  EXPECT_EQ(a->host_module()->path, ReadHostModulePath());

  a->set_raise_errors(false);
  a->set_import_hook(nullptr);
  a->set_screen(NewFixedScreenService(10, 20));
  EXPECT_TRUE(b->raise_errors() && b->import_hook() != nullptr && b->screen()->Width() == NewDefaultScreenService()->Width());
  EXPECT_EQ(a->screen()->Height(), 20);

  // The Set* functions replace the default context's service, and only it.
  auto mem = NewMemFileSystem();
  SetFileSystem(mem);
  EXPECT_EQ(Services::Default()->file_system(), mem);
  EXPECT_EQ(GetFileSystem(), mem);
  EXPECT_NE(b->file_system(), mem);
  SetFileSystem(nullptr);
  EXPECT_EQ(GetFileSystem().get(), FileSystem::Default());
}

// Each context has its code page; its stores, set or default, made before
// or after a change, work in it.
TEST(Services, TheCodePageIsTheContextsAndItsStoresFollowIt) {
  const std::uint32_t start = EnvironmentCodePage();
  const std::uint32_t other = start == kCodePageUtf8 ? kCodePage1252 : kCodePageUtf8;
  auto a = Services::New(), b = Services::New();
  a->set_registry_location(":memory:");
  EXPECT_EQ(a->code_page(), start);
  auto early = a->registry_store();  // made before the change
  EXPECT_EQ(early->code_page(), start);
  a->set_code_page(kCodePageUtf8);
  ASSERT_EQ(WriteV(*early, "Caf\xC3\xA9 \xE2\x82\xAC"), kErrorSuccess);
  a->set_code_page(kCodePage1252);  // the same value, now read in 1252
  EXPECT_EQ(ReadV(*a->registry_store()), "Caf\xE9 \x80");
  a->set_code_page(other);
  EXPECT_EQ(a->profile_store()->code_page(), other);  // made after the change
  EXPECT_EQ(early->code_page(), other);
  EXPECT_EQ(b->code_page(), start);  // the other context keeps its own
  EXPECT_EQ(b->profile_store()->code_page(), start);
  // A store set into a context takes the context's code page; a wrapper
  // passes it to its target.
  auto own = NewProfileStore(NewMemFileSystem(), start);
  a->set_profile_store(own);
  auto target = OpenSqliteRegistryStore(":memory:");
  a->set_registry_store(std::make_shared<FaultInjectingRegistryStore>(target));
  EXPECT_EQ(own->code_page(), other);
  EXPECT_EQ(target->code_page(), other);
  EXPECT_ERROR(a->set_code_page(65000), 5, u"Invalid procedure call or argument", u"Tarvo2");
  EXPECT_EQ(a->code_page(), other);  // unchanged by the refusal
  EXPECT_EQ(target->code_page(), other);
  // GetCodePage and SetCodePage are the default context's.
  SetCodePage(other);
  EXPECT_EQ(Services::Default()->code_page(), other);
  EXPECT_EQ(GetCodePage(), other);
  EXPECT_EQ(b->code_page(), start);
  SetCodePage(start);
}

}  // namespace
}  // namespace tarvo2
