// The access layer: result codes recorded in ErrorState and the library
// errors they map to, value encoding at the store boundary, handles, and the
// store's one-step reads and writes.
#include <cstring>
#include <limits>

#include "registry_test_util.h"

namespace tarvo2 {
namespace {

class AccessLayerTest : public RegistryTest {};

const String kWriteChain = Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.SetKeyValue",
                                  u"KivRegistryKey.SetValue"});

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
    auto lib = LibNumber(static_cast<LibraryErrorCode>(r.lib));
    if (r.lib != 0) {
      EXPECT_ERROR(key->SetValue(u"v", Variant(1)), lib, LibraryErrorMessage(lib), kWriteChain);
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
  // A missing value: ErrBadKey, or with the switch off Empty (the marker).
  EXPECT_ERROR(key->GetValue(u"nope"), LibNumber(ErrBadKey), u"Bad Key",
               Chain({u"Tarvo2", u"KivRegistryKey.ErrorState (Let)", u"KivRegistryKey.QueryValueEx",
                      u"KivRegistryKey.QueryValue", u"KivRegistryKey.GetValue"}));
  SetRaiseErrors(false);
  EXPECT_TRUE(key->GetValue(u"nope").IsMissing());
  EXPECT_EQ(key->get_ErrorState(), 2);
}

TEST_F(AccessLayerTest, ValuesAreStoredAsTextOrNativeIntegersOrNotAtAll) {
  struct Row { Variant value; std::uint32_t type; std::string bytes; };  // type 0: not written
  const Row rows[] = {
      {Variant(u""), kRegSz, std::string("\0", 1)},
      {Variant(u"\u00e9\u20ac"), kRegSz, std::string("\xe9\x80\0", 3)},  // code page bytes
      {Variant(true), kRegDword, std::string("\xff\xff\xff\xff", 4)},
      {Variant(std::int16_t{-2}), kRegDword, std::string("\xfe\xff\xff\xff", 4)},
      {Variant(std::int32_t{258}), kRegDword, std::string("\x02\x01\0\0", 4)},
      {Variant(3.0), kRegSz, std::string("3.0\0", 4)},
      {Variant(0.1), kRegSz, std::string("0.1\0", 4)},
      {Variant(1e20), kRegSz, std::string("1.0E+20\0", 8)},
      {Variant(-2.5e-7), kRegSz, std::string("-2.5E-07\0", 9)},
      {Variant::Null(), 0, ""}, {Variant(1.5f), 0, ""}, {Variant(Currency{1}), 0, ""}, {Variant(Date{2}), 0, ""},
      {Variant(std::uint8_t{1}), 0, ""}, {SafeArray::Of(VarType::kSingle, {Variant(1.0f)}), 0, ""},
  };
  auto key = Key(u"Software\\Enc");
  int i = 0;
  for (const Row& r : rows) {
    SCOPED_TRACE(testing::PrintToString(r.value));
    std::string name = "v" + std::to_string(i++);
    EXPECT_FALSE(key->SetValue(FromAnsi(name), r.value));
    EXPECT_EQ(key->get_ErrorState(), 0);
    auto [type, bytes] = Raw("Software\\Enc", name);
    EXPECT_EQ(type, r.type ? r.type : 0xFFFFu);
    EXPECT_EQ(bytes, r.bytes);
    if (r.value.IsDouble()) {
      EXPECT_EQ(key->GetValue(FromAnsi(name)), r.value);  // the text reads back as the same Double
    }
  }
  // No decimal text for infinity: refused, nothing stored.
  EXPECT_ERROR(key->SetValue(u"inf", Variant(std::numeric_limits<double>::infinity())),
               LibNumber(ErrInvalidParameters), u"Invalid Parameters", kWriteChain);
  EXPECT_EQ(Raw("Software\\Enc", "inf").first, 0xFFFFu);
}

TEST_F(AccessLayerTest, OtherStoredTypesReadAsEmptyWithCodeMinusOne) {
  auto key = Key(u"Software\\Types");
  auto store = GetRegistryStore();
  store->SetValueAt(kHKeyCurrentUser, "Software\\Types", "bin", kRegBinary, reinterpret_cast<const std::uint8_t*>("ab"), 2);
  store->SetValueAt(kHKeyCurrentUser, "Software\\Types", "long", kRegDword,
                    reinterpret_cast<const std::uint8_t*>("12345678"), 8);
  EXPECT_EQ(key->GetValue(u"bin", u"\t", true, true, Variant(u"d")), Variant(u"d"));
  EXPECT_EQ(key->get_ErrorState(), -1);
  EXPECT_TRUE(key->GetValue(u"long").IsMissing());  // more than four bytes: refused, not overrun
  EXPECT_EQ(key->get_ErrorState(), 234);
}

