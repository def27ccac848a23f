// The access layer: result codes recorded in ErrorState and the library
// errors they map to, value encoding at the store boundary, handles.
#include <cstring>
#include <limits>

#include "registry_test_util.h"

namespace tarvo2 {
namespace {

class AccessLayerTest : public RegistryTest {};

TEST_F(AccessLayerTest, StoreResultCodesAreRecordedAndTheTenKnownOnesRaise) {
  struct Row { std::int32_t code; std::int32_t lib; };  // lib 0: recorded only
  const Row rows[] = {{1, ErrBadDb}, {2, ErrBadKey}, {3, ErrCantOpenKey}, {4, ErrCantReadKey},
                      {5, ErrCantWriteKey}, {6, ErrOutOfMemory}, {7, ErrArenaTrashed}, {8, ErrAccessDenied},
                      {87, ErrInvalidParameters}, {259, ErrNoMoreItems}, {14, 0}, {234, 0}, {1009, 0},
                      {1011, 0}, {1013, 0}, {1018, 0}};
  auto faults = std::make_shared<FaultInjectingRegistryStore>(GetRegistryStore());
  SetRegistryStore(faults);
  auto key = Key(u"Software\\Codes");
  for (const Row& r : rows) {
    SCOPED_TRACE(r.code);
    faults->FailAllWrites(r.code);
    if (r.lib != 0) {
      EXPECT_ERROR(key->SetValue(u"v", Variant(1)), LibNumber(static_cast<LibraryErrorCode>(r.lib)),
                   LibraryErrorMessage(LibNumber(static_cast<LibraryErrorCode>(r.lib))),
                   Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.SetKeyValue",
                          u"KivRegistryKey.SetValue"}));
    } else {
      EXPECT_TRUE(key->SetValue(u"v", Variant(1)));
    }
    EXPECT_EQ(key->get_ErrorState(), r.code);
    SetRaiseErrors(false);
    key->ErrorStateClear();
    EXPECT_TRUE(key->SetValue(u"v", Variant(1)));  // true: the write failed
    EXPECT_EQ(key->get_ErrorState(), r.code);
    SetRaiseErrors(true);
  }
  faults->ClearFaults();
  EXPECT_FALSE(key->SetValue(u"v", Variant(1)));
  EXPECT_EQ(key->get_ErrorState(), 0);
}

TEST_F(AccessLayerTest, MissingValueRaisesBadKeyOrYieldsEmptyWithTheSwitchOff) {
  auto key = Key(u"Software\\Missing");
  EXPECT_ERROR(key->GetValue(u"nope"), LibNumber(ErrBadKey), u"Bad Key",
               Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.QueryValueEx",
                      u"KivRegistryKey.QueryValue", u"KivRegistryKey.GetValue"}));
  EXPECT_EQ(key->get_ErrorState(), 2);
  SetRaiseErrors(false);
  EXPECT_TRUE(key->GetValue(u"nope").IsMissing());
  EXPECT_EQ(key->get_ErrorState(), 2);
}

TEST_F(AccessLayerTest, ValuesAreStoredAsTextOrNativeIntegers) {
  struct Row { Variant value; std::uint32_t type; std::string bytes; };
  const Row rows[] = {
      {Variant(u""), kRegSz, std::string("\0", 1)},
      {Variant(u"Red"), kRegSz, std::string("Red\0", 4)},
      {Variant(u"\u00e9\u20ac"), kRegSz, std::string("\xe9\x80\0", 3)},  // code page bytes
      {Variant(true), kRegDword, std::string("\xff\xff\xff\xff", 4)},
      {Variant(false), kRegDword, std::string(4, '\0')},
      {Variant(std::int16_t{-2}), kRegDword, std::string("\xfe\xff\xff\xff", 4)},
      {Variant(std::int32_t{258}), kRegDword, std::string("\x02\x01\0\0", 4)},
      {Variant(3.0), kRegSz, std::string("3.0\0", 4)},
      {Variant(0.1), kRegSz, std::string("0.1\0", 4)},
      {Variant(1e20), kRegSz, std::string("1.0E+20\0", 8)},
      {Variant(-2.5e-7), kRegSz, std::string("-2.5E-07\0", 9)},
  };
  auto key = Key(u"Software\\Enc");
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::PrintToString(r.value));
    EXPECT_FALSE(key->SetValue(u"v", r.value));
    auto [type, bytes] = Raw("Software\\Enc", "v");
    EXPECT_EQ(type, r.type);
    EXPECT_EQ(bytes, r.bytes);
    Variant back = key->GetValue(u"v");
    if (r.value.IsDouble()) {
      ASSERT_TRUE(back.IsDouble());  // the text reads back as the same Double
      EXPECT_EQ(back.AsDouble(), r.value.AsDouble());
    }
  }
  // A Double without a decimal text is refused, not stored as garbage.
  EXPECT_ERROR(key->SetValue(u"inf", Variant(std::numeric_limits<double>::infinity())),
               LibNumber(ErrInvalidParameters), u"Invalid Parameters",
               Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.SetKeyValue",
                      u"KivRegistryKey.SetValue"}));
  EXPECT_EQ(Raw("Software\\Enc", "inf").first, 0xFFFFu);
}

