#include "rig.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"

namespace trials {

namespace bs = businessserver;
namespace fs = std::filesystem;

namespace {

constexpr char kReplies[] = "reply/trial";
constexpr Milliseconds kSupervision(5);
constexpr Milliseconds kPatience(200);  // before a question is asked again
constexpr Milliseconds kStartLimit(10000);

}  // namespace

Rig::Rig() {
  char name[] = "/tmp/trial.XXXXXX";
  directory_ = mkdtemp(name);
}

Rig::~Rig() {
  for (desk::Process* process : {&daemon, &broker, &store}) process->Stop();
  serial_ends_ = true;
  if (serial_.joinable()) serial_.join();
  std::error_code ignored;
  fs::remove_all(directory_, ignored);
}

bool Rig::Start(const std::string& daemon_program, const std::string& packaging) {
  fs::create_directories(StoreDirectory());
  // Without the change of user, so that the broker dies with this program.
  std::ofstream(directory_ + "/mosquitto.conf")
      << std::ifstream(packaging + "/mosquitto.conf").rdbuf() << (geteuid() == 0 ? "\nuser root\n" : "\n");
  broker.Configure({"mosquitto", "-c", directory_ + "/mosquitto.conf"}, directory_);
  store.Configure({"redis-server", fs::absolute(packaging + "/redis.conf"), "--dir", StoreDirectory()}, directory_);
  daemon.Configure({fs::absolute(daemon_program), "-v", "3"}, directory_);
  std::string problem;
  if (!board_.Create(directory_, problem) || !beacon_line_.Open(directory_ + "/" + desk::kBeaconLine, problem) ||
      !external_line_.Open(directory_ + "/" + desk::kExternalLine, problem)) {
    fprintf(stderr, "%s\n", problem.c_str());
    return false;
  }
  for (desk::Process* process : {&broker, &store, &daemon}) {
    process->OnExit([this, process](const std::string& how) {
      ended_by_itself[process->name()] += how.empty() ? 0 : 1;
      if (process == &store) store_ended_ = Loop::Clock::now();
    });
  }
  serial_ = std::thread([this] {
    while (!serial_ends_) serial_loop_.Turn(Milliseconds(100));
  });
  bus.OnMessage([this](const desk::BusMessage& message) { Received(message); });
  loop.Every(kSupervision, [this] { Supervise(); });
  Supervise();
  bus.Start();
  if (Await(bs::kGetFrameStatus, "0", kStartLimit) < kStartLimit && ended_by_itself["daemon"] == 0) return true;
  fprintf(stderr, "the device does not come up: are ports 5291 and 5299 free?\n");
  return false;
}

void Rig::Supervise() {
  for (desk::Process* process : {&store, &broker, &daemon}) {
    process->Check();
    std::string problem;
    if (process == &store && Loop::Clock::now() - store_ended_ < store_rest) continue;
    if (!process->running() && !process->Start(problem)) fprintf(stderr, "%s\n", problem.c_str());
  }
}

bool Rig::Send(const std::string& command, const std::string& body, Answered answered) {
  const std::string number = std::to_string(++requests_);
  if (waiting_.size() > 1000) waiting_.clear();  // their replies were lost long ago
  if (!bus.Request(bs::kBusRequestMessage, "{\"type\":\"" + command + "\",\"body\":" + body + "}", kReplies, number)) {
    return false;
  }
  waiting_[number] = std::move(answered);
  return true;
}

void Rig::Received(const desk::BusMessage& message) {
  ++heard[message.topic];
  if (message.topic != kReplies) return;
  const auto found = waiting_.find(message.correlation);
  if (found == waiting_.end()) return;
  const Answered answered = std::move(found->second);
  waiting_.erase(found);
  Json::Value reply;
  const bool document = bs::ParseJson(message.payload, reply) && reply.isObject();
  answered(document ? reply[bs::kState].asInt() : 0, message.payload);
}

Milliseconds Rig::Await(const std::string& command, const std::string& body, Milliseconds limit, std::string* reply) {
  const auto start = Loop::Clock::now();
  const auto passed = [&] { return std::chrono::duration_cast<Milliseconds>(Loop::Clock::now() - start); };
  const auto done = std::make_shared<bool>(false);
  while (!*done && passed() < limit) {
    const auto heard_of = std::make_shared<bool>(false);
    const auto text = std::make_shared<std::string>();
    Send(command, body, [=](int state, const std::string& payload) {
      *heard_of = true;
      *done = *done || state == bs::kAllDone.state;
      *text = payload;
    });
    loop.RunUntil([&] { return *heard_of; }, std::min(kPatience, limit - passed()));
    if (*done && reply != nullptr) *reply = *text;
    if (!*done) loop.RunFor(Milliseconds(10));
  }
  return std::min(passed(), limit);
}

Holdings Rig::OfDaemon() const {
  const std::string process = "/proc/" + std::to_string(daemon.pid());
  Holdings held;
  std::error_code error;
  for (fs::directory_iterator entry(process + "/fd", error), end; entry != end; ++entry) ++held.descriptors;
  std::ifstream status(process + "/status");
  for (std::string line; std::getline(status, line);) sscanf(line.c_str(), "VmRSS: %d", &held.resident_kb);
  return held;
}

std::string Percentile(std::vector<int> values, int percent) {
  if (values.empty()) return "-";
  std::sort(values.begin(), values.end());
  return std::to_string(values[(values.size() - 1) * static_cast<size_t>(percent) / 100]);
}

}  // namespace trials
