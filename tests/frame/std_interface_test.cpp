// The bare common interface class and the version report.
#include <gtest/gtest.h>

#include "tarvo2/std_interface.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

struct RecordingBox : MessageBoxService {
  std::vector<std::tuple<String, String, std::int32_t>> shown;
  bool fail = false;
  void Show(StringView m, StringView t, std::int32_t style) override {
    if (fail) RaiseRuntimeError(err::kPermissionDenied);
    shown.emplace_back(String(m), String(t), style);
  }
};

class VersionReportTest : public ::testing::Test {
 protected:
  void SetUp() override { services->set_message_box(box); }
  std::shared_ptr<RecordingBox> box = std::make_shared<RecordingBox>();
  std::shared_ptr<Services> services = Services::New();
};

TEST_F(VersionReportTest, ShowsOnlyWhenAsked) {
  Ref<TarvoStdInterface> s = TarvoStdInterface::Create(services);
  EXPECT_EQ(s->Version(), Variant(u"2.0"));
  EXPECT_EQ(s->Version(false), Variant(u"2.0"));
  EXPECT_TRUE(box->shown.empty());
  EXPECT_EQ(Call(Variant(s), u"version", {true}), Variant(u"2.0"));
  ASSERT_EQ(box->shown.size(), 1u);
  EXPECT_EQ(std::get<0>(box->shown[0]), u"Tarvo2 - 2.0.4\rModule: TarvoStdInterface - 2.0");
  EXPECT_EQ(std::get<1>(box->shown[0]), u"Tarvo2 - Version Information");
  EXPECT_EQ(std::get<2>(box->shown[0]), 64);
}

TEST_F(VersionReportTest, AFailingMessageBoxPassesThroughTheHandler) {
  box->fail = true;
  EXPECT_ERROR(TarvoStdInterface::Create(services)->Version(true), 70, u"Permission denied",
               u"Tarvo2\r\nTarvoStdInterface.Version (Get)");
}

TEST(StdInterface, TheBareClassStoresNothing) {
  Variant s(TarvoStdInterface::Create());
  LetProperty(s, u"Path", u"C");
  LetProperty(s, u"Section", u"S");
  EXPECT_EQ(GetProperty(s, u"Path"), Variant(u""));
  EXPECT_EQ(GetProperty(s, u"Section"), Variant(u""));
  EXPECT_EQ(Call(s, u"SetValue", {u"a", 1}), Variant(false));
  EXPECT_EQ(Call(s, u"GetValue", {u"a"}), Variant());
}

}  // namespace
}  // namespace tarvo2
