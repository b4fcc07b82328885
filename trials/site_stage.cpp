#include "site_stage.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <set>

#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/site_names.h"

namespace trials {

namespace bs = businessserver;

namespace {

constexpr char kSiteName[] = "trial";
constexpr int kDevicesInAZone = 10;
constexpr Milliseconds kTick(5);
constexpr Milliseconds kRest(1000);  // as the units have it
constexpr Milliseconds kStartLimit(60000);
constexpr std::chrono::seconds kCountsGood(70);
constexpr std::chrono::seconds kOnTheWay(5);       // from a camera to a display on a busy machine
constexpr std::chrono::seconds kSecondOfAMove(2);  // in which sums may hold a device twice
constexpr char kDisplays[] =
    R"({"type":"set_ext_ttyio_cfg","body":{"proto":0,"f_ena":0,"f_addr":9,"l_ena":1,"l_addr":1,)"
    R"("r_ena":1,"r_addr":2}})";

bus::Options HubOptions() {
  bus::Options options;
  options.address.host = desk::SiteWires::Address(0);
  options.address.port = desk::kHubPort;
  return options;
}

desk::DevicePlan PlanOf(const Programs& programs, const std::string& directory, const desk::Network& network) {
  desk::DevicePlan plan{directory, programs.daemon, programs.packaging};
  plan.daemon_options = {"-v", "3"};
  plan.relay = programs.relay;
  plan.network = &network;
  return plan;
}

}  // namespace

Camera::Camera(Loop& loop, const Programs& programs, const std::string& directory, std::string device_name, int place)
    : name(std::move(device_name)),
      number(place),
      device(loop, PlanOf(programs, directory + "/" + name, network)),
      bus(loop, &network),
      loop_(loop),
      store_(&network),
      beacon_(loop, device.beacon_line) {}

bool Camera::StartAround(desk::SiteWires& wires, std::string& problem) {
  if (!network.Make(problem) || !wires.Join(number, network, problem) || !device.MakeFiles(problem)) return false;
  device.external_line.OnReceive([this](const std::string& bytes) { ReadLine(bytes); });
  device.daemon.OnExit([this](const std::string&) { DaemonForgets(); });
  device.broker.OnExit([this](const std::string&) { uncertain = true; });
  device.relay.OnExit([this](const std::string&) { pushed = {}; });
  Note(Free());
  for (desk::Process* process : {&device.store, &device.broker}) {
    process->KeepRunning(kRest);
    if (!process->Start(problem)) return false;
  }
  bus.Start();
  return true;
}

bool Camera::StartDevice(const std::string& site, std::string& problem) {
  Json::Value document;
  document[bs::kSite] = site;
  document["device"] = name;
  document["broker"] = "mqtt://" + desk::SiteWires::Address(0);
  const bool stored = loop_.RunUntil(
      [&] { return bus.connected() && store_.Set("relay_value", bs::StyledText(document)); }, kStartLimit);
  problem = name + ": broker or store does not answer";
  if (!stored) return false;
  for (desk::Process* process : {&device.daemon, &device.relay}) {
    process->KeepRunning(kRest);
    if (!process->Start(problem)) return false;
  }
  return true;
}

void Camera::Toggle(size_t space) {
  const bool occupied = recogniser_.space(space).space_status == 1 && recogniser_.space(space).valid == 1;
  const auto& record = occupied ? recogniser_.Leave(space) : recogniser_.Arrive(space, "");
  Note(Free());
  Publish(record);
}

void Camera::Repeat() {
  for (size_t space = 1; space <= bs::kSpaces; ++space) {
    const bool occupied = recogniser_.space(space).space_status == 1 && recogniser_.space(space).valid == 1;
    Publish(occupied ? recogniser_.Arrive(space, "") : recogniser_.Leave(space));
  }
}

void Camera::Publish(const bs::LX_Parking_Result_Param& record) {
  const std::string bytes(reinterpret_cast<const char*>(&record), sizeof record);
  if (!bus.Publish(bs::kAvsSimulatorTrigger, bytes)) uncertain = true;
}

void Camera::DaemonForgets() {
  uncertain = true;
  Note(bs::kSpaces);
  Note(Free());
}

int Camera::Free() const {
  int free = 0;
  for (size_t i = 1; i <= bs::kSpaces; ++i) {
    const auto& space = recogniser_.space(i);
    free += space.valid == 1 && space.space_status == 1 ? 0 : 1;
  }
  return free;
}

void Camera::Note(int free) {
  const auto now = Loop::Clock::now();
  history_.Note(now, free, now - kCountsGood - kOnTheWay);
}

int Camera::MostFree() const {
  return uncertain ? static_cast<int>(bs::kSpaces) : history_.Most(Loop::Clock::now() - kCountsGood - kOnTheWay);
}

// "AA 01 17 02 31 32 ..": display 1 shows 12. Read here in its own way, whatever the tools make of it.
void Camera::ReadLine(const std::string& bytes) {
  line_ += bytes;
  for (size_t at = 0; at + 4 < line_.size(); ++at) {
    const auto byte = [&](size_t offset) { return static_cast<uint8_t>(line_[at + offset]); };
    const size_t digits = byte(3);
    if (byte(0) != 0xAA || byte(2) != 0x17 || digits == 0 || digits > 5) continue;
    if (at + 4 + digits > line_.size()) break;
    const std::string text = line_.substr(at + 4, digits);
    if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) continue;
    if (byte(1) == bs::kLeft || byte(1) == bs::kRight) shown[byte(1)] = std::stoi(text);
  }
  if (line_.size() > 12) line_.erase(0, line_.size() - 12);  // a frame may come in two parts
}

