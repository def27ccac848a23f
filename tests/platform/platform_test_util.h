// Helpers shared by the platform tests.
#ifndef TARVO2_TESTS_PLATFORM_PLATFORM_TEST_UTIL_H_
#define TARVO2_TESTS_PLATFORM_PLATFORM_TEST_UTIL_H_

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tarvo2/file_system.h"

namespace tarvo2::testing {

using Names = std::vector<std::string>;

// The names in the folder `dir`, sorted.
inline Names Children(FileSystem* fs, const std::string& dir) {
  Names names;
  EXPECT_TRUE(fs->GetChildren(dir, &names).ok()) << dir;
  std::sort(names.begin(), names.end());
  return names;
}

// Runs `child` (given its number, giving its exit code) in `count` forked
// processes, and expects each to exit with 0.
inline void InChildren(int count, const std::function<int(int)>& child) {
  std::vector<pid_t> pids;
  for (int c = 0; c < count; ++c) {
    pids.push_back(::fork());
    ASSERT_GE(pids.back(), 0);
    if (pids.back() == 0) ::_exit(child(c));
  }
  for (pid_t pid : pids) {
    int status = 0;
    EXPECT_TRUE(::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  }
}

}  // namespace tarvo2::testing

#endif  // TARVO2_TESTS_PLATFORM_PLATFORM_TEST_UTIL_H_
