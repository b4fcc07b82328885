// Commands and their bodies on both request paths: each part is the path's letter, the command and, on the next line,
// the body. The beacon module accepts everything. Whatever a command stores can be read again at the next start.
#include "harness.h"

FUZZ_TARGET(input) {
  ResetFake();
  Fake().on_sleep = [](unsigned) {
    fuzz::TheBoard().beacon.Empty();
    fuzz::TheBoard().beacon.Say("MTD:OK\r\n");
  };
  fuzz::WithServer([&] {
    for (std::string_view part : fuzz::Parts(input)) {
      const bool external = fuzz::Choose(part, 2) != 0;
      const size_t line = std::min(part.find('\n'), part.size());
      fuzz::Request(std::string(part.substr(0, line)), part.substr(line),
                    external ? fuzz::kBusExtRequestMessage : fuzz::kBusRequestMessage);
      for (const auto& [key, value] : Fake().store) fuzz::MustParse(value);
    }
  });
}