Stage::Stage(const Programs& programs)
    : programs_(programs),
      hub(loop, directory_.path / "hub"),
      planner_(loop, HubOptions(), {[this] {
                 for (const auto& camera : cameras) HandOut(*camera);
               }}),
      random_(static_cast<unsigned>(getpid())) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

// All at once: each would be waited for.
Stage::~Stage() {
  for (auto& camera : cameras) {
    for (desk::Process* process : camera->device.Programs()) {
      process->OnExit({});
      process->KeepRunning(Milliseconds(-1));
      process->Kill();
    }
  }
}

bool Stage::Start(int devices) {
  std::string problem;
  const auto failed = [&] {
    fprintf(stderr, "%s\n", problem.c_str());
    return false;
  };
  if (!wires.Start(problem) || !hub.MakeFiles(programs_.packaging + "/site/mosquitto.conf", "", problem) ||
      !hub.process.Start(problem)) {
    return failed();
  }
  planner_.Start();
  zones_ = std::max(2, devices / kDevicesInAZone);
  for (int i = 1; i <= devices; ++i) {
    char name[16];
    snprintf(name, sizeof name, "C-%03d", i);
    cameras.push_back(std::make_unique<Camera>(loop, programs_, directory_.path, name, i));
    Camera& camera = *cameras.back();
    // Everybody shows somebody: the next zone, and a whole level or the rest of its own.
    camera.plan.zone = Zone(i % zones_);
    camera.plan.shows[bs::kLeft] = {Zone((i + 1) % zones_)};
    camera.plan.shows[bs::kRight] = {i % 4 == 0 ? "L2" : camera.plan.zone};
    if (!camera.StartAround(wires, problem)) return failed();
    camera.bus.OnMessage([this, &camera](const desk::BusMessage& message) {
      if (message.topic == bs::kBusNetPush) CheckPush(camera, message.payload);
    });
  }
  for (auto& camera : cameras) {
    HandOut(*camera);
    if (!camera->StartDevice(kSiteName, problem)) return failed();
  }
  // A request that comes before the daemon is lost: asked until a display answers.
  loop.Every(Milliseconds(1000), [this] {
    for (auto& camera : cameras) {
      if (camera->shown[bs::kLeft] < 0) camera->bus.Publish(bs::kBusRequestMessage, kDisplays);
    }
  });
  loop.Every(kTick, [this] { Traffic(); });
  return true;
}

// A level, and a letter on it.
std::string Stage::Zone(int number) {
  return "L" + std::to_string(number % 2 + 1) + "/" + static_cast<char>('A' + number / 2 % 26);
}

