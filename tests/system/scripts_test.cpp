// Field scripts against the whole device: real binary, broker, store and pseudo-terminals. A script ends with status 0
// when everything that it expects was seen.
#include <future>

#include "contract_watch.h"
#include "programs.h"

namespace {

class Script : public testing::TestWithParam<const char*> {};

TEST_P(Script, SeesEverythingItExpects) {
  const TemporaryDirectory directory;
  desk::Loop loop;
  ContractWatch contract(loop);
  contract.Start();
  auto run = std::async(std::launch::async, Shell,
                        BINARY_DIRECTORY "/simulator --directory " + (directory.path / "desk").string() +
                            " --script " SOURCE_DIRECTORY "/" + GetParam() + " </dev/null");
  loop.RunUntil([&] { return run.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
                desk::Loop::Milliseconds(290000));
  const Outcome outcome = run.get();
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_GT(contract.seen(), 0);
}

INSTANTIATE_TEST_SUITE_P(Desk, Script,
                         testing::Values("simulator/day.script", "simulator/outages.script",
                                         "tests/system/scripts/serial_bytes.script",
                                         "tests/system/scripts/beacon.script", "tests/system/scripts/recovery.script",
                                         "tests/system/scripts/garbage.script"),
                         [](const auto& info) { return std::filesystem::path(info.param).stem().string(); });

}  // namespace
