// Replies of the beacon module: each time the driver waits, it hears the next part of the input.
#include "devicesdk/bluetooth.h"
#include "harness.h"
#include "serial_decoder.h"

FUZZ_TARGET(input) {
  const auto parts = fuzz::Parts(input);
  for (const auto part : parts) words::DescribeBeaconLine(std::string(part));
  fuzz::WithServer(input, [&] {
    size_t next = 0;
    fuzz::TheBoard().module_answers = false;
    Fake().on_sleep = [&](unsigned) {
      fuzz::TheBoard().DropInput(fuzz::TTY_DEV_UART1);
      fuzz::TheBoard().Say(fuzz::TTY_DEV_UART1, parts[next++ % parts.size()]);
    };
    fuzz::Request(fuzz::kGetBt, "0");
    fuzz::Request(fuzz::kSetBt, R"({"uuid":"0123456789abcdef","major":1})");
    fuzz::BlueTooth module;
    module.Uart1_Init();
    std::vector<unsigned char> time(fuzz::kBeaconTimeSize);
    module.GetRTCTime(time.data());
    module.SetRTCTime(time.data());
    Fake().on_sleep = nullptr;
  });
}
