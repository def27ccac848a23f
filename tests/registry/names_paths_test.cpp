// Identity of a key object: RootKey and KeyName, Path and Section, and key
// paths the store refuses.
#include "registry_test_util.h"

namespace tarvo2 {
namespace {

class NamesPathsTest : public RegistryTest {};

TEST_F(NamesPathsTest, RootAndKeyNameAreAssignedOnce) {
  auto key = KivRegistryKey::Create();
  EXPECT_EQ(key->get_RootKey(), HKEY_CURRENT_USER);
  key->put_KeyName(u"");  // ignored
  key->put_KeyName(u" Software\\First ");
  key->put_KeyName(u"Software\\Second");
  key->put_RootKey(tarvo_HKEY_LOCAL_MACHINE);  // after the key name: does not move it
  key->put_RootKey(tarvo_HKEY_USERS);
  EXPECT_EQ(key->get_KeyName(), u" Software\\First ");
  EXPECT_EQ(key->get_RootKey(), tarvo_HKEY_LOCAL_MACHINE);
  EXPECT_TRUE(KeyExists(" Software\\First "));
  EXPECT_FALSE(KeyExists("Software\\Second"));
  EXPECT_FALSE(KeyExists(" Software\\First ", kHKeyLocalMachine));
  EXPECT_EQ(key->get_ErrorState(), 0);
}

TEST_F(NamesPathsTest, PathNamesTheRootAndTheKey) {
  struct Row { const char16_t* path; RegRootKeyEnum root; const char16_t* key_name; };
  const Row rows[] = {
      {u"Software\\Vendor\\App", HKEY_CURRENT_USER, u"Software\\Vendor\\App"},
      {u"HKEY_LOCAL_MACHINE/Software/App", HKEY_LOCAL_MACHINE, u"Software/App"},
      {u"hkey_local_machine\\Software", HKEY_CURRENT_USER, u"hkey_local_machine\\Software"},
      {u"HKEY_USERS|S-1|x", HKEY_USERS, u"S-1|x"},
      {u"HKEY_CLASSES_ROOT\\.ext\\Shell", HKEY_CLASSES_ROOT, u".ext\\Shell"},
      {u"Software\\Vendor\\App.ini", HKEY_CURRENT_USER, u"Software\\Vendor\\App"},
      {u"Software\\Ver1.5", HKEY_CURRENT_USER, u"Software\\Ver1"},
      {u"Software\\Ver1.50000", HKEY_CURRENT_USER, u"Software\\Ver1.50000"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(ToUtf8(r.path));
    auto key = KivRegistryKey::Create();
    auto std = key->StdInterface();
    std->put_Path(r.path);
    EXPECT_EQ(key->get_RootKey(), r.root);
    EXPECT_EQ(key->get_KeyName(), r.key_name);
    EXPECT_EQ(std->get_Path(), RootKeyName(r.root) + u"\\" + r.key_name);
    EXPECT_TRUE(KeyExists(ToAnsi(r.key_name), static_cast<RegKey>(r.root)));
    std->put_Path(u"HKEY_USERS\\Other");  // a path is given once
    EXPECT_EQ(key->get_KeyName(), r.key_name);
  }
}

TEST_F(NamesPathsTest, SectionAppendsReplacesAndRemovesASubkey) {
  auto key = Key(u"Software\\Base");
  auto std = key->StdInterface();
  struct Step { const char16_t* section; const char16_t* key_name; const char16_t* reads; };
  const Step steps[] = {{u"  ", u"Software\\Base", u""},       {u"A", u"Software\\Base\\A", u"A"},
                        {u"Bee", u"Software\\Base\\Bee", u"Bee"}, {u"", u"Software\\Base", u""},
                        {u"C", u"Software\\Base\\C", u"C"}};
  for (const Step& s : steps) {
    SCOPED_TRACE(ToUtf8(s.section));
    std->put_Section(s.section);
    EXPECT_EQ(key->get_KeyName(), s.key_name);
    EXPECT_EQ(std->get_Section(), s.reads);
    EXPECT_TRUE(KeyExists(ToAnsi(s.key_name)));
  }
  std->SetValue(u"v", Variant(u"in C"));
  EXPECT_EQ(Raw("Software\\Base\\C", "v").second, std::string("in C\0", 5));
  key->put_KeyName(u"Elsewhere");  // the base stays write-once
  EXPECT_EQ(key->get_KeyName(), u"Software\\Base\\C");
}

TEST_F(NamesPathsTest, KeyPathsTheStoreRefusesAreRecorded) {
  String deep;
  for (int i = 0; i < 600; ++i) deep += i ? u"\\k" : u"k";
  // A refused key name that raised is not taken, so a later write writes
  // nothing; one that was only recorded is taken, and the write fails on the
  // null handle of the failed open (6).
  struct Row { const char* what; String path; std::int32_t code; bool write_fails; std::int32_t write_code; };
  const Row rows[] = {{"600 levels", deep, 87, false, 0},
                      {"long component", u"Software\\" + String(256, u'n'), 87, false, 0},
                      {"leading separator", u"\\Software", 161, true, 6}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    auto key = KivRegistryKey::Create();
    if (r.code == 87) {
      EXPECT_ERROR(key->put_KeyName(r.path), LibNumber(ErrInvalidParameters), u"Invalid Parameters",
                   Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.CreateNewKey",
                          u"KivRegistryKey.KeyName (Let)"}));
    } else {
      key->put_KeyName(r.path);
    }
    EXPECT_EQ(key->get_ErrorState(), r.code);
    EXPECT_FALSE(KeyExists("k"));
    EXPECT_FALSE(KeyExists("Software"));
    SetRaiseErrors(false);
    EXPECT_EQ(key->SetValue(u"v", Variant(1)), r.write_fails);
    EXPECT_EQ(key->get_ErrorState(), r.write_code);
    SetRaiseErrors(true);
  }
}

}  // namespace
}  // namespace tarvo2