TEST_F(AccessLayerTest, NamesTheCodePageCannotCarryAreRefusedWith87) {
  auto key = Key(u"Software\\Names");
  for (const String& name : {String(u"a\0b", 3), String(u"\u03a9mega"), String(u"x\U0001F600")}) {
    SCOPED_TRACE(ToUtf8(name));
    EXPECT_ERROR(key->SetValue(name, Variant(u"v")), LibNumber(ErrInvalidParameters), u"Invalid Parameters",
                 kWriteChain);
    EXPECT_ERROR_NUMBER(key->GetValue(name), LibNumber(ErrInvalidParameters));
    EXPECT_ERROR_NUMBER(KivRegistryKey::Create()->put_KeyName(u"S\\" + name), LibNumber(ErrInvalidParameters));
  }
  EXPECT_EQ(key->GetValueNames().Count(), 0u);
  EXPECT_FALSE(key->SetValue(u"tab\there\nline", Variant(u"ok")));  // control characters are ordinary
  EXPECT_EQ(key->GetValue(u"tab\there\nline"), Variant(u"ok"));
}

TEST_F(AccessLayerTest, HandlesAreClosedAndLargeTextsReadWhole) {
  auto counting = std::make_shared<CountingStore>(GetRegistryStore());
  SetRegistryStore(counting);
  auto key = Key(u"Software\\Big");
  String big(1 << 20, u'x');
  big[12345] = u'\u00e9';
  EXPECT_FALSE(key->SetValue(u"big", Variant(big)));
  EXPECT_EQ(key->GetValue(u"big"), Variant(big));
  EXPECT_ERROR_NUMBER(key->DeleteValue(u"missing"), LibNumber(ErrBadKey));
  EXPECT_EQ(key->GetValueNames().Count(), 0u);  // the listing's buffers stop at the big value
  EXPECT_EQ(key->get_ErrorState(), 234);
  key->get_SubKeys()->Add(u"child");
  key->DeleteKey(true);
  EXPECT_EQ(counting->open, 0);
}

TEST_F(AccessLayerTest, OneStepReadsAndWritesGiveWhatTheThreeCallsGive) {
  // The SQLite store's own QueryValueAt and SetValueAt against the composed
  // defaults that a plain wrapper falls back on, on two equal stores.
  std::shared_ptr<RegistryStore> direct = OpenSqliteRegistryStore(":memory:");
  RegistryStoreWrapper composed(OpenSqliteRegistryStore(":memory:"));
  RegistryStore* stores[2] = {direct.get(), &composed};
  const std::string long_name(kMaxValueNameLength + 1, 'n');
  struct Row { const char* path; const char* name; const char* data; std::uint32_t size, capacity; };
  const Row rows[] = {{"Software\\W", "v", "abc", 4, 64},       {"software\\w", "V", "x", 2, 1},
                      {"Software\\Missing", "v", "abc", 4, 64}, {"\\Software", "v", "abc", 4, 64},
                      {"Software\\W", "v", nullptr, 4, 64},     {"Software\\W", long_name.c_str(), "a", 2, 0},
                      {"Software\\W", "missing", nullptr, 0, 64}};
  for (RegistryStore* st : stores) {
    RegKey h = 0;
    ASSERT_EQ(st->CreateKey(kHKeyCurrentUser, "Software\\W", 0x3F, &h, nullptr), 0);
    st->CloseKey(h);
  }
  for (const Row& r : rows) {
    SCOPED_TRACE(std::string(r.path) + " " + std::to_string(r.size));
    std::int32_t code[2][2], open[2][2];
    std::uint32_t type[2] = {77, 77}, size[2];
    std::string read[2];
    for (int i = 0; i < 2; ++i) {
      code[i][0] = stores[i]->SetValueAt(kHKeyCurrentUser, r.path, r.name, kRegSz,
                                         reinterpret_cast<const std::uint8_t*>(r.data), r.size, &open[i][0]);
      read[i].assign(64, '\0');
      size[i] = r.capacity;
      code[i][1] = stores[i]->QueryValueAt(kHKeyCurrentUser, r.path, r.name, &type[i],
                                           r.capacity ? reinterpret_cast<std::uint8_t*>(read[i].data()) : nullptr,
                                           &size[i], &open[i][1]);
    }
    for (int k = 0; k < 2; ++k) {
      EXPECT_EQ(code[0][k], code[1][k]);
      EXPECT_EQ(open[0][k], open[1][k]);
    }
    EXPECT_EQ(type[0], type[1]);
    EXPECT_EQ(size[0], size[1]);
    EXPECT_EQ(read[0], read[1]);
  }
}

}  // namespace
}  // namespace tarvo2
