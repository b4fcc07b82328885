// Replies of the beacon module: each time the driver waits, it hears the next part of the input.
#include "harness.h"
#include "serial_decoder.h"

FUZZ_TARGET(input) {
  ResetFake();
  const auto parts = fuzz::Parts(input);
  for (const auto part : parts) words::DescribeBeaconLine(std::string(part));
  size_t next = 0;
  Fake().on_sleep = [&](unsigned) {
    fuzz::TheBoard().beacon.Empty();
    fuzz::TheBoard().beacon.Say(parts[next++ % parts.size()]);
  };
  fuzz::WithServer([&] {
    next = 0;
    fuzz::Request(fuzz::kGetBt, "0");
    fuzz::Request(fuzz::kSetBt, R"({"uuid":"0123456789abcdef","major":1})");
    fuzz::BlueTooth module;
    module.Uart1_Init();
    std::vector<unsigned char> time(fuzz::kBeaconTimeSize);
    module.GetRTCTime(time.data());
    module.SetRTCTime(time.data());
  });
}