TEST_F(AccessLayerTest, ValuesOfOtherSubtypesWriteNothing) {
  const Variant rows[] = {Variant(), Variant::Null(), Variant(1.5f), Variant(Currency{1}), Variant(Date{2}),
                          Variant(std::uint8_t{1}), Variant(KivRegistryKey::Create()),
                          Variant(SafeArray::Of(VarType::kSingle, {Variant(1.0f)}))};
  auto key = Key(u"Software\\Other");
  for (const Variant& v : rows) {
    SCOPED_TRACE(testing::PrintToString(v));
    EXPECT_FALSE(key->SetValue(u"v", v));
    EXPECT_EQ(key->get_ErrorState(), 0);
    EXPECT_EQ(Raw("Software\\Other", "v").first, 0xFFFFu);
  }
  // Before a key name is accepted nothing is written at all.
  auto unnamed = KivRegistryKey::Create();
  EXPECT_FALSE(unnamed->SetValue(u"v", Variant(u"x")));
  EXPECT_EQ(Raw("", "v").first, 0xFFFFu);
}

TEST_F(AccessLayerTest, OtherStoredTypesReadAsEmptyWithCodeMinusOne) {
  auto key = Key(u"Software\\Types");
  auto store = GetRegistryStore();
  RegKey h = 0;
  ASSERT_EQ(store->OpenKey(kHKeyCurrentUser, "Software\\Types", 2, &h), 0);
  store->SetValue(h, "bin", kRegBinary, reinterpret_cast<const std::uint8_t*>("ab"), 2);
  store->SetValue(h, "multi", kRegMultiSz, reinterpret_cast<const std::uint8_t*>("a\0\0"), 3);
  store->SetValue(h, "long", kRegDword, reinterpret_cast<const std::uint8_t*>("12345678"), 8);
  store->CloseKey(h);
  EXPECT_EQ(key->GetValue(u"bin", u"\t", true, true, Variant(u"d")), Variant(u"d"));
  EXPECT_EQ(key->get_ErrorState(), -1);
  EXPECT_TRUE(key->GetValue(u"multi").IsMissing());
  EXPECT_EQ(key->get_ErrorState(), -1);
  // A number stored with more than four bytes is refused, not overrun.
  EXPECT_TRUE(key->GetValue(u"long").IsMissing());
  EXPECT_EQ(key->get_ErrorState(), 234);
}

TEST_F(AccessLayerTest, NamesTheCodePageCannotCarryAreRefusedWith87) {
  auto key = Key(u"Software\\Names");
  const String bad[] = {String(u"a\0b", 3), u"\u03a9mega", u"x\U0001F600"};
  for (const String& name : bad) {
    SCOPED_TRACE(ToUtf8(name));
    EXPECT_ERROR(key->SetValue(name, Variant(u"v")), LibNumber(ErrInvalidParameters), u"Invalid Parameters",
                 Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.SetKeyValue",
                        u"KivRegistryKey.SetValue"}));
    EXPECT_ERROR_NUMBER(key->GetValue(name), LibNumber(ErrInvalidParameters));
    auto sub = KivRegistryKey::Create();
    EXPECT_ERROR_NUMBER(sub->put_KeyName(u"Software\\" + name), LibNumber(ErrInvalidParameters));
  }
  EXPECT_EQ(key->GetValueNames().Count(), 0u);
  EXPECT_EQ(Raw("Software\\Names", "a").first, 0xFFFFu);
  // Control characters are ordinary characters of a name.
  EXPECT_FALSE(key->SetValue(u"tab\there\nline", Variant(u"ok")));
  EXPECT_EQ(key->GetValue(u"tab\there\nline"), Variant(u"ok"));
}

TEST_F(AccessLayerTest, KeyThatCannotBeOpenedReportsTheNullHandle) {
  auto key = Key(u"Software\\Gone");
  auto store = GetRegistryStore();
  ASSERT_EQ(store->DeleteKey(kHKeyCurrentUser, "Software\\Gone"), 0);
  EXPECT_ERROR(key->SetValue(u"v", Variant(1)), LibNumber(ErrOutOfMemory), u"Out Of Memory",
               Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.SetKeyValue",
                      u"KivRegistryKey.SetValue"}));
  EXPECT_FALSE(KeyExists("Software\\Gone"));
}

