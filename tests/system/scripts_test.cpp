// Field scripts against the whole device: real binary, broker, store and pseudo-terminals. A script ends with status 0
// when everything that it expects was seen.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "../temporary_directory.h"

namespace {

class Script : public testing::TestWithParam<const char*> {};

TEST_P(Script, SeesEverythingItExpects) {
  const TemporaryDirectory directory;
  const std::string output = directory.path / "output.txt";
  const std::string command = std::string(BINARY_DIRECTORY "/simulator --directory ") +
                              (directory.path / "desk").string() + " --script " SOURCE_DIRECTORY "/" + GetParam() +
                              " > " + output + " 2>&1 < /dev/null";
  const int status = std::system(command.c_str());
  std::stringstream text;
  text << std::ifstream(output).rdbuf();
  EXPECT_EQ(status, 0) << text.str();
}

INSTANTIATE_TEST_SUITE_P(Desk, Script,
                         testing::Values("simulator/day.script", "simulator/outages.script",
                                         "tests/system/scripts/serial_bytes.script",
                                         "tests/system/scripts/beacon.script", "tests/system/scripts/recovery.script",
                                         "tests/system/scripts/garbage.script"),
                         [](const auto& info) { return std::filesystem::path(info.param).stem().string(); });

}  // namespace
