#include "years/shrink.h"

#include <algorithm>
#include <vector>

namespace years {
namespace {

Outcome PlayOnly(History history, uint64_t day, const std::vector<Fault>& faults) {
  history.first_day = day;
  history.days = 1;
  history.only = &faults;
  return Play(history, nullptr);
}

// Delta debugging (Zeller, Hildebrandt 2002), complements only: leaves out ever smaller parts.
std::vector<Fault> Shrink(const History& history, uint64_t day, std::vector<Fault> faults) {
  for (size_t part = (faults.size() + 1) / 2; part > 0; part = part == 1 ? 0 : (part + 1) / 2) {
    for (size_t begin = 0; begin < faults.size();) {
      std::vector<Fault> fewer = faults;
      const auto first = fewer.begin() + static_cast<ptrdiff_t>(begin);
      fewer.erase(first, first + static_cast<ptrdiff_t>(std::min(part, fewer.size() - begin)));
      if (PlayOnly(history, day, fewer).broken.empty()) {
        begin += part;
      } else {
        faults = fewer;
      }
    }
  }
  return faults;
}

}  // namespace

void TellShrunk(const History& history, uint64_t day, std::ostream& out) {
  std::vector<Fault> faults = FaultsOfDay(history.seed, day, history.devices);
  if (PlayOnly(history, day, faults).broken.empty()) {
    out << "the day by itself holds: it takes what came before\n";
    return;
  }
  faults = Shrink(history, day, std::move(faults));
  out << "it takes " << faults.size() << (faults.size() == 1 ? " fault:\n" : " faults:\n");
  for (const Fault& fault : faults) out << "  " << Text(fault) << "\n";
  for (const Broken& broken : PlayOnly(history, day, faults).broken) {
    out << "  " << TimeText(broken.at) << "  " << broken.what << "\n";
  }
  out << "the day by itself: years --devices " << history.devices << " --seed " << history.seed << " --from " << day
      << " --days 1\n";
}

}  // namespace years
