// The words about a site: its hub, its cables, the power of its devices.
#include "script/script_words.h"
#include "site/car_park.h"

namespace desk {
namespace {

using SiteAction = std::function<void(CarPark&)>;

template <void (CarPark::*Do)()>
SiteAction ParseNothing(Words&, const SiteDevices&) {
  return [](CarPark& park) { (park.*Do)(); };
}

template <void (CarPark::*Do)(const std::string&)>
SiteAction ParseDevice(Words& words, const SiteDevices& site) {
  const std::string device = words.Next("a device's name");
  if (site.count(device) == 0) throw ScriptMistake("the site has no device \"" + device + "\"");
  return [device](CarPark& park) { (park.*Do)(device); };
}

SiteAction ParseSay(Words& words, const SiteDevices&) {
  const std::string text = words.Rest();
  return [text](CarPark& park) { park.journal().Add(Source::kScript, text); };
}

// clang-format off
constexpr SiteActionWords kSiteActions[] = {
    // begins with   usage                 read by
    {"kill hub",     "kill hub",           ParseNothing<&CarPark::KillHub>},
    {"start hub",    "start hub",          ParseNothing<&CarPark::StartHub>},
    {"freeze hub",   "freeze hub",         ParseNothing<&CarPark::FreezeHub>},
    {"thaw hub",     "thaw hub",           ParseNothing<&CarPark::ThawHub>},
    {"pull cable",   "pull cable DEVICE",  ParseDevice<&CarPark::PullCable>},
    {"plug cable",   "plug cable DEVICE",  ParseDevice<&CarPark::PlugCable>},
    {"power off",    "power off DEVICE",   ParseDevice<&CarPark::PowerOff>},
    {"power on",     "power on DEVICE",    ParseDevice<&CarPark::PowerOn>},
    {"say",          "say TEXT",           ParseSay},
};
// clang-format on

}  // namespace

const SiteActionWords* TakeSiteActionWords(Words& words) { return TakeRow(kSiteActions, words); }

std::string KnownSiteActions() {
  std::string known = "wait, expect at";
  for (const auto& row : kSiteActions) known += std::string(", ") + row.words;
  return known;
}

}  // namespace desk
