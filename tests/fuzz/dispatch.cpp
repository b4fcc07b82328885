// Any messages in any order, with time passing between them.
#include "harness.h"

FUZZ_TARGET(input) {
  fuzz::WithServer(input, [&] {
    for (std::string_view part : fuzz::Parts(input)) {
      const size_t choice = fuzz::Choose(part, fuzz::kDpMethodCount + 2);
      if (choice == fuzz::kDpMethodCount) Fake().Advance(40000, 1000);
      fuzz::Deliver(choice < fuzz::kDpMethodCount ? fuzz::DP_METHOD[choice] : std::string(part), part);
    }
  });
}
