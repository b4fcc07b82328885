#include "rig.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include "build_identity/build.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/names.h"

namespace trials {

namespace bs = businessserver;
namespace fs = std::filesystem;

namespace {

constexpr char kReplies[] = "reply/trial";
constexpr Milliseconds kRest(5);            // before an ended program is started again
constexpr Milliseconds kPatience(200);      // before a question is asked again
constexpr Milliseconds kStartLimit(60000);  // of a machine that is busy with others

}  // namespace

void Programs::AddOptions(CLI::App& app, const std::string& trial) {
  daemon = BINARY_DIRECTORY "/business_server";
  packaging = PACKAGING_DIRECTORY;
  app.add_option("--daemon", daemon, "the daemon's program");
  app.add_option("--packaging", packaging, "where mosquitto.conf, redis.conf and store-repair are");
  app.set_version_flag("--version", build::Line(trial));
}

Rig::Rig(const Programs& programs)
    : device(loop, serial_loop_, {directory_.path, programs.daemon, programs.packaging, false, {"-v", "3"}}) {}

Rig::~Rig() {
  device.Stop();
  serial_ends_ = true;
  if (serial_.joinable()) serial_.join();
}

bool Rig::Start() {
  std::string problem;
  if (!device.MakeFiles(problem)) {
    fprintf(stderr, "%s\n", problem.c_str());
    return false;
  }
  for (desk::Process* process : {&device.store, &device.broker, &device.daemon}) {
    process->OnExit(
        [this, process](const std::string& how) { ended_by_itself[process->name()] += how.empty() ? 0 : 1; });
    process->KeepRunning(kRest);
    if (!process->Start(problem)) fprintf(stderr, "%s\n", problem.c_str());
  }
  serial_ = std::thread([this] {
    while (!serial_ends_) serial_loop_.Turn(Milliseconds(100));
  });
  bus.OnMessage([this](const desk::BusMessage& message) { Received(message); });
  bus.Start();
  if (Await(bs::kGetFrameStatus, "0", kStartLimit) < kStartLimit && ended_by_itself["daemon"] == 0) return true;
  fprintf(stderr, "the device does not come up: are ports 5291 and 5299 free?\n");
  return false;
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
  // An answer to an earlier question counts as well: on a busy machine each may come later than the next is asked.
  const auto good = std::make_shared<std::optional<std::string>>();
  while (!*good && passed() < limit) {
    const auto heard_of = std::make_shared<bool>(false);
    Send(command, body, [=](int state, const std::string& payload) {
      *heard_of = true;
      if (state == bs::kAllDone.state) *good = payload;
    });
    loop.RunUntil([&] { return *heard_of || *good; }, std::min(kPatience, limit - passed()));
    if (!*good) loop.RunFor(Milliseconds(10));
  }
  if (*good && reply != nullptr) *reply = **good;
  return std::min(passed(), limit);
}

Holdings Rig::OfDaemon() const {
  const std::string process = "/proc/" + std::to_string(device.daemon.pid());
  Holdings held;
  std::error_code error;
  for (fs::directory_iterator entry(process + "/fd", error), end; entry != end; ++entry) ++held.descriptors;
  std::ifstream status(process + "/status");
  for (std::string line; std::getline(status, line);) sscanf(line.c_str(), "VmRSS: %d", &held.resident_kb);
  return held;
}

int Rig::EndedByThemselves() const {
  int all = 0;
  for (const auto& [name, times] : ended_by_itself) {
    if (times != 0) printf("the %s ended by itself %d times\n", name.c_str(), times);
    all += times;
  }
  return all;
}

void EnterQuietNetwork() {
  std::string problem;
  if (!desk::EnterOwnNetwork(problem)) fprintf(stderr, "%s: ports 5291 and 5299 must be free\n", problem.c_str());
}

std::string Percentile(std::vector<int> values, int percent) {
  if (values.empty()) return "-";
  std::sort(values.begin(), values.end());
  return std::to_string(values[(values.size() - 1) * static_cast<size_t>(percent) / 100]);
}

std::string Seconds(std::vector<int> values, int percent) {
  if (values.empty()) return "-";
  char text[16];
  snprintf(text, sizeof text, "%.2f", std::stoi(Percentile(std::move(values), percent)) / 1000.0);
  return text;
}

}  // namespace trials
