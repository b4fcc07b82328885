// Each run of these tests has a network of its own, in which the device's ports are free: ctest runs several at a time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "bringup/network.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  std::string problem;
  if (!testing::GTEST_FLAG(list_tests) && !desk::EnterOwnNetwork(problem)) {
    // One after the other, then, on the machine's own ports.
    fprintf(stderr, "%s: these tests wait for each other\n", problem.c_str());
    const std::string turn = std::filesystem::temp_directory_path() / "business_server_tests.lock";
    flock(open(turn.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666), LOCK_EX);
  }
  return RUN_ALL_TESTS();
}