TEST_F(AccessLayerTest, OneStepReadGivesWhatTheThreeCallsGive) {
  // The SQLite store's own QueryValueAt against the composed default that a
  // plain wrapper falls back on.
  auto direct = GetRegistryStore();
  RegistryStoreWrapper composed(direct);
  RegKey h = 0;
  direct->CreateKey(kHKeyCurrentUser, "Software\\One", 0x3F, &h, nullptr);
  direct->SetValue(h, "v", kRegSz, reinterpret_cast<const std::uint8_t*>("text"), 5);
  direct->CloseKey(h);
  struct Row { const char* path; const char* name; std::uint32_t capacity; bool with_buffer; };
  const Row rows[] = {{"Software\\One", "v", 64, true},  {"software\\one", "V", 0, false},
                      {"Software\\One", "v", 3, true},   {"Software\\One", "missing", 64, true},
                      {"Software\\None", "v", 64, true}, {"\\Software", "v", 64, true},
                      {"Software\\One", "v", 64, false}};
  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.path) + " " + r.name + " " + std::to_string(r.capacity));
    std::uint8_t buf[2][64] = {};
    std::uint32_t type[2] = {99, 99}, size[2] = {r.capacity, r.capacity};
    std::int32_t open[2] = {-7, -7}, code[2];
    RegistryStore* stores[2] = {direct.get(), &composed};
    for (int i = 0; i < 2; ++i)
      code[i] = stores[i]->QueryValueAt(kHKeyCurrentUser, r.path, r.name, &type[i], r.with_buffer ? buf[i] : nullptr,
                                        &size[i], &open[i]);
    EXPECT_EQ(code[0], code[1]);
    EXPECT_EQ(open[0], open[1]);
    EXPECT_EQ(type[0], type[1]);
    EXPECT_EQ(size[0], size[1]);
    EXPECT_EQ(std::memcmp(buf[0], buf[1], sizeof buf[0]), 0);
  }
}

TEST_F(AccessLayerTest, OneStepWriteGivesWhatTheThreeCallsGive) {
  std::shared_ptr<RegistryStore> direct = OpenSqliteRegistryStore(":memory:");
  RegistryStoreWrapper composed(OpenSqliteRegistryStore(":memory:"));
  RegistryStore* stores[2] = {direct.get(), &composed};
  for (RegistryStore* st : stores) {
    RegKey h = 0;
    st->CreateKey(kHKeyCurrentUser, "Software\\W", 0x3F, &h, nullptr);
    st->CloseKey(h);
  }
  const std::string long_name(kMaxValueNameLength + 1, 'n');
  struct Row { const char* path; const char* name; const char* data; std::uint32_t size; };
  const Row rows[] = {{"Software\\W", "v", "abc", 4},        {"software\\w", "V", "x", 2},
                      {"Software\\Missing", "v", "abc", 4}, {"\\Software", "v", "abc", 4},
                      {"Software\\W", "v", nullptr, 4},     {"Software\\W", long_name.c_str(), "a", 2},
                      {"Software\\Missing", "v", nullptr, 4}};
  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.path) + " " + std::to_string(r.size));
    std::int32_t code[2], open[2] = {-7, -7};
    std::string stored[2];
    for (int i = 0; i < 2; ++i) {
      code[i] = stores[i]->SetValueAt(kHKeyCurrentUser, r.path, r.name, kRegSz,
                                      reinterpret_cast<const std::uint8_t*>(r.data), r.size, &open[i]);
      char buf[16] = {};
      std::uint32_t type = 0, size = sizeof buf;
      stores[i]->QueryValueAt(kHKeyCurrentUser, "Software\\W", "v", &type, reinterpret_cast<std::uint8_t*>(buf), &size);
      stored[i] = std::string(buf, size);
    }
    EXPECT_EQ(code[0], code[1]);
    EXPECT_EQ(open[0], open[1]);
    EXPECT_EQ(stored[0], stored[1]);
  }
}

TEST_F(AccessLayerTest, EveryHandleIsClosedAlsoWhenAnErrorLeaves) {
  auto counting = std::make_shared<CountingStore>(GetRegistryStore());
  SetRegistryStore(counting);
  auto key = Key(u"Software\\Handles");
  key->SetValue(u"a", Variant(u"x"));
  key->GetValue(u"a");
  EXPECT_ERROR_NUMBER(key->GetValue(u"missing"), LibNumber(ErrBadKey));
  EXPECT_ERROR_NUMBER(key->DeleteValue(u"missing"), LibNumber(ErrBadKey));
  key->GetValueNames();
  key->get_SubKeys()->Add(u"child");
  key->DeleteKey(true);
  EXPECT_EQ(counting->open, 0);
}

TEST_F(AccessLayerTest, LargeTextValuesReadBackWhole) {
  auto key = Key(u"Software\\Big");
  String big(1 << 20, u'x');
  big[12345] = u'\u00e9';
  EXPECT_FALSE(key->SetValue(u"big", Variant(big)));
  EXPECT_EQ(key->GetValue(u"big"), Variant(big));
  // The listing's fixed buffers stop at such a value and record 234.
  key->SetValue(u"after", Variant(1));
  SafeArray names = key->GetValueNames();
  EXPECT_EQ(names.Count(), 0u);
  EXPECT_EQ(key->get_ErrorState(), 234);
}

}  // namespace
}  // namespace tarvo2
