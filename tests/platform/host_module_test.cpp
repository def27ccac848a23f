#include "tarvo2/host_module.h"

#include <sys/stat.h>
#include <gtest/gtest.h>

namespace tarvo2 {
namespace {

TEST(HostModuleTest, DefaultIsThisTestProgram) {
  std::string path = GetHostModulePath();
  ASSERT_FALSE(path.empty());
  EXPECT_EQ(path[0], '/');
  EXPECT_NE(path.find("platform_tests"), std::string::npos) << path;
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_TRUE(S_ISREG(st.st_mode));
}

TEST(HostModuleTest, OverrideAndRestore) {
  std::string real = GetHostModulePath();
  SetHostModulePath("/opt/host/app.exe");
  EXPECT_EQ(GetHostModulePath(), "/opt/host/app.exe");
  SetHostModulePath("");
  EXPECT_EQ(GetHostModulePath(), real);
}

}  // namespace
}  // namespace tarvo2
