// Commands and their bodies on both request paths: each part is the path's letter, the command and, on the next line,
// the body. The beacon module accepts everything. Whatever a command stores can be read again at the next start.
#include <utility>

#include "harness.h"

FUZZ_TARGET(input) {
  fuzz::WithServer(input, [&] {
    for (std::string_view part : fuzz::Parts(input)) {
      const bool external = fuzz::Choose(part, 2) != 0;
      const size_t line = std::min(part.find('\n'), part.size());
      fuzz::Request(std::string(part.substr(0, line)), part.substr(line),
                    external ? fuzz::kBusExtRequestMessage : fuzz::kBusRequestMessage);
      if (std::exchange(Fake().store_writes, 0) == 0) continue;
      for (const auto& [key, value] : Fake().store) fuzz::MustBeJson(value);
    }
  });
}
