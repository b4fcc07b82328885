// Counts that neighbours push, one part a push, an empty part for 70 s without any. The totals that are told on
// request are always the sums of their four groups.
#include "harness.h"

FUZZ_TARGET(input) {
  fuzz::WithServer(input, [&] {
    for (const std::string_view part : fuzz::Parts(input)) {
      if (part.empty()) Fake().Advance(70000, 1000);
      fuzz::Deliver(fuzz::kBusNetPush, part);
    }
    fuzz::Request(fuzz::kGetNetStatus, "0");
    const Json::Value counts = fuzz::MustParse(Fake().replies.at(0).data)[fuzz::kBody];
    const auto is_sum = [&](const char* total, const std::string& of) {
      uint32_t sum = 0;
      for (const char* group : {"n_", "l_", "r_", "f_"}) sum += counts[group + of].asUInt();
      return counts[total].asUInt() == sum;
    };
    MUST_HOLD(is_sum("totle", "totles") && is_sum("free", "frees"));
  });
}