void Stage::HandOut(const Camera& camera) {
  bus::Message message{bs::PlanTopic(kSiteName, camera.name), bs::StyledText(site::PlanDocument(camera.plan))};
  message.retained = true;
  planner_.Publish(message);
}

void Stage::Move(Camera& camera) {
  camera.plan.zone = Zone(Random(0, zones_ - 1));
  moved_ = Loop::Clock::now();
  HandOut(camera);
}

bool Stage::Shows(const Camera& camera, uint32_t direction, const Camera& other) const {
  const auto& zones = camera.plan.shows[direction];
  return &camera != &other && std::any_of(zones.begin(), zones.end(),
                                          [&](const std::string& zone) { return bs::IsWithin(other.plan.zone, zone); });
}

int Stage::TruthOf(const Camera& camera, uint32_t direction) const {
  int free = 0;
  for (const auto& other : cameras) free += Shows(camera, direction, *other) ? other->Free() : 0;
  return free;
}

void Stage::CheckPush(Camera& camera, const std::string& payload) {
  ++pushes_;
  Json::Value push;
  if (!bs::ParseJson(payload, push)) return Breach(camera.name + " was pushed " + payload);
  const uint32_t direction = push[bs::kPos].asUInt();
  if (direction < camera.pushed.size()) camera.pushed[direction] = true;
  if (Loop::Clock::now() - moved_ < kSecondOfAMove) return;
  Claim most;
  for (const auto& other : cameras) {
    if (!Shows(camera, direction, *other)) continue;
    most.spaces += static_cast<int>(bs::kSpaces);
    most.free += other->MostFree();
  }
  const std::string fault = Judge({push[bs::kTotle].asInt(), push[bs::kFree].asInt()}, most);
  if (!fault.empty()) Breach(camera.name + " " + fault + ": " + payload);
}

void Stage::Traffic() {
  due_ = rate_ == 0 ? 0 : due_ + rate_ * static_cast<double>(kTick.count()) / 1000;
  for (; due_ >= 1; due_ -= 1, ++results_) {
    Camera& camera = *cameras[static_cast<size_t>(Random(0, static_cast<int>(cameras.size()) - 1))];
    camera.Toggle(static_cast<size_t>(Random(1, static_cast<int>(bs::kSpaces))));
  }
}

bool Stage::AllTrue(std::string* first_false) const {
  for (const auto& camera : cameras) {
    for (const uint32_t direction : kWatchedDirections) {
      const int truth = TruthOf(*camera, direction);
      if (camera->shown[direction] == truth) continue;
      *first_false = camera->name + " shows " + std::to_string(camera->shown[direction]) + " " +
                     bs::kDirectionNames[direction] + ", the truth is " + std::to_string(truth);
      return false;
    }
  }
  return true;
}

Milliseconds Stage::AwaitTruth(const std::string& after, Milliseconds limit) {
  const int rate = rate_;
  rate_ = 0;
  const auto start = Loop::Clock::now();
  const auto repeat = [this] {
    for (auto& camera : cameras) {
      if (camera->uncertain) camera->Repeat();
    }
  };
  const uint64_t repeating = loop.Every(kRest, repeat);
  repeat();
  std::string first_false;
  const bool good = loop.RunUntil([&] { return AllTrue(&first_false); }, limit);
  loop.Cancel(repeating);
  const auto took = std::chrono::duration_cast<Milliseconds>(Loop::Clock::now() - start);
  if (!good) Breach(after + ": after " + std::to_string(limit.count() / 1000) + " s " + first_false);
  if (good) {
    for (auto& camera : cameras) camera->uncertain = false;
  }
  rate_ = rate;
  return took;
}

std::vector<Camera*> Stage::RandomCameras(size_t count) {
  std::vector<Camera*> all;
  for (auto& camera : cameras) all.push_back(camera.get());
  std::shuffle(all.begin(), all.end(), random_);
  all.resize(std::max<size_t>(1, std::min(count, all.size())));
  return all;
}

void Stage::Breach(const std::string& what) {
  ++breaches_;
  printf("BREACH: %s\n", what.c_str());
  fflush(stdout);
}

}  // namespace trials
