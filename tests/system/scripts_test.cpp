// Field scripts against the whole device: real binary, broker, store and pseudo-terminals. A script ends with status 0
// when everything that it expects was seen.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <string>

#include "../temporary_directory.h"
#include "contract_watch.h"

namespace {

class Script : public testing::TestWithParam<const char*> {};

TEST_P(Script, SeesEverythingItExpects) {
  const TemporaryDirectory directory;
  const std::string output = directory.path / "output.txt";
  const std::string command = std::string(BINARY_DIRECTORY "/simulator --directory ") +
                              (directory.path / "desk").string() + " --script " SOURCE_DIRECTORY "/" + GetParam() +
                              " > " + output + " 2>&1 < /dev/null";
  desk::Loop loop;
  ContractWatch contract(loop);
  contract.Start();
  auto status = std::async(std::launch::async, [&] { return std::system(command.c_str()); });
  loop.RunUntil([&] { return status.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
                desk::Loop::Milliseconds(290000));
  std::stringstream text;
  text << std::ifstream(output).rdbuf();
  EXPECT_EQ(status.get(), 0) << text.str();
  EXPECT_GT(contract.seen(), 0);
}

INSTANTIATE_TEST_SUITE_P(Desk, Script,
                         testing::Values("simulator/day.script", "simulator/outages.script",
                                         "tests/system/scripts/serial_bytes.script",
                                         "tests/system/scripts/beacon.script", "tests/system/scripts/recovery.script",
                                         "tests/system/scripts/garbage.script"),
                         [](const auto& info) { return std::filesystem::path(info.param).stem().string(); });

}  // namespace
