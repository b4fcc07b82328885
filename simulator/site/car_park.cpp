#include "site/car_park.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>

#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/site_names.h"

namespace desk {
namespace {

namespace bs = businessserver;

constexpr Loop::Milliseconds kPlannerLimit(20000);
constexpr std::chrono::seconds kOneCar(5);  // what a display shows later than this has another reason
constexpr char kRelayDocument[] = "relay_value";
constexpr char kEntrance[] = "ENTRANCE";

bus::Options HubOptions() {
  bus::Options options;
  options.address.host = SiteWires::Address(0);
  options.address.port = kHubPort;
  return options;
}

std::string RelayDocument(const std::string& site, const std::string& device) {
  Json::Value document;
  document[bs::kSite] = site;
  document["device"] = device;
  document["broker"] = "mqtt://" + SiteWires::Address(0);
  document["remote"] = "configure";
  return bs::StyledText(document);
}

// Each device wants some dozen descriptors here.
void AllowManyDescriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

bool IsWorthRetelling(const Event& event) {
  return event.source == Source::kRecogniser || event.source == Source::kDisplay || event.source == Source::kDesk;
}

}  // namespace

site::Site MorningSite(int devices) {
  site::Site site;
  site.name = "garage";
  site::Plan entrance;
  entrance.name = "The entrance";
  entrance.zone = "ENTRY";
  entrance.shows[bs::kLeft] = {"L1"};
  entrance.shows[bs::kRight] = {"L2"};
  site.devices[kEntrance] = entrance;
  for (int i = 0; i < devices - 1; ++i) {
    const int level = i % 2 + 1;
    char name[32];
    snprintf(name, sizeof name, "L%d-%03d", level, i / 2 + 1);
    site::Plan camera;
    camera.name = "Level " + std::to_string(level) + ", camera " + std::to_string(i / 2 + 1);
    camera.zone = "L" + std::to_string(level) + "/" + static_cast<char>('A' + i / 2 / 10 % 26);
    site.devices[name] = camera;
  }
  return site;
}

CarPark::CarPark(Loop& loop, CarParkPlan plan)
    : loop_(loop),
      plan_(std::move(plan)),
      hub_(loop, plan_.directory + "/hub"),
      view_(plan_.site.name),
      planner_(loop, HubOptions(),
               {[this] { HandOutPlans(); },
                [this](const bus::Message& message) {
                  view_.Take(message.topic, message.payload, message.retained, site::View::Clock::now());
                }}) {}

bool CarPark::Start(std::string& problem) {
  AllowManyDescriptors();
  hub_.process.OnExit(
      [this](const std::string& how) { Note("the hub " + (how.empty() ? "is down" : "ended " + how)); });
  if (!wires_.Start(problem) || !hub_.MakeFiles(plan_.configuration + "/site/mosquitto.conf", plan_.pages, problem) ||
      !hub_.process.Start(problem))
    return false;
  planner_.Start();
  if (!loop_.RunUntil([this] { return planner_.up(); }, kPlannerLimit)) {
    problem = "the hub does not answer: see " + plan_.directory + "/hub/log/hub.log";
    return false;
  }
  Note("the hub is up");
  int number = 0;
  for (const auto& [name, planned] : plan_.site.devices) {
    Place& place = places_[name];
    place.number = ++number;
    if (!StartDevice(name, place, problem)) {
      problem = name + ": " + problem;
      return false;
    }
  }
  const bool all_ready = loop_.RunUntil(
      [this] {
        return std::all_of(places_.begin(), places_.end(),
                           [](const auto& place) { return place.second.desk->ready(); });
      },
      kPlannerLimit);
  if (!all_ready) problem = "not every daemon answers";
  for (auto& [name, place] : places_) {
    if (name == kEntrance) {
      place.desk->Request("set_ext_ttyio_cfg",
                          R"({"proto":0,"f_ena":0,"f_addr":1,"l_ena":1,"l_addr":2,"r_ena":1,"r_addr":3})");
    }
    place.desk->StoreSet(kRelayDocument, RelayDocument(plan_.site.name, name));
    place.desk->StartProcess(place.desk->relay());
  }
  return all_ready;
}

bool CarPark::StartDevice(const std::string& name, Place& place, std::string& problem) {
  place.network = std::make_unique<Network>();
  if (!place.network->Make(problem) || !wires_.Join(place.number, *place.network, problem)) return false;
  DevicePlan device{plan_.directory + "/" + name, plan_.daemon, plan_.configuration};
  device.daemon_options = {"-v", "2"};
  device.relay = plan_.relay;
  device.network = place.network.get();
  place.desk = std::make_unique<Desk>(device, loop_);
  place.desk->KnowTruth(
      [this, name = name](const std::string& direction) { return std::to_string(TruthOf(name, direction)); });
  if (!place.desk->Start(problem)) return false;
  place.desk->journal().Listen([this, name = name](const Event& event) { Retell(name, event); });
  Note(name + " is up, " + SiteWires::Address(place.number) + ", pid " + std::to_string(place.desk->daemon().pid()));
  return true;
}

void CarPark::Stop() {
  for (auto& [name, place] : places_) {
    if (place.desk) place.desk->Stop();
  }
  hub_.process.Stop();
}

void CarPark::Retell(const std::string& device, const Event& event) {
  if (!IsWorthRetelling(event)) return;
  std::string text = device + ": " + event.text;
  const auto now = Loop::Clock::now();
  if (event.source == Source::kRecogniser) last_car_ = now;
  if (event.source == Source::kDisplay && now - last_car_ < kOneCar) {
    char since[48];
    const std::chrono::duration<double> passed = now - last_car_;
    snprintf(since, sizeof since, ", %.2f s after the car", passed.count());
    text += since;
  }
  journal_.Add(event.source, text, event.facts);
}

void CarPark::HandOutPlans() {
  planner_.Subscribe(site::View::Filters(plan_.site.name));
  for (const auto& [name, planned] : plan_.site.devices) {
    bus::Message message{bs::PlanTopic(plan_.site.name, name), bs::StyledText(site::PlanDocument(planned))};
    message.retained = true;
    planner_.Publish(message);
  }
}

void CarPark::KillHub() { hub_.process.Kill(); }
void CarPark::StartHub() {
  std::string problem;
  Note(hub_.process.Start(problem) ? "the hub is started" : problem);
}
void CarPark::FreezeHub() {
  hub_.process.Freeze();
  Note("the hub stands still");
}
void CarPark::ThawHub() {
  hub_.process.Thaw();
  Note("the hub goes on");
}

void CarPark::PullCable(const std::string& device) {
  Place& place = places_.at(device);
  place.wired = false;
  wires_.Pull(place.number);
  Note("the network cable of " + device + " is pulled");
}

void CarPark::PlugCable(const std::string& device) {
  Place& place = places_.at(device);
  place.wired = true;
  if (place.powered) wires_.Plug(place.number);
  Note("the network cable of " + device + " is in again");
}

void CarPark::PowerOff(const std::string& device) {
  Place& place = places_.at(device);
  place.powered = false;
  wires_.Pull(place.number);  // nobody says goodbye
  for (Process* process : {&place.desk->relay(), &place.desk->daemon(), &place.desk->broker(), &place.desk->store()}) {
    process->Kill();
  }
}

void CarPark::PowerOn(const std::string& device) {
  Place& place = places_.at(device);
  place.powered = true;
  if (place.wired) wires_.Plug(place.number);
  for (Process* process : {&place.desk->store(), &place.desk->broker(), &place.desk->daemon(), &place.desk->relay()}) {
    place.desk->StartProcess(*process);
  }
}

Desk* CarPark::Find(const std::string& device) const {
  const auto found = places_.find(device);
  return found == places_.end() ? nullptr : found->second.desk.get();
}

// What cameras see that are dead or cut off does not count.
int CarPark::TruthOf(const std::string& device, const std::string& direction) const {
  size_t row = 0;
  while (row < bs::kDirectionNames.size() && direction != bs::kDirectionNames[row]) ++row;
  if (row == bs::kDirectionNames.size()) return -1;
  const auto& zones = plan_.site.devices.at(device).shows[row];
  int free = 0;
  for (const auto& [name, place] : places_) {
    const std::string& zone = plan_.site.devices.at(name).zone;
    const bool shown =
        std::any_of(zones.begin(), zones.end(), [&](const auto& outer) { return bs::IsWithin(zone, outer); });
    if (!shown || name == device || !place.powered || !place.wired) continue;
    for (size_t i = 1; i <= bs::kSpaces; ++i) {
      const auto& space = place.desk->recogniser().space(i);
      free += space.valid == 1 && space.space_status == 1 ? 0 : 1;
    }
  }
  return free;
}

}  // namespace desk
